// The stamps of a record, the time of day and the thread id, are kept per thread between
// records; they must still follow the clock, the time zone, new threads and fork.

#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

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

// Each record's text is the full timestamp taken just before it; the next record's text is
// the one taken just after it. When the two agree, the record's time must be their tail after
// the last '-', byte for byte (milliseconds unpadded).
TEST(RecordStampTest, TimeIsTheTailOfTheTimestamp) {
    auto result = runChild([] {
        std::string before = qel::localTimeFormat();
        for (int i = 0; i < 2000; ++i) {
            qelLogSimplify("t", QEL_LOG_INFO, before.c_str());
            before = qel::localTimeFormat();
        }
        qelLogSimplify("t", QEL_LOG_INFO, before.c_str());
        return 0;
    });
    EXPECT_CHILD_OK(result);
    const auto lines = qeltest::parseRecords(result.out);
    ASSERT_EQ(2001u, lines.size());
    int compared = 0;
    for (size_t i = 0; i + 1 < lines.size(); ++i) {
        if (lines[i].text == lines[i + 1].text) {
            ASSERT_EQ(lines[i].text.substr(lines[i].text.rfind('-') + 1), lines[i].time);
            ++compared;
        }
    }
    EXPECT_GT(compared, 0);
}

// Two records within one second under two zones: a broken-down time kept for the second
// without regard to the zone would repeat the first zone's hours.
TEST(RecordStampTest, AZoneChangeShowsAtOnce) {
    auto result = runChild([] {
        setenv("TZ", "QEL-05:30", 1);
        tzset();
        qelLogSimplify("t", QEL_LOG_INFO, "east");
        setenv("TZ", "UTC0", 1);
        tzset();
        qelLogSimplify("t", QEL_LOG_INFO, "utc");
        return 0;
    });
    EXPECT_CHILD_OK(result);
    const auto lines = qeltest::parseRecords(result.out);
    ASSERT_EQ(2u, lines.size()) << result.out;
    const int difference = ((minuteOfDay(lines[0].time) - minuteOfDay(lines[1].time)) % 1440 +
                            1440) % 1440;
    EXPECT_TRUE(difference == 330 || difference == 329) << result.out;
}

// The test process has looked up its own id before it forks: the child, a copy of this thread,
// must stamp its own id, and a thread of the child its own.
TEST(RecordStampTest, ThreadIdsAfterForkAndPerThread) {
    const long parentId = qel::ThreadWrapper::getThreadId();
    ASSERT_EQ(syscall(SYS_gettid), parentId);
    auto result = runChild([] {
        qelLogSimplify("t", QEL_LOG_INFO, "main");
        std::thread other([] {
            const std::string id = std::to_string(syscall(SYS_gettid));
            qelLogSimplify("t", QEL_LOG_INFO, id.c_str());
            qelLogSimplify("t", QEL_LOG_INFO, id.c_str());
        });
        other.join();
        qelLogSimplify("t", QEL_LOG_INFO, "main");
        return 0;
    });
    EXPECT_CHILD_OK(result);
    const auto lines = qeltest::parseRecords(result.out);
    ASSERT_EQ(4u, lines.size()) << result.out;
    EXPECT_EQ(result.pid, lines[0].tid);
    EXPECT_EQ(result.pid, lines[3].tid);
    EXPECT_NE(parentId, lines[0].tid);
    EXPECT_EQ(std::stol(lines[1].text), lines[1].tid);
    EXPECT_EQ(std::stol(lines[2].text), lines[2].tid);
    EXPECT_NE(lines[0].tid, lines[1].tid);
}
