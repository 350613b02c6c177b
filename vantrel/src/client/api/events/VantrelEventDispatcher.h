#pragma once

#include <vantrel/VantrelNodeEvent.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include "VantrelEventSubject.h"

/// The handlers of one server connection, and the events on their way to them. Whoever brings an event
/// delivers it, and with it what others bring meanwhile: so one handler runs at a time, events keep their
/// order, and nobody waits for a handler but those who remove it. No lock is held while a handler runs.
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
    Addition add(const VantrelEventSubject& subject, Handler* handler);
    void undo(const VantrelEventSubject& subject, Handler* handler, const Addition& addition);

    enum class Removal { Unknown, OthersLeft, LastOfNode };
    /// From now on no call of the handler begins for this node; see awaitEnd for one in progress.
    Removal remove(std::string_view nodeId, const Handler* handler);
    /// The same for all handlers. Undelivered events are dropped. Returns the subjects that had handlers.
    std::vector<VantrelEventSubject> removeAll();
    /// Waits for the end of a call of `handler` (null: of any) that is in progress on another thread. Not
    /// while a lock is held that a handler may want.
    void awaitEnd(const Handler* handler);

    /// The nodes with handlers, in no particular order.
    std::vector<VantrelEventSubject> subjects() const;
    bool hasHandlers() const;
    /// The node's, as it is wanted now; none when it has no handlers.
    std::optional<VantrelEventSubject> subject(std::string_view nodeId) const;

    // --- Events ---

    /// Queues an event and delivers, on this thread, all that are queued, unless another thread does so.
    void notify(VantrelNodeEvent event);
    /// Delivers what is queued, unless another thread does so.
    void flushQueuedEvents();

  private:
    struct Node {
        VantrelEventSubject subject;
        std::vector<Handler*> handlers;  // while its event is delivered, a removed one leaves null
        std::size_t live = 0;            // handlers that are not null
    };
    using Lock = std::unique_lock<std::mutex>;
    using Events = std::vector<VantrelNodeEvent>;
    class Delivery;

    void enqueue(VantrelNodeEvent&& event);
    void flush(Lock& lock);
    void deliverBatch(Lock& lock);
    void deliver(const VantrelNodeEvent& event, Lock& lock);
    void call(Handler* handler, const VantrelNodeEvent& event, Lock& lock);
    void tidyUp(Node& node);
    bool isDeliverer() const;

    const std::size_t maxQueued_;

    mutable std::mutex mutex_;                                           // guards everything that follows
    std::unordered_map<std::string_view, std::unique_ptr<Node>> nodes_;  // by their subject's node id
    Events queue_;
    std::size_t oldest_ = 0;   // place of the oldest event; the queue is a ring once it is full
    std::size_t dropped_ = 0;  // not yet told

    bool delivering_ = false;  // some thread delivers
    std::thread::id deliverer_;
    Events batch_;                      // the deliverer's: it reads it without the mutex
    const Node* delivered_ = nullptr;   // its event is being delivered
    const Handler* running_ = nullptr;  // called now
    std::uint64_t calls_ = 0;           // counts them
    unsigned waiting_ = 0;              // threads in awaitEnd
    std::condition_variable idle_;
};
