#ifndef QELLOG_READ_READ_WARNING_H_
#define QELLOG_READ_READ_WARNING_H_

#include <cstdint>
#include <functional>
#include <string>

#include "record.h"

namespace qellog {

// What went wrong while reading log files, beside the records themselves (a record's own
// flags say when it is a piece, cut or incomplete).
enum class WarningKind {
    CannotRead,        // `file` (a path as given) could not be read: `reason`
    CannotReadFolder,  // the folder `file` could not be listed: `reason`
    ClockWentBack,     // the file `file` shows that the clock went back while it was written
                       // (or the hour repeated): its name is out of the order of writing
    Guessed,           // `file`, without recorded facts, continues one of the files in
                       // `reason` (names, the one taken first) with equal evidence
    Replaced,          // follow: another file took the name `file`; the new one is read
    GoneUnread,        // follow: `file` went away before it was read to its end
    EndGuessed,        // follow: the record before `offset` in `file` was taken as complete
                       // when the file stopped growing, but the file went on there
};

struct ReadWarning {
    WarningKind kind;
    std::string file;
    std::uint64_t offset = 0;
    std::string reason;  // the system's message, for the two CannotRead kinds
};

// The names of `files`, separated by ", ", for a Guessed warning.
template <typename FilePointers>
std::string guessText(const FilePointers& files) {
    std::string text;
    for (const auto* file : files) text += (text.empty() ? "" : ", ") + file->name;
    return text;
}

// The reading code hands records and warnings to such callers' functions; it prints nothing.
using RecordSink = std::function<void(const Record&)>;
using WarningSink = std::function<void(const ReadWarning&)>;

}  // namespace qellog

#endif  // QELLOG_READ_READ_WARNING_H_
