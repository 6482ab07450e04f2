// qellog cat: the records of log files, whole, in the order they were written.

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "commands.h"
#include "output.h"
#include "read/folder_reader.h"
#include "read_options.h"
#include "selection.h"

namespace qellog {
namespace {

const char kCatUsage[] =
    "Usage: qellog cat [OPTION]... DIR|FILE...\n"
    "Print the records of the log files in each DIR (oldest file first) and of each FILE,\n"
    "whole: a record that the size limit split between two files is joined again.\n"
    "\n"
    "  -j, --json           one JSON object per line and record: module, version, level,\n"
    "                       time, tid, text, file, date, ts (the real time of the\n"
    "                       record with the offset it was stamped under; see --utc)\n"
    "  -n, --lines N        only the last N records (of those selected)\n"
    "      --color WHEN     colour the level and header: auto (on a terminal, unless\n"
    "                       NO_COLOR is set; the default), always or never\n"
    "  -h, --help           print this help and exit\n"
    "\n"
    "Bytes that are not a whole record (the start of a folder whose older files were\n"
    "deleted, a file cut off by a crash, a foreign file) are printed too, with a warning\n"
    "on standard error; in JSON their header fields are empty.\n";

}  // namespace

int runCat(int argc, char** argv) {
    ReadOptions options;
    const int parsed = parseReadOptions(argc, argv, ReadCommand::Cat, kCatUsage, options);
    if (parsed != 0) return parsed < 0 ? 0 : parsed;
    RecordPrinter printer(options.json,
                          !options.json && colourWanted(options.colour, STDOUT_FILENO));
    Selection selection(options.filter, [&](const Record& record) { printer.print(record); },
                        options.hasLines, options.lines);
    const bool read = readPaths(
        options.paths, [&](const Record& record) { selection.take(record); }, printWarning);
    selection.endTail();
    if (!printer.flush()) {
        std::fprintf(stderr, "qellog: cannot write the records: %s\n", std::strerror(errno));
        return 1;
    }
    return read ? 0 : 1;
}

}  // namespace qellog
