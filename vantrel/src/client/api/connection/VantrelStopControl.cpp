#include "VantrelStopControl.h"

#include <cerrno>
#include <chrono>

#include "CoDeferral.h"
#include "CoMsg.h"
#include "VantrelMulticastClient.h"

using Vantrel::CoCondition;
using Vantrel::CoLock;

void VantrelStopControl::begin(EndpointOperation& outermost) {
    const CoLock lock(mutex_);
    if (operations_++ > 0) return;
    outermost.emplace(endpoint_);
    requested_ = false;
}

void VantrelStopControl::end(EndpointOperation& outermost) {
    const CoLock lock(mutex_);
    --operations_;
    outermost.reset();
}

void VantrelStopControl::stop(const char* reason) {
    const Vantrel::CoDeferral deferral;
    const CoLock lock(mutex_);
    if (operations_ == 0) return;
    requested_ = true;
    reason_ = reason ? reason : Vantrel::coErrorText(EINTR);
    signal_.notifyAll();
    VantrelMulticastClient::recheckWaits();
    endpoint_.stop(reason_.c_str());
}

std::string VantrelStopControl::reason() const {
    const CoLock lock(mutex_);
    return reason_;
}

bool VantrelStopControl::pause(unsigned milliseconds) {
    const auto end = CoCondition::Clock::now() + std::chrono::milliseconds(milliseconds);
    const CoLock lock(mutex_);
    while (!requested_ && signal_.waitUntil(mutex_, end)) {
    }
    return !requested_;
}
