#pragma once

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "PlainSocket.h"

extern char** environ;

/// A program under test as a process of its own: its output is gathered, every wait has a limit, and it never
/// outlives this object. Not thread-safe.
class ChildProcess {
  public:
    struct Result {
        int status = -1;  ///< exit status, or 128 plus the number of the signal that ended it
        std::string out;
        std::string err;
    };

    /// Starts it with `variables` ("NAME=value") before those of this process. Throws when it cannot be
    /// started.
    explicit ChildProcess(const std::vector<std::string>& command,
                          const std::vector<std::string>& variables = {})
        : name_(command.at(0)) {
        Vantrel::PlainPipe out;
        Vantrel::PlainPipe err;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out.write, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, err.write, STDERR_FILENO);
        std::vector<char*> argv = pointers(command);
        std::vector<char*> environment = pointers(variables);
        environment.pop_back();
        for (char** variable = environ; *variable != nullptr; ++variable) environment.push_back(*variable);
        environment.push_back(nullptr);
        const int error = posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environment.data());
        posix_spawn_file_actions_destroy(&actions);
        if (error != 0) throw std::runtime_error("cannot start " + name_ + ": " + std::strerror(error));
        out_ = std::move(out.read);
        err_ = std::move(err.read);
    }
    ~ChildProcess() {
        if (reaped_) return;
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    void signal(int number) const { kill(pid_, number); }

    /// The first line of standard output, without its end. Throws when none comes within the limit.
    std::string firstLine(std::chrono::milliseconds limit) {
        waitForText("\n", out_, result_.out, limit);
        return result_.out.substr(0, result_.out.find('\n'));
    }

    /// Waits until `text` stands on standard error. Throws when it does not come within the limit.
    void waitForError(const std::string& text, std::chrono::milliseconds limit) {
        waitForText(text, err_, result_.err, limit);
    }

    /// Waits for its end and gives all its output. Throws when it does not end within the limit.
    Result wait(std::chrono::milliseconds limit) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (out_.isOpen() || err_.isOpen()) gather(deadline);
        const Vantrel::PlainFd descriptor(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)));
        pollfd ended{descriptor, POLLIN, 0};
        if (poll(&ended, 1, millisecondsTo(deadline)) != 1) throw std::runtime_error(name_ + " does not end");
        int status = 0;
        waitpid(pid_, &status, 0);
        reaped_ = true;
        result_.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return result_;
    }

  private:
    using Deadline = std::chrono::steady_clock::time_point;

    static std::vector<char*> pointers(const std::vector<std::string>& texts) {
        std::vector<char*> result;
        for (const std::string& text : texts) result.push_back(const_cast<char*>(text.c_str()));
        result.push_back(nullptr);
        return result;
    }

    static int millisecondsTo(Deadline deadline) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        return left.count() > 0 ? static_cast<int>(left.count()) : 0;
    }

    void waitForText(const std::string& text, const Vantrel::PlainFd& from, const std::string& gathered,
                     std::chrono::milliseconds limit) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (gathered.find(text) == std::string::npos) {
            if (!from.isOpen())
                throw std::runtime_error(name_ + " ended without '" + text + "': " + result_.err);
            gather(deadline);
        }
    }

    void gather(Deadline deadline) {
        pollfd fds[] = {{out_, POLLIN, 0}, {err_, POLLIN, 0}};
        if (poll(fds, 2, millisecondsTo(deadline)) <= 0)
            throw std::runtime_error(name_ + " takes too long; its errors so far: " + result_.err);
        if (fds[0].revents != 0) take(out_, result_.out);
        if (fds[1].revents != 0) take(err_, result_.err);
    }

    static void take(Vantrel::PlainFd& descriptor, std::string& text) {
        char piece[65536];
        const ssize_t got = read(descriptor, piece, sizeof piece);
        if (got <= 0) return descriptor.close();
        text.append(piece, static_cast<std::size_t>(got));
    }

    const std::string name_;
    pid_t pid_ = -1;
    Vantrel::PlainFd out_;
    Vantrel::PlainFd err_;
    bool reaped_ = false;
    Result result_;
};
