#pragma once

#include <functional>
#include <vector>

#include "VantrelKnownServers.h"

/// A server id with a numeric address, for which a server id with a host name, or with an address of this
/// host, may stand.
struct VantrelCandidateId {
    VantrelServerId id;
    bool onlyLocal;  ///< meant is a daemon of this host

    /// Whether the record of a server that has this id is the one meant.
    bool admits(const VantrelDaemonInfo& info) const;
};

/// The ids that `serverId` may stand for; none when it denotes no server at all. An address of this host
/// stands for all of them: its daemon need not announce the one that was given. Looks a host name up, within
/// `timeoutMs` or until `stopped`; an id with a name that is not found stands for itself.
std::vector<VantrelCandidateId> vantrelCandidateIds(const VantrelServerId& serverId, unsigned timeoutMs,
                                                    const std::function<bool()>& stopped);
