#pragma once

#include <string>

#include "CoEnv.h"

/// Makes a connection as slow as a test wants it, and logs that when tracing is on.
void vantrelSimulateLatency(const Vantrel::CoEnvInt& setting);

/// Logs the beginning and the end of one call when tracing is on, and adds the latency that a test wants.
class VantrelCallTrace {
  public:
    /// `method` and `result`, which is the call's reply by the end, must outlive this object.
    VantrelCallTrace(const char* method, const char* argument, const std::string& result);
    VantrelCallTrace(const VantrelCallTrace&) = delete;
    VantrelCallTrace& operator=(const VantrelCallTrace&) = delete;
    ~VantrelCallTrace();

  private:
    const char* const method_;
    const std::string& result_;
    const bool on_;
};
