#ifndef QELLOG_READ_WRITING_ORDER_H_
#define QELLOG_READ_WRITING_ORDER_H_

#include <cstdint>
#include <vector>

#include "log_file.h"
#include "read_warning.h"

namespace qellog {

// The real time (milliseconds since 1970, UTC) at which `file`, named by its writer, was opened:
// the local time in its name under its first recorded zone rule; without facts, under the
// reading zone, and in the hour that repeats when daylight saving time ends, the one of the two
// that its last write (a real time) allows.
std::int64_t openedUtcMs(const LogFile& file);

// Puts `files` (one folder's log files, oldest name first, with their facts read) into the order
// in which they were written, the order that cat reads and prune deletes in:
// - each writer's files (by recorded facts) in the order of their recorded numbers;
// - files by the real time of their opening, so that the files of several writers interleave
//   as they were written, across a daylight saving change too;
// - a process started after another one on the same boot (its recorded start, on a clock that
//   never goes back) whose files all carry real times before the other's first: the clock went
//   back between the two, and its files come after the other's.
// Tells `onWarning` (ClockWentBack, naming a file) where the clock went back, or where files
// without facts are read in another order than their names'; nothing when `now` (seconds since
// 1970) is 0 for names in the future.
void orderByWriting(std::vector<LogFile>& files, std::int64_t now, const WarningSink& onWarning);

}  // namespace qellog

#endif  // QELLOG_READ_WRITING_ORDER_H_
