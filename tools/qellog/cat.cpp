// qellog cat: the records of log files, whole, in the order they were written.

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "commands.h"
#include "output.h"
#include "plan.h"
#include "read_options.h"
#include "records.h"
#include "selection.h"

namespace qellog {
namespace {

const char kCatUsage[] =
    "Usage: qellog cat [OPTION]... DIR|FILE...\n"
    "Print the records of the log files in each DIR (oldest file first) and of each FILE,\n"
    "whole: a record that the size limit split between two files is joined again.\n"
    "\n"
    "  -j, --json           one JSON object per line and record: module, version, level,\n"
    "                       time, tid, text, file, date, ts (date and time with the zone\n"
    "                       offset of this machine)\n"
    "  -n, --lines N        only the last N records (of those selected)\n"
    "      --color WHEN     colour the level and header: auto (on a terminal, unless\n"
    "                       NO_COLOR is set; the default), always or never\n"
    "  -h, --help           print this help and exit\n"
    "\n"
    "Bytes that are not a whole record (the start of a folder whose older files were\n"
    "deleted, a file cut off by a crash, a foreign file) are printed too, with a warning\n"
    "on standard error; in JSON their header fields are empty.\n";

// The files that the arguments name, in the order to read them.
bool collectFiles(const std::vector<const char*>& arguments, std::vector<LogFile>& files) {
    bool ok = true;
    for (const char* argument : arguments) {
        struct stat status;
        if (stat(argument, &status) != 0) {
            std::fprintf(stderr, "qellog: cannot read '%s': %s\n", argument, std::strerror(errno));
            ok = false;
        } else if (S_ISDIR(status.st_mode)) {
            std::vector<LogFile> found;
            std::string error;
            if (!listLogFiles(argument, found, error)) {
                std::fprintf(stderr, "qellog: cannot read folder '%s': %s\n", argument,
                             error.c_str());
                ok = false;
            }
            files.insert(files.end(), found.begin(), found.end());
        } else {
            files.push_back(logFileAt(argument));
            statLogFile(files.back());
        }
    }
    return ok;
}

}  // namespace

int readRecords(const std::vector<const char*>& arguments,
                const std::function<void(const Record&)>& take, std::vector<LogFile>* read) {
    std::vector<LogFile> files;
    int status = collectFiles(arguments, files) ? 0 : 1;
    if (const LogFile* stepped = clockWentBack(files, std::time(nullptr))) {
        std::fprintf(stderr,
                     "qellog: %s: the clock went back while the files were written; the "
                     "records may not be in the order they were written\n",
                     stepped->name.c_str());
    }
    std::vector<FileShape> shapes;
    for (const LogFile& file : files) shapes.push_back(shapeOf(file.path, file.size));
    RecordReader reader;
    Record record;
    const auto drain = [&] {
        while (reader.next(record, DataEnd::More)) take(record);
    };
    for (const PlannedFile& planned : planReading(files, shapes)) {
        const LogFile& file = files[planned.index];
        reader.beginFile(file, 0, planned.continues);
        if (readInto(file.path, 0, reader, drain) < 0) {
            std::fprintf(stderr, "qellog: cannot read '%s': %s\n", file.path.c_str(),
                         std::strerror(errno));
            status = 1;
        }
    }
    while (reader.next(record, DataEnd::Final)) take(record);
    if (read != nullptr) *read = files;
    return status;
}

int runCat(int argc, char** argv) {
    ReadOptions options;
    const int parsed = parseReadOptions(argc, argv, ReadCommand::Cat, kCatUsage, options);
    if (parsed != 0) return parsed < 0 ? 0 : parsed;
    RecordPrinter printer(options.json,
                          !options.json && colourWanted(options.colour, STDOUT_FILENO));
    Selection selection(options.filter, printer, options.hasLines, options.lines);
    const int status =
        readRecords(options.paths, [&](const Record& record) { selection.take(record); });
    selection.endTail();
    if (!printer.flush()) {
        std::fprintf(stderr, "qellog: cannot write the records: %s\n", std::strerror(errno));
        return 1;
    }
    return status;
}

}  // namespace qellog
