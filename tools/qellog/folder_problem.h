#ifndef QELLOG_FOLDER_PROBLEM_H_
#define QELLOG_FOLDER_PROBLEM_H_

#include <string>

namespace qellog {

// Why the system would not let this process write log files into `folder`, created with its
// missing parents: the system's message for the first part of the path that stands in the way
// ("Permission denied", "Not a directory", "File name too long", ...), or "" when nothing
// does.
std::string folderProblem(const std::string& folder);

}  // namespace qellog

#endif  // QELLOG_FOLDER_PROBLEM_H_
