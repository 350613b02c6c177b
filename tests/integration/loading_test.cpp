// Plug-ins come and go in a host's process, and the library with them.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <thread>

namespace {

/// Loads the plug-in, calls a function of it on a thread of its own, and unloads it.
bool callOnce(const char* name) {
    void* const plugin = ::dlopen(PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL);
    if (!plugin) return false;
    const auto function = reinterpret_cast<bool (*)()>(::dlsym(plugin, name));
    bool result = false;
    std::thread([&] { result = function && function(); }).join();
    ::dlclose(plugin);
    return result;
}

auto openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// A thread whose code was unmapped would crash the host when it next runs.
TEST(LoadingTest, ThreadsOutliveTheirPlugin) {
    for (const char* name : {"comeAndGo", "useThreads", "leaveThreads", "useThreads"}) {
        EXPECT_TRUE(callOnce(name)) << name;
    }
}

TEST(LoadingTest, ComingAndGoingLeavesNothingBehind) {
    ASSERT_TRUE(callOnce("comeAndGo"));
    const auto before = openDescriptors();
    for (int i = 0; i < 10; ++i) EXPECT_TRUE(callOnce("comeAndGo"));
    EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
