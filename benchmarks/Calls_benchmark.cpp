// One call, and one connection, through handles, beside plain sockets that move the same bytes to and from
// the same kind of peer in the same run. Every benchmark checks what it got.

#include <benchmark/benchmark.h>
#include <vantrel/VantrelClientAPI.h>

#include <stdexcept>
#include <string>

#include "MetadataPeer.h"
#include "Support.h"

using namespace VantrelBenchmark;

namespace {

constexpr int CALLS = 500;  // in one repetition
constexpr int CONNECTIONS = 50;

const std::string NODE_ID = "00c0ffee-10000001-clip-shot-0001";
const std::string PARENT_ID = "00c0ffee-10000002-reel-of-the-second-day-of-production-1";

void require(bool good, const char* reason) {
    if (!good) throw std::runtime_error(reason);
}

/// Sends lines and takes the answers, as little as a client can do.
class PlainClient {
  public:
    explicit PlainClient(int port) : socket_(Socket::connected(port)) {}

    void call(const std::string& line, const std::string& answer) {
        require(socket_.sendAll(line.data(), line.size()), "The plain road failed");
        const std::size_t size = socket_.receiveUpTo('\n', received_, sizeof received_);
        require(std::string_view(received_, size) == answer, "The plain road got a wrong answer");
    }

  private:
    Socket socket_;
    char received_[4096];
};

// At least 0.88 of the plain loop's speed.
void calling(benchmark::State& state) {
    const std::string line = "sync 0 GetParentNode " + entry("Node", NODE_ID) + "\n";
    const OneCpu oneCpu;
    const MetadataPeer peer("ok " + PARENT_ID + "\n");
    const MetadataPeer plainPeer("ok " + PARENT_ID + "\n");

    const VantrelClient client;
    const VantrelServerHandle server(VantrelServerId(peer.address().c_str()));
    VantrelNodeHandle node(server, NODE_ID.c_str());
    VantrelNodeHandle parent;
    PlainClient plain(plainPeer.port());
    const auto callByHandle = [&] {
        require(node.getParentNode(parent) && parent.getNodeId().id() == PARENT_ID, server.lastError());
    };
    callByHandle();  // connects
    require(peer.firstLines().back() == line, "The two roads differ");

    Duel duel(Duel::BOTH_ENDS);
    for (auto _ : state) {
        state.SetIterationTime(duel.round(
            [&] {
                for (int i = 0; i < CALLS; ++i) callByHandle();
            },
            [&] {
                for (int i = 0; i < CALLS; ++i) plain.call(line, plainPeer.answer());
            }));
    }
    state.counters["speed"] = duel.speed();
    state.counters["wall_speed"] = duel.wallSpeed();
    state.counters["us_per_call"] = duel.librarySeconds() / CALLS * 1e6;
    state.counters["us_plain"] = duel.plainSeconds() / CALLS * 1e6;
}
BENCHMARK(calling)->Name("Calls/one call")->MinTime(3)->UseManualTime()->Unit(benchmark::kMillisecond);

// At most 1.4 times the plain client's CPU time.
void connecting(benchmark::State& state) {
    const OneCpu oneCpu;
    const MetadataPeer peer("ok \n");
    const MetadataPeer plainPeer("ok \n");

    const VantrelClient client;
    const VantrelServerId id(peer.address().c_str());
    const auto connectByHandle = [&] {
        {
            const VantrelServerHandle server(id);
            const char* host = server.getHostName();
            require(host && host == std::string_view("render01"), server.lastError());
        }
        VantrelClientReleaseUnusedConnections(true);
    };
    connectByHandle();
    const auto lines = peer.firstLines();
    require(lines.size() == 2, "Connecting costs other than two calls");
    const auto connectPlainly = [&] {
        PlainClient plain(plainPeer.port());
        plain.call(lines[0], MetadataPeer::loginAnswer());
        plain.call(lines[1], plainPeer.daemonInfoAnswer());
    };

    Duel duel(Duel::OWN_END);
    for (auto _ : state) {
        state.SetIterationTime(duel.round(
            [&] {
                for (int i = 0; i < CONNECTIONS; ++i) connectByHandle();
            },
            [&] {
                for (int i = 0; i < CONNECTIONS; ++i) connectPlainly();
            }));
    }
    state.counters["times_plain"] = duel.cost();
    state.counters["us_per_connection"] = duel.librarySeconds() / CONNECTIONS * 1e6;
    state.counters["us_plain"] = duel.plainSeconds() / CONNECTIONS * 1e6;
}
BENCHMARK(connecting)
    ->Name("Calls/connect, log in, daemon info, close")
    ->MinTime(2)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
