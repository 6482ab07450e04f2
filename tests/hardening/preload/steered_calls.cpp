// Preloaded (LD_PRELOAD) into a program the tests start, steers it as the environment says:
// QELTEST_CLOCK_START=S QELTEST_CLOCK_STEP_MS=M: each gettimeofday() gives S seconds since the
//   epoch plus M milliseconds more than the one before; clock_gettime(CLOCK_REALTIME) gives the
//   last of them. QELTEST_NO_XATTR: fsetxattr() fails with ENOTSUP.
// QELTEST_ARCHIVE=DIR: unlink() of a log file NAME first links it to DIR/N.SIZE.NAME, N
//   counting the removals, SIZE its size when removed.

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

static std::atomic<long long> g_readings{0};

// The steered clock after `readings` readings, in microseconds; false when it is not steered.
static bool steered(long long readings, long long* micros) {
    const char *start = getenv("QELTEST_CLOCK_START"), *step = getenv("QELTEST_CLOCK_STEP_MS");
    *micros = start && step ? atoll(start) * 1000000 + readings * atoll(step) * 1000 : 0;
    return start && step;
}

extern "C" int gettimeofday(struct timeval* now, void*) {
    long long micros = 0;
    if (!steered(g_readings++, &micros)) return static_cast<int>(syscall(SYS_gettimeofday, now, 0));
    *now = {static_cast<time_t>(micros / 1000000), static_cast<suseconds_t>(micros % 1000000)};
    return 0;
}

extern "C" int clock_gettime(clockid_t clock, struct timespec* now) {
    long long micros = 0;
    if (clock != CLOCK_REALTIME || !steered(g_readings > 0 ? g_readings - 1 : 0, &micros)) {
        return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    }
    *now = {static_cast<time_t>(micros / 1000000), static_cast<long>(micros % 1000000 * 1000)};
    return 0;
}

extern "C" int fsetxattr(int file, const char* name, const void* value, size_t size, int flags) {
    if (getenv("QELTEST_NO_XATTR") != nullptr) return errno = ENOTSUP, -1;
    return static_cast<int>(syscall(SYS_fsetxattr, file, name, value, size, flags));
}

extern "C" int unlink(const char* path) {
    static std::atomic<int> removals{0};
    const char* archive = getenv("QELTEST_ARCHIVE");
    const char* name = strrchr(path, '/') ? strrchr(path, '/') + 1 : path;
    struct stat status;
    if (archive && strncmp(name, "QelLog", 6) == 0 && lstat(path, &status) == 0) {
        char kept[4096];
        snprintf(kept, sizeof(kept), "%s/%d.%lld.%s", archive, removals++,
                 static_cast<long long>(status.st_size), name);
        if (link(path, kept) != 0) abort();
    }
    return static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}
