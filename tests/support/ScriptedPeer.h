#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "PlainSocket.h"

namespace Vantrel {

/// A metadata server that replies exactly what a test scripted, broken or slow as needed. It listens on a
/// port of 127.0.0.1 that the system chose and serves every connection from one thread of its own. It speaks
/// plain sockets and line rules written here a second time, so that a test proves the wire and not that two
/// ends share a mistake. Thread-safe; settings hold from the next connection or reply on.
class ScriptedPeer {
  public:
    /// Gives the result line of a command (see `answer`); nothing: the table decides. Runs on the peer's
    /// thread without its lock, so it may call any function of the peer but `refuse`, `listenAgain` and
    /// `dropConnections`.
    using Responder =
        std::function<std::optional<std::string>(const std::string& method, const std::string& argument)>;

    /// Listens when it returns; throws std::system_error when the system has no port to give.
    ScriptedPeer();
    ScriptedPeer(const ScriptedPeer&) = delete;
    ScriptedPeer& operator=(const ScriptedPeer&) = delete;
    /// Closes everything, also in the middle of a reply.
    ~ScriptedPeer();

    int port() const { return port_; }
    /// "127.0.0.1:" and the port.
    std::string address() const { return "127.0.0.1:" + std::to_string(port_); }

    // Result lines, escaped as they travel and without the newline.
    static std::string ok(const std::string& text);
    static std::string error(const std::string& text);

    /// From now on `method` is answered with `line`, as it is (see `ok` and `error`; anything else is the
    /// rubbish that a test wants). A method without an answer gets the unknown-method error; "_login" has one
    /// from the start: success with an empty text.
    void answer(const std::string& method, const std::string& line) {
        change([&] { answers_[method] = line; });
    }
    void answerWith(Responder responder) {
        change([&] { responder_ = std::move(responder); });
    }
    /// Answers no command of this name any more and keeps the connection open.
    void neverAnswer(const std::string& method) {
        change([&] { answers_[method] = std::nullopt; });
    }
    /// "_login" too is unknown, as with servers that have no login; `quoted` selects the newer of the two
    /// wordings of that answer.
    void loginUnknown(bool quoted);

    /// Sends later replies `bytes` at a time; 0: whole.
    void replyInPieces(std::size_t bytes) {
        change([&] { pieceSize_ = bytes; });
    }
    /// Ends the connection after the first `bytes` bytes of a reply to anything but "_login" (0: instead of a
    /// reply); nothing: no longer.
    void closeAfter(std::optional<std::size_t> bytes) {
        change([&] { closeAfter_ = bytes; });
    }
    /// Keeps replies to anything but "_login" back until `releaseReplies`.
    void holdReplies() {
        change([this] { holding_ = true; });
    }
    void releaseReplies() {
        change([this] { holding_ = false; });
    }
    /// Ends every new connection at once.
    void closeOnAccept(bool on) {
        change([&] { closeOnAccept_ = on; });
    }

    /// Ends every connection; new ones are still accepted.
    void dropConnections();
    /// Stops listening and ends every connection: connecting is refused until `listenAgain` opens the same
    /// port.
    void refuse();
    void listenAgain();

    /// Command lines received, logins apart, as they came and without the newline, in order.
    std::vector<std::string> commands() const;
    /// Unescaped arguments of the commands of one method ("_login" included), in order.
    std::vector<std::string> arguments(const std::string& method) const;
    /// Number of connections accepted so far.
    std::size_t connections() const { return accepted_; }
    /// Whether at least so many commands, or connections, came within the limit.
    bool waitForCommands(std::size_t count, unsigned timeoutMs = DEFAULT_WAIT_MS) const {
        return waitFor([&] { return commandCount_ >= count; }, timeoutMs);
    }
    bool waitForConnections(std::size_t count, unsigned timeoutMs = DEFAULT_WAIT_MS) const {
        return waitFor([&] { return accepted_ >= count; }, timeoutMs);
    }
    /// Whether every client has gone within the limit.
    bool waitForNoClients(unsigned timeoutMs = DEFAULT_WAIT_MS) const {
        return waitFor([this] { return open_ == 0; }, timeoutMs);
    }

    static constexpr unsigned DEFAULT_WAIT_MS = 30000;

  private:
    struct Connection;
    struct Command {
        std::string line;
        std::string method;
        std::string argument;
    };

    static Command parse(const std::string& line);

    template <typename Change>
    void change(Change change) {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            change();
        }
        const ssize_t ignored = ::write(wake_.write, "w", 1);  // a full pipe wakes as well
        static_cast<void>(ignored);
    }
    template <typename Condition>
    bool waitFor(Condition condition, unsigned timeoutMs = DEFAULT_WAIT_MS) const {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::milliseconds(timeoutMs), condition);
    }

    void run();
    bool applySettings();
    void acceptClient();
    void receive(Connection& connection);
    void handle(Connection& connection, const Command& command);
    void send(Connection& connection);
    std::optional<std::string> resultLine(const Command& command);

    /// Bound but never listening: keeps the port ours while we refuse.
    const PlainFd reservation_ = boundSocket(SOCK_STREAM, 0, PortUse::Shared);
    const int port_ = portOf(reservation_);
    PlainPipe wake_{O_NONBLOCK};
    std::thread thread_;
    std::atomic<std::size_t> accepted_{0};

    // The peer's thread's own.
    PlainFd listener_;
    std::list<Connection> clients_;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    // Guarded by mutex_.
    bool stopping_ = false;
    bool wantListening_ = true;
    bool isListening_ = false;
    bool dropAll_ = false;
    bool closeOnAccept_ = false;
    bool holding_ = false;
    std::size_t pieceSize_ = 0;
    std::optional<std::size_t> closeAfter_;
    std::map<std::string, std::optional<std::string>> answers_;
    Responder responder_;
    std::vector<Command> received_;
    std::size_t commandCount_ = 0;  ///< of these, logins apart
    std::size_t open_ = 0;
};

}  // namespace Vantrel
