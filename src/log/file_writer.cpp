#include "log/file_writer.h"

#include <errno.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include <qel/timeutils.h>

#include "log/qel_log.h"
#include "platform/time_text.h"

namespace qel {

namespace {

// How long a new file's name may be sought. Names have a resolution of one millisecond, so
// a name already taken is free again after the next millisecond; only a clock set back
// onto old files could keep it taken, and then the open fails rather than overwrite.
constexpr int kNameAttempts = 200;

// A folder removed while the writer makes a new file (mkdir of a level, then the level is
// gone) is made again this many times before the reopen counts as failed.
constexpr int kReopenAttempts = 3;
// After a failed reopen the writer drops records and tries again after this pause, which
// doubles with every further failure up to the longest one, so that a folder that cannot be
// made costs neither a system call per record nor a flood of "mkdir error" lines.
constexpr uint64_t kFirstRetryPauseUs = 100 * 1000;
constexpr uint64_t kLongestRetryPauseUs = 10 * 1000 * 1000;

constexpr uint32_t kDefaultMaxFileSize = 10485760;

static_assert(FileWriter::kBufferCapacity <= UINT16_MAX, "record ends must fit 16 bits");

// Taken by anything, a symbolic link included, whether or not it leads anywhere.
bool nameTaken(const char* path) {
    struct stat status;
    return lstat(path, &status) == 0 || errno != ENOENT;
}

}  // namespace

FileWriter::FileWriter(void (*flush)(void*), void* context)
    : m_folder(QelLogFileStream::kWorkingFolder),
      m_maxFileSize(kDefaultMaxFileSize),
      m_maxDelayMs(0),
      m_recordCount(0),
      m_flusher(flush, context),
      m_newFileNeeded(false),
      m_countedBytes(0),
      m_retryPauseUs(0),
      m_nextRetryUs(0) {
    m_name[0] = '\0';
    m_previous[0] = '\0';
}

FileWriter::~FileWriter() = default;

size_t FileWriter::fileName(const char* folder, char* out, size_t capacity) {
    const size_t folderLength = strlen(folder);
    const bool separated = folderLength == 0 || folder[folderLength - 1] == '/' ||
                           folder[folderLength - 1] == '\\';
    const char* const prefix = separated ? "QelLog" : "/QelLog";
    const size_t prefixLength = strlen(prefix);
    char stamp[kTimestampSize];
    const size_t stampLength = formatLocalTimestamp(stamp);
    const size_t length = folderLength + prefixLength + stampLength + 4;
    if (length >= capacity) {
        return 0;
    }
    char* at = out;
    at = static_cast<char*>(memcpy(at, folder, folderLength)) + folderLength;
    at = static_cast<char*>(memcpy(at, prefix, prefixLength)) + prefixLength;
    std::replace_copy(stamp, stamp + stampLength, at, ':', '-');
    memcpy(at + stampLength, ".log", 5);
    return length;
}

int FileWriter::openFile() {
    m_retryPauseUs = 0;
    m_nextRetryUs = 0;
    m_file.close();
    QelLog::createLogDirectory(m_folder);  // a failure shows when the file is created
    return createFile(nullptr);
}

// Names have a resolution of one millisecond, and a small limit can make one record switch
// files several times within a millisecond. A name that is taken, by an earlier log file or
// by anything else, is never opened; the writer waits for the next millisecond, which keeps
// the name format and the creation order of the names intact. The look for a free name and
// the creation are two steps: another process logging into the same folder, or someone
// planting a file, may take the name in between; the exclusive creation notices, and the
// writer goes on to the next free name. A file that a remover took before the writer held its
// lock is never written: the writer creates one anew.
int FileWriter::createFile(const char* continues) {
    m_watch.stop();
    m_facts.fileClosed();
    m_newFileNeeded = false;
    m_countedBytes = 0;
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
        if (fileName(m_folder.c_str(), m_name, sizeof(m_name)) == 0) {
            return ENAMETOOLONG;
        }
        if (nameTaken(m_name)) {
            sleepMs(1);
            continue;
        }
        const int error = m_file.create(m_name);
        if (error == 0) {
            m_facts.recordNewFile(m_file.descriptor(), continues);
            m_watch.watch(m_file.descriptor(), m_file.path());
        }
        if (error != EEXIST && error != EAGAIN) {
            return error;
        }
        sleepMs(1);
    }
    return EEXIST;
}

void FileWriter::closeFile() {
    m_file.close();
    m_watch.stop();
    m_facts.fileClosed();
    setFolder(QelLogFileStream::kWorkingFolder);
}

void FileWriter::closeAll() {
    closeFile();
    m_watch.release();
}

bool FileWriter::reopen(bool continues) {
    const char* previous = nullptr;
    if (continues) {
        const char* slash = strrchr(m_file.path(), '/');
        const char* name = slash != nullptr ? slash + 1 : m_file.path();
        const size_t length = std::min(strlen(name), sizeof(m_previous) - 1);
        memcpy(m_previous, name, length);
        m_previous[length] = '\0';
        previous = m_previous;
    }
    m_file.close();
    // The folder is made only when it is missing; one removed between the creation of its
    // levels and of the file is made again.
    int error = createFile(previous);
    for (int attempt = 0; attempt < kReopenAttempts && (error == ENOENT || error == ENOTDIR);
         ++attempt) {
        QelLog::createLogDirectory(m_folder);  // a failure shows when the file is created
        error = createFile(previous);
    }
    if (error == 0) {
        m_retryPauseUs = 0;
        return true;
    }
    m_retryPauseUs = m_retryPauseUs == 0 ? kFirstRetryPauseUs
                                         : std::min(2 * m_retryPauseUs, kLongestRetryPauseUs);
    m_nextRetryUs = timeMicros() + m_retryPauseUs;
    return false;
}

void FileWriter::setMaxDelay(unsigned int maxDelayMs) {
    writeOut();
    m_maxDelayMs = maxDelayMs;
    if (maxDelayMs != 0) {
        m_buffer.reserve(kBufferCapacity);
    }
}

void FileWriter::startFlusher() {
    if (m_maxDelayMs != 0 && !m_flusher.start()) {
        m_maxDelayMs = 0;
    }
}

bool FileWriter::fileReady() {
    if (!m_file.isOpen()) {
        // A reopen failed (the folder removed while it was made, descriptors used up): the
        // writer stays on and tries again once the pause has passed.
        return timeMicros() >= m_nextRetryUs && reopen(false);
    }
    if (m_newFileNeeded || m_watch.replaced()) {
        return reopen(false);
    }
    return true;
}

void FileWriter::take(bool urgent, const char* timeOfDay) {
    if (m_maxDelayMs == 0) {
        if (fileReady()) {
            m_facts.noteRecord(timeOfDay);
            writeAcrossFiles(m_line.data(), m_line.size());
        }
        return;
    }
    if (m_buffer.size() + m_line.size() > kBufferCapacity ||
        m_recordCount == kMaxBufferedRecords) {
        writeOut();  // the buffer never holds part of a record
    }
    m_facts.noteRecord(timeOfDay);
    const bool firstWaiting = m_buffer.empty();
    m_buffer += m_line;
    m_recordEnds[m_recordCount++] = static_cast<uint16_t>(m_buffer.size());
    // A record that reaches the limit is written at once with its rest, so that a full file
    // never waits for the start of the next.
    const bool fillsFile =
        m_maxFileSize != 0 && m_countedBytes + m_buffer.size() >= m_maxFileSize;
    if (urgent || fillsFile ||
        (firstWaiting && !m_flusher.writeBy(timeMicros() + 1000ull * m_maxDelayMs))) {
        writeOut();
    }
}

void FileWriter::writeOut() {
    if (m_buffer.empty()) {
        return;
    }
    // Records that find no file (the writer is on but silent, waiting to retry) are dropped:
    // the buffer never grows past its capacity while the folder cannot be made.
    if (fileReady()) {
        writeAcrossFiles(m_buffer.data(), m_buffer.size());
    }
    m_buffer.clear();
    m_recordCount = 0;
}

bool FileWriter::endsRecord(size_t written) const {
    if (written == 0) {
        return true;
    }
    for (size_t i = 0; i < m_recordCount; ++i) {
        if (m_recordEnds[i] == written) {
            return true;
        }
    }
    return false;
}

// A write that does not fit fills the current file to its limit and goes on in new files.
void FileWriter::writeAcrossFiles(const char* data, size_t size) {
    const char* const start = data;
    for (bool freshFile = false; size > 0; freshFile = true) {
        size_t part = size;
        if (m_maxFileSize != 0) {
            const uint64_t room =
                m_countedBytes < m_maxFileSize ? m_maxFileSize - m_countedBytes : 0;
            part = static_cast<size_t>(std::min<uint64_t>(size, room));
        }
        bool failed = false;
        const size_t written = part > 0 ? m_file.write(data, part, &failed) : 0;
        if (m_maxFileSize != 0) {
            m_countedBytes += written;  // bytes written without a limit are not counted
        }
        if (failed) {
            m_newFileNeeded = written > 0;
            return;
        }
        // A fresh file that takes nothing ends the write: no new files without end.
        if (freshFile && written == 0) {
            return;
        }
        data += written;
        size -= written;
        if (size > 0 && !reopen(!endsRecord(static_cast<size_t>(data - start)))) {
            return;
        }
    }
}

void FileWriter::continueInChild() {
    // Parent and child must never share one file's byte count, nor write into one file.
    m_watch.forgetInChild();
    m_facts.forgetInChild();
    m_flusher.forgetInChild();
    m_maxDelayMs = 0;
    m_file.forgetInChild();  // the child's next record starts a new file
}

}  // namespace qel
