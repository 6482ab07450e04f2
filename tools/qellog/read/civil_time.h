#ifndef QELLOG_READ_CIVIL_TIME_H_
#define QELLOG_READ_CIVIL_TIME_H_

#include <cstdint>
#include <string>

#include "record.h"

namespace qellog {

// Times here are local wall-clock times on one scale: milliseconds since 1970-01-01 00:00 of
// the local calendar, taken as UTC, so that a record's date and time of day and a time the
// operator types compare without any zone arithmetic, and move by whole days.

constexpr std::int64_t kSecondMs = 1000, kMinuteMs = 60 * kSecondMs, kHourMs = 60 * kMinuteMs,
                       kDayMs = 24 * kHourMs;

// `a` divided by `b`, rounded down (also for negative `a`).
std::int64_t floorDiv(std::int64_t a, std::int64_t b);

// The calendar date and time of day (milliseconds since midnight) on that scale.
std::int64_t civilMs(int year, int month, int day, int msOfDay);
// "yyyy-mm-dd" of a value of that scale.
std::string civilDate(std::int64_t ms);

// The local date and time of a record. Returns false for a piece or a record without a date
// (a file whose name the writer did not make).
bool recordLocalMs(const Record& record, std::int64_t& ms);

// The reading machine's local time now.
std::int64_t localNowMs();

// "yyyy-mm-ddThh:mm:ss.fff+hh:mm": a local time with the zone offset that the reading machine
// has at that time, so that such texts sort as the times do within one offset.
std::string isoTimestamp(std::int64_t ms);
// The same without the offset and with a space: "yyyy-mm-dd hh:mm:ss.fff".
std::string plainTimestamp(std::int64_t ms);

}  // namespace qellog

#endif  // QELLOG_READ_CIVIL_TIME_H_
