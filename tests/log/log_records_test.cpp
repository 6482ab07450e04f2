#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <qel/error.h>
#include <qel/log.h>

#include "support/test_support.h"

using qeltest::runChild;

using qeltest::parseRecords;

TEST(LogRecordsTest, DefaultStateThresholdAndModuleLevels) {
    auto result = runChild([] {
        CHILD_CHECK(qelLogGetGlobalLevel() == QEL_LOG_INFO);
        CHILD_CHECK(qelLogSimplify("cam", QEL_LOG_INFO, "one") == 0);
        CHILD_CHECK(qelLogSimplify("cam", QEL_LOG_VERBOSE, "dropped") == 0);
        CHILD_CHECK(qelLogSetGlobalLevel(QEL_LOG_ERROR) == 0);
        CHILD_CHECK(qelLogGetGlobalLevel() == QEL_LOG_ERROR);
        CHILD_CHECK(qelLogSimplify("cam", QEL_LOG_WARNING, "dropped") == 0);
        CHILD_CHECK(qelLogSimplify("cam", QEL_LOG_ERROR, "three") == 0);
        CHILD_CHECK(qelLogSetModuleLevel(QEL_MODULE_DEVICE, QEL_LOG_VERBOSE) == 0);
        CHILD_CHECK(qelLogSimplify("cam", QEL_LOG_VERBOSE, "dropped") == 0);
        CHILD_CHECK(qelLogSetGlobalLevel(static_cast<QelLogLevel>(-5)) == 0);
        CHILD_CHECK(qelLogGetGlobalLevel() == -5);
        CHILD_CHECK(qelLogSimplify("cam", QEL_LOG_VERBOSE, "zero") == 0);
        CHILD_CHECK(qelLogSimplify("cam", static_cast<QelLogLevel>(-3), "minus") == 0);
        CHILD_CHECK(qelLogSetGlobalLevel(static_cast<QelLogLevel>(4)) == 0);
        CHILD_CHECK(qelLogSimplify("cam", QEL_LOG_ERROR, "dropped") == 0);
        return 0;
    });
    EXPECT_CHILD_OK(result);
    const auto lines = parseRecords(result.out);
    ASSERT_EQ(4u, lines.size()) << result.out;
    EXPECT_EQ("one", lines[0].text);
    EXPECT_EQ("I", lines[0].level);
    EXPECT_EQ("three", lines[1].text);
    EXPECT_EQ("E", lines[1].level);
    EXPECT_EQ("zero", lines[2].text);
    EXPECT_EQ("V", lines[2].level);
    EXPECT_EQ("?", lines[3].level);
    for (const auto& line : lines) {
        EXPECT_EQ("cam", line.module);
        EXPECT_EQ(result.pid, line.tid);  // the main thread's id is the process id
    }
    EXPECT_TRUE(qeltest::logFiles(result.dir).empty()) << "no file before the writer is on";
}

TEST(LogRecordsTest, ConsoleAndFileCarryTheSameBytes) {
    auto result = runChild([] {
        CHILD_CHECK(qelLogSimplify("early", QEL_LOG_INFO, "console only") == 0);
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);  // already on: no second file
        CHILD_CHECK(qelLogWrite("dev", QEL_LOG_WARNING, "dev.c", 42, "open", "multi\nline") == 0);
        CHILD_CHECK(qelLogWrite("dev", QEL_LOG_ERROR, nullptr, 0, nullptr, "") == 0);
        CHILD_CHECK(qelLogSimplify(nullptr, QEL_LOG_INFO, nullptr) == 0);
        return 0;
    });
    EXPECT_CHILD_OK(result);
    const auto files = qeltest::logFiles(result.dir);
    ASSERT_EQ(1u, files.size());
    const std::string file = qeltest::readFile(files[0]);
    ASSERT_FALSE(file.empty());
    ASSERT_GE(result.out.size(), file.size());
    // Everything logged after the file writer was switched on is in both, byte for byte.
    EXPECT_EQ(result.out.substr(result.out.size() - file.size()), file);
    EXPECT_EQ(0u, result.out.find("[early][V1.8.63 I "));
    const auto recordsInFile = std::count(file.begin(), file.end(), '[') / 2;
    EXPECT_EQ(3, recordsInFile);
    EXPECT_NE(std::string::npos, file.find("]multi\nline\n\n"));
    EXPECT_NE(std::string::npos, file.find("[][V1.8.63 I "));
}

TEST(LogRecordsTest, LongFieldsAreCutAndErrnoIsLoggedAtErrorLevel) {
    auto result = runChild([] {
        const std::string module(200, 'm');
        CHILD_CHECK(qelLogSimplify(module.c_str(), QEL_LOG_INFO, "a") == 0);
        const std::string fits(2047, 'f');
        CHILD_CHECK(qelLogSimplify("t", QEL_LOG_INFO, fits.c_str()) == 0);
        const std::string cut = std::string(2047, 'c') + "X";
        CHILD_CHECK(qelLogSimplify("t", QEL_LOG_INFO, cut.c_str()) == 0);
        CHILD_CHECK(qelLogErrno("err") == 0);  // slot at 0: nothing is logged
        *ErrnoLocal() = static_cast<int>(0x80300002u);
        CHILD_CHECK(qelLogErrno("err") == 0);
        CHILD_CHECK(*ErrnoLocal() == static_cast<int>(0x80300002u));  // read, not cleared
        return 0;
    });
    EXPECT_CHILD_OK(result);
    const auto lines = parseRecords(result.out);
    ASSERT_EQ(4u, lines.size());
    EXPECT_EQ(std::string(127, 'm'), lines[0].module);
    EXPECT_EQ(std::string(2047, 'f'), lines[1].text);
    EXPECT_EQ(std::string(2047, 'c'), lines[2].text);
    EXPECT_EQ("err", lines[3].module);
    EXPECT_EQ("E", lines[3].level);
    EXPECT_EQ("Errno:0x80300002", lines[3].text);
}

TEST(LogRecordsTest, WritersSwitchedOffAndOn) {
    auto result = runChild([] {
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0);
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0);
        CHILD_CHECK(qelLogSimplify("m", QEL_LOG_ERROR, "nowhere") == 0);
        CHILD_CHECK(qelLogConfigConsoleWriter(true) == 0);
        CHILD_CHECK(qelLogConfigConsoleWriter(true) == 0);  // no second connection
        CHILD_CHECK(qelLogSimplify("m", QEL_LOG_ERROR, "once") == 0);
        CHILD_CHECK(qelLogConfigFileWriter(false) == 0);  // off already: nothing happens
        return 0;
    });
    EXPECT_CHILD_OK(result);
    const auto lines = parseRecords(result.out);
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("once", lines[0].text);
}

namespace {

struct LateLogger {
    ~LateLogger() {
        qelLogSimplify("late", QEL_LOG_ERROR, "after the manager");
        qelLogErrno("late");
        qelLogConfigFileWriter(true);
        qelLogSetFileFolder("late-folder");
        qelLogGetGlobalLevel();
    }
};

struct EarlyLogger {
    ~EarlyLogger() { qelLogSimplify("early", QEL_LOG_ERROR, "before the manager goes"); }
};

void logFromAtExit() {
    qelLogSimplify("atexit", QEL_LOG_ERROR, "from atexit");
}

}  // namespace

// Exit-time code that runs after the manager is gone must neither crash nor reach freed
// writers; exit-time code that runs before it still logs.
TEST(LogRecordsTest, LoggingAtExitAfterTheManagerIsGoneIsHarmless) {
    auto result = runChild([] {
        static LateLogger late;  // built before the manager, so destroyed after it
        atexit(logFromAtExit);   // registered before the manager: runs after it is gone
        *ErrnoLocal() = static_cast<int>(0x80300206u);
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
        CHILD_CHECK(qelLogSimplify("main", QEL_LOG_INFO, "running") == 0);
        static EarlyLogger early;  // built after the manager, so destroyed before it
        return 0;
    });
    EXPECT_CHILD_OK(result);
    const auto lines = parseRecords(result.out);
    ASSERT_EQ(2u, lines.size()) << result.out;
    EXPECT_EQ("running", lines[0].text);
    EXPECT_EQ("before the manager goes", lines[1].text);
    EXPECT_EQ(result.out, qeltest::concatenatedLogs(result.dir));
    EXPECT_NE(0, access((result.dir + "/late-folder").c_str(), F_OK));
}
