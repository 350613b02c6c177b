#pragma once

#include <tuple>

class VantrelDaemonInfo;

/// A version of four numbers, compared number by number.
struct VantrelVersion {
    int major;
    int minor;
    int patch;
    int build;

    static VantrelVersion ofProtocol(const VantrelDaemonInfo& info);
    static VantrelVersion ofProduct(const VantrelDaemonInfo& info);

    friend constexpr bool operator>=(const VantrelVersion& a, const VantrelVersion& b) {
        return std::tie(a.major, a.minor, a.patch, a.build) >= std::tie(b.major, b.minor, b.patch, b.build);
    }
};

/// The release that this is: of the library and of vantreld, and of the protocol that they speak.
extern const VantrelVersion VANTREL_RELEASE;
