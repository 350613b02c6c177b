// Attribute streams: building, reading in order and reading nested streams in place, each beside a yardstick
// that moves the same bytes. Every benchmark checks what it moved.

#include <benchmark/benchmark.h>

#include <cstring>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "rcAttrStream.h"

using namespace Vantrel;

namespace {

constexpr int FEWEST_NAMES = 16;
constexpr int MOST_NAMES = 16384;
constexpr unsigned CHILDREN = 100000;

// CPU time of this thread: what other processes do at the same time is not measured.
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

std::vector<std::string> distinctNames(int count) {
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i) names.push_back("Attribute" + std::to_string(i));
    return names;
}

void build(const std::vector<std::string>& names, rcAttrStream& stream) {
    for (const std::string& name : names) stream.addStringValue(name.c_str(), std::string_view("some value"));
}

// Only the bytes of the same text, without looking for earlier entries.
std::string concatenate(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text.append(name).append(" 10 some value");
    return text;
}

// ns_per_name stays about the same from the fewest names to the most when building is linear.
void buildingDistinctNames(benchmark::State& state) {
    const std::vector<std::string> names = distinctNames(static_cast<int>(state.range(0)));
    const std::string expected = concatenate(names);
    double measured = 0;
    double yardstick = 0;
    for (auto _ : state) {
        const CpuWatch watch;
        rcAttrStream stream;
        build(names, stream);
        const double taken = watch.seconds();
        const CpuWatch plainWatch;
        const std::string plain = concatenate(names);
        yardstick += plainWatch.seconds();
        measured += taken;
        state.SetIterationTime(taken);
        if (stream.text() != plain) return state.SkipWithError("wrong text");
    }
    const double moved = static_cast<double>(state.iterations()) * static_cast<double>(names.size());
    state.counters["ns_per_name"] = measured * 1e9 / moved;
    state.counters["times_plain_append"] = measured / yardstick;
    state.SetComplexityN(state.range(0));
}
BENCHMARK(buildingDistinctNames)
    ->Name("AttrStream/building")
    ->RangeMultiplier(4)
    ->Range(FEWEST_NAMES, MOST_NAMES)
    ->UseManualTime()
    ->Complexity(benchmark::oN);

// A stream that is updated for ever: time per update must not follow the blanked entries.
void rewritingOneName(benchmark::State& state) {
    const auto updates = static_cast<int>(state.range(0));
    for (auto _ : state) {
        rcAttrStream stream;
        for (int i = 0; i < updates; ++i) stream.addIntValue("Progress", i);
        int last = 0;
        if (!stream.getIntValue("Progress", last) || last != updates - 1)
            return state.SkipWithError("wrong value");
    }
    state.counters["updates"] =
        benchmark::Counter(static_cast<double>(updates), benchmark::Counter::kIsIterationInvariantRate);
    state.SetComplexityN(state.range(0));
}
BENCHMARK(rewritingOneName)
    ->Name("AttrStream/rewriting")
    ->RangeMultiplier(8)
    ->Range(256, MOST_NAMES)
    ->Complexity(benchmark::oN);

void readingInOrder(benchmark::State& state) {
    const std::vector<std::string> names = distinctNames(static_cast<int>(state.range(0)));
    const rcAttrStream stream(concatenate(names));
    for (auto _ : state) {
        for (const std::string& name : names) {
            std::string_view value;
            if (!stream.getStringValue(name.c_str(), value) || value != "some value") {
                return state.SkipWithError("wrong value");
            }
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetComplexityN(state.range(0));
}
BENCHMARK(readingInOrder)
    ->Name("AttrStream/readingInOrder")
    ->RangeMultiplier(4)
    ->Range(FEWEST_NAMES, MOST_NAMES)
    ->Complexity(benchmark::oN);

// Streams within a stream, as a server answers the children of a node.
std::string childrenText() {
    rcAttrStream reply;
    for (unsigned i = 0; i < CHILDREN; ++i) {
        rcAttrStream child;
        child.addStringValue("Id", "H_" + std::to_string(1000000 + i) + "_S_1668000000_U_12345");
        child.addStringValue("Displ", "shot " + std::to_string(i) + " v001");
        reply.addStringValue(std::to_string(i).c_str(), child.text());
    }
    return reply.text();
}

// What any reader must do at least: look once at every byte that separates.
std::size_t countBlanks(const std::string& text) {
    std::size_t blanks = 0;
    const char* const end = text.data() + text.size();
    for (const char* at = text.data(); at < end; ++at, ++blanks) {
        at = static_cast<const char*>(std::memchr(at, ' ', static_cast<std::size_t>(end - at)));
        if (!at) break;
    }
    return blanks;
}

void readingNestedInPlace(benchmark::State& state) {
    const rcAttrStream reply(childrenText());
    const std::size_t blanks = countBlanks(reply.text());
    double measured = 0;
    double yardstick = 0;
    for (auto _ : state) {
        const CpuWatch watch;
        unsigned children = 0;
        std::size_t bytes = 0;
        rcAttrStream::ConstIterator outer(reply);
        std::string_view key, text, id, name;
        while (outer.next(key, text)) {
            rcAttrStream::ConstIterator child(text);
            if (!child.find("Id", id) || !child.find("Displ", name))
                return state.SkipWithError("key missing");
            bytes += id.size() + name.size();
            ++children;
        }
        const double taken = watch.seconds();
        const CpuWatch plainWatch;
        const std::size_t counted = countBlanks(reply.text());
        yardstick += plainWatch.seconds();
        measured += taken;
        state.SetIterationTime(taken);
        benchmark::DoNotOptimize(bytes);
        if (children != CHILDREN || counted != blanks) return state.SkipWithError("children lost");
    }
    state.counters["ns_per_child"] =
        measured * 1e9 / (static_cast<double>(state.iterations()) * static_cast<double>(CHILDREN));
    state.counters["times_blank_search"] = measured / yardstick;
}
BENCHMARK(readingNestedInPlace)
    ->Name("AttrStream/nestedInPlace/100000 children")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
