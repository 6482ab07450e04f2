#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <qel/error.h>
#include <qel/log.h>
#include <qel/thread.h>
#include <qel/timeutils.h>

#include "support/test_support.h"

using qeltest::runChild;

namespace {

int minuteOfDay(const std::string& time) {
    return std::atoi(time.substr(0, 2).c_str()) * 60 + std::atoi(time.substr(3, 2).c_str());
}

}  // namespace

// What reaches the console, in order: the threshold, fields cut at their size, the error
// slot in lower-case hexadecimal, the console switched off and on, the stamps of each record.
TEST(LogRecordsTest, ThresholdFieldsErrnoAndStamps) {
    // Looked up before the fork: the child, a copy of this thread, must stamp its own id.
    const long parentId = qel::ThreadWrapper::getThreadId();
    ASSERT_EQ(syscall(SYS_gettid), parentId);
    auto result = runChild([] {
        CHILD_CHECK(qelLogGetGlobalLevel() == QEL_LOG_INFO);
        qelLogSimplify("cam", QEL_LOG_VERBOSE, "dropped");
        qelLogSimplify(std::string(200, 'm').c_str(), QEL_LOG_INFO, "long module");
        CHILD_CHECK(qelLogSetGlobalLevel(QEL_LOG_ERROR) == 0);
        qelLogSimplify("cam", QEL_LOG_WARNING, "dropped");
        qelLogSimplify("cam", QEL_LOG_ERROR, std::string(2047, 'f').c_str());
        CHILD_CHECK(qelLogSetModuleLevel(QEL_MODULE_DEVICE, QEL_LOG_VERBOSE) == 0);
        qelLogSimplify("cam", QEL_LOG_VERBOSE, "dropped");
        CHILD_CHECK(qelLogSetGlobalLevel(static_cast<QelLogLevel>(-5)) == 0);
        CHILD_CHECK(qelLogGetGlobalLevel() == -5);
        qelLogSimplify("cam", static_cast<QelLogLevel>(-3), (std::string(2047, 'c') + "X").c_str());
        CHILD_CHECK(qelLogErrno("err") == 0);  // slot at 0: nothing is logged
        *ErrnoLocal() = static_cast<int>(0x8030010Au);
        CHILD_CHECK(qelLogErrno("err") == 0);
        CHILD_CHECK(*ErrnoLocal() == static_cast<int>(0x8030010Au));  // read, not cleared
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0);
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0);
        qelLogSimplify("cam", QEL_LOG_ERROR, "nowhere");
        CHILD_CHECK(qelLogConfigConsoleWriter(true) == 0);
        CHILD_CHECK(qelLogConfigConsoleWriter(true) == 0);  // no second connection
        CHILD_CHECK(qelLogWrite(nullptr, QEL_LOG_WARNING, nullptr, 0, nullptr, nullptr) == 0);
        std::thread([] {
            qelLogSimplify("t", QEL_LOG_INFO, std::to_string(syscall(SYS_gettid)).c_str());
        }).join();
        // Two zones within one second: a broken-down time kept for the second without regard
        // to the zone would repeat the first zone's hours.
        setenv("TZ", "QEL-05:30", 1);
        tzset();
        qelLogSimplify("east", QEL_LOG_INFO, "");
        setenv("TZ", "UTC0", 1);
        tzset();
        qelLogSimplify("utc", QEL_LOG_INFO, "");
        // Each text is the timestamp taken just before its record; where the next one agrees,
        // the record's time must be its tail after the last '-', milliseconds unpadded.
        for (int i = 0; i < 500; ++i) {
            qelLogSimplify("stamp", QEL_LOG_INFO, qel::localTimeFormat().c_str());
        }
        qelLogSimplify("stamp", QEL_LOG_INFO, qel::localTimeFormat().c_str());
        return 0;
    });
    EXPECT_CHILD_OK(result);
    const auto lines = qeltest::parseRecords(result.out);
    ASSERT_EQ(509u, lines.size()) << result.out.substr(0, 10000);
    const std::vector<std::vector<std::string>> expected = {
        {std::string(127, 'm'), "I", "long module"},
        {"cam", "E", std::string(2047, 'f')},
        {"cam", "?", std::string(2047, 'c')},
        {"err", "E", "Errno:0x8030010a"},
        {"", "W", ""},
    };
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(expected[i], (std::vector<std::string>{lines[i].module, lines[i].level, lines[i].text}));
        EXPECT_EQ(result.pid, lines[i].tid);  // the main thread's id is the process id
    }
    EXPECT_NE(parentId, lines[0].tid);
    EXPECT_EQ(std::stol(lines[5].text), lines[5].tid);
    EXPECT_NE(result.pid, lines[5].tid);
    const int difference = (minuteOfDay(lines[6].time) - minuteOfDay(lines[7].time) + 1440) % 1440;
    EXPECT_TRUE(difference == 330 || difference == 329) << lines[6].time << " " << lines[7].time;
    int compared = 0;
    for (size_t i = 8; i + 1 < lines.size(); ++i) {
        if (lines[i].text == lines[i + 1].text) {
            ASSERT_EQ(lines[i].text.substr(lines[i].text.rfind('-') + 1), lines[i].time);
            ++compared;
        }
    }
    EXPECT_GT(compared, 0);
    EXPECT_TRUE(qeltest::logFiles(result.dir).empty()) << "no file before the writer is on";
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
        qelLogSimplify("main", QEL_LOG_INFO, "running");
        static EarlyLogger early;  // built after the manager, so destroyed before it
        return 0;
    });
    EXPECT_CHILD_OK(result);
    const auto lines = qeltest::parseRecords(result.out);
    ASSERT_EQ(2u, lines.size()) << result.out;
    EXPECT_EQ("running", lines[0].text);
    EXPECT_EQ("before the manager goes", lines[1].text);
    EXPECT_EQ(result.out, qeltest::concatenatedLogs(result.dir));
    EXPECT_NE(0, access((result.dir + "/late-folder").c_str(), F_OK));
}
