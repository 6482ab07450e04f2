#ifndef QEL_TESTS_SUPPORT_TEST_SUPPORT_H_
#define QEL_TESTS_SUPPORT_TEST_SUPPORT_H_

// What every test executable shares: temporary folders, scenarios in forked children (the log
// manager is one per process, so a scenario that needs a fresh one runs in a child), the record
// parser for console and file output, and small file and text helpers.

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <qel/version.h>

namespace qeltest {

#define QELTEST_STR2(x) #x
#define QELTEST_STR(x) QELTEST_STR2(x)
// "1.8.63": the library's version as every log line carries it, taken from the public header.
#define QELTEST_VERSION \
    QELTEST_STR(QEL_VERSION_MAJOR) "." QELTEST_STR(QEL_VERSION_MINOR) "." QELTEST_STR(QEL_VERSION_PATCH)

// A new folder under /tmp, removed with everything below it when the object goes.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return m_path; }
    // `name` inside the folder.
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

struct ChildResult {
    bool finished = false;  // false: the watchdog killed a child that hung
    int exitCode = -1;      // exit status, or -1 when killed by a signal
    int signal = 0;         // the signal that ended the child, if any
    std::string out;        // everything the child wrote to standard output
    std::string err;        // everything the child wrote to standard error
    std::string dir;        // the child's working directory, removed with the last copy
    int pid = 0;            // the child's process id (the id of its main thread)
    std::shared_ptr<TempDir> folder;
};

// Forks; the child changes into a new temporary folder, redirects its standard output and error
// into files there, runs `body` and exits with its result (through exit(), so exit-time
// destructors run). The parent waits at most `timeoutSeconds`, then kills it.
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
// Replaces the content of `path` with `bytes`.
void writeFile(const std::string& path, const std::string& bytes);
// Removes `path` and everything below it, symbolic links not followed. Quiet on failure.
void removeTree(const std::string& path);
// The number of times `needle` occurs in `text`.
size_t countOf(const std::string& text, const std::string& needle);

// The log files (QelLog<time>.log) in `dir`, as full paths, in the order of the time in
// their names.
std::vector<std::string> logFiles(const std::string& dir);
// The log files of `dir` concatenated in creation order.
std::string concatenatedLogs(const std::string& dir);

}  // namespace qeltest

// Inside a child body: on failure, report the condition on standard error and end the body.
#define CHILD_CHECK(condition)                                                              \
    do {                                                                                    \
        if (!(condition)) {                                                                 \
            fprintf(stderr, "check failed at %s:%d: %s\n", __FILE__, __LINE__, #condition); \
            return 1;                                                                       \
        }                                                                                   \
    } while (0)

// In the parent: the child ran to its end and every CHILD_CHECK held.
#define EXPECT_CHILD_OK(result)                                                  \
    do {                                                                         \
        EXPECT_TRUE((result).finished) << "child hung and was killed";          \
        EXPECT_EQ(0, (result).exitCode) << "signal " << (result).signal << "\n" \
                                        << (result).err;                        \
    } while (0)

#endif  // QEL_TESTS_SUPPORT_TEST_SUPPORT_H_
