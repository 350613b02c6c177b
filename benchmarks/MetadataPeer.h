#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "Support.h"

namespace VantrelBenchmark {

/// A metadata server that accepts every login, reports its frame port, and gives one and the same
/// answer to everything else.
class MetadataPeer {
  public:
    /// `answer` is the whole result line.
    explicit MetadataPeer(std::string answer, int framePort = 1)
        : answer_(std::move(answer)),
          daemonInfo_("ok " + daemonInfo(framePort) + "\n"),
          peer_([this](const Socket& client) { serve(client); }) {}

    int port() const { return peer_.port(); }
    std::string address() const { return "127.0.0.1:" + std::to_string(port()); }
    const std::string& answer() const { return answer_; }
    /// The answers to a login and to the question for the daemon info.
    static std::string loginAnswer() { return "ok \n"; }
    const std::string& daemonInfoAnswer() const { return daemonInfo_; }

    /// The first command lines of the first client. Thread-safe.
    std::vector<std::string> firstLines() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return firstLines_;
    }

  private:
    static constexpr std::size_t LINES_KEPT = 8;
    static constexpr std::size_t ROOM = 4096;

    // What a server of a facility says of itself.
    static std::string daemonInfo(int framePort) {
        return entry("IP0", "127.0.0.1") + entry("FrameIP0", "127.0.0.1") + entry("Hostname", "127.0.0.1") +
               entry("HostName", "render01") + entry("DisplayName", "render 01") + entry("OSType", "Linux") +
               entry("Database", "main") + entry("NodePort", "7549") +
               entry("FramePort", std::to_string(framePort)) + entry("VersionMajor", "2024") +
               entry("VersionMinor", "0") + entry("VersionMaint", "0") + entry("VersionBuild", "0") +
               entry("Product", "server") + entry("Vendor", "vendor") + entry("ProductVersionMajor", "2024") +
               entry("ProductVersionMinor", "0") + entry("ProductVersionMaint", "0") +
               entry("ProductVersionStr", "2024.0.0") + entry("ProductBuild", "0") +
               entry("StorageId", "stor1") + entry("HostUUID", "12345678-1234-1234-1234-123456789abc") +
               entry("Flags", "0");
    }

    void serve(const Socket& client) {
        char line[ROOM];
        while (const std::size_t size = client.receiveUpTo('\n', line, sizeof line)) {
            const std::string& reply = replyTo(std::string_view(line, size));
            if (!client.sendAll(reply.data(), reply.size())) return;
        }
    }

    const std::string& replyTo(std::string_view line) {
        static const std::string login = loginAnswer();
        constexpr std::size_t BEFORE_METHOD = 7;  // "sync 0 "
        if (keeping_) keep(line);
        const std::string_view method = line.substr(std::min(line.size(), BEFORE_METHOD));
        if (method.substr(0, 7) == "_login ") return login;
        return method.substr(0, 14) == "GetDaemonInfo " ? daemonInfo_ : answer_;
    }

    void keep(std::string_view line) {
        const std::lock_guard<std::mutex> lock(mutex_);
        firstLines_.emplace_back(line);
        keeping_ = firstLines_.size() < LINES_KEPT;
    }

    const std::string answer_;
    const std::string daemonInfo_;
    bool keeping_ = true;  // the peer's thread's

    mutable std::mutex mutex_;
    std::vector<std::string> firstLines_;  // guarded by mutex_

    Peer peer_;  // last: its thread uses all the rest
};

}  // namespace VantrelBenchmark
