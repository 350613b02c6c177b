#pragma once

#include <sys/types.h>

#include "CoMsg.h"
#include "VantrelFrameClientAPI.h"
#include "VantrelSettings.h"

/// Logs the beginning and the end of one operation of the frame protocol, when tracing is on.
class VantrelFrameClientAPI::Trace {
  public:
    explicit Trace(Method method) : method_(method), on_(VantrelSettings::trace.get()) {
        if (on_) CO_MSG_DEBUG("Calling %s()", methodToStr(method_));
    }
    Trace(Method method, const char* text, std::size_t size)
        : method_(method), on_(VantrelSettings::trace.get()) {
        if (on_) {
            CO_MSG_DEBUG("Calling %s(%s, %zd)", methodToStr(method_), text ? text : "",
                         static_cast<ssize_t>(size));
        }
    }
    Trace(const Trace&) = delete;
    Trace& operator=(const Trace&) = delete;
    ~Trace() {
        if (on_) CO_MSG_DEBUG("Finished %s()", methodToStr(method_));
    }

  private:
    const Method method_;
    const bool on_;
};
