#pragma once

#include <vantrel/VantrelNodeEvent.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include "CoMutex.h"
#include "VantrelEventSubject.h"

/// The handlers of one server connection, and the events on their way to them. The thread that brings an
/// event delivers it, and with it what other threads bring until it is done: so one handler runs at a time,
/// events keep their order, and no thread waits for a handler but one that removes it. No lock is held while
/// a handler runs.
///
/// Thread-safe; handlers may call every operation. Handlers are not owned. It must outlive the calls on it,
/// those of handlers included.
class VantrelEventDispatcher {
  public:
    using Handler = VantrelNodeEvent::Handler;

    /// `maxQueued`: events kept while a handler is busy; beyond it the oldest go, and a warning counts them.
    explicit VantrelEventDispatcher(std::size_t maxQueued);
    VantrelEventDispatcher(const VantrelEventDispatcher&) = delete;
    VantrelEventDispatcher& operator=(const VantrelEventDispatcher&) = delete;

    // --- Handlers ---

    /// What `add` changed, for `undo`.
    struct Addition {
        bool newHandler;
        VantrelEventSubject earlier;  ///< as it was, when the node had handlers already
    };
    /// Adds a handler behind the others of its node, from the next event on. A handler is there once: added
    /// again it keeps its place. The subject's format and tag hold for all handlers of the node.
    Addition add(const VantrelEventSubject& subject, Handler* handler) CO_EXCLUDES(mutex_);
    void undo(const VantrelEventSubject& subject, Handler* handler, const Addition& addition)
        CO_EXCLUDES(mutex_);

    enum class Removal { Unknown, OthersLeft, LastOfNode };
    /// From now on no call of the handler begins for this node; see awaitEnd for one in progress.
    Removal remove(std::string_view nodeId, const Handler* handler) CO_EXCLUDES(mutex_);
    /// The same for all handlers. Undelivered events are dropped. Returns the subjects that had handlers.
    std::vector<VantrelEventSubject> removeAll() CO_EXCLUDES(mutex_);
    /// Waits for the end of a call of `handler` (null: of any) that is in progress on another thread. Not
    /// while a lock is held that a handler may want.
    void awaitEnd(const Handler* handler) CO_EXCLUDES(mutex_);

    /// The nodes with handlers, in no particular order.
    std::vector<VantrelEventSubject> subjects() const CO_EXCLUDES(mutex_);
    bool hasHandlers() const CO_EXCLUDES(mutex_);
    /// The node's, as it is wanted now; none when it has no handlers.
    std::optional<VantrelEventSubject> subject(std::string_view nodeId) const CO_EXCLUDES(mutex_);

    // --- Events ---

    /// Queues an event and delivers, on this thread, all that are queued, unless another thread does so.
    void notify(VantrelNodeEvent event) CO_EXCLUDES(mutex_);
    /// Delivers what is queued, unless another thread does so.
    void flushQueuedEvents() CO_EXCLUDES(mutex_);

  private:
    struct Node {
        VantrelEventSubject subject;
        std::vector<Handler*> handlers;  // while its event is delivered, a removed one leaves null
        std::size_t live = 0;            // handlers that are not null
    };
    using Events = std::vector<VantrelNodeEvent>;
    class Delivery;

    void enqueue(VantrelNodeEvent&& event) CO_REQUIRES(mutex_);
    void flush() CO_REQUIRES(mutex_);
    void deliverBatch() CO_REQUIRES(mutex_);
    void deliver(const VantrelNodeEvent& event) CO_REQUIRES(mutex_);
    void call(Handler* handler, const VantrelNodeEvent& event) CO_REQUIRES(mutex_);
    void tidyUp(Node& node) CO_REQUIRES(mutex_);
    bool isDeliverer() const CO_REQUIRES(mutex_);

    const std::size_t maxQueued_;

    mutable Vantrel::CoMutex mutex_;
    std::unordered_map<std::string_view, std::unique_ptr<Node>> nodes_
        CO_GUARDED_BY(mutex_);  // by their subject's node id
    Events queue_ CO_GUARDED_BY(mutex_);
    std::size_t oldest_ CO_GUARDED_BY(mutex_) = 0;   // of the queue, which is a ring once it is full
    std::size_t dropped_ CO_GUARDED_BY(mutex_) = 0;  // not logged yet

    bool delivering_ CO_GUARDED_BY(mutex_) = false;  // some thread delivers
    std::thread::id deliverer_ CO_GUARDED_BY(mutex_);
    Events batch_;                                           // the deliverer's: it reads it without the mutex
    const Node* delivered_ CO_GUARDED_BY(mutex_) = nullptr;  // its event is being delivered
    const Handler* running_ CO_GUARDED_BY(mutex_) = nullptr;  // called now
    std::uint64_t calls_ CO_GUARDED_BY(mutex_) = 0;           // counts them
    unsigned waiting_ CO_GUARDED_BY(mutex_) = 0;              // threads in awaitEnd
    Vantrel::CoCondition idle_;
};
