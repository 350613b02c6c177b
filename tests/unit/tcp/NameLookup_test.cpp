#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <future>
#include <utility>

#include "CoNameLookup.h"

#include "CapturedLog.h"
#include "CoException.h"
#include "TcpFixtures.h"

namespace Vantrel {
namespace {

using IoError = CoIoDescriptor::IoError;

// A resolver that holds every look-up until the gate opens.
std::promise<void> gate;
const std::shared_future<void> opened(gate.get_future());
std::atomic<int> held{0};

int resolveWhenOpen(const char*, const char*, const addrinfo*, addrinfo**) {
    ++held;
    opened.wait();
    --held;
    return EAI_FAIL;
}

// Answers with what a numeric look-up gives for 127.0.0.2 and then for 127.0.0.1.
int resolveToTwo(const char*, const char*, const addrinfo* hints, addrinfo** result) {
    addrinfo numeric = *hints;
    numeric.ai_flags |= AI_NUMERICHOST;
    int error = ::getaddrinfo("127.0.0.2", nullptr, &numeric, result);
    if (error == 0) error = ::getaddrinfo("127.0.0.1", nullptr, &numeric, &(*result)->ai_next);
    return error;
}

int resolveToOne(const char* host, const char*, const addrinfo* hints, addrinfo** result) {
    if (std::strcmp(host, "here.test") != 0 || (hints->ai_flags & AI_NUMERICHOST) != 0) return EAI_NONAME;
    return ::getaddrinfo("127.0.0.1", nullptr, hints, result);
}

struct UseResolver {
    explicit UseResolver(CoNameLookup::Resolver resolver) { CoNameLookup::resolver() = resolver; }
    UseResolver(const UseResolver&) = delete;
    UseResolver& operator=(const UseResolver&) = delete;
    ~UseResolver() { CoNameLookup::resolver() = &::getaddrinfo; }
};

TEST(NameLookup, ConnectResolvesANameOnTheSecondAttempt) {
    const UseResolver resolver(&resolveToOne);
    CoIoTcpServerDescriptor server;
    ASSERT_TRUE(server.listen(0, "here.test")) << server.lastErrorText();
    CoIoTcpDescriptor client;
    EXPECT_TRUE(client.connect("here.test", server.getPort(), 0, 0, 10)) << client.lastErrorText();

    const CapturedLog log;
    EXPECT_FALSE(client.connect("nowhere.test", server.getPort(), 0, 0, 10));
    EXPECT_EQ(client.lastErrorText(), ::gai_strerror(EAI_NONAME));
    EXPECT_THAT(log.texts(CoMsg::ERROR),
                testing::ElementsAre(std::string("Could not get info on 'nowhere.test': ") +
                                     ::gai_strerror(EAI_NONAME)));
}

TEST(NameLookup, ConnectTriesEveryAddressOfAName) {
    const UseResolver resolver(&resolveToTwo);
    CoIoTcpServerDescriptor server;
    ASSERT_TRUE(server.listen(0, "127.0.0.1"));
    CoIoTcpDescriptor client;
    ASSERT_TRUE(client.connect("both.test", server.getPort(), 0, 0, 10)) << client.lastErrorText();
    std::string ip;
    EXPECT_TRUE(client.getPeerIP(ip));
    EXPECT_EQ(ip, "127.0.0.1");

    const int port = server.getPort();
    server.close();
    EXPECT_FALSE(client.connect("both.test", port, 0, 0, 10));
    EXPECT_EQ(client.lastErrorText(), coErrorText(ECONNREFUSED));
}

TEST(NameLookup, ASilentResolverEndsWithTheTimeOrAStop) {
    const UseResolver resolver(&resolveWhenOpen);
    CoIoTcpDescriptor client;
    const long sleepsBefore = threadSleeps();
    const double seconds = secondsOf([&] { EXPECT_FALSE(client.connect("slow.test", 1, 0, 0, 1)); });
    EXPECT_GE(seconds, 0.99);
    EXPECT_LT(seconds, 5);
    EXPECT_GT(threadSleeps() - sleepsBefore, 10);
    EXPECT_EQ(client.lastError(), IoError::TimedOut);

    expectStopEnds(client, [&] { EXPECT_FALSE(client.connect("slow.test", 1, 0, 0, LONG_MS / 1000)); });
    EXPECT_THROW(CoIoTcpDescriptor::getIpAddrFromHostName("slow.test", 20), CoException);

    // Given-up look-ups are still running; past the limit no more are begun.
    CoNameLookup::Addresses none(nullptr, &::freeaddrinfo);
    int begun = 0;
    while (begun < 2 * CoNameLookup::MAX_RUNNING &&
           secondsOf([&] { EXPECT_EQ(CoNameLookup::find("slow.test", 20, nullptr, none), EAI_AGAIN); }) >=
               0.019) {
        ++begun;
    }
    EXPECT_EQ(begun, CoNameLookup::MAX_RUNNING - 3);
    gate.set_value();
    while (held > 0) std::this_thread::yield();
}

TEST(NameLookup, AddressesOfNamesAndNamesOfAddresses) {
    const UseResolver resolver(&resolveToOne);
    EXPECT_EQ(CoIoTcpDescriptor::getIpAddrFromHostName("here.test"), "127.0.0.1");
    EXPECT_EQ(CoIoTcpDescriptor::getIpAddrFromHostName("10.1.2.3"), "10.1.2.3");
    EXPECT_EQ(CoIoTcpDescriptor::getIpAddrFromHostName("::FFFF:10.1.2.3"), "10.1.2.3");
    for (const char* plain : {"10.0.0.1", "::ffff:1:2", ""}) {
        EXPECT_STREQ(CoIoTcpDescriptor::skipIPv4InIPv6Prefix(plain), plain);
    }
    EXPECT_STREQ(CoIoTcpDescriptor::skipIPv4InIPv6Prefix("::FFFF:10.0.0.1"), "10.0.0.1");
    const std::function<void()> failing[] = {
        [] { CoIoTcpDescriptor::getIpAddrFromHostName("nowhere.test"); },
        [] { CoIoTcpDescriptor::getIpAddrFromHostName(nullptr); },
        [] { CoIoTcpDescriptor::getHostNameFromIpAddr("no address", true); },
        [] { CoIoTcpDescriptor::getHostNameFromIpAddr(nullptr, true); },
    };
    const CapturedLog quiet;
    for (const auto& call : failing) {
        try {
            call();
            ADD_FAILURE() << "no exception";
        } catch (const CoException& exception) {
            EXPECT_STREQ(exception.what(), ::gai_strerror(EAI_NONAME));
        }
    }
    EXPECT_FALSE(CoIoTcpDescriptor::getHostNameFromIpAddr("127.0.0.1", true).empty());
}

TEST(NameLookup, TheEnvironmentSelectsTheFamily) {
    const auto families = [](const char* variable) {
        if (variable) ::setenv(variable, "", 1);
        ::_exit(CoNameLookup::family() * 16 + CoNameLookup::choiceFamily());
    };
    const auto exitedWith = [](int family, int choiceFamily) {
        return testing::ExitedWithCode(family * 16 + choiceFamily);
    };
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // variables are read once: each row in a fresh process
    EXPECT_EXIT(families(nullptr), exitedWith(AF_UNSPEC, AF_UNSPEC), "");
    EXPECT_EXIT(families("QD_TCP_IPV6"), exitedWith(AF_INET6, AF_INET6), "");
    EXPECT_EXIT(families("QD_TCP_DISABLE_IPV6"), exitedWith(AF_UNSPEC, AF_INET), "");
}

}  // namespace
}  // namespace Vantrel
