#pragma once

#include <vantrel/VantrelCallbacks.h>

#include <atomic>

#include "CoMsg.h"
#include "CoNeverDestroyed.h"

/// Hands log messages to the application's callback, or to the default route while there is none.
/// Thread-safe. The callback runs once the posting thread has left the library's locks (CoDeferral).
class VantrelCallbackRouter : public Vantrel::CoMsg::Router {
  public:
    /// The router of the process: created on first use, never destroyed.
    static VantrelCallbackRouter& instance();

    void setCallback(VantrelLogCallBack callback) { callback_ = callback; }

  private:
    friend class Vantrel::CoNeverDestroyed<VantrelCallbackRouter>;
    VantrelCallbackRouter() = default;
    void post(const Vantrel::CoMsg::Message& message) override;

    std::atomic<VantrelLogCallBack> callback_{nullptr};
};
