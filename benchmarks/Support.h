#pragma once

// What the benchmarks share: watches, one CPU for both ends, plain sockets and peers, and the comparison of
// two roads. Header only, used by one thread unless said otherwise. Failures of the system throw
// std::system_error.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace VantrelBenchmark {

inline void require(bool good, const char* what) {
    if (!good) throw std::system_error(errno, std::generic_category(), what);
}

/// Seconds on a clock of the system since its construction.
class Watch {
  public:
    explicit Watch(clockid_t clock) : clock_(clock), start_(now()) {}
    double seconds() const { return now() - start_; }

  private:
    double now() const {
        timespec time{};
        ::clock_gettime(clock_, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    }

    clockid_t clock_;
    double start_;
};

/// CPU time of this thread: what other threads and processes do at the same time is not measured.
struct CpuWatch : Watch {
    CpuWatch() : Watch(CLOCK_THREAD_CPUTIME_ID) {}
};

/// While it lives, this thread, and the threads that it starts, run on one CPU.
class OneCpu {
  public:
    OneCpu() {
        require(::sched_getaffinity(0, sizeof before_, &before_) == 0, "sched_getaffinity");
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<std::size_t>(::sched_getcpu()), &one);
        require(::sched_setaffinity(0, sizeof one, &one) == 0, "sched_setaffinity");
    }
    OneCpu(const OneCpu&) = delete;
    OneCpu& operator=(const OneCpu&) = delete;
    ~OneCpu() { ::sched_setaffinity(0, sizeof before_, &before_); }

  private:
    cpu_set_t before_{};
};

inline double median(std::vector<double> values) {
    if (values.empty()) return 0;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// Runs the library's road and the plain road in turn, each pair in the other order than the one before, and
/// compares pair by pair. So what happens to the whole machine happens to both, and the median leaves out the
/// pairs in which it happened to one.
class Duel {
  public:
    /// CPU time of the process is that of both ends, where the peer is a thread of ours. On one CPU one of
    /// the two always runs: it is then the elapsed time, less what other programs of the machine took of it.
    static constexpr clockid_t BOTH_ENDS = CLOCK_PROCESS_CPUTIME_ID;
    static constexpr clockid_t OWN_END = CLOCK_THREAD_CPUTIME_ID;

    explicit Duel(clockid_t cpuClock) : cpuClock_(cpuClock) {}

    /// Returns the CPU seconds of the library's road.
    template <typename Library, typename Plain>
    double round(Library library, Plain plain) {
        Pair pair{};
        if (pairs_.size() % 2 == 0) {
            pair.library = timed(library);
            pair.plain = timed(plain);
        } else {
            pair.plain = timed(plain);
            pair.library = timed(library);
        }
        pairs_.push_back(pair);
        return pair.library.cpu;
    }

    double librarySeconds() const {
        return medianOf([](const Pair& pair) { return pair.library.cpu; });
    }
    double plainSeconds() const {
        return medianOf([](const Pair& pair) { return pair.plain.cpu; });
    }
    /// How fast the library's road is, in parts of the plain one's speed: by CPU time and by the wall clock.
    double speed() const {
        return medianOf([](const Pair& pair) { return pair.plain.cpu / pair.library.cpu; });
    }
    double wallSpeed() const {
        return medianOf([](const Pair& pair) { return pair.plain.wall / pair.library.wall; });
    }
    /// How many times as much CPU as the plain road the library's takes.
    double cost() const {
        return medianOf([](const Pair& pair) { return pair.library.cpu / pair.plain.cpu; });
    }

  private:
    struct Times {
        double cpu;
        double wall;
    };
    struct Pair {
        Times library;
        Times plain;
    };

    template <typename Road>
    Times timed(Road& road) const {
        const Watch wall(CLOCK_MONOTONIC);
        const Watch cpu(cpuClock_);
        road();
        return {cpu.seconds(), wall.seconds()};
    }
    template <typename Value>
    double medianOf(Value value) const {
        std::vector<double> values;
        for (const Pair& pair : pairs_) values.push_back(value(pair));
        return median(std::move(values));
    }

    clockid_t cpuClock_;
    std::vector<Pair> pairs_;
};

/// A socket of one's own.
class Socket {
  public:
    Socket() = default;
    explicit Socket(int fd) : fd_(fd) {}
    Socket(Socket&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Socket& operator=(Socket&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Socket() {
        if (fd_ >= 0) ::close(fd_);
    }
    int fd() const { return fd_; }

    /// A TCP socket set up as both ends of every road have it.
    static Socket tcp() {
        Socket made(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        require(made.fd_ >= 0, "socket");
        made.setUp();
        return made;
    }
    void setUp() const {
        const int on = 1;
        ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        // A congestion control that paces would measure its pacing; one that is missing costs only that.
        ::setsockopt(fd_, IPPROTO_TCP, TCP_CONGESTION, "reno", 4);
    }

    static sockaddr_in loopback(int port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<in_port_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return address;
    }
    static Socket connected(int port) {
        Socket made = tcp();
        const sockaddr_in address = loopback(port);
        require(::connect(made.fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
                "connect");
        return made;
    }

    /// False when the other end has gone.
    bool sendAll(const char* data, std::size_t size) const {
        while (size > 0) {
            const ssize_t count = ::send(fd_, data, size, MSG_NOSIGNAL);
            if (count <= 0) return false;
            data += count;
            size -= static_cast<std::size_t>(count);
        }
        return true;
    }
    bool receiveAll(char* data, std::size_t size) const {
        while (size > 0) {
            const ssize_t count = ::recv(fd_, data, size, 0);
            if (count <= 0) return false;
            data += count;
            size -= static_cast<std::size_t>(count);
        }
        return true;
    }
    /// Receives up to and including `end`, which nothing follows; the number of bytes, 0 when it did not
    /// come.
    std::size_t receiveUpTo(char end, char* data, std::size_t room) const {
        std::size_t taken = 0;
        while (taken < room) {
            const ssize_t count = ::recv(fd_, data + taken, room - taken, 0);
            if (count <= 0) return 0;
            taken += static_cast<std::size_t>(count);
            if (data[taken - 1] == end) return taken;
        }
        return 0;
    }

  private:
    int fd_ = -1;
};

/// A server that serves one connection at a time on a thread of its own, on a port that the system chose.
class Peer {
  public:
    /// Serves one connection until its end.
    using Serve = std::function<void(const Socket&)>;

    explicit Peer(Serve serve) : serve_(std::move(serve)), listener_(Socket::tcp()) {
        sockaddr_in address = Socket::loopback(0);
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        socklen_t size = sizeof address;
        require(::bind(listener_.fd(), generic, size) == 0, "bind");
        require(::listen(listener_.fd(), SOMAXCONN) == 0, "listen");
        require(::getsockname(listener_.fd(), generic, &size) == 0, "getsockname");
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { run(); });
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    /// Its client must have closed by then.
    ~Peer() {
        ::shutdown(listener_.fd(), SHUT_RDWR);
        thread_.join();
    }

    int port() const { return port_; }

  private:
    void run() {
        for (;;) {
            const Socket client(::accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC));
            if (client.fd() < 0) return;
            client.setUp();
            serve_(client);
        }
    }

    Serve serve_;
    Socket listener_;
    int port_ = 0;
    std::thread thread_;
};

/// Bytes without a period that a misplaced copy could hide in.
inline std::string patternOf(std::size_t size) {
    std::string bytes(size, '\0');
    unsigned state = 12345;
    for (char& byte : bytes) {
        state = state * 1103515245u + 12345u;
        byte = static_cast<char>(state >> 16);
    }
    return bytes;
}

/// One entry of an attribute stream.
inline std::string entry(const std::string& key, const std::string& value) {
    return key + ' ' + std::to_string(value.size()) + ' ' + value;
}

}  // namespace VantrelBenchmark
