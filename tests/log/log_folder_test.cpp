#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include <qel/error.h>
#include <qel/log.h>

#include "log/qel_log.h"
#include "support/test_support.h"

using qel::QelLog;
using qeltest::logFiles;
using qeltest::readFile;
using qeltest::runChild;

namespace {

const int kFileOpen = static_cast<int>(0x80300002u);
const int kInvalidParameter = static_cast<int>(0x80300206u);

int modeOf(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) ? (status.st_mode & 07777) : -1;
}

}  // namespace

// Every missing level is made with mode 0755; a level that must be made has to fit the
// 256-byte level buffer with a "/" and a zero, and a longer one is refused rather than cut.
TEST(LogFolderTest, CreatesEveryMissingLevelAndRefusesOverlongOnes) {
    auto result = runChild([] {
        umask(022);
        char cwd[4096];
        CHILD_CHECK(getcwd(cwd, sizeof(cwd)) != nullptr);
        const std::string nestedFits = std::string(126, 'c') + "/" + std::string(127, 'd');
        for (const std::string& path : {std::string("./"), std::string(""), std::string("a/b"),
                                        std::string("a/b"), std::string("t/x/"), std::string(254, 'a'),
                                        std::string(cwd) + "/abs/y", nestedFits}) {
            CHILD_CHECK(QelLog::createLogDirectory(path) == 0);
            CHILD_CHECK(path.empty() || modeOf(path) == 0755 || path == "./");
        }
        CHILD_CHECK(modeOf("a") == 0755 && modeOf("t") == 0755 && modeOf("abs") == 0755);
        CHILD_CHECK(*ErrnoLocal() == 0);
        CHILD_CHECK(QelLog::createLogDirectory(std::string(255, 'b')) == -1);
        CHILD_CHECK(QelLog::createLogDirectory(std::string(127, 'e') + "/" + std::string(127, 'f')) == -1);
        CHILD_CHECK(*ErrnoLocal() == kFileOpen);
        return 0;
    });
    EXPECT_CHILD_OK(result);
    EXPECT_EQ("", result.err);  // nothing printed but "mkdir error"
}

// Refusals before anything is created change nothing; a folder that cannot be made moves
// logging into a new file in the working directory and reports the failure once; switching
// the writer off and on forgets a folder. A deleted file or folder is made anew.
TEST(LogFolderTest, SettingTheFolder) {
    const std::string longest = std::string(64, 'x') + "/" + std::string(63, 'y');
    const std::string tooLong = std::string(64, 'x') + "/" + std::string(64, 'z');
    auto result = runChild([&] {
        CHILD_CHECK(qelLogSetFileFolder("  logs  ") == 0);  // writer was off: now on
        qelLogSimplify("m", QEL_LOG_INFO, "in logs");
        CHILD_CHECK(logFiles("logs").size() == 1);
        CHILD_CHECK(qelLogSetFileFolder("a\\b\\c") == 0);
        qelLogSimplify("m", QEL_LOG_INFO, "in a/b/c");
        CHILD_CHECK(*ErrnoLocal() == 0);
        for (const char* blank : {"", "   ", static_cast<const char*>(nullptr)}) {
            *ErrnoLocal() = 0;
            CHILD_CHECK(qelLogSetFileFolder(blank) == -1 && *ErrnoLocal() == kInvalidParameter);
        }
        CHILD_CHECK(qelLogSetFileFolder(tooLong.c_str()) == -1 && *ErrnoLocal() == kFileOpen);
        qelLogSimplify("m", QEL_LOG_INFO, "still in a/b/c");
        CHILD_CHECK(qelLogSetFileFolder(("  " + longest + " ").c_str()) == 0);  // 128 trimmed
        qeltest::writeFile("plain", "x");
        CHILD_CHECK(qelLogSetFileFolder("plain/sub") == -1 && *ErrnoLocal() == kFileOpen);
        CHILD_CHECK(access("plain/sub", F_OK) != 0);
        qelLogSimplify("m", QEL_LOG_INFO, "fallback");
        CHILD_CHECK(qelLogSetFileFolder("logs") == 0);
        for (const auto& path : logFiles("logs")) {
            unlink(path.c_str());
        }
        qelLogSimplify("m", QEL_LOG_INFO, "replaced");
        CHILD_CHECK(logFiles("logs").size() == 1 && readFile(logFiles("logs")[0]).find("]replaced") != std::string::npos);
        qeltest::removeTree("logs");
        qelLogSimplify("m", QEL_LOG_INFO, "made anew");
        CHILD_CHECK(qelLogConfigFileWriter(false) == 0 && qelLogConfigFileWriter(true) == 0);
        qelLogSimplify("m", QEL_LOG_INFO, "after reopen");
        CHILD_CHECK(*ErrnoLocal() == kFileOpen);  // never cleared by a success
        return 0;
    });
    EXPECT_CHILD_OK(result);
    EXPECT_EQ(0u, result.err.find("mkdir error: "));
    EXPECT_EQ(1u, qeltest::countOf(result.err, "mkdir error"));
    auto textsIn = [&](const std::string& dir) {
        std::string texts;
        for (const auto& record : qeltest::parseRecords(qeltest::concatenatedLogs(result.dir + dir))) {
            texts += record.text + "|";
        }
        return texts;
    };
    EXPECT_EQ("made anew|", textsIn("/logs"));
    EXPECT_EQ("in a/b/c|still in a/b/c|", textsIn("/a/b/c"));
    EXPECT_EQ("fallback|after reopen|", textsIn(""));
    EXPECT_EQ(1u, logFiles(result.dir + "/" + longest).size());
    EXPECT_EQ(-1, modeOf(result.dir + "/" + tooLong));
}
