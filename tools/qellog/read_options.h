#ifndef QELLOG_READ_OPTIONS_H_
#define QELLOG_READ_OPTIONS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "colour.h"
#include "read/record_filter.h"

namespace qellog {

// The subcommands that read records, each with its own set of the options below.
enum class ReadCommand { Cat, Follow, Stats };

// What the command line of cat, follow or stats asks for.
struct ReadOptions {
    bool json = false;
    RecordFilter filter;
    bool hasLines = false;     // -n: only the last `lines` records (follow: then the new ones)
    std::uint64_t lines = 0;
    ColourMode colour = ColourMode::Auto;
    std::string statePath;     // follow --state
    std::vector<std::string> paths;  // DIR or FILE arguments
};

// Reads the arguments of `command` (argv[0] is its name). Returns kExitSuccess when `options`
// is usable, kExitUsage for a usage error (reported on standard error), kHelpPrinted when --help
// was asked for (`usage` and the selection options' help are printed then).
int parseReadOptions(int argc, char** argv, ReadCommand command, const char* usage,
                     ReadOptions& options);

// The --help lines of the options that select records, shared by the three commands.
const char* selectionHelp();

}  // namespace qellog

#endif  // QELLOG_READ_OPTIONS_H_
