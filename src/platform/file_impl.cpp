#include "platform/file_impl.h"

#include <limits.h>
#include <stdarg.h>
#include <stdlib.h>

#include <cstring>

#include "platform/scoped_critical_section.h"

namespace qel {

FileWrapper* FileWrapper::create() {
    return new FileImpl();
}

FileImpl::FileImpl()
    : m_stream(nullptr),
      m_opened(false),
      m_loop(false),
      m_sizeAtOpen(0),
      m_readPos(0),
      m_writePos(0),
      m_maxFileSize(-1),
      m_bytesWritten(0),
      m_writeFailed(false),
      m_streamPos(-1),
      m_critSect(CriticalSectionWrapper::create()) {}

FileImpl::~FileImpl() {
    closeFile();
    delete m_critSect;
}

bool FileImpl::open() const {
    return m_opened;
}

int FileImpl::openFile(const char* name, bool readOnly, bool loop, bool textMode) {
    if (name == nullptr) {
        return -1;
    }
    if (m_opened) {
        return 0;  // the file already open stays open, under its old name
    }
    m_fileName = name;
    m_loop = loop;
    m_mode = readOnly ? "r" : "w";
    if (!textMode) {
        m_mode += "b";
    }
    FILE* stream = fopen64(m_fileName.c_str(), m_mode.c_str());
    if (stream == nullptr) {
        return -1;
    }
    m_stream = stream;
    m_opened = true;
    m_streamPos = -1;
    // A write open has just emptied the file, so only a read open finds a size here.
    m_sizeAtOpen = fseeko64(m_stream, 0, SEEK_END) == 0 ? streamOffset(0) : 0;
    return 0;
}

void FileImpl::closeFile() {
    if (m_stream != nullptr) {
        fclose(m_stream);
        m_stream = nullptr;
    }
    m_opened = false;
}

void FileImpl::setMaxFileSize(unsigned long limit) {
    if (limit == 0) {
        m_maxFileSize = -1;
    } else if (limit > static_cast<unsigned long>(INT64_MAX)) {
        // Beyond the signed range the limit cannot be reached anyway; it stays a limit, so
        // the bytes written under it are still counted.
        m_maxFileSize = INT64_MAX;
    } else {
        m_maxFileSize = static_cast<int64_t>(limit);
    }
}

int FileImpl::flush() {
    if (!m_opened) {
        return -3;
    }
    if (fflush(m_stream) != 0) {
        m_writeFailed = true;
        clearerr(m_stream);
    }
    return 0;
}

int FileImpl::fileName(char* buffer, unsigned long size) const {
    if (buffer == nullptr || size == 0) {
        return 0;
    }
    const unsigned long length = m_fileName.size();
    const unsigned long copied = length < size - 1 ? length : size - 1;
    memcpy(buffer, m_fileName.data(), copied);
    buffer[copied] = '\0';
    return static_cast<int>(copied + 1);
}

int64_t FileImpl::fileSize() {
    if (!m_opened) {
        return -1;
    }
    m_streamPos = -1;
    if (fseeko64(m_stream, 0, SEEK_END) != 0) {
        return 0;
    }
    return streamOffset(0);
}

int64_t FileImpl::writeText(const char* format, ...) {
    if (!m_opened || format == nullptr) {
        return -1;
    }
    m_streamPos = -1;
    fseeko64(m_stream, m_writePos, SEEK_SET);
    va_list arguments;
    va_start(arguments, format);
    vfprintf(m_stream, format, arguments);
    va_end(arguments);
    m_writePos = streamOffset(m_writePos);
    return m_writePos;
}

int FileImpl::read(void* buffer, int count) {
    if (!m_opened || buffer == nullptr || count < 0) {
        return -1;
    }
    ScopedCriticalSection lock(*m_critSect);
    if (m_loop && m_readPos == m_sizeAtOpen) {
        m_readPos = 0;
    }
    m_streamPos = -1;
    fseeko64(m_stream, m_readPos, SEEK_SET);
    const size_t got = fread(buffer, 1, static_cast<size_t>(count), m_stream);
    // A failed read (say, on a write-only stream) must not stick to the stream.
    clearerr(m_stream);
    m_readPos = streamOffset(m_readPos + static_cast<int64_t>(got));
    return static_cast<int>(got);
}

int FileImpl::write(const void* buffer, int count) {
    if (!m_opened || buffer == nullptr || count < 0) {
        return -1;
    }
    ScopedCriticalSection lock(*m_critSect);
    int allowed = count;
    if (m_maxFileSize != -1) {
        if (m_bytesWritten >= m_maxFileSize) {
            return 0;
        }
        // A write that would pass the limit is cut to the bytes that still fit.
        const int64_t room = m_maxFileSize - m_bytesWritten;
        if (room < count) {
            allowed = static_cast<int>(room);
        }
    }
    const int written = writeAt(m_writePos, buffer, allowed);
    m_writePos = m_streamPos >= 0 ? m_streamPos : streamOffset(m_writePos + written);
    if (m_maxFileSize != -1) {
        m_bytesWritten += written;
    }
    return written;
}

int FileImpl::writetohead(const void* buffer, int count) {
    if (!m_opened || buffer == nullptr || count < 0) {
        return -1;
    }
    ScopedCriticalSection lock(*m_critSect);
    const int written = writeAt(0, buffer, count);
    if (m_writePos > count) {
        m_streamPos = fseeko64(m_stream, m_writePos, SEEK_SET) == 0 ? m_writePos : -1;
    } else {
        m_writePos = count;  // the requested count, whatever reached the file
    }
    return written;
}

int FileImpl::rewind() {
    if (!m_opened) {
        return -6;
    }
    m_readPos = 0;
    m_streamPos = -1;
    return fseeko64(m_stream, 0, SEEK_SET) == 0 ? 0 : -1;
}

const char* FileImpl::getFileName() {
    return m_fileName.c_str();
}

int FileImpl::writeAt(int64_t offset, const void* buffer, int count) {
    // Consecutive writes continue where the stream stands: a seek would push the stream's
    // buffer to the system on every write, so it is made only when the stream is elsewhere.
    const bool positioned = offset == m_streamPos || fseeko64(m_stream, offset, SEEK_SET) == 0;
    const size_t written = fwrite(buffer, 1, static_cast<size_t>(count), m_stream);
    m_streamPos = positioned ? offset + static_cast<int64_t>(written) : -1;
    // A failed write (say, on a read-only stream) must not stick to the stream; where the
    // stream stands is then unknown.
    if (ferror(m_stream)) {
        m_writeFailed = true;
        m_streamPos = -1;
        clearerr(m_stream);
    }
    return static_cast<int>(written);
}

int64_t FileImpl::streamOffset(int64_t fallback) {
    const off64_t offset = ftello64(m_stream);
    return offset < 0 ? fallback : static_cast<int64_t>(offset);
}

int getFullPathName(const char* path, char* out, unsigned int size) {
    if (path == nullptr || out == nullptr) {
        return -1;
    }
    char resolved[PATH_MAX + 1] = {0};
    if (realpath(path, resolved) == nullptr) {
        return -1;
    }
    const size_t length = strlen(resolved);
    if (length >= size) {
        return -1;
    }
    memcpy(out, resolved, length + 1);
    return 0;
}

}  // namespace qel
