#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <filesystem>
#include <iterator>
#include <map>
#include <regex>
#include <sstream>

#include "hardening/stand_ins.h"

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

// The fields of `text` between spaces.
std::vector<std::string> words(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), std::istream_iterator<std::string>()};
}

std::string nameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

// Runs the built qellog with `arguments` (a shell's words), steered by the preloaded object as
// the variables in `environment` say; its exit status.
int runTool(const std::string& environment, const std::string& arguments) {
    return system(("ASAN_OPTIONS=verify_asan_link_order=0 LD_PRELOAD=" QELTEST_PRELOAD_PATH " " +
                   environment + " " QELLOG_PATH " " + arguments + " >/dev/null").c_str());
}

}  // namespace

// A first file, a record split over three files whose third is then removed, the next record,
// and a fork child's record: every file names its writer (boot, process and start time; the
// child its own) and its number, only the file that takes a split record's rest names the file
// it continues, and the zone line gives the opening time and the zone. Where the file system
// refuses facts ("not supported" in the third run), none are set, and they are tried once until
// the folder changes.
TEST(FileFactsTest, EveryFileNamesItsWriterNumberSplitAndZone) {
    char build[] = QELTEST_BUILD_DIR "/qel-XXXXXX", shm[] = "/dev/shm/qel-XXXXXX",
         refusing[] = "/dev/shm/qel-XXXXXX";
    for (const char* root : {mkdtemp(build), mkdtemp(shm), mkdtemp(refusing)}) {
        ASSERT_NE(nullptr, root);
        g_factsRefusal = root == refusing ? ENOTSUP : 0;
        g_factsAttempts = 0;
        const bool supported = xattrsWork(root) && g_factsRefusal == 0;
        if (!supported) std::cout << "no user extended attributes under " << root << "\n";
        auto result = runChild([&] {
            setenv("TZ", "Asia/Kolkata", 1);
            const std::string logs = std::string(root) + "/logs";
            const long long before = time(nullptr);
            CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0 && qelLogSetMaxSize(300) == 0);
            CHILD_CHECK(qelLogSetFileFolder(logs.c_str()) == 0);
            qelLogSimplify("facts", QEL_LOG_INFO, "first");
            qelLogSimplify("facts", QEL_LOG_INFO, std::string(700, 'x').c_str());
            CHILD_CHECK(logFiles(logs).size() == 3 && unlink(logFiles(logs).back().c_str()) == 0);
            qelLogSimplify("facts", QEL_LOG_INFO, "after removal");
            const pid_t child = fork();
            if (child == 0) _exit(qelLogSimplify("facts", QEL_LOG_INFO, "child"));
            CHILD_CHECK(waitpid(child, nullptr, 0) == child);
            const std::vector<std::string> files = logFiles(logs);
            const std::string stat = readFile("/proc/self/stat");
            const std::string boot = readFile("/proc/sys/kernel/random/boot_id").substr(0, 36);
            std::string found;
            for (const std::string& file : files) {
                auto facts = factsOf(file);
                const std::vector<std::string> writer = words(facts["writer"]),
                                               zone = words(facts["zone"]);
                CHILD_CHECK(!supported || (writer.size() == 3 && writer[0] == boot &&
                                           zone.size() == 3 && std::stoll(zone[0]) >= before &&
                                           std::stoll(zone[0]) <= time(nullptr)));
                const bool parent = supported && writer[1] == std::to_string(getpid()) &&
                                    writer[2] == words(stat.substr(stat.rfind(')') + 2))[19];
                found += parent                                            ? "parent "
                         : supported && writer[1] == std::to_string(child) ? "child "
                                                                           : "";
                found += facts["number"] + " " + facts["continues"] + " " +
                         facts["zone"].substr(facts["zone"].find(' ') + 1);
                found += readFile(file)[0] == '[' ? "whole|" : "rest|";
            }
            CHILD_CHECK(files.size() == 4 &&
                        found == (supported
                                      ? "parent 1  19800 IST\nwhole|parent 2 " + nameOf(files[0]) +
                                            " 19800 IST\nrest|parent 4  19800 IST\nwhole|child 5  "
                                            "19800 IST\nwhole|"
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
        const std::string clock =
            "TZ=Europe/Berlin QELTEST_CLOCK_STEP_MS=250 QELTEST_CLOCK_START=" +
            std::to_string(kChange - 3);
        CHILD_CHECK(runTool(clock, "-d with --no-console -s 300 <input") == 0);
        CHILD_CHECK(
            runTool(clock + " QELTEST_NO_XATTR=1", "-d without --no-console -s 300 <input") == 0);
        const std::vector<std::string> files = logFiles("with"), plain = logFiles("without");
        std::string zones, raw;
        CHILD_CHECK(files.size() == plain.size() && files.size() > 3);
        for (size_t i = 0; i < files.size(); ++i) {
            CHILD_CHECK(nameOf(files[i]) == nameOf(plain[i]) && factsOf(plain[i]).empty());
            CHILD_CHECK(readFile(files[i]).size() == readFile(plain[i]).size());
            raw += factsOf(files[i])["zone"];
            zones +=
                std::regex_replace(factsOf(files[i])["zone"], std::regex("(^|\n)[0-9]+ "), "$1") +
                "|";
        }
        // The same records but for the thread ids, the process ids of the two runs.
        const std::regex threadId(" [0-9]+\\]");
        CHILD_CHECK(std::regex_replace(concatenatedLogs("with"), threadId, "]") ==
                    std::regex_replace(concatenatedLogs("without"), threadId, "]"));
        // The CET files are named by earlier local times than the CEST ones.
        CHILD_CHECK(std::regex_match(
            zones, std::regex("(3600 CET\n\\|)+(7200 CEST\n\\|)+7200 CEST\n3600 CET\n\\|")));
        CHILD_CHECK(countOf(raw, "\n" + std::to_string(kChange) + " 3600 CET\n") == 1);
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
            const std::string removed =
                std::filesystem::absolute("removed" + std::to_string(run));
            CHILD_CHECK(mkdir(logs.c_str(), 0755) == 0 && mkdir(removed.c_str(), 0755) == 0);
            for (int w = 0; w < 3; ++w) {
                if (fork() == 0) {
                    qelLogConfigConsoleWriter(false);
                    qelLogSetMaxSize(256);
                    qelLogSetFileFolder(logs.c_str());
                    for (int n = 0; n < 300; ++n) qelLogFormat("w", QEL_LOG_INFO, "seq-%d", n);
                    _exit(0);
                }
            }
            for (int running = 3; running > 0; running -= waitpid(-1, nullptr, WNOHANG) > 0) {
                CHILD_CHECK(runTool("QELTEST_ARCHIVE=" + removed, "prune --keep 2 " + logs) ==
                            0);
            }
            std::vector<std::string> files = logFiles(logs);
            for (const auto& kept : std::filesystem::directory_iterator(removed)) {
                files.push_back(kept.path());  // nothing was written after its removal
                const std::string name = nameOf(files.back());  // N.SIZE.QelLog...
                CHILD_CHECK(std::stoull(name.substr(name.find('.') + 1)) == kept.file_size());
            }
            std::map<std::string, std::map<int, std::string>> writers;  // by writer, number
            for (const std::string& file : files) {
                auto facts = factsOf(file);  // none: empty, never locked
                if (!facts.empty())
                    writers[facts.at("writer")][std::stoi(facts.at("number"))] = readFile(file);
            }
            std::string expected;
            for (int n = 0; n < 300; ++n) expected += "w I seq-" + std::to_string(n) + "|";
            CHILD_CHECK(writers.size() == 3);
            for (const auto& writer : writers) {
                std::string bytes;
                for (const auto& file : writer.second) bytes += file.second;
                CHILD_CHECK(summary(bytes) == expected);
            }
        }
        return 0;
    }, 240);
    EXPECT_CHILD_OK(result);
}
