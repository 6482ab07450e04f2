#ifndef QELLOG_TIME_SPEC_H_
#define QELLOG_TIME_SPEC_H_

#include <cstdint>

namespace qellog {

// Reads a time given on the command line as a local time (read/civil_time.h), relative to
// `nowMs`: "yyyy-mm-dd", "yyyy-mm-dd hh:mm[:ss[.fff]]" (or with a "T"), "hh:mm[:ss[.fff]]" for
// today, "now", or "-N" with the unit s, sec, m, min, h, hour(s), d or day(s) for that long
// ago. Returns false when the text is none of these.
bool parseTimeSpec(const char* text, std::int64_t nowMs, std::int64_t& ms);

}  // namespace qellog

#endif  // QELLOG_TIME_SPEC_H_
