#include <cerrno>

#include "CoMsg.h"
#include "TcpFixtures.h"

namespace Vantrel {
namespace {

using IoError = CoIoDescriptor::IoError;

TEST(Listen, TakesAFreePortAndAcceptsUsableSockets) {
    for (const char* address : {"127.0.0.1", "", static_cast<const char*>(nullptr)}) {
        SCOPED_TRACE(address ? address : "null");
        CoIoTcpServerDescriptor server;
        ASSERT_TRUE(server.listen(0, address)) << server.lastErrorText();
        ASSERT_GT(server.getPort(), 0);
        EXPECT_TRUE(isNonBlockingAndCloseOnExec(server.getId()));
        EXPECT_FALSE(server.accept().isOpen());
        EXPECT_EQ(server.lastError(), IoError::Again);

        CoIoTcpDescriptor client;
        ASSERT_TRUE(client.connect("127.0.0.1", server.getPort(), 0, 0, 10)) << client.lastErrorText();
        EXPECT_TRUE(isReadable(server.getId(), LONG_MS));
        CoIoTcpDescriptor accepted(server.accept());
        EXPECT_EQ(server.lastError(), IoError::None);
        EXPECT_TRUE(isNonBlockingAndCloseOnExec(accepted.getId()));
        std::string ip;
        EXPECT_TRUE(accepted.getPeerIP(ip));
        EXPECT_EQ(ip, "127.0.0.1") << "an IPv4 peer of a socket for both families";
        EXPECT_TRUE(client.writeStr("hello\n"));
        char line[16];
        EXPECT_EQ(accepted.readLine(line, sizeof line), 5);
    }
}

TEST(Listen, APortThatIsTakenOrAnAddressThatIsNotOursFails) {
    CoIoTcpServerDescriptor first;
    ASSERT_TRUE(first.listen(0, "127.0.0.1"));
    CoIoTcpServerDescriptor second;
    EXPECT_FALSE(second.listen(first.getPort(), "127.0.0.1"));
    EXPECT_EQ(second.lastErrorText(), coErrorText(EADDRINUSE));
    EXPECT_FALSE(second.isValid());
    EXPECT_EQ(second.getPort(), 0);
    EXPECT_FALSE(second.listen(0, "192.0.2.1"));
    EXPECT_EQ(second.lastErrorText(), coErrorText(EADDRNOTAVAIL));
    EXPECT_FALSE(second.listen(-1, "127.0.0.1"));
    EXPECT_EQ(second.lastError(), IoError::Invalid);
}

}  // namespace
}  // namespace Vantrel
