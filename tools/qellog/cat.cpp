// qellog cat: the records of log files, whole, in the order they were written.

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "commands.h"
#include "output.h"
#include "read/byte_source.h"
#include "read/folder_reader.h"
#include "read_options.h"
#include "selection.h"

namespace qellog {
namespace {

const char kCatUsage[] =
    "Usage: qellog cat [OPTION]... DIR|FILE|-...\n"
    "Print the records of the log files in each DIR (oldest file first) and of each FILE,\n"
    "whole: a record that the size limit split between two files is joined again. A FILE\n"
    "ending in .gz is read compressed; - reads standard input.\n"
    "\n"
    "  -j, --json           one JSON object per line and record: module, version, level,\n"
    "                       time, tid, text, file, date, ts (the real time of the\n"
    "                       record with the offset it was stamped under; see --utc)\n"
    "  -n, --lines N        only the last N records (of those selected)\n"
    "      --color[=WHEN]   colour the level and header: WHEN is auto (on a terminal,\n"
    "                       unless NO_COLOR is set; the default), always (also when WHEN is\n"
    "                       left out) or never\n"
    "  -h, --help           print this help and exit\n"
    "\n"
    "Bytes that are not a whole record (the start of a folder whose older files were\n"
    "deleted, a file cut off by a crash, a foreign file) are printed too, with a warning\n"
    "on standard error; in JSON their header fields are empty.\n";

}  // namespace

int runCat(int argc, char** argv) {
    ReadOptions options;
    const int parsed = parseReadOptions(argc, argv, ReadCommand::Cat, kCatUsage, options);
    if (parsed != kExitSuccess) return parsed == kHelpPrinted ? kExitSuccess : parsed;
    RecordPrinter printer(options.json,
                          !options.json && colourWanted(options.colour, STDOUT_FILENO));
    Selection selection(options.filter, [&](const Record& record) { printer.print(record); },
                        options.hasLines, options.lines);
    // The last N records: a first reading counts them, a second prints them, so that nothing
    // is held however many there are. Standard input can be read once only: there the last N
    // are held.
    if (options.hasLines &&
        std::find(options.paths.begin(), options.paths.end(), kStandardInput) ==
            options.paths.end()) {
        std::uint64_t passing = 0;
        readPaths(
            options.paths, [&](const Record& record) { passing += options.filter.matches(record); },
            [](const ReadWarning&) {});  // the second reading tells them
        selection.window(passing - std::min(passing, options.lines), options.lines);
    }
    const bool read = readPaths(
        options.paths, [&](const Record& record) { selection.take(record); }, printWarning);
    selection.endTail();
    if (!printer.flush()) {
        std::fprintf(stderr, "qellog: cannot write the records: %s\n", std::strerror(errno));
        return kExitFailure;
    }
    return read ? kExitSuccess : kExitFailure;
}

}  // namespace qellog
