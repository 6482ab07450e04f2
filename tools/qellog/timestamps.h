#ifndef QELLOG_TIMESTAMPS_H_
#define QELLOG_TIMESTAMPS_H_

#include <cstdint>
#include <string>

#include "records.h"

namespace qellog {

// Times here are local wall-clock times on the scale of civilMs(): milliseconds since
// 1970-01-01 00:00 of the local calendar, so that a record's date and time of day and a time
// the operator types compare without any zone arithmetic.

// The local date and time of a record. Returns false for a piece or a record without a date
// (a file whose name the writer did not make).
bool recordLocalMs(const Record& record, std::int64_t& ms);

// The reading machine's local time now.
std::int64_t localNowMs();

// Reads a time given on the command line, relative to `nowMs`:
// "yyyy-mm-dd", "yyyy-mm-dd hh:mm[:ss[.fff]]" (or with a "T"), "hh:mm[:ss[.fff]]" for today,
// "now", or "-N" with the unit s, sec, m, min, h, hour(s), d or day(s) for that long ago.
// Returns false when the text is none of these.
bool parseTimeSpec(const char* text, std::int64_t nowMs, std::int64_t& ms);

// "yyyy-mm-ddThh:mm:ss.fff+hh:mm": a local time with the zone offset that the reading machine
// has at that time, so that such texts sort as the times do within one offset.
std::string isoTimestamp(std::int64_t ms);
// The same without the offset and with a space: "yyyy-mm-dd hh:mm:ss.fff".
std::string plainTimestamp(std::int64_t ms);

}  // namespace qellog

#endif  // QELLOG_TIMESTAMPS_H_
