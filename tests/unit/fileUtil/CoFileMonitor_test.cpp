#include "CoFileMonitor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "CoAtomicFile.h"
#include "ForkedChild.h"
#include "TemporaryDirectory.h"

namespace Vantrel {
namespace {

namespace fs = std::filesystem;

std::size_t countDescriptors() {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

class CoFileMonitorTest : public ::testing::Test {
  protected:
    CoFileMonitorTest() { CoFileMonitor::start(); }
    ~CoFileMonitorTest() override { CoFileMonitor::stop(); }

    const TemporaryDirectory directory;
    const std::string file = directory.path("cfg/network.cfg");
};

TEST_F(CoFileMonitorTest, TellsEveryKindOfChangeOnce) {
    struct {
        const char* what;
        std::function<void()> prepare;
        std::function<void()> change;
        bool changed;
    } const cases[] = {
        {"nothing", [&] { directory.write("cfg/network.cfg", "a"); }, [] {}, false},
        {"written with the same size", [&] { directory.write("cfg/network.cfg", "a"); },
         [&] { directory.write("cfg/network.cfg", "b"); }, true},
        {"removed", [&] { directory.write("cfg/network.cfg", "a"); }, [&] { fs::remove(file); }, true},
        {"moved in", [&] { directory.write("other", "a"); },
         [&] { fs::rename(directory.path("other"), file); }, true},
        {"the target of a link written",
         [&] {
             directory.write("other", "a");
             fs::create_symlink(directory.path("other"), file);
         },
         [&] { directory.write("other", "b"); }, true},
        {"a neighbour written", [&] { directory.write("cfg/network.cfg", "a"); },
         [&] { directory.write("cfg/network.cfg.bak", "b"); }, false},
        {"directory created with the file", [&] { fs::remove_all(directory.path("cfg")); },
         [&] {
             fs::create_directory(directory.path("cfg"));
             directory.write("cfg/network.cfg", "a");
         },
         true},
        {"directory exchanged", [&] { directory.write("cfg/network.cfg", "a"); },
         [&] {
             fs::rename(directory.path("cfg"), directory.path("old"));
             fs::create_directory(directory.path("cfg"));
             directory.write("cfg/network.cfg", "a");
         },
         true},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        for (const char* name : {"cfg", "old", "other"}) fs::remove_all(directory.path(name));
        fs::create_directory(directory.path("cfg"));
        each.prepare();
        CoFileMonitor::Watch watch(file);
        watch.accept();
        EXPECT_FALSE(watch.changed());
        each.change();
        EXPECT_EQ(each.changed, watch.changed());
        EXPECT_FALSE(watch.changed()) << "told once";
        fs::create_directory(directory.path("cfg"));
        directory.write("cfg/network.cfg", "something else");
        EXPECT_TRUE(watch.changed()) << "and the next change is seen, whatever came before";
    }
}

TEST_F(CoFileMonitorTest, AFileBeingWrittenCountsOnceItIsClosed) {
    fs::create_directory(directory.path("cfg"));
    directory.write("cfg/network.cfg", "a");
    CoFileMonitor::Watch watch(file);
    watch.accept();
    {
        std::ofstream stream(file);
        stream << "half" << std::flush;
        EXPECT_FALSE(watch.changed());
    }
    EXPECT_TRUE(watch.changed());
}

TEST_F(CoFileMonitorTest, WhileStoppedNothingChangesAndNoDescriptorIsOpen) {
    fs::create_directory(directory.path("cfg"));
    CoFileMonitor::stop();
    const std::size_t before = countDescriptors();
    CoFileMonitor::Watch watch(file);
    watch.accept();
    directory.write("cfg/network.cfg", "a");
    EXPECT_FALSE(watch.changed());
    CoFileMonitor::start();
    EXPECT_TRUE(watch.changed()) << "what happened meanwhile is noticed";
    EXPECT_EQ(before + 1, countDescriptors());
    CoFileMonitor::stop();
    EXPECT_EQ(before, countDescriptors());
}

TEST_F(CoFileMonitorTest, AForkedChildLeavesTheEventsToItsParent) {
    fs::create_directory(directory.path("cfg"));
    CoFileMonitor::Watch watch(file);
    watch.accept();
    directory.write("cfg/network.cfg", "a");
    EXPECT_EQ(inForkedChild([&watch] { return watch.changed() ? 0 : 1; }), 0);
    EXPECT_TRUE(watch.changed());
}

}  // namespace
}  // namespace Vantrel
