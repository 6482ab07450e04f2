// Many records from several threads through many files. The size comes from the
// environment: QEL_SOAK_RECORDS (all threads together; scripts/soak.sh runs
// 2,500,000), a reduced default otherwise.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <qel/log.h>

#include "hardening/hardening_support.h"
#include "log/log_test_support.h"

using namespace qeltest;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized =
    true; // their allocators keep freed memory: no measure of growth
constexpr long kDefaultRecords = 20000;
#else
constexpr bool kSanitized = false;
constexpr long kDefaultRecords = 200000;
#endif
constexpr int kThreads = 4;
constexpr long kWarmUpRecords = 10000;

long recordsFromEnvironment() {
  const char *text = getenv("QEL_SOAK_RECORDS");
  const long records = text != nullptr ? atol(text) : kDefaultRecords;
  return records > kWarmUpRecords ? records : kWarmUpRecords + kThreads;
}

long residentBytes() {
  long pages = 0;
  long resident = 0;
  std::ifstream statm("/proc/self/statm");
  statm >> pages >> resident;
  return resident * sysconf(_SC_PAGESIZE);
}

void logRange(int thread, long from, long to) {
  char text[64];
  for (long i = from; i < to; ++i) {
    snprintf(text, sizeof(text), "t%d n%ld", thread, i);
    qelLogSimplify("soak", QEL_LOG_INFO, text);
  }
}

void runThreads(long from, long to) {
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back(logRange, t, from, to);
  }
  for (auto &thread : threads) {
    thread.join();
  }
}

// Reads the files in creation order as one stream of lines and checks that
// every thread's numbers come once each, in order, and that nothing else is
// there. Lines split at a file's end continue at the start of the next file.
bool recordsComplete(const std::string &dir, long perThread,
                     std::string *problem) {
  std::vector<long> next(kThreads, 0);
  std::string pending;
  auto checkLine = [&](const std::string &line) {
    if (line.empty()) {
      return true;
    }
    const size_t close = line.find(']', line.find(']') + 1);
    int thread = -1;
    long number = -1;
    if (close == std::string::npos ||
        sscanf(line.c_str() + close + 1, "t%d n%ld", &thread, &number) != 2 ||
        thread < 0 || thread >= kThreads || number != next[thread]) {
      *problem = "unexpected line: " + line;
      return false;
    }
    ++next[thread];
    return true;
  };
  for (const auto &path : logFiles(dir)) {
    std::ifstream in(path, std::ios::binary);
    std::string chunk((std::istreambuf_iterator<char>(in)),
                      std::istreambuf_iterator<char>());
    pending += chunk;
    size_t start = 0;
    for (size_t end = pending.find('\n'); end != std::string::npos;
         end = pending.find('\n', start)) {
      if (!checkLine(pending.substr(start, end - start))) {
        return false;
      }
      start = end + 1;
    }
    pending.erase(0, start);
  }
  for (int t = 0; t < kThreads; ++t) {
    if (next[t] != perThread) {
      *problem =
          "thread " + std::to_string(t) + " ends at " + std::to_string(next[t]);
      return false;
    }
  }
  return pending.empty() || checkLine(pending);
}

} // namespace

// Four threads, a 1 MiB limit: every record once and in its thread's order
// across all the files, no growth of resident memory after the first 10,000
// records, and no descriptor left open once the writer is closed.
TEST(SoakTest, ManyRecordsThroughManyFiles) {
  const long perThread = recordsFromEnvironment() / kThreads;
  const long warmUp = kWarmUpRecords / kThreads;
  auto result = runChild(
      [perThread, warmUp] {
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0);
        CHILD_CHECK(qelLogSetMaxSize(1 << 20) == 0);
        const int descriptorsBefore = openDescriptorCount();
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
        runThreads(0, warmUp);
        const long residentAfterWarmUp = residentBytes();
        runThreads(warmUp, perThread);
        const long residentAfterRun = residentBytes();
        CHILD_CHECK(qelLogConfigFileWriter(false) == 0);
        CHILD_CHECK(openDescriptorCount() == descriptorsBefore);
        if (!kSanitized) {
          CHILD_CHECK(residentAfterRun - residentAfterWarmUp <= (1 << 20));
        }
        std::string problem;
        if (!recordsComplete(".", perThread, &problem)) {
          fprintf(stderr, "%s\n", problem.c_str());
          return 1;
        }
        removeTree("."); // the full run leaves hundreds of megabytes
        return 0;
      },
      3600);
  EXPECT_CHILD_OK(result);
}
