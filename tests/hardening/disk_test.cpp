// Faults of the disk and the file system while logging: a file size limit of the process (a
// full disk as a process meets it), descriptors used up, the log folder removed, sudden death,
// names planted in a shared folder, and a long run through many files while the folder moves.
// Every scenario runs in a child with a watchdog.

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
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

// Logs numbered records from kThreads threads, thread t going on from `next[t]`, `count` of them
// each and more until the calling thread has moved the writer between the folders `moves` times.
// Returns where each thread stopped.
std::vector<long> runThreads(std::vector<long> next, long count, int moves) {
    std::atomic<bool> moving{true};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, count, &moving, &next] {
            char text[64];
            for (const long end = next[t] + count; next[t] < end || moving; ++next[t]) {
                snprintf(text, sizeof(text), "t%d n%ld", t, next[t]);
                qelLogSimplify("soak", QEL_LOG_INFO, text);
            }
        });
    }
    for (int move = 0; move < moves; ++move) {
        qelLogSetFileFolder(kFolders[move % 2]);
    }
    moving = false;
    for (auto& thread : threads) {
        thread.join();
    }
    return next;
}

long residentBytes() {
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

long openDescriptors() {  // the listing's own descriptor included
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// Each folder's files read in creation order as one text (a line cut at a file's end goes on in
// the next file): the records missing, or -1 when there is anything but whole records, each once
// and, within a folder, in its thread's order.
long missingRecords(const std::vector<long>& logged) {
    long seen = 0;
    for (const char* folder : kFolders) {
        std::vector<long> next(kThreads, 0);
        std::istringstream lines(concatenatedLogs(folder));
        for (std::string line; std::getline(lines, line);) {
            int thread = -1, length = 0;
            long number = -1;
            sscanf(line.c_str(), "[soak][V%*[0-9.] I %*[0-9:] %*d]t%d n%ld%n", &thread, &number,
                   &length);
            if (!line.empty() && (length != static_cast<int>(line.size()) || thread < 0 ||
                                  thread >= kThreads || number < next[thread])) {
                fprintf(stderr, "unexpected line: %s\n", line.c_str());
                return -1;
            }
            if (!line.empty()) {
                next[thread] = number + 1;
                ++seen;
            }
        }
    }
    return std::accumulate(logged.begin(), logged.end(), 0L) - seen;
}

// The name the writer gives a file made `offsetMs` from now in the working directory.
std::string logNameAt(int offsetMs) {
    const auto at = std::chrono::system_clock::now() + std::chrono::milliseconds(offsetMs);
    const long long ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(at.time_since_epoch()).count();
    const time_t seconds = static_cast<time_t>(ms / 1000);
    tm local;
    char name[64];
    strftime(name, sizeof(name), "QelLog%Y-%m-%d-%H-%M-%S-", localtime_r(&seconds, &local));
    return name + std::to_string(ms % 1000) + ".log";
}

bool setSoftLimit(int resource, rlim_t value) {
    struct rlimit limit;
    getrlimit(resource, &limit);
    limit.rlim_cur = value;
    return setrlimit(resource, &limit) == 0;
}

}  // namespace

// Names of the coming 1.5 seconds are taken in turn by a file of someone else, a symbolic link
// to a file of someone else, and a symbolic link to nothing. The writer, rotating at a small
// limit through that time, must skip every one of them: the victims keep their content, no
// link target comes into being, and its own files hold every record in order.
TEST(FileCreationTest, PlantedFilesAndLinksAreNeverFollowedOrEmptied) {
    auto result = runChild([] {
        umask(027);
        const std::string victim = std::filesystem::current_path() / "victim";
        std::ofstream(victim) << "victim";
        std::set<std::string> planted;
        for (int ms = 0; ms < 1500; ++ms) {
            const std::string name = logNameAt(ms);
            if (!planted.insert(name).second) {
                continue;
            } else if (ms % 3 == 0) {
                std::ofstream(name) << "planted";
            } else {
                const std::string target = ms % 3 == 1 ? victim : victim + std::to_string(ms);
                CHILD_CHECK(symlink(target.c_str(), name.c_str()) == 0);
            }
        }
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0);
        CHILD_CHECK(qelLogSetMaxSize(250) == 0);
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
        for (int i = 0; i < 150; ++i) {
            CHILD_CHECK(
                qelLogSimplify("plant", QEL_LOG_INFO, ("rec-" + std::to_string(i)).c_str()) == 0);
        }
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
            if (planted.count(path.substr(2)) != 0) {
                CHILD_CHECK(!regular || readFile(path) == "planted");
            } else {
                CHILD_CHECK(regular && (status.st_mode & 07777) == 0640);
                own += readFile(path);
                ++ownFiles;
            }
        }
        CHILD_CHECK(ownFiles > 10);  // the writer went through many planted names
        size_t at = 0;
        for (int i = 0; i < 150; ++i) {
            const std::string record = "]rec-" + std::to_string(i) + "\n\n";
            CHILD_CHECK((at = own.find(record, at)) != std::string::npos);
            CHILD_CHECK(countOf(own, record) == 1);
        }
        return 0;
    });
    EXPECT_CHILD_OK(result);
}

// A file size limit of the process stands for a full disk: a write stops part way and fails.
// Limit 0, with the console writer on and then off: the one file takes nothing, and no file is
// made per failed record. Limit 3000 under a size limit of 3500: each file takes 3000 bytes and
// ends with the record the failure cut, the next record starting a new file, so no file starts
// with the tail of a record unless the file before it holds exactly the limit. Once the limit
// is gone, logging goes on. Standard output goes into a pipe, which the limit does not touch.
TEST(FaultTest, FileSizeLimitTearsOneRecordPerFileAndNoMore) {
    auto result = runChild([] {
        signal(SIGXFSZ, SIG_IGN);
        int console[2];
        CHILD_CHECK(pipe(console) == 0 && fcntl(console[1], F_SETPIPE_SZ, 1 << 20) > 0);
        dup2(console[1], STDOUT_FILENO);
        close(console[1]);
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
        int failedCalls = 0;
        CHILD_CHECK(setSoftLimit(RLIMIT_FSIZE, 0));
        for (int i = 0; i < 400; ++i) {
            if (i == 200) {
                qelLogConfigConsoleWriter(false);
            }
            const std::string text = "zero-" + std::to_string(i) + std::string(200, 'x');
            failedCalls += qelLogSimplify("fsize", QEL_LOG_INFO, text.c_str()) != 0;
        }
        CHILD_CHECK(logFiles(".").size() == 1);
        CHILD_CHECK(setSoftLimit(RLIMIT_FSIZE, 3000) && qelLogSetMaxSize(3500) == 0);
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
        CHILD_CHECK(files.size() > 3 && files.size() <= 40);
        for (size_t i = 1; i < files.size(); ++i) {
            const std::string content = readFile(files[i]);
            CHILD_CHECK(readFile(files[i - 1]).size() == 3500 || content.find("[fsize]") == 0);
        }
        CHILD_CHECK(countOf(printed, "]zero-") == 200 && countOf(printed, "]small-") == 0);
        CHILD_CHECK(countOf(printed, "]after\n") == 1);
        CHILD_CHECK(qelLogConfigFileWriter(false) == 0);
        CHILD_CHECK(readFile(files.back()).find("]after\n") != std::string::npos);
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
// on, every record reaches the file at once. With it off, a warning or an error reaches the
// system before its call returns, and with it every record before it; of the 200 records after
// it some may be lost, but what is on disk ends at a record end. Descriptor 1 is closed before
// the file writer opens: the console fails quietly, and the log file must not take descriptor 1,
// or the console lines would land in it as well.
TEST(FaultTest, RecordsSurviveSigkillAndTheFileEndsAtARecordEnd) {
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
            for (int i = 0; i < 200; ++i) {
                qelLogSimplify("crash", QEL_LOG_INFO, ("after-" + std::string(60, 'a')).c_str());
            }
            kill(getpid(), SIGKILL);
            return 1;
        });
        EXPECT_EQ(SIGKILL, result.signal) << result.err;
        const std::string logs = concatenatedLogs(result.dir);
        for (int i = 0; i < 50; ++i) {
            EXPECT_EQ(1u, countOf(logs, "]" + std::to_string(i) + "\n")) << i;
        }
        EXPECT_EQ(1u, countOf(logs, "]last\n"));
        EXPECT_EQ(logs.size() - 3, logs.rfind("a\n\n"));
        EXPECT_TRUE(level != QEL_LOG_INFO || countOf(logs, "]after-") == 200);
    }
}

// Eight threads, a 1 MiB limit, the folder moved a hundred times during the first records: every
// record once and in its thread's order across all the files, no growth of resident memory after
// the first 10,000 records, and no descriptor left open once the writer is closed.
TEST(SoakTest, ManyRecordsThroughManyFilesWhileTheFolderMoves) {
    const char* records = getenv("QEL_SOAK_RECORDS");
    const long perThread =
        std::max(records != nullptr ? atol(records) : kDefaultRecords, kWarmUpRecords) / kThreads;
    auto result = runChild(
        [perThread] {
            CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0);
            CHILD_CHECK(qelLogSetMaxSize(1 << 20) == 0);
            const long descriptorsBefore = openDescriptors();
            CHILD_CHECK(qelLogSetFileFolder(kFolders[1]) == 0);
            const auto warm = runThreads(std::vector<long>(kThreads, 0), kWarmUpRecords / kThreads, 100);
            const long residentAfterWarmUp = residentBytes();
            const auto logged = runThreads(warm, perThread - kWarmUpRecords / kThreads, 0);
            const long growth = residentBytes() - residentAfterWarmUp;
            CHILD_CHECK(qelLogConfigFileWriter(false) == 0);
            CHILD_CHECK(openDescriptors() == descriptorsBefore);
            CHILD_CHECK(kSanitized || growth <= (1 << 20));
            const long missing = missingRecords(logged);
            fprintf(stderr, "records missing: %ld of %ld\n", missing,
                    std::accumulate(logged.begin(), logged.end(), 0L));
            CHILD_CHECK(missing == 0);
            removeTree(".");  // the full run leaves hundreds of megabytes
            return 0;
        },
        3600);
    EXPECT_CHILD_OK(result);
}
