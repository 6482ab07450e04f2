#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "error/error_codes.h"
#include "log/qel_log.h"

namespace qel {

namespace {

// One level path, a "/" appended, and the terminating zero must fit this buffer.
constexpr size_t kLevelBufferSize = 256;

bool isDirectory(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// Creates every missing directory along `level`, the shortest first. Anything that exists
// already is accepted here; a regular file in the way makes the next deeper mkdir fail. A
// directory that another process makes between the test and mkdir (EEXIST) is there, as it
// would have been a moment earlier: two programs starting on one new folder both log there.
bool createLevel(const std::string& level) {
    char buffer[kLevelBufferSize] = {0};
    const bool needsSlash = level.empty() || level.back() != '/';
    if (level.size() + (needsSlash ? 1 : 0) + 1 > sizeof(buffer)) {
        return false;  // too long for the level buffer: refused rather than cut
    }
    memcpy(buffer, level.data(), level.size());
    if (needsSlash) {
        buffer[level.size()] = '/';
    }
    for (char* slash = strchr(buffer + 1, '/'); slash != nullptr; slash = strchr(slash + 1, '/')) {
        *slash = '\0';
        if (access(buffer, F_OK) != 0 && mkdir(buffer, 0755) != 0 && errno != EEXIST) {
            perror("mkdir error");
            return false;
        }
        *slash = '/';
    }
    return true;
}

bool ensureLevel(const std::string& level) {
    return isDirectory(level) || createLevel(level);
}

}  // namespace

int QelLog::createLogDirectory(const std::string& path) {
    for (size_t slash = path.find('/'); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        if (slash == 0) {
            continue;
        }
        if (!ensureLevel(path.substr(0, slash))) {
            return failWith(kErrorFileOpen);
        }
    }
    if (path.empty()) {
        return 0;
    }
    return ensureLevel(path) ? 0 : failWith(kErrorFileOpen);
}

}  // namespace qel
