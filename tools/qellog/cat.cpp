// qellog cat: the records of log files, whole, in the order they were written.

#include <getopt.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "commands.h"
#include "output.h"
#include "plan.h"
#include "records.h"

namespace qellog {
namespace {

const char kCatUsage[] =
    "Usage: qellog cat [--json] DIR|FILE...\n"
    "Print the records of the log files in each DIR (oldest file first) and of each FILE,\n"
    "whole: a record that the size limit split between two files is joined again.\n"
    "\n"
    "  -j, --json    one JSON object per line and record: module, version, level, time,\n"
    "                tid, text, file, date\n"
    "  -h, --help    print this help and exit\n"
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

int runCat(int argc, char** argv) {
    static const option kOptions[] = {{"json", no_argument, nullptr, 'j'},
                                      {"help", no_argument, nullptr, 'h'},
                                      {nullptr, 0, nullptr, 0}};
    bool json = false;
    opterr = 0;
    optind = 0;  // 0: getopt starts afresh, also after an earlier parse in this process
    int c;
    while ((c = getopt_long(argc, argv, "+jh", kOptions, nullptr)) != -1) {
        switch (c) {
            case 'j': json = true; break;
            case 'h': std::fputs(kCatUsage, stdout); return 0;
            default: return optionError(c, argv, "cat");
        }
    }
    if (optind >= argc) {
        std::fprintf(stderr, "qellog: cat needs a DIR or FILE (see qellog cat --help)\n");
        return 2;
    }
    std::vector<LogFile> files;
    int status = collectFiles(std::vector<const char*>(argv + optind, argv + argc), files) ? 0 : 1;

    if (const LogFile* stepped = clockWentBack(files, std::time(nullptr))) {
        std::fprintf(stderr,
                     "qellog: %s: the clock went back while the files were written; the "
                     "records may not be in the order they were written\n",
                     stepped->name.c_str());
    }
    std::vector<FileShape> shapes;
    for (const LogFile& file : files) shapes.push_back(shapeOf(file.path, file.size));

    RecordReader reader;
    RecordPrinter printer(json);
    Record record;
    const auto drain = [&] {
        while (reader.next(record, DataEnd::More)) printer.print(record);
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
    while (reader.next(record, DataEnd::Final)) printer.print(record);
    if (!printer.flush()) {
        std::fprintf(stderr, "qellog: cannot write the records: %s\n", std::strerror(errno));
        return 1;
    }
    return status;
}

}  // namespace qellog
