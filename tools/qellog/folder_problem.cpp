#include "folder_problem.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace qellog {

std::string folderProblem(const std::string& folder) {
    std::string path = folder;
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    struct stat status;
    if (stat(path.c_str(), &status) == 0) {
        if (!S_ISDIR(status.st_mode)) return std::strerror(ENOTDIR);
        return access(path.c_str(), W_OK | X_OK) == 0 ? "" : std::strerror(errno);
    }
    if (errno != ENOENT) return std::strerror(errno);
    // Missing: it would be made in its parent, so the parent decides.
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) {
        return access(".", W_OK | X_OK) == 0 ? "" : std::strerror(errno);
    }
    return folderProblem(slash == 0 ? "/" : path.substr(0, slash));
}

}  // namespace qellog
