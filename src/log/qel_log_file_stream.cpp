#include "log/qel_log_file_stream.h"

#include <sys/stat.h>

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
const char kDefaultFolder[] = "./";

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
      m_fileFolder(kDefaultFolder),
      m_maxFileSize(kDefaultMaxFileSize),
      m_newFileNeeded(false),
      m_retryPauseUs(0),
      m_nextRetryUs(0) {
    m_line.reserve(kLineCapacity);
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
    QelLog::createLogDirectory(m_fileFolder);  // a failure shows when the file is opened
    // The look for a free name and the creation are two steps: another process logging into
    // the same folder, or someone planting a file, may take the name in between. The
    // exclusive creation notices, and the writer goes on to the next free name.
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
        m_fileName = freeFileName();
        if (m_fileName.empty()) {
            return -1;
        }
        if (m_file->createNewFile(m_fileName.c_str()) == 0) {
            m_file->setMaxFileSize(m_maxFileSize);
            m_currentFile.watch(m_file->descriptor(), m_fileName);
            return 0;
        }
        if (errno != EEXIST) {
            return -1;
        }
        sleepMs(1);
    }
    return -1;
}

void QelLogFileStream::closeFile() {
    if (m_file == nullptr) {
        return;
    }
    if (m_file->open()) {
        m_file->closeFile();
    }
    m_currentFile.stop();
    m_fileFolder = kDefaultFolder;
    delete m_file;
    m_file = nullptr;
}

bool QelLogFileStream::reopen() {
    const std::string folder = m_fileFolder;
    closeFile();
    m_fileFolder = folder;
    for (int attempt = 0; attempt < kReopenAttempts; ++attempt) {
        if (QelLog::createLogDirectory(m_fileFolder) == 0 && openFile() == 0) {
            m_retryPauseUs = 0;
            return true;
        }
        if (errno != ENOENT) {
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
    if (m_file == nullptr || !m_file->open()) {
        // A reopen failed (the folder removed while it was made, descriptors used up): the
        // writer stays on and tries again once the pause has passed.
        if (timeMicros() < m_nextRetryUs || !reopen()) {
            return;
        }
    }
    if (m_newFileNeeded || m_currentFile.replaced()) {
        if (!reopen()) {
            return;
        }
    }
    formatLog(msg, m_line);
    const char* rest = m_line.data();
    int length = static_cast<int>(m_line.size());
    int written = m_file->write(rest, length);
    // A line that does not fit fills the current file to its limit and goes on in new
    // files. A fresh file that takes nothing ends the record: the rest is dropped instead of
    // opening new files without end. A write that failed is no sign of a full file: the
    // rest of the record is dropped and handleWriteError() decides about the next file.
    while (written >= 0 && written < length) {
        if (m_file->takeWriteError()) {
            handleWriteError();
            return;
        }
        rest += written;
        length -= written;
        if (!reopen()) {
            return;
        }
        written = m_file->write(rest, length);
        if (written == 0) {
            return;
        }
    }
    // Warnings and errors are the records people need after a crash: they reach the system
    // before the call returns. Lower levels wait in the stream's buffer, unless the console
    // writer is on: it flushes all streams after each record, but it runs before this
    // writer when it was switched on first, and the record just written would wait for the
    // next one. The dispatch holds the signal lock, which guards the console's open flag.
    if (static_cast<int>(msg.level) >= QEL_LOG_WARNING || consoleWriterOn()) {
        m_file->flush();
    }
    if (m_file->takeWriteError()) {
        handleWriteError();
    }
}

// Buffered streams report a failed write only when their buffer is pushed out, some
// records later. A file that holds bytes is left for a new one: a file size limit of the
// process, for one, lets a new file take as many bytes again. A file that took none (a full
// disk, a size limit of 0) is kept: new files would take nothing either, and logging goes on
// in this one once the cause is gone, without a file per failed record.
void QelLogFileStream::handleWriteError() {
    if (m_file != nullptr && m_file->sizeOnDisk() > 0) {
        m_newFileNeeded = true;
    }
}

void QelLogFileStream::prepareFork() {
    ScopedCriticalSection lock(*m_critSect);
    if (m_file != nullptr && m_file->open()) {
        m_file->flush();
    }
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
    closeFile();
    lock.signal().disconnect_while_locked(this);
    m_isOpen = false;
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
    m_maxFileSize = maxSize;
    if (m_file != nullptr) {
        m_file->setMaxFileSize(maxSize);
    }
}

}  // namespace qel
