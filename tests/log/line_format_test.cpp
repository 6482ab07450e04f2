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

TEST(LineFormatTest, HeaderTextAndEmptyLine) {
    EXPECT_EQ("[Dev][V1.8.63 I 21:47:16:5 812]device opened\n\n",
              format(record("Dev", 1, "21:47:16:5", 812, "device opened")));
    // Text is copied unchanged, line breaks included, with nothing between header and text.
    EXPECT_EQ("[m][V1.8.63 E 00:00:00:999 1] two\nlines \n\n",
              format(record("m", 3, "00:00:00:999", 1, " two\nlines ")));
}

TEST(LineFormatTest, EmptyFieldsAndUnsignedThreadId) {
    EXPECT_EQ("[][V1.8.63 W  0]\n\n", format(record("", 2, "", 0, "")));
    EXPECT_EQ("[x][V1.8.63 V t 4294967295]y\n\n", format(record("x", 0, "t", 0xFFFFFFFFu, "y")));
    EXPECT_EQ("[x][V1.8.63 V t 2147483648]y\n\n", format(record("x", 0, "t", 0x80000000u, "y")));
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

TEST(LineFormatTest, ReplacesWhateverTheStringHeld) {
    const LogMessage msg = record("a", 1, "t", 7, "b");
    EXPECT_EQ("[a][V1.8.63 I t 7]b\n\n", format(msg, std::string(3084, '\0')));
    EXPECT_EQ("[a][V1.8.63 I t 7]b\n\n", format(msg, std::string(5000, 'z')));
    EXPECT_EQ("[a][V1.8.63 I t 7]b\n\n", format(msg, std::string()));
}

TEST(LineFormatTest, LongestFieldsFitWhole) {
    const std::string module(127, 'm');
    const std::string text(2047, 't');
    const std::string line = format(record(module.c_str(), 1, "10:00:00:0", 4000000000u,
                                           text.c_str()));
    EXPECT_EQ("[" + module + "][V1.8.63 I 10:00:00:0 4000000000]" + text + "\n\n", line);
}
