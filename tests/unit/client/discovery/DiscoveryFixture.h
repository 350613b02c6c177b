#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "CapturedLog.h"
#include "CoNetworkConfig.h"
#include "DaemonRecord.h"
#include "TemporaryDirectory.h"
#include "VantrelDiscoverySockets.h"
#include "VantrelMulticastClient.h"

using Protocol = VantrelMulticastProtocol;
using Strings = std::vector<std::string>;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

/// What happened on other threads, to be waited for.
class Happenings {
  public:
    void add(std::string what) {
        const std::lock_guard<std::mutex> lock(mutex_);
        all_.push_back(std::move(what));
        changed_.notify_all();
    }
    /// All of it once there are `count`, or once the limit is over.
    Strings wait(std::size_t count) const {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait_for(lock, std::chrono::seconds(20), [&] { return all_.size() >= count; });
        return all_;
    }

  private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    Strings all_;
};

/// Servers on the network: answer searches for them, and announce what a test has them announce.
class FakeServers {
  public:
    explicit FakeServers(const VantrelDiscoveryGroup& group, std::vector<VantrelDaemonInfo> servers = {})
        : sockets_(group), servers_(std::move(servers)), thread_([this] { run(); }) {}
    ~FakeServers() {
        stopping_ = true;
        thread_.join();
    }

    void announce(Protocol::RequestType type, const VantrelDaemonInfo& info) {
        const std::lock_guard<std::mutex> lock(mutex_);
        sockets_.send(type, info.toAttrStream());
    }
    /// Once there was a search, one more server answers every few milliseconds: a search lasts as long as it
    /// may.
    void answerOn(bool on = true) { answeringOn_ = on; }

    Happenings searches;  ///< the storage ids asked for

  private:
    void run() {
        std::vector<pollfd> polled;
        sockets_.addTo(polled);
        while (!stopping_) {
            ::poll(polled.data(), polled.size(), 10);
            const std::lock_guard<std::mutex> lock(mutex_);
            VantrelDiscoverySockets::Datagram datagram;
            while (sockets_.receive(polled.back().fd, datagram)) answer(datagram);
            if (searcher_.port != 0 && answeringOn_) reply(Vantrel::DaemonRecord{"another"}.info());
        }
    }

    void answer(const VantrelDiscoverySockets::Datagram& datagram) {
        const auto request = Protocol::parse(datagram.text);
        if (!request || request->type != Protocol::FIND_SERVERS) return;
        searcher_ = datagram;
        const std::string storageId = VantrelDaemonInfo(request->payload).getStorageId();
        searches.add(storageId);
        for (const VantrelDaemonInfo& each : servers_)
            if (storageId.empty() || storageId == each.getStorageId()) reply(each);
    }

    void reply(const VantrelDaemonInfo& info) {
        sockets_.send(Protocol::DISCOVER_SERVERS_REPLY, info.toAttrStream(), searcher_.ip, searcher_.port);
    }

    std::mutex mutex_;  // guards sending
    VantrelDiscoverySockets sockets_;
    const std::vector<VantrelDaemonInfo> servers_;
    VantrelDiscoverySockets::Datagram searcher_;
    std::atomic<bool> stopping_{false};
    std::atomic<bool> answeringOn_{false};
    std::thread thread_;
};

/// Writes down what observers are notified of: the event's number, or "=" for an unchanged server, and the
/// storage id.
class RecordingObserver : public VantrelMulticastClient::Observer {
  public:
    RecordingObserver() { VantrelMulticastClient::addObserver(this); }
    ~RecordingObserver() override { VantrelMulticastClient::removeObserver(this); }

    void serverEvent(VantrelMulticastClient::Event event, const VantrelDaemonInfo& info) override {
        happened.add(std::to_string(static_cast<int>(event)) + ' ' + info.getStorageId());
    }
    void serverHeard(const VantrelDaemonInfo& info) override {
        happened.add(std::string("= ") + info.getStorageId());
    }

    Happenings happened;
};

/// Has the process discover on loopback only, on a port that nobody else uses.
class DiscoveryTest : public testing::Test {
  protected:
    static constexpr const char* SCOPE = "239.255.71.56";
    static constexpr const char* LOCAL_UUID = "7d8f8b56-5f2b-4d6c-9e0a-3a4b5c6d7e8f";

    DiscoveryTest() : holder_(0, SCOPE, "") {
        holder_.bind(Vantrel::CoMulticast::PUBLIC);
        configure("Multicast=lo", "");
    }
    ~DiscoveryTest() override { VantrelMulticastClient::stop(); }

    void configure(const std::string& interfaces, const std::string& more) const {
        const std::string text =
            Vantrel::coFormat("[Local]\nUUID=%s\n[Interfaces]\n%s\n[SelfDiscovery]\nPort=%u\nScope=%s\n%s\n",
                              LOCAL_UUID, interfaces.c_str(), group().port, SCOPE, more.c_str());
        const std::string file = directory_.write("network.cfg", text);
        ::setenv("QD_NETWORK_CFG_FILE", file.c_str(), 1);
        bool changed = false;
        Vantrel::CoNetworkConfig::getInstance().parse(changed, true);
    }
    VantrelDiscoveryGroup group(unsigned ttl = 1) const { return {holder_.getPort(), SCOPE, ttl}; }

    static VantrelDaemonInfo server(const char* storageId, const char* ip, const char* displayName = "") {
        return Vantrel::DaemonRecord{storageId, "", "", ip, "", displayName, 0}.info();
    }
    static VantrelServerId storage(const char* storageId) {
        VantrelServerId id;
        id.setStorageId(storageId);
        return id;
    }
    /// Milliseconds that `call` takes.
    template <typename Call>
    static long took(Call call) {
        const auto before = std::chrono::steady_clock::now();
        call();
        return (std::chrono::steady_clock::now() - before) / std::chrono::milliseconds(1);
    }

  private:
    const Vantrel::TemporaryDirectory directory_;
    Vantrel::CoMulticast holder_;
};
