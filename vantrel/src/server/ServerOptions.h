#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Redirection.h"
#include "VantrelDaemonInfo.h"
#include "VantrelDiscoverySockets.h"
#include "VantrelVersion.h"

namespace vantreld {

/// How the server was asked to run.
struct ServerOptions {
    std::string root;
    int nodePort = VantrelDaemonInfo::DEFAULT_NODE_PORT;  ///< 0: any free one, as for the frame port
    int framePort = VantrelDaemonInfo::DEFAULT_FRAME_PORT;
    std::string bindAddress;         ///< of both ports; empty: every address
    std::string displayName;         ///< empty: the host's name
    std::string database = "SXAFS";  ///< what clients take for the database of a host that is named alone
    std::string storageId;           ///< empty: the one that was made with the root
    VantrelVersion version = VANTREL_RELEASE;  ///< of the protocol; an earlier one: acts as a server of it
    bool demo = false;
    std::optional<Redirection> redirection;  ///< where read-aheads are sent; none: frames are read here
    bool allowShutdown = false;              ///< whether clients may end the server
    bool discovery = true;                   ///< whether to announce the server and list others
    unsigned discoveryPort = 0;              ///< 0 and empty: what network.cfg gives
    std::string discoveryScope;
};

/// Four decimal numbers with points between them; none for any other text.
std::optional<VantrelVersion> parseProtocolVersion(std::string_view text);

/// Where discovery takes place: as network.cfg gives it, but for what the options give. TTL 0 when there is
/// to be none.
VantrelDiscoveryGroup discoveryGroupOf(const ServerOptions& options);

/// Reads the command line and sets the log level that it names. The exit status when the program is to end at
/// once, with the help or what was wrong printed: 0 for help, 2 for wrong usage.
std::optional<int> parseCommandLine(int argc, char** argv, ServerOptions& options);

}  // namespace vantreld
