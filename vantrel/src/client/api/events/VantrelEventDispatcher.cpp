#include "VantrelEventDispatcher.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "CoMsg.h"
#include "VantrelSettings.h"

using Vantrel::CoLock;
using Vantrel::coPrintable;
using Vantrel::CoUnlock;

namespace {

/// A queue that a burst has grown is not kept for the events that come one by one.
constexpr std::size_t KEPT_QUEUE_CAPACITY = 1024;

bool tracing() {
    return VantrelSettings::debugEvents.get();
}

void reportException(VantrelNodeEvent::Handler* handler, const VantrelNodeEvent& event, const char* reason) {
    CO_MSG_ERROR("Event handler %p threw on event %s/%s: %s", static_cast<void*>(handler),
                 coPrintable(event.getNodeId().id()).c_str(), coPrintable(event.getType()).c_str(), reason);
}

void notifyHandler(VantrelNodeEvent::Handler* handler, const VantrelNodeEvent& event) {
    if (tracing()) {
        CO_MSG_USER("Notifying event handler %p of event %s/%s [%s].", static_cast<void*>(handler),
                    coPrintable(event.getNodeId().id()).c_str(), coPrintable(event.getType()).c_str(),
                    coPrintable(event.getDetails().getStream()).c_str());
    }
    try {
        handler->notify(event);
    } catch (const std::exception& error) {
        reportException(handler, event, error.what());
    } catch (...) {
        reportException(handler, event, "unknown exception");
    }
}

}  // namespace

/// Marks this thread as the one that delivers. Made and destroyed with the mutex held.
class VantrelEventDispatcher::Delivery {
  public:
    explicit Delivery(VantrelEventDispatcher& dispatcher) CO_REQUIRES(dispatcher.mutex_)
        : dispatcher_(dispatcher) {
        dispatcher_.delivering_ = true;
        dispatcher_.deliverer_ = std::this_thread::get_id();
    }
    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;
    ~Delivery() {
        dispatcher_.mutex_.assertHeld();
        dispatcher_.delivering_ = false;
    }

  private:
    VantrelEventDispatcher& dispatcher_;
};

VantrelEventDispatcher::VantrelEventDispatcher(std::size_t maxQueued) : maxQueued_(maxQueued) {}

// --- Handlers ---

VantrelEventDispatcher::Addition VantrelEventDispatcher::add(const VantrelEventSubject& subject,
                                                             Handler* handler) {
    const CoLock lock(mutex_);
    const auto found = nodes_.find(subject.nodeId);
    if (found == nodes_.end()) {
        auto node = std::make_unique<Node>();
        node->subject = subject;
        node->handlers.push_back(handler);
        node->live = 1;
        const std::string_view key = node->subject.nodeId;
        nodes_.emplace(key, std::move(node));
        return {true, {}};
    }
    Node& node = *found->second;
    Addition addition{false, node.subject};
    // Not the whole subject: the table's key is the text of its node id.
    node.subject.format = subject.format;
    node.subject.metaTag = subject.metaTag;
    if (std::find(node.handlers.begin(), node.handlers.end(), handler) == node.handlers.end()) {
        node.handlers.push_back(handler);
        ++node.live;
        addition.newHandler = true;
    }
    return addition;
}

void VantrelEventDispatcher::undo(const VantrelEventSubject& subject, Handler* handler,
                                  const Addition& addition) {
    if (addition.newHandler) remove(subject.nodeId, handler);
    const CoLock lock(mutex_);
    const auto found = nodes_.find(subject.nodeId);
    if (found == nodes_.end()) return;
    found->second->subject.format = addition.earlier.format;
    found->second->subject.metaTag = addition.earlier.metaTag;
}

VantrelEventDispatcher::Removal VantrelEventDispatcher::remove(std::string_view nodeId,
                                                               const Handler* handler) {
    const CoLock lock(mutex_);
    const auto found = nodes_.find(nodeId);
    if (found == nodes_.end()) return Removal::Unknown;
    Node& node = *found->second;
    const auto place = std::find(node.handlers.begin(), node.handlers.end(), handler);
    if (place == node.handlers.end()) return Removal::Unknown;
    *place = nullptr;
    --node.live;
    const Removal removal = node.live == 0 ? Removal::LastOfNode : Removal::OthersLeft;
    if (delivered_ != &node) tidyUp(node);
    return removal;
}

std::vector<VantrelEventSubject> VantrelEventDispatcher::removeAll() {
    std::vector<VantrelEventSubject> removed;
    Events events;  // destroyed without the mutex
    const CoLock lock(mutex_);
    for (auto at = nodes_.begin(); at != nodes_.end();) {
        Node& node = *at->second;
        if (node.live > 0) removed.push_back(node.subject);
        node.live = 0;
        std::fill(node.handlers.begin(), node.handlers.end(), nullptr);
        at = delivered_ == &node ? std::next(at) : nodes_.erase(at);
    }
    events.swap(queue_);
    oldest_ = 0;
    dropped_ = 0;
    return removed;
}

void VantrelEventDispatcher::awaitEnd(const Handler* handler) {
    const CoLock lock(mutex_);
    if (!running_ || (handler && running_ != handler) || isDeliverer()) return;
    const std::uint64_t call = calls_;
    ++waiting_;
    while (running_ && calls_ == call) idle_.wait(mutex_);
    --waiting_;
}

std::vector<VantrelEventSubject> VantrelEventDispatcher::subjects() const {
    std::vector<VantrelEventSubject> found;
    const CoLock lock(mutex_);
    found.reserve(nodes_.size());
    for (const auto& [id, node] : nodes_) {
        if (node->live > 0) found.push_back(node->subject);
    }
    return found;
}

bool VantrelEventDispatcher::hasHandlers() const {
    const CoLock lock(mutex_);
    return std::any_of(nodes_.begin(), nodes_.end(),
                       [](const auto& entry) { return entry.second->live > 0; });
}

std::optional<VantrelEventSubject> VantrelEventDispatcher::subject(std::string_view nodeId) const {
    const CoLock lock(mutex_);
    const auto found = nodes_.find(nodeId);
    if (found == nodes_.end() || found->second->live == 0) return std::nullopt;
    return found->second->subject;
}

/// Takes the removed handlers out of a node's list, and a node without handlers out of the table.
void VantrelEventDispatcher::tidyUp(Node& node) {
    if (node.live == 0) {
        nodes_.erase(nodes_.find(node.subject.nodeId));
    } else if (node.live != node.handlers.size()) {
        node.handlers.erase(std::remove(node.handlers.begin(), node.handlers.end(), nullptr),
                            node.handlers.end());
    }
}

bool VantrelEventDispatcher::isDeliverer() const {
    return delivering_ && deliverer_ == std::this_thread::get_id();
}

// --- Events ---

void VantrelEventDispatcher::notify(VantrelNodeEvent event) {
    if (tracing()) {
        CO_MSG_USER("Received node event %s/%s [%s].", coPrintable(event.getNodeId().id()).c_str(),
                    coPrintable(event.getType()).c_str(),
                    coPrintable(event.getDetails().getStream()).c_str());
    }
    const CoLock lock(mutex_);
    enqueue(std::move(event));
    flush();
}

void VantrelEventDispatcher::flushQueuedEvents() {
    const CoLock lock(mutex_);
    flush();
}

void VantrelEventDispatcher::enqueue(VantrelNodeEvent&& event) {
    if (queue_.size() < maxQueued_) {
        queue_.push_back(std::move(event));
        return;
    }
    ++dropped_;
    if (maxQueued_ == 0) return;
    queue_[oldest_] = std::move(event);
    oldest_ = (oldest_ + 1) % maxQueued_;
}

void VantrelEventDispatcher::flush() {
    // A thread that delivers looks at the queue again before it gives the mark up, both under the mutex: so
    // no event is left behind between the two.
    if (delivering_) return;
    const Delivery delivery(*this);
    while (!queue_.empty() || dropped_ > 0) deliverBatch();
}

void VantrelEventDispatcher::deliverBatch() {
    batch_.swap(queue_);
    const std::size_t first = std::exchange(oldest_, 0);
    const std::size_t dropped = std::exchange(dropped_, 0);
    if (dropped > 0) {
        const CoUnlock unlock(mutex_);
        CO_MSG_WARNING("%zu undelivered events dropped: more than %zu waited", dropped, maxQueued_);
    }
    for (std::size_t i = first; i < batch_.size(); ++i) deliver(batch_[i]);
    for (std::size_t i = 0; i < first; ++i) deliver(batch_[i]);
    const CoUnlock unlock(mutex_);
    batch_.clear();
    if (batch_.capacity() > KEPT_QUEUE_CAPACITY) Events().swap(batch_);
}

void VantrelEventDispatcher::deliver(const VantrelNodeEvent& event) {
    const auto found = nodes_.find(event.getNodeId().id());
    if (found == nodes_.end()) return;
    Node& node = *found->second;
    delivered_ = &node;
    const std::size_t count = node.handlers.size();  // those that handlers add wait for the next
    for (std::size_t i = 0; i < count; ++i) {
        if (Handler* const handler = node.handlers[i]) call(handler, event);
    }
    delivered_ = nullptr;
    tidyUp(node);
}

void VantrelEventDispatcher::call(Handler* handler, const VantrelNodeEvent& event) {
    running_ = handler;
    ++calls_;
    {
        const CoUnlock unlock(mutex_);
        notifyHandler(handler, event);
    }
    running_ = nullptr;
    if (waiting_ > 0) idle_.notifyAll();
}
