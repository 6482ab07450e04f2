#include "output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "colour.h"
#include "json.h"

namespace qellog {

void RecordPrinter::print(const Record& record) {
    const unsigned long long offset = record.offset;
    if (record.zeros) {
        std::fprintf(stderr, "qellog: %s at byte %llu: %zu NUL bytes (data lost in a crash), "
                     "left out\n", record.file.c_str(), offset, record.bytes.size());
        return;
    }
    if (!record.headed) {
        std::fprintf(stderr,
                     "qellog: %s at byte %llu: %zu bytes that are not a record, printed %s\n",
                     record.file.c_str(), offset, record.bytes.size(),
                     m_json ? "as a record with an empty header" : "as they are");
    } else if (record.cut) {
        std::fprintf(stderr, "qellog: %s at byte %llu: a record without end, printed in pieces\n",
                     record.file.c_str(), offset);
    } else if (!record.complete) {
        std::fprintf(stderr,
                     "qellog: %s at byte %llu: a record cut off before its closing empty line\n",
                     record.file.c_str(), offset);
    }
    if (m_json) {
        const std::string line = recordJson(record) + "\n";
        std::fwrite(line.data(), 1, line.size(), stdout);
    } else if (m_colour) {
        const std::string coloured = colouredRecord(record);
        std::fwrite(coloured.data(), 1, coloured.size(), stdout);
    } else {
        std::fwrite(record.bytes.data(), 1, record.bytes.size(), stdout);
    }
}

bool RecordPrinter::flush() { return std::fflush(stdout) == 0 && !std::ferror(stdout); }

long long readInto(const std::string& path, unsigned long long offset, RecordReader& reader,
                   const std::function<void()>& drain) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return -1;
    char buffer[64 * 1024];
    long long total = 0;
    for (;;) {
        const ssize_t got = pread(fd, buffer, sizeof(buffer), static_cast<off_t>(offset + total));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            const int error = errno;
            close(fd);
            errno = error;
            return -1;
        }
        if (got == 0) break;
        reader.append(buffer, static_cast<std::size_t>(got));
        total += got;
        if (drain) drain();
    }
    close(fd);
    return total;
}

}  // namespace qellog
