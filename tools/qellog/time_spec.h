#ifndef QELLOG_TIME_SPEC_H_
#define QELLOG_TIME_SPEC_H_

#include <cstdint>

namespace qellog {

// Reads a time given on the command line as a local time (read/civil_time.h), relative to
// `nowMs`: "yyyy-mm-dd" (a date of the calendar), "yyyy-mm-dd hh:mm[:ss[.fff]]" (or with a
// "T"), "hh:mm[:ss[.fff]]" for today, "today" and "yesterday" (their midnight), "now", or "-"
// and a duration (see parseDuration, with its unit) for that long ago. Returns false when the
// text is none of these.
bool parseTimeSpec(const char* text, std::int64_t nowMs, std::int64_t& ms);

// A length of time: a decimal number ("90", "1.5") and a unit s, sec, m, min, h, hour(s), d,
// day(s), w or week(s) ("90m", "36h", "14d"). Without a unit the number counts `defaultUnitMs`,
// or is refused when that is 0. Returns false for anything else, a negative length, or one
// beyond a million years.
bool parseDuration(const char* text, std::int64_t defaultUnitMs, std::int64_t& ms);

}  // namespace qellog

#endif  // QELLOG_TIME_SPEC_H_
