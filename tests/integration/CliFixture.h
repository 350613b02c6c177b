#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "ServerProcess.h"
#include "TemporaryDirectory.h"

/// The client against a fresh server. `REEL` is an empty reel in it.
class CliFixture : public ::testing::Test {
  protected:
    static constexpr std::chrono::seconds LIMIT{60};
    static constexpr const char* REEL = "/stor1/demo/Library/reel 1";

    static std::vector<std::string> command(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), VANTREL_PROGRAM);
        return arguments;
    }
    static ChildProcess::Result run(std::vector<std::string> arguments) {
        return ChildProcess(command(std::move(arguments)), {"LC_ALL=C.UTF-8"}).wait(LIMIT);
    }
    /// Standard output of a command that must succeed.
    static std::string good(std::vector<std::string> arguments) {
        const std::string name = arguments.at(0);
        const ChildProcess::Result result = run(std::move(arguments));
        EXPECT_EQ(result.status, 0) << name << ": " << result.err;
        EXPECT_EQ(result.err, "") << name;
        return result.out;
    }
    static nlohmann::json json(std::vector<std::string> arguments) {
        arguments.emplace_back("--json");
        return nlohmann::json::parse(good(std::move(arguments)), nullptr, false);
    }

    void makeReel() const {
        good({"create", server, "/", "stor1", "--type", "VOLUME"});
        good({"create", server, "/stor1", "demo", "--type", "PROJECT"});
        good({"create", server, "/stor1/demo", "Library", "--type", "LIBRARY"});
        good({"create", server, "/stor1/demo/Library", "reel 1", "--type", "REEL"});
    }

    Vantrel::TemporaryDirectory folder;
    ServerProcess process{VANTRELD_PROGRAM, folder.path("root")};
    const std::string server = process.id();
};
