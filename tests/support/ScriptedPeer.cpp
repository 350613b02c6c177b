#include "ScriptedPeer.h"

#include <netinet/tcp.h>
#include <poll.h>

#include <algorithm>
#include <chrono>

namespace Vantrel {

namespace {

const char* const LOGIN = "_login";

std::string escaped(const std::string& text) {
    const std::string special = "\n\t\\";
    std::string out;
    for (const char c : text) {
        const std::size_t at = special.find(c);
        if (at != std::string::npos) out += '\\';
        out += at == std::string::npos ? c : "nt\\"[at];
    }
    return out;
}

std::string unescaped(const std::string& text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            out += text[i];
        } else if (++i < text.size()) {
            out += text[i] == 'n' ? '\n' : text[i] == 't' ? '\t' : text[i];
        }
    }
    return out;
}

}  // namespace

struct ScriptedPeer::Connection {
    PlainFd descriptor;
    std::string in;
    std::string out;
    std::size_t sent = 0;
    bool held = false;  ///< `out` waits for releaseReplies
    bool closeWhenSent = false;
    bool ended = false;
};

ScriptedPeer::ScriptedPeer() {
    answers_[LOGIN] = ok("");
    applySettings();
    thread_ = std::thread(&ScriptedPeer::run, this);
}

ScriptedPeer::~ScriptedPeer() {
    change([this] { stopping_ = true; });
    thread_.join();
}

std::string ScriptedPeer::ok(const std::string& text) {
    return "ok " + escaped(text);
}
std::string ScriptedPeer::error(const std::string& text) {
    return "error " + escaped(text);
}

void ScriptedPeer::loginUnknown(bool quoted) {
    answer(LOGIN, quoted ? "error Unknown method: '_login'." : "error Unknown method: _login");
}

void ScriptedPeer::dropConnections() {
    change([this] { dropAll_ = true; });
    waitFor([this] { return !dropAll_; });
}

void ScriptedPeer::refuse() {
    change([this] {
        wantListening_ = false;
        dropAll_ = true;
    });
    waitFor([this] { return !dropAll_ && !isListening_; });
}

void ScriptedPeer::listenAgain() {
    change([this] { wantListening_ = true; });
    waitFor([this] { return isListening_; });
}

std::vector<std::string> ScriptedPeer::commands() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> lines;
    for (const Command& command : received_) {
        if (command.method != LOGIN) lines.push_back(command.line);
    }
    return lines;
}

std::vector<std::string> ScriptedPeer::arguments(const std::string& method) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> found;
    for (const Command& command : received_) {
        if (command.method == method) found.push_back(command.argument);
    }
    return found;
}

ScriptedPeer::Command ScriptedPeer::parse(const std::string& line) {
    // type, object, method, argument: the first three end at one blank each, the rest is the argument.
    std::size_t at = 0;
    std::string fields[3];
    for (std::string& field : fields) {
        const std::size_t blank = std::min(line.find(' ', at), line.size());
        field = line.substr(at, blank - at);
        at = std::min(blank + 1, line.size());
    }
    return {line, fields[2], unescaped(line.substr(at))};
}

void ScriptedPeer::run() {
    while (applySettings()) {
        std::vector<pollfd> polled;
        polled.push_back({wake_.read, POLLIN, 0});
        polled.push_back({listener_, POLLIN, 0});  // negative: ignored
        for (const Connection& client : clients_) {
            const bool sending = !client.held && (client.sent < client.out.size() || client.closeWhenSent);
            polled.push_back({client.descriptor, static_cast<short>(POLLIN | (sending ? POLLOUT : 0)), 0});
        }
        if (::poll(polled.data(), polled.size(), -1) < 0) continue;

        char drained[64];
        while (::read(wake_.read, drained, sizeof drained) > 0) {
        }
        std::size_t i = 2;
        for (Connection& client : clients_) {
            const short ready = polled[i++].revents;
            if (ready & POLLOUT) send(client);
            if (ready & (POLLIN | POLLHUP | POLLERR)) receive(client);
        }
        if (polled[1].revents & POLLIN) acceptClient();
    }
}

// False when the peer is to end.
bool ScriptedPeer::applySettings() {
    const std::lock_guard<std::mutex> lock(mutex_);
    clients_.remove_if([this](Connection& client) {
        client.held = client.held && holding_;
        return client.ended || dropAll_;
    });
    dropAll_ = false;
    if (!wantListening_) {
        listener_.close();
    } else if (!listener_.isOpen()) {
        listener_ = boundSocket(SOCK_STREAM | SOCK_NONBLOCK, port_, PortUse::Shared);
        checked(::listen(listener_, SOMAXCONN), "listen");
    }
    isListening_ = listener_.isOpen();
    open_ = clients_.size();
    changed_.notify_all();
    return !stopping_;
}

void ScriptedPeer::acceptClient() {
    Connection client;
    client.descriptor = PlainFd(::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!client.descriptor.isOpen()) return;
    const int on = 1;
    ::setsockopt(client.descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const std::lock_guard<std::mutex> lock(mutex_);
    client.ended = closeOnAccept_;
    clients_.push_back(std::move(client));
    ++accepted_;
    open_ = clients_.size();
    changed_.notify_all();
}

void ScriptedPeer::receive(Connection& connection) {
    char block[65536];
    const ssize_t count = ::recv(connection.descriptor, block, sizeof block, 0);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (count <= 0) {
        connection.ended = true;
        return;
    }
    connection.in.append(block, static_cast<std::size_t>(count));
    std::size_t start = 0;
    for (std::size_t end; (end = connection.in.find('\n', start)) != std::string::npos; start = end + 1) {
        handle(connection, parse(connection.in.substr(start, end - start)));
    }
    connection.in.erase(0, start);
}

std::optional<std::string> ScriptedPeer::resultLine(const Command& command) {
    Responder responder;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        responder = responder_;
    }
    if (responder) {
        if (std::optional<std::string> line = responder(command.method, command.argument)) return line;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = answers_.find(command.method);
    return found == answers_.end() ? error("Unknown method: '" + command.method + "'.") : found->second;
}

void ScriptedPeer::handle(Connection& connection, const Command& command) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        received_.push_back(command);
        if (command.method != LOGIN) ++commandCount_;
        changed_.notify_all();
    }
    std::optional<std::string> line = resultLine(command);
    const std::lock_guard<std::mutex> lock(mutex_);
    if (command.line.compare(0, 5, "sync ") != 0 || !line) return;
    *line += '\n';
    if (command.method != LOGIN) {
        connection.held = holding_;
        if (closeAfter_) {
            line->resize(std::min(line->size(), *closeAfter_));
            connection.closeWhenSent = true;
        }
    }
    connection.out += *line;
}

void ScriptedPeer::send(Connection& connection) {
    std::size_t count = connection.out.size() - connection.sent;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (pieceSize_ != 0) count = std::min(count, pieceSize_);
    }
    if (count > 0) {
        const ssize_t sent =
            ::send(connection.descriptor, connection.out.data() + connection.sent, count, MSG_NOSIGNAL);
        if (sent < 0) {
            connection.ended = errno != EAGAIN && errno != EINTR;
            return;
        }
        connection.sent += static_cast<std::size_t>(sent);
    }
    if (connection.sent < connection.out.size()) return;
    connection.out.clear();
    connection.sent = 0;
    connection.ended = connection.closeWhenSent;
}

}  // namespace Vantrel
