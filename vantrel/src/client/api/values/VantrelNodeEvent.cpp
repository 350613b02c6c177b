#include <vantrel/VantrelNodeEvent.h>

#include <utility>

VantrelNodeEvent::VantrelNodeEvent(VantrelNodeId&& nodeId, VantrelStr&& type, VantrelDictionary&& details)
    : nodeId_(std::move(nodeId)), type_(std::move(type)), details_(std::move(details)) {}

VantrelNodeEvent::~VantrelNodeEvent() = default;

VantrelNodeEvent::Handler::~Handler() = default;
