// Events of a real server: to handlers of the library, and to people who watch with the client.
#include <nlohmann/json.hpp>
#include <optional>

#include "ClientFixture.h"
#include "ContextLoop.h"
#include "EventRecorder.h"
#include "NodeIds.h"
#include "NodeServer.h"
#include "ServerProcess.h"

using testing::HasSubstr;

namespace {

constexpr std::chrono::seconds LIMIT(60);

class EventsTest : public ClientFixture {
  protected:
    EventsTest() { VantrelClientInit(); }

    void start(const std::vector<std::string>& more = {}) {
        process.emplace(VANTRELD_PROGRAM, folder.path("root"), more);
    }
    /// As after a crash: at the same address.
    void restart() {
        const std::string port = std::to_string(process->nodePort());
        process->process().signal(SIGKILL);
        process->process().wait(LIMIT);
        start({"--port", port});
    }
    /// Starts the client on the root and makes changes until it shows one; counts them.
    std::unique_ptr<ChildProcess> watch(VantrelNodeHandle& root, const std::vector<std::string>& more,
                                        std::size_t& changes) const {
        std::vector<std::string> command{VANTREL_PROGRAM, "watch", process->id(), "/"};
        command.insert(command.end(), more.begin(), more.end());
        const std::vector<std::string> variables{"TSAN_OPTIONS=suppressions=" VANTREL_TSAN_SUPPRESSIONS};
        auto watcher = std::make_unique<ChildProcess>(command, variables);
        const auto shown = std::async(std::launch::async, [&] { return watcher->firstLine(LIMIT); });
        while (shown.wait_for(std::chrono::milliseconds(100)) == std::future_status::timeout) {
            EXPECT_TRUE(root.setMetaData(VantrelMetaData::STREAM_XML(), "<x/>"));
            ++changes;
        }
        return watcher;
    }
    /// A change of the root that the handler hears of, perhaps at a later try.
    static bool isHeard(const VantrelServerHandle& server, VantrelNodeHandle& root, EventRecorder& recorder) {
        const std::size_t before = recorder.events().size();
        const auto end = std::chrono::steady_clock::now() + LIMIT;
        while (std::chrono::steady_clock::now() < end) {
            if (!root.setMetaData(VantrelMetaData::STREAM_XML(), "<x/>")) ADD_FAILURE() << server.lastError();
            if (recorder.waitFor(before + 1, std::chrono::milliseconds(200))) return true;
        }
        return false;
    }

    std::optional<ServerProcess> process;
};

TEST_F(EventsTest, ClientsSeeEachOthersChanges) {
    start();
    EventRecorder recorder;  // before the handle, which ends its calls
    const VantrelServerHandle server(VantrelServerId(process->id().c_str()));
    VantrelNodeHandle root, volume;
    ASSERT_TRUE(server.getRootNode(root)) << server.lastError();
    ASSERT_TRUE(server.registerEventHandler(root.getNodeId(), &recorder)) << server.lastError();
    std::size_t changes = 0;
    const auto watcher = watch(root, {"--count", "3", "--json"}, changes);
    ASSERT_TRUE(root.createNode("stor 1", "VOLUME", volume)) << server.lastError();
    ASSERT_TRUE(recorder.waitFor(changes + 1));
    EXPECT_EQ(ChildProcess({VANTREL_PROGRAM, "rename", process->id(), "/stor 1", "s"}).wait(LIMIT).status, 0);
    ASSERT_TRUE(recorder.waitFor(changes + 2));
    const auto events = recorder.events();
    EXPECT_THAT(events[changes], HasSubstr(" NodeCreated "));
    EXPECT_THAT(events[changes], HasSubstr(PeerInfo::entry("Displ", "stor 1")));
    EXPECT_THAT(events[changes + 1], HasSubstr(" NodeRenamed "));
    EXPECT_THAT(events[changes + 1], HasSubstr(PeerInfo::entry("Displ", "s")));
    const ChildProcess::Result result = watcher->wait(LIMIT);
    EXPECT_EQ(result.status, 0) << result.err;
    const auto event = nlohmann::json::parse(result.out.substr(0, result.out.find('\n')));
    EXPECT_EQ(event, nlohmann::json({{"nodeId", root.getNodeId().id()},
                                     {"type", "MetaDataChanged"},
                                     {"details", {{"Stream", "XML"}}}}));
    EXPECT_TRUE(server.unregisterEventHandler(root.getNodeId(), &recorder)) << server.lastError();
}

TEST_F(EventsTest, EventsComeAgainAfterTheServerWasAway) {
    set("VANTREL_DEFAULT_CALL_TIMEOUT_MS", "500");
    start();
    EventRecorder recorder;  // before the handle, which ends its calls
    const VantrelServerHandle server(VantrelServerId(process->id().c_str()));
    VantrelNodeHandle root;
    ASSERT_TRUE(server.getRootNode(root)) << server.lastError();
    ASSERT_TRUE(server.registerEventHandler(root.getNodeId(), &recorder)) << server.lastError();
    ASSERT_TRUE(isHeard(server, root, recorder));
    std::size_t changes = 0;
    const auto watcher = watch(root, {}, changes);
    ASSERT_TRUE(recorder.waitFor(1 + changes));
    restart();
    EXPECT_TRUE(isHeard(server, root, recorder)) << "killed";
    watcher->waitForError("vantrel: server '" + process->id() + "' is lost", LIMIT);
    process->process().signal(SIGSTOP);
    EXPECT_FALSE(server.ping(0));
    process->process().signal(SIGCONT);
    EXPECT_TRUE(isHeard(server, root, recorder)) << "stopped";
    watcher->signal(SIGINT);
    const auto result = watcher->wait(LIMIT);
    EXPECT_EQ(result.status, 128 + SIGINT);
    EXPECT_THAT(result.err, HasSubstr("vantrel: interrupted"));
}

/// A server within this process, to make changes faster than a disk can keep them.
class FastEventsTest : public EventsTest {
  protected:
    FastEventsTest() : store_(folder.path("root")), server_(store_, options()) {
        loop_.emplace(server_.loop());
    }
    static vantreld::ServerOptions options() {
        vantreld::ServerOptions options;
        options.nodePort = 0;
        options.bindAddress = "127.0.0.1";
        return options;
    }
    VantrelServerId id() const { return {server_.getPort(), "127.0.0.1"}; }
    void change(int number) {
        const std::int64_t node = vantreld::parseNodeId(store_.rootId());
        server_.events().nodeChanged(vantreld::NodeChange::metaDataSet(node, std::to_string(number)));
    }

    vantreld::NodeStore store_;
    vantreld::NodeServer server_;
    std::optional<ContextLoop> loop_;
};

TEST_F(FastEventsTest, TheOrderIsKept) {
    constexpr std::size_t EVENTS = 100000;
    EventRecorder recorder;  // before the handle, which ends its calls
    const VantrelServerHandle server(id());
    const VantrelNodeId root(store_.rootId().c_str());
    ASSERT_TRUE(server.registerEventHandler(root, &recorder)) << server.lastError();
    for (std::size_t i = 0; i < EVENTS; ++i) change(static_cast<int>(i));
    ASSERT_TRUE(recorder.waitFor(EVENTS));
    const auto events = recorder.events();
    ASSERT_EQ(events.size(), EVENTS);
    for (std::size_t i = 0; i < EVENTS; ++i) {
        const std::string details = PeerInfo::entry("Stream", std::to_string(i));
        ASSERT_EQ(events[i], store_.rootId() + " MetaDataChanged " + details);
    }
}

}  // namespace
