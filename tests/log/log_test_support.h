#ifndef QEL_TESTS_LOG_LOG_TEST_SUPPORT_H_
#define QEL_TESTS_LOG_LOG_TEST_SUPPORT_H_

// Runs scenarios that need a fresh log manager: the manager is one per process, so each
// scenario runs in a forked child, in a new temporary working directory, with its standard
// output and standard error captured in files. The parent reads them and the log files.

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace qeltest {

struct ChildResult {
    bool finished = false;  // false: the watchdog killed a child that hung
    int exitCode = -1;      // exit status, or -1 when killed by a signal
    int signal = 0;         // the signal that ended the child, if any
    std::string out;        // everything the child wrote to standard output
    std::string err;        // everything the child wrote to standard error
    std::string dir;        // the child's working directory, left for inspection
    int pid = 0;            // the child's process id (the id of its main thread)
    std::shared_ptr<void> removeDir;  // removes `dir` when the last copy of the result goes
};

// Forks; the child changes into a new temporary directory, redirects its standard output
// and error into files there, runs `body` and exits with its result (through exit(), so
// exit-time destructors run). The parent waits at most `timeoutSeconds`, then kills it.
ChildResult runChild(const std::function<int()>& body, int timeoutSeconds = 60);

// One log line taken apart: "[module][V1.8.63 level time tid]text" and an empty line.
struct Record {
    std::string module, level, time, text;
    long tid;
};

// Splits console or file output into records of one-line texts; adds a test failure for
// anything that is not one.
std::vector<Record> parseRecords(const std::string& output);

// Reads a whole file; empty when it cannot be read.
std::string readFile(const std::string& path);

// The log files (QelLog<time>.log) in `dir`, as full paths, in the order of the time in
// their names.
std::vector<std::string> logFiles(const std::string& dir);

// The log files of `dir` concatenated in creation order.
std::string concatenatedLogs(const std::string& dir);

}  // namespace qeltest

// Inside a child body: on failure, report the condition on standard error and end the body.
#define CHILD_CHECK(condition)                                                           \
    do {                                                                                 \
        if (!(condition)) {                                                              \
            fprintf(stderr, "check failed at %s:%d: %s\n", __FILE__, __LINE__, #condition); \
            return 1;                                                                    \
        }                                                                                \
    } while (0)

// In the parent: the child ran to its end and every CHILD_CHECK held.
#define EXPECT_CHILD_OK(result)                                                      \
    do {                                                                             \
        EXPECT_TRUE((result).finished) << "child hung and was killed";              \
        EXPECT_EQ(0, (result).exitCode) << "signal " << (result).signal << "\n"     \
                                        << (result).err;                            \
    } while (0)

#endif  // QEL_TESTS_LOG_LOG_TEST_SUPPORT_H_
