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
    CoFileMonitorTest() {
        fs::create_directory(directory.path("cfg"));
        CoFileMonitor::start();
    }
    ~CoFileMonitorTest() override { CoFileMonitor::stop(); }

    void write(const std::string& content = "a") const { directory.write("cfg/network.cfg", content); }

    const TemporaryDirectory directory;
    const std::string file = directory.path("cfg/network.cfg");
};

TEST_F(CoFileMonitorTest, TellsEveryKindOfChangeOnce) {
    const auto written = [&] { write(); };
    const std::string other = directory.path("other");
    const auto otherWritten = [&] { directory.write("other", "b"); };
    struct {
        const char* what;
        std::function<void()> prepare;
        std::function<void()> change;
        bool changed;
    } const cases[] = {
        {"nothing", written, [] {}, false},
        {"written with the same size", written, [&] { write("b"); }, true},
        {"removed", written, [&] { fs::remove(file); }, true},
        {"moved in", otherWritten, [&] { fs::rename(other, file); }, true},
        {"the target of a link written", [&] { otherWritten(), fs::create_symlink(other, file); },
         otherWritten, true},
        {"a neighbour written", written, [&] { directory.write("cfg/network.cfg.bak", "b"); }, false},
        {"directory created with the file", [&] { fs::remove_all(directory.path("cfg")); },
         [&] { fs::create_directory(directory.path("cfg")), write(); }, true},
        {"directory exchanged", written,
         [&] {
             fs::rename(directory.path("cfg"), directory.path("old"));
             fs::create_directory(directory.path("cfg"));
             write();
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
        EXPECT_FALSE(watch.changed()) << "reported once";
        fs::create_directory(directory.path("cfg"));
        write("something else");
        EXPECT_TRUE(watch.changed()) << "and the next change is seen, whatever came before";
    }
}

TEST_F(CoFileMonitorTest, AFileBeingWrittenCountsOnceItIsClosedAndInTheParentOnly) {
    write();
    CoFileMonitor::Watch watch(file);
    watch.accept();
    std::ofstream stream(file);
    stream << "half" << std::flush;
    EXPECT_FALSE(watch.changed());
    stream.close();
    EXPECT_EQ(inForkedChild([&watch] { return watch.changed() ? 0 : 1; }), 0);
    EXPECT_TRUE(watch.changed()) << "the child left the event to its parent";
}

TEST_F(CoFileMonitorTest, WhileStoppedNothingChangesAndNoDescriptorIsOpen) {
    CoFileMonitor::stop();
    const std::size_t before = countDescriptors();
    CoFileMonitor::Watch watch(file);
    watch.accept();
    write();
    EXPECT_FALSE(watch.changed());
    CoFileMonitor::start();
    EXPECT_TRUE(watch.changed()) << "what happened between the two is noticed";
    EXPECT_EQ(before + 1, countDescriptors());
    CoFileMonitor::stop();
    EXPECT_EQ(before, countDescriptors());
}

}  // namespace
}  // namespace Vantrel
