// A frame into the caller's buffer: through a server handle, and by a plain loop that asks the same of the
// same kind of peer in the same run. Every benchmark checks what it read.

#include <benchmark/benchmark.h>
#include <vantrel/VantrelClientAPI.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "MetadataPeer.h"
#include "Support.h"

using namespace VantrelBenchmark;

namespace {

constexpr std::int64_t FRAME_BYTES = 50 * 1000 * 1000;
constexpr const char* FRAME_ID = "frame1";

const std::string& frame() {
    static const std::string bytes = patternOf(FRAME_BYTES);
    return bytes;
}

// Method, id and size, each with its NUL.
std::string requestFor(std::size_t size) {
    const std::string number = std::to_string(size);
    return std::string("ReadFrameNoAck") + '\0' + FRAME_ID + '\0' + number + '\0';
}

// Answers every request with as many bytes as the benchmark's requests ask for.
Peer::Serve sendingFrames(std::size_t size) {
    return [request = requestFor(size), size](const Socket& client) {
        std::string received(request.size(), '\0');
        while (client.receiveAll(received.data(), received.size()) && received == request) {
            if (!client.sendAll(frame().data(), size)) return;
        }
    };
}

// At least 0.97 of the plain loop's speed for the large frame.
void readingAFrame(benchmark::State& state) {
    const auto size = static_cast<std::size_t>(state.range(0));
    const auto frames = static_cast<int>(state.range(1));  // in one repetition
    const std::string request = requestFor(size);
    const OneCpu oneCpu;
    const Peer framePeer(sendingFrames(size));
    const Peer plainPeer(sendingFrames(size));
    const MetadataPeer metadataPeer("ok \n", framePeer.port());

    const VantrelClient client;
    const VantrelServerHandle server(VantrelServerId(metadataPeer.address().c_str()));
    const Socket plain = Socket::connected(plainPeer.port());
    std::vector<char> buffer(size);
    const auto readByLibrary = [&] {
        if (!server.readFrame(FRAME_ID, buffer.data(), size)) throw std::runtime_error(server.lastError());
    };
    const auto readPlainly = [&] {
        if (!plain.sendAll(request.data(), request.size()) || !plain.receiveAll(buffer.data(), size)) {
            throw std::runtime_error("The plain road failed");
        }
    };
    const auto several = [&](const auto& read) {
        return [&] {
            for (int i = 0; i < frames; ++i) read();
        };
    };
    readByLibrary();  // connects

    Duel duel(Duel::BOTH_ENDS);
    for (auto _ : state) {
        std::memset(buffer.data(), 0, size);
        state.SetIterationTime(duel.round(several(readByLibrary), several(readPlainly)));
        if (std::memcmp(buffer.data(), frame().data(), size) != 0) return state.SkipWithError("wrong bytes");
    }
    state.counters["speed"] = duel.speed();
    state.counters["wall_speed"] = duel.wallSpeed();
    state.SetBytesProcessed(state.iterations() * state.range(0) * state.range(1));
}
BENCHMARK(readingAFrame)
    ->Name("Frames/read")
    ->ArgNames({"bytes", "frames"})
    ->Args({FRAME_BYTES, 1})
    ->Args({FRAME_BYTES / 100, 50})
    ->MinTime(3)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
