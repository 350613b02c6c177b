// What one announcement of a server costs the client that hears it: the datagram read, its record built and
// taken into the list of known servers. At 100 and at 10,000 of these, beside sending and receiving the same
// bytes by a plain socket. Every benchmark checks what became of each announcement.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Support.h"
#include "VantrelKnownServers.h"
#include "VantrelMulticastProtocol.h"

namespace {

using VantrelBenchmark::Duel;
using VantrelBenchmark::require;
using VantrelBenchmark::Socket;
using Change = VantrelKnownServers::Change;
using Protocol = VantrelMulticastProtocol;

constexpr std::size_t BATCH = 1000;
constexpr std::size_t SPEAKING = 100;

/// A server of a facility of many, as it announces itself.
std::string announcement(std::size_t i, const std::string& productVersion) {
    const std::string host = std::to_string(i / 250) + '.' + std::to_string(i % 250 + 1);
    VantrelDaemonInfo info;
    info.setMetadataIP(0, ("10.20." + host).c_str());
    info.setMetadataIP(1, ("10.30." + host).c_str());
    info.setDataIP(0, ("10.40." + host).c_str());
    info.setHostName(("workstation" + std::to_string(i) + ".facility.example").c_str());
    info.setDisplayName(("suite " + std::to_string(i * 7919 % 10000)).c_str());
    info.setDatabase("SXAFS");
    info.setNodePort(7549);
    info.setFramePort(7550);
    info.setProduct("vantreld");
    info.setVendor("Vantrel");
    info.setProductVersionString(productVersion.c_str());
    info.setStorageId(("6a1e7c52-77f5-4b7e-8d4a-" + std::to_string(100000000000 + i)).c_str());
    info.setHostUUID(("0b9d3c1e-2c44-4f0e-9e0c-" + std::to_string(100000000000 + i)).c_str());
    return Protocol::create(Protocol::DISCOVER_SERVERS, info.toAttrStream());
}

/// What the discovery thread does with a datagram of this type.
bool hear(const std::string& datagram, VantrelKnownServers& servers, Change expected) {
    const auto request = Protocol::parse(datagram);
    return request && servers.add(VantrelDaemonInfo(request->payload)) == expected;
}

/// A datagram socket that is sent to by itself.
Socket selfConnected() {
    Socket made(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    require(made.fd() >= 0, "socket");
    sockaddr_in address = Socket::loopback(0);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof address;
    require(::bind(made.fd(), generic, size) == 0, "bind");
    require(::getsockname(made.fd(), generic, &size) == 0, "getsockname");
    require(::connect(made.fd(), generic, size) == 0, "connect");
    return made;
}

/// A hundred servers of a list announce themselves again and again: the very same as before, or of another
/// version each time. Always as many, so that the length of the list is what differs, not what the processor
/// finds in its caches.
void announced(benchmark::State& state, Change expected) {
    const auto known = static_cast<std::size_t>(state.range(0));
    VantrelKnownServers servers(known);
    bool right = true;
    std::vector<std::string> rounds[2];
    for (std::size_t i = 0; i < known; ++i) {
        const std::string first = announcement(i, "2024.0");
        right = right && hear(first, servers, Change::Added);
        if (i % (known / SPEAKING) != 0) continue;
        rounds[0].push_back(first);
        rounds[1].push_back(expected == Change::None ? first : announcement(i, "2024.1"));
    }

    const Socket plain = selfConnected();
    Duel duel(Duel::OWN_END);
    std::size_t heard = SPEAKING;  // the second round is next
    std::size_t sent = 0;
    const auto datagram = [&](std::size_t i) -> const std::string& {
        return rounds[i / SPEAKING % 2][i % SPEAKING];
    };
    for (auto _ : state) {
        const double seconds = duel.round(
            [&] {
                for (std::size_t i = 0; i < BATCH; ++i)
                    right = right && hear(datagram(heard++), servers, expected);
            },
            [&] {
                char buffer[Protocol::MAX_DATAGRAM_BYTES];
                for (std::size_t i = 0; i < BATCH; ++i) {
                    const std::string& text = datagram(sent++);
                    right = right && ::send(plain.fd(), text.data(), text.size(), 0) > 0 &&
                            ::recv(plain.fd(), buffer, sizeof buffer, 0) == static_cast<ssize_t>(text.size());
                }
            });
        state.SetIterationTime(seconds);
    }
    if (!right) state.SkipWithError("an announcement got lost");
    state.counters["times_plain_datagram"] = duel.cost();
    state.counters["ns_each"] = duel.librarySeconds() / BATCH * 1e9;
}

void announcedAgain(benchmark::State& state) {
    announced(state, Change::None);
}
BENCHMARK(announcedAgain)
    ->Name("Discovery/announcedAgain")
    ->ArgName("known")
    ->Arg(100)
    ->Arg(10000)
    ->UseManualTime();

void announcedChanged(benchmark::State& state) {
    announced(state, Change::Changed);
}
BENCHMARK(announcedChanged)
    ->Name("Discovery/announcedChanged")
    ->ArgName("known")
    ->Arg(100)
    ->Arg(10000)
    ->UseManualTime();

/// Servers that were unknown: the list fills up from nothing.
void announcedFirst(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    std::vector<std::string> all;
    for (std::size_t i = 0; i < count; ++i) all.push_back(announcement(i, "2024.0"));
    bool right = true;
    std::vector<double> each;
    for (auto _ : state) {
        VantrelKnownServers servers(count);
        const VantrelBenchmark::CpuWatch watch;
        for (const std::string& datagram : all) right = right && hear(datagram, servers, Change::Added);
        const double seconds = watch.seconds();
        state.SetIterationTime(seconds);
        each.push_back(seconds / static_cast<double>(count) * 1e9);
    }
    state.counters["ns_each"] = VantrelBenchmark::median(each);
    if (!right) state.SkipWithError("an announcement got lost");
}
BENCHMARK(announcedFirst)
    ->Name("Discovery/announcedFirst")
    ->ArgName("known")
    ->Arg(100)
    ->Arg(10000)
    ->UseManualTime();

}  // namespace
