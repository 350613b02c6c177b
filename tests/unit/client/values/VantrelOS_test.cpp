#include <vantrel/VantrelOS.h>

#include <gmock/gmock.h>
#include <sys/capability.h>
#include <unistd.h>

#include <future>
#include <memory>
#include <string>
#include <thread>

#include "CapturedLog.h"
#include "CoNetworkDispatcher.h"
#include "ForkedChild.h"
#include "Sanitizers.h"

namespace {

constexpr unsigned FIRST_USER = 65534;
constexpr unsigned SECOND_USER = 65533;

bool hasSetUid(cap_flag_t flag) {
    const std::unique_ptr<void, int (*)(void*)> state(::cap_get_proc(), &::cap_free);
    cap_flag_value_t value = CAP_CLEAR;
    return ::cap_get_flag(static_cast<cap_t>(state.get()), CAP_SETUID, flag, &value) == 0 && value == CAP_SET;
}

void dropSetUid() {
    const std::unique_ptr<void, int (*)(void*)> state(::cap_get_proc(), &::cap_free);
    const cap_t caps = static_cast<cap_t>(state.get());
    const cap_value_t setUid = CAP_SETUID;
    ::cap_set_flag(caps, CAP_PERMITTED, 1, &setUid, CAP_CLEAR);
    ::cap_set_flag(caps, CAP_EFFECTIVE, 1, &setUid, CAP_CLEAR);
    ::cap_set_proc(caps);
}

TEST(VantrelOS, NamesSystems) {
    struct Case {
        int type;
        const char* name;
        const char* alsoRead;
    };
    const Case cases[] = {
        {1, "Irix", "IRIX"}, {2, "Linux", "linux"}, {3, "WindowsNT", "windowsnt"}, {4, "MacOSX", "macosx"}};
    for (const Case& c : cases) {
        const auto type = static_cast<VantrelOS::OsType>(c.type);
        EXPECT_STREQ(VantrelOS::OsTypeStr(type), c.name);
        EXPECT_EQ(VantrelOS::strToOsType(c.name), type);
        EXPECT_EQ(VantrelOS::strToOsType(c.alsoRead), type);
    }
    for (const int other : {0, 5, -1}) {
        EXPECT_STREQ(VantrelOS::OsTypeStr(static_cast<VantrelOS::OsType>(other)), "Unknown");
    }
    for (const char* other : {"", "Linux ", "Solaris", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(VantrelOS::strToOsType(other), VantrelOS::Unknown);
    }
}

TEST(VantrelOS, KnowsLoopbacksAndItsOwnAddresses) {
    for (const char* loopback :
         {"localhost", "127.0.0.1", "::ffff:127.0.0.1", "::FFFF:127.0.0.1", "::127.0.0.1", "::1"}) {
        EXPECT_TRUE(VantrelOS::isLoopBackIP(loopback)) << loopback;
        EXPECT_TRUE(VantrelOS::isLocalIP(loopback)) << loopback;
    }
    // The last two are of networks for documentation, which no machine carries.
    for (const char* other : {"", "LOCALHOST", "127.0.0.2", "192.0.2.1", "::ffff:192.0.2.1"}) {
        EXPECT_FALSE(VantrelOS::isLoopBackIP(other)) << other;
    }
    for (const char* other : {"", "192.0.2.1", "::ffff:192.0.2.1", "no-such-host.invalid"}) {
        EXPECT_FALSE(VantrelOS::isLocalIP(other)) << other;
    }
    EXPECT_FALSE(VantrelOS::isLoopBackIP(nullptr));
    EXPECT_FALSE(VantrelOS::isLocalIP(nullptr));
    EXPECT_TRUE(VantrelOS::isLocalIP(VantrelOS::getHostName()));
    for (const Vantrel::CoNetworkInterface& local : Vantrel::CoNetworkDispatcher::getAllInterfaces()) {
        EXPECT_TRUE(VantrelOS::isLocalIP(local.ip.c_str())) << local.ip;
        if (local.ip.find(':') == std::string::npos) {
            EXPECT_TRUE(VantrelOS::isLocalIP(("::ffff:" + local.ip).c_str())) << local.ip;
        }
    }
}

TEST(VantrelOS, SwitchesTheUserWithTheCapabilityOnForTheSwitchOnly) {
    if (!hasSetUid(CAP_PERMITTED)) GTEST_SKIP() << "needs a process that may switch users";
    if (Vantrel::HAS_THREAD_SANITIZER) GTEST_SKIP() << "the sanitizer's own thread lacks the capability";
    EXPECT_EQ(inForkedChild([] {
                  if (!VantrelOS::setUserId(FIRST_USER) || VantrelOS::getUserId() != FIRST_USER) return 1;
                  // Leaving root switched the capability off, but it may still be used.
                  if (hasSetUid(CAP_EFFECTIVE) || !hasSetUid(CAP_PERMITTED)) return 2;
                  if (!VantrelOS::setUserId(SECOND_USER) || ::geteuid() != SECOND_USER) return 3;
                  if (hasSetUid(CAP_EFFECTIVE)) return 4;
                  dropSetUid();
                  // Back to the process's own user takes no capability.
                  return VantrelOS::setUserId(::getuid()) && ::geteuid() == ::getuid() ? 0 : 5;
              }),
              0);
}

// Switching only some of the threads would make the C library end the process.
TEST(VantrelOS, DoesNotSwitchWhileAnotherThreadLacksTheCapability) {
    if (!hasSetUid(CAP_PERMITTED)) GTEST_SKIP() << "needs a process that may switch users";
    EXPECT_EQ(inForkedChild([] {
                  if (!VantrelOS::setUserId(FIRST_USER)) return 1;
                  const Vantrel::CapturedLog log;
                  std::promise<void> done;
                  std::thread other([&done] { done.get_future().wait(); });
                  const bool switched = VantrelOS::setUserId(SECOND_USER);
                  done.set_value();
                  other.join();
                  if (switched || ::geteuid() != FIRST_USER) return 2;
                  if (hasSetUid(CAP_EFFECTIVE)) return 3;
                  return log.contains("lacks cap_setuid") ? 0 : 4;
              }),
              0);
}

TEST(VantrelOS, WithoutTheCapabilitySaysWhyItDidNotSwitch) {
    EXPECT_EQ(inForkedChild([] {
                  dropSetUid();
                  const Vantrel::CapturedLog log;
                  const unsigned before = VantrelOS::getUserId();
                  if (VantrelOS::setUserId(FIRST_USER)) return 1;
                  if (VantrelOS::getUserId() != before) return 2;
                  return log.contains("Cannot switch to user 65534: cap_setuid is not permitted") ? 0 : 3;
              }),
              0);
}

}  // namespace
