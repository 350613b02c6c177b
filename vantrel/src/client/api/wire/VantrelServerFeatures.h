#pragma once

#include <tuple>

#include "VantrelDaemonInfo.h"

/// A server's four-number version, compared number by number.
struct VantrelVersion {
    int major;
    int minor;
    int patch;
    int build;

    static VantrelVersion ofProtocol(const VantrelDaemonInfo& info) {
        return {info.getVersionMajor(), info.getVersionMinor(), info.getVersionMaint(),
                info.getVersionBuild()};
    }
    static VantrelVersion ofProduct(const VantrelDaemonInfo& info) {
        return {info.getProductVersionMajorNumber(), info.getProductVersionMinorNumber(),
                info.getProductVersionMaintNumber(), info.getProductBuildNumber()};
    }

    friend constexpr bool operator>=(const VantrelVersion& a, const VantrelVersion& b) {
        return std::tie(a.major, a.minor, a.patch, a.build) >= std::tie(b.major, b.minor, b.patch, b.build);
    }
};

/// The protocol version from which on a server can do a thing. Every threshold of the client stands here.
namespace VantrelServerFeatures {

constexpr VantrelVersion SET_METADATA{2, 5, 0, 0};  // and creating nodes at all
constexpr VantrelVersion LINK_TO_FRAMES{2, 6, 0, 0};
constexpr VantrelVersion STREAMS{2007, 1, 0, 0};
constexpr VantrelVersion READ_WITHOUT_ACKNOWLEDGEMENT{2010, 0, 0, 0};
constexpr VantrelVersion READ_AHEADS{2010, 1, 1, 0};
constexpr VantrelVersion READ_AHEAD_REDIRECT{2011, 0, 0, 0};
constexpr VantrelVersion INVALIDATE_CACHE{2012, 0, 0, 5120};
constexpr VantrelVersion CHILDREN_EX{2012, 0, 0, 5134};  // "GetChildrenEx", "GetDisplayNameEx"
constexpr VantrelVersion CREATE_NODE_EX{2012, 0, 0, 5134};
constexpr VantrelVersion FRAME_PATHS_EX{2012, 1, 1, 5758};  // "GetFramePathsEx", "SetFramePathsEx"
constexpr VantrelVersion FRAMES_EX{2013, 1, 0, 6115};       // "GetFramesEx", "AllocateFramesEx"
constexpr VantrelVersion CAN_CREATE_NODE{2015, 0, 0, 0};
constexpr VantrelVersion DUPLICATE_NODE{2017, 0, 0, 144};
constexpr VantrelVersion CLIP_FORMAT_EX{2017, 1, 0, 238};

}  // namespace VantrelServerFeatures
