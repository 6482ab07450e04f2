#include <qel/timeutils.h>

#include <gtest/gtest.h>

#include <sys/time.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <regex>
#include <string>

TEST(TimeUtilsTest, ClocksAgreeNeverGoBackAndSleepLongEnough) {
    // Each unit is the monotonic nanosecond clock truncated: bracketed by nanosecond reads, it
    // lies between their truncations, and that clock is steady_clock's, not the wall clock.
    uint64_t previous = 0;
    for (int i = 0; i < 100000; ++i) {
        const uint64_t nanosBefore = qel::timeNanos();
        const uint64_t millis = qel::time();
        const uint64_t micros = qel::timeMicros();
        const uint64_t nanosAfter = qel::timeNanos();
        ASSERT_TRUE(nanosBefore / 1000000u <= millis && millis <= nanosAfter / 1000000u);
        ASSERT_TRUE(nanosBefore / 1000u <= micros && micros <= nanosAfter / 1000u);
        ASSERT_LE(previous, millis);
        previous = millis;
    }
    const auto steady = std::chrono::steady_clock::now().time_since_epoch();
    EXPECT_LT(std::llabs(static_cast<int64_t>(qel::timeNanos()) -
                         std::chrono::duration_cast<std::chrono::nanoseconds>(steady).count()),
              1000000000LL);

    EXPECT_EQ(600u, qel::timeDiff(1000u, 400u));
    EXPECT_EQ(7u, qel::timeDiff(5u, 4294967294u));  // the later reading wrapped around
    EXPECT_EQ(4294967295u, qel::timeDiff(0u, 1u));

    // A sleep of more than a second needs both the seconds and the nanoseconds of the
    // interval. A non-positive time returns at once; a hang there fails by the time limit.
    const auto start = std::chrono::steady_clock::now();
    qel::sleepMs(-1500);
    qel::sleepMs(1050);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1050));
}

// In a zone with a half-hour offset and no daylight saving, the text must have the shape
// "YYYY-MM-DD-hh:mm:ss:ms" with unpadded milliseconds, and read as local time it must lie
// between wall-clock reads made around the call (1 ms either way for rounding): a text in UTC,
// or with the offset applied twice or with the wrong sign, falls outside. A change of zone
// shows at once.
TEST(TimeUtilsTest, LocalTimeFormatFollowsTheWallClockInLocalTime) {
    const char* saved = std::getenv("TZ");
    const std::string savedZone = saved != nullptr ? saved : "";
    const std::regex shape(R"(\d{4}-\d\d-\d\d-\d\d:\d\d:\d\d:(0|[1-9]\d{0,2}))");
    for (const auto& zone : {std::make_pair("QEL-05:30", 5 * 3600 + 30 * 60), {"UTC0", 0}}) {
        setenv("TZ", zone.first, 1);
        tzset();
        for (int i = 0; i < 200; ++i) {
            timeval before = {}, after = {};
            gettimeofday(&before, nullptr);
            const std::string text = qel::localTimeFormat();
            gettimeofday(&after, nullptr);
            ASSERT_TRUE(std::regex_match(text, shape)) << text;
            tm fields = {};
            const int millis = std::atoi(strptime(text.c_str(), "%Y-%m-%d-%H:%M:%S:", &fields));
            const int64_t stamped = (timegm(&fields) - zone.second) * int64_t{1000} + millis;
            EXPECT_GE(stamped, before.tv_sec * int64_t{1000} + before.tv_usec / 1000 - 1) << text;
            EXPECT_LE(stamped, after.tv_sec * int64_t{1000} + after.tv_usec / 1000 + 1) << text;
        }
    }
    saved != nullptr ? setenv("TZ", savedZone.c_str(), 1) : unsetenv("TZ");
    tzset();
}
