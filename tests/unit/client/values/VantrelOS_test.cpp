#include <vantrel/VantrelOS.h>

#include <gmock/gmock.h>
#include <sys/capability.h>
#include <unistd.h>

#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "CapturedLog.h"
#include "CoNetworkDispatcher.h"
#include "ForkedChild.h"
#include "Sanitizers.h"
#include "TemporaryDirectory.h"

namespace {

constexpr unsigned FIRST_USER = 65534;
constexpr unsigned SECOND_USER = 65533;

bool hasSetUid(cap_flag_t flag) {
    const std::unique_ptr<void, int (*)(void*)> state(::cap_get_proc(), &::cap_free);
    cap_flag_value_t value = CAP_CLEAR;
    ::cap_get_flag(static_cast<cap_t>(state.get()), CAP_SETUID, flag, &value);
    return value == CAP_SET;
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
    const std::pair<int, const char*> cases[] = {
        {1, "Irix"}, {2, "Linux"}, {3, "WindowsNT"}, {4, "MacOSX"}, {0, "Unknown"}};
    for (const auto& [number, name] : cases) {
        EXPECT_STREQ(VantrelOS::OsTypeStr(static_cast<VantrelOS::OsType>(number)), name);
        EXPECT_EQ(VantrelOS::strToOsType(name), number);
    }
    EXPECT_STREQ(VantrelOS::OsTypeStr(static_cast<VantrelOS::OsType>(5)), "Unknown");
    EXPECT_EQ(VantrelOS::strToOsType("lINUX"), VantrelOS::Linux);
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
    // The addresses are of a network for documentation, which no machine carries.
    for (const char* other : {"", "LOCALHOST", "192.0.2.1", "::ffff:192.0.2.1", "no-such-host.invalid"}) {
        EXPECT_FALSE(VantrelOS::isLoopBackIP(other)) << other;
        EXPECT_FALSE(VantrelOS::isLocalIP(other)) << other;
    }
    EXPECT_FALSE(VantrelOS::isLoopBackIP("127.0.0.2"));
    EXPECT_FALSE(VantrelOS::isLoopBackIP(nullptr) || VantrelOS::isLocalIP(nullptr));
    EXPECT_TRUE(VantrelOS::isLocalIP(VantrelOS::getHostName()));
    for (const Vantrel::CoNetworkInterface& local : Vantrel::CoNetworkDispatcher::getAllInterfaces()) {
        EXPECT_TRUE(VantrelOS::isLocalIP(local.ip.c_str())) << local.ip;
        if (local.ip.find(':') != std::string::npos) continue;
        EXPECT_TRUE(VantrelOS::isLocalIP(("::ffff:" + local.ip).c_str())) << local.ip;
    }
}

TEST(VantrelOS, TellsTheInterfacesThatTheConfigurationNames) {
    const Vantrel::TemporaryDirectory folder;
    ::setenv("QD_NETWORK_CFG_FILE",
             folder.write("network.cfg", "[Interfaces]\nMetadata=lo\nMulticast=lo\n").c_str(), 1);
    VantrelStrList list;
    list.push_back("old");
    EXPECT_TRUE(VantrelOS::getLocalMetadataIPs(list));
    EXPECT_STREQ(list[0], "127.0.0.1");
    EXPECT_TRUE(VantrelOS::getLocalMulticastInterfaces(list));
    ASSERT_EQ(list.size(), 1U) << "once, whatever number of addresses it has";
    EXPECT_STREQ(list[0], "lo");
}

// Without the right to switch users at all, only the last steps are taken.
TEST(VantrelOS, SwitchesTheUserWithTheCapabilityOnForTheSwitchOnly) {
    // The sanitizer's own thread would lack the capability.
    const bool maySwitch = hasSetUid(CAP_PERMITTED) && !Vantrel::HAS_THREAD_SANITIZER;
    EXPECT_EQ(inForkedChild([maySwitch] {
                  if (maySwitch) {
                      if (!VantrelOS::setUserId(FIRST_USER) || VantrelOS::getUserId() != FIRST_USER) return 1;
                      // Leaving root switched the capability off, but it may still be used.
                      if (hasSetUid(CAP_EFFECTIVE) || !hasSetUid(CAP_PERMITTED)) return 2;
                      if (!VantrelOS::setUserId(SECOND_USER) || ::geteuid() != SECOND_USER) return 3;
                      if (hasSetUid(CAP_EFFECTIVE)) return 4;
                  }
                  dropSetUid();
                  const Vantrel::CapturedLog log;
                  const unsigned before = VantrelOS::getUserId();
                  if (VantrelOS::setUserId(FIRST_USER) || VantrelOS::getUserId() != before) return 5;
                  if (!log.contains("Cannot switch to user 65534: cap_setuid is not permitted")) return 6;
                  // Back to the process's own user takes no capability.
                  return VantrelOS::setUserId(::getuid()) && ::geteuid() == ::getuid() ? 0 : 7;
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

}  // namespace
