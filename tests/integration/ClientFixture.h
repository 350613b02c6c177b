#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>
#include <vantrel/VantrelClientAPI.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "AwaitSleep.h"
#include "ScriptedPeer.h"
#include "TemporaryDirectory.h"

/// A server as a scripted peer describes it, in text that is written here by the rules of attribute streams.
struct PeerInfo {
    std::string version = "2024.0.0.0";  // a.b.c.d
    int framePort = 0;
    std::string database = "SXAFS";
    std::string storageId = "stor-1";
    std::vector<const char*> frameAddresses = {"127.0.0.9", "127.0.0.1"};  // nobody listens at the first

    static std::string entry(const std::string& name, const std::string& value) {
        return name + " " + std::to_string(value.size()) + " " + value;
    }
    std::string text(int nodePort) const {
        int numbers[4] = {};
        std::sscanf(version.c_str(), "%d.%d.%d.%d", &numbers[0], &numbers[1], &numbers[2], &numbers[3]);
        std::string frameIps;
        for (std::size_t i = 0; i < frameAddresses.size(); ++i)
            frameIps += entry("FrameIP" + std::to_string(i), frameAddresses[i]);
        return entry("IP0", "127.0.0.1") + frameIps + entry("HostName", "render01") +
               entry("DisplayName", "Render 1") + entry("Database", database) +
               entry("NodePort", std::to_string(nodePort)) + entry("FramePort", std::to_string(framePort)) +
               entry("VersionMajor", std::to_string(numbers[0])) +
               entry("VersionMinor", std::to_string(numbers[1])) +
               entry("VersionMaint", std::to_string(numbers[2])) +
               entry("VersionBuild", std::to_string(numbers[3])) + entry("ProductVersionMajor", "7") +
               entry("ProductVersionMinor", "1") + entry("StorageId", storageId) +
               entry("HostUUID", "uuid-1");
    }
};

/// The library in a test of its own process, with short time-outs, a network configuration of its own and no
/// discovery.
class ClientFixture : public ::testing::Test {
  protected:
    ClientFixture() {
        set("QD_NETWORK_CFG_FILE",
            folder.write("network.cfg",
                         "[Local]\nUUID=00000000-0000-4000-8000-000000000000\n[SelfDiscovery]\nTTL=0\n"));
        set("VANTREL_CONNECTION_RETRY_TIMEOUT_MS", "0");
        set("VANTREL_CONNECTION_TIMEOUT_MS", "1000");
    }
    ~ClientFixture() override {
        while (VantrelClientIsInitialized()) VantrelClientUninit();
    }

    static void set(const char* variable, const std::string& value) { ::setenv(variable, value.c_str(), 1); }

    /// Calls that must return: when one does not, the test program ends.
    template <typename Call>
    static void within(std::chrono::seconds limit, Call call) {
        auto done = std::async(std::launch::async, call);
        if (done.wait_for(limit) == std::future_status::ready) return done.get();
        std::fprintf(stderr, "a call does not return\n");
        std::_Exit(1);
    }

    Vantrel::TemporaryDirectory folder;
};

/// A call on a thread of its own.
class BackgroundCall {
  public:
    explicit BackgroundCall(std::function<bool()> call)
        : result_(std::async(std::launch::async, [this, call] {
              thread_ = ::gettid();
              return call();
          })) {}
    bool result() { return result_.get(); }
    /// Returns once the call waits for its turn, or for an answer.
    void awaitSleep() const { ::awaitSleep(thread_); }

  private:
    std::atomic<pid_t> thread_{0};
    std::future<bool> result_;
};

/// Log messages and lost connections, as an application's callbacks get them.
class Received {
  public:
    static void record() {
        VantrelRegisterLogCallBack([](VantrelLogLevel level, const char* message) {
            const std::lock_guard<std::mutex> lock(all().mutex);
            all().messages.push_back(std::to_string(static_cast<int>(level)) + ' ' + message);
        });
        VantrelRegisterDisconnectCallBack([](const VantrelServerId& server) {
            const std::lock_guard<std::mutex> lock(all().mutex);
            all().lost.push_back(server);
        });
    }
    /// "<level> <text>"
    static std::vector<std::string> log() {
        const std::lock_guard<std::mutex> lock(all().mutex);
        return all().messages;
    }
    static std::vector<VantrelServerId> lostServers() {
        const std::lock_guard<std::mutex> lock(all().mutex);
        return all().lost;
    }
    static void clear() {
        const std::lock_guard<std::mutex> lock(all().mutex);
        all().messages.clear();
        all().lost.clear();
    }

  private:
    static Received& all() {
        static Received one;
        return one;
    }

    std::mutex mutex;
    std::vector<std::string> messages;
    std::vector<VantrelServerId> lost;
};

/// The library beside a scripted server of protocol version 2024.0.0.0.
class PeerFixture : public ClientFixture {
  protected:
    PeerFixture() {
        describe({});
        peer.answer("Ping", Vantrel::ScriptedPeer::ok(""));
        peer.answer("GetRootNode", Vantrel::ScriptedPeer::ok("n1"));
    }
    void describe(const PeerInfo& info) {
        peer.answer("GetDaemonInfo", Vantrel::ScriptedPeer::ok(info.text(peer.port())));
    }
    VantrelServerId id() const { return VantrelServerId(peer.address().c_str()); }
    /// "Server not found" with the server's id and a reason.
    std::string notFound(const std::string& reason) const {
        return "Server not found [127.0.0.1:" + std::to_string(peer.port()) + "] [] []: " + reason + ".";
    }
    /// The methods that the peer was asked for, "GetDaemonInfo" apart.
    std::vector<std::string> methods() const {
        std::vector<std::string> names;
        for (const std::string& line : peer.commands()) {
            char method[64] = "";
            std::sscanf(line.c_str(), "%*s %*s %63s", method);
            if (std::string(method) != "GetDaemonInfo") names.push_back(method);
        }
        return names;
    }

    Vantrel::ScriptedPeer peer;
};
