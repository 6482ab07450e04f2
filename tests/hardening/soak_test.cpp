// QEL_SOAK_RECORDS sets the number of records (scripts/soak.sh runs the long version).

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <numeric>
#include <sstream>
#include <thread>

#include "hardening/stand_ins.h"

using namespace qeltest;

namespace {

using hardening::kSanitized;

constexpr long kDefaultRecords = kSanitized ? 20000 : 200000;
constexpr int kThreads = 8;
constexpr long kWarmUpRecords = 10000;
const char* const kFolders[] = {"a", "b"};

// Logs numbered records from kThreads threads, thread t from `next[t]` on, `count` each and more
// until this thread has moved the writer `moves` times. Returns where each thread stopped.
std::vector<long> runThreads(std::vector<long> next, long count, int moves) {
    std::atomic<bool> moving{true};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, count, &moving, &next] {
            for (const long end = next[t] + count; next[t] < end || moving; ++next[t]) {
                const std::string text = "t" + std::to_string(t) + " n" + std::to_string(next[t]);
                qelLogSimplify("soak", QEL_LOG_INFO, text.c_str());
            }
        });
    }
    for (int move = 0; move < moves; ++move) qelLogSetFileFolder(kFolders[move % 2]);
    moving = false;
    for (auto& thread : threads) thread.join();
    return next;
}

long residentBytes() {
    long pages = 0, resident = 0;
    return std::ifstream("/proc/self/statm") >> pages >> resident ? resident * 4096 : 0;
}

// Each folder's files read in creation order as one text (a line cut at a file's end goes on in
// the next file): the records missing, or -1 at anything but whole records in each thread's order.
long missingRecords(const std::vector<long>& logged) {
    long seen = 0;
    for (const char* folder : kFolders) {
        std::vector<long> next(kThreads, 0);
        std::istringstream lines(concatenatedLogs(folder));
        for (std::string line; std::getline(lines, line);) {
            if (line.empty()) continue;
            int t = -1, length = 0;
            long n = -1;
            sscanf(line.c_str(), "[soak][V%*[0-9.] I %*[0-9:] %*d]t%d n%ld%n", &t, &n, &length);
            if (length != static_cast<int>(line.size()) || t < 0 || t >= kThreads || n < next[t]) {
                return -1;
            }
            next[t] = n + 1;
            ++seen;
        }
    }
    return std::accumulate(logged.begin(), logged.end(), 0L) - seen;
}

}  // namespace

// Eight threads, a 1 MiB limit, the folder moved a hundred times meanwhile: every record once and
// in order, no growth of resident memory after the first 10,000 records, no descriptor left open.
TEST(SoakTest, ManyRecordsThroughManyFilesWhileTheFolderMoves) {
    const char* records = getenv("QEL_SOAK_RECORDS");
    const long perThread =
        std::max(records != nullptr ? atol(records) : kDefaultRecords, kWarmUpRecords) / kThreads;
    auto result = runChild([perThread] {
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0 && qelLogSetMaxSize(1 << 20) == 0);
        const long descriptorsBefore = hardening::openDescriptors();
        CHILD_CHECK(qelLogSetFileFolder(kFolders[1]) == 0);
        auto warm = runThreads(std::vector<long>(kThreads), kWarmUpRecords / kThreads, 100);
        const long residentAfterWarmUp = residentBytes();
        const auto logged = runThreads(warm, perThread - kWarmUpRecords / kThreads, 0);
        const long growth = residentBytes() - residentAfterWarmUp;
        CHILD_CHECK(qelLogConfigFileWriter(false) == 0);
        CHILD_CHECK(hardening::openDescriptors() == descriptorsBefore);  // the writer kept none
        CHILD_CHECK(kSanitized || growth <= (1 << 20));
        CHILD_CHECK(missingRecords(logged) == 0);
        removeTree(".");  // the full run leaves hundreds of megabytes
        return 0;
    }, 3600);
    EXPECT_CHILD_OK(result);
}
