// A long list of children: its reply into the list that a node handle keeps, beside the plain way of two
// strings a child in the same run. Every benchmark checks what it read.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <ctime>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "VantrelNodeCodec.h"
#include "rcAttrStream.h"

namespace {

constexpr std::size_t CHILDREN = 100000;

using NodeInfoList = VantrelNodeInterface::NodeInfoList;

/// CPU time of this thread: what other processes do at the same time is not measured.
class CpuWatch {
  public:
    double seconds() const { return now() - start_; }

  private:
    static double now() {
        timespec time{};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    }

    double start_ = now();
};

std::string idOf(std::size_t i) {
    return "00c0ffee" + std::to_string(10000000 + i);
}
std::string nameOf(std::size_t i) {
    return "clip " + std::to_string(i);
}

const std::string& childrenReply() {
    static const std::string reply = [] {
        std::string text;
        for (std::size_t i = 0; i < CHILDREN; ++i) {
            Vantrel::rcAttrStream child;
            child.addStringValue("Id", idOf(i).c_str());
            child.addStringValue("Displ", nameOf(i).c_str());
            text += std::to_string(i) + " " + std::to_string(child.text().size()) + " " + child.text();
        }
        text.shrink_to_fit();
        return text;
    }();
    return reply;
}

std::size_t allocatedBytes() {
    const struct mallinfo2 facts = ::mallinfo2();
    return facts.uordblks + facts.hblkhd;
}

/// The yardstick: the same reply into two strings a child.
double secondsIntoStrings() {
    std::vector<std::pair<std::string, std::string>> children;
    const CpuWatch watch;
    Vantrel::rcAttrStream::ConstIterator entries{std::string_view(childrenReply())};
    Vantrel::rcAttrStream::ConstIterator fields;
    for (std::string_view key, child; entries.next(key, child);) {
        fields.reset(child);
        std::string_view id;
        std::string_view name;
        if (fields.find("Id", id) && fields.find("Displ", name)) children.emplace_back(name, id);
    }
    const double taken = watch.seconds();
    benchmark::DoNotOptimize(children.data());
    return taken;
}

bool isComplete(const NodeInfoList& children) {
    if (children.size() != CHILDREN) return false;
    for (const std::size_t i : {std::size_t{0}, CHILDREN / 2, CHILDREN - 1}) {
        if (children[i].id() != idOf(i) || children[i].displayName() != nameOf(i)) return false;
    }
    return true;
}

// At most 60 ns a child, and at most 1.5 bytes kept for a byte of the reply.
void childrenIntoAList(benchmark::State& state) {
    const std::string& reply = childrenReply();
    double measured = 0;
    double yardstick = 0;
    double memoryRatio = 0;
    for (auto _ : state) {
        const std::size_t before = allocatedBytes();
        std::string received(reply);
        NodeInfoList children;
        std::string error;
        const CpuWatch watch;
        const bool ok = VantrelNodeCodec::parseChildrenEx(std::move(received), children, error);
        const double taken = watch.seconds();
        memoryRatio = static_cast<double>(allocatedBytes() - before) / static_cast<double>(reply.size());
        if (!ok || !isComplete(children)) return state.SkipWithError("wrong children");
        yardstick += secondsIntoStrings();
        measured += taken;
        state.SetIterationTime(taken);
    }
    const double moved = static_cast<double>(state.iterations()) * static_cast<double>(CHILDREN);
    state.counters["ns_per_child"] = measured * 1e9 / moved;
    state.counters["times_two_strings"] = measured / yardstick;
    state.counters["memory_per_reply"] = memoryRatio;
}
BENCHMARK(childrenIntoAList)->Name("Children/list")->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
