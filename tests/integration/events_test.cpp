// Events of a real server: to handlers of the library, and to people who watch with the client.
#include <nlohmann/json.hpp>
#include <optional>

#include "ClientFixture.h"
#include "EventRecorder.h"
#include "ServerProcess.h"

using testing::AllOf;
using testing::HasSubstr;

namespace {

constexpr std::chrono::seconds LIMIT(60);

class EventsTest : public ClientFixture {
  protected:
    EventsTest() {
        set("VANTREL_DEFAULT_CALL_TIMEOUT_MS", "3000");
        VantrelClientInit();
    }
    void SetUp() override {
        server = std::make_unique<VantrelServerHandle>(VantrelServerId(process->id().c_str()));
        ASSERT_TRUE(server->getRootNode(root)) << server->lastError();
        ASSERT_TRUE(server->registerEventHandler(root.getNodeId(), &recorder)) << server->lastError();
    }
    bool change() { return root.setMetaData(VantrelMetaData::STREAM_XML(), "<x/>"); }
    /// Starts the client on the root and makes changes until it shows one; counts them.
    std::unique_ptr<ChildProcess> watch(const std::vector<std::string>& more, std::size_t& changes) {
        std::vector<std::string> command{VANTREL_PROGRAM, "watch", process->id(), "/"};
        command.insert(command.end(), more.begin(), more.end());
        auto watcher = std::make_unique<ChildProcess>(command);
        const auto shown = std::async(std::launch::async, [&] { return watcher->firstLine(LIMIT); });
        for (; shown.wait_for(std::chrono::milliseconds(100)) == std::future_status::timeout; ++changes)
            EXPECT_TRUE(change());
        return watcher;
    }
    /// A change of the root that the handler is notified of, perhaps at a later try.
    bool isNotified() {
        const std::size_t before = recorder.events().size();
        const auto end = std::chrono::steady_clock::now() + LIMIT;
        while (std::chrono::steady_clock::now() < end) {
            EXPECT_TRUE(change()) << root.lastError();
            if (recorder.waitFor(before + 1, std::chrono::milliseconds(200))) return true;
        }
        return false;
    }

    std::optional<ServerProcess> process{std::in_place, VANTRELD_PROGRAM, folder.path("root")};
    EventRecorder recorder;  // before the handle, which ends its calls
    std::unique_ptr<VantrelServerHandle> server;
    VantrelNodeHandle root;
};

TEST_F(EventsTest, ClientsSeeEachOthersChanges) {
    std::size_t changes = 0;
    const auto watcher = watch({"--count", "3", "--json"}, changes);
    VantrelNodeHandle volume;
    ASSERT_TRUE(root.createNode("stor 1", "VOLUME", volume)) << root.lastError();
    ASSERT_TRUE(recorder.waitFor(changes + 1));
    EXPECT_EQ(ChildProcess({VANTREL_PROGRAM, "rename", process->id(), "/stor 1", "s"}).wait(LIMIT).status, 0);
    ASSERT_TRUE(recorder.waitFor(changes + 2));
    const auto events = recorder.events();
    EXPECT_THAT(events[changes],
                AllOf(HasSubstr(" NodeCreated "), HasSubstr(PeerInfo::entry("Displ", "stor 1"))));
    EXPECT_THAT(events[changes + 1],
                AllOf(HasSubstr(" NodeRenamed "), HasSubstr(PeerInfo::entry("Displ", "s"))));
    const ChildProcess::Result result = watcher->wait(LIMIT);
    EXPECT_EQ(result.status, 0) << result.err;
    const auto event = nlohmann::json::parse(result.out.substr(0, result.out.find('\n')));
    EXPECT_EQ(event, nlohmann::json({{"nodeId", root.getNodeId().id()},
                                     {"type", "MetaDataChanged"},
                                     {"details", {{"Stream", "XML"}}}}));
    EXPECT_TRUE(server->unregisterEventHandler(root.getNodeId(), &recorder)) << server->lastError();
}

TEST_F(EventsTest, EventsComeAgainAfterTheServerWasAway) {
    ASSERT_TRUE(isNotified());
    std::size_t changes = 0;
    const auto watcher = watch({}, changes);
    ASSERT_TRUE(recorder.waitFor(1 + changes));
    const std::string port = std::to_string(process->nodePort());
    process->process().signal(SIGKILL);
    process->process().wait(LIMIT);
    process.emplace(VANTRELD_PROGRAM, folder.path("root"), std::vector<std::string>{"--port", port});
    EXPECT_TRUE(isNotified()) << "killed";
    watcher->waitForError("vantrel: server '" + process->id() + "' is lost", LIMIT);
    process->process().signal(SIGSTOP);
    EXPECT_FALSE(server->ping(0));
    process->process().signal(SIGCONT);
    EXPECT_TRUE(isNotified()) << "stopped";
    watcher->signal(SIGINT);
    const auto result = watcher->wait(LIMIT);
    EXPECT_EQ(result.status, 128 + SIGINT);
    EXPECT_THAT(result.err, HasSubstr("vantrel: interrupted"));
}

}  // namespace
