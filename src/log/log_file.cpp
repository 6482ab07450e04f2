#include "log/log_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cstring>

namespace qel {

namespace {

// A remover holds its exclusive lock only while it checks the name and removes the file.
constexpr int kLockAttempts = 3;

// Takes the shared lock on a file just created under `path`, and makes sure that the name still
// leads to it. A tool that removes old log files takes an exclusive lock without waiting and
// removes a file only while it holds that lock and the name leads to the file it locked; one
// that came between the creation and this lock has removed the file or is about to. Then the
// file must not be written: false. A file system without such locks gives no more protection
// than that check.
bool lockAtName(int descriptor, const char* path) {
    int attempt = 0;
    while (flock(descriptor, LOCK_SH | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            break;  // no such locks here: the name is still checked
        }
        if (++attempt == kLockAttempts) {
            return false;
        }
        const struct timespec pause = {0, 1000 * 1000};
        nanosleep(&pause, nullptr);
    }
    struct stat created, named;
    return fstat(descriptor, &created) == 0 && lstat(path, &named) == 0 &&
           created.st_dev == named.st_dev && created.st_ino == named.st_ino;
}

}  // namespace

int aboveStandardStreams(int descriptor) {
    if (descriptor < 0 || descriptor > STDERR_FILENO) {
        return descriptor;
    }
    const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int error = errno;
    ::close(descriptor);
    errno = error;
    return moved;
}

LogFile::LogFile() : m_descriptor(-1) {
    m_path[0] = '\0';
}

LogFile::~LogFile() {
    close();
}

int LogFile::create(const char* path) {
    if (isOpen()) {
        return EBUSY;
    }
    const size_t length = strlen(path);
    if (length >= sizeof(m_path)) {
        return ENAMETOOLONG;
    }
    memcpy(m_path, path, length + 1);
    // O_EXCL makes the creation fail on any existing name, a symbolic link included, so a
    // file or link planted at the name in a shared folder is never followed or emptied.
    const int descriptor = aboveStandardStreams(
        ::open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (descriptor < 0) {
        return errno;
    }
    if (!lockAtName(descriptor, path)) {
        ::close(descriptor);
        return EAGAIN;
    }
    m_descriptor = descriptor;
    return 0;
}

size_t LogFile::write(const char* data, size_t size, bool* failed) {
    size_t written = 0;
    *failed = false;
    while (written < size) {
        const ssize_t got = ::write(m_descriptor, data + written, size - written);
        if (got > 0) {
            written += static_cast<size_t>(got);
        } else if (got < 0 && errno == EINTR) {
            continue;
        } else {
            *failed = true;
            break;
        }
    }
    return written;
}

void LogFile::close() {
    if (m_descriptor >= 0) {
        ::close(m_descriptor);  // its lock goes with the last descriptor of the file
        m_descriptor = -1;
    }
}

}  // namespace qel
