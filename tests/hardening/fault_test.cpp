// Faults of the disk and of the process while logging. Every scenario runs in a child with a
// watchdog: a hang fails the test instead of stalling the suite.

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <qel/error.h>
#include <qel/log.h>
#include <qel/timeutils.h>

#include "support/test_support.h"

using namespace qeltest;

static bool setSoftLimit(int resource, rlim_t value) {
    struct rlimit limit;
    getrlimit(resource, &limit);
    limit.rlim_cur = value;
    return setrlimit(resource, &limit) == 0;
}

// A file size limit of the process: a buffered stream reports the failure only when its buffer
// is pushed out, records later, and the console writer's flush of all streams can be the one
// that meets it. Neither way may make a new file per failed record. Once the limit is raised
// the writer goes on, each new file taking as many bytes as the limit lets it. Standard output
// goes into a pipe, which the limit does not touch, so that the console can be checked.
TEST(FaultTest, FileSizeLimitMakesNoFilesInALoop) {
    auto result = runChild([] {
        signal(SIGXFSZ, SIG_IGN);
        int console[2];
        CHILD_CHECK(pipe(console) == 0 && fcntl(console[1], F_SETPIPE_SZ, 1 << 20) > 0);
        dup2(console[1], STDOUT_FILENO);
        close(console[1]);
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
        int failedCalls = 0;
        // Limit 0: no file can take a byte; first with the console writer on, then off.
        CHILD_CHECK(setSoftLimit(RLIMIT_FSIZE, 0));
        for (int i = 0; i < 400; ++i) {
            if (i == 200) {
                qelLogConfigConsoleWriter(false);
            }
            const std::string text = "zero-" + std::to_string(i) + std::string(200, 'x');
            failedCalls += qelLogSimplify("fsize", QEL_LOG_INFO, text.c_str()) != 0;
        }
        CHILD_CHECK(logFiles(".").size() == 1);
        // Limit 3000: every file takes up to 3000 bytes, then the writer moves on.
        CHILD_CHECK(setSoftLimit(RLIMIT_FSIZE, 3000));
        for (int i = 0; i < 300; ++i) {
            const std::string text = "small-" + std::to_string(i) + std::string(200, 'x');
            failedCalls += qelLogSimplify("fsize", QEL_LOG_INFO, text.c_str()) != 0;
        }
        CHILD_CHECK(setSoftLimit(RLIMIT_FSIZE, RLIM_INFINITY));
        qelLogConfigConsoleWriter(true);
        CHILD_CHECK(qelLogSimplify("fsize", QEL_LOG_INFO, "after") == 0);
        close(STDOUT_FILENO);  // the last writer: reading the pipe now ends at its end
        const std::string printed = readFile("/proc/self/fd/" + std::to_string(console[0]));
        CHILD_CHECK(failedCalls == 0);
        const auto files = logFiles(".");
        CHILD_CHECK(files.size() <= 40);  // about 75 KB in files of at most 3000 bytes each
        for (size_t i = 0; i + 1 < files.size(); ++i) {
            CHILD_CHECK(!readFile(files[i]).empty());  // no file made and left empty
        }
        CHILD_CHECK(countOf(printed, "]zero-") == 200 && countOf(printed, "]small-") == 0);
        CHILD_CHECK(countOf(printed, "]after\n") == 1);
        CHILD_CHECK(qelLogConfigFileWriter(false) == 0);
        CHILD_CHECK(concatenatedLogs(".").find("]after\n") != std::string::npos);
        return 0;
    });
    EXPECT_CHILD_OK(result);
}

// Descriptors exhausted: switching the file writer on fails with the file error, the console
// goes on, and the writer works once descriptors are free again.
TEST(FaultTest, DescriptorsExhaustedFailsTheFileWriterOnly) {
    auto result = runChild([] {
        // Once through the same calls with descriptors to spare: the undefined-behaviour
        // sanitizer checks a type the first time it sees it, and needs a descriptor to do so.
        CHILD_CHECK(qelLogSimplify("nofile", QEL_LOG_INFO, "before") == 0);
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
        CHILD_CHECK(qelLogSetFileFolder("logs") == 0);
        CHILD_CHECK(qelLogConfigFileWriter(false) == 0);
        removeTree("logs");
        const size_t filesBefore = logFiles(".").size();
        struct rlimit saved;
        getrlimit(RLIMIT_NOFILE, &saved);
        const int lowestFree = dup(0);
        close(lowestFree);
        CHILD_CHECK(lowestFree >= 0 && setSoftLimit(RLIMIT_NOFILE, lowestFree));
        *ErrnoLocal() = 0;
        const int opened = qelLogConfigFileWriter(true);
        const int code = *ErrnoLocal();
        const int folderResult = qelLogSetFileFolder("logs");
        const int consoleResult = qelLogSimplify("nofile", QEL_LOG_INFO, "console-goes-on");
        CHILD_CHECK(setrlimit(RLIMIT_NOFILE, &saved) == 0);
        CHILD_CHECK(opened == -1 && code == static_cast<int>(0x80300002u));
        CHILD_CHECK(folderResult == -1 && consoleResult == 0);
        CHILD_CHECK(logFiles(".").size() == filesBefore);
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
        CHILD_CHECK(qelLogSimplify("nofile", QEL_LOG_INFO, "file-works") == 0);
        return qelLogConfigFileWriter(false);
    });
    EXPECT_CHILD_OK(result);
    EXPECT_NE(std::string::npos, result.out.find("]console-goes-on\n"));
    EXPECT_NE(std::string::npos, concatenatedLogs(result.dir).find("]file-works\n"));
}

// The log folder removed (rm -rf) again and again while another thread logs: nothing crashes or
// hangs, and a later record re-creates the folder and goes into a new file. A removal can also
// strike between the creation of the folder and of the file; the writer then drops records for
// a pause before it tries again, hence the wait.
TEST(FaultTest, RemovedLogFolderIsRecreated) {
    auto result = runChild([] {
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0);
        CHILD_CHECK(qelLogSetFileFolder("logs/a/b") == 0);
        std::atomic<bool> stop{false};
        std::thread writer([&stop] {
            for (int i = 0; !stop; ++i) {
                qelLogSimplify("rmrf", QEL_LOG_INFO, ("busy-" + std::to_string(i)).c_str());
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
        CHILD_CHECK(logFiles("logs/a/b").size() == 1);
        CHILD_CHECK(concatenatedLogs("logs/a/b").find("]final\n\n") != std::string::npos);
        return 0;
    });
    EXPECT_CHILD_OK(result);
}

// Records a process finished logging survive its sudden death (SIGKILL). With the console writer
// on, every record is followed by a flush of all streams, the log file's included. With it off, a
// warning or an error reaches the system before its call returns, and with it every record before
// it (these small records would otherwise still sit in the stream's buffer); what follows may be
// lost. Descriptor 1 is closed before the file writer opens: the console fails quietly, and the
// log file must not take descriptor 1, or the console lines would land in it as well.
TEST(FaultTest, RecordsSurviveSigkillWithStandardOutputClosed) {
    for (int level = QEL_LOG_INFO; level <= QEL_LOG_ERROR; ++level) {  // console on for info
        SCOPED_TRACE(level);
        auto result = runChild([level] {
            close(STDOUT_FILENO);
            CHILD_CHECK(qelLogConfigConsoleWriter(level == QEL_LOG_INFO) == 0);
            CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
            for (int i = 0; i < 50; ++i) {
                CHILD_CHECK(qelLogSimplify("crash", QEL_LOG_INFO, std::to_string(i).c_str()) == 0);
            }
            qelLogSimplify("crash", static_cast<QelLogLevel>(level), "last");
            qelLogSimplify("crash", QEL_LOG_INFO, "after");
            kill(getpid(), SIGKILL);
            return 1;
        });
        EXPECT_EQ(SIGKILL, result.signal) << result.err;
        const std::string logs = concatenatedLogs(result.dir);
        for (int i = 0; i < 50; ++i) {
            EXPECT_EQ(1u, countOf(logs, "]" + std::to_string(i) + "\n")) << i;
        }
        EXPECT_EQ(1u, countOf(logs, "]last\n"));
        EXPECT_TRUE(level != QEL_LOG_INFO || countOf(logs, "]after\n") == 1);
    }
}
