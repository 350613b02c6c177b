#pragma once

#include <functional>
#include <string>
#include <vector>

#include "CoMutex.h"
#include "VantrelKnownServers.h"

/// What became of a known server. The numbers are those that observers know.
enum class VantrelServerEvent { Changed = 0, Added = 1, Removed = 2 };

/// The servers that the process's discovery knows. Logs every change, and notifies its owner of it. A daemon
/// of this host is remembered: a search that it does not answer is worth a message. Thread-safe.
class VantrelServerRegistry {
  public:
    using Change = VantrelKnownServers::Change;
    using Servers = VantrelKnownServers::Servers;
    using Microseconds = VantrelKnownServers::Microseconds;
    /// Called without a lock, on the thread that brought the change about.
    using Notify = std::function<void(VantrelServerEvent event, const VantrelDaemonInfo& info)>;

    VantrelServerRegistry(std::size_t capacity, Notify notify);

    /// Takes a record in, stamped with the current time.
    Change add(const VantrelDaemonInfo& info) CO_EXCLUDES(mutex_);
    void remove(const VantrelServerId& serverId) CO_EXCLUDES(mutex_);
    /// Removes what was not stamped since `threshold`.
    void removeOlder(Microseconds threshold) CO_EXCLUDES(mutex_);
    void stamp(const VantrelDaemonInfo& info) CO_EXCLUDES(mutex_);
    /// Replaces everything, without a notification.
    void assign(const std::vector<VantrelDaemonInfo>& servers) CO_EXCLUDES(mutex_);

    /// Those that an id denotes, in order.
    Servers find(const VantrelServerId& serverId) const CO_EXCLUDES(mutex_);
    /// All, or those of a database, in order.
    Servers list(const char* database = nullptr) const CO_EXCLUDES(mutex_);
    /// Whether a daemon of this host was known, has not withdrawn, and was not heard of since `time`.
    bool missesLocalDaemon(Microseconds time) const CO_EXCLUDES(mutex_);

  private:
    void noteLocalDaemon(const VantrelDaemonInfo& info, Change change) CO_EXCLUDES(mutex_);

    const Notify notify_;
    mutable Vantrel::CoMutex mutex_;
    VantrelKnownServers known_ CO_GUARDED_BY(mutex_);
    std::string localUUID_ CO_GUARDED_BY(mutex_);  ///< of this host, while a daemon of it is expected
    Microseconds localHeardAt_ CO_GUARDED_BY(mutex_) = 0;
};
