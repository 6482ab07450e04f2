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

enum class StateLoad { Loaded, Missing, Bad, Foreign };

// Reads the state file at `path`. Missing: there is none, or it is empty (nothing was saved
// in it). Bad: a state file, cut or damaged. Foreign: bytes that are no state file, which
// nobody may replace. `state` is empty unless Loaded. A state file of the earlier format (one
// position: a file and an offset) is read as that file at that offset and, in `before`, the
// name before which every file was read.
StateLoad loadState(const std::string& path, FollowState& state, std::string& before);

// Replaces the state file in one step and pushes it to the disk (file and folder), so that a
// stop or a power cut at any moment leaves the old state or the new one, never an empty file.
// Returns false with errno set when it cannot be written.
bool saveState(const std::string& path, const FollowState& state);
// The file that saveState writes before it takes the place of the state file at `path`: one
// per process, so that runs never write into each other's.
std::string temporaryStatePath(const std::string& path);

}  // namespace qellog

#endif  // QELLOG_READ_FOLLOW_STATE_H_
