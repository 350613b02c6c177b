#pragma once

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "CapturedLog.h"
#include "ContextLoop.h"
#include "RawClient.h"
#include "rcServerContext.h"
#include "rcSysCalls.h"

namespace Vantrel {

/// A server context on a port of its own, with methods that a test adds, in a loop of its own.
class ServerFixture : public testing::Test {
  protected:
    class Context : public rcServerContext {
      public:
        Context() : rcServerContext(0, "127.0.0.1") {
            setClientGone([this](unsigned) { ++gone; });
        }
        bool login(const rcConnectionInfo&) override { return acceptLogins; }

        std::atomic<bool> acceptLogins{true};
        std::atomic<unsigned> gone{0};
    };
    using Body = std::function<bool(int objectId, rcParam::Array& parameters, rcParam& result)>;

    ServerFixture() { rcSysCalls::registerSysCallHandler(context); }
    void TearDown() override { stop(); }

    rcMethod describe(const std::string& name, Body body) {
        rcMethod method;
        method.name = name;
        method.function = [body = std::move(body)](int objectId, const rcMethod&, rcParam::Array& parameters,
                                                   rcParam& result) {
            return body(objectId, parameters, result);
        };
        method.resultType = &rcParamString::TYPE;
        method.parameters = {{&rcParamString::TYPE}};
        return method;
    }
    void add(const std::string& name, Body body) {
        ASSERT_TRUE(context.registerMethod(describe(name, std::move(body))));
    }
    /// "Echo" answers its argument.
    void addEcho() {
        add("Echo", [](int, rcParam::Array& parameters, rcParam& result) {
            result.setStringValue(parameters[0].takeStringValue());
            return true;
        });
    }

    void start() { loop_.emplace(context); }
    void stop() { loop_.reset(); }
    int port() const { return context.getPort(); }

    CapturedLog log;  ///< outlives the loop, which writes to it
    Context context;

  private:
    std::optional<ContextLoop> loop_;
};

}  // namespace Vantrel
