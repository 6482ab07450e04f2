#ifndef QELLOG_COMMANDS_H_
#define QELLOG_COMMANDS_H_

#include <functional>
#include <vector>

#include "records.h"

namespace qellog {

// The subcommands. Each gets the arguments from its own name on (argv[0] is "cat", "follow",
// "prune" or "stats") and returns the exit status: 0 success, 1 runtime failure, 2 usage error.
int runCat(int argc, char** argv);
int runFollow(int argc, char** argv);
int runPrune(int argc, char** argv);
int runStats(int argc, char** argv);

// Reads the records of the folders and files that `arguments` name (a folder's log files oldest
// first) and hands each to `take`; `read`, when given, gets the files. Returns 0, or 1 when one
// of them could not be read (reported on standard error).
int readRecords(const std::vector<const char*>& arguments,
                const std::function<void(const Record&)>& take,
                std::vector<LogFile>* read = nullptr);

// Reports the option that getopt_long refused with `c` (':' for a missing argument, else an
// unknown option) for subcommand `command` on standard error, and returns the exit status 2.
int optionError(int c, char** argv, const char* command);

}  // namespace qellog

#endif  // QELLOG_COMMANDS_H_
