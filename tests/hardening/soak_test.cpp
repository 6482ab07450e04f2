// Many records from several threads through many files: QEL_SOAK_RECORDS of them, all threads
// together (scripts/soak.sh runs 2,500,000), or a reduced number by default.

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <qel/log.h>

#include "support/test_support.h"

using namespace qeltest;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;  // their allocators keep freed memory: no measure of growth
#else
constexpr bool kSanitized = false;
#endif
constexpr long kDefaultRecords = kSanitized ? 20000 : 200000;
constexpr int kThreads = 4;
constexpr long kWarmUpRecords = 10000;

void runThreads(long from, long to) {
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, from, to] {
            char text[64];
            for (long i = from; i < to; ++i) {
                snprintf(text, sizeof(text), "t%d n%ld", t, i);
                qelLogSimplify("soak", QEL_LOG_INFO, text);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

long residentBytes() {
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

long openDescriptors() {  // the listing's own descriptor included
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// Reads the files in creation order as one stream of lines, a line cut at a file's end going on
// in the next file: each thread's numbers must come once each and in order, and nothing else.
bool recordsComplete(long perThread) {
    std::vector<long> next(kThreads, 0);
    std::string pending;
    const auto files = logFiles(".");
    for (size_t f = 0; f <= files.size(); ++f) {
        pending += f < files.size() ? readFile(files[f]) : "\n";
        size_t start = 0;
        for (size_t end; (end = pending.find('\n', start)) != std::string::npos; start = end + 1) {
            const std::string line = pending.substr(start, end - start);
            int thread = -1, length = 0;
            long number = -1;
            sscanf(line.c_str(), "[soak][V%*[0-9.] I %*[0-9:] %*d]t%d n%ld%n", &thread, &number,
                   &length);
            if (!line.empty() && (length != static_cast<int>(line.size()) || thread < 0 ||
                                  thread >= kThreads || number != next[thread]++)) {
                fprintf(stderr, "unexpected line: %s\n", line.c_str());
                return false;
            }
        }
        pending.erase(0, start);
    }
    return std::count(next.begin(), next.end(), perThread) == kThreads;
}

}  // namespace

// Four threads, a 1 MiB limit: every record once and in its thread's order across all the
// files, no growth of resident memory after the first 10,000 records, and no descriptor left
// open once the writer is closed.
TEST(SoakTest, ManyRecordsThroughManyFiles) {
    const char* records = getenv("QEL_SOAK_RECORDS");
    const long perThread =
        std::max(records != nullptr ? atol(records) : kDefaultRecords, kWarmUpRecords) / kThreads;
    auto result = runChild(
        [perThread] {
            CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0);
            CHILD_CHECK(qelLogSetMaxSize(1 << 20) == 0);
            const long descriptorsBefore = openDescriptors();
            CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
            runThreads(0, kWarmUpRecords / kThreads);
            const long residentAfterWarmUp = residentBytes();
            runThreads(kWarmUpRecords / kThreads, perThread);
            const long growth = residentBytes() - residentAfterWarmUp;
            CHILD_CHECK(qelLogConfigFileWriter(false) == 0);
            CHILD_CHECK(openDescriptors() == descriptorsBefore);
            CHILD_CHECK(kSanitized || growth <= (1 << 20));
            CHILD_CHECK(recordsComplete(perThread));
            removeTree(".");  // the full run leaves hundreds of megabytes
            return 0;
        },
        3600);
    EXPECT_CHILD_OK(result);
}
