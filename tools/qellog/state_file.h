#ifndef QELLOG_STATE_FILE_H_
#define QELLOG_STATE_FILE_H_

#include <string>

namespace qellog {

// The state file of one `qellog follow` run, checked before anything is printed and held for
// the whole run: a lock file beside it (FILE.lock) keeps any other follow off the same state.
// Not copyable; the lock goes with the object (or the process).
class StateFile {
public:
    StateFile() = default;
    StateFile(const StateFile&) = delete;
    StateFile& operator=(const StateFile&) = delete;
    ~StateFile();

    // Takes `path` as the state file of following `folder`. Returns kExitSuccess, or the exit
    // status of a refusal with the reason in `error`: kExitUsage for a path that can never be
    // a state file (a folder, anything but a regular file, a name the log writer makes, a
    // place inside the log folder), kExitFailure for a file that holds something else, a
    // place where it cannot be written, and a state file that another follow holds.
    int open(const std::string& path, const std::string& folder, std::string& error);

private:
    int lock(const std::string& path, std::string& error);

    int m_lock = -1;
};

}  // namespace qellog

#endif  // QELLOG_STATE_FILE_H_
