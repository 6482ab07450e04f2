#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include <qel/error.h>
#include <qel/log.h>

#include "support/test_support.h"

using qeltest::logFiles;
using qeltest::runChild;

namespace {

const int kFileOpen = static_cast<int>(0x80300002u);
const int kInvalidParameter = static_cast<int>(0x80300206u);

bool isDirectory(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

TEST(LogFolderTest, TrimsSpacesReadsBackslashesAndSwitchesTheWriterOn) {
    auto result = runChild([] {
        CHILD_CHECK(qelLogSetFileFolder("  logs  ") == 0);  // writer was off: now on
        CHILD_CHECK(qelLogSimplify("m", QEL_LOG_INFO, "in logs") == 0);
        CHILD_CHECK(qelLogSetFileFolder("a\\b\\c") == 0);
        CHILD_CHECK(qelLogSimplify("m", QEL_LOG_INFO, "in a/b/c") == 0);
        CHILD_CHECK(*ErrnoLocal() == 0);
        return 0;
    });
    EXPECT_CHILD_OK(result);
    ASSERT_EQ(1u, logFiles(result.dir + "/logs").size());
    EXPECT_NE(std::string::npos,
              qeltest::readFile(logFiles(result.dir + "/logs")[0]).find("]in logs\n\n"));
    ASSERT_EQ(1u, logFiles(result.dir + "/a/b/c").size());
    EXPECT_NE(std::string::npos,
              qeltest::readFile(logFiles(result.dir + "/a/b/c")[0]).find("]in a/b/c\n\n"));
    EXPECT_TRUE(logFiles(result.dir).empty());
}

// Refusals before anything is created change nothing: the writer stays where it was.
TEST(LogFolderTest, BlankNullAndOverlongFoldersAreRefusedWithoutChange) {
    auto result = runChild([] {
        CHILD_CHECK(qelLogSetFileFolder("first") == 0);
        CHILD_CHECK(qelLogSetFileFolder("") == -1);
        CHILD_CHECK(*ErrnoLocal() == kInvalidParameter);
        *ErrnoLocal() = 0;
        CHILD_CHECK(qelLogSetFileFolder("   ") == -1);
        CHILD_CHECK(*ErrnoLocal() == kInvalidParameter);
        *ErrnoLocal() = 0;
        CHILD_CHECK(qelLogSetFileFolder(nullptr) == -1);
        CHILD_CHECK(*ErrnoLocal() == kInvalidParameter);
        const std::string longest = "  " + std::string(64, 'x') + "/" + std::string(63, 'y') + " ";
        const std::string tooLong = std::string(64, 'x') + "/" + std::string(64, 'z');
        CHILD_CHECK(qelLogSetFileFolder(tooLong.c_str()) == -1);
        CHILD_CHECK(*ErrnoLocal() == kFileOpen);
        CHILD_CHECK(qelLogSimplify("m", QEL_LOG_INFO, "still first") == 0);
        *ErrnoLocal() = 0;
        CHILD_CHECK(qelLogSetFileFolder(longest.c_str()) == 0);  // 128 after trimming
        CHILD_CHECK(*ErrnoLocal() == 0);
        return 0;
    });
    EXPECT_CHILD_OK(result);
    const auto first = logFiles(result.dir + "/first");
    ASSERT_EQ(1u, first.size());
    EXPECT_NE(std::string::npos, qeltest::readFile(first[0]).find("]still first\n\n"));
    EXPECT_FALSE(isDirectory(result.dir + "/" + std::string(64, 'x') + "/" + std::string(64, 'z')));
    EXPECT_EQ(1u, logFiles(result.dir + "/" + std::string(64, 'x') + "/" + std::string(63, 'y')).size());
}

// A folder that cannot be made moves logging into a new file in the working directory and
// still reports the failure; switching the writer off and on forgets a folder.
TEST(LogFolderTest, FailuresFallBackToTheWorkingDirectory) {
    auto result = runChild([] {
        std::ofstream("plain") << "x";
        CHILD_CHECK(qelLogSetFileFolder("good") == 0);
        CHILD_CHECK(qelLogSetFileFolder("plain/sub") == -1);
        CHILD_CHECK(*ErrnoLocal() == kFileOpen);
        CHILD_CHECK(qelLogSimplify("m", QEL_LOG_INFO, "fallback") == 0);
        CHILD_CHECK(qelLogSetFileFolder("good") == 0);
        CHILD_CHECK(qelLogConfigFileWriter(false) == 0);
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
        CHILD_CHECK(qelLogSimplify("m", QEL_LOG_INFO, "after reopen") == 0);
        CHILD_CHECK(*ErrnoLocal() == kFileOpen);  // never cleared by a success
        return 0;
    });
    EXPECT_CHILD_OK(result);
    EXPECT_NE(std::string::npos, result.err.find("mkdir error"));
    const auto here = logFiles(result.dir);
    ASSERT_EQ(2u, here.size());
    EXPECT_NE(std::string::npos, qeltest::readFile(here[0]).find("]fallback\n\n"));
    EXPECT_NE(std::string::npos, qeltest::readFile(here[1]).find("]after reopen\n\n"));
    EXPECT_EQ(2u, logFiles(result.dir + "/good").size());
}
