#include <sys/syscall.h>
#include <sys/time.h>
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

// The wall clock as the library reads it: the real one, or a fixed instant in microseconds.
static long long g_fakeMicros = -1;

extern "C" int gettimeofday(struct timeval* tv, void*) noexcept {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    const long long micros = g_fakeMicros >= 0 ? g_fakeMicros : now.tv_sec * 1000000LL + now.tv_nsec / 1000;
    tv->tv_sec = micros / 1000000;
    tv->tv_usec = micros % 1000000;
    return 0;
}

// What reaches the console, in order: the threshold, fields cut at their size, the error slot
// in lower-case hexadecimal, the console switched off and on, each record's thread. At fixed
// instants the timestamp text is local time and the record's time its tail, milliseconds
// unpadded; a new second and a new zone show at once.
TEST(LogRecordsTest, ThresholdFieldsErrnoAndStamps) {
    // Looked up before the fork: the child, a copy of this thread, must stamp its own id.
    const long parentId = qel::ThreadWrapper::getThreadId();
    const int millis[] = {0, 5, 9, 10, 99, 100, 999, 1045};
    auto result = qeltest::runChild([&] {
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
        setenv("TZ", "QEL-05:30", 1);
        tzset();
        for (int ms : millis) {
            g_fakeMicros = 1794865643000000LL + ms * 1000LL;  // 2026-11-16 21:47:23 UTC and ms
            qelLogSimplify("t", QEL_LOG_INFO, qel::localTimeFormat().c_str());
        }
        setenv("TZ", "UTC0", 1);
        tzset();
        qelLogSimplify("t", QEL_LOG_INFO, qel::localTimeFormat().c_str());
        return 0;
    });
    EXPECT_CHILD_OK(result);
    const auto lines = qeltest::parseRecords(result.out);
    ASSERT_EQ(15u, lines.size()) << result.out;
    const std::vector<std::vector<std::string>> expected = {{std::string(127, 'm'), "I", ""},
        {"cam", "E", std::string(2047, 'f')}, {"cam", "?", std::string(2047, 'c')},
        {"err", "E", "Errno:0x8030010a"}, {"", "W", ""}};
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(expected[i], (std::vector<std::string>{lines[i].module, lines[i].level, lines[i].text}));
        EXPECT_EQ(result.pid, lines[i].tid);  // the main thread's id is the process id
    }
    EXPECT_NE(parentId, lines[0].tid);
    EXPECT_EQ(std::stol(lines[5].text), lines[5].tid);
    for (size_t i = 0; i < 8; ++i) {
        const std::string time = (millis[i] < 1000 ? "03:17:23:" : "03:17:24:") + std::to_string(millis[i] % 1000);
        EXPECT_EQ("2026-11-17-" + time, lines[6 + i].text);
        EXPECT_EQ(time, lines[6 + i].time);
    }
    EXPECT_EQ("2026-11-16-21:47:24:45", lines[14].text);
    EXPECT_EQ("21:47:24:45", lines[14].time);
    EXPECT_TRUE(qeltest::logFiles(result.dir).empty()) << "no file before the writer is on";
}
