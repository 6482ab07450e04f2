// Clocks, sleep and the local timestamp text over clock_gettime, nanosleep and gettimeofday.
// Local time is the wall clock plus the zone's offset (local_zone.h), computed without the C
// library's conversion, so that a signal handler may stamp a record.

#include <qel/timeutils.h>

#include <sys/time.h>

#include <cstring>
#include <ctime>

#include "platform/decimal_text.h"
#include "platform/local_zone.h"
#include "platform/time_text.h"

namespace qel {

namespace {

constexpr int64_t kSecondsPerDay = 86400;

// The wall clock now: local seconds since the epoch and the milliseconds of the second.
struct LocalNow {
    int64_t seconds;
    int millis;
};

LocalNow localNow() {
    struct timeval now = {};
    ::gettimeofday(&now, nullptr);
    return {now.tv_sec + localOffset(now.tv_sec), static_cast<int>(now.tv_usec / 1000)};
}

// "hh:mm:ss:ms" of `now`, the milliseconds unpadded, and a terminating zero byte.
char* putTimeOfDay(char* out, const LocalNow& now) {
    int64_t second = now.seconds % kSecondsPerDay;
    second += second < 0 ? kSecondsPerDay : 0;
    out = putTwoDigits(out, static_cast<int>(second / 3600));
    *out++ = ':';
    out = putTwoDigits(out, static_cast<int>(second / 60 % 60));
    *out++ = ':';
    out = putTwoDigits(out, static_cast<int>(second % 60));
    *out++ = ':';
    if (now.millis >= 100) {
        *out++ = static_cast<char>('0' + now.millis / 100);
    }
    if (now.millis >= 10) {
        *out++ = static_cast<char>('0' + now.millis / 10 % 10);
    }
    *out++ = static_cast<char>('0' + now.millis % 10);
    *out = '\0';
    return out;
}

}  // namespace

uint64_t timeNanos() {
    struct timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}

uint64_t timeMicros() {
    return timeNanos() / 1000u;
}

uint64_t time() {
    return timeNanos() / 1000000u;
}

uint32_t timeDiff(unsigned int later, unsigned int earlier) {
    return later - earlier;
}

void sleepMs(int ms) {
    // A negative value gives negative fields, which nanosleep refuses at once; an
    // interrupted sleep is not resumed.
    struct timespec interval = {};
    interval.tv_sec = ms / 1000;
    interval.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
    ::nanosleep(&interval, nullptr);
}

size_t formatTimeOfDay(char* buffer) {
    return static_cast<size_t>(putTimeOfDay(buffer, localNow()) - buffer);
}

size_t formatLocalTimestamp(char* buffer) {
    const LocalNow now = localNow();
    int64_t days = now.seconds / kSecondsPerDay;
    days -= now.seconds % kSecondsPerDay < 0 ? 1 : 0;
    const CivilDate date = civilFromDays(days);
    char* out = putDecimal(buffer, date.year, 4);
    *out++ = '-';
    out = putTwoDigits(out, date.month);
    *out++ = '-';
    out = putTwoDigits(out, date.day);
    *out++ = '-';
    return static_cast<size_t>(putTimeOfDay(out, now) - buffer);
}

std::string localTimeFormat() {
    char buffer[kTimestampSize];
    return std::string(buffer, formatLocalTimestamp(buffer));
}

}  // namespace qel
