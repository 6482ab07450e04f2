// Faults of the disk and of the process while logging. Every scenario runs in a
// child with a watchdog: a hang fails the test instead of stalling the suite.

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <qel/error.h>
#include <qel/log.h>
#include <qel/timeutils.h>

#include "hardening/hardening_support.h"
#include "log/log_test_support.h"

using namespace qeltest;

namespace {

constexpr int kErrorFileOpen = static_cast<int>(0x80300002u);

bool setSoftLimit(int resource, rlim_t value) {
  struct rlimit limit;
  if (getrlimit(resource, &limit) != 0) {
    return false;
  }
  limit.rlim_cur = value;
  return setrlimit(resource, &limit) == 0;
}

// Every log file of `dir` holds bytes, except perhaps the newest: a file made
// and left empty means the writer made files without writing into them.
bool onlyTheNewestFileIsEmpty(const std::string &dir) {
  const auto files = logFiles(dir);
  for (size_t i = 0; i + 1 < files.size(); ++i) {
    struct stat status;
    if (stat(files[i].c_str(), &status) != 0 || status.st_size == 0) {
      return false;
    }
  }
  return true;
}

} // namespace

// A file size limit of the process: a buffered stream reports the failure only
// when its buffer is pushed out, records later, and the console writer's flush
// of all streams can be the one that meets it. Neither way may make a new file
// per failed record. Once the limit is raised the writer goes on, each new file
// taking as many bytes as the limit lets it.
TEST(FaultTest, FileSizeLimitMakesNoFilesInALoop) {
  auto result = runChild([] {
    signal(SIGXFSZ, SIG_IGN);
    StdoutCapture console;
    CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
    const std::string padding(200, 'x');
    int failedCalls = 0;
    // Limit 0: no file can take a byte; first with the console writer on, then
    // off.
    CHILD_CHECK(setSoftLimit(RLIMIT_FSIZE, 0));
    for (int i = 0; i < 400; ++i) {
      if (i == 200) {
        qelLogConfigConsoleWriter(false);
      }
      const std::string text = "zero-" + std::to_string(i) + padding;
      failedCalls += qelLogSimplify("fsize", QEL_LOG_INFO, text.c_str()) != 0;
    }
    const size_t filesAtZero = logFiles(".").size();
    // Limit 3000: every file takes up to 3000 bytes, then the writer moves on.
    CHILD_CHECK(setSoftLimit(RLIMIT_FSIZE, 3000));
    for (int i = 0; i < 300; ++i) {
      const std::string text = "small-" + std::to_string(i) + padding;
      failedCalls += qelLogSimplify("fsize", QEL_LOG_INFO, text.c_str()) != 0;
    }
    CHILD_CHECK(setSoftLimit(RLIMIT_FSIZE, RLIM_INFINITY));
    qelLogConfigConsoleWriter(true);
    CHILD_CHECK(qelLogSimplify("fsize", QEL_LOG_INFO, "after") == 0);
    const std::string printed = console.finish();
    CHILD_CHECK(failedCalls == 0);
    CHILD_CHECK(filesAtZero == 1);
    // About 75 KB went to files of at most 3000 bytes each.
    CHILD_CHECK(logFiles(".").size() <= 40);
    CHILD_CHECK(onlyTheNewestFileIsEmpty("."));
    CHILD_CHECK(countOf(printed, "]zero-") == 200);
    CHILD_CHECK(countOf(printed, "]small-") == 0);
    CHILD_CHECK(countOf(printed, "]after\n") == 1);
    CHILD_CHECK(qelLogConfigFileWriter(false) == 0);
    CHILD_CHECK(concatenatedLogs(".").find("]after\n") != std::string::npos);
    return 0;
  });
  EXPECT_CHILD_OK(result);
}

// Descriptors exhausted: switching the file writer on fails with the file
// error, the console goes on, and the writer works once descriptors are free
// again.
TEST(FaultTest, DescriptorsExhaustedFailsTheFileWriterOnly) {
  auto result = runChild([] {
    CHILD_CHECK(qelLogSimplify("nofile", QEL_LOG_INFO, "before") == 0);
    // Once through the same calls with descriptors to spare. (The
    // undefined-behaviour sanitizer checks a type the first time it sees it,
    // and needs a descriptor to do so.)
    CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
    CHILD_CHECK(qelLogSetFileFolder("logs") == 0);
    CHILD_CHECK(qelLogConfigFileWriter(false) == 0);
    removeTree("logs");
    for (const auto &path : logFiles(".")) {
      CHILD_CHECK(unlink(path.c_str()) == 0);
    }
    const int lowestFree = dup(0);
    CHILD_CHECK(lowestFree >= 0);
    close(lowestFree);
    struct rlimit saved;
    CHILD_CHECK(getrlimit(RLIMIT_NOFILE, &saved) == 0);
    CHILD_CHECK(setSoftLimit(RLIMIT_NOFILE, static_cast<rlim_t>(lowestFree)));
    *ErrnoLocal() = 0;
    const int opened = qelLogConfigFileWriter(true);
    const int code = *ErrnoLocal();
    const int folderResult = qelLogSetFileFolder("logs");
    const int consoleResult =
        qelLogSimplify("nofile", QEL_LOG_INFO, "console-goes-on");
    CHILD_CHECK(setrlimit(RLIMIT_NOFILE, &saved) == 0);
    CHILD_CHECK(opened == -1);
    CHILD_CHECK(code == kErrorFileOpen);
    CHILD_CHECK(folderResult == -1);
    CHILD_CHECK(consoleResult == 0);
    CHILD_CHECK(logFiles(".").empty());
    CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
    CHILD_CHECK(qelLogSimplify("nofile", QEL_LOG_INFO, "file-works") == 0);
    CHILD_CHECK(qelLogConfigFileWriter(false) == 0);
    return 0;
  });
  EXPECT_CHILD_OK(result);
  EXPECT_NE(std::string::npos, result.out.find("]console-goes-on\n"));
  EXPECT_NE(std::string::npos,
            concatenatedLogs(result.dir).find("]file-works\n"));
}

// The log folder removed (rm -rf) again and again while another thread logs:
// nothing crashes or hangs, and a later record re-creates the folder and goes
// into a new file. A removal can also strike between the creation of the folder
// and of the file; the writer then drops records for a pause before it tries
// again, hence the wait.
TEST(FaultTest, RemovedLogFolderIsRecreated) {
  auto result = runChild([] {
    CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0);
    CHILD_CHECK(qelLogSetFileFolder("logs/a/b") == 0);
    std::atomic<bool> stop{false};
    std::thread writer([&stop] {
      for (int i = 0; !stop.load(); ++i) {
        qelLogSimplify("rmrf", QEL_LOG_INFO,
                       ("busy-" + std::to_string(i)).c_str());
      }
    });
    for (int round = 0; round < 20; ++round) {
      qel::sleepMs(2);
      removeTree("logs");
    }
    stop = true;
    writer.join();
    removeTree("logs");
    qel::sleepMs(800);
    CHILD_CHECK(qelLogSimplify("rmrf", QEL_LOG_WARNING, "final") == 0);
    const auto files = logFiles("logs/a/b");
    CHILD_CHECK(files.size() == 1);
    CHILD_CHECK(readFile(files[0]).find("]final\n\n") != std::string::npos);
    return 0;
  });
  EXPECT_CHILD_OK(result);
}

// Descriptor 1 closed before the file writer opens: the console fails quietly,
// and the log file must not take descriptor 1, or the console lines would land
// in it as well.
TEST(FaultTest, ClosedStandardOutputLeavesTheFileWriterAlone) {
  auto result = runChild([] {
    close(STDOUT_FILENO);
    CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
    for (int i = 0; i < 50; ++i) {
      CHILD_CHECK(qelLogSimplify("closed", QEL_LOG_INFO,
                                 ("rec-" + std::to_string(i)).c_str()) == 0);
    }
    CHILD_CHECK(qelLogConfigFileWriter(false) == 0);
    const std::string logs = concatenatedLogs(".");
    for (int i = 0; i < 50; ++i) {
      CHILD_CHECK(countOf(logs, "]rec-" + std::to_string(i) + "\n") == 1);
    }
    return 0;
  });
  EXPECT_CHILD_OK(result);
}

namespace {

void logFromExitHandler() {
  qelLogSimplify("exit", QEL_LOG_ERROR, "from-atexit");
  qelLogConfigFileWriter(true);
  qelLogSetFileFolder("late");
  qelLogSetMaxSize(10);
  qelLogErrno("exit");
  const char done[] = "atexit-done\n";
  write(STDERR_FILENO, done, sizeof(done) - 1);
}

struct LogsWhenDestroyed {
  ~LogsWhenDestroyed() {
    qelLogWrite("exit", QEL_LOG_ERROR, __FILE__, __LINE__, __func__,
                "from-destructor");
    qelLogConfigConsoleWriter(true);
    qelLogSetGlobalLevel(QEL_LOG_VERBOSE);
    const char done[] = "destructor-done\n";
    write(STDERR_FILENO, done, sizeof(done) - 1);
  }
};

} // namespace

// A static object built and an atexit handler registered before the log manager
// exist: both run after the manager is destroyed at exit, and their log calls
// must be harmless.
TEST(FaultTest, LoggingAfterTheManagerIsGoneIsHarmless) {
  auto result = runChild([] {
    atexit(&logFromExitHandler);
    static LogsWhenDestroyed destroyedLast;
    CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
    CHILD_CHECK(qelLogSimplify("exit", QEL_LOG_INFO, "before-exit") == 0);
    return 0;
  });
  EXPECT_CHILD_OK(result);
  EXPECT_NE(std::string::npos, result.err.find("atexit-done"));
  EXPECT_NE(std::string::npos, result.err.find("destructor-done"));
  EXPECT_NE(std::string::npos, result.out.find("]before-exit\n"));
  EXPECT_NE(std::string::npos,
            concatenatedLogs(result.dir).find("]before-exit\n"));
  EXPECT_EQ(std::string::npos, result.out.find("from-"));
}
