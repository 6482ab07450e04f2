#include "log/qel_log_file_stream.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include <qel/timeutils.h>

#include "error/error_codes.h"
#include "log/qel_log.h"
#include "log/writer_lock.h"
#include "platform/scoped_critical_section.h"

namespace qel {

namespace {

constexpr uint32_t kDefaultMaxFileSize = 10485760;
// The writer's buffer: the longest line (a header of at most 1023 characters, a text of
// 2047 and two line feeds) fits it several times over.
constexpr size_t kBufferCapacity = 8192;

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

bool consoleWriterOn() {
    QelLog* log = QelLog::live();
    return log != nullptr && log->consoleStream().isOpen();
}

// Taken by anything, a symbolic link included, whether or not it leads anywhere.
bool nameTaken(const char* path) {
    struct stat status;
    return lstat(path, &status) == 0 || errno != ENOENT;
}

}  // namespace

QelLogFileStream::QelLogFileStream()
    : m_file(nullptr),
      m_fileFolder(kWorkingFolder),
      m_maxFileSize(kDefaultMaxFileSize),
      m_newFileNeeded(false),
      m_countedBytes(0),
      m_retryPauseUs(0),
      m_nextRetryUs(0) {
    m_line.reserve(kLineCapacity);
    m_buffer.reserve(kBufferCapacity);
}

QelLogFileStream::~QelLogFileStream() {
    closeFile();
}

std::string QelLogFileStream::formatFileName(const std::string& folder) {
    std::string timeText = localTimeFormat();
    std::replace(timeText.begin(), timeText.end(), ':', '-');
    std::string path = folder;
    if (folder.empty() || folder.back() == '/' || folder.back() == '\\') {
        path += "QelLog";
    } else {
        path += "/QelLog";
    }
    path += timeText;
    path += ".log";
    return path;
}

// Names have a resolution of one millisecond, and a small limit can make one record switch
// files several times within a millisecond. A name that is taken, by an earlier log file or
// by anything else, is never opened; the writer waits for the next millisecond, which keeps
// the name format and the creation order of the names intact.
std::string QelLogFileStream::freeFileName() const {
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
        std::string name = formatFileName(m_fileFolder);
        if (!nameTaken(name.c_str())) {
            return name;
        }
        sleepMs(1);
    }
    return std::string();
}

int QelLogFileStream::openFile() {
    delete m_file;
    m_file = new FileImpl();
    m_newFileNeeded = false;
    m_countedBytes = 0;
    QelLog::createLogDirectory(m_fileFolder);  // a failure shows when the file is created
    // The look for a free name and the creation are two steps: another process logging into
    // the same folder, or someone planting a file, may take the name in between. The
    // exclusive creation notices, and the writer goes on to the next free name.
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
        m_fileName = freeFileName();
        if (m_fileName.empty()) {
            return EEXIST;
        }
        if (m_file->createNewFile(m_fileName.c_str()) == 0) {
            m_file->setMaxFileSize(m_maxFileSize);
            m_currentFile.watch(m_file->descriptor(), m_fileName);
            return 0;
        }
        const int error = errno;
        if (error != EEXIST) {
            return error;
        }
        sleepMs(1);
    }
    return EEXIST;
}

void QelLogFileStream::closeFile() {
    if (m_file == nullptr) {
        return;
    }
    if (m_file->open()) {
        m_file->closeFile();
    }
    m_currentFile.stop();
    m_fileFolder = kWorkingFolder;
    delete m_file;
    m_file = nullptr;
}

bool QelLogFileStream::reopen() {
    const std::string folder = m_fileFolder;
    closeFile();
    m_fileFolder = folder;
    // A folder removed between the creation of its levels and of the file is made again.
    for (int attempt = 0; attempt < kReopenAttempts; ++attempt) {
        const int error = openFile();
        if (error == 0) {
            m_retryPauseUs = 0;
            return true;
        }
        if (error != ENOENT) {
            break;
        }
    }
    m_retryPauseUs = m_retryPauseUs == 0
                         ? kFirstRetryPauseUs
                         : std::min(2 * m_retryPauseUs, kLongestRetryPauseUs);
    m_nextRetryUs = timeMicros() + m_retryPauseUs;
    return false;
}

void QelLogFileStream::writeFormatLog(const LogMessage& msg) {
    ScopedCriticalSection lock(*m_critSect);
    formatLog(msg, m_line);
    if (m_buffer.size() + m_line.size() > kBufferCapacity) {
        writeOut();  // the buffer never holds part of a record
    }
    m_buffer += m_line;
    // Warnings and errors are the records people need after a crash: they reach the system
    // before the call returns, and every record before them with them. While the console
    // writer is on, every record does (it flushes all streams after each record, which makes
    // the log file's lines visible at once as well). The dispatch holds the signal lock, which
    // guards the console's open flag.
    if (static_cast<int>(msg.level) >= QEL_LOG_WARNING || consoleWriterOn()) {
        writeOut();
    } else if (m_maxFileSize != 0 && m_countedBytes + m_buffer.size() > m_maxFileSize) {
        writeOut(true);  // files change at the record that fills them
    }
}

bool QelLogFileStream::fileReady() {
    if (m_file == nullptr || !m_file->open()) {
        // A reopen failed (the folder removed while it was made, descriptors used up): the
        // writer stays on and tries again once the pause has passed.
        return timeMicros() >= m_nextRetryUs && reopen();
    }
    if (m_newFileNeeded || m_currentFile.replaced()) {
        return reopen();
    }
    return true;
}

void QelLogFileStream::writeOut(bool fullFilesOnly) {
    if (m_buffer.empty()) {
        return;
    }
    // Records that find no file (the writer is on but silent, waiting to retry) are dropped:
    // the buffer never grows past its capacity while the folder cannot be made.
    const size_t done = fileReady() ? writeAcrossFiles(fullFilesOnly) : m_buffer.size();
    m_buffer.erase(0, done);
}

// A write that does not fit fills the current file to its limit and goes on in new files. A
// write that failed (a full disk, a file size limit of the process) drops the rest: when
// part of it reached the file, the record it cut is left as the last thing in that file and
// the next write starts a new one; a file that took nothing still ends at a record end and
// is kept, so that a full disk does not cost a new file per record.
size_t QelLogFileStream::writeAcrossFiles(bool fullFilesOnly) {
    size_t done = 0;
    for (bool freshFile = false; done < m_buffer.size(); freshFile = true) {
        size_t length = m_buffer.size() - done;
        if (fullFilesOnly) {
            const uint64_t room =
                m_countedBytes < m_maxFileSize ? m_maxFileSize - m_countedBytes : 0;
            if (length <= room) {
                return done;  // the rest waits for the file it will fill
            }
            length = static_cast<size_t>(room);
        }
        const int written = m_file->write(m_buffer.data() + done, static_cast<int>(length));
        if (m_maxFileSize != 0 && written > 0) {
            m_countedBytes += static_cast<uint64_t>(written);  // as the file object counts
        }
        if (m_file->takeWriteError()) {
            m_newFileNeeded = written > 0;
            return m_buffer.size();
        }
        // A fresh file that takes nothing ends the write: no new files without end.
        if (written < 0 || (freshFile && written == 0)) {
            return m_buffer.size();
        }
        done += static_cast<size_t>(written);
        if (done < m_buffer.size() && !reopen()) {
            return m_buffer.size();
        }
    }
    return done;
}

void QelLogFileStream::prepareFork() {
    ScopedCriticalSection lock(*m_critSect);
    writeOut();
}

void QelLogFileStream::continueInChild() {
    // Parent and child must never share one file's byte count, nor write into one file.
    m_currentFile.forgetInChild();
    if (m_file != nullptr) {
        m_file->detachInChild();
        m_newFileNeeded = true;
    }
}

int QelLogFileStream::openLog() {
    WriterLock lock(*this);
    if (m_isOpen) {
        return 0;
    }
    if (QelLog::exiting()) {
        return -1;  // refused as after exit (log.h): the writers stay closed
    }
    m_retryPauseUs = 0;
    m_nextRetryUs = 0;
    if (openFile() != 0) {
        return failWith(kErrorFileOpen);
    }
    lock.signal().connect_while_locked(this, &QelLogFileStream::writeFormatLog);
    m_isOpen = true;
    return 0;
}

void QelLogFileStream::closeLog() {
    WriterLock lock(*this);
    if (!m_isOpen) {
        return;
    }
    writeOut();
    closeFile();
    lock.signal().disconnect_while_locked(this);
    m_isOpen = false;
}

int QelLogFileStream::startIn(const char* folder) {
    closeFile();
    m_fileFolder = folder;
    m_retryPauseUs = 0;
    m_nextRetryUs = 0;
    return openFile();
}

// The records logged so far go into the old file, all later ones into the new one: other
// threads wait for the signal lock meanwhile. Like switching the writer off and on again,
// the move puts the writer last in the dispatch order.
int QelLogFileStream::moveToFolder(const char* folder) {
    WriterLock lock(*this);
    if (QelLog::exiting()) {
        return -1;  // refused as after exit (log.h): the writers stay closed
    }
    writeOut();
    int result = 0;
    if (startIn(folder) != 0) {
        result = failWith(kErrorFileOpen);
        if (startIn(kWorkingFolder) != 0) {
            closeFile();
            if (m_isOpen) {
                lock.signal().disconnect_while_locked(this);
                m_isOpen = false;
            }
            return result;
        }
    }
    if (m_isOpen) {
        lock.signal().disconnect_while_locked(this);
    }
    lock.signal().connect_while_locked(this, &QelLogFileStream::writeFormatLog);
    m_isOpen = true;
    return result;
}

void QelLogFileStream::setFileFolder(const char* folder) {
    if (folder == nullptr) {
        return;
    }
    WriterLock lock(*this);
    m_fileFolder = folder;
}

void QelLogFileStream::setMaxFileSize(uint32_t maxSize) {
    WriterLock lock(*this);
    writeOut();
    m_maxFileSize = maxSize;
    if (m_file != nullptr) {
        m_file->setMaxFileSize(maxSize);
    }
}

}  // namespace qel
