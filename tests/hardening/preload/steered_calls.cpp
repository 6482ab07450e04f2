// Loaded with LD_PRELOAD into a program that the tests start, this steers C library calls from
// its start on, as the environment says:
//   QELTEST_CLOCK_START=S QELTEST_CLOCK_STEP_MS=M  the wall clock: each gettimeofday() gives
//       S seconds since the epoch plus M milliseconds more than the last one; clock_gettime()
//       of CLOCK_REALTIME and time() give what gettimeofday() gave last. Every other clock is
//       the machine's.
//   QELTEST_NO_XATTR=1  fsetxattr() fails with ENOTSUP, as on a file system without them.
//   QELTEST_ARCHIVE=DIR  unlink() of a log file first links it into DIR (as NAME.N, N counting
//       the removals) and appends "NAME.N SIZE\n" to DIR/removed, SIZE its size at removal.

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

namespace {

std::atomic<long long> g_calls{0};

// The fake wall clock's microseconds after `calls` readings; false when it is not steered.
bool fakeMicros(long long calls, long long* micros) {
    const char* start = getenv("QELTEST_CLOCK_START");
    const char* step = getenv("QELTEST_CLOCK_STEP_MS");
    if (start == nullptr || step == nullptr) return false;
    *micros = atoll(start) * 1000000 + calls * atoll(step) * 1000;
    return true;
}

// What gettimeofday() gave last, or the start before the first.
bool lastMicros(long long* micros) {
    const long long calls = g_calls.load();
    return fakeMicros(calls > 0 ? calls - 1 : 0, micros);
}

}  // namespace

extern "C" int gettimeofday(struct timeval* now, void*) {
    long long micros = 0;
    if (!fakeMicros(g_calls.fetch_add(1), &micros)) {
        struct timespec real;
        syscall(SYS_clock_gettime, CLOCK_REALTIME, &real);
        micros = real.tv_sec * 1000000LL + real.tv_nsec / 1000;
    }
    now->tv_sec = micros / 1000000;
    now->tv_usec = micros % 1000000;
    return 0;
}

extern "C" int clock_gettime(clockid_t clock, struct timespec* now) {
    long long micros = 0;
    if (clock != CLOCK_REALTIME || !lastMicros(&micros)) {
        return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    }
    now->tv_sec = micros / 1000000;
    now->tv_nsec = micros % 1000000 * 1000;
    return 0;
}

extern "C" time_t time(time_t* out) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (out != nullptr) *out = now.tv_sec;
    return now.tv_sec;
}

extern "C" int fsetxattr(int descriptor, const char* name, const void* value, size_t size,
                         int flags) {
    if (getenv("QELTEST_NO_XATTR") != nullptr) return errno = ENOTSUP, -1;
    return static_cast<int>(syscall(SYS_fsetxattr, descriptor, name, value, size, flags));
}

extern "C" int unlink(const char* path) {
    static std::atomic<int> removals{0};
    const char* archive = getenv("QELTEST_ARCHIVE");
    const char* slash = strrchr(path, '/');
    const char* name = slash != nullptr ? slash + 1 : path;
    struct stat status;
    if (archive != nullptr && strncmp(name, "QelLog", 6) == 0 && lstat(path, &status) == 0) {
        char kept[4096], listPath[4096], line[512];
        const int number = removals.fetch_add(1);
        snprintf(kept, sizeof(kept), "%s/%s.%d", archive, name, number);
        snprintf(listPath, sizeof(listPath), "%s/removed", archive);
        const int length = snprintf(line, sizeof(line), "%s.%d %lld\n", name, number,
                                    static_cast<long long>(status.st_size));
        const int list = open(listPath, O_WRONLY | O_CREAT | O_APPEND, 0644);
        if (link(path, kept) != 0 || list < 0 || write(list, line, length) != length) abort();
        close(list);
    }
    return static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}
