// The facts the file writer records beside each file (extended attributes), read back from
// files the library wrote: on tmpfs and on the build folder's file system, across a split, a
// removed file, a fork, a daylight-saving change, a refusing file system, and prune running
// against writers that make files quickly.

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include <gtest/gtest.h>
#include <qel/log.h>

#include "hardening/stand_ins.h"
#include "support/test_support.h"

using namespace qeltest;

namespace {

// The user.qel.* attributes of `path`, without the prefix.
std::map<std::string, std::string> factsOf(const std::string& path) {
    std::map<std::string, std::string> facts;
    char names[1024], value[2048];
    const ssize_t length = listxattr(path.c_str(), names, sizeof(names));
    for (ssize_t at = 0; at < length; at += static_cast<ssize_t>(strlen(names + at)) + 1) {
        const ssize_t size = getxattr(path.c_str(), names + at, value, sizeof(value));
        if (strncmp(names + at, "user.qel.", 9) == 0 && size >= 0) {
            facts[names + at + 9].assign(value, size);
        }
    }
    return facts;
}

bool xattrsWork(const std::string& folder) {
    writeFile(folder + "/probe", "");
    return setxattr((folder + "/probe").c_str(), "user.qel.probe", "1", 1, 0) == 0;
}

// "BOOT PID START" of the calling process.
std::string ownIdentity() {
    const std::string stat = readFile("/proc/self/stat");
    std::istringstream fields(stat.substr(stat.rfind(')') + 2));
    std::string start;
    for (int field = 3; field <= 22; ++field) fields >> start;
    return readFile("/proc/sys/kernel/random/boot_id").substr(0, 36) + " " +
           std::to_string(getpid()) + " " + start;
}

std::string nameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// Runs the built qellog with `arguments` (a shell's words), steered by the preloaded object as
// the variables in `environment` say; its exit status.
int runTool(const std::string& environment, const std::string& arguments) {
    return system(("ASAN_OPTIONS=verify_asan_link_order=0 LD_PRELOAD=" QELTEST_PRELOAD_PATH " " +
                   environment + " " QELLOG_PATH " " + arguments + " >/dev/null").c_str());
}

}  // namespace

// A first file, a record split over three files whose third is then removed, the next record,
// and a fork child's record: every file names its writer (the child its own) and its number,
// only the file that takes a split record's rest names the file it continues, and the zone line
// gives the opening time and the zone. Where the file system refuses facts (as "not supported"
// in the third run), none are there, and they are tried once until the folder changes.
TEST(FileFactsTest, EveryFileNamesItsWriterNumberSplitAndZone) {
    char buildFolder[] = QELTEST_BUILD_DIR "/qel-facts-XXXXXX", shmFolder[] = "/dev/shm/qel-XXXXXX";
    char refusing[] = "/dev/shm/qel-XXXXXX";
    for (const char* root : {mkdtemp(buildFolder), mkdtemp(shmFolder), mkdtemp(refusing)}) {
        ASSERT_NE(nullptr, root);
        g_factsRefusal = root == refusing ? ENOTSUP : 0;
        g_factsAttempts = 0;
        const bool supported = xattrsWork(root) && g_factsRefusal == 0;
        if (!supported) std::cout << "no user extended attributes under " << root << "\n";
        auto result = runChild([&] {
            setenv("TZ", "Asia/Kolkata", 1);
            const std::string logs = std::string(root) + "/logs", self = ownIdentity();
            const long long before = time(nullptr);
            CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0 && qelLogSetMaxSize(300) == 0);
            CHILD_CHECK(qelLogSetFileFolder(logs.c_str()) == 0);
            qelLogSimplify("facts", QEL_LOG_INFO, "first");
            qelLogSimplify("facts", QEL_LOG_INFO, std::string(700, 'x').c_str());
            CHILD_CHECK(logFiles(logs).size() == 3 && unlink(logFiles(logs).back().c_str()) == 0);
            qelLogSimplify("facts", QEL_LOG_INFO, "after removal");
            if (fork() == 0) {  // a writer of its own
                qelLogSimplify("facts", QEL_LOG_INFO, "child");
                _exit(factsOf(logFiles(logs).back()).count("writer") &&
                      factsOf(logFiles(logs).back()).at("writer") != ownIdentity());
            }
            int status = -1;
            CHILD_CHECK(wait(&status) > 0 && status == 0);
            std::string found;
            for (const std::string& file : logFiles(logs)) {
                auto facts = factsOf(file);
                const bool none = facts.empty();
                long long opened = 0;
                CHILD_CHECK(!supported || (sscanf(facts["zone"].c_str(), "%lld", &opened) == 1 &&
                                           opened >= before && opened <= time(nullptr)));
                found += facts["writer"] == self ? "parent " : none ? "" : "child ";
                found += facts["number"] + " " + facts["continues"] + " " +
                         facts["zone"].substr(facts["zone"].find(' ') + 1);
                found += (readFile(file)[0] == '[' ? "whole|" : "rest|");
            }
            const std::vector<std::string> files = logFiles(logs);
            CHILD_CHECK(found == (supported ? "parent 1  19800 IST\nwhole|parent 2 " +
                                                  nameOf(files[0]) +
                                                  " 19800 IST\nrest|parent 4  19800 IST\nwhole|"
                                                  "child 5  19800 IST\nwhole|"
                                            : "  whole|  rest|  whole|  whole|"));
            const int attempts = g_factsAttempts;
            qelLogSetFileFolder((logs + "/next").c_str());
            CHILD_CHECK(g_factsRefusal == 0 || (attempts == 1 && g_factsAttempts == 2));
            return 0;
        });
        EXPECT_CHILD_OK(result);
        removeTree(root);
    }
    g_factsRefusal = 0;
}

// The autumn change in Europe/Berlin under a steered clock (from 02:59:57 CEST, a quarter second
// on at each reading): the file current across it gets a second zone line at the first record
// stamped in CET, files opened after it only that line, and names and bytes are those written
// where extended attributes are not supported.
TEST(FileFactsTest, DaylightSavingChangeAddsAZoneLineAndChangesNoByte) {
    auto result = runChild([] {
        constexpr long long kChange = 1792890000;  // 2026-10-25 01:00:00 UTC
        std::string input;
        for (int i = 0; i < 30; ++i) input += "line " + std::to_string(i) + "\n";
        writeFile("input", input);
        const std::string clock = "TZ=Europe/Berlin QELTEST_CLOCK_STEP_MS=250 QELTEST_CLOCK_START=" +
                                  std::to_string(kChange - 3);
        CHILD_CHECK(runTool(clock, "-d with --no-console -s 300 <input") == 0);
        CHILD_CHECK(runTool(clock + " QELTEST_NO_XATTR=1", "-d without --no-console -s 300 <input") == 0);
        const std::vector<std::string> files = logFiles("with"), plain = logFiles("without");
        std::string zones;
        CHILD_CHECK(files.size() == plain.size() && files.size() > 3);
        for (size_t i = 0; i < files.size(); ++i) {
            CHILD_CHECK(nameOf(files[i]) == nameOf(plain[i]) && factsOf(plain[i]).empty());
            CHILD_CHECK(readFile(files[i]).size() == readFile(plain[i]).size());
            zones += std::regex_replace(factsOf(files[i])["zone"], std::regex("(^|\n)[0-9]+ "), "$1");
            zones += factsOf(files[i])["zone"].find(std::to_string(kChange) + " 3600 CET") !=
                     std::string::npos ? "at the change|" : "|";
        }
        // The same records (but for the thread ids, the process ids of the two runs).
        const std::regex threadId(" [0-9]+\\]");
        CHILD_CHECK(std::regex_replace(concatenatedLogs("with"), threadId, "]") ==
                    std::regex_replace(concatenatedLogs("without"), threadId, "]"));
        // The CET files are named by earlier local times than the CEST ones.
        CHILD_CHECK(std::regex_match(zones, std::regex("(3600 CET\n\\|)+(7200 CEST\n\\|)+"
                                                       "7200 CEST\n3600 CET\nat the change\\|")));
        return 0;
    });
    EXPECT_CHILD_OK(result);
}

// qellog prune in a loop against three writers of one folder that make a file every few records
// and take their shared lock late, so that prune often finds a file between its creation and its
// lock: no file that prune removed grew after its removal, and the files left together with
// those removed hold every record of each writer once, in order. Three runs.
TEST(FileFactsTest, PruneInALoopNeverTakesALiveFile) {
    if (!xattrsWork(TempDir().path())) GTEST_SKIP() << "no user extended attributes in /tmp";
    auto result = runChild([] {
        g_sharedLockDelayUs = 2000;
        for (int run = 0; run < 3; ++run) {
            const std::string logs = "logs" + std::to_string(run);
            const std::string removed = std::filesystem::absolute("removed" + std::to_string(run));
            CHILD_CHECK(mkdir(logs.c_str(), 0755) == 0 && mkdir(removed.c_str(), 0755) == 0);
            for (int w = 0; w < 3; ++w) {
                if (fork() == 0) {
                    qelLogConfigConsoleWriter(false);
                    qelLogSetMaxSize(256);
                    qelLogSetFileFolder(logs.c_str());
                    for (int n = 0; n < 300; ++n) qelLogFormat(("w" + std::to_string(w)).c_str(), QEL_LOG_INFO, "seq-%d", n);
                    _exit(0);
                }
            }
            for (int running = 3; running > 0; running -= waitpid(-1, nullptr, WNOHANG) > 0) {
                CHILD_CHECK(runTool("QELTEST_ARCHIVE=" + removed, "prune --keep 2 " + logs) == 0);
            }
            std::vector<std::string> files = logFiles(logs);
            std::istringstream list(readFile(removed + "/removed"));
            std::string name;
            off_t size = 0;
            struct stat status;
            while (list >> name >> size) {  // nothing written after its removal
                files.push_back(removed + "/" + name);
                CHILD_CHECK(stat(files.back().c_str(), &status) == 0 && status.st_size == size);
            }
            std::map<std::string, std::string> ordered;  // by writer, then by the writer's number
            for (const std::string& file : files) {
                auto facts = factsOf(file);
                const std::string number = facts.empty() ? "" : facts.at("number");
                if (!number.empty()) {  // else empty: never locked
                    ordered[facts["writer"] + "#" + std::string(9 - number.size(), '0') + number] =
                        readFile(file);
                }
            }
            std::map<std::string, std::string> bytes;  // each writer's files one after another
            for (const auto& file : ordered) bytes[file.first.substr(0, file.first.find('#'))] += file.second;
            std::set<std::string> found, expected;
            for (const auto& writer : bytes) found.insert(summary(writer.second));
            for (int w = 0; w < 3; ++w) {
                std::string records;
                for (int n = 0; n < 300; ++n) records += "w" + std::to_string(w) + " I seq-" + std::to_string(n) + "|";
                expected.insert(records);
            }
            CHILD_CHECK(found == expected);
        }
        return 0;
    }, 240);
    EXPECT_CHILD_OK(result);
}

