#include <signal.h>
#include <sys/resource.h>

#include <qel/error.h>

#include "hardening/stand_ins.h"

using namespace qeltest;

// A file size limit of the process stands for a full disk: a write stops part way and fails.
// Limit 0, console on and then off: the one file takes nothing, and no file is made per failed
// record. Limit 3000 under a size limit of 3500: a file ends with the record a failure cut and
// the next record starts a new file, so a file starts with the tail of a record only after one
// that holds exactly the limit. Then logging goes on. The signal of a write past the limit
// interrupts a record, and its handler logs: never a hang.
TEST(FaultTest, FullDiskNoDescriptorsAndRemovedFoldersCostOnlyTheRecordsThatMeetThem) {
    auto result = runChild([] {
        signal(SIGXFSZ, [](int) { qelLogSimplify("fsize", QEL_LOG_ERROR, "in-handler"); });
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0 && hardening::setSoftLimit(RLIMIT_FSIZE, 0));
        for (int i = 0; i < 400; ++i) {
            qelLogConfigConsoleWriter(i < 200);
            qelLogSimplify("fsize", QEL_LOG_INFO, ("zero-" + std::string(200, 'x')).c_str());
        }
        CHILD_CHECK(logFiles(".").size() == 1);
        CHILD_CHECK(hardening::setSoftLimit(RLIMIT_FSIZE, 3000) && qelLogSetMaxSize(3500) == 0);
        for (int i = 0; i < 300; ++i) {
            qelLogSimplify("fsize", QEL_LOG_INFO, ("small-" + std::string(200, 'x')).c_str());
        }
        CHILD_CHECK(hardening::setSoftLimit(RLIMIT_FSIZE, RLIM_INFINITY) &&
                    qelLogSimplify("fsize", QEL_LOG_INFO, "after") == 0);
        CHILD_CHECK(qelLogConfigFileWriter(false) == 0);
        const auto files = logFiles(".");
        CHILD_CHECK(files.size() > 3 && files.size() <= 40);
        for (size_t i = 1; i < files.size(); ++i) {
            CHILD_CHECK(readFile(files[i - 1]).size() == 3500 || readFile(files[i])[0] == '[');
        }
        CHILD_CHECK(readFile(files.back()).find("]after\n") != std::string::npos);
        // Descriptors used up: the file writer fails to switch on with the file error, the
        // console goes on, and the writer works once descriptors are free again.
        CHILD_CHECK(qelLogConfigConsoleWriter(true) == 0);
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0 && qelLogSetFileFolder("logs") == 0);
        CHILD_CHECK(qelLogConfigFileWriter(false) == 0);
        removeTree("logs");
        const size_t filesBefore = logFiles(".").size();
        struct rlimit saved;
        getrlimit(RLIMIT_NOFILE, &saved);
        const int lowestFree = dup(0);
        close(lowestFree);
        CHILD_CHECK(lowestFree >= 0 && hardening::setSoftLimit(RLIMIT_NOFILE, lowestFree));
        *ErrnoLocal() = 0;
        const int opened = qelLogConfigFileWriter(true);
        const int code = *ErrnoLocal();
        const int folderResult = qelLogSetFileFolder("logs");
        qelLogSimplify("nofile", QEL_LOG_INFO, "console-goes-on");
        CHILD_CHECK(setrlimit(RLIMIT_NOFILE, &saved) == 0);
        CHILD_CHECK(opened == -1 && code == static_cast<int>(0x80300002u) && folderResult == -1);
        CHILD_CHECK(logFiles(".").size() == filesBefore);
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
        CHILD_CHECK(qelLogSimplify("nofile", QEL_LOG_INFO, "file-works") == 0);
        CHILD_CHECK(concatenatedLogs(".").find("]file-works\n") != std::string::npos);
        // A folder that cannot be made: the writer stays on but silent, and what it cannot
        // write is dropped rather than kept.
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0 && qelLogSetFileFolder("logs/a/b") == 0);
        removeTree("logs");
        writeFile("logs", "a file where the folder should be");
        for (int i = 0; i < 2000; ++i) {  // five failed retries: the pause grows to 1.6 s
            if (i % 400 == 0) g_skippedSeconds += 20;
            qelLogSimplify("rmrf", QEL_LOG_INFO, ("blocked-" + std::to_string(i)).c_str());
        }
        removeTree("logs");
        g_skippedSeconds += 20;
        g_foldersToRemove = 2;  // the folder goes twice between mkdir and the file: made again
        CHILD_CHECK(qelLogSimplify("rmrf", QEL_LOG_WARNING, "back") == 0);
        const std::string after = concatenatedLogs("logs/a/b");
        CHILD_CHECK(countOf(after, "]back\n\n") == 1 && countOf(after, "blocked-") == 0);
        CHILD_CHECK(logFiles("logs/a/b").size() == 1);
        // An outage that ended is forgotten: the next one waits the first pause again.
        removeTree("logs");
        writeFile("logs", "a file where the folder should be");
        qelLogSimplify("rmrf", QEL_LOG_WARNING, "lost");
        removeTree("logs");
        ++g_skippedSeconds;
        qelLogSimplify("rmrf", QEL_LOG_WARNING, "back again");
        CHILD_CHECK(concatenatedLogs("logs/a/b").find("]back again\n\n") != std::string::npos);
        return 0;
    });
    EXPECT_CHILD_OK(result);
    EXPECT_NE(std::string::npos, result.out.find("]console-goes-on\n"));
    EXPECT_GT(20u, countOf(result.err, "mkdir error")) << "a retry per pause, not per record";
}

// Sudden death (SIGKILL) right after a call returned: every record is on disk, whatever its level
// and with the console writer off or on, since neither may be what pushes records out; so is
// the rest of a record split at the limit, and what is on disk ends at a record end. Descriptor 1
// is closed while the file opens (the file must not take it, or console lines would land in it),
// then a pipe whose reader has gone (`app | head -1`): console output fails quietly, never ending
// the host by SIGPIPE nor changing its SIGPIPE disposition or mask.
TEST(FaultTest, RecordsSurviveSigkillAndTheFileEndsAtARecordEnd) {
    const std::string big = "split" + std::string(2000, 'x');
    for (const bool console : {false, true}) {
        SCOPED_TRACE(console);
        auto result = runChild([console, &big] {
            int pipeEnds[2];
            CHILD_CHECK(pipe(pipeEnds) == 0 && close(STDOUT_FILENO) == 0);
            CHILD_CHECK(qelLogConfigConsoleWriter(console) == 0 && qelLogSetMaxSize(13000) == 0);
            CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
            CHILD_CHECK(dup2(pipeEnds[1], STDOUT_FILENO) == STDOUT_FILENO);
            CHILD_CHECK(close(pipeEnds[0]) == 0);
            for (int i = 0; i < 300; ++i) {  // 38 to 42 bytes each: all below the limit
                CHILD_CHECK(qelLogSimplify("crash", QEL_LOG_INFO, std::to_string(i).c_str()) == 0);
            }
            if (console) qelLogSimplify("crash", QEL_LOG_INFO, big.c_str());  // split at 13000
            struct sigaction action;
            sigset_t mask;
            sigaction(SIGPIPE, nullptr, &action);
            pthread_sigmask(SIG_SETMASK, nullptr, &mask);
            CHILD_CHECK(action.sa_handler == SIG_DFL && !sigismember(&mask, SIGPIPE));
            kill(getpid(), SIGKILL);
            return 1;
        });
        EXPECT_EQ(SIGKILL, result.signal) << result.err;
        const std::string logs = concatenatedLogs(result.dir);
        for (int i = 0; i < 300; ++i) {
            EXPECT_EQ(1u, countOf(logs, "]" + std::to_string(i) + "\n\n")) << i;
        }
        EXPECT_EQ(console ? 1u : 0u, countOf(logs, "]" + big + "\n\n"));
        EXPECT_EQ("\n\n", logs.substr(logs.size() - 2));
        EXPECT_EQ(console ? 2u : 1u, logFiles(result.dir).size());
    }
}
