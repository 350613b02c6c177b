#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "VantrelDaemonInfo.h"

namespace vantreld {

/// Another server, to which this one sends those who announce that they will read a frame.
struct Redirection {
    std::string host;  ///< name or numeric address
    int nodePort = 0;
    int framePort = 0;
};

/// HOST:PORT:FRAMEPORT, an IPv6 address in brackets; none for any other text.
std::optional<Redirection> parseRedirection(std::string_view text);

/// The record that leads a client there. It holds nothing that this server does not know of the other one.
/// Looks the host up: throws CoException with the reason when that fails.
VantrelDaemonInfo daemonInfoOf(const Redirection& redirection);

}  // namespace vantreld
