// The library inside a host program that does what programs do: forks while threads log, fork
// handlers and signal handlers that log, a reader of standard output that goes away, threads that
// go on calling while the process exits, a second process logging into the same folder. Every
// scenario runs in a child with a watchdog: a hang fails the test instead of stalling the suite.

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <qel/log.h>
#include <qel/timeutils.h>

#include "support/test_support.h"

using namespace qeltest;

namespace {

std::atomic<int> g_handled{0};

// Polls `done` for up to ten seconds; a hang in the library shows as false, not as a stall.
template <class Done>
bool waitFor(Done done) {
    for (int i = 0; i < 10000 && !done(); ++i) {
        qel::sleepMs(1);
    }
    return done();
}

// True while thread `tid` of this process sleeps in the kernel (here: a write into a full pipe).
// Read without a stream: the blocked console flush holds the lock of the list of all streams.
bool sleeping(long tid) {
    char stat[512] = {0};
    const int fd = open(("/proc/self/task/" + std::to_string(tid) + "/stat").c_str(), O_RDONLY);
    const ssize_t got = fd >= 0 ? read(fd, stat, sizeof(stat) - 1) : -1;
    close(fd);
    const char* end = got > 0 ? strrchr(stat, ')') : nullptr;
    return end != nullptr && end[2] == 'S';
}

}  // namespace


// fork() while three threads log without pause and a fourth changes the size limit, so that
// forks land in the middle of dispatches: the child gets copies of the logging locks, held by
// threads that do not exist there. Each of five children must log at once without deadlock,
// into a file of its own, under its own thread id; no record of the parent reaches a file twice.
// The program's own fork handlers, registered before its first log call, log too: their records
// are written or dropped, never waited for.
TEST(HostProcessTest, ForkedChildLogsAtOnceIntoAFileOfItsOwn) {
    auto result = runChild([] {
        pthread_atfork([] { qelLogSimplify("fork", QEL_LOG_ERROR, "Prepare"); },
                       [] { qelLogSimplify("fork", QEL_LOG_INFO, "Parent"); },
                       [] { qelLogSimplify("fork", QEL_LOG_INFO, "Child"); });
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0 && qelLogConfigFileWriter(true) == 0);
        std::atomic<bool> stop{false};
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([t, &stop] {
                for (int i = 0; !stop; ++i) {
                    if (t == 3) {
                        qelLogSetMaxSize(100000000 + i % 1000);  // no split records
                    } else {
                        qelLogSimplify("fork", QEL_LOG_INFO, std::to_string(i * 3 + t).c_str());
                    }
                }
            });
        }
        for (int c = 0; c < 5; ++c) {
            qel::sleepMs(5);
            const pid_t pid = fork();
            if (pid == 0) {
                alarm(20);  // ends it should it deadlock
                qelLogSimplify("fork", QEL_LOG_INFO, ("child-" + std::to_string(getpid())).c_str());
                _exit(qelLogConfigFileWriter(false));
            }
            int status = 0;
            CHILD_CHECK(waitpid(pid, &status, 0) == pid && WIFEXITED(status) && !WEXITSTATUS(status));
        }
        stop = true;
        for (auto& thread : threads) {
            thread.join();
        }
        return qelLogConfigFileWriter(false);
    });
    EXPECT_CHILD_OK(result);
    std::set<std::string> seen;
    for (const auto& path : logFiles(result.dir)) {
        const auto records = parseRecords(readFile(path));
        for (const Record& record : records) {
            EXPECT_TRUE(seen.insert(record.text).second) << record.text;
            if (record.text.compare(0, 6, "child-") == 0) {
                EXPECT_EQ("child-" + std::to_string(record.tid), record.text);
                EXPECT_EQ(1u, records.size());
            }
        }
    }
    EXPECT_EQ(5, std::count_if(seen.begin(), seen.end(),
                               [](const std::string& text) { return text[0] == 'c'; }));
}

// Two processes open and close their file writers in the same folder as fast as they can, one
// record per file, so that both keep reaching for the same names. Each file must hold exactly
// one whole record, and every record of both must be there once.
TEST(HostProcessTest, TwoProcessesNeverWriteIntoOneFile) {
    constexpr int kOpens = 150;
    auto result = runChild([] {
        pid_t children[2];
        for (int process = 0; process < 2; ++process) {
            if ((children[process] = fork()) == 0) {
                alarm(60);  // ends it should it hang
                qelLogConfigConsoleWriter(false);
                int failures = 0;
                for (int i = 0; i < kOpens; ++i) {
                    failures += qelLogConfigFileWriter(true) != 0;
                    qelLogSimplify("share", QEL_LOG_INFO, std::to_string(i * 2 + process).c_str());
                    qelLogConfigFileWriter(false);
                }
                _exit(failures);
            }
        }
        for (const pid_t pid : children) {
            int status = 0;
            CHILD_CHECK(waitpid(pid, &status, 0) == pid && WIFEXITED(status) && !WEXITSTATUS(status));
        }
        return 0;
    });
    EXPECT_CHILD_OK(result);
    const auto files = logFiles(result.dir);
    ASSERT_EQ(2u * kOpens, files.size());
    std::set<std::string> texts;
    for (const auto& path : files) {
        const auto records = parseRecords(readFile(path));
        ASSERT_EQ(1u, records.size()) << path;
        texts.insert(records[0].text);
    }
    EXPECT_EQ(2u * kOpens, texts.size());
}

// Standard output is a pipe that nobody reads: a record blocks in the console write, and a signal
// handler on that thread logs (its record is dropped, not waited for). Then the reader goes away:
// the blocked write and all later console output fail quietly, without SIGPIPE ending the host;
// the log file gets every record, and the host's disposition and mask of SIGPIPE stay its own.
TEST(HostProcessTest, ConsolePipeFaultsNeverStopTheHost) {
    auto result = runChild([] {
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
        int console[2];
        CHILD_CHECK(pipe(console) == 0 && fcntl(console[1], F_SETPIPE_SZ, 4096) == 4096);
        dup2(console[1], STDOUT_FILENO);
        close(console[1]);
        signal(SIGUSR1, [](int) {
            qelLogSimplify("pipe", QEL_LOG_ERROR, "from-handler");
            ++g_handled;
        });
        std::atomic<long> tid{0};
        std::thread blocked([&tid] {
            tid = syscall(SYS_gettid);
            for (int i = 0; i < 100; ++i) {  // 8 KB of console lines: more than the pipe takes
                qelLogSimplify("pipe", QEL_LOG_INFO, ("b-" + std::string(40, 'x')).c_str());
            }
        });
        CHILD_CHECK(waitFor([&tid] { return tid != 0 && sleeping(tid); }));
        pthread_kill(blocked.native_handle(), SIGUSR1);
        CHILD_CHECK(waitFor([] { return g_handled == 1; }));
        close(console[0]);  // the reader goes: the blocked write fails
        blocked.join();
        for (int i = 0; i < 100; ++i) {
            CHILD_CHECK(qelLogSimplify("pipe", QEL_LOG_INFO, "after-reader") == 0);
        }
        struct sigaction action;
        sigset_t mask;
        sigaction(SIGPIPE, nullptr, &action);
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        CHILD_CHECK(action.sa_handler == SIG_DFL && !sigismember(&mask, SIGPIPE));
        return qelLogConfigFileWriter(false);
    });
    EXPECT_CHILD_OK(result);
    const std::string logs = concatenatedLogs(result.dir);
    EXPECT_EQ(100u, countOf(logs, "]b-x"));
    EXPECT_EQ(100u, countOf(logs, "]after-reader\n"));
}

// Threads call every entry point while main returns. Whatever moment exit reaches, no call
// crashes; calls made after exit has begun (from an exit handler that runs after the library
// has closed its writers) give the results log.h promises and change nothing.
TEST(HostProcessTest, EntryPointsDuringAndAfterExit) {
    for (int run = 0; run < 10; ++run) {
        auto result = runChild([] {
            atexit([] {  // registered before the manager exists: runs after its exit close
                const bool refused =
                    qelLogSetModuleLevel(QEL_MODULE_LOG, QEL_LOG_INFO) == -1 &&
                    qelLogSetGlobalLevel(QEL_LOG_VERBOSE) == -1 && qelLogSetMaxSize(1) == -1 &&
                    qelLogConfigFileWriter(true) == -1 && qelLogConfigConsoleWriter(true) == -1 &&
                    qelLogSetFileFolder("late") == -1;
                const bool dropped = qelLogSimplify("exit", QEL_LOG_ERROR, "late") == 0 &&
                                     qelLogWrite("exit", QEL_LOG_ERROR, "f", 1, "g", "late") == 0;
                if (!refused || !dropped || qelLogGetGlobalLevel() != QEL_LOG_WARNING) {
                    _exit(3);
                }
            });
            CHILD_CHECK(qelLogSetGlobalLevel(QEL_LOG_WARNING) == 0);
            for (int t = 0; t < 4; ++t) {
                std::thread([t] {
                    for (unsigned int i = 0;; ++i) {
                        qelLogSimplify("exit", QEL_LOG_ERROR, "busy");
                        qelLogSetMaxSize(100000 + i % 7);
                        qelLogConfigFileWriter(i % 3 != 0);
                        qelLogConfigConsoleWriter(i % 2 != 0);
                        qelLogSetGlobalLevel(QEL_LOG_WARNING);
                        if (t == 0 && i % 50 == 0) {
                            qelLogSetFileFolder(i % 100 == 0 ? "a" : "b");
                        }
                    }
                }).detach();
            }
            qel::sleepMs(20);
            return 0;
        });
        EXPECT_CHILD_OK(result);
        EXPECT_EQ(std::string::npos, concatenatedLogs(result.dir).find("late"));
    }
}
