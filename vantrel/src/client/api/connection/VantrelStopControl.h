#pragma once

#include <atomic>
#include <optional>
#include <string>

#include "CoMutex.h"
#include "VantrelStops.h"
#include "rcAPI.h"

/// What threads other than the one that uses a connection may do with it: end what it is doing, and ask
/// whether it is up. Thread-safe.
class VantrelStopControl {
  public:
    /// `endpoint` must outlive this object.
    explicit VantrelStopControl(Vantrel::rcAPI& endpoint) : endpoint_(endpoint) {}
    VantrelStopControl(const VantrelStopControl&) = delete;
    VantrelStopControl& operator=(const VantrelStopControl&) = delete;

    /// Marks a connect or a call in progress, so that a stop() at any moment of it is noticed, and one since
    /// the thread's VantrelStops::Call on `stops` began. Nests.
    class Operation {
      public:
        explicit Operation(VantrelStopControl& control) : control_(control) { control_.begin(outermost_); }
        Operation(const Operation&) = delete;
        Operation& operator=(const Operation&) = delete;
        ~Operation() { control_.end(outermost_); }

      private:
        VantrelStopControl& control_;
        std::optional<Vantrel::rcAPI::Operation> outermost_;  // none of one that is nested in another
    };

    /// Ends the operation in progress, and the calls that wait for it to end; null stands for the system's
    /// text for an interrupted call.
    void stop(const char* reason);
    /// Whether the operation in progress is to end. Takes no lock.
    bool isRequested() const { return requested_; }
    std::string reason() const { return stops_.reason(); }
    /// Waits; false when it was stopped.
    [[nodiscard]] bool pause(unsigned milliseconds);

    bool isConnected() const { return endpoint_.isConnected(false); }

    /// Of the connection's calls.
    VantrelStops& stops() { return stops_; }

  private:
    using EndpointOperation = std::optional<Vantrel::rcAPI::Operation>;
    void begin(EndpointOperation& outermost) CO_EXCLUDES(mutex_);
    void end(EndpointOperation& outermost) CO_EXCLUDES(mutex_);

    Vantrel::rcAPI& endpoint_;
    VantrelStops stops_;
    Vantrel::CoMutex mutex_;
    Vantrel::CoCondition signal_;
    std::atomic<bool> requested_{false};             // written under mutex_
    unsigned operations_ CO_GUARDED_BY(mutex_) = 0;  // in progress: the outermost and those nested in it
};
