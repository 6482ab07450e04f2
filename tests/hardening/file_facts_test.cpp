// The facts the file writer records beside each file (extended attributes), read back from
// files the library wrote: on tmpfs and on the build folder's file system, across a split, a
// removed file, a fork, a daylight-saving change, a refusing file system, and a remover of old
// files running against writers that make files quickly.

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <qel/log.h>

#include "hardening/stand_ins.h"
#include "support/test_support.h"

using namespace qeltest;

namespace {

// The user.qel.* attributes of `path`, without the prefix.
std::map<std::string, std::string> factsOf(const std::string& path) {
    std::map<std::string, std::string> facts;
    char names[1024];
    const ssize_t length = listxattr(path.c_str(), names, sizeof(names));
    for (ssize_t at = 0; at < length; at += static_cast<ssize_t>(strlen(names + at)) + 1) {
        const std::string name = names + at;
        char value[2048];
        const ssize_t size = getxattr(path.c_str(), name.c_str(), value, sizeof(value));
        if (name.rfind("user.qel.", 0) == 0 && size >= 0) facts[name.substr(9)].assign(value, size);
    }
    return facts;
}

bool xattrsWork(const std::string& folder) {
    const std::string probe = folder + "/probe";
    writeFile(probe, "");
    const bool works = setxattr(probe.c_str(), "user.qel.probe", "1", 1, 0) == 0;
    unlink(probe.c_str());
    return works;
}

// "BOOT PID START" of the calling process, read here with the C library's own parsing.
std::string ownIdentity() {
    std::string boot = readFile("/proc/sys/kernel/random/boot_id");
    boot.resize(36);
    const std::string stat = readFile("/proc/self/stat");
    std::istringstream fields(stat.substr(stat.rfind(')') + 2));
    std::string field;
    for (int number = 3; number <= 22; ++number) fields >> field;
    return boot + " " + std::to_string(getpid()) + " " + field;
}

std::string nameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// The bytes of two runs of a program differ in the thread ids, which are the process ids.
std::string withoutThreadIds(const std::string& bytes) {
    return std::regex_replace(bytes, std::regex(" [0-9]+\\]"), " tid]");
}

// Runs the built qellog with `arguments`, standard input from `input`, output discarded, and
// `environment` added, steered by the preloaded object; its exit status.
int runTool(const std::vector<std::string>& arguments, const std::string& input,
            const std::vector<std::string>& environment) {
    const pid_t child = fork();
    if (child == 0) {
        const int in = open(input.c_str(), O_RDONLY), out = open("/dev/null", O_WRONLY);
        if (in < 0 || out < 0 || dup2(in, 0) < 0 || dup2(out, 1) < 0) _exit(126);
        setenv("LD_PRELOAD", QELTEST_PRELOAD_PATH, 1);
        setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
        for (const std::string& variable : environment) putenv(strdup(variable.c_str()));
        std::vector<char*> argv{const_cast<char*>(QELLOG_PATH)};
        for (const std::string& argument : arguments) argv.push_back(strdup(argument.c_str()));
        argv.push_back(nullptr);
        execv(QELLOG_PATH, argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
}

}  // namespace

// A first file, a record split over three files, the current file removed, a fork child: each
// file names its writer and number, only the files that take a split record's rest name the
// file they continue, and the zone line gives the opening time and the zone's offset. Where the
// file system refuses the facts, the writer goes on without them.
TEST(FileFactsTest, EveryFileNamesItsWriterNumberSplitAndZone) {
    char buildFolder[] = QELTEST_BUILD_DIR "/qel-facts-XXXXXX";
    char shmFolder[] = "/dev/shm/qel-facts-XXXXXX";
    for (const char* root : {mkdtemp(buildFolder), mkdtemp(shmFolder)}) {
        ASSERT_NE(nullptr, root);
        const std::string logs = std::string(root) + "/logs";
        const bool supported = (mkdir(logs.c_str(), 0755), xattrsWork(logs));
        if (!supported) std::cout << "no user extended attributes under " << root << "\n";
        auto result = runChild([&] {
            setenv("TZ", "Asia/Kolkata", 1);
            tzset();
            const time_t before = time(nullptr);
            CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0 && qelLogSetMaxSize(300) == 0);
            CHILD_CHECK(qelLogSetFileFolder(logs.c_str()) == 0);
            qelLogSimplify("facts", QEL_LOG_INFO, "first");
            qelLogSimplify("facts", QEL_LOG_INFO, std::string(700, 'x').c_str());
            CHILD_CHECK(logFiles(logs).size() == 3 && unlink(logFiles(logs).back().c_str()) == 0);
            qelLogSimplify("facts", QEL_LOG_INFO, "after removal");
            const pid_t child = fork();
            if (child == 0) {  // its own identity, numbers going on from the parent's
                qelLogSimplify("facts", QEL_LOG_INFO, "child");
                const auto facts = factsOf(logFiles(logs).back());
                _exit((supported ? facts.at("writer") == ownIdentity() &&
                                       facts.at("number") == "5" && facts.count("continues") == 0
                                 : facts.empty()) ? 0 : 1);
            }
            int status = -1;
            CHILD_CHECK(waitpid(child, &status, 0) == child && status == 0);
            const std::vector<std::string> files = logFiles(logs);
            CHILD_CHECK(files.size() == 4);
            for (size_t i = 0; i < 3; ++i) {  // the fork child's file is checked there
                const auto facts = factsOf(files[i]);
                if (!supported) {
                    CHILD_CHECK(facts.empty());
                    continue;
                }
                const bool split = i == 1;  // the long record's middle part; its end was removed
                CHILD_CHECK(facts.at("writer") == ownIdentity());
                CHILD_CHECK(facts.at("number") == std::to_string(i == 2 ? 4 : i + 1));
                CHILD_CHECK(split == (readFile(files[i])[0] != '['));
                CHILD_CHECK(split ? facts.at("continues") == nameOf(files[i - 1])
                                  : facts.count("continues") == 0);
                long long opened = 0;
                char rest[32] = {};
                CHILD_CHECK(sscanf(facts.at("zone").c_str(), "%lld 19800 IST%31c", &opened,
                                   rest) == 2 && std::string(rest) == "\n");
                CHILD_CHECK(opened >= before && opened <= time(nullptr));
            }
            return 0;
        });
        EXPECT_CHILD_OK(result);
        removeTree(root);
    }
}

// Facts refused: "not supported" is tried once per folder, any other refusal on every file; no
// record is lost or delayed for a fact, and a folder that takes them gets them again.
TEST(FileFactsTest, RefusedFactsCostNoRecordAndAreTriedAgainInANewFolder) {
    auto result = runChild([] {
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0 && qelLogSetMaxSize(200) == 0);
        size_t files = 0;
        const auto logInto = [&](const char* folder, int refusal) {
            g_factsRefusal = refusal;
            g_factsAttempts = 0;
            qelLogSetFileFolder(folder);
            for (int i = 0; i < 20; ++i) {
                qelLogSimplify("refused", QEL_LOG_INFO, ("rec-" + std::to_string(i)).c_str());
            }
            files = logFiles(folder).size();
            const std::string bytes = concatenatedLogs(folder);
            bool whole = files > 3;
            for (int i = 0; i < 20; ++i) {
                whole = whole && countOf(bytes, "]rec-" + std::to_string(i) + "\n\n") == 1;
            }
            return whole;
        };
        CHILD_CHECK(logInto("unsupported", ENOTSUP) && g_factsAttempts == 1);
        CHILD_CHECK(logInto("unsupported-too", ENOTSUP) && g_factsAttempts == 1);
        CHILD_CHECK(logInto("full", ENOSPC) && g_factsAttempts == static_cast<int>(files));
        CHILD_CHECK(logInto("fine", 0) && g_factsAttempts >= static_cast<int>(3 * files));
        for (const char* folder : {"unsupported", "unsupported-too", "full"}) {
            for (const std::string& file : logFiles(folder)) CHILD_CHECK(factsOf(file).empty());
        }
        return 0;
    });
    EXPECT_CHILD_OK(result);
}

// The autumn change in Europe/Berlin under a steered clock (02:59:57 CEST, a quarter second
// more at each reading): the file current across the change gets a second zone line at the
// first record stamped in CET, files opened after it only the CET line, and the bytes and names
// are those written on a file system without extended attributes.
TEST(FileFactsTest, DaylightSavingChangeAddsAZoneLineAndChangesNoByte) {
    auto result = runChild([] {
        constexpr long long kChange = 1792890000;  // 2026-10-25 01:00:00 UTC
        std::string input;
        for (int i = 0; i < 30; ++i) input += "line " + std::to_string(i) + "\n";
        writeFile("input", input);
        for (const char* folder : {"with", "without"}) {
            std::vector<std::string> environment = {
                "TZ=Europe/Berlin", "QELTEST_CLOCK_START=" + std::to_string(kChange - 3),
                "QELTEST_CLOCK_STEP_MS=250"};
            if (std::string(folder) == "without") environment.push_back("QELTEST_NO_XATTR=1");
            CHILD_CHECK(runTool({"-d", folder, "--no-console", "-s", "300"}, "input",
                                environment) == 0);
        }
        const std::vector<std::string> with = logFiles("with"), without = logFiles("without");
        CHILD_CHECK(with.size() == without.size() && with.size() > 3);
        int across = 0, before = 0, after = 0;
        for (size_t i = 0; i < with.size(); ++i) {
            CHILD_CHECK(nameOf(with[i]) == nameOf(without[i]));
            CHILD_CHECK(withoutThreadIds(readFile(with[i])) == withoutThreadIds(readFile(without[i])));
            CHILD_CHECK(factsOf(without[i]).empty());
            const std::string zone = factsOf(with[i]).at("zone");
            long long opened = 0, changed = 0;
            char first[8] = {}, second[8] = {};
            const int fields = sscanf(zone.c_str(), "%lld 7200 %7s %lld 3600 %7s", &opened, first,
                                      &changed, second);
            if (fields == 4) {
                ++across;
                CHILD_CHECK(opened < kChange && changed == kChange &&
                            std::string(first) == "CEST" && std::string(second) == "CET");
                CHILD_CHECK(countOf(readFile(with[i]), " 02:59:5") > 0);
            } else if (fields == 2) {
                ++before;
                CHILD_CHECK(opened < kChange && std::string(first) == "CEST");
            } else {
                ++after;
                CHILD_CHECK(sscanf(zone.c_str(), "%lld 3600 CET", &opened) == 1 &&
                            opened >= kChange && zone.back() == '\n' && countOf(zone, "\n") == 1);
            }
        }
        CHILD_CHECK(across == 1 && after > 0);
        return 0;
    });
    EXPECT_CHILD_OK(result);
}

// qellog prune in a loop against three writers of one folder that make a file every few records,
// each taking its shared lock late (so that prune often finds a file between its creation and
// its lock): prune removes no file that a writer then writes (what prune removed is kept, and
// none grew after its removal), and the files left with those removed hold every record of each
// writer once, in order. Several runs.
TEST(FileFactsTest, PruneInALoopNeverTakesALiveFile) {
    if (!xattrsWork(TempDir().path())) GTEST_SKIP() << "no user extended attributes in /tmp";
    auto result = runChild([] {
        constexpr int kWriters = 3, kRecords = 300;
        g_sharedLockDelayUs = 2000;
        for (int run = 0; run < 3; ++run) {
            const std::string logs = "logs" + std::to_string(run);
            const std::string archive = std::filesystem::absolute("removed" + std::to_string(run));
            CHILD_CHECK(mkdir(logs.c_str(), 0755) == 0 && mkdir(archive.c_str(), 0755) == 0);
            std::vector<pid_t> writers;
            for (int w = 0; w < kWriters; ++w) {
                const pid_t writer = fork();
                if (writer == 0) {
                    qelLogConfigConsoleWriter(false);
                    qelLogSetMaxSize(256);
                    qelLogSetFileFolder(logs.c_str());
                    for (int n = 0; n < kRecords; ++n) {
                        const std::string text = "seq-" + std::to_string(n);
                        qelLogSimplify(("w" + std::to_string(w)).c_str(), QEL_LOG_INFO, text.c_str());
                    }
                    _exit(0);
                }
                writers.push_back(writer);
            }
            int running = kWriters, prunes = 0;
            while (running > 0 || prunes == 0) {
                CHILD_CHECK(runTool({"prune", logs, "--keep", "2"}, "/dev/null",
                                    {"QELTEST_ARCHIVE=" + archive}) == 0);
                ++prunes;
                running -= waitpid(-1, nullptr, WNOHANG) > 0;
            }
            std::istringstream removed(readFile(archive + "/removed"));
            std::string name;
            off_t size = 0;
            std::map<std::string, std::string> bytes;  // each writer's files, one after another
            std::vector<std::string> files = logFiles(logs);
            while (removed >> name >> size) {
                struct stat status;
                CHILD_CHECK(stat((archive + "/" + name).c_str(), &status) == 0);
                CHILD_CHECK(status.st_size == size);  // nothing written after its removal
                files.push_back(archive + "/" + name);
            }
            // Each writer's files in the order of their numbers (the names of a writer's files
            // sort by time only with the milliseconds padded).
            std::map<std::string, std::string> ordered;
            for (const std::string& file : files) {
                const std::string content = readFile(file);
                const size_t header = content.find("[w");
                const auto facts = factsOf(file);
                if (header == std::string::npos) continue;  // empty: never locked, or taken
                CHILD_CHECK(facts.count("number") == 1);
                const std::string number = facts.at("number");
                ordered[content.substr(header, 3) + std::string(10 - number.size(), '0') +
                        number] = content;
            }
            for (const auto& file : ordered) bytes[file.first.substr(0, 3)] += file.second;
            for (int w = 0; w < kWriters; ++w) {
                const std::string& own = bytes["[w" + std::to_string(w)];
                size_t at = 0;
                for (int n = 0; n < kRecords; ++n) {
                    const std::string record = "]seq-" + std::to_string(n) + "\n\n";
                    CHILD_CHECK(countOf(own, record) == 1 && (at = own.find(record, at)) != own.npos);
                }
            }
        }
        return 0;
    }, 240);
    EXPECT_CHILD_OK(result);
}
