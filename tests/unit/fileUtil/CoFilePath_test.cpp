#include "CoFilePath.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "TemporaryDirectory.h"

namespace Vantrel {
namespace {

TEST(CoFilePath, Cleans) {
    struct {
        const char* path;
        const char* cleaned;
    } const cases[] = {
        {"", ""},
        {"/", "/"},
        {"///", "/"},
        {"//a///b//", "/a/b"},
        {"a", "a"},
        {"a/", "a"},
        {".", ""},
        {"/.", "/"},
        {"/a/./b/.", "/a/b"},
        {"/a/../b", "/b"},
        {"/a/b/../..", "/"},
        {"/../a", "/a"},
        {"a/..", ""},
        {"../a", "../a"},
        {"a/../../b", "../b"},
        {"../../a", "../../a"},
        {"/a/.../b", "/a/.../b"},
        {"/a/..b/.c", "/a/..b/.c"},
        {"/stor1/Default Library/reel 1", "/stor1/Default Library/reel 1"},
    };
    for (const auto& each : cases) EXPECT_EQ(each.cleaned, CoFilePath::clean(each.path)) << each.path;
}

TEST(CoFilePath, NamesTheDirectory) {
    struct {
        const char* path;
        const char* directory;
    } const cases[] = {{"/a/b", "/a"}, {"/b", "/"}, {"b", "."}, {"", "."}, {"a/b/c", "a/b"}};
    for (const auto& each : cases) EXPECT_EQ(each.directory, CoFilePath::directoryOf(each.path)) << each.path;
}

TEST(CoFilePath, MakesMissingDirectories) {
    const TemporaryDirectory directory;
    EXPECT_EQ(0, CoFilePath::makeDirectories(directory.path("a/b/c")));
    EXPECT_TRUE(std::filesystem::is_directory(directory.path("a/b/c")));
    EXPECT_EQ(0, CoFilePath::makeDirectories(directory.path("a/b")));
    directory.write("file", "");
    EXPECT_EQ(ENOTDIR, CoFilePath::makeDirectories(directory.path("file/below")));
}

}  // namespace
}  // namespace Vantrel
