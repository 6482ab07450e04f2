#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "log/qel_log_stream_base.h"

namespace {

// The base is abstract; a writer that writes nothing is enough to reach formatLog.
class SilentWriter : public qel::QelLogStreamBase {
public:
    void writeFormatLog(const LogMessage&) override {}
    int openLog() override { return 0; }
    void closeLog() override {}
};

LogMessage record(const char* module, int level, const char* timeText, unsigned int threadId,
                  const char* text) {
    LogMessage msg;
    memset(&msg, 0, sizeof(msg));
    snprintf(msg.module, sizeof(msg.module), "%s", module);
    snprintf(msg.timeText, sizeof(msg.timeText), "%s", timeText);
    snprintf(msg.text, sizeof(msg.text), "%s", text);
    msg.level = static_cast<QelLogLevel>(level);
    msg.threadId = threadId;
    return msg;
}

std::string format(const LogMessage& msg, std::string line = std::string(3084, '\0')) {
    SilentWriter writer;
    writer.formatLog(msg, line);
    return line;
}

}  // namespace

// Text is copied unchanged, line breaks included, with nothing between header and text;
// whatever the string held before is gone, the writers' pre-sized zero bytes included.
TEST(LineFormatTest, HeaderTextAndEmptyLine) {
    EXPECT_EQ("[Dev][V1.8.63 I 21:47:16:5 812]device opened\n\n",
              format(record("Dev", 1, "21:47:16:5", 812, "device opened")));
    EXPECT_EQ("[m][V1.8.63 E 00:00:00:999 1] two\nlines \n\n",
              format(record("m", 3, "00:00:00:999", 1, " two\nlines "), std::string(5000, 'z')));
    EXPECT_EQ("[][V1.8.63 W  0]\n\n", format(record("", 2, "", 0, ""), std::string()));
}

// Levels without a letter must never index past the four-entry table; they show "?".
TEST(LineFormatTest, LevelsOutsideTheTableShowQuestionMark) {
    const char* letters[] = {"V", "I", "W", "E"};
    for (int level = 0; level < 4; ++level) {
        EXPECT_EQ(std::string("[a][V1.8.63 ") + letters[level] + " t 7]b\n\n",
                  format(record("a", level, "t", 7, "b")));
        EXPECT_STREQ(letters[level], LEVELSTRING[level]);
    }
    for (int level : {4, 5, -1, 1000, -2147483647 - 1}) {
        EXPECT_EQ("[a][V1.8.63 ? t 7]b\n\n", format(record("a", level, "t", 7, "b")));
    }
}

namespace {

std::string byFormat(const LogMessage& msg, const char* letter) {
    char header[1024];
    snprintf(header, sizeof(header), "[%s][V%d.%d.%d %s %s %u]", msg.module, 1, 8, 63, letter,
             msg.timeText, msg.threadId);
    return std::string(header) + msg.text + "\n\n";
}

}  // namespace

// The header is put together by hand rather than by a format: it must give exactly what the
// format gives, for every field at its limits.
TEST(LineFormatTest, MatchesTheFormatAtTheFieldLimits) {
    const std::string longest(127, 'm');
    for (unsigned int threadId : {0u, 9u, 10u, 99u, 100u, 4294967295u, 1000000000u}) {
        for (int level = 0; level < 4; ++level) {
            const LogMessage msg = record(longest.c_str(), level, "23:59:60:999", threadId, "x");
            ASSERT_EQ(byFormat(msg, LEVELSTRING[level]), format(msg));
        }
    }
    const std::string longTime(127, 't');
    const LogMessage full = record(longest.c_str(), 1, longTime.c_str(), 12345, "x");
    EXPECT_EQ(byFormat(full, "I"), format(full));
}

// LEVELSTRING is writable: a caller's long letter must be cut with the header at 1023
// characters, never overrun the header buffer, and a null letter prints as the format does.
TEST(LineFormatTest, ReplacedLevelLettersAreBoundedLikeTheFormat) {
    const char* saved = LEVELSTRING[2];
    const std::string hugeLetter(2000, 'L');
    LEVELSTRING[2] = hugeLetter.c_str();
    const LogMessage msg = record("mod", 2, "01:02:03:4", 77, "text");
    EXPECT_EQ(byFormat(msg, hugeLetter.c_str()).substr(0, 1023) + "text\n\n", format(msg));
    LEVELSTRING[2] = nullptr;
    EXPECT_EQ("[mod][V1.8.63 (null) 01:02:03:4 77]text\n\n", format(msg));
    LEVELSTRING[2] = saved;
}
