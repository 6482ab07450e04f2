#ifndef QEL_PLATFORM_TIME_TEXT_H_
#define QEL_PLATFORM_TIME_TEXT_H_

#include <cstddef>

namespace qel {

// Room for the longest time of day, "hh:mm:ss:mmm", and its terminating zero byte.
constexpr size_t kTimeOfDaySize = 13;

// Writes the local time of day of the wall clock now, "hh:mm:ss:ms" with the milliseconds
// unpadded (the text that follows the date in localTimeFormat()), and a terminating zero
// byte into `buffer`, which holds at least kTimeOfDaySize bytes. Returns the number of
// characters written before the zero byte. Allocates nothing and takes no lock: any thread
// may call it, a signal handler included.
size_t formatTimeOfDay(char* buffer);

// Room for the longest local timestamp, "YYYY-MM-DD-hh:mm:ss:mmm" with a year of a 64-bit
// clock, and its terminating zero byte.
constexpr size_t kTimestampSize = 40;

// Writes the text of localTimeFormat() and a terminating zero byte into `buffer`, which holds
// at least kTimestampSize bytes. Returns the number of characters before the zero byte.
// Allocates nothing and takes no lock: a signal handler may call it.
size_t formatLocalTimestamp(char* buffer);

}  // namespace qel

#endif  // QEL_PLATFORM_TIME_TEXT_H_
