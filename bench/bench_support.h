#ifndef QEL_BENCH_BENCH_SUPPORT_H_
#define QEL_BENCH_BENCH_SUPPORT_H_

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

// What every case logs: with the library's header the line is about 100 bytes, the size
// of the floors' line.
constexpr const char kModule[] = "bench";
constexpr const char kText[] = "frame 4711 delivered to the encoder queue, 3 buffers in use";
extern const char kFloorLine[101];  // 99 characters and a line feed, 100 bytes

// Heap allocations made so far by the calling thread (alloc_count.cpp).
uint64_t allocationsOnThisThread();

// The case's own temporary folder, made by thread 0 before the loop and removed with all
// its content when the case ends. While it exists, standard output goes to a file in it.
class CaseFolder {
public:
    CaseFolder();
    ~CaseFolder();
    CaseFolder(const CaseFolder&) = delete;
    CaseFolder& operator=(const CaseFolder&) = delete;
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
    int m_savedStdout;
};

// Thread 0 calls this after the case's set-up, the other threads wait for it before their
// first record (the benchmark library lines them up only at the timed loop).
void announceSetUp();
void awaitSetUp();
// Thread 0 calls this before the case's tear-down.
void withdrawSetUp();
// The folder of the case that runs now; made by runCase.
const std::string& caseFolder();

// Runs the timed loop of one case on one thread: `record` once per iteration, after one
// untimed call that lets lazy set-up (buffers, per-thread data) happen outside the count.
// Reports records per second and heap allocations per record.
template <typename Record>
void runRecords(benchmark::State& state, Record&& record) {
    record();
    const uint64_t allocationsBefore = allocationsOnThisThread();
    for (auto _ : state) {
        record();
    }
    const uint64_t allocations = allocationsOnThisThread() - allocationsBefore;
    state.SetItemsProcessed(state.iterations());
    state.counters["allocs_per_rec"] =
        benchmark::Counter(static_cast<double>(allocations), benchmark::Counter::kAvgIterations);
}

// Runs `record` once per iteration, timing every call on the steady clock, and reports the
// per-call latency in nanoseconds as the counters p50_ns, p99_ns, p999_ns and max_ns.
void reportLatencies(benchmark::State& state, std::vector<uint32_t>& nanoseconds);
template <typename Record>
void runLatencies(benchmark::State& state, Record&& record) {
    record();
    std::vector<uint32_t> nanoseconds;
    nanoseconds.reserve(static_cast<size_t>(state.max_iterations));
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        record();
        const auto took = std::chrono::steady_clock::now() - start;
        nanoseconds.push_back(static_cast<uint32_t>(
            std::chrono::duration_cast<std::chrono::nanoseconds>(took).count()));
    }
    state.SetItemsProcessed(state.iterations());
    reportLatencies(state, nanoseconds);
}

// One case on one thread: thread 0 makes the case folder and calls `setUp` with its path,
// every thread runs the timed loop of `record` (with `timeEachCall`, runLatencies'), then
// thread 0 calls `tearDown` and removes the folder.
void beginCase(benchmark::State& state);
void endCase(benchmark::State& state);
template <typename SetUp, typename Record, typename TearDown>
void runCase(benchmark::State& state, SetUp&& setUp, Record&& record, TearDown&& tearDown,
             bool timeEachCall = false) {
    beginCase(state);
    if (state.thread_index() == 0) {
        setUp(caseFolder());
        announceSetUp();
    } else {
        awaitSetUp();
    }
    if (timeEachCall) {
        runLatencies(state, record);
    } else {
        runRecords(state, record);
    }
    if (state.thread_index() == 0) {
        withdrawSetUp();
        tearDown();
    }
    endCase(state);
}

// Registers `function` as `name` for 1 and for 4 threads, timed on the wall clock.
void registerCase(const std::string& name, void (*function)(benchmark::State&));
// Registers `function` as `name` for 1 thread, timed on the wall clock.
void registerLatencyCase(const std::string& name, void (*function)(benchmark::State&));

}  // namespace bench

#endif  // QEL_BENCH_BENCH_SUPPORT_H_
