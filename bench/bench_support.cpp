#include "bench_support.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <atomic>
#include <filesystem>
#include <memory>
#include <thread>

namespace bench {

const char kFloorLine[101] =
    "[bench][V1.8.63 I 12:34:56:789 4242]frame 4711 delivered to the encoder queue, 3 buf"
    "fers in use....\n";
static_assert(sizeof(kFloorLine) == 101, "the floor line is 100 bytes");

CaseFolder::CaseFolder() : m_savedStdout(-1) {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr && base[0] != '\0' ? base : "/tmp") +
                          "/qel-bench-XXXXXX";
    if (mkdtemp(&pattern[0]) == nullptr) {
        std::perror("mkdtemp");
        std::abort();
    }
    m_path = pattern;
    // What a case prints goes to a file in its folder, not between the reported results.
    std::fflush(stdout);
    const int file = open((m_path + "/stdout.txt").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (file >= 0) {
        m_savedStdout = dup(STDOUT_FILENO);
        dup2(file, STDOUT_FILENO);
        close(file);
    }
}

CaseFolder::~CaseFolder() {
    std::fflush(stdout);
    if (m_savedStdout >= 0) {
        dup2(m_savedStdout, STDOUT_FILENO);
        close(m_savedStdout);
    }
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

namespace {

std::unique_ptr<CaseFolder> g_folder;
// True from the end of thread 0's set-up to the start of its tear-down. The threads of one
// run are joined before the next run starts, so a waiting thread never sees an old run's.
std::atomic<bool> g_setUp{false};

}  // namespace

void beginCase(benchmark::State& state) {
    if (state.thread_index() == 0) {
        // Every case starts with nothing left to write back from the cases before it: the
        // kernel's write-back of an earlier case's files would otherwise slow whichever case
        // runs next, depending on the order of the cases rather than on what they do.
        sync();
        g_folder.reset(new CaseFolder);
    }
}

void endCase(benchmark::State& state) {
    if (state.thread_index() == 0) {
        g_folder.reset();
    }
}

const std::string& caseFolder() {
    return g_folder->path();
}

void announceSetUp() {
    g_setUp.store(true, std::memory_order_release);
}

void awaitSetUp() {
    while (!g_setUp.load(std::memory_order_acquire)) {
        std::this_thread::yield();
    }
}

void withdrawSetUp() {
    g_setUp.store(false, std::memory_order_relaxed);
}

void registerCase(const std::string& name, void (*function)(benchmark::State&)) {
    benchmark::RegisterBenchmark(name.c_str(), function)->UseRealTime()->Threads(1)->Threads(4);
}

void registerLatencyCase(const std::string& name, void (*function)(benchmark::State&)) {
    benchmark::RegisterBenchmark(name.c_str(), function)->UseRealTime()->Threads(1);
}

void reportLatencies(benchmark::State& state, std::vector<uint32_t>& nanoseconds) {
    if (nanoseconds.empty()) {
        return;
    }
    std::sort(nanoseconds.begin(), nanoseconds.end());
    const auto at = [&nanoseconds](double share) {
        const size_t last = nanoseconds.size() - 1;
        return static_cast<double>(nanoseconds[static_cast<size_t>(share * last)]);
    };
    state.counters["p50_ns"] = at(0.5);
    state.counters["p99_ns"] = at(0.99);
    state.counters["p999_ns"] = at(0.999);
    state.counters["max_ns"] = at(1.0);
}

}  // namespace bench
