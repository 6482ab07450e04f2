#include "byte_source.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

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

}  // namespace

std::unique_ptr<ByteSource> openFileSource(const std::string& path, std::uint64_t offset) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return nullptr;
    return std::unique_ptr<ByteSource>(new FileSource(fd, offset));
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
