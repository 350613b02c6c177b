#include "VantrelStopControl.h"

#include <chrono>

#include "CoDeferral.h"
#include "VantrelMulticastClient.h"

using Vantrel::CoCondition;
using Vantrel::CoLock;

void VantrelStopControl::begin(EndpointOperation& outermost) {
    const CoLock lock(mutex_);
    if (operations_++ > 0) return;
    outermost.emplace(endpoint_);
    requested_ = stops_.isCallStopped();
}

void VantrelStopControl::end(EndpointOperation& outermost) {
    const CoLock lock(mutex_);
    --operations_;
    outermost.reset();
}

void VantrelStopControl::stop(const char* reason) {
    const Vantrel::CoDeferral deferral;
    const std::string text = VantrelStops::textOf(reason);
    const CoLock lock(mutex_);
    stops_.stop(text);
    if (operations_ == 0) return;
    requested_ = true;
    signal_.notifyAll();
    VantrelMulticastClient::recheckWaits();
    endpoint_.stop(text.c_str());
}

bool VantrelStopControl::pause(unsigned milliseconds) {
    const auto end = CoCondition::Clock::now() + std::chrono::milliseconds(milliseconds);
    const CoLock lock(mutex_);
    while (!requested_ && signal_.waitUntil(mutex_, end)) {
    }
    return !requested_;
}
