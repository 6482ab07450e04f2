#include <climits>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "log/qel_log_stream_base.h"
#include "support/test_support.h"

namespace {

// The base is abstract; a writer that writes nothing is enough to reach formatLog.
class SilentWriter : public qel::QelLogStreamBase {
public:
    void writeFormatLog(const LogMessage&) override {}
    int openLog() override { return 0; }
    void closeLog() override {}
};

LogMessage record(const std::string& module, int level, const std::string& time, unsigned tid) {
    LogMessage msg;
    memset(&msg, 0, sizeof(msg));
    snprintf(msg.module, sizeof(msg.module), "%s", module.c_str());
    snprintf(msg.timeText, sizeof(msg.timeText), "%s", time.c_str());
    snprintf(msg.text, sizeof(msg.text), "%s", " two\nlines ");
    msg.level = static_cast<QelLogLevel>(level);
    msg.threadId = tid;
    return msg;
}

// The line as the format "[%s][V%d.%d.%d %s %s %u]" and the text would give it.
std::string byFormat(const LogMessage& msg, const char* letter) {
    char header[1024];
    snprintf(header, sizeof(header), "[%s][V%d.%d.%d %s %s %u]", msg.module, QEL_VERSION_MAJOR,
             QEL_VERSION_MINOR, QEL_VERSION_PATCH, letter, msg.timeText, msg.threadId);
    return std::string(header) + msg.text + "\n\n";
}

std::string format(const LogMessage& msg) {
    SilentWriter writer;
    std::string line(5000, 'z');  // whatever the string held before is replaced
    writer.formatLog(msg, line);
    return line;
}

}  // namespace

// The header is put together by hand, not by a format: it must give exactly what the format
// gives, for every field at its limits. Levels without a letter never index past the table.
TEST(LineFormatTest, MatchesTheFormatAtTheFieldLimits) {
    EXPECT_EQ("[Dev][V" QELTEST_VERSION " I 21:47:16:5 812] two\nlines \n\n",
              format(record("Dev", 1, "21:47:16:5", 812)));
    EXPECT_EQ("[][V" QELTEST_VERSION " W  0] two\nlines \n\n", format(record("", 2, "", 0)));
    const char* letters[] = {"V", "I", "W", "E"};
    for (unsigned tid : {0u, 9u, 10u, 99u, 100u, 4294967295u, 1000000000u}) {
        for (int level : {0, 1, 2, 3, 4, -1, INT_MIN}) {
            const LogMessage msg = record(std::string(127, 'm'), level, std::string(127, 't'), tid);
            ASSERT_EQ(byFormat(msg, level >= 0 && level < 4 ? letters[level] : "?"), format(msg));
        }
    }
    // LEVELSTRING is writable: a caller's long letter is cut with the header at 1023
    // characters, never overruns it, and a null letter prints as the format prints it.
    const char* saved = LEVELSTRING[2];
    const std::string hugeLetter(2000, 'L');
    LEVELSTRING[2] = hugeLetter.c_str();
    const LogMessage msg = record("mod", 2, "01:02:03:4", 77);
    EXPECT_EQ(byFormat(msg, hugeLetter.c_str()).substr(0, 1023) + msg.text + "\n\n", format(msg));
    LEVELSTRING[2] = nullptr;
    EXPECT_EQ(byFormat(msg, "(null)"), format(msg));
    LEVELSTRING[2] = saved;
}
