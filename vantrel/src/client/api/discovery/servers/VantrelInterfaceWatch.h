#pragma once

#include "CoDeferral.h"
#include "CoIoHandler.h"
#include "CoNetworkDispatcher.h"

/// Has an event loop serve the reports that interfaces have changed: their observers are notified. The
/// descriptor may be refused and closed at any time; the loop then releases the handler.
class VantrelInterfaceWatch : public Vantrel::CoIoHandler {
  public:
    int descriptorId() const override { return Vantrel::CoNetworkDispatcher::changeDescriptor(); }
    bool handleRead() override {
        const Vantrel::CoDeferral deferral;
        Vantrel::CoNetworkDispatcher::checkForChanges();
        return true;
    }
    bool handleError() override { return handleRead(); }
};
