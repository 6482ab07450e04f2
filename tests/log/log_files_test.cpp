#include <string>

#include <gtest/gtest.h>

#include <qel/log.h>

#include "support/test_support.h"

using qeltest::logFiles;
using qeltest::readFile;
using qeltest::runChild;

// Records longer than the limit spread over several files: every file but the newest is
// exactly the limit, none is overwritten, and together they hold byte for byte what the
// console printed once the writer was on.
TEST(LogFilesTest, ConsoleAndFilesCarryTheSameBytesSplitExactlyAtTheLimit) {
    constexpr size_t kLimit = 100;
    auto result = runChild([] {
        qelLogSimplify("early", QEL_LOG_INFO, "console only");
        CHILD_CHECK(qelLogSetMaxSize(kLimit) == 0);
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);  // already on: no second connection
        qelLogWrite("dev", QEL_LOG_WARNING, "dev.c", 42, "open", "multi line");
        for (int i = 0; i < 30; ++i) {
            const std::string text = std::to_string(i) + ":" + std::string(i * 17 % 260, 'a' + i % 26);
            qelLogSimplify("rot", QEL_LOG_INFO, text.c_str());
        }
        return 0;
    });
    EXPECT_CHILD_OK(result);
    const auto files = logFiles(result.dir);
    ASSERT_GT(files.size(), 10u);
    for (size_t i = 0; i < files.size(); ++i) {
        const size_t size = readFile(files[i]).size();
        EXPECT_TRUE(i + 1 < files.size() ? size == kLimit : size > 0 && size <= kLimit) << size;
    }
    const auto records = qeltest::parseRecords(result.out);
    ASSERT_EQ(32u, records.size());
    EXPECT_EQ(result.out.substr(result.out.find("[dev]")), qeltest::concatenatedLogs(result.dir));
}

TEST(LogFilesTest, LimitChangesApplyToTheCurrentFile) {
    auto result = runChild([] {
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0);
        CHILD_CHECK(qelLogSetMaxSize(0) == 0);  // no limit
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
        const std::string text(2000, 'n');
        for (int i = 0; i < 10; ++i) {
            qelLogSimplify("big", QEL_LOG_INFO, text.c_str());
        }
        // Bytes written without a limit are not counted: the file takes up to the new limit more.
        CHILD_CHECK(qelLogSetMaxSize(3000) == 0);
        qelLogSimplify("big", QEL_LOG_INFO, text.c_str());
        CHILD_CHECK(logFiles(".").size() == 1);
        qelLogSimplify("big", QEL_LOG_INFO, text.c_str());
        CHILD_CHECK(logFiles(".").size() == 2);
        // A limit below what the current file holds: the next record goes whole to a new file.
        CHILD_CHECK(qelLogSetMaxSize(1000) == 0);
        qelLogSimplify("small", QEL_LOG_INFO, "whole");
        return 0;
    });
    EXPECT_CHILD_OK(result);
    const auto files = logFiles(result.dir);
    ASSERT_EQ(3u, files.size());
    const std::string first = readFile(files[0]), second = readFile(files[1]);
    EXPECT_EQ('n', first.back());  // split inside the text of the twelfth record
    EXPECT_EQ(std::string(10, 'n'), second.substr(0, 10));
    EXPECT_EQ(10 * first.find("[big]", 1) + 3000, first.size());  // counted from the limit on
    EXPECT_GT(second.size(), 1000u);  // counted since the limit came, more than the new one
    EXPECT_EQ(0u, readFile(files[2]).find("[small]"));
}
