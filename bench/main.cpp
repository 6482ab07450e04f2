#include <benchmark/benchmark.h>

namespace bench {
void registerQelCases();
void registerPeerCases(const char* argv0);
void registerFloorCases();
void registerFormatCases();
}  // namespace bench

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    bench::registerQelCases();
    bench::registerPeerCases(argv[0]);
    bench::registerFloorCases();
    bench::registerFormatCases();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
