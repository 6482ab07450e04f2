#include "state_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "commands.h"
#include "read/follow_state.h"
#include "read/log_file.h"

namespace qellog {
namespace {

// The folder that holds `path`, with every link resolved; empty when it does not exist.
std::string realFolderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string folder =
        slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    char resolved[PATH_MAX];
    return realpath(folder.c_str(), resolved) != nullptr ? resolved : std::string();
}

// Whether the folder `inner` (resolved) is `outer` (a path, resolved here) or lies inside it.
bool within(const std::string& inner, const std::string& outer) {
    char resolved[PATH_MAX];
    if (inner.empty() || realpath(outer.c_str(), resolved) == nullptr) return false;
    const std::string root = resolved;
    return inner == root ||
           (inner.compare(0, root.size(), root) == 0 &&
            (root == "/" || inner[root.size()] == '/'));
}

bool isForeign(const std::string& path) {
    FollowState state;
    std::string before;
    return loadState(path, state, before) == StateLoad::Foreign;
}

}  // namespace

StateFile::~StateFile() {
    if (m_lock >= 0) close(m_lock);
}

int StateFile::open(const std::string& path, const std::string& folder, std::string& error) {
    struct stat status;
    const bool exists = stat(path.c_str(), &status) == 0;
    const int statError = exists ? 0 : errno;
    if ((exists && S_ISDIR(status.st_mode)) || path.back() == '/') {
        error = "it is a folder";
    } else if (exists && !S_ISREG(status.st_mode)) {
        error = "it is not a regular file";
    } else if (logFileAt(path).named) {
        error = "it has the name of a log file";
    } else if (within(realFolderOf(path), folder)) {
        error = "it lies inside the log folder, where it would be taken for a foreign file";
    } else if (!exists && statError != ENOENT) {
        error = std::strerror(statError);
        return kExitFailure;
    } else if (exists && isForeign(path)) {
        error = "it holds something else than the state of qellog follow (left as it is)";
        return kExitFailure;
    } else {
        return lock(path, error);
    }
    return kExitUsage;
}

int StateFile::lock(const std::string& path, std::string& error) {
    const std::string lockPath = path + ".lock";
    m_lock = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (m_lock < 0) {
        error = "cannot open its lock file '" + lockPath + "': " + std::strerror(errno);
        return kExitFailure;
    }
    if (flock(m_lock, LOCK_EX | LOCK_NB) != 0) {
        const int reason = errno;
        char holder[32] = {};
        const ssize_t got = pread(m_lock, holder, sizeof(holder) - 1, 0);
        const std::string process =
            got > 0 ? " (process " + std::string(holder, std::strcspn(holder, "\n")) + ")" : "";
        error = reason == EWOULDBLOCK ? "another qellog follow uses it" + process
                                      : std::string(std::strerror(reason));
        return kExitFailure;
    }
    const std::string pid = std::to_string(getpid()) + "\n";
    if (ftruncate(m_lock, 0) != 0 || pwrite(m_lock, pid.data(), pid.size(), 0) < 0) {
        error = "cannot write its lock file '" + lockPath + "': " + std::strerror(errno);
        return kExitFailure;
    }
    // The state is saved by writing a file beside it and renaming that: try it now, before
    // anything is printed, rather than fail after the first records.
    const std::string temporary = temporaryStatePath(path);
    const int probe = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (probe < 0) {
        error = "it cannot be written: " + std::string(std::strerror(errno));
        return kExitFailure;
    }
    close(probe);
    unlink(temporary.c_str());
    return kExitSuccess;
}

}  // namespace qellog
