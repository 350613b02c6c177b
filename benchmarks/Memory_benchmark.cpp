// What the library costs the process that loads it: anonymous memory of a program that loads the shared
// library, holds one connection and has the event monitor running. Measured in a process of its own, as
// memory that others left behind would hide it.

#include <benchmark/benchmark.h>
#include <limits.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>

#include "MetadataPeer.h"

using namespace VantrelBenchmark;

namespace {

/// Beside this program.
std::string probePath() {
    char own[PATH_MAX] = "";
    if (::readlink("/proc/self/exe", own, sizeof own - 1) < 0) return {};
    const std::string path(own);
    return path.substr(0, path.rfind('/') + 1) + "vantrel_memory_probe";
}

// At most 450 KiB.
void oneConnection(benchmark::State& state) {
    const MetadataPeer peer("ok \n");
    const std::string command = "'" + probePath() + "' " + peer.address();
    std::vector<double> all;
    std::vector<double> library;
    for (auto _ : state) {
        const std::unique_ptr<FILE, int (*)(FILE*)> probe(::popen(command.c_str(), "re"), &::pclose);
        double before = 0;
        double after = 0;
        if (!probe || std::fscanf(probe.get(), "%lf %lf", &before, &after) != 2) {
            return state.SkipWithError("the probe failed");
        }
        all.push_back(after);
        library.push_back(after - before);
    }
    state.counters["process_KiB"] = median(all);
    state.counters["since_main_KiB"] = median(library);
}
BENCHMARK(oneConnection)
    ->Name("Memory/connection and event monitor")
    ->Iterations(5)
    ->Unit(benchmark::kMillisecond);

}  // namespace
