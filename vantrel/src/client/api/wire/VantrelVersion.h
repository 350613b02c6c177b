#pragma once

#include <tuple>

class VantrelDaemonInfo;

/// A server's four-number version, compared number by number.
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
