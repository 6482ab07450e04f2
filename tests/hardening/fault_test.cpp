// Faults of the disk, the file system and the host process while logging, each scenario in a child
// with a watchdog: a hang fails the test instead of stalling the suite.

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <qel/error.h>
#include <qel/log.h>
#include <qel/timeutils.h>

#include "support/test_support.h"

using namespace qeltest;

// Stand-ins for the C library's, for the scenarios to steer: the names in g_looksFree look free
// to the check before a creation; mkdir removes the folder it made (what goes in it then misses
// it); the monotonic clock skips ahead.
static const std::set<std::string>* g_looksFree = nullptr;
static int g_foldersToRemove = 0;
static long g_skippedSeconds = 0;

extern "C" int lstat64(const char* path, struct stat64* status) {
    if (g_looksFree != nullptr && g_looksFree->count(path) > 0) return errno = ENOENT, -1;
    return static_cast<int>(syscall(SYS_newfstatat, AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW));
}

extern "C" int mkdir(const char* path, mode_t mode) {
    const int result = static_cast<int>(syscall(SYS_mkdir, path, mode));
    if (result == 0 && g_foldersToRemove > 0) {
        --g_foldersToRemove;
        rmdir(path);
    }
    return result;
}

extern "C" int clock_gettime(clockid_t clock, struct timespec* now) {
    const int result = static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    if (clock == CLOCK_MONOTONIC) now->tv_sec += g_skippedSeconds;
    return result;
}

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;  // their allocators keep freed memory: no measure of growth
#else
constexpr bool kSanitized = false;
#endif
constexpr long kDefaultRecords = kSanitized ? 20000 : 200000;
constexpr int kThreads = 8;
constexpr long kWarmUpRecords = 10000;
const char* const kFolders[] = {"a", "b"};

// Logs numbered records from kThreads threads, thread t from `next[t]` on, `count` each and more
// until this thread has moved the writer `moves` times. Returns where each thread stopped.
std::vector<long> runThreads(std::vector<long> next, long count, int moves) {
    std::atomic<bool> moving{true};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, count, &moving, &next] {
            for (const long end = next[t] + count; next[t] < end || moving; ++next[t]) {
                const std::string text = "t" + std::to_string(t) + " n" + std::to_string(next[t]);
                qelLogSimplify("soak", QEL_LOG_INFO, text.c_str());
            }
        });
    }
    for (int move = 0; move < moves; ++move) qelLogSetFileFolder(kFolders[move % 2]);
    moving = false;
    for (auto& thread : threads) thread.join();
    return next;
}

long residentBytes() {
    long pages = 0, resident = 0;
    return std::ifstream("/proc/self/statm") >> pages >> resident ? resident * 4096 : 0;
}

long openDescriptors() {  // the listing's own descriptor included
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// Each folder's files read in creation order as one text (a line cut at a file's end goes on in
// the next file): the records missing, or -1 at anything but whole records in each thread's order.
long missingRecords(const std::vector<long>& logged) {
    long seen = 0;
    for (const char* folder : kFolders) {
        std::vector<long> next(kThreads, 0);
        std::istringstream lines(concatenatedLogs(folder));
        for (std::string line; std::getline(lines, line);) {
            if (line.empty()) continue;
            int t = -1, length = 0;
            long n = -1;
            sscanf(line.c_str(), "[soak][V%*[0-9.] I %*[0-9:] %*d]t%d n%ld%n", &t, &n, &length);
            if (length != static_cast<int>(line.size()) || t < 0 || t >= kThreads || n < next[t]) {
                return -1;
            }
            next[t] = n + 1;
            ++seen;
        }
    }
    return std::accumulate(logged.begin(), logged.end(), 0L) - seen;
}

bool setSoftLimit(int resource, rlim_t value) {
    struct rlimit limit;
    getrlimit(resource, &limit);
    limit.rlim_cur = value;
    return setrlimit(resource, &limit) == 0;
}

}  // namespace

// Names of the coming 1.5 seconds are taken by a file of someone else, a symbolic link to one, and
// a link to nothing. The writer, rotating at a small limit meanwhile, skips every one: the victims
// keep their content, no link target comes into being, its own files hold every record in order.
TEST(FileCreationTest, PlantedFilesAndLinksAreNeverFollowedOrEmptied) {
    auto result = runChild([] {
        umask(027);
        const std::string victim = std::filesystem::current_path() / "victim";
        std::ofstream(victim) << "victim";
        std::set<std::string> planted;
        for (int ms = 0; ms < 1500; ++ms) {  // the name of a file made `ms` from now
            const long long at = std::chrono::duration_cast<std::chrono::milliseconds>(
                std::chrono::system_clock::now().time_since_epoch()).count() + ms;
            const time_t seconds = static_cast<time_t>(at / 1000);
            tm t;
            char stamp[64];
            strftime(stamp, sizeof(stamp), "QelLog%Y-%m-%d-%H-%M-%S-", localtime_r(&seconds, &t));
            const std::string name = "./" + (stamp + std::to_string(at % 1000)) + ".log";
            const std::string target = ms % 3 == 1 ? victim : victim + std::to_string(ms);
            if (!planted.insert(name).second) continue;
            if (ms % 3 == 0) std::ofstream(name) << "planted";
            CHILD_CHECK(ms % 3 == 0 || symlink(target.c_str(), name.c_str()) == 0);
        }
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0 && qelLogSetMaxSize(250) == 0);
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
        g_looksFree = &planted;  // as if each were taken between the check and the creation
        for (int i = 0; i < 150; ++i) {
            qelLogSimplify("plant", QEL_LOG_INFO, ("rec-" + std::to_string(i)).c_str());
        }
        g_looksFree = nullptr;
        CHILD_CHECK(qelLogConfigFileWriter(false) == 0);
        CHILD_CHECK(readFile(victim) == "victim");
        for (int ms = 0; ms < 1500; ++ms) {
            CHILD_CHECK(access((victim + std::to_string(ms)).c_str(), F_OK) != 0);
        }
        std::string own;
        int ownFiles = 0;
        for (const auto& path : logFiles(".")) {
            struct stat status;
            const bool regular = lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
            if (planted.count(path) != 0) {
                CHILD_CHECK(!regular || readFile(path) == "planted");
            } else {
                CHILD_CHECK(regular && (status.st_mode & 07777) == 0640);
                CHILD_CHECK(own.size() == 250u * ownFiles);  // the files before it are full
                own += readFile(path);
                ++ownFiles;
            }
        }
        CHILD_CHECK(ownFiles > 10);  // the writer went through many planted names
        size_t at = 0;
        for (int i = 0; i < 150; ++i) {  // every record once, in order
            const std::string record = "]rec-" + std::to_string(i) + "\n\n";
            CHILD_CHECK(countOf(own, record) == 1 && (at = own.find(record, at)) != own.npos);
        }
        return 0;
    });
    EXPECT_CHILD_OK(result);
}

// A file size limit of the process stands for a full disk: a write stops part way and fails.
// Limit 0, console on and then off: the one file takes nothing, and no file is made per failed
// record. Limit 3000 under a size limit of 3500: a file ends with the record a failure cut and
// the next record starts a new file, so a file starts with the tail of a record only after one
// that holds exactly the limit. Then logging goes on. The signal of a write past the limit
// interrupts a record, and its handler logs: never a hang.
TEST(FaultTest, FullDiskNoDescriptorsAndRemovedFoldersCostOnlyTheRecordsThatMeetThem) {
    auto result = runChild([] {
        signal(SIGXFSZ, [](int) { qelLogSimplify("fsize", QEL_LOG_ERROR, "in-handler"); });
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0 && setSoftLimit(RLIMIT_FSIZE, 0));
        for (int i = 0; i < 400; ++i) {
            qelLogConfigConsoleWriter(i < 200);
            qelLogSimplify("fsize", QEL_LOG_INFO, ("zero-" + std::string(200, 'x')).c_str());
        }
        CHILD_CHECK(logFiles(".").size() == 1);
        CHILD_CHECK(setSoftLimit(RLIMIT_FSIZE, 3000) && qelLogSetMaxSize(3500) == 0);
        for (int i = 0; i < 300; ++i) {
            qelLogSimplify("fsize", QEL_LOG_INFO, ("small-" + std::string(200, 'x')).c_str());
        }
        CHILD_CHECK(setSoftLimit(RLIMIT_FSIZE, RLIM_INFINITY) &&
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
        CHILD_CHECK(lowestFree >= 0 && setSoftLimit(RLIMIT_NOFILE, lowestFree));
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
        // write is dropped rather than kept without bound (at most one buffer of 8 KiB survives).
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
        CHILD_CHECK(after.find("]back\n\n") != std::string::npos && after.size() < 8192 + 100);
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

// Sudden death (SIGKILL): with the console writer on every record has reached the file; with it
// off, a warning or an error and every record before it have, and what is on disk ends at a
// record end. Descriptor 1 is closed while the file opens (the file must not take it, or console
// lines would land in it), then a pipe whose reader has gone (`app | head -1`): console output
// fails quietly, never ending the host by SIGPIPE nor changing its SIGPIPE disposition or mask.
TEST(FaultTest, RecordsSurviveSigkillAndTheFileEndsAtARecordEnd) {
    for (int level = QEL_LOG_INFO; level <= QEL_LOG_ERROR; ++level) {  // console on for info
        SCOPED_TRACE(level);
        auto result = runChild([level] {
            int console[2];
            CHILD_CHECK(pipe(console) == 0 && close(STDOUT_FILENO) == 0);
            CHILD_CHECK(qelLogConfigConsoleWriter(level == QEL_LOG_INFO) == 0);
            CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
            CHILD_CHECK(dup2(console[1], STDOUT_FILENO) == STDOUT_FILENO && close(console[0]) == 0);
            for (int i = 0; i < 50; ++i) {
                CHILD_CHECK(qelLogSimplify("crash", QEL_LOG_INFO, std::to_string(i).c_str()) == 0);
            }
            qelLogSimplify("crash", static_cast<QelLogLevel>(level), "last");
            for (int i = 0; i < 45; ++i) {  // more than a stream's buffer, less than the writer's
                qelLogSimplify("crash", QEL_LOG_INFO, ("after-" + std::string(60, 'a')).c_str());
            }
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
        for (int i = 0; i < 50; ++i) {
            EXPECT_EQ(1u, countOf(logs, "]" + std::to_string(i) + "\n")) << i;
        }
        EXPECT_EQ(1u, countOf(logs, "]last\n"));
        EXPECT_EQ("\n\n", logs.substr(logs.size() - 2));
        EXPECT_TRUE(level != QEL_LOG_INFO || countOf(logs, "]after-") == 45);
    }
}

// Eight threads, a 1 MiB limit, the folder moved a hundred times meanwhile: every record once and
// in order, no growth of resident memory after the first 10,000 records, no descriptor left open.
TEST(SoakTest, ManyRecordsThroughManyFilesWhileTheFolderMoves) {
    const char* records = getenv("QEL_SOAK_RECORDS");
    const long perThread =
        std::max(records != nullptr ? atol(records) : kDefaultRecords, kWarmUpRecords) / kThreads;
    auto result = runChild(
        [perThread] {
            CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0 && qelLogSetMaxSize(1 << 20) == 0);
            const long descriptorsBefore = openDescriptors();
            CHILD_CHECK(qelLogSetFileFolder(kFolders[1]) == 0);
            auto warm = runThreads(std::vector<long>(kThreads), kWarmUpRecords / kThreads, 100);
            const long residentAfterWarmUp = residentBytes();
            const auto logged = runThreads(warm, perThread - kWarmUpRecords / kThreads, 0);
            const long growth = residentBytes() - residentAfterWarmUp;
            CHILD_CHECK(qelLogConfigFileWriter(false) == 0);
            CHILD_CHECK(openDescriptors() <= descriptorsBefore + 2);  // the file watch keeps 2
            CHILD_CHECK(kSanitized || growth <= (1 << 20));
            CHILD_CHECK(missingRecords(logged) == 0);
            removeTree(".");  // the full run leaves hundreds of megabytes
            return 0;
        },
        3600);
    EXPECT_CHILD_OK(result);
}

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
