#include <sys/syscall.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <qel/error.h>
#include <qel/log.h>
#include <qel/thread.h>
#include <qel/timeutils.h>

#include "log/qel_log_stream_base.h"
#include "support/test_support.h"

namespace {

// The base is abstract; a writer that writes nothing is enough to reach formatLog.
struct SilentWriter : qel::QelLogStreamBase {
    void writeFormatLog(const LogMessage&) override {}
    int openLog() override { return 0; }
    void closeLog() override {}
};

std::string format(const LogMessage& msg) {
    std::string line(5000, 'z');  // whatever the string held before is replaced
    SilentWriter().formatLog(msg, line);
    return line;
}

// The line as the format "[%s][V%d.%d.%d %s %s %u]" and the text would give it.
std::string byFormat(const LogMessage& msg, const char* letter) {
    char header[1024];
    snprintf(header, sizeof(header), "[%s][V%d.%d.%d %s %s %u]", msg.module, QEL_VERSION_MAJOR,
             QEL_VERSION_MINOR, QEL_VERSION_PATCH, letter, msg.timeText, msg.threadId);
    return header + std::string(msg.text) + "\n\n";
}

int minuteOfDay(const std::string& time) {
    return std::stoi(time.substr(0, 2)) * 60 + std::stoi(time.substr(3, 2));
}

}  // namespace

// The header is put together by hand, not by a format: it must give what the format gives for
// every field at its limits, "?" for a level without a letter, and with a caller's long letter
// (LEVELSTRING is writable) cut at 1023 characters.
TEST(LogRecordsTest, LineFormatMatchesTheFormatAtTheFieldLimits) {
    LogMessage msg = {};
    memset(msg.module, 'm', 127);
    memset(msg.timeText, 't', 127);
    strcpy(msg.text, " two\nlines ");
    const char* letters[] = {"V", "I", "W", "E"};
    for (unsigned tid : {0u, 9u, 10u, 99u, 100u, 4294967295u, 1000000000u}) {
        for (int level : {0, 1, 2, 3, 4, -1, INT_MIN}) {
            msg.threadId = tid;
            msg.level = static_cast<QelLogLevel>(level);
            ASSERT_EQ(byFormat(msg, level >= 0 && level < 4 ? letters[level] : "?"), format(msg));
        }
    }
    const char* saved = LEVELSTRING[2];
    const std::string hugeLetter(2000, 'L');
    LEVELSTRING[2] = hugeLetter.c_str();
    msg.level = QEL_LOG_WARNING;
    EXPECT_EQ(byFormat(msg, hugeLetter.c_str()).substr(0, 1023) + msg.text + "\n\n", format(msg));
    LEVELSTRING[2] = nullptr;
    EXPECT_EQ(byFormat(msg, "(null)"), format(msg));
    LEVELSTRING[2] = saved;
}

// What reaches the console, in order: the threshold, fields cut at their size, the error
// slot in lower-case hexadecimal, the console switched off and on, and each record's stamps.
TEST(LogRecordsTest, ThresholdFieldsErrnoAndStamps) {
    // Looked up before the fork: the child, a copy of this thread, must stamp its own id.
    const long parentId = qel::ThreadWrapper::getThreadId();
    auto result = qeltest::runChild([] {
        CHILD_CHECK(qelLogGetGlobalLevel() == QEL_LOG_INFO);
        qelLogSimplify("cam", QEL_LOG_VERBOSE, "dropped");
        qelLogSimplify(std::string(200, 'm').c_str(), QEL_LOG_INFO, "");
        CHILD_CHECK(qelLogSetGlobalLevel(QEL_LOG_ERROR) == 0);
        qelLogSimplify("cam", QEL_LOG_WARNING, "dropped");
        qelLogSimplify("cam", QEL_LOG_ERROR, std::string(2047, 'f').c_str());
        CHILD_CHECK(qelLogSetModuleLevel(QEL_MODULE_DEVICE, QEL_LOG_VERBOSE) == 0);
        qelLogSimplify("cam", QEL_LOG_VERBOSE, "dropped");
        CHILD_CHECK(qelLogSetGlobalLevel(static_cast<QelLogLevel>(-5)) == 0);
        qelLogSimplify("cam", static_cast<QelLogLevel>(-3), (std::string(2047, 'c') + "X").c_str());
        CHILD_CHECK(qelLogErrno("err") == 0);  // slot at 0: nothing is logged
        *ErrnoLocal() = static_cast<int>(0x8030010Au);
        CHILD_CHECK(qelLogErrno("err") == 0 && *ErrnoLocal() == static_cast<int>(0x8030010Au));
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0 && qelLogConfigConsoleWriter(false) == 0);
        qelLogSimplify("cam", QEL_LOG_ERROR, "nowhere");
        CHILD_CHECK(qelLogConfigConsoleWriter(true) == 0 && qelLogConfigConsoleWriter(true) == 0);
        CHILD_CHECK(qelLogWrite(nullptr, QEL_LOG_WARNING, nullptr, 0, nullptr, nullptr) == 0);
        std::thread([] { qelLogSimplify("t", QEL_LOG_INFO, std::to_string(syscall(SYS_gettid)).c_str()); }).join();
        // Two zones within one second: a local time kept for the second must follow the zone.
        setenv("TZ", "QEL-05:30", 1);
        tzset();
        qelLogSimplify("east", QEL_LOG_INFO, "");
        setenv("TZ", "UTC0", 1);
        tzset();
        // Each text is the timestamp taken just before its record; where the next one agrees,
        // the record's time must be its tail after the last '-'.
        for (int i = 0; i < 500; ++i) {
            qelLogSimplify("stamp", QEL_LOG_INFO, qel::localTimeFormat().c_str());
        }
        return 0;
    });
    EXPECT_CHILD_OK(result);
    const auto lines = qeltest::parseRecords(result.out);
    ASSERT_EQ(507u, lines.size()) << result.out.substr(0, 10000);
    const std::vector<std::vector<std::string>> expected = {{std::string(127, 'm'), "I", ""},
        {"cam", "E", std::string(2047, 'f')}, {"cam", "?", std::string(2047, 'c')},
        {"err", "E", "Errno:0x8030010a"}, {"", "W", ""}};
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(expected[i], (std::vector<std::string>{lines[i].module, lines[i].level, lines[i].text}));
        EXPECT_EQ(result.pid, lines[i].tid);  // the main thread's id is the process id
    }
    EXPECT_NE(parentId, lines[0].tid);
    EXPECT_EQ(std::stol(lines[5].text), lines[5].tid);
    const int difference = (minuteOfDay(lines[6].time) - minuteOfDay(lines[7].time) + 1440) % 1440;
    EXPECT_TRUE(difference == 330 || difference == 329) << lines[6].time << " " << lines[7].time;
    int compared = 0;
    for (size_t i = 7; i + 1 < lines.size(); ++i) {
        if (lines[i].text == lines[i + 1].text && ++compared) {
            ASSERT_EQ(lines[i].text.substr(lines[i].text.rfind('-') + 1), lines[i].time);
        }
    }
    EXPECT_GT(compared, 0);
    EXPECT_TRUE(qeltest::logFiles(result.dir).empty()) << "no file before the writer is on";
}

namespace {

struct LateLogger {  // built before the manager, so destroyed after it
    ~LateLogger() {
        qelLogSimplify("late", QEL_LOG_ERROR, "after the manager");
        qelLogErrno("late");
        qelLogConfigFileWriter(true);
        qelLogSetFileFolder("late-folder");
    }
};

struct EarlyLogger {  // built after the manager, so destroyed before it
    ~EarlyLogger() { qelLogSimplify("early", QEL_LOG_ERROR, "before the manager goes"); }
};

}  // namespace

// Exit-time code that runs after the manager is gone must neither crash nor reach freed
// writers; exit-time code that runs before it still logs.
TEST(LogRecordsTest, LoggingAtExitAfterTheManagerIsGoneIsHarmless) {
    auto result = qeltest::runChild([] {
        static LateLogger late;
        atexit([] { qelLogSimplify("atexit", QEL_LOG_ERROR, "from atexit"); });
        *ErrnoLocal() = static_cast<int>(0x80300206u);
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
        qelLogSimplify("main", QEL_LOG_INFO, "running");
        static EarlyLogger early;
        return 0;
    });
    EXPECT_CHILD_OK(result);
    const auto lines = qeltest::parseRecords(result.out);
    ASSERT_EQ(2u, lines.size()) << result.out;
    EXPECT_EQ("before the manager goes", lines[1].text);
    EXPECT_EQ(result.out, qeltest::concatenatedLogs(result.dir));
    EXPECT_NE(0, access((result.dir + "/late-folder").c_str(), F_OK));
}
