#pragma once

#include <optional>
#include <string>

#include "ContextLoop.h"
#include "NodeServer.h"
#include "StoreFixture.h"
#include "rcAPI.h"

namespace vantreld {

/// A store behind a node port, and a client that has logged in there.
class NodePortFixture : public StoreFixture {
  protected:
    NodePortFixture() : server_(store(), options()) {
        server_.setFramePort(4711);
        loop_.emplace(server_.loop());
        std::string error;
        EXPECT_EQ(api_.connect("127.0.0.1", server_.getPort(), LIMIT_MS, error), Vantrel::rcOutcome::Answered)
            << error;
    }
    static ServerOptions options() {
        ServerOptions options;
        options.nodePort = 0;
        options.bindAddress = "127.0.0.1";
        options.displayName = "Shown";
        options.database = "Base";
        options.version = {2016, 1, 2, 3};
        return options;
    }
    /// The answer, "error " before one that says so.
    std::string ask(const char* method, const std::string& argument) {
        std::string result;
        const auto outcome = api_.call(0, method, argument.c_str(), true, result, LIMIT_MS);
        return outcome == Vantrel::rcOutcome::Answered ? result : "error " + result;
    }

    static constexpr unsigned LIMIT_MS = 30000;

    NodeServer server_;
    Vantrel::rcAPI api_;
    std::optional<ContextLoop> loop_;
};

}  // namespace vantreld
