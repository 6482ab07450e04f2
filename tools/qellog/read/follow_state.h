#ifndef QELLOG_READ_FOLLOW_STATE_H_
#define QELLOG_READ_FOLLOW_STATE_H_

#include <cstdint>
#include <map>
#include <string>

namespace qellog {

// How far `qellog follow` got in one log file: everything before `offset` was printed, and the
// next record starts there. `refMs` is the time of the record before it, from which the next
// record's date follows (0: start from the time in the file's name).
struct FileProgress {
    std::uint64_t inode = 0;
    std::uint64_t offset = 0;
    std::int64_t refMs = 0;
};

// The state file: per file name, its progress. Files it does not name have not been read.
using FollowState = std::map<std::string, FileProgress>;

enum class StateLoad { Loaded, Missing, Bad };

// Reads the state file at `path`. Bad: it is empty, cut or not a state file (`state` is then
// empty). A state file of the earlier format (one position: a file and an offset) is read as
// that file at that offset and, in `before`, the name before which every file was read.
StateLoad loadState(const std::string& path, FollowState& state, std::string& before);

// Replaces the state file in one step and pushes it to the disk (file and folder), so that a
// stop or a power cut at any moment leaves the old state or the new one, never an empty file.
// Returns false with errno set when it cannot be written.
bool saveState(const std::string& path, const FollowState& state);

}  // namespace qellog

#endif  // QELLOG_READ_FOLLOW_STATE_H_
