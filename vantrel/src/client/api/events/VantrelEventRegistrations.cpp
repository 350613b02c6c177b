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

bool VantrelEventRegistrations::add(const VantrelEventSubject& subject, std::string& error) const {
    VantrelBaseClientAPI api(*client_.get());
    if (api.registerEventsOn(portNumber_, id_, subject)) return true;
    error = api.lastError();
    return false;
}

bool VantrelEventRegistrations::remove(const VantrelNodeId& nodeId, std::string& error) const {
    VantrelBaseClientAPI api(*client_.get());
    if (api.unregisterEventsOn(portNumber_, id_, nodeId)) return true;
    error = api.lastError();
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
    const auto subjects = wanted_.subjects();
    {
        const CoLock lock(refusedMutex_);
        refused_.clear();
    }
    addAgain(subjects, Again::AfterLoss);
    ++reconnections_;
}

bool VantrelEventRegistrations::restore() {
    const unsigned reconnectionsBefore = reconnections_;
    VantrelClientConnection& connection = *client_.get();
    if (!connection.restore(RESTORE_TIMEOUT_MS)) return false;
    // Not connected now: the thread that is connecting registers, or, if the connection was closed on
    // purpose, the one that opens it again.
    if (!connection.isConnected()) return true;
    const bool renewing = std::exchange(renewal_, false);
    if (reconnections_ != reconnectionsBefore) return refusedSubjects().empty();
    return renewing ? addAgain(wanted_.subjects(), Again::Renewal)
                    : addAgain(refusedSubjects(), Again::AfterRefusal);
}

/// What the server refuses is kept in refused_.
bool VantrelEventRegistrations::addAgain(const std::vector<VantrelEventSubject>& subjects, Again occasion) {
    const int logLevel = occasion == Again::AfterRefusal ? CoMsg::DEBUG : CoMsg::ERROR;
    VantrelBaseClientAPI api(*client_.get());
    bool all = true;
    for (const VantrelEventSubject& subject : subjects) {
        const bool ok = addAgain(api, subject, occasion);
        if (!ok) {
            CO_MSG_AT(logLevel, "Could not register again for the events of '%s': %s", subject.nodeId.c_str(),
                      api.lastError());
        }
        if (!client_->isConnected()) return false;  // lost again: all are registered when it is back
        all = all && ok;
        const CoLock lock(refusedMutex_);
        if (ok) {
            refused_.erase(subject.nodeId);
        } else {
            refused_.insert(subject.nodeId);
        }
        if (closed_) break;
    }
    return all;
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

std::vector<VantrelEventSubject> VantrelEventRegistrations::refusedSubjects() const {
    const CoLock lock(refusedMutex_);
    if (refused_.empty()) return {};
    auto subjects = wanted_.subjects();
    subjects.erase(std::remove_if(subjects.begin(), subjects.end(),
                                  [this](const VantrelEventSubject& subject) CO_REQUIRES(refusedMutex_) {
                                      return refused_.count(subject.nodeId) == 0;
                                  }),
                   subjects.end());
    return subjects;
}
