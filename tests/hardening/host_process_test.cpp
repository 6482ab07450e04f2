#include <pthread.h>
#include <signal.h>
#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <set>
#include <thread>

#include <qel/error.h>
#include <qel/timeutils.h>

#include "hardening/stand_ins.h"

using namespace qeltest;

#ifdef QELLOG_PATH  // built with the tool, which reads the folder back
// fork() while three threads log and a fourth sets the size limit over and over: forks land
// inside dispatches. Five children log at once, each switching its file writer off and on
// around every record, so that all reach for the same names: a file holds one process's
// records. The program's fork handlers, registered before its first log call, log: never a
// hang. qellog cat joins each parent record split across the children's files: each once, whole.
TEST(HostProcessTest, ForkedChildrenLogAtOnceIntoFilesOfTheirOwn) {
    constexpr int kChildren = 5, kOpens = 30;
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
                    const int n = i * 3 + t;
                    t == 3 ? qelLogSetMaxSize(2000)
                           : qelLogSimplify("fork", QEL_LOG_INFO,
                                            (std::to_string(n) + std::string(n % 150, 'x')).data());
                }
            });
        }
        std::vector<pid_t> children;
        for (int c = 0; c < kChildren; ++c) {
            qel::sleepMs(5);
            if (const pid_t pid = fork()) {
                children.push_back(pid);
                continue;
            }
            alarm(20);  // ends it should it deadlock
            int failures = 0;
            for (int i = 0; i < kOpens; ++i) {
                const std::string text = "child-" + std::to_string(getpid()) + "-";
                qelLogSimplify("fork", QEL_LOG_INFO, (text + std::to_string(i)).c_str());
                qelLogConfigFileWriter(false);
                failures += qelLogConfigFileWriter(true) != 0;
            }
            _exit(failures + qelLogConfigFileWriter(false));
        }
        for (const pid_t pid : children) {
            int status = 0;
            CHILD_CHECK(waitpid(pid, &status, 0) == pid && status == 0);
        }
        stop = true;
        for (auto& thread : threads) thread.join();
        return qelLogConfigFileWriter(false);
    });
    EXPECT_CHILD_OK(result);
    for (const auto& path : logFiles(result.dir)) {
        const std::string bytes = readFile(path);
        EXPECT_TRUE(bytes.find("]child-") == std::string::npos || parseRecords(bytes).size() == 1);
    }
    const std::string dir = result.dir;
    const ChildResult cat =
        runChild([&dir] { return execl(QELLOG_PATH, "qellog", "cat", dir.c_str(), nullptr); });
    std::set<std::string> seen;
    std::set<long> numbers;
    int childRecords = 0;
    for (const Record& record : parseRecords(cat.out)) {
        EXPECT_TRUE(seen.insert(record.text).second) << record.text;
        if (record.text.compare(0, 6, "child-") == 0) {
            ++childRecords;
            EXPECT_EQ(0u, record.text.find("child-" + std::to_string(record.tid) + "-"));
        } else if (isdigit(record.text[0])) {
            const long n = *numbers.insert(std::stol(record.text)).first;
            EXPECT_EQ(std::to_string(n) + std::string(n % 150, 'x'), record.text);
        }
    }
    for (const long n : numbers) EXPECT_TRUE(n < 3 || numbers.count(n - 3) == 1) << n;
    EXPECT_EQ(kChildren * kOpens, childRecords);
}
#endif

// Threads call every entry point while main returns: no call crashes, whatever moment exit
// reaches; calls after exit has begun (from an exit handler that runs after the library's) give
// the results log.h promises and change nothing.
TEST(HostProcessTest, EntryPointsDuringAndAfterExit) {
    for (int run = 0; run < 10; ++run) {
        auto result = runChild([] {
            atexit([] {  // registered before the manager exists: runs after its exit close
                if (qelLogSetModuleLevel(QEL_MODULE_LOG, QEL_LOG_INFO) != -1 ||
                    qelLogSetGlobalLevel(QEL_LOG_VERBOSE) != -1 || qelLogSetMaxSize(1) != -1 ||
                    qelLogConfigFileWriter(true) != -1 || qelLogConfigConsoleWriter(true) != -1 ||
                    qelLogSetFileFolder("late") != -1 || *ErrnoLocal() != 0 ||
                    qelLogSimplify("exit", QEL_LOG_ERROR, "late") != 0 ||
                    qelLogWrite("exit", QEL_LOG_ERROR, "f", 1, "g", "late") != 0 ||
                    qelLogGetGlobalLevel() != QEL_LOG_WARNING) {
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
                        if (t == 0 && i % 50 == 0) qelLogSetFileFolder("a");
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

// Locks of the host are none of the library's business, and a log call never waits for one:
// - a thread waits in fgets() on a pipe that never gets input (it holds that stream's lock),
//   and a thread that holds flockfile() on a stream of its own logs, while others log with the
//   console writer on (a flush of all streams per record would wait for ever in the first
//   case and deadlock with the holder, which waits for the library's lock, in the second);
// - a handler that logs interrupts, over and over, a thread inside the C library's conversion
//   to local time, which holds that library's time-zone lock.
// The watchdog bounds the wait.
TEST(HostProcessTest, LogCallsNeverWaitForTheHostsStreamsOrItsTimeZoneLock) {
    auto result = runChild([] {
        alarm(20);
        int silent[2];
        FILE* own = fopen("own.txt", "w");
        CHILD_CHECK(pipe(silent) == 0 && own != nullptr && qelLogConfigFileWriter(true) == 0);
        std::thread([input = silent[0]] {
            char line[16];
            fgets(line, sizeof(line), fdopen(input, "r"));  // never returns: nobody writes
        }).detach();
        std::atomic<bool> stop{false};
        std::thread holder([own, &stop] {
            for (; !stop; funlockfile(own)) {
                flockfile(own);
                qelLogSimplify("host", QEL_LOG_INFO, "holding");
            }
        });
        qel::sleepMs(50);  // fgets is waiting
        for (int i = 0; i < 2000; ++i) qelLogSimplify("host", QEL_LOG_INFO, "goes on");
        stop = true;
        holder.join();
        setenv("TZ", "Europe/Berlin", 1);
        signal(SIGPROF, [](int) { qelLogSimplify("handler", QEL_LOG_INFO, "tick"); });
        const itimerval often = {{0, 100}, {0, 100}}, off = {};
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0);
        CHILD_CHECK(setitimer(ITIMER_PROF, &often, nullptr) == 0);
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(3);
        for (time_t t = 0; std::chrono::steady_clock::now() < end; t += 3607) {
            struct tm local;
            localtime_r(&t, &local);
            tzset();
        }
        return setitimer(ITIMER_PROF, &off, nullptr);
    });
    EXPECT_CHILD_OK(result);
    const std::string logs = concatenatedLogs(result.dir);
    EXPECT_EQ(2000u, countOf(logs, "]goes on\n\n"));
    EXPECT_LT(100u, countOf(logs, "]tick\n\n"));
}
