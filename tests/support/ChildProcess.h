#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

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
        Pipe out;
        Pipe err;
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
        out_ = std::exchange(out.read, -1);
        err_ = std::exchange(err.read, -1);
    }
    ~ChildProcess() {
        if (!reaped_) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        if (out_ >= 0) close(out_);
        if (err_ >= 0) close(err_);
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    void signal(int number) const { kill(pid_, number); }

    /// The first line of standard output, without its end. Throws when none comes within the limit.
    std::string firstLine(std::chrono::milliseconds limit) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (result_.out.find('\n') == std::string::npos) {
            if (out_ < 0) throw std::runtime_error(name_ + " ended without a line: " + result_.err);
            gather(deadline);
        }
        return result_.out.substr(0, result_.out.find('\n'));
    }

    /// Waits until `text` stands on standard error. Throws when it does not come within the limit.
    void waitForError(const std::string& text, std::chrono::milliseconds limit) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (result_.err.find(text) == std::string::npos) {
            if (err_ < 0) throw std::runtime_error(name_ + " ended without '" + text + "': " + result_.err);
            gather(deadline);
        }
    }

    /// Waits for its end and gives all its output. Throws when it does not end within the limit.
    Result wait(std::chrono::milliseconds limit) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (out_ >= 0 || err_ >= 0) gather(deadline);
        const int descriptor = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
        pollfd ended{descriptor, POLLIN, 0};
        const int ready = poll(&ended, 1, millisecondsTo(deadline));
        close(descriptor);
        if (ready != 1) throw std::runtime_error(name_ + " does not end");
        int status = 0;
        waitpid(pid_, &status, 0);
        reaped_ = true;
        result_.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return result_;
    }

  private:
    using Deadline = std::chrono::steady_clock::time_point;

    struct Pipe {
        Pipe() {
            int ends[2];
            if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error(std::strerror(errno));
            read = ends[0];
            write = ends[1];
        }
        ~Pipe() {
            if (read >= 0) close(read);
            close(write);
        }
        int read = -1;
        int write = -1;
    };

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

    void gather(Deadline deadline) {
        pollfd fds[] = {{out_, POLLIN, 0}, {err_, POLLIN, 0}};
        if (poll(fds, 2, millisecondsTo(deadline)) <= 0)
            throw std::runtime_error(name_ + " takes too long; its errors so far: " + result_.err);
        if (fds[0].revents != 0) take(out_, result_.out);
        if (fds[1].revents != 0) take(err_, result_.err);
    }

    static void take(int& descriptor, std::string& text) {
        char piece[65536];
        const ssize_t got = read(descriptor, piece, sizeof piece);
        if (got > 0) {
            text.append(piece, static_cast<std::size_t>(got));
            return;
        }
        close(descriptor);
        descriptor = -1;
    }

    const std::string name_;
    pid_t pid_ = -1;
    int out_ = -1;
    int err_ = -1;
    bool reaped_ = false;
    Result result_;
};
