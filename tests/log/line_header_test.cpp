// The header is put together by hand rather than by a format: it must give exactly what the
// format "[%s][V%d.%d.%d %s %s %u]" gives, for every field at its limits.

#include <cstdio>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "log/qel_log_stream_base.h"

namespace {

class SilentWriter : public qel::QelLogStreamBase {
public:
    void writeFormatLog(const LogMessage&) override {}
    int openLog() override { return 0; }
    void closeLog() override {}
};

std::string formatted(const LogMessage& msg) {
    SilentWriter writer;
    std::string line(3084, '\0');
    writer.formatLog(msg, line);
    return line;
}

std::string byFormat(const LogMessage& msg, const char* letter) {
    char header[1024];
    snprintf(header, sizeof(header), "[%s][V%d.%d.%d %s %s %u]", msg.module, 1, 8, 63, letter,
             msg.timeText, msg.threadId);
    return std::string(header) + msg.text + "\n\n";
}

LogMessage record(const std::string& module, int level, const std::string& timeText,
                  unsigned int threadId) {
    LogMessage msg;
    memset(&msg, 0, sizeof(msg));
    snprintf(msg.module, sizeof(msg.module), "%s", module.c_str());
    snprintf(msg.timeText, sizeof(msg.timeText), "%s", timeText.c_str());
    snprintf(msg.text, sizeof(msg.text), "%s", "text");
    msg.level = static_cast<QelLogLevel>(level);
    msg.threadId = threadId;
    return msg;
}

}  // namespace

TEST(LineHeaderTest, MatchesTheFormatAtTheFieldLimits) {
    const std::string longest(127, 'm');
    const char* letters[] = {"V", "I", "W", "E"};
    for (unsigned int threadId : {0u, 9u, 10u, 99u, 100u, 4294967295u, 1000000000u}) {
        for (int level = 0; level < 4; ++level) {
            const LogMessage msg = record(longest, level, "23:59:60:999", threadId);
            ASSERT_EQ(byFormat(msg, letters[level]), formatted(msg));
        }
    }
    const LogMessage full = record(longest, 1, std::string(127, 't'), 12345);
    EXPECT_EQ(byFormat(full, "I"), formatted(full));
}

// LEVELSTRING is writable: a caller's long letter must be cut with the header at 1023
// characters, never overrun the header buffer, and a null letter prints as the format does.
TEST(LineHeaderTest, ReplacedLevelLettersAreBoundedLikeTheFormat) {
    const char* saved = LEVELSTRING[2];
    const std::string hugeLetter(2000, 'L');
    LEVELSTRING[2] = hugeLetter.c_str();
    const LogMessage msg = record("mod", 2, "01:02:03:4", 77);
    const std::string line = formatted(msg);
    EXPECT_EQ(1023u + strlen("text\n\n"), line.size());
    EXPECT_EQ(byFormat(msg, hugeLetter.c_str()).substr(0, 1023) + "text\n\n", line);

    const std::string word(40, 'w');
    LEVELSTRING[2] = word.c_str();
    EXPECT_EQ(byFormat(msg, word.c_str()), formatted(msg));

    LEVELSTRING[2] = nullptr;
    EXPECT_EQ("[mod][V1.8.63 (null) 01:02:03:4 77]text\n\n", formatted(msg));
    LEVELSTRING[2] = saved;
}
