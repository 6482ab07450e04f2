// Clocks, sleep and the local timestamp text over clock_gettime, nanosleep, gettimeofday
// and localtime_r.

#include <qel/timeutils.h>

#include <sys/time.h>

#include <cstdio>
#include <cstring>
#include <ctime>

#include "platform/time_text.h"

namespace qel {

namespace {

// The local broken-down time of one wall-clock second, kept per thread, so that the records
// a thread writes within one second convert the clock once. It remembers the time zone that
// the conversion found (the values tzset() leaves), so that a change of zone shows at once.
struct LocalSecond {
    bool valid;
    time_t second;
    long zoneOffset;
    int zoneDaylight;
    const char* zoneNames[2];
    struct tm fields;
    char clockText[9];  // "hh:mm:ss:" of `fields`
};

// Zero-initialised and trivially destructible: a thread pays nothing to set it up.
thread_local LocalSecond t_localSecond;

bool sameZone(const LocalSecond& cached) {
    return cached.zoneOffset == ::timezone && cached.zoneDaylight == ::daylight &&
           cached.zoneNames[0] == ::tzname[0] && cached.zoneNames[1] == ::tzname[1];
}

char* putTwoDigits(char* out, int value) {
    out[0] = static_cast<char>('0' + value / 10 % 10);
    out[1] = static_cast<char>('0' + value % 10);
    return out + 2;
}

// The calling thread's cache, holding the local time of `seconds`. Each thread converts
// into its own fields, so concurrent callers never mix the fields of two instants.
const LocalSecond& localSecond(time_t seconds) {
    LocalSecond& cached = t_localSecond;
    if (!cached.valid || cached.second != seconds || !sameZone(cached)) {
        ::localtime_r(&seconds, &cached.fields);
        // The conversion sets up the zone on its first use, so its values are read after it.
        cached.zoneOffset = ::timezone;
        cached.zoneDaylight = ::daylight;
        cached.zoneNames[0] = ::tzname[0];
        cached.zoneNames[1] = ::tzname[1];
        cached.second = seconds;
        char* out = putTwoDigits(cached.clockText, cached.fields.tm_hour);
        *out++ = ':';
        out = putTwoDigits(out, cached.fields.tm_min);
        *out++ = ':';
        out = putTwoDigits(out, cached.fields.tm_sec);
        *out = ':';
        cached.valid = true;
    }
    return cached;
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
    struct timeval now = {};
    ::gettimeofday(&now, nullptr);
    const LocalSecond& local = localSecond(now.tv_sec);
    memcpy(buffer, local.clockText, sizeof(local.clockText));
    char* out = buffer + sizeof(local.clockText);
    const int millis = static_cast<int>(now.tv_usec / 1000);
    if (millis >= 100) {
        *out++ = static_cast<char>('0' + millis / 100);
    }
    if (millis >= 10) {
        *out++ = static_cast<char>('0' + millis / 10 % 10);
    }
    *out++ = static_cast<char>('0' + millis % 10);
    *out = '\0';
    return static_cast<size_t>(out - buffer);
}

std::string localTimeFormat() {
    struct timeval now = {};
    ::gettimeofday(&now, nullptr);
    const struct tm& local = localSecond(now.tv_sec).fields;

    // The text is formatted once and its length taken from snprintf, with no clearing of
    // the buffer and no second pass over it.
    char buffer[1024];
    const int length = std::snprintf(buffer, sizeof(buffer), "%04d-%02d-%02d-%02d:%02d:%02d:%d",
                                     local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                                     local.tm_hour, local.tm_min, local.tm_sec,
                                     static_cast<int>(now.tv_usec / 1000));
    if (length <= 0) {
        return std::string();
    }
    const size_t size = static_cast<size_t>(length) < sizeof(buffer) ? static_cast<size_t>(length)
                                                                     : sizeof(buffer) - 1;
    return std::string(buffer, size);
}

}  // namespace qel
