#include "VantrelRedirectionsCache.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <memory>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "CoException.h"
#include "CoIoTcpServerDescriptor.h"
#include "VantrelDaemonInfo.h"

using Vantrel::CoIoDescriptor;
using Vantrel::CoIoTcpServerDescriptor;
using Vantrel::CoTime;

namespace {

VantrelDaemonInfo serverAt(int framePort, const char* address = "127.0.0.1") {
    VantrelDaemonInfo info;
    info.setDataIP(0, address);
    info.setFramePort(framePort);
    return info;
}

struct NoServer : VantrelDaemonInfoMgr {
    bool getDaemonInfo(const VantrelDaemonInfo*&) override { return false; }
    void clearDaemonInfo() override {}
    const char* lastError() const override { return "nobody"; }
};

class RedirectionsCache : public testing::Test {
  protected:
    NoServer nobody;
    VantrelRawDataClientConnection fallback{nobody};
};

/// A port of 127.0.0.1, and whether somebody is connected to it.
class Listener {
  public:
    Listener() { EXPECT_TRUE(socket_.listen(0, "127.0.0.1")); }
    int port() const { return socket_.getPort(); }
    /// Whether the earliest connection of the queue is closed within the limit.
    bool peerHasGone() {
        const CoIoDescriptor peer(socket_.accept());
        pollfd entry{peer.getId(), POLLIN, 0};
        return ::poll(&entry, 1, 30000) == 1 && !peer.isActive();
    }

  private:
    CoIoTcpServerDescriptor socket_;
};

// Steps: "+a1" adds frame a with frame port 1, "?a" looks it up; each a second after the one before.
TEST_F(RedirectionsCache, AddTakesTheSameIdElseAFreeSlotElseTheLeastRecentlyUsed) {
    const std::tuple<unsigned, std::string, const char*> cases[] = {{0, "+a1", ""},
                                                                    {1, "+a1 +b2", "b2 "},
                                                                    {2, "+a1 +b2 +c3", "b2 c3 "},
                                                                    {2, "+a1 +b2 ?a +c3", "a1 c3 "},
                                                                    {2, "+a1 +a2 +b3", "a2 b3 "},
                                                                    {2, "+a1 +b2 +a3 +c4", "a3 c4 "},
                                                                    {2, "+a1 +b2 +c3 +d4 +e5", "d4 e5 "}};
    for (const auto& [capacity, text, expected] : cases) {
        VantrelRedirectionsCache cache(capacity);
        std::istringstream steps(text);
        for (std::string step; steps >> step; CoTime::advance(CoTime::PER_SECOND)) {
            const std::string id = step.substr(1, 1);
            if (step[0] == '+') cache.add(id, serverAt(std::stoi(step.substr(2))));
            if (step[0] == '?') cache.find(id, &fallback);
        }
        std::string remembered;
        for (const std::string id : {"a", "b", "c", "d", "e"}) {
            const VantrelDaemonInfo* target = cache.target(id);
            EXPECT_EQ(cache.find(id, &fallback) == &fallback, target == nullptr) << id;
            if (target) remembered += id + std::to_string(target->getFramePort()) + ' ';
        }
        EXPECT_EQ(remembered, expected) << text;
    }
}

TEST_F(RedirectionsCache, ServersWithOneFramePortShareAConnectionThatOutlivesTheirEntries) {
    VantrelRedirectionsCache cache(2);
    cache.add("a", serverAt(1));
    cache.add("b", serverAt(1, "127.0.0.2"));
    VantrelRawDataClientConnection* const first = cache.find("a", &fallback);
    EXPECT_EQ(cache.find("b", &fallback), first);
    cache.add("c", serverAt(2));
    cache.add("d", serverAt(3));
    EXPECT_NE(cache.find("c", &fallback), first);
    cache.add("e", serverAt(1));
    EXPECT_EQ(cache.find("e", &fallback), first);
}

TEST_F(RedirectionsCache, AClosedConnectionLeadsToTheServerThatIsLookedFor) {
    Listener listener;
    VantrelRedirectionsCache cache(2);
    cache.add("gone", serverAt(listener.port(), "127.0.0.2"));
    cache.add("here", serverAt(listener.port()));
    cache.find("gone", &fallback);
    VantrelRawDataClientConnection* const connection = cache.find("here", &fallback);
    EXPECT_NO_THROW(connection->connect());
    cache.disconnect();
    EXPECT_TRUE(listener.peerHasGone());
}

struct FixedServer : NoServer {
    explicit FixedServer(const VantrelDaemonInfo& record) : info(record) {}
    bool getDaemonInfo(const VantrelDaemonInfo*& found) override {
        found = &info;
        return true;
    }
    VantrelDaemonInfo info;
};

TEST(ConnectionCache, ClosesTheConnectionThatWasAskedForLongestAgoWhenThereAreTooMany) {
    Listener listeners[2];
    FixedServer first(serverAt(listeners[0].port()));
    FixedServer second(serverAt(listeners[1].port()));
    std::vector<std::unique_ptr<FixedServer>> others;
    VantrelConnectionCache cache;
    NoServer nobody;
    EXPECT_EQ(cache.get(nobody), nullptr);
    cache.get(first)->connect();
    cache.get(second)->connect();
    cache.get(first);
    for (std::size_t i = 0; i < VantrelConnectionCache::MAX_CONNECTIONS - 1; ++i) {
        others.push_back(std::make_unique<FixedServer>(serverAt(-1 - static_cast<int>(i))));
        cache.get(*others.back());
    }
    EXPECT_TRUE(listeners[1].peerHasGone());
    EXPECT_TRUE(cache.get(first)->isConnected());
}

}  // namespace
