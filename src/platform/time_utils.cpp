// Clocks, sleep and the local timestamp text over clock_gettime, nanosleep, gettimeofday
// and localtime_r.

#include <qel/timeutils.h>

#include <sys/time.h>

#include <cstdio>
#include <ctime>

namespace qel {

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

std::string localTimeFormat() {
    struct timeval now = {};
    ::gettimeofday(&now, nullptr);
    // Each call converts into its own struct, so that concurrent callers never mix the
    // fields of two instants.
    struct tm local = {};
    const time_t seconds = now.tv_sec;
    ::localtime_r(&seconds, &local);

    // Every log write comes here: the text is formatted once and its length taken from
    // snprintf, with no clearing of the buffer and no second pass over it.
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
