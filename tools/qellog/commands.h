#ifndef QELLOG_COMMANDS_H_
#define QELLOG_COMMANDS_H_

#include <string>

namespace qellog {

// The exit statuses of qellog, whatever it was asked to do.
enum ExitStatus : int {
    kExitSuccess = 0,
    kExitFailure = 1,  // at run time: a folder refused, unreadable input, output failed
    kExitUsage = 2,    // a bad command line, reported before anything else is done
};
// What an argument parser returns when it printed the help: the command ends with success.
constexpr int kHelpPrinted = -1;

// A subcommand gets the arguments from its own name on (argv[0] is its name) and returns the
// exit status.
using CommandFunction = int (*)(int argc, char** argv);
int runCat(int argc, char** argv);
int runFollow(int argc, char** argv);
int runPrune(int argc, char** argv);
int runStats(int argc, char** argv);
// `qellog help [COMMAND]`: the help of the tool, or of one command.
int runHelp(int argc, char** argv);

// The one table of subcommands, for dispatch and for the help: name, arguments, and what it
// does in at most two lines of 64 columns (the second may be empty).
struct Subcommand {
    const char* name;
    CommandFunction run;
    const char* arguments;
    const char* summary[2];
};
// The subcommand called `name`, or null.
const Subcommand* findSubcommand(const std::string& name);
// The lines of the tool's help that list the subcommands: their usage, or their summaries.
std::string subcommandUsage();
std::string subcommandSummaries();

// Reports the option that getopt_long refused with `c` (':' for a missing argument, else an
// unknown option) for subcommand `command` on standard error, and returns kExitUsage.
int optionError(int c, char** argv, const char* command);

}  // namespace qellog

#endif  // QELLOG_COMMANDS_H_
