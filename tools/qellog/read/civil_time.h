#ifndef QELLOG_READ_CIVIL_TIME_H_
#define QELLOG_READ_CIVIL_TIME_H_

#include <cstdint>
#include <string>
#include <vector>

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

// The reading machine's local time now.
std::int64_t localNowMs();

// The reading zone is the process's (TZ, which qellog's --tz and --utc set): the zone in which
// records of files without recorded facts are taken to be written.
// Its offset east of UTC, in seconds, at the real time `utcMs`.
std::int32_t zoneOffsetAt(std::int64_t utcMs);
// The offsets it can give the local time `localMs`: two in the hour that repeats when daylight
// saving time ends, one otherwise (in a skipped hour, the one before the change).
std::vector<std::int32_t> zoneOffsetsOf(std::int64_t localMs);
// The local time `localMs` of the reading zone as a real time; in the hour that repeats, the one
// nearest after `previous` when given (see nearestAfter), else the earlier one.
std::int64_t localToUtcMs(std::int64_t localMs, const std::int64_t* previous = nullptr);

// Of the real times a record's time of day can stand for, the one that follows `previous` (the
// real time of the record before it in its file) most closely: records are written in the order
// they were stamped, up to 2 s between threads, so the nearest at or after it within twelve
// hours; failing that the nearest (the clock went back). Without `previous`, the last one.
std::int64_t nearestAfter(const std::vector<std::int64_t>& candidates,
                          const std::int64_t* previous);

// "yyyy-mm-ddThh:mm:ss.fff+hh:mm": the real time `utcMs` as the local time of the offset
// `offset` (seconds east of UTC), with that offset.
std::string isoTimestamp(std::int64_t utcMs, std::int32_t offset);

// How the real times of records are shown (JSON's ts, stats' span): as the writer's local time
// (with the offset it stamped the record under), in UTC, or in the reading zone. One setting
// for the process, made once from the command line; Writer until then.
enum class TimeShown { Writer, Utc, Zone };
void setTimeShown(TimeShown shown);
// The real time `utcMs` of a record stamped under `offset`, as isoTimestamp, shown that way.
std::string shownTimestamp(std::int64_t utcMs, std::int32_t offset);
// The same without the offset and with a space: "yyyy-mm-dd hh:mm:ss.fff".
std::string plainTimestamp(std::int64_t ms);

}  // namespace qellog

#endif  // QELLOG_READ_CIVIL_TIME_H_
