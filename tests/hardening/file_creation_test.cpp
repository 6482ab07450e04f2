// How new log files come into being in a folder that others share: exclusively, never through
// a planted file or symbolic link, with the permissions of a plain open, one per process.

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <qel/log.h>
#include <qel/timeutils.h>

#include "support/test_support.h"

using namespace qeltest;

// The name the writer gives a file made `offsetMs` from now in the working directory.
static std::string logNameAt(int offsetMs) {
    const auto at = std::chrono::system_clock::now() + std::chrono::milliseconds(offsetMs);
    const long long ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(at.time_since_epoch()).count();
    const time_t seconds = static_cast<time_t>(ms / 1000);
    tm local;
    char name[64];
    strftime(name, sizeof(name), "QelLog%Y-%m-%d-%H-%M-%S-", localtime_r(&seconds, &local));
    return name + std::to_string(ms % 1000) + ".log";
}

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

// Two processes open and close their file writers in the same folder as fast as they can, one
// record per file, so that both keep reaching for the same names. Each file must hold exactly
// one whole record, and every record of both must be there once.
TEST(FileCreationTest, TwoProcessesNeverWriteIntoOneFile) {
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
            CHILD_CHECK(waitpid(pid, &status, 0) == pid && WIFEXITED(status) &&
                        !WEXITSTATUS(status));
        }
        const auto files = logFiles(".");
        CHILD_CHECK(files.size() == 2 * kOpens);
        std::string all;
        for (const auto& path : files) {
            const std::string content = readFile(path);
            CHILD_CHECK(countOf(content, "[share]") == 1 &&
                        content.rfind("\n\n") + 2 == content.size());
            all += content;
        }
        for (int i = 0; i < 2 * kOpens; ++i) {
            CHILD_CHECK(countOf(all, "]" + std::to_string(i) + "\n") == 1);
        }
        return 0;
    });
    EXPECT_CHILD_OK(result);
}

// fork() while three threads log without pause and a fourth changes the size limit, so that
// forks land in the middle of dispatches: the child gets copies of the logging locks, held by
// threads that do not exist there, and a copy of the log file's unwritten buffer. Each of five
// children must log at once without deadlock, into a file of its own, under its own thread id;
// no record buffered in the parent before a fork may reach a file twice.
TEST(FileCreationTest, ForkedChildLogsAtOnceIntoAFileOfItsOwn) {
    auto result = runChild([] {
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0);
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
        std::atomic<bool> stop{false};
        std::vector<std::thread> threads;
        threads.emplace_back([&stop] {
            for (unsigned int size = 0; !stop; ++size) {
                qelLogSetMaxSize(1000000 + size % 1000);
            }
        });
        for (int t = 0; t < 3; ++t) {
            threads.emplace_back([t, &stop] {
                for (int i = 0; !stop; ++i) {
                    qelLogSimplify("fork", QEL_LOG_INFO, std::to_string(i * 3 + t).c_str());
                }
            });
        }
        std::map<pid_t, int> children;
        for (int c = 0; c < 5; ++c) {
            qel::sleepMs(5);
            const pid_t pid = fork();
            if (pid == 0) {
                alarm(20);  // ends it should it deadlock
                qelLogSimplify("fork", QEL_LOG_INFO, ("child-" + std::to_string(c)).c_str());
                qelLogConfigFileWriter(false);
                _exit(0);
            }
            children[pid] = c;
            int status = 0;
            waitpid(pid, &status, 0);
            CHILD_CHECK(WIFEXITED(status) && WEXITSTATUS(status) == 0);  // else it hung
        }
        stop = true;
        for (auto& thread : threads) {
            thread.join();
        }
        CHILD_CHECK(qelLogConfigFileWriter(false) == 0);

        static const std::regex kRecord(R"(\[fork\]\[V[0-9.]+ I [0-9:]+ (\d+)\]([a-z0-9-]+)\n\n)");
        std::map<std::string, int> seen;
        for (const auto& path : logFiles(".")) {
            const std::string content = readFile(path);
            int parentRecords = 0, childRecords = 0;
            for (std::sregex_iterator it(content.begin(), content.end(), kRecord), end; it != end;
                 ++it) {
                const std::string text = (*it)[2];
                CHILD_CHECK(++seen[text] == 1);
                if (text.compare(0, 6, "child-") != 0) {
                    ++parentRecords;
                } else {
                    ++childRecords;
                    const auto child = children.find(std::stoi((*it)[1]));
                    CHILD_CHECK(child != children.end() &&
                                "child-" + std::to_string(child->second) == text);
                }
            }
            CHILD_CHECK(childRecords == 0 || (childRecords == 1 && parentRecords == 0));
        }
        for (int c = 0; c < 5; ++c) {
            CHILD_CHECK(seen.count("child-" + std::to_string(c)) == 1);
        }
        return 0;
    });
    EXPECT_CHILD_OK(result);
}
