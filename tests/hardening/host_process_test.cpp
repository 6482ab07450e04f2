// The library inside a host program that does what programs do: a reader of standard output
// that goes away, signal handlers that log, threads that go on calling while the process exits.

#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
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
