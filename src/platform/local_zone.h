#ifndef QEL_PLATFORM_LOCAL_ZONE_H_
#define QEL_PLATFORM_LOCAL_ZONE_H_

#include <cstdint>

namespace qel {

// The offset of local time from UTC that holds at an instant, and the span of instants that
// share it (from inclusive, until exclusive; seconds since the epoch).
struct ZoneOffset {
    int64_t utcOffset;  // seconds east of UTC
    int64_t from;
    int64_t until;
};

// Room for a zone abbreviation ("CET", "+0530") and its terminating zero byte; a longer one is
// cut.
constexpr int kAbbreviationSize = 16;

// The offset of local time at `utcSeconds` in the zone the process has set up, as the C
// library's local-time conversion gives it: TZ (a zone file name or path, or a POSIX rule
// such as "CET-1CEST,M3.5.0,M10.5.0/3"), else /etc/localtime, else UTC. Leap seconds of
// "right/" zones are not applied.
//
// Safe in a signal handler: it takes no lock and allocates nothing. Most calls only read a
// cache that all threads share; the zone is read again (getenv, open, pread, close) when the
// cached offset's span ends, as at a change to or from daylight saving time, and when the
// host has changed its zone in a way that tzset() makes visible (the zone's names or
// offsets), so that the local time follows the zone as the C library's conversion does.
int64_t localOffset(int64_t utcSeconds);

// A number that changes whenever localOffset() stores a new reading in its cache: at the end of
// an offset's span (a change to or from daylight saving time, a clock step past the span) and at
// a change of the host's zone. While it stays the same, every stamp made since has used an
// offset that was cached before. One atomic load; safe in a signal handler.
uint32_t zoneCacheVersion();

// The reading behind localOffset(), without the cache: the zone's file or rule, read now.
// With `abbreviation` (kAbbreviationSize bytes) also the zone's abbreviation of that offset,
// terminated, empty where the zone names none. Safe in a signal handler, as localOffset().
ZoneOffset readZoneOffset(int64_t utcSeconds, char* abbreviation = nullptr);

// A date of the proleptic Gregorian calendar.
struct CivilDate {
    int64_t year;
    int month;  // 1 to 12
    int day;    // 1 to 31
};
// Days since 1970-01-01 of a date, and the other way round; negative before 1970.
int64_t daysFromCivil(int64_t year, int month, int day);
CivilDate civilFromDays(int64_t days);

}  // namespace qel

#endif  // QEL_PLATFORM_LOCAL_ZONE_H_
