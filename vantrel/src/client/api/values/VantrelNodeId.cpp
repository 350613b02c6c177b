#include <vantrel/VantrelNodeId.h>

VantrelNodeId::VantrelNodeId() = default;

VantrelNodeId::VantrelNodeId(const char* id) : id_(id) {}

VantrelNodeId::VantrelNodeId(const VantrelStr& id) : id_(id) {}

VantrelNodeId::~VantrelNodeId() = default;

void VantrelNodeId::setId(const char* id) {
    id_ = id;
}

VantrelFrameId::VantrelFrameId() = default;

VantrelFrameId::VantrelFrameId(const char* id) : id_(id) {}

VantrelFrameId::VantrelFrameId(const VantrelStr& id) : id_(id) {}

VantrelFrameId::~VantrelFrameId() = default;

void VantrelFrameId::setId(const char* id) {
    id_ = id;
}
