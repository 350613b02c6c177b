#pragma once

#include <optional>
#include <string>

/// Where to ask for a list of servers.
struct Gateway {
    std::string address;  ///< a host name, or a numeric address without brackets; empty: nowhere
    int port = 0;         ///< 0: the usual one
};

/// Reads "host", "host:port", "[IPv6]" or "[IPv6]:port"; also a bare IPv6 address, which has no port. None
/// for any other text.
std::optional<Gateway> parseGateway(const std::string& text);
