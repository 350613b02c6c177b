#include "CoNetworkConfig.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <uuid/uuid.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <thread>
#include <tuple>
#include <utility>

#include "CapturedLog.h"
#include "CoAtomicFile.h"
#include "FileSizeLimit.h"
#include "ForkedChild.h"
#include "TemporaryDirectory.h"

namespace Vantrel {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using Strings = std::vector<std::string>;

constexpr const char* WITH_UUID = "[Local]\nUUID=00112233-4455-6677-8899-aabbccddeeff\n";

/// The UUID that a configuration has, or "none".
std::string uuidOf(CoNetworkConfig& config) {
    std::string uuid = "to be replaced";
    if (config.getUUID(uuid)) return uuid;
    EXPECT_EQ("", uuid);
    return "none";
}

class CoNetworkConfigTest : public ::testing::Test {
  protected:
    ~CoNetworkConfigTest() override { CoFileMonitor::stop(); }

    void write(const std::string& settings) { directory.write("network.cfg", WITH_UUID + settings); }
    unsigned port() {
        unsigned value = 7555;
        config.getSelfDiscoveryPort(value);
        return value;
    }

    const TemporaryDirectory directory;
    const std::string file = directory.path("network.cfg");
    CoNetworkConfig config{file};
};

/// Everything that can be configured, as one text.
std::string settings(CoNetworkConfig& config) {
    std::string name;
    std::string scope = "224.0.0.1";
    unsigned port = 7555;
    unsigned ttl = 1;
    unsigned lower = 0;
    unsigned upper = 0;
    config.getDisplayName(name);
    config.getSelfDiscoveryPort(port);
    config.getSelfDiscoveryScope(scope);
    config.getSelfDiscoveryTTL(ttl);
    config.getDynamicPortRange(lower, upper);
    std::string text = coFormat("%s|%u|%s|%u|%u-%u", name.c_str(), port, scope.c_str(), ttl, lower, upper);
    const auto getters = {&CoNetworkConfig::getMetadataInterfaces, &CoNetworkConfig::getDataInterfaces,
                          &CoNetworkConfig::getMulticastInterfaces};
    for (const auto getter : getters) {
        Strings names = {"to be replaced"};
        (config.*getter)(names);
        text += '|';
        for (const std::string& each : names) text += each + ';';
    }
    return text + '|' + config.getIPRangeFiltersInfo();
}

constexpr const char* DEFAULTS = "|7555|224.0.0.1|1|49152-65535||||Accept from any\nReject from none\n";

TEST_F(CoNetworkConfigTest, ReadsEveryKey) {
    write(
        "DisplayName = Suite 3 \n[Interfaces]\nMetadata=eth2, eth1 ,,*\nData=ib0\nMulticast=\teth3\n"
        "[SelfDiscovery]\nPort = 7556\nScope=239.0.0.1\nTTL=0\n"
        "[Filtering]\nAccept=192.168.0.0/16 , 10.0.0.1\nReject=192.168.1.0/255.255.255.0\n"
        "[DynamicPorts]\nLowerBound=50000\nUpperBound=50000\n");
    EXPECT_EQ(
        "Suite 3|7556|239.0.0.1|0|50000-50000|eth2;eth1;*;|ib0;|eth3;|"
        "Accept from 192.168.0.0/16, 10.0.0.1\nReject from 192.168.1.0/24\n",
        settings(config));
    EXPECT_EQ("00112233-4455-6677-8899-aabbccddeeff", uuidOf(config));

    write("[DynamicPorts]\nUpperBound=60000\n");
    config.reset();
    EXPECT_THAT(settings(config), testing::HasSubstr("|49152-60000|")) << "one bound alone";
}

TEST_F(CoNetworkConfigTest, TheTemplateSaysWhatHoldsWithoutIt) {
    const std::string text(CoNetworkConfig::getTemplate());
    EXPECT_EQ(7982U, text.size());
    EXPECT_EQ(0U, text.find("[Local]\n"));
    EXPECT_EQ(text.size(), text.find("#UpperBound=65535\n") + 18);
    std::size_t at = 0;
    for (const char* line :
         {"[Local]", "UUID=", "#DisplayName=", "[Interfaces]", "#Metadata=", "#Data=", "#Multicast=",
          "[SelfDiscovery]", "#Port=7555", "#Scope=224.0.0.1", "#TTL=1", "[Filtering]",
          "#Accept=", "#Reject=", "[DynamicPorts]", "#LowerBound=49152", "#UpperBound=65535"}) {
        const std::size_t found = ('\n' + text).find('\n' + std::string(line) + '\n', at);
        ASSERT_NE(std::string::npos, found) << line;
        at = found + 1;
    }

    std::string error;
    ASSERT_TRUE(CoNetworkConfig::writeTemplate(file.c_str(), error)) << error;
    EXPECT_EQ(text, directory.read("network.cfg"));
    const CapturedLog log;
    EXPECT_EQ(DEFAULTS, settings(config));
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(CoNetworkConfigTest, CreatesTheMissingFileWithAUUID) {
    CoNetworkConfig deep(directory.path("a/b/network.cfg"));
    ASSERT_TRUE(deep.createIfMissing()) << deep.lastError();
    const std::string uuid = uuidOf(deep);
    uuid_t parsed{};
    EXPECT_EQ(0, ::uuid_parse(uuid.c_str(), parsed)) << uuid;
    std::string expected(CoNetworkConfig::getTemplate());
    expected.replace(expected.find("UUID=\n"), 6, "UUID=" + uuid + '\n');
    EXPECT_EQ(expected, directory.read("a/b/network.cfg"));
    ASSERT_TRUE(deep.createIfMissing());
    EXPECT_EQ(expected, directory.read("a/b/network.cfg")) << "what exists stays";
}

TEST_F(CoNetworkConfigTest, GivesAnExistingFileItsUUIDAndKeepsTheRest) {
    const std::tuple<const char*, bool, const char*> cases[] = {
        {"[Local]\n# mine\nUUID=\n[SelfDiscovery]\nPort=7\n", false,
         "[Local]\n# mine\nUUID=%s\n[SelfDiscovery]\nPort=7\n"},
        {"# a\n[SelfDiscovery]\nPort=7\n# b\n", false,
         "# a\n[SelfDiscovery]\nPort=7\n[Local]\nUUID=%s\n# b\n"},
        {"[Local]\nUUID=0011-22\n", false, "[Local]\nUUID=0011-22\n"},  // once assigned, never edited
        {"", false, ""},                                                // left to its writer
        {"", true, "[Local]\nUUID=%s\n"},
    };
    for (const auto& [before, fill, after] : cases) {
        directory.write("network.cfg", before);
        CoNetworkConfig fresh(file);
        unsigned port = 7;
        bool changed = false;
        EXPECT_TRUE(fill ? fresh.createIfMissing() : fresh.parse(changed, false));
        fresh.getSelfDiscoveryPort(port);
        EXPECT_EQ(7U, port);
        std::string expected = after;
        const std::size_t place = expected.find("%s");
        if (place != std::string::npos) expected.replace(place, 2, uuidOf(fresh));
        EXPECT_EQ(expected, directory.read("network.cfg"));
    }
    directory.write("network.cfg", "[Local]\nUUID=0011-22\n");
    EXPECT_EQ("none", uuidOf(config));
    EXPECT_EQ("Invalid UUID '0011-22'", config.lastError());
}

TEST_F(CoNetworkConfigTest, AMissingFileIsNormal) {
    const CapturedLog log;
    EXPECT_EQ(DEFAULTS, settings(config));
    EXPECT_TRUE(config.isIPInValidRange("10.0.0.1"));
    EXPECT_EQ("none", uuidOf(config));
    EXPECT_EQ("No host UUID configured. Please check " + file + ".", config.lastError());
    bool changed = true;
    EXPECT_FALSE(config.parse(changed, true));
    EXPECT_FALSE(changed);
    EXPECT_EQ("Could not read '" + file + "': " + coErrorText(ENOENT), config.lastError());
    EXPECT_EQ(log.texts(), log.texts(CoMsg::DEBUG));
    EXPECT_EQ(0U, directory.countEntries()) << "and is not created";
}

TEST_F(CoNetworkConfigTest, FailuresAreLoggedAndKeepWhatWasRead) {
    write("[SelfDiscovery]\nPort=7556\n");
    ASSERT_EQ(7556U, port());
    const auto expectFailure = [this](const std::string& error) {
        const CapturedLog log;
        EXPECT_FALSE(config.createIfMissing());
        EXPECT_EQ(error, config.lastError());
        EXPECT_THAT(log.texts(CoMsg::ERROR), ElementsAre(error));
        EXPECT_EQ(7556U, port());
    };
    write(std::string(CoConfigFileReader::MAX_FILE_SIZE, '#'));
    expectFailure("Could not parse network.cfg: " + coErrorText(EFBIG));
    std::filesystem::remove(file);
    std::filesystem::create_directory(file);
    expectFailure("Could not read '" + file + "': " + coErrorText(EISDIR));

    const std::string blocked = directory.write("blocked", "");
    CoNetworkConfig cannotCreate(blocked + "/network.cfg");
    EXPECT_FALSE(cannotCreate.createIfMissing());
    EXPECT_THAT(cannotCreate.lastError(), StartsWith("Could not create '" + blocked + "': "));
}

TEST_F(CoNetworkConfigTest, AFullDiskLosesNothing) {
    const std::string before = "[Local]\nUUID=\n[SelfDiscovery]\nPort=7556\n" + std::string(2000, '#') + '\n';
    directory.write("network.cfg", before);
    const FileSizeLimit limit(1000);
    const CapturedLog log;
    const std::string error = "Could not write to '" + file + "': " + coErrorText(EFBIG);
    EXPECT_EQ(7556U, port());
    EXPECT_THAT(log.texts(CoMsg::ERROR), ElementsAre(error));
    EXPECT_EQ(before, directory.read("network.cfg"));
    EXPECT_EQ(1U, directory.countEntries());
    EXPECT_EQ("none", uuidOf(config)) << "a UUID that is not in the file identifies nobody";
    EXPECT_FALSE(config.createIfMissing());
    EXPECT_EQ(error, config.lastError());
}

TEST_F(CoNetworkConfigTest, UnusableSettingsKeepTheDefault) {
    const auto badRange = [](const char* range) {
        return coFormat("Invalid Dynamic port range %s; using default [49152:65535].", range);
    };
    const std::pair<const char*, std::string> cases[] = {
        {"[SelfDiscovery]\nPort=0\n", "Invalid Port '0' in [SelfDiscovery]; using 7555."},
        {"[SelfDiscovery]\nPort=65536\n", "Invalid Port '65536' in [SelfDiscovery]; using 7555."},
        {"[SelfDiscovery]\nPort=7556x\n", "Invalid Port '7556x' in [SelfDiscovery]; using 7555."},
        {"[SelfDiscovery]\nTTL=256\n", "Invalid TTL '256' in [SelfDiscovery]; using 1."},
        {"[DynamicPorts]\nLowerBound=49151\n", badRange("[49151:65535]")},
        {"[DynamicPorts]\nLowerBound=50001\nUpperBound=50000\n", badRange("[50001:50000]")},
        {"[DynamicPorts]\nUpperBound=65536\n", badRange("[49152:65536]")},
        {"[DynamicPorts]\nLowerBound=-1\nUpperBound=x\n", badRange("[-1:0]")},
    };
    for (const auto& [setting, warning] : cases) {
        write(setting);
        config.reset();
        const CapturedLog log;
        EXPECT_EQ(DEFAULTS, settings(config));
        EXPECT_THAT(log.texts(), ElementsAre(warning));
    }
}

TEST_F(CoNetworkConfigTest, FiltersAddresses) {
    const std::tuple<const char*, Strings, Strings, Strings> cases[] = {
        {"", {"10.0.0.1", "::1", "host"}, {}, {}},
        {"Accept=192.168.0.0/16\nReject=192.168.1.0/24\n",
         {"192.168.0.1", "::ffff:192.168.0.1"},
         {"192.168.1.1", "::ffff:192.168.1.1", "10.0.0.1", "127.0.0.1", "fe80::1", ""},
         {}},
        {"Accept=10.0.0.0/40, 11.0.0.0/8,x,12.0.0.0/255.0.0.1\n",
         {"11.0.0.1"},
         {"10.0.0.1", "12.0.0.1"},
         {"Invalid IP range filter prefix 40", "Invalid IP range filter x",
          "Invalid IP range filter mask 255.0.0.1"}},
        {"Accept=10.0.0.0/40,x",
         {},
         {"10.0.0.1", "127.0.0.1", "::1", "host"},
         {"Invalid IP range filter prefix 40", "Invalid IP range filter x",
          "No valid range in Accept '10.0.0.0/40,x' of [Filtering]: no address is accepted."}},
    };
    for (const auto& [filters, allowed, refused, errors] : cases) {
        SCOPED_TRACE(filters);
        write(std::string("[Filtering]\n") + filters);
        config.reset();
        const CapturedLog log;
        EXPECT_EQ(!refused.empty(), config.hasIPRangeFilters());
        for (const std::string& ip : allowed) EXPECT_TRUE(config.isIPInValidRange(ip.c_str())) << ip;
        for (const std::string& ip : refused) EXPECT_FALSE(config.isIPInValidRange(ip.c_str())) << ip;
        EXPECT_FALSE(config.isIPInValidRange(nullptr));
        EXPECT_EQ(errors, log.texts()) << "once, when the file is read";
    }
}

TEST_F(CoNetworkConfigTest, ReadsAgainWhatChangedWhileMonitored) {
    EXPECT_EQ(7555U, port());
    write("[SelfDiscovery]\nPort=7556\n");
    EXPECT_EQ(7555U, port()) << "without the monitor, read once";
    CoFileMonitor::start();
    EXPECT_EQ(7556U, port());
    write("[SelfDiscovery]\nPort=7557\n");
    EXPECT_EQ(7557U, port());
    bool changed = true;
    EXPECT_TRUE(config.parse(changed, false));
    EXPECT_FALSE(changed);
    std::filesystem::remove(file);
    EXPECT_EQ(7557U, port()) << "what was read stays in force";
    write("[SelfDiscovery]\nPort=7558\n[Filtering]\nReject=10.0.0.0/8\n");
    EXPECT_FALSE(config.isIPInValidRange("10.0.0.1"));
    EXPECT_EQ(7558U, port());
}

TEST_F(CoNetworkConfigTest, ManyThreadsAskWhileTheFileChanges) {
    write("[SelfDiscovery]\nPort=1\n");
    CoFileMonitor::start();
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([this, &done] {
            for (unsigned last = 1; !done;) {
                const unsigned now = port();
                EXPECT_GE(now, last) << "an older file than the one read before";
                last = now;
                EXPECT_TRUE(config.isIPInValidRange("10.0.0.1"));
            }
        });
    }
    for (unsigned i = 1; i <= 50; ++i) {
        const std::string text = WITH_UUID + coFormat("[SelfDiscovery]\nPort=%u\n", i);
        EXPECT_EQ(0, CoAtomicFile::write(file, text));
        EXPECT_EQ(i, port());
    }
    done = true;
    CoFileMonitor::stop();
    for (std::thread& thread : threads) thread.join();
}

TEST(CoNetworkConfig, HasADefaultFileAndAForkedChildAnObjectOfItsOwn) {
    ::unsetenv("QD_NETWORK_CFG_FILE");
    const CoNetworkConfig& parents = CoNetworkConfig::getInstance();
    EXPECT_EQ("/opt/Quorvane/cfg/network.cfg", parents.getConfigFileName());
    EXPECT_EQ(inForkedChild([&parents] {
                  CoFileMonitor::stop();
                  return &CoNetworkConfig::getInstance() != &parents ? 0 : 1;
              }),
              0);
}

}  // namespace
}  // namespace Vantrel
