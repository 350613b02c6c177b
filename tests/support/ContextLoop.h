#pragma once

#include <atomic>

#include "CoThread.h"
#include "rcAppContext.h"

/// Drives a context's loop on a thread of its own, from its making to its end. Declare it after what it
/// drives.
class ContextLoop {
  public:
    explicit ContextLoop(Vantrel::rcAppContext& context)
        : thread_(
              "test loop",
              [this, &context] {
                  while (!stopped_) context.callIOHandlers(nullptr);
              },
              [this, &context] {
                  stopped_ = true;
                  context.cancel();
              }) {}

  private:
    std::atomic<bool> stopped_{false};
    Vantrel::CoThread thread_;
};
