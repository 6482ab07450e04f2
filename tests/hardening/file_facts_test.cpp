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
