// From a change on the server to the handler of a client, with both ends in this process: how many events go
// through, and how long one takes on its own.

#include <benchmark/benchmark.h>
#include <vantrel/VantrelClientAPI.h>

#include <algorithm>
#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "CoThread.h"
#include "NodeIds.h"
#include "NodeServer.h"
#include "Support.h"

using namespace VantrelBenchmark;

namespace {

constexpr std::size_t BATCH = 50000;

class Counter : public VantrelNodeEvent::Handler {
  public:
    void notify(const VantrelNodeEvent& event) override {
        VantrelStr stream;
        const bool inOrder =
            event.getDetails().getString("Stream", stream) && std::to_string(count_) == stream.c_str();
        const std::lock_guard<std::mutex> lock(mutex_);
        ++count_;
        good_ = good_ && inOrder;
        if (count_ == wanted_) changed_.notify_one();
    }
    void waitFor(std::size_t count) {
        std::unique_lock<std::mutex> lock(mutex_);
        wanted_ = count;
        changed_.wait(lock, [this] { return count_ >= wanted_; });
        if (!good_) throw std::runtime_error("Events were lost or out of order");
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::size_t count_ = 0;
    std::size_t wanted_ = 0;
    bool good_ = true;
};

/// A server of a root of its own, with a client that listens to the root node.
class Facility {
  public:
    Facility() : directory_(temporaryDirectory()), store_(directory_), server_(store_, options()) {
        node_ = vantreld::parseNodeId(store_.rootId());
        loop_ = std::make_unique<Vantrel::CoThread>(
            "node port",
            [this] {
                while (!stopped_) server_.loop().callIOHandlers(nullptr);
            },
            [this] {
                stopped_ = true;
                server_.loop().cancel();
            });
        handle_ = std::make_unique<VantrelServerHandle>(VantrelServerId(server_.getPort(), "127.0.0.1"));
        if (!handle_->registerEventHandler(store_.rootId().c_str(), &counter_))
            throw std::runtime_error(handle_->lastError());
    }
    ~Facility() {
        handle_.reset();
        loop_.reset();
        std::filesystem::remove_all(directory_);
    }
    Facility(const Facility&) = delete;
    Facility& operator=(const Facility&) = delete;

    void change() {
        server_.events().nodeChanged(vantreld::NodeChange::metaDataSet(node_, std::to_string(changes_++)));
    }
    void waitForAll() { counter_.waitFor(changes_); }

  private:
    static std::string temporaryDirectory() {
        std::string pattern = std::filesystem::temp_directory_path() / "vantrel-benchmark.XXXXXX";
        if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp " + pattern);
        return pattern;
    }
    static vantreld::ServerOptions options() {
        vantreld::ServerOptions options;
        options.nodePort = 0;
        options.bindAddress = "127.0.0.1";
        return options;
    }

    const std::string directory_;
    const VantrelClient client_;
    Counter counter_;
    vantreld::NodeStore store_;
    vantreld::NodeServer server_;
    std::int64_t node_ = 0;
    std::size_t changes_ = 0;
    std::atomic<bool> stopped_{false};
    std::unique_ptr<Vantrel::CoThread> loop_;
    std::unique_ptr<VantrelServerHandle> handle_;
};

void inBatches(benchmark::State& state) {
    Facility facility;
    facility.change();
    facility.waitForAll();
    double cpu = 0;
    for (auto _ : state) {
        const Watch watch(CLOCK_PROCESS_CPUTIME_ID);
        for (std::size_t i = 0; i < BATCH; ++i) facility.change();
        facility.waitForAll();
        cpu += watch.seconds();
    }
    const auto events = static_cast<std::int64_t>(BATCH) * state.iterations();
    state.SetItemsProcessed(events);
    state.counters["us_cpu_per_event"] = cpu / static_cast<double>(events) * 1e6;
}
BENCHMARK(inBatches)
    ->Name("Events/change to handler, batches")
    ->MinTime(3)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

void alone(benchmark::State& state) {
    Facility facility;
    std::vector<double> latencies;
    for (auto _ : state) {
        const Watch watch(CLOCK_MONOTONIC);
        facility.change();
        facility.waitForAll();
        latencies.push_back(watch.seconds() * 1e6);
    }
    std::sort(latencies.begin(), latencies.end());
    state.counters["us_median"] = latencies[latencies.size() / 2];
    state.counters["us_99th"] = latencies[latencies.size() * 99 / 100];
}
BENCHMARK(alone)
    ->Name("Events/change to handler, one")
    ->MinTime(2)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
