#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include <qel/log.h>

#include "support/test_support.h"

using qeltest::logFiles;
using qeltest::readFile;
using qeltest::runChild;

// Lines longer than the limit spread over several files: every file but the newest is
// exactly the limit, none is overwritten, and together they hold exactly what the console
// printed.
TEST(LogRotationTest, SplitsLinesExactlyAtTheLimitWithoutLoss) {
    constexpr size_t kLimit = 100;
    auto result = runChild([] {
        CHILD_CHECK(qelLogSetMaxSize(kLimit) == 0);
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
        for (int i = 0; i < 30; ++i) {
            const std::string text = std::to_string(i) + ":" + std::string(i * 17 % 260, 'a' + i % 26);
            CHILD_CHECK(qelLogSimplify("rot", QEL_LOG_INFO, text.c_str()) == 0);
        }
        return 0;
    });
    EXPECT_CHILD_OK(result);
    const auto files = logFiles(result.dir);
    ASSERT_GT(files.size(), 10u);
    for (size_t i = 0; i < files.size(); ++i) {
        const size_t size = readFile(files[i]).size();
        if (i + 1 < files.size()) {
            EXPECT_EQ(kLimit, size) << files[i];
        } else {
            EXPECT_LE(size, kLimit);
            EXPECT_GT(size, 0u);
        }
    }
    EXPECT_EQ(result.out, qeltest::concatenatedLogs(result.dir));
}

TEST(LogRotationTest, LimitChangesApplyToTheCurrentFile) {
    auto result = runChild([] {
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0);
        CHILD_CHECK(qelLogSetMaxSize(0) == 0);  // no limit
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
        const std::string text(2000, 'n');
        for (int i = 0; i < 10; ++i) {
            CHILD_CHECK(qelLogSimplify("big", QEL_LOG_INFO, text.c_str()) == 0);
        }
        CHILD_CHECK(logFiles(".").size() == 1);
        // Bytes written without a limit are not counted: the file takes up to the new limit more.
        CHILD_CHECK(qelLogSetMaxSize(3000) == 0);
        CHILD_CHECK(qelLogSimplify("big", QEL_LOG_INFO, text.c_str()) == 0);
        CHILD_CHECK(logFiles(".").size() == 1);
        CHILD_CHECK(qelLogSimplify("big", QEL_LOG_INFO, text.c_str()) == 0);
        CHILD_CHECK(logFiles(".").size() == 2);
        // A limit below what the current file holds: the next record goes whole to a new file.
        CHILD_CHECK(qelLogSetMaxSize(1000) == 0);
        CHILD_CHECK(qelLogSimplify("small", QEL_LOG_INFO, "whole") == 0);
        return 0;
    });
    EXPECT_CHILD_OK(result);
    const auto files = logFiles(result.dir);
    ASSERT_EQ(3u, files.size());
    const std::string first = readFile(files[0]);
    const std::string second = readFile(files[1]);
    EXPECT_GT(first.size(), 20000u);
    EXPECT_EQ('n', first.back());       // split inside the text of the twelfth record
    EXPECT_EQ(std::string(10, 'n'), second.substr(0, 10));
    EXPECT_GT(second.size(), 1000u);    // counted since the limit came, more than the new one
    const std::string last = readFile(files[2]);
    EXPECT_EQ(0u, last.find("[small]"));
    EXPECT_NE(std::string::npos, last.find("]whole\n\n"));
}

TEST(LogRotationTest, DeletedCurrentFileIsReplacedByANewOne) {
    auto result = runChild([] {
        CHILD_CHECK(qelLogSetFileFolder("logs") == 0);
        CHILD_CHECK(qelLogSimplify("m", QEL_LOG_INFO, "first") == 0);
        const auto files = logFiles("logs");
        CHILD_CHECK(files.size() == 1);
        CHILD_CHECK(unlink(files[0].c_str()) == 0);
        CHILD_CHECK(qelLogSimplify("m", QEL_LOG_INFO, "second") == 0);
        qeltest::removeTree("logs");
        CHILD_CHECK(qelLogSimplify("m", QEL_LOG_INFO, "third") == 0);
        return 0;
    });
    EXPECT_CHILD_OK(result);
    const auto files = logFiles(result.dir + "/logs");
    ASSERT_EQ(1u, files.size());
    const std::string content = readFile(files[0]);
    EXPECT_NE(std::string::npos, content.find("]third\n\n"));
}
