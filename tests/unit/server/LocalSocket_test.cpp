#include "LocalSocket.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <tuple>

#include "CapturedLog.h"
#include "TemporaryDirectory.h"

namespace vantreld {
namespace {

using Vantrel::CoFd;

CoFd bound(const std::string& path, int (*call)(int, const sockaddr*, socklen_t)) {
    CoFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (call(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) fd.reset();
    return fd;
}

class LocalSocketTest : public testing::Test {
  protected:
    bool canConnect() const { return bound(path, ::connect).isOpen(); }
    /// 0 without a file.
    mode_t mode() const {
        struct stat file {};
        return ::lstat(path.c_str(), &file) == 0 ? file.st_mode : 0;
    }
    bool exists() const { return mode() != 0; }

    const Vantrel::TemporaryDirectory directory;
    const std::string path = directory.path("socket");
    Vantrel::CapturedLog log;
};

TEST_F(LocalSocketTest, AnyUsersClientConnectsWhileItLives) {
    {
        LocalSocket socket(path);
        EXPECT_FALSE(socket.accept().isOpen());
        EXPECT_TRUE(canConnect());
        EXPECT_TRUE(socket.accept().isOpen());
        EXPECT_EQ(mode() & 0777, 0666u);
    }
    EXPECT_EQ(directory.countEntries(), 0u);
    EXPECT_TRUE(log.texts(Vantrel::CoMsg::WARNING).empty());
}

TEST_F(LocalSocketTest, TheFileOfAKilledServerIsReplaced) {
    bound(path, ::bind);
    ASSERT_TRUE(exists());
    ASSERT_FALSE(canConnect());
    const LocalSocket socket(path);
    EXPECT_TRUE(canConnect());
    EXPECT_EQ(directory.countEntries(), 1u);
}

TEST_F(LocalSocketTest, WhatIsInUseOrNoSocketIsLeftAlone) {
    std::unique_ptr<LocalSocket> running;
    const std::tuple<const char*, std::function<void()>, std::function<bool()>> cases[] = {
        {"a server", [&] { running = std::make_unique<LocalSocket>(path); }, [&] { return canConnect(); }},
        {"a file", [&] { directory.write("socket", "text"); },
         [&] { return directory.read("socket") == "text"; }},
        {"a link to nowhere", [&] { EXPECT_EQ(::symlink("nowhere", path.c_str()), 0); },
         [&] { return exists(); }},
        {"a folder", [&] { EXPECT_EQ(::mkdir(path.c_str(), 0700), 0); }, [&] { return exists(); }},
    };
    std::size_t warnings = 0;
    for (const auto& [what, prepare, isAsBefore] : cases) {
        std::remove(path.c_str());
        prepare();
        EXPECT_LT(LocalSocket(path).fd(), 0) << what;
        EXPECT_EQ(log.texts(Vantrel::CoMsg::WARNING).size(), ++warnings) << what;
        EXPECT_TRUE(isAsBefore()) << what;
        running.reset();
    }
}

TEST_F(LocalSocketTest, AFileThatTookItsPlaceIsNotRemoved) {
    {
        const LocalSocket socket(path);
        ASSERT_EQ(::unlink(path.c_str()), 0);
        bound(path, ::bind);
    }
    EXPECT_TRUE(exists());
}

TEST_F(LocalSocketTest, WithoutItsFolderThereIsNone) {
    const LocalSocket socket(directory.path("no/socket"));
    EXPECT_LT(socket.fd(), 0);
    EXPECT_TRUE(log.texts(Vantrel::CoMsg::WARNING).empty());
    const LocalSocket tooLong(directory.path(std::string(sizeof(sockaddr_un::sun_path), 'x')));
    EXPECT_LT(tooLong.fd(), 0);
    EXPECT_EQ(log.texts(Vantrel::CoMsg::WARNING).size(), 1u);
    EXPECT_EQ(directory.countEntries(), 0u);
}

}  // namespace
}  // namespace vantreld
