#ifndef QEL_TESTS_SUPPORT_TEST_SUPPORT_H_
#define QEL_TESTS_SUPPORT_TEST_SUPPORT_H_

// What the test executables share: temporary folders, scenarios in forked children (the log
// manager is one per process), the record parser, small file and text helpers.

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <qel/version.h>

#define QELTEST_STR2(x) #x
#define QELTEST_STR(x) QELTEST_STR2(x)
// The library's version as every log line carries it ("1.8.63"), from the public header.
#define QELTEST_VERSION                                      \
    QELTEST_STR(QEL_VERSION_MAJOR) "." QELTEST_STR(QEL_VERSION_MINOR) "." \
        QELTEST_STR(QEL_VERSION_PATCH)

namespace qeltest {

// The wall clock that gettimeofday() gives this process (and the library in it), in
// microseconds since the epoch: -1, the default, gives the real one.
extern long long g_wallMicros;

// A new folder under /tmp, removed with everything below it when the object goes.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    const std::string& path() const { return m_path; }
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

struct ChildResult {
    bool finished = false;  // false: the child hung and was killed after its time
    int exitCode = -1;      // exit status, or -1 when ended by a signal
    int signal = 0;         // the signal that ended the child, if any
    std::string out, err;   // what the child wrote to standard output and error
    std::string dir;        // the child's working directory, removed with the last copy
    int pid = 0;            // the child's process id (the id of its main thread)
    std::shared_ptr<TempDir> folder;
};

// Forks; the child changes into a new temporary folder, sends its standard output and error
// to files there, runs `body` and exits with its result through exit(), so exit-time
// destructors run. A child still running after `timeoutSeconds` is killed.
ChildResult runChild(const std::function<int()>& body, int timeoutSeconds = 60);

// One log line taken apart: "[module][V1.8.63 level time tid]text" and an empty line.
struct Record {
    std::string module, level, time, text;
    long tid;
};
// Splits output into records of one-line texts; anything else is a test failure.
std::vector<Record> parseRecords(const std::string& output);
// The records of `output` as "module level text", each followed by '|', so that a whole output
// is one expectation.
std::string summary(const std::string& output);
std::string readFile(const std::string& path);  // empty when it cannot be read
void writeFile(const std::string& path, const std::string& bytes);
void removeTree(const std::string& path);  // symbolic links not followed; quiet on failure
size_t countOf(const std::string& text, const std::string& needle);
// The log files (QelLog<time>.log) of `dir` as full paths, in the order of their times.
std::vector<std::string> logFiles(const std::string& dir);
std::string concatenatedLogs(const std::string& dir);  // the log files in that order

}  // namespace qeltest

// Inside a child body: on failure, report the condition on standard error and end the body.
#define CHILD_CHECK(condition)                                                                  \
    do {                                                                                        \
        if (!(condition)) {                                                                     \
            fprintf(stderr, "check failed at %s:%d: %s\n", __FILE__, __LINE__, #condition); \
            return 1;                                                                   \
        }                                                                                       \
    } while (0)

// In the parent: the child ran to its end and every CHILD_CHECK held.
#define EXPECT_CHILD_OK(result)                                                                   \
    do {                                                                                          \
        EXPECT_TRUE((result).finished) << "child hung and was killed";                           \
        EXPECT_EQ(0, (result).exitCode) << "signal " << (result).signal << "\n" << (result).err; \
    } while (0)

#endif  // QEL_TESTS_SUPPORT_TEST_SUPPORT_H_
