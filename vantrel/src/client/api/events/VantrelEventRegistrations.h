#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "CoMutex.h"
#include "CoTime.h"
#include "VantrelBaseClientAPI.h"
#include "VantrelEventDispatcher.h"
#include "VantrelEventPort.h"
#include "VantrelSharedConnection.h"

/// What is registered with a server for the handlers of one event connection, and registered again whenever
/// the connection to it was lost and is up again. It holds its reference to that connection, so that the
/// cache does not drop it while handlers wait for events.
///
/// Thread-safe, but for what says otherwise. No lock of its own is held while the server is called.
class VantrelEventRegistrations {
  public:
    /// `wanted`, which must outlive this object, knows the handlers; `id` is where the server is to send
    /// their events.
    VantrelEventRegistrations(const std::shared_ptr<VantrelEventPort>& port, int id,
                              const VantrelClientConnection::Shared& client,
                              const VantrelEventDispatcher& wanted);

    VantrelClientConnection& client() const { return *client_.get(); }

    /// Registers one subject; on failure `error` says why.
    bool add(const VantrelEventSubject& subject, VantrelFailure& failure) const;
    bool remove(const VantrelNodeId& nodeId, VantrelFailure& failure) const;
    /// Deregisters, while the connection is up and `limit` has not passed; failures are logged.
    void remove(const std::vector<VantrelEventSubject>& subjects, const Vantrel::CoDeadline& limit) const;
    /// Registers nothing again from now on.
    void close() { closed_ = true; }

    /// The connection was lost and is up again: registers everything, logging failures, which are left to
    /// `restore`.
    void reconnected() CO_EXCLUDES(pendingMutex_);

    // --- On the port's thread ---

    enum class Restored {
        Up,      ///< and everything is registered
        Busy,    ///< another thread is calling the server: it is not waited for, and something is left to do
        Failed,  ///< the server cannot be reached, or refuses something
    };
    /// Connects again when the connection was lost, registers again what failed before, or, after
    /// `renewLater`, all. May take a second and more.
    Restored restore() CO_EXCLUDES(pendingMutex_);
    /// The server may have dropped what is registered with it.
    void renewLater() { renewal_ = true; }

  private:
    enum class Again { AfterLoss, Renewal, AfterRefusal };
    using Subjects = std::vector<std::pair<VantrelEventSubject, Again>>;

    Restored addAgain(const Subjects& subjects) CO_EXCLUDES(pendingMutex_);
    bool addAgain(VantrelBaseClientAPI& api, const VantrelEventSubject& subject, Again occasion) const;
    unsigned answerLimitMs() const;
    void renewAll() CO_EXCLUDES(pendingMutex_);
    Subjects pendingSubjects() const CO_EXCLUDES(pendingMutex_);

    const std::weak_ptr<VantrelEventPort> port_;
    const unsigned portNumber_;
    const int id_;
    const VantrelClientConnection::Shared client_;
    const VantrelEventDispatcher& wanted_;
    std::atomic<bool> closed_{false};
    std::atomic<unsigned> reconnections_{0};
    bool renewal_ = false;  // the port's thread's

    mutable Vantrel::CoMutex pendingMutex_;
    std::map<std::string, Again> pending_ CO_GUARDED_BY(pendingMutex_);  // nodes still to register, and why
};
