#include "CoAtomicFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <tuple>

#include "TemporaryDirectory.h"

namespace Vantrel {
namespace {

TEST(CoAtomicFile, ReplacesTheWholeFileThatALinkLeadsTo) {
    const TemporaryDirectory directory;
    const std::string path = directory.write("file", "something that is longer");
    std::filesystem::create_symlink("file", directory.path("link"));
    ASSERT_EQ(0, CoAtomicFile::write(directory.path("link"), "new"));
    EXPECT_EQ("new", directory.read("file"));
    EXPECT_TRUE(std::filesystem::is_symlink(directory.path("link")));
    EXPECT_EQ(2U, directory.countEntries());
    struct stat status {};
    ASSERT_EQ(0, ::stat(path.c_str(), &status));
    EXPECT_EQ(mode_t{0644}, status.st_mode & 07777);
}

TEST(CoAtomicFile, RefusesWhatItMustNotReplace) {
    const TemporaryDirectory directory;
    directory.write("file", "old");
    ASSERT_EQ(0, ::mkfifo(directory.path("pipe").c_str(), 0600));
    std::filesystem::create_directory(directory.path("directory"));
    const std::tuple<const char*, CoAtomicFile::Existing, int> cases[] = {
        {"file", CoAtomicFile::Existing::Refuse, EEXIST},
        {"pipe", CoAtomicFile::Existing::Replace, EINVAL},
        {"directory", CoAtomicFile::Existing::Replace, EISDIR},
        {"missing/file", CoAtomicFile::Existing::Replace, ENOENT},
        {"file/below", CoAtomicFile::Existing::Replace, ENOTDIR},
        {"new", CoAtomicFile::Existing::Refuse, 0},
    };
    for (const auto& [name, existing, error] : cases) {
        EXPECT_EQ(error, CoAtomicFile::write(directory.path(name), "new", existing)) << name;
    }
    EXPECT_EQ("old", directory.read("file"));
    EXPECT_EQ("new", directory.read("new"));
    EXPECT_EQ(4U, directory.countEntries());
}

}  // namespace
}  // namespace Vantrel
