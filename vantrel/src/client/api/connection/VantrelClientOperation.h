#pragma once

#include <mutex>
#include <optional>

#include "VantrelClientConnection.h"

// Marks a connect or a call in progress, so that a stop() at any moment of it is noticed. Nests.
class VantrelClientConnection::Operation {
  public:
    explicit Operation(VantrelClientConnection& connection) : connection_(connection) {
        const std::lock_guard<std::mutex> lock(connection_.stopMutex_);
        if (connection_.operations_++ > 0) return;
        endpointOperation_.emplace(connection_.endpoint_);
        connection_.stopRequested_ = false;
    }
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;
    ~Operation() {
        const std::lock_guard<std::mutex> lock(connection_.stopMutex_);
        --connection_.operations_;
        endpointOperation_.reset();
    }

  private:
    VantrelClientConnection& connection_;
    std::optional<Vantrel::rcAPI::Operation> endpointOperation_;
};
