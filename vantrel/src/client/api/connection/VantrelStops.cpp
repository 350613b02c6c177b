#include "VantrelStops.h"

#include <cerrno>

#include "CoMsg.h"

using Vantrel::CoLock;

namespace {

thread_local const VantrelStops::Call* innermost = nullptr;

}  // namespace

VantrelStops::Call::Call(const VantrelStops* stops)
    : stops_(stops), seen_(stops ? stops->stops_.load() : 0), outer_(innermost) {
    innermost = this;
}

VantrelStops::Call::~Call() {
    innermost = outer_;
}

VantrelStops::Barrier::Barrier(VantrelStops& stops, const std::string& reason) : stops_(stops) {
    stops_.setReason(reason);
    ++stops_.barriers_;
}

VantrelStops::Barrier::~Barrier() {
    --stops_.barriers_;
}

void VantrelStops::stop(const std::string& reason) {
    setReason(reason);
    ++stops_;
}

bool VantrelStops::isCallStopped() const {
    if (barriers_ > 0) return true;
    const Call* outermost = nullptr;
    for (const Call* call = innermost; call; call = call->outer_) {
        if (call->stops_ == this) outermost = call;
    }
    return outermost && outermost->seen_ != stops_;
}

std::string VantrelStops::reason() const {
    const CoLock lock(mutex_);
    return reason_;
}

void VantrelStops::setReason(const std::string& reason) {
    const CoLock lock(mutex_);
    reason_ = reason;
}

std::string VantrelStops::textOf(const char* reason) {
    return reason ? reason : Vantrel::coErrorText(EINTR);
}
