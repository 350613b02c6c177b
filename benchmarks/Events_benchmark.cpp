// An event on its way to a handler: through the delivery alone, and as a command over a loopback connection
// to the event port.

#include <benchmark/benchmark.h>
#include <vantrel/VantrelClientAPI.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "MetadataPeer.h"
#include "Support.h"
#include "VantrelEventDispatcher.h"
#include "VantrelEventMonitor.h"

using namespace VantrelBenchmark;

namespace {

constexpr std::size_t BATCH = 1000;
constexpr int NODES = 100;

std::string nodeId(int i) {
    return "00c0ffee-10000001-clip-shot-" + std::to_string(1000 + i);
}

class Counter : public VantrelNodeEvent::Handler {
  public:
    void notify(const VantrelNodeEvent&) override { count.fetch_add(1, std::memory_order_relaxed); }
    std::atomic<std::size_t> count{0};
};

// Each event is brought by itself, as the monitor brings them. At most 200 ns of CPU.
void delivering(benchmark::State& state) {
    VantrelEventDispatcher dispatcher(BATCH);
    Counter counter;
    for (int i = 0; i < NODES; ++i) dispatcher.add({nodeId(i), "", ""}, &counter);
    std::size_t sent = 0;
    double seconds = 0;
    for (auto _ : state) {
        std::vector<VantrelNodeEvent> events;
        for (std::size_t i = 0; i < BATCH; ++i)
            events.emplace_back(VantrelNodeId(nodeId(static_cast<int>(i) % NODES).c_str()),
                                VantrelStr("NodeChanged"), VantrelDictionary("Child 2 n2"));
        const CpuWatch watch;
        for (auto& event : events) dispatcher.notify(std::move(event));
        const double taken = watch.seconds();
        state.SetIterationTime(taken);
        seconds += taken;
        sent += BATCH;
    }
    if (counter.count != sent) throw std::runtime_error("Events were lost");
    state.SetItemsProcessed(static_cast<std::int64_t>(sent));
    state.counters["ns_per_event"] = seconds / static_cast<double>(sent) * 1e9;
}
BENCHMARK(delivering)->Name("Events/delivery, an event at a time")->UseManualTime();

// The same with the events queued while one of their handlers is busy: one batch.
void deliveringBatches(benchmark::State& state) {
    VantrelEventDispatcher dispatcher(BATCH);
    Counter counter;
    /// While it runs, the events are only queued: it belongs to the thread that delivers.
    class Queueing : public VantrelNodeEvent::Handler {
      public:
        Queueing(VantrelEventDispatcher& to, std::vector<VantrelNodeEvent>& from) : to_(to), from_(from) {}
        void notify(const VantrelNodeEvent&) override {
            for (auto& event : from_) to_.notify(std::move(event));
        }

      private:
        VantrelEventDispatcher& to_;
        std::vector<VantrelNodeEvent>& from_;
    };
    std::vector<VantrelNodeEvent> events;
    Queueing queueing(dispatcher, events);
    for (int i = 0; i < NODES; ++i) dispatcher.add({nodeId(i), "", ""}, &counter);
    dispatcher.add({"first", "", ""}, &queueing);
    std::size_t sent = 0;
    double seconds = 0;
    for (auto _ : state) {
        events.clear();
        for (std::size_t i = 0; i < BATCH; ++i)
            events.emplace_back(VantrelNodeId(nodeId(static_cast<int>(i) % NODES).c_str()),
                                VantrelStr("NodeChanged"), VantrelDictionary("Child 2 n2"));
        const CpuWatch watch;
        dispatcher.notify(VantrelNodeEvent(VantrelNodeId("first"), VantrelStr(), VantrelDictionary()));
        const double taken = watch.seconds();
        state.SetIterationTime(taken);
        seconds += taken;
        sent += BATCH;
    }
    if (counter.count != sent) throw std::runtime_error("Events were lost");
    state.SetItemsProcessed(static_cast<std::int64_t>(sent));
    state.counters["ns_per_event"] = seconds / static_cast<double>(sent) * 1e9;
}
BENCHMARK(deliveringBatches)->Name("Events/delivery, in batches")->UseManualTime();

// "NodeEvent" commands from a plain socket, answers awaited for the whole batch.
void receiving(benchmark::State& state) {
    const MetadataPeer peer("ok \n");
    const VantrelClient client;
    Counter counter;
    const VantrelServerHandle server(VantrelServerId(peer.address().c_str()));
    if (!server.registerEventHandler(nodeId(0).c_str(), &counter))
        throw std::runtime_error(server.lastError());
    const std::string lines = [&] {
        const std::string registration = peer.firstLines().back();
        // "Connection", the number of digits, the id.
        const std::size_t at = registration.find(' ', registration.find("Connection ") + 11) + 1;
        const std::string id = registration.substr(at, registration.find("Subject") - at);
        const std::string argument = entry("NodeId", nodeId(0)) + entry("Type", "NodeChanged") +
                                     entry("Details", entry("Child", "n2"));
        std::string all;
        for (std::size_t i = 0; i < BATCH; ++i) all += "sync " + id + " NodeEvent " + argument + "\n";
        return all;
    }();
    const Socket sender = Socket::connected(VantrelEventMonitor::getInstance(false)->getPort());
    char answer[16] = "";
    const std::string login = peer.firstLines().front();
    require(
        sender.sendAll(login.data(), login.size()) && sender.receiveUpTo('\n', answer, sizeof answer) == 4,
        "login");
    std::string answers(4 * BATCH, '\0');
    for (auto _ : state) {
        require(
            sender.sendAll(lines.data(), lines.size()) && sender.receiveAll(answers.data(), answers.size()),
            "events");
    }
    if (counter.count != static_cast<std::size_t>(state.iterations()) * BATCH)
        throw std::runtime_error("Events were lost");
    state.SetItemsProcessed(static_cast<std::int64_t>(counter.count));
}
BENCHMARK(receiving)->Name("Events/NodeEvent commands over loopback")->UseRealTime()->MeasureProcessCPUTime();

}  // namespace
