#include <benchmark/benchmark.h>
#include <stdlib.h>

int main(int argc, char** argv) {
    ::setenv("QD_NETWORK_CFG_FILE", VANTREL_QUIET_NETWORK_CFG, 0);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
