// A host program that offers its own log to the library. This program exports the two functions that the
// library looks for.
#include "ClientFixture.h"
#include "CoMsg.h"

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

class HostRouter : public Vantrel::CoMsg::Router {
  public:
    const char* logPath() const override { return path; }
    void post(const Vantrel::CoMsg::Message& message) override { texts.push_back(message.text); }

    const char* path = nullptr;
    std::vector<std::string> texts;
};

HostRouter hostRouter;
int hostLevel = 0;
int levelAsked = -1;

}  // namespace

extern "C" {
__attribute__((visibility("default"))) int CoMsg_getFilterLevel(int which);
__attribute__((visibility("default"))) Vantrel::CoMsg::Router* CoMsg_getRouter();
int CoMsg_getFilterLevel(int which) {
    levelAsked = which;
    return hostLevel;
}
Vantrel::CoMsg::Router* CoMsg_getRouter() {
    return &hostRouter;
}
}

namespace {

class HostLogTest : public PeerFixture {
  protected:
    void connect(int level, const char* path) {
        hostLevel = level;
        hostRouter.path = path;
        Received::record();
        client.init();
        EXPECT_TRUE(VantrelServerHandle(id()).ping(0));
    }
    VantrelClient client{true};
    const std::string notice = "Connected to server [127.0.0.1:" + std::to_string(peer.port()) + "]";
};

TEST_F(HostLogTest, ARouterWithALogFileGetsTheMessagesAtTheHostsLevel) {
    connect(3, "/var/log/host.log");
    EXPECT_EQ(levelAsked, 0);
    EXPECT_THAT(hostRouter.texts, Contains(HasSubstr(notice)));
    EXPECT_THAT(hostRouter.texts, Not(Contains(HasSubstr("Connecting to '127.0.0.1"))));  // of level 4
    EXPECT_THAT(Received::log(), IsEmpty());
}

TEST_F(HostLogTest, ARouterWithoutALogFileIsNotUsed) {
    connect(4, "");
    EXPECT_THAT(Received::log(), Contains(HasSubstr(notice)));
    EXPECT_THAT(Received::log(), Contains(HasSubstr("Connecting to '127.0.0.1")));
    EXPECT_THAT(hostRouter.texts, IsEmpty());
}

}  // namespace
