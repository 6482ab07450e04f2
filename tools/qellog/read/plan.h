#ifndef QELLOG_READ_PLAN_H_
#define QELLOG_READ_PLAN_H_

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "log_file.h"

namespace qellog {

// What the reader needs to know of a log file, beyond its entry, to join it with others.
struct FileShape {
    bool headless = false;    // holds bytes and does not begin with a header
    bool endsInside = false;  // holds bytes and does not end with an empty line
    bool partialHead = false;  // its bytes end before a header at its start could be decided
    // Where no facts are recorded, what tells which process wrote the file: the thread ids of
    // the headers near its start (after a headless start) and near its end.
    std::vector<unsigned long> headThreads, tailThreads;
};

// The sizes at which the writers of `files` rotate: the largest file's size, and any size that
// two or more files that end inside a record share (every full file of one writer has its
// limit as its size, and a record split at the limit ends inside the file).
std::set<std::uint64_t> rotationSizes(const std::vector<LogFile>& files,
                                      const std::vector<FileShape>& shapes);

// An entry of joinFiles' `continues`: the file continues none, or is still to be decided.
constexpr long kContinuesNone = -1;
constexpr long kUndecided = -2;

// The rule that decides which file continues which, for `files` (in the order they were
// written) and their shapes, so that every record split at a size limit is joined again, also
// when other writers' files sort between the two parts:
// - a file with recorded facts continues the file its facts name, or none; no other rule
//   applies to it;
// - a file without a header at its start continues an older file that is full (its size is a
//   rotation size), not yet continued, and ends inside a record (failing that, when it ends
//   with an empty line itself or is full, one that ends with an empty line: the split fell
//   right after one in the text), unless the file right before it ends inside a record and is
//   not full: that one was torn, and what joined the two parts is lost. Of several such files,
//   those of its own process (files that share a thread id in their headers were written by
//   one process), then the newest; when more than one was possible, `onGuess` (when set) is
//   told the file and the candidates, the one taken first;
// - a full file that ends inside a record and is not continued that way is continued by the
//   next file, whatever that file starts with, unless their thread ids show two processes;
// - nothing else is joined: a file that ends inside a record at another size was torn (a
//   crash, a power cut), and a file that starts without a header after it is a piece.
// Files whose names the writer did not make are neither joined nor continued.
// Sets each entry of `continues` that is kUndecided to the index of the file whose last record
// that file continues, or to kContinuesNone; the other entries were decided before (a follower
// decides each file when it comes) and stay. `continued` marks the files that a file continues
// already, and gets the new ones: no file is continued twice. Both have one entry per file.
// A file without facts whose continuation was chosen among several with the same evidence.
using GuessSink = std::function<void(const LogFile& file, const std::vector<const LogFile*>&)>;
void joinFiles(const std::vector<LogFile>& files, const std::vector<FileShape>& shapes,
               std::vector<long>& continues, std::vector<bool>& continued,
               const GuessSink& onGuess = nullptr);

// One file to read, and whether it continues the record of the file read before it.
struct PlannedFile {
    std::size_t index;
    bool continues;
};

// The order in which to read `files` (in the order they were written): each file that
// continues none, each right followed by the files that continue it (joinFiles decides).
std::vector<PlannedFile> planReading(const std::vector<LogFile>& files,
                                     const std::vector<FileShape>& shapes,
                                     const GuessSink& onGuess = nullptr);

// Reads the head and the tail of `file` as it is now, and sets its size to the size that the
// tail was read at, so that the two agree while a writer adds to the file. A file that cannot
// be read has the shape of an empty one.
FileShape shapeOf(LogFile& file);

}  // namespace qellog

#endif  // QELLOG_READ_PLAN_H_
