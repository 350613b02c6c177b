#include "VantrelEventRegistrations.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "CoMsg.h"

using Vantrel::CoLock;
using Vantrel::CoMsg;

namespace {

/// Long for a network, short for those whose events wait until the server has answered.
constexpr unsigned RESTORE_TIMEOUT_MS = 1000;

}  // namespace

VantrelEventRegistrations::VantrelEventRegistrations(const std::shared_ptr<VantrelEventPort>& port, int id,
                                                     const VantrelClientConnection::Shared& client,
                                                     const VantrelEventDispatcher& wanted)
    : port_(port), portNumber_(port->number()), id_(id), client_(client), wanted_(wanted) {}

bool VantrelEventRegistrations::add(const VantrelEventSubject& subject, VantrelFailure& failure) const {
    VantrelBaseClientAPI api(*client_.get());
    if (api.registerEventsOn(portNumber_, id_, subject)) return true;
    failure = api.lastFailure();
    return false;
}

bool VantrelEventRegistrations::remove(const VantrelNodeId& nodeId, VantrelFailure& failure) const {
    VantrelBaseClientAPI api(*client_.get());
    if (api.unregisterEventsOn(portNumber_, id_, nodeId)) return true;
    failure = api.lastFailure();
    return false;
}

void VantrelEventRegistrations::remove(const std::vector<VantrelEventSubject>& subjects,
                                       const Vantrel::CoDeadline& limit) const {
    VantrelBaseClientAPI api(*client_.get());
    for (const VantrelEventSubject& subject : subjects) {
        // A server that is not connected has nothing to send: it is not connected only for this.
        const unsigned leftMs = limit.leftMs();
        if (!client_->isConnected() || leftMs == 0) return;
        if (!api.unregisterEventsOn(portNumber_, id_, VantrelNodeId(subject.nodeId.c_str()), leftMs)) {
            CO_MSG_NOTICE("Could not unregister from the events of '%s': %s", subject.nodeId.c_str(),
                          api.lastError());
        }
    }
}

// --- After a loss ---

void VantrelEventRegistrations::reconnected() {
    // Taken now, under the connection's lock: what is unregistered from here on is sent after this.
    Subjects subjects;
    for (auto& subject : wanted_.subjects()) subjects.emplace_back(std::move(subject), Again::AfterLoss);
    {
        const CoLock lock(pendingMutex_);
        pending_.clear();
    }
    addAgain(subjects);
    ++reconnections_;
}

VantrelEventRegistrations::Restored VantrelEventRegistrations::restore() {
    const unsigned reconnectionsBefore = reconnections_;
    VantrelClientConnection& connection = *client_.get();
    if (!connection.restore(RESTORE_TIMEOUT_MS)) return Restored::Failed;
    // Not connected now: the thread that is connecting registers, or, if the connection was closed on
    // purpose, the one that opens it again.
    if (!connection.isConnected()) return Restored::Up;
    const bool renewing = std::exchange(renewal_, false);
    if (reconnections_ != reconnectionsBefore)
        return pendingSubjects().empty() ? Restored::Up : Restored::Failed;
    if (renewing) renewAll();
    return addAgain(pendingSubjects());
}

void VantrelEventRegistrations::renewAll() {
    const auto subjects = wanted_.subjects();
    const CoLock lock(pendingMutex_);
    for (const VantrelEventSubject& subject : subjects) pending_[subject.nodeId] = Again::Renewal;
}

/// What the server refuses stays in pending_, and what was not reached.
VantrelEventRegistrations::Restored VantrelEventRegistrations::addAgain(const Subjects& subjects) {
    VantrelBaseClientAPI api(*client_.get());
    auto result = Restored::Up;
    for (const auto& [subject, occasion] : subjects) {
        bool ok = false;
        // Not waited for: a call of the application may last, and events are served on this thread.
        if (!client_->tryUse([&, &wanted = subject, why = occasion] { ok = addAgain(api, wanted, why); }))
            return Restored::Busy;
        if (!ok) {
            CO_MSG_AT(occasion == Again::AfterRefusal ? CoMsg::DEBUG : CoMsg::ERROR,
                      "Could not register again for the events of '%s': %s", subject.nodeId.c_str(),
                      api.lastError());
            result = Restored::Failed;
        }
        if (!client_->isConnected()) return Restored::Failed;  // lost again: all when it is back
        const CoLock lock(pendingMutex_);
        if (ok) {
            pending_.erase(subject.nodeId);
        } else {
            pending_[subject.nodeId] = Again::AfterRefusal;
        }
        if (closed_) break;
    }
    return result;
}

bool VantrelEventRegistrations::addAgain(VantrelBaseClientAPI& api, const VantrelEventSubject& subject,
                                         Again occasion) const {
    const VantrelNodeId nodeId(subject.nodeId.c_str());
    const unsigned limitMs = answerLimitMs();
    // Unregistering first: the server may not have noticed the loss. One that restarted has nothing to
    // unregister, and may say so. A renewal must not miss events where the registration still stands.
    if (occasion != Again::Renewal && !api.unregisterEventsOn(portNumber_, id_, nodeId, limitMs) &&
        !client_->isConnected())
        return false;
    if (!api.registerEventsOn(portNumber_, id_, subject, limitMs)) return false;
    if (wanted_.subject(subject.nodeId)) return true;
    // The last handler was removed since, and its deregistration may have come before.
    api.unregisterEventsOn(portNumber_, id_, nodeId, limitMs);
    // Or another was added, and its registration was just undone.
    const auto wanted = wanted_.subject(subject.nodeId);
    return !wanted || api.registerEventsOn(portNumber_, id_, *wanted, limitMs);
}

/// How long the server may take for an answer. The port's thread has events to serve.
unsigned VantrelEventRegistrations::answerLimitMs() const {
    const auto port = port_.lock();
    return port && port->isOwnThread() ? RESTORE_TIMEOUT_MS : std::numeric_limits<unsigned>::max();
}

VantrelEventRegistrations::Subjects VantrelEventRegistrations::pendingSubjects() const {
    Subjects subjects;
    const CoLock lock(pendingMutex_);
    if (pending_.empty()) return subjects;
    for (auto& subject : wanted_.subjects()) {
        const auto found = pending_.find(subject.nodeId);
        if (found != pending_.end()) subjects.emplace_back(std::move(subject), found->second);
    }
    return subjects;
}
