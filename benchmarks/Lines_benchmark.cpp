// Command and result lines: escaping and scanning beside copying the same bytes, and one call through an
// endpoint beside a plain send and recv of the same bytes. Every benchmark checks what it moved.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

#include "CoIoTcpServerDescriptor.h"
#include "rcAPI.h"
#include "rcCommand.h"

using namespace Vantrel;

namespace {

constexpr std::size_t TEXT_SIZE = 4 << 20;
constexpr std::size_t READ_SIZE = 32768;

double cpuSeconds(clockid_t clock) {
    timespec time{};
    ::clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// Children of a node as a server lists them; with `escapes`, metadata of short lines.
std::string messageText(bool escapes) {
    std::string text;
    for (unsigned i = 0; text.size() < TEXT_SIZE; ++i) {
        const std::string number = std::to_string(i);
        text += escapes ? "\t<frame index=\"" + number + "\">\n" : number + " 30 Id 8 H_100000Displ 6 shot a";
    }
    return text;
}

/// Measures `work` and, beside it, copying `bytes` in blocks of `READ_SIZE`.
template <typename Work>
void besideCopying(benchmark::State& state, const std::string& bytes, Work work) {
    double measured = 0;
    double yardstick = 0;
    for (auto _ : state) {
        const double start = cpuSeconds(CLOCK_THREAD_CPUTIME_ID);
        if (!work()) return state.SkipWithError("wrong text");
        const double middle = cpuSeconds(CLOCK_THREAD_CPUTIME_ID);
        std::string copy;
        for (std::size_t at = 0; at < bytes.size(); at += READ_SIZE) copy.append(bytes, at, READ_SIZE);
        benchmark::DoNotOptimize(copy.data());
        measured += middle - start;
        yardstick += cpuSeconds(CLOCK_THREAD_CPUTIME_ID) - middle;
        state.SetIterationTime(middle - start);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
    state.counters["times_copying"] = measured / yardstick;
}

void escaping(benchmark::State& state) {
    const std::string text = messageText(state.range(0) != 0);
    std::string expected = "ok ";
    rcValue::appendEscaped(text, expected);
    expected += '\n';
    besideCopying(state, text, [&] {
        std::string line;
        rcResult::appendLine(rcResult::Code::Ok, text, line);
        return line == expected;
    });
}
BENCHMARK(escaping)->Name("Lines/escaping")->ArgName("short_lines")->Arg(0)->Arg(1)->UseManualTime();

void scanning(benchmark::State& state) {
    const std::string text = messageText(state.range(0) != 0);
    std::string line;
    rcResult::appendLine(rcResult::Code::Ok, text, line);
    besideCopying(state, line, [&] {
        rcResult result;
        std::size_t used = 0;
        bool complete = false;
        for (std::size_t at = 0; !complete && at < line.size(); at += used) {
            complete = result.append(line.data() + at, std::min(READ_SIZE, line.size() - at), used);
        }
        return complete && result.value().text() == text;
    });
}
BENCHMARK(scanning)->Name("Lines/scanning")->ArgName("short_lines")->Arg(0)->Arg(1)->UseManualTime();

constexpr std::string_view METHOD = "GetDisplayName";
constexpr std::string_view ARGUMENT = "NodeId 30 H_100001_S_1668000000_U_123456";
constexpr std::string_view REPLY = "ok Id 30 H_100001_S_1668000000_U_123456Displ 9 shot v001\n";

/// Answers every line with REPLY, on a thread of its own.
class Peer {
  public:
    Peer() {
        if (!server_.listen(0, "127.0.0.1")) throw std::runtime_error("no port to listen on");
        ::fcntl(server_.getId(), F_SETFL, 0);  // accept waits
    }
    int port() const { return server_.getPort(); }
    /// Serves the next connection until it ends.
    std::thread serveNext() {
        return std::thread([this] {
            const CoFd connection = server_.accept();
            const int socket = connection.get();
            ::fcntl(socket, F_SETFL, 0);  // recv waits
            char buffer[4096];
            ssize_t count;
            while ((count = ::recv(socket, buffer, sizeof buffer, 0)) > 0) {
                if (buffer[count - 1] == '\n') ::send(socket, REPLY.data(), REPLY.size(), MSG_NOSIGNAL);
            }
        });
    }

  private:
    CoIoTcpServerDescriptor server_;
};

int connectPlainly(int port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error("cannot connect");
    }
    return socket;
}

/// One call by hand: the line out, then reads until the newline.
bool callPlainly(int socket, const std::string& line) {
    char buffer[READ_SIZE];
    std::size_t size = 0;
    if (::send(socket, line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size()))
        return false;
    do {
        const ssize_t count = ::recv(socket, buffer + size, sizeof buffer - size, 0);
        if (count <= 0) return false;
        size += static_cast<std::size_t>(count);
    } while (buffer[size - 1] != '\n');
    return std::string_view(buffer, size) == REPLY;
}

/// Both ends on one processor for its lifetime: a call then costs its work, not the wake-up of another one.
class OneProcessor {
  public:
    OneProcessor() {
        ::sched_getaffinity(0, sizeof earlier_, &earlier_);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<std::size_t>(::sched_getcpu()), &one);
        ::sched_setaffinity(0, sizeof one, &one);
    }
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;
    ~OneProcessor() { ::sched_setaffinity(0, sizeof earlier_, &earlier_); }

  private:
    cpu_set_t earlier_{};
};

// "ratio" is the plain sockets' time by the endpoint's; time is processor time of both ends.
void oneCall(benchmark::State& state) {
    constexpr int BATCH = 500;
    const OneProcessor pinned;
    Peer peer;
    std::thread plainServer = peer.serveNext();
    const int plain = connectPlainly(peer.port());
    std::thread server = peer.serveNext();
    rcAPI api;
    std::string result;
    const bool connected = api.connect("127.0.0.1", peer.port(), 5000, result) == rcOutcome::Answered;
    std::string line;
    rcCommand::format(rcCommand::Type::Sync, 0, METHOD, ARGUMENT, line);
    const std::string_view value = REPLY.substr(3, REPLY.size() - 4);

    double measured = 0;
    double yardstick = 0;
    bool right = connected;
    for (auto _ : state) {
        const double start = cpuSeconds(CLOCK_PROCESS_CPUTIME_ID);
        for (int i = 0; i < BATCH; ++i) {
            right = right &&
                    api.call(0, METHOD.data(), ARGUMENT.data(), true, result, 5000) == rcOutcome::Answered &&
                    result == value;
        }
        const double middle = cpuSeconds(CLOCK_PROCESS_CPUTIME_ID);
        for (int i = 0; i < BATCH; ++i) right = right && callPlainly(plain, line);
        measured += middle - start;
        yardstick += cpuSeconds(CLOCK_PROCESS_CPUTIME_ID) - middle;
        state.SetIterationTime((middle - start) / BATCH);
        if (!right) state.SkipWithError("wrong reply");
    }
    api.disconnect();
    ::close(plain);
    server.join();
    plainServer.join();
    state.counters["ratio"] = yardstick / measured;
}
BENCHMARK(oneCall)->Name("Lines/oneCall")->UseManualTime()->Unit(benchmark::kMicrosecond)->MinTime(1.0 / 500);

}  // namespace
