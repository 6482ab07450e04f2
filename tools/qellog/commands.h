#ifndef QELLOG_COMMANDS_H_
#define QELLOG_COMMANDS_H_

namespace qellog {

// The subcommands. Each gets the arguments from its own name on (argv[0] is "cat", "follow",
// "prune" or "stats") and returns the exit status: 0 success, 1 runtime failure, 2 usage error.
int runCat(int argc, char** argv);
int runFollow(int argc, char** argv);
int runPrune(int argc, char** argv);
int runStats(int argc, char** argv);

// Reports the option that getopt_long refused with `c` (':' for a missing argument, else an
// unknown option) for subcommand `command` on standard error, and returns the exit status 2.
int optionError(int c, char** argv, const char* command);

}  // namespace qellog

#endif  // QELLOG_COMMANDS_H_
