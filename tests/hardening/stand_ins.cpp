#include "hardening/stand_ins.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>

#include "support/test_support.h"

const std::set<std::string>* g_looksFree = nullptr;
int g_foldersToRemove = 0;
long g_skippedSeconds = 0;
int g_inotifyInstances = -1;
int g_factsRefusal = 0;
int g_factsAttempts = 0;
int g_sharedLockDelayUs = 0;

extern "C" int fsetxattr(int descriptor, const char* name, const void* value, size_t size,
                         int flags) {
    ++g_factsAttempts;
    if (g_factsRefusal != 0) return errno = g_factsRefusal, -1;
    return static_cast<int>(syscall(SYS_fsetxattr, descriptor, name, value, size, flags));
}

extern "C" int flock(int descriptor, int operation) {
    if (g_sharedLockDelayUs > 0 && (operation & LOCK_SH) != 0) usleep(g_sharedLockDelayUs);
    return static_cast<int>(syscall(SYS_flock, descriptor, operation));
}

extern "C" int lstat64(const char* path, struct stat64* status) {
    if (g_looksFree != nullptr && g_looksFree->count(path) > 0) return errno = ENOENT, -1;
    return static_cast<int>(syscall(SYS_newfstatat, AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW));
}

extern "C" int mkdir(const char* path, mode_t mode) {
    const int result = static_cast<int>(syscall(SYS_mkdir, path, mode));
    if (result == 0 && g_foldersToRemove > 0) {
        --g_foldersToRemove;
        rmdir(path);
    }
    return result;
}

extern "C" int clock_gettime(clockid_t clock, struct timespec* now) {
    const int result = static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    if (clock == CLOCK_MONOTONIC) now->tv_sec += g_skippedSeconds;
    return result;
}

extern "C" int inotify_init1(int flags) {
    if (g_inotifyInstances >= 0 &&
        hardening::descriptorsLeadingTo("anon_inode:inotify") >= g_inotifyInstances) {
        return errno = EMFILE, -1;
    }
    return static_cast<int>(syscall(SYS_inotify_init1, flags));
}

using qeltest::readFile;

namespace hardening {

long openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

int descriptorsLeadingTo(const std::string& target, int pid) {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(
             pid == 0 ? "/proc/self/fd" : "/proc/" + std::to_string(pid) + "/fd")) {
        std::error_code ignored;
        count += read_symlink(entry.path(), ignored) == target;
    }
    return count;
}

int threadsNamed(const std::string& name) {
    int count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        count += readFile(task.path() / "comm") == name + "\n";
    }
    return count;
}

bool setSoftLimit(int resource, unsigned long value) {
    struct rlimit limit;
    getrlimit(resource, &limit);
    limit.rlim_cur = value;
    return setrlimit(resource, &limit) == 0;
}

}  // namespace hardening
