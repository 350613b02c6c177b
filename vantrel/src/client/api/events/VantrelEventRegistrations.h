#pragma once

#include <atomic>
#include <memory>
#include <set>
#include <string>
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
    bool add(const VantrelEventSubject& subject, std::string& error) const;
    bool remove(const VantrelNodeId& nodeId, std::string& error) const;
    /// Deregisters, while the connection is up and `limit` has not passed; failures are logged.
    void remove(const std::vector<VantrelEventSubject>& subjects, const Vantrel::CoDeadline& limit) const;
    /// Registers nothing again from now on.
    void close() { closed_ = true; }

    /// The connection was lost and is up again: registers everything, logging failures, which are left to
    /// `restore`.
    void reconnected() CO_EXCLUDES(refusedMutex_);

    // --- On the port's thread ---

    /// Connects again when the connection was lost, registers again what failed before, or, after
    /// `renewLater`, all; false when anything fails. May take a second and more.
    bool restore() CO_EXCLUDES(refusedMutex_);
    /// The server may have dropped what is registered with it.
    void renewLater() { renewal_ = true; }

  private:
    enum class Again { AfterLoss, Renewal, AfterRefusal };

    bool addAgain(const std::vector<VantrelEventSubject>& subjects, Again occasion)
        CO_EXCLUDES(refusedMutex_);
    bool addAgain(VantrelBaseClientAPI& api, const VantrelEventSubject& subject, Again occasion) const;
    unsigned answerLimitMs() const;
    std::vector<VantrelEventSubject> refusedSubjects() const CO_EXCLUDES(refusedMutex_);

    const std::weak_ptr<VantrelEventPort> port_;
    const unsigned portNumber_;
    const int id_;
    const VantrelClientConnection::Shared client_;
    const VantrelEventDispatcher& wanted_;
    std::atomic<bool> closed_{false};
    std::atomic<unsigned> reconnections_{0};
    bool renewal_ = false;  // the port's thread's

    mutable Vantrel::CoMutex refusedMutex_;
    std::set<std::string> refused_ CO_GUARDED_BY(refusedMutex_);  // nodes that could not be registered again
};
