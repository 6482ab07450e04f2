#include <qel/timeutils.h>

#include <gtest/gtest.h>

#include <sys/time.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>

namespace {

// The text's fields, read back as numbers.
struct Stamp {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, millis = 0;
};

// Reads `digits` decimal digits of `text` at `*pos` into `*value`.
bool readDigits(const std::string& text, size_t* pos, size_t digits, int* value) {
    *value = 0;
    for (size_t i = 0; i < digits; ++i, ++*pos) {
        if (*pos >= text.size() || text[*pos] < '0' || text[*pos] > '9') {
            return false;
        }
        *value = *value * 10 + (text[*pos] - '0');
    }
    return true;
}

bool readSeparator(const std::string& text, size_t* pos, char separator) {
    return *pos < text.size() && text[(*pos)++] == separator;
}

// Accepts exactly "YYYY-MM-DD-hh:mm:ss:ms" with the milliseconds in 1 to 3 digits and
// without leading zeros, and reads its fields.
bool parseStamp(const std::string& text, Stamp* stamp) {
    size_t pos = 0;
    if (!readDigits(text, &pos, 4, &stamp->year) || !readSeparator(text, &pos, '-') ||
        !readDigits(text, &pos, 2, &stamp->month) || !readSeparator(text, &pos, '-') ||
        !readDigits(text, &pos, 2, &stamp->day) || !readSeparator(text, &pos, '-') ||
        !readDigits(text, &pos, 2, &stamp->hour) || !readSeparator(text, &pos, ':') ||
        !readDigits(text, &pos, 2, &stamp->minute) || !readSeparator(text, &pos, ':') ||
        !readDigits(text, &pos, 2, &stamp->second) || !readSeparator(text, &pos, ':')) {
        return false;
    }
    const size_t millisDigits = text.size() - pos;
    if (millisDigits < 1 || millisDigits > 3 || (millisDigits > 1 && text[pos] == '0')) {
        return false;
    }
    return readDigits(text, &pos, millisDigits, &stamp->millis);
}

// Milliseconds since the epoch of a stamp read as a calendar time in the zone given by
// `offsetSeconds` east of UTC.
int64_t stampMillis(const Stamp& stamp, long offsetSeconds) {
    struct tm fields = {};
    fields.tm_year = stamp.year - 1900;
    fields.tm_mon = stamp.month - 1;
    fields.tm_mday = stamp.day;
    fields.tm_hour = stamp.hour;
    fields.tm_min = stamp.minute;
    fields.tm_sec = stamp.second;
    const int64_t asUtc = static_cast<int64_t>(::timegm(&fields));
    return (asUtc - offsetSeconds) * 1000 + stamp.millis;
}

int64_t wallMillis() {
    struct timeval now = {};
    ::gettimeofday(&now, nullptr);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_usec / 1000;
}

// Sets TZ for the test and restores the previous zone afterwards.
class TimeZoneTest : public ::testing::Test {
protected:
    void SetUp() override {
        const char* tz = std::getenv("TZ");
        m_hadTz = tz != nullptr;
        if (m_hadTz) {
            m_savedTz = tz;
        }
    }
    void TearDown() override {
        if (m_hadTz) {
            ::setenv("TZ", m_savedTz.c_str(), 1);
        } else {
            ::unsetenv("TZ");
        }
        ::tzset();
    }
    void useZone(const char* tz) {
        ::setenv("TZ", tz, 1);
        ::tzset();
    }

private:
    bool m_hadTz = false;
    std::string m_savedTz;
};

}  // namespace

TEST(TimeUtilsTest, ClocksAgreeAndNeverGoBack) {
    // Each unit is the nanosecond clock truncated: bracketed by nanosecond reads, it lies
    // between their truncations.
    for (int i = 0; i < 1000; ++i) {
        const uint64_t nanosBefore = qel::timeNanos();
        const uint64_t millis = qel::time();
        const uint64_t micros = qel::timeMicros();
        const uint64_t nanosAfter = qel::timeNanos();
        ASSERT_LE(nanosBefore, nanosAfter);
        ASSERT_LE(nanosBefore / 1000000u, millis);
        ASSERT_GE(nanosAfter / 1000000u, millis);
        ASSERT_LE(nanosBefore / 1000u, micros);
        ASSERT_GE(nanosAfter / 1000u, micros);
    }
    // The monotonic clock, not the wall clock in another unit: it matches steady_clock.
    const int64_t steady = std::chrono::duration_cast<std::chrono::nanoseconds>(
                               std::chrono::steady_clock::now().time_since_epoch())
                               .count();
    const int64_t ours = static_cast<int64_t>(qel::timeNanos());
    EXPECT_LT(std::llabs(ours - steady), 1000000000LL);

    uint64_t previous = qel::time();
    for (int i = 0; i < 100000; ++i) {
        const uint64_t now = qel::time();
        ASSERT_GE(now, previous);
        previous = now;
    }
}

TEST(TimeUtilsTest, TimeDiffWrapsModulo32Bits) {
    EXPECT_EQ(600u, qel::timeDiff(1000u, 400u));
    EXPECT_EQ(7u, qel::timeDiff(5u, 4294967294u));
    EXPECT_EQ(4294967295u, qel::timeDiff(0u, 1u));
    EXPECT_EQ(0u, qel::timeDiff(4294967295u, 4294967295u));
    EXPECT_EQ(1u, qel::timeDiff(0u, 4294967295u));
    EXPECT_EQ(2147483648u, qel::timeDiff(2147483648u, 0u));
}

// Upper bounds are generous: a loaded machine may be slow, never the other way round.
TEST(TimeUtilsTest, SleepMsWaitsAndIgnoresNonPositive) {
    auto start = std::chrono::steady_clock::now();
    qel::sleepMs(0);
    qel::sleepMs(-5);
    qel::sleepMs(-1500);  // whole seconds negative as well
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));

    start = std::chrono::steady_clock::now();
    qel::sleepMs(30);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));

    // More than a second: both the seconds and the nanoseconds of the interval count.
    start = std::chrono::steady_clock::now();
    qel::sleepMs(1050);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1050));
}

TEST(TimeUtilsTest, LocalTimeFormatShape) {
    // The checker itself: padded or overlong milliseconds and wrong separators fail it.
    Stamp probe;
    EXPECT_TRUE(parseStamp("2026-11-16-21:47:23:5", &probe));
    EXPECT_EQ(5, probe.millis);
    EXPECT_TRUE(parseStamp("2026-11-16-21:47:23:0", &probe));
    EXPECT_FALSE(parseStamp("2026-11-16-21:47:23:05", &probe));
    EXPECT_FALSE(parseStamp("2026-11-16-21:47:23:1000", &probe));
    EXPECT_FALSE(parseStamp("2026-11-16 21:47:23:5", &probe));
    EXPECT_FALSE(parseStamp("2026-11-16-21:47:23:", &probe));

    for (int i = 0; i < 2000; ++i) {
        const std::string text = qel::localTimeFormat();
        Stamp stamp;
        ASSERT_TRUE(parseStamp(text, &stamp)) << text;
        EXPECT_GE(stamp.month, 1);
        EXPECT_LE(stamp.month, 12);
        EXPECT_GE(stamp.day, 1);
        EXPECT_LE(stamp.day, 31);
        EXPECT_LE(stamp.hour, 23);
        EXPECT_LE(stamp.minute, 59);
        EXPECT_LE(stamp.second, 60);
        EXPECT_LE(stamp.millis, 999);
        // The log record keeps the text after the last '-': the time of day alone.
        EXPECT_EQ(10u, text.rfind('-')) << text;
    }
}

// A zone with a half-hour offset and no daylight saving: a text in UTC, or with the
// offset applied twice or with the wrong sign, falls outside the bracket.
TEST_F(TimeZoneTest, LocalTimeFormatFollowsTheWallClockInLocalTime) {
    useZone("QEL-05:30");  // 5 hours 30 minutes east of UTC
    const long offset = 5 * 3600 + 30 * 60;
    for (int i = 0; i < 200; ++i) {
        const int64_t before = wallMillis();
        const std::string text = qel::localTimeFormat();
        const int64_t after = wallMillis();
        Stamp stamp;
        ASSERT_TRUE(parseStamp(text, &stamp)) << text;
        const int64_t stamped = stampMillis(stamp, offset);
        // Bracketed by the wall clock read around the call; one extra millisecond on each
        // side allows for rounding between the two clock reads.
        ASSERT_GE(stamped, before - 1) << text;
        ASSERT_LE(stamped, after + 1) << text;
    }

    // A change of the zone shows in the text at once.
    useZone("UTC0");
    const int64_t before = wallMillis();
    const std::string text = qel::localTimeFormat();
    const int64_t after = wallMillis();
    Stamp stamp;
    ASSERT_TRUE(parseStamp(text, &stamp)) << text;
    EXPECT_GE(stampMillis(stamp, 0), before - 1) << text;
    EXPECT_LE(stampMillis(stamp, 0), after + 1) << text;
}
