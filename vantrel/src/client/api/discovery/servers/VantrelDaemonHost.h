#pragma once

#include <string>

#include "VantrelDaemonInfo.h"

/// What the record of a daemon denotes, seen from this host: asks the host for its name, its addresses, its
/// UUID and its files, and looks host names up, within LOOKUP_TIMEOUT_MS for a whole call. Thread-safe.
class VantrelDaemonHost {
  public:
    static constexpr unsigned LOOKUP_TIMEOUT_MS = 5000;

    /// Whether the daemon runs on this host: by the host's UUID, or, for a record without one, by an address
    /// other than loopback that this host carries.
    static bool isLocal(const VantrelDaemonInfo& info);
    /// Whether an address or host name, or another record, denotes the host of the record's daemon.
    static bool isSameHost(const VantrelDaemonInfo& info, const char* address);
    static bool isSameHost(const VantrelDaemonInfo& info, const VantrelDaemonInfo& other);
    /// Whether another record, or a server id, denotes the record's server.
    static bool isSameServer(const VantrelDaemonInfo& info, const VantrelDaemonInfo& other);
    static bool isSameServer(const VantrelDaemonInfo& info, const VantrelServerId& serverId);

    /// Path of the local socket on which a daemon of this host serves frames; empty when there is none.
    static std::string getFrameMsgQ(const VantrelDaemonInfo& info);
    /// Where a daemon with that frame port has its local socket, existing or not.
    static std::string frameMsgQPath(int framePort);
};
