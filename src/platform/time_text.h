#ifndef QEL_PLATFORM_TIME_TEXT_H_
#define QEL_PLATFORM_TIME_TEXT_H_

#include <cstddef>

namespace qel {

// Room for the longest time of day, "hh:mm:ss:mmm", and its terminating zero byte.
constexpr size_t kTimeOfDaySize = 13;

// Writes the local time of day of the wall clock now, "hh:mm:ss:ms" with the milliseconds
// unpadded (the text that follows the date in localTimeFormat()), and a terminating zero
// byte into `buffer`, which holds at least kTimeOfDaySize bytes. Returns the number of
// characters written before the zero byte. Allocates nothing; any thread may call it.
size_t formatTimeOfDay(char* buffer);

}  // namespace qel

#endif  // QEL_PLATFORM_TIME_TEXT_H_
