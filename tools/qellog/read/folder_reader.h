#ifndef QELLOG_READ_FOLDER_READER_H_
#define QELLOG_READ_FOLDER_READER_H_

#include <string>
#include <vector>

#include "log_file.h"
#include "read_warning.h"

namespace qellog {

// Reads the records of the folders and files that `paths` name, in that order: a folder's log
// files joined (see joinFiles) and in the order they were written, a file by itself. Hands each
// record to `onRecord` and each problem to `onWarning`; prints nothing. `files`, when given,
// gets the files read. Returns false when a path or one of its files could not be read.
bool readPaths(const std::vector<std::string>& paths, const RecordSink& onRecord,
               const WarningSink& onWarning, std::vector<LogFile>* files = nullptr);

}  // namespace qellog

#endif  // QELLOG_READ_FOLDER_READER_H_
