#ifndef QELLOG_READ_LOG_FILE_H_
#define QELLOG_READ_LOG_FILE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "recorded_facts.h"

namespace qellog {

// The local time in a log file's name QelLog<yyyy>-<mm>-<dd>-<hh>-<mm>-<ss>-<ms>.log.
struct FileTime {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, millisecond = 0;
};

// Reads a bare file name (no folder). Returns false for any name the writer does not make.
bool parseLogFileName(const std::string& name, FileTime& time);

// Orders names by their time: the writer never gives two files the same millisecond, so this
// is the order in which they were made.
bool operator<(const FileTime& a, const FileTime& b);

struct LogFile {
    std::string path;  // folder and name
    std::string name;  // name only
    bool named = false;  // the name has the writer's pattern; `time` holds its time
    bool dated = false;  // `time` holds the time in the name: named, or an archive of such a
                         // file (QelLog<date-time>.log.gz), which is never joined with others
    FileTime time;
    // What the file system said when the file was listed (zero when it was not asked).
    std::uint64_t size = 0;
    std::uint64_t device = 0, inode = 0;
    std::int64_t modified = 0;  // seconds since 1970
    RecordedFacts facts;        // what its writer recorded beside it, when read
};

// The entry for the file at `path` (a folder, if any, and a name); `named`, `dated` and `time`
// tell whether and when the writer made its name.
LogFile logFileAt(const std::string& path);
// `name` in `folder`, with one "/" between them.
std::string pathIn(const std::string& folder, const std::string& name);

// Fills `file`'s size, identity and time of last write from the file system; false when the
// file cannot be looked at or is no regular file.
bool statLogFile(LogFile& file);

// The regular files in `folder` with the writer's name pattern, oldest name first (with their
// size, identity and time of last write, and with `withFacts` their recorded facts). Returns
// false, with the reason in `error`, when the folder cannot be read.
bool listLogFiles(const std::string& folder, std::vector<LogFile>& files, std::string& error,
                  bool withFacts = false);

}  // namespace qellog

#endif  // QELLOG_READ_LOG_FILE_H_
