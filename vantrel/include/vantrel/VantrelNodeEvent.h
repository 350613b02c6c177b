#pragma once

#include "VantrelDictionary.h"
#include "VantrelNodeId.h"

/// Something that happened to a node.
///
/// One object must not be used by several threads at once, not even for reading. Copies are independent.
class VANTREL_API VantrelNodeEvent {
  public:
    class Handler;

    /// Takes all three.
    VantrelNodeEvent(VantrelNodeId&& nodeId, VantrelStr&& type, VantrelDictionary&& details);
    VantrelNodeEvent(const VantrelNodeEvent& other) = default;
    VantrelNodeEvent(VantrelNodeEvent&& other) noexcept = default;
    virtual ~VantrelNodeEvent();

    VantrelNodeEvent& operator=(const VantrelNodeEvent& other) = default;
    VantrelNodeEvent& operator=(VantrelNodeEvent&& other) noexcept = default;

    /// All three are valid until the event is assigned to or destroyed.
    const VantrelNodeId& getNodeId() const noexcept { return nodeId_; }
    /// What happened, in the server's own words.
    const char* getType() const noexcept { return type_.c_str(); }
    /// More about it, by keys of the server.
    const VantrelDictionary& getDetails() const noexcept { return details_; }

  private:
    VantrelNodeId nodeId_;
    VantrelStr type_;
    VantrelDictionary details_;
};

/// The application's side of event delivery: derive from it and register it for a node with a server handle.
/// The handler stays the application's; it must live until its unregistration, the end of its server handle
/// or the shut-down of the library has returned.
class VANTREL_API VantrelNodeEvent::Handler {
  public:
    Handler() = default;
    Handler(const Handler&) = delete;
    Handler& operator=(const Handler&) = delete;
    virtual ~Handler();

    /// Called on the library's event thread, "VT Event Mtr", for one event at a time: one that blocks holds
    /// up all events of the process. It may call any function of the library: register and unregister, itself
    /// included, destroy its own server handle, shut the library down. `event` lives until the call returns:
    /// copy what is needed later. An exception that leaves it is logged and dropped.
    virtual void notify(const VantrelNodeEvent& event) = 0;
};
