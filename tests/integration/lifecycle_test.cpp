// Bringing the library up and down, its log and its callbacks, as an application sees them.
#include <sys/resource.h>

#include <atomic>

#include "ClientFixture.h"

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

constexpr const char* NOT_INITIALIZED = "API not initialized";

using LifecycleTest = PeerFixture;

TEST_F(LifecycleTest, InitIsCounted) {
    int version[3] = {-1, -1, -1};
    VantrelClientGetVersion(version[0], version[1], version[2]);
    EXPECT_THAT(version, ::testing::ElementsAre(2024, 0, 0));
    const VantrelServerHandle server(id());
    EXPECT_TRUE(VantrelClientInit() && VantrelClientInit());
    VantrelClientUninit();
    EXPECT_TRUE(VantrelClientIsInitialized());
    EXPECT_TRUE(server.ping(0)) << server.lastError();
    VantrelClientUninit();
    EXPECT_FALSE(VantrelClientIsInitialized());
    EXPECT_TRUE(peer.waitForNoClients()) << "shutting down closes connections of living handles too";
}

TEST_F(LifecycleTest, AnUnmatchedUninitLeavesTheCounterOneShort) {
    const VantrelServerHandle server(id());
    VantrelClientUninit();
    for (const bool isUp : {false, false, true}) {
        EXPECT_EQ(VantrelClientIsInitialized(), isUp);
        EXPECT_EQ(server.ping(0), isUp) << "there is no connection cache";
        EXPECT_TRUE(isUp || server.lastError() == std::string(NOT_INITIALIZED));
        EXPECT_TRUE(VantrelClientInit());
    }
}

TEST_F(LifecycleTest, AFailedInitIsForgottenByTheUninitThatBalancesIt) {
    // What writes the log exists before: UndefinedBehaviorSanitizer needs descriptors to look at a new
    // object.
    VantrelRegisterLogCallBack(nullptr);
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_FALSE(VantrelClientInit());
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_TRUE(VantrelClientInit()) << "which does not try again";
    VantrelClientUninit();
    VantrelClientUninit();
    EXPECT_TRUE(VantrelClientInit());
    EXPECT_TRUE(VantrelServerHandle(id()).ping(0));
}

TEST_F(LifecycleTest, AClientObjectUndoesOnlyItsOwnInit) {
    {
        VantrelClient deferred(true);
        EXPECT_FALSE(VantrelClientIsInitialized());
        EXPECT_TRUE(deferred.init());
        EXPECT_TRUE(deferred.init());
        const VantrelClient atOnce(false);
        EXPECT_TRUE(VantrelClientIsInitialized());
    }
    EXPECT_FALSE(VantrelClientIsInitialized()) << "init, called twice, counts once";
    VantrelClientInit();
    { const VantrelClient never(true); }
    EXPECT_TRUE(VantrelClientIsInitialized());
}

TEST_F(LifecycleTest, TheLogLevelSelectsMessagesAndIgnoresOtherNumbers) {
    set("VANTREL_NETWORK_DEBUG", "1");  // messages of level 0 with each connection
    Received::record();
    VantrelClient client(false);
    const int initial = 99;
    // Nothing here posts level 2.
    for (const auto& [level, highest] :
         {std::pair(initial, 0), {4, 4}, {5, 4}, {-1, 4}, {3, 3}, {2, 1}, {0, 0}}) {
        if (level != initial) VantrelSetLogLevel(static_cast<VantrelLogLevel>(level));
        Received::clear();
        peer.dropConnections();
        EXPECT_TRUE(VantrelServerHandle(id()).ping(0));
        EXPECT_FALSE(VantrelServerHandle(VantrelServerId("not:an:address")).ping(0));
        char found = '0' - 1;
        for (const std::string& message : Received::log()) found = std::max(found, message[0]);
        EXPECT_EQ(found - '0', highest) << level;
    }
}

TEST_F(LifecycleTest, WithoutACallbackMessagesGoToStandardError) {
    Received::record();
    VantrelClient client(false);
    VantrelSetLogLevel(VANTREL_LOG_ERROR);
    VantrelRegisterLogCallBack(nullptr);
    ::testing::internal::CaptureStderr();
    const VantrelServerHandle nobody{VantrelServerId("nowhere")};
    EXPECT_FALSE(nobody.ping(0));
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("Server not found [nowhere:0]"));
    EXPECT_THAT(Received::log(), IsEmpty());
}

// --- Callbacks that use the library ---

const VantrelServerHandle* callbackServer = nullptr;
std::atomic<int> callbackCalls{0};
std::atomic<int> callbackFailures{0};

void useLibrary() {
    thread_local bool inside = false;
    if (inside) return;
    inside = true;
    ++callbackCalls;
    VantrelNodeHandle root;
    const VantrelServerHandle copy(*callbackServer);
    if (!VantrelResolveDisplayPath(*callbackServer, "/", root)) ++callbackFailures;
    callbackServer->isConnected();
    VantrelClientInit();
    VantrelClientUninit();
    VantrelClientReleaseUnusedConnections(false);
    VantrelSetLogLevel(VANTREL_LOG_DEBUG);
    inside = false;
}

TEST_F(LifecycleTest, CallbacksMayUseTheLibraryAndTheServerThatTheCallIsAbout) {
    set("QD_VANTREL_TRACE", "1");
    VantrelRegisterLogCallBack([](VantrelLogLevel, const char*) { useLibrary(); });
    VantrelRegisterDisconnectCallBack([](const VantrelServerId&) { useLibrary(); });
    VantrelClient client(false);
    VantrelSetLogLevel(VANTREL_LOG_DEBUG);
    const VantrelServerHandle server(id());
    callbackServer = &server;
    within(std::chrono::seconds(30), [&] {
        for (int i = 0; i < 3; ++i) {
            EXPECT_TRUE(server.ping(0)) << server.lastError();
            peer.dropConnections();
        }
        server.disconnect();
        server.stop(nullptr);
        VantrelClientReleaseUnusedConnections(true);
    });
    VantrelRegisterLogCallBack(nullptr);
    VantrelRegisterDisconnectCallBack(nullptr);
    EXPECT_GT(callbackCalls, 10);
    EXPECT_EQ(callbackFailures, 0);
}

// --- Network configuration ---

TEST_F(LifecycleTest, CreatesTheNetworkConfiguration) {
    set("QD_NETWORK_CFG_FILE", folder.path("created.cfg"));
    VantrelStr error("as before");
    EXPECT_TRUE(VantrelCreateNetworkConfig(&error));
    EXPECT_STREQ(error.c_str(), "as before");
    const std::string created = folder.read("created.cfg");
    EXPECT_THAT(created, AllOf(HasSubstr("UUID="), Not(HasSubstr("UUID=\n"))));
    EXPECT_TRUE(VantrelCreateNetworkConfig(nullptr) && VantrelCreateNetworkConfig(NULL) &&
                VantrelCreateNetworkConfig(0));
    EXPECT_EQ(folder.read("created.cfg"), created) << "an existing one is kept";
    EXPECT_TRUE(VantrelCreateNetworkConfig(folder.path("template.cfg").c_str()));
    EXPECT_EQ(folder.read("template.cfg").size(), 7982U);
    EXPECT_FALSE(VantrelCreateNetworkConfig(folder.path("no/such/directory").c_str()));
}

TEST_F(LifecycleTest, SaysWhyTheNetworkConfigurationCannotBeCreated) {
    set("QD_NETWORK_CFG_FILE", folder.write("file", "") + "/network.cfg");
    VantrelStr error;
    EXPECT_FALSE(VantrelCreateNetworkConfig(nullptr) || VantrelCreateNetworkConfig(&error));
    EXPECT_THAT(error.c_str(), HasSubstr(std::strerror(ENOTDIR)));
}

}  // namespace
