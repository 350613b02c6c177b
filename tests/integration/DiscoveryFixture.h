#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>

#include <chrono>
#include <cstdio>
#include <deque>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "NetworkHost.h"
#include "ServerProcess.h"
#include "TemporaryDirectory.h"

/// Hosts on networks of the test's own, servers on them, and the command-line client.
class DiscoveryFixture : public ::testing::Test {
  protected:
    static constexpr std::chrono::seconds LIMIT{30};
    using Strings = std::vector<std::string>;

    static void SetUpTestSuite() { unavailable() = NetworkHost::unavailable(); }
    void SetUp() override {
        if (!unavailable().empty()) GTEST_SKIP() << "no hosts to test discovery on: " << unavailable();
        arrange();
    }
    /// Makes hosts and cables.
    virtual void arrange() = 0;

    NetworkHost& host() { return hosts_.emplace_back(); }

    /// The variable that names a network.cfg with this content, beside the host's UUID.
    std::string config(const std::string& content = {}) {
        const std::string number = std::to_string(++files_);
        const std::string uuid = std::string(12, '0').replace(12 - number.size(), std::string::npos, number);
        return "QD_NETWORK_CFG_FILE=" +
               folder_.write(number, "[Local]\nUUID=00000000-0000-4000-8000-" + uuid + "\n" + content);
    }

    /// A server of that name, which its storage id has too.
    ServerProcess& serve(const NetworkHost& host, const std::string& name, const Strings& variables,
                         Strings more = {}) {
        more.insert(more.end(), {"--display-name", name, "--storage-id", name});
        const NetworkHost::Stay stay(host);
        servers_.emplace_back(new ServerProcess(
            ServerProcess::onNetwork(VANTRELD_PROGRAM, folder_.path(name), more, variables)));
        return *servers_.back();
    }

    static ChildProcess::Result run(const NetworkHost& host, const Strings& variables, Strings arguments) {
        arguments.insert(arguments.begin(), VANTREL_PROGRAM);
        const NetworkHost::Stay stay(host);
        return ChildProcess(arguments, variables).wait(LIMIT);
    }
    /// Tries until it ends with that status: a server on a busy machine may miss a search.
    static ChildProcess::Result runUntil(int status, const NetworkHost& host, const Strings& variables,
                                         const Strings& arguments) {
        ChildProcess::Result result;
        eventually([&] {
            result = run(host, variables, arguments);
            return result.status == status;
        });
        return result;
    }
    /// Display names that "servers" lists.
    static Strings listed(const NetworkHost& host, const Strings& variables, const Strings& more = {}) {
        Strings arguments{"servers", "--json"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const ChildProcess::Result result = run(host, variables, arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        Strings names;
        for (const auto& each : nlohmann::json::parse(result.out, nullptr, false))
            names.push_back(each.at("displayName").get<std::string>());
        return names;
    }

    static bool lists(const NetworkHost& host, const Strings& variables, const Strings& names,
                      const Strings& more = {}) {
        return eventually([&] { return listed(host, variables, more) == names; });
    }

    /// Whether `condition` comes true within the limit; it is asked again and again.
    template <typename Condition>
    static bool eventually(Condition condition) {
        const auto deadline = std::chrono::steady_clock::now() + LIMIT;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            ::poll(nullptr, 0, 10);
        }
        return true;
    }

    static double secondsOf(const std::function<void()>& call) {
        const auto start = std::chrono::steady_clock::now();
        call();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }

    Vantrel::TemporaryDirectory folder_;

  private:
    static std::string& unavailable() {
        static std::string reason;
        return reason;
    }

    std::deque<NetworkHost> hosts_;
    std::vector<std::unique_ptr<ServerProcess>> servers_;
    int files_ = 0;
};
