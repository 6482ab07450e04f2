// Records a process finished logging survive its sudden death (SIGKILL): the
// parent reads the files after the kill.

#include <signal.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>
#include <qel/log.h>

#include "hardening/hardening_support.h"
#include "log/log_test_support.h"

using namespace qeltest;

// With the console writer on, every record is followed by a flush of all
// streams, the log file's included.
TEST(CrashSafetyTest, ConsoleWriterOnKeepsEveryRecord) {
  auto result = runChild([] {
    CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
    for (int i = 0; i < 300; ++i) {
      qelLogSimplify("crash", static_cast<QelLogLevel>(i % 2),
                     ("kept-" + std::to_string(i)).c_str());
    }
    kill(getpid(), SIGKILL);
    return 1;
  });
  EXPECT_EQ(SIGKILL, result.signal);
  const std::string logs = concatenatedLogs(result.dir);
  for (int i = 1; i < 300;
       i += 2) { // the odd ones are at level 1, above the threshold
    EXPECT_EQ(1u, countOf(logs, "]kept-" + std::to_string(i) + "\n")) << i;
  }
}

// With the console writer off, a warning or an error reaches the system before
// its call returns, and with it every record before it; what follows may be
// lost. Without that flush all of these small records would still sit in the
// stream's buffer.
TEST(CrashSafetyTest, WarningsAndErrorsReachTheFileBeforeTheCallReturns) {
  for (const int last : {QEL_LOG_WARNING, QEL_LOG_ERROR}) {
    auto result = runChild([last] {
      CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0);
      CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
      for (int i = 0; i < 20; ++i) {
        qelLogSimplify("crash", QEL_LOG_INFO,
                       ("info-" + std::to_string(i)).c_str());
      }
      qelLogSimplify("crash", static_cast<QelLogLevel>(last), "severe");
      qelLogSimplify("crash", QEL_LOG_INFO, "after");
      kill(getpid(), SIGKILL);
      return 1;
    });
    EXPECT_EQ(SIGKILL, result.signal);
    const std::string logs = concatenatedLogs(result.dir);
    for (int i = 0; i < 20; ++i) {
      EXPECT_EQ(1u, countOf(logs, "]info-" + std::to_string(i) + "\n")) << last;
    }
    EXPECT_EQ(1u, countOf(logs, "]severe\n")) << last;
  }
}
