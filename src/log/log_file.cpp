#include "log/log_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstring>

namespace qel {

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
    // A file system without such locks simply gives no protection.
    flock(descriptor, LOCK_SH | LOCK_NB);
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
