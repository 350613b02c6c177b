#include "CoAtomicFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "FileSizeLimit.h"
#include "TemporaryDirectory.h"

namespace Vantrel {
namespace {

TEST(CoAtomicFile, ReplacesTheWholeFile) {
    const TemporaryDirectory directory;
    const std::string path = directory.write("file", "something that is longer");
    ASSERT_EQ(0, CoAtomicFile::write(path, "new"));
    EXPECT_EQ("new", directory.read("file"));
    EXPECT_EQ(1U, directory.countEntries());
    struct stat status {};
    ASSERT_EQ(0, ::stat(path.c_str(), &status));
    EXPECT_EQ(mode_t{0644}, status.st_mode & 07777);
}

TEST(CoAtomicFile, KeepsASymbolicLink) {
    const TemporaryDirectory directory;
    directory.write("target", "old");
    std::filesystem::create_symlink("target", directory.path("link"));
    ASSERT_EQ(0, CoAtomicFile::write(directory.path("link"), "new"));
    EXPECT_EQ("new", directory.read("target"));
    EXPECT_TRUE(std::filesystem::is_symlink(directory.path("link")));
}

TEST(CoAtomicFile, AFullDiskLeavesTheEarlierFileWhole) {
    const TemporaryDirectory directory;
    const std::string path = directory.write("file", "old");
    const FileSizeLimit limit(1000);
    EXPECT_EQ(EFBIG, CoAtomicFile::write(path, std::string(5000, 'x')));
    EXPECT_EQ("old", directory.read("file"));
    EXPECT_EQ(1U, directory.countEntries()) << "no temporary file stays behind";
}

TEST(CoAtomicFile, RefusesWhatItMustNotReplace) {
    const TemporaryDirectory directory;
    directory.write("file", "old");
    ASSERT_EQ(0, ::mkfifo(directory.path("pipe").c_str(), 0600));
    std::filesystem::create_directory(directory.path("directory"));
    struct {
        const char* name;
        CoAtomicFile::Existing existing;
        int error;
    } const cases[] = {
        {"file", CoAtomicFile::Existing::Refuse, EEXIST},
        {"pipe", CoAtomicFile::Existing::Replace, EINVAL},
        {"directory", CoAtomicFile::Existing::Replace, EISDIR},
        {"missing/file", CoAtomicFile::Existing::Replace, ENOENT},
        {"file/below", CoAtomicFile::Existing::Replace, ENOTDIR},
        {"new", CoAtomicFile::Existing::Refuse, 0},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(each.error, CoAtomicFile::write(directory.path(each.name), "new", each.existing))
            << each.name;
    }
    EXPECT_EQ("old", directory.read("file"));
    EXPECT_EQ("new", directory.read("new"));
    EXPECT_EQ(4U, directory.countEntries());
}

}  // namespace
}  // namespace Vantrel
