#include "byte_source.h"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

namespace qellog {
namespace {

class FileSource : public ByteSource {
public:
    FileSource(int fd, std::uint64_t offset) : m_fd(fd), m_offset(offset) {}
    ~FileSource() override {
        const int error = errno;  // a failed read's reason outlives the source
        close(m_fd);
        errno = error;
    }
    FileSource(const FileSource&) = delete;
    FileSource& operator=(const FileSource&) = delete;

    long long read(char* buffer, std::size_t size) override {
        ssize_t got;
        do {
            got = pread(m_fd, buffer, size, static_cast<off_t>(m_offset));
        } while (got < 0 && errno == EINTR);
        if (got > 0) m_offset += static_cast<std::uint64_t>(got);
        return got;
    }

private:
    int m_fd;
    std::uint64_t m_offset;
};

// The decompressed bytes of gzip data (every member of it) on a descriptor; data that is not
// gzip comes through as it is.
class GzipSource : public ByteSource {
public:
    explicit GzipSource(gzFile file) : m_file(file) {}
    ~GzipSource() override {
        const int error = errno;
        gzclose(m_file);  // closes the descriptor too
        errno = error;
    }
    GzipSource(const GzipSource&) = delete;
    GzipSource& operator=(const GzipSource&) = delete;

    long long read(char* buffer, std::size_t size) override {
        const int got = gzread(m_file, buffer, static_cast<unsigned>(std::min<std::size_t>(
                                                   size, INT_MAX)));
        int code = Z_OK;
        gzerror(m_file, &code);
        // The end of the data within a compressed stream (Z_BUF_ERROR) is a cut archive.
        if (got > 0 || code == Z_OK || code == Z_STREAM_END) return got;
        if (code != Z_ERRNO) errno = EBADMSG;
        return -1;
    }

private:
    gzFile m_file;
};

std::unique_ptr<ByteSource> gzipSource(int fd, std::uint64_t offset) {
    const gzFile file = gzdopen(fd, "rb");
    if (file == nullptr) {
        close(fd);
        errno = ENOMEM;
        return nullptr;
    }
    gzbuffer(file, 64 * 1024);
    std::unique_ptr<ByteSource> source(new GzipSource(file));
    if (offset > 0 && gzseek(file, static_cast<z_off_t>(offset), SEEK_SET) < 0) return nullptr;
    return source;
}

}  // namespace

const char kStandardInput[] = "-";
const char kStandardInputName[] = "(standard input)";

std::unique_ptr<ByteSource> openFileSource(const std::string& path, std::uint64_t offset) {
    if (path == kStandardInput) {
        const int fd = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);  // the source closes its own
        return fd < 0 ? nullptr : gzipSource(fd, offset);
    }
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return nullptr;
    unsigned char magic[2] = {0, 0};
    if (pread(fd, magic, 2, 0) == 2 && magic[0] == 0x1f && magic[1] == 0x8b) {
        return gzipSource(fd, offset);
    }
    return std::unique_ptr<ByteSource>(new FileSource(fd, offset));
}

std::string sourceError(int error) {
    return error == EBADMSG ? "damaged or cut compressed data" : std::strerror(error);
}

long long feedReader(ByteSource& source, RecordReader& reader,
                     const std::function<void()>& drain) {
    char buffer[64 * 1024];
    long long total = 0;
    for (;;) {
        const long long got = source.read(buffer, sizeof(buffer));
        if (got < 0) return -1;
        if (got == 0) return total;
        reader.append(buffer, static_cast<std::size_t>(got));
        total += got;
        if (drain) drain();
    }
}

long long readInto(const std::string& path, std::uint64_t offset, RecordReader& reader,
                   const std::function<void()>& drain) {
    const std::unique_ptr<ByteSource> source = openFileSource(path, offset);
    return source ? feedReader(*source, reader, drain) : -1;
}

}  // namespace qellog
