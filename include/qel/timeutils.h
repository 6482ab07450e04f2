#ifndef QEL_TIMEUTILS_H_
#define QEL_TIMEUTILS_H_

// Clocks, a millisecond sleep and the local timestamp text. None of the functions keeps
// state; every one may be called from any thread at any time.

#include <qel/export.h>

#include <cstdint>
#include <string>

namespace qel {

// Returns the monotonic clock in nanoseconds. Its origin is arbitrary and it does not move
// when the wall clock is set; it never decreases.
QEL_EXPORT uint64_t timeNanos();

// Returns the monotonic clock in microseconds: timeNanos() / 1000 of the same instant.
QEL_EXPORT uint64_t timeMicros();

// Returns the monotonic clock in milliseconds: timeNanos() / 1000000 of the same instant.
QEL_EXPORT uint64_t time();

// Returns `later` - `earlier` modulo 2^32, so that the distance between two 32-bit times
// comes out right across a wrap of the counter. Reads no clock.
QEL_EXPORT uint32_t timeDiff(unsigned int later, unsigned int earlier);

// Sleeps for `ms` milliseconds in one system sleep. A signal may end it early, and it is
// not resumed; zero or a negative value returns at once.
QEL_EXPORT void sleepMs(int ms);

// Returns the local wall-clock time as "YYYY-MM-DD-hh:mm:ss:ms", e.g.
// "2026-11-16-21:47:23:45": year at least four digits and month to second two digits,
// zero padded; the milliseconds of the second (0 to 999) last, without leading zeros. The
// text after the last '-' is the time of day. The time zone is the one the process has
// set up (a change of TZ takes effect after tzset()). The caller owns the string.
QEL_EXPORT std::string localTimeFormat();

}  // namespace qel

#endif  // QEL_TIMEUTILS_H_
