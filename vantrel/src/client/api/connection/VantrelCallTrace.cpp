#include "VantrelCallTrace.h"

#include <chrono>
#include <thread>

#include "CoMsg.h"
#include "VantrelSettings.h"

void vantrelSimulateLatency(const Vantrel::CoEnvInt& setting) {
    const long milliseconds = setting.get();
    if (milliseconds <= 0) return;
    if (VantrelSettings::trace.get()) {
        CO_MSG_DEBUG("Simulating extra latency of %d ms", static_cast<int>(milliseconds));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

VantrelCallTrace::VantrelCallTrace(const char* method, const char* argument, const std::string& result)
    : method_(method), result_(result), on_(VantrelSettings::trace.get()) {
    if (on_) CO_MSG_DEBUG("Calling %s(%s)", method_, argument);
}

VantrelCallTrace::~VantrelCallTrace() {
    vantrelSimulateLatency(VantrelSettings::callExtraLatencyMs);
    if (on_) CO_MSG_DEBUG("Finished %s() -> '%s'", method_, result_.c_str());
}
