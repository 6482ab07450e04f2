// fork() while other threads log: the child gets copies of the logging locks in
// whatever state they had, and a copy of the log file's unwritten buffer.

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <qel/log.h>
#include <qel/timeutils.h>

#include "hardening/hardening_support.h"
#include "log/log_test_support.h"

using namespace qeltest;

// Three threads log without pause while the main thread forks five times, so
// that forks land in the middle of dispatches (the signal lock or a writer's
// lock held by a thread that does not exist in the child), and configuration
// calls run beside them. Each child must log at once without deadlock, into a
// file of its own, under its own thread id; no record buffered in the parent
// before a fork may reach a file twice.
TEST(ForkTest, ChildLogsAtOnceIntoAFileOfItsOwn) {
  auto result = runChild([] {
    CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0);
    CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    threads.emplace_back([&stop] {
      for (unsigned int size = 0; !stop.load(); ++size) {
        qelLogSetMaxSize(1000000 + size % 1000);
      }
    });
    for (int t = 0; t < 3; ++t) {
      threads.emplace_back([t, &stop] {
        for (int i = 0; !stop.load(); ++i) {
          const std::string text =
              "t" + std::to_string(t) + "-" + std::to_string(i);
          qelLogSimplify("fork", QEL_LOG_INFO, text.c_str());
        }
      });
    }
    std::map<pid_t, int> children;
    bool forksEnded = true;
    for (int c = 0; c < 5; ++c) {
      qel::sleepMs(5);
      const pid_t pid = fork();
      if (pid == 0) {
        const std::string text = "child-" + std::to_string(c);
        qelLogSimplify("fork", QEL_LOG_INFO, text.c_str());
        qelLogConfigFileWriter(false);
        _exit(0);
      }
      children[pid] = c;
      int status = 0;
      const bool ended = waitWithTimeout(pid, 20, &status);
      forksEnded =
          forksEnded && ended && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }
    stop = true;
    for (auto &thread : threads) {
      thread.join();
    }
    CHILD_CHECK(qelLogConfigFileWriter(false) == 0);
    CHILD_CHECK(forksEnded);

    static const std::regex kRecord(
        R"(\[fork\]\[V[0-9.]+ I [0-9:]+ (\d+)\]([a-z0-9-]+)\n\n)");
    std::map<std::string, int> seen;
    for (const auto &path : logFiles(".")) {
      const std::string content = readFile(path);
      bool parentRecords = false;
      int childRecords = 0;
      for (std::sregex_iterator it(content.begin(), content.end(), kRecord),
           end;
           it != end; ++it) {
        const std::string text = (*it)[2];
        ++seen[text];
        if (text.compare(0, 6, "child-") == 0) {
          ++childRecords;
          const pid_t tid = std::stoi((*it)[1]);
          CHILD_CHECK(children.count(tid) == 1);
          CHILD_CHECK("child-" + std::to_string(children[tid]) == text);
        } else {
          parentRecords = true;
        }
      }
      CHILD_CHECK(childRecords == 0 || (childRecords == 1 && !parentRecords));
    }
    for (const auto &record : seen) {
      CHILD_CHECK(record.second == 1);
    }
    for (int c = 0; c < 5; ++c) {
      CHILD_CHECK(seen.count("child-" + std::to_string(c)) == 1);
    }
    return 0;
  });
  EXPECT_CHILD_OK(result);
}
