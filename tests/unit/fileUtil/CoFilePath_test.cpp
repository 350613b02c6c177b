#include "CoFilePath.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <utility>

#include "TemporaryDirectory.h"

namespace Vantrel {
namespace {

TEST(CoFilePath, Cleans) {
    const std::pair<const char*, const char*> cases[] = {{"", ""},
                                                         {"/", "/"},
                                                         {"//a///b//", "/a/b"},
                                                         {"a/", "a"},
                                                         {".", ""},
                                                         {"/a/./b/.", "/a/b"},
                                                         {"/a/../b", "/b"},
                                                         {"/../a", "/a"},
                                                         {"../a", "../a"},
                                                         {"a/../../b", "../b"},
                                                         {"/a/..b/.c", "/a/..b/.c"}};
    for (const auto& [path, cleaned] : cases) EXPECT_EQ(cleaned, CoFilePath::clean(path)) << path;
}

TEST(CoFilePath, NamesTheDirectory) {
    const std::pair<const char*, const char*> cases[] = {
        {"/a/b", "/a"}, {"/b", "/"}, {"b", "."}, {"", "."}, {"a/b/c", "a/b"}};
    for (const auto& [path, directory] : cases) EXPECT_EQ(directory, CoFilePath::directoryOf(path)) << path;
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
