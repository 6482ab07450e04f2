// Creating log files and folders where other processes and planted names compete for them.

#include <sys/stat.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <set>

#include "hardening/stand_ins.h"

using namespace qeltest;

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

// Fifty processes switch their file writers on in one folder that none of them finds, all at
// once (when the pipe they wait on closes): each makes the levels that are missing while the
// others do, and none is refused or falls back to the working directory.
TEST(FileCreationTest, ProcessesMakingOneNewFolderAtOnceAllLogThere) {
    auto result = runChild([] {
        int start[2], refused = 0;
        CHILD_CHECK(pipe(start) == 0);
        std::vector<pid_t> children(50);
        for (pid_t& child : children) {
            char go;
            if ((child = fork()) == 0) {
                _exit(close(start[1]) != 0 || read(start[0], &go, 1) != 0 ||
                      qelLogConfigConsoleWriter(false) != 0 ||
                      qelLogSetFileFolder("new/deep/folder") != 0 ||
                      qelLogSimplify("mkdir", QEL_LOG_INFO, "in") != 0);
            }
        }
        close(start[1]);
        for (const pid_t child : children) {
            int status = 0;
            refused += waitpid(child, &status, 0) != child || status != 0;
        }
        CHILD_CHECK(refused == 0 && countOf(concatenatedLogs("new/deep/folder"), "]in\n\n") == 50);
        return 0;
    });
    EXPECT_CHILD_OK(result);
}
