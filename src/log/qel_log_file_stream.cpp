#include "log/qel_log_file_stream.h"

#include <unistd.h>

#include <algorithm>

#include <qel/timeutils.h>

#include "error/error_codes.h"
#include "log/qel_log.h"
#include "platform/scoped_critical_section.h"

namespace qel {

namespace {

constexpr uint32_t kDefaultMaxFileSize = 10485760;
const char kDefaultFolder[] = "./";

// How long a new file's name may be sought. Names have a resolution of one millisecond, so
// a name already taken is free again after the next millisecond; only a clock set back
// onto old files could keep it taken, and then the open fails rather than overwrite.
constexpr int kNameAttempts = 200;

bool pathExists(const char* path) {
    return access(path, F_OK) == 0;
}

}  // namespace

QelLogFileStream::QelLogFileStream()
    : m_file(nullptr), m_fileFolder(kDefaultFolder), m_maxFileSize(kDefaultMaxFileSize) {
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

// Opening a file for writing empties it, and names have a resolution of one millisecond:
// a small limit can make one record switch files several times within a millisecond. So a
// name that exists already is never opened; the writer waits for the next millisecond,
// which keeps the name format and the creation order of the names intact.
std::string QelLogFileStream::freeFileName() const {
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
        std::string name = formatFileName(m_fileFolder);
        if (!pathExists(name.c_str())) {
            return name;
        }
        sleepMs(1);
    }
    return std::string();
}

int QelLogFileStream::openFile() {
    delete m_file;
    m_file = FileWrapper::create();
    QelLog::createLogDirectory(m_fileFolder);  // a failure shows when the file is opened
    m_fileName = freeFileName();
    if (m_fileName.empty()) {
        return -1;
    }
    const int result = m_file->openFile(m_fileName.c_str(), false, false, false);
    if (result != 0) {
        return result;
    }
    m_file->setMaxFileSize(m_maxFileSize);
    return 0;
}

void QelLogFileStream::closeFile() {
    if (m_file == nullptr) {
        return;
    }
    if (m_file->open()) {
        m_file->closeFile();
    }
    m_fileFolder = kDefaultFolder;
    delete m_file;
    m_file = nullptr;
}

bool QelLogFileStream::reopen() {
    const std::string folder = m_fileFolder;
    closeFile();
    m_fileFolder = folder;
    return QelLog::createLogDirectory(m_fileFolder) == 0 && openFile() == 0;
}

void QelLogFileStream::writeFormatLog(const LogMessage& msg) {
    ScopedCriticalSection lock(*m_critSect);
    if (m_file == nullptr || !m_file->open()) {
        return;
    }
    const char* current = m_file->getFileName();
    if (current == nullptr || current[0] == '\0' || !pathExists(current)) {
        if (!reopen()) {
            return;
        }
    }
    formatLog(msg, m_line);
    const char* rest = m_line.data();
    int length = static_cast<int>(m_line.size());
    int written = m_file->write(rest, length);
    // A line that does not fit fills the current file to its limit and goes on in new
    // files. A fresh file that takes nothing (a full disk, a file size limit) ends the
    // record: the rest is dropped instead of opening new files without end.
    while (written >= 0 && written < length) {
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
}

int QelLogFileStream::openLog() {
    LogSignal& signal = QelLog::getInstance().logSignal();
    sigslot::lock_block<sigslot::multi_threaded_local> signalLock(&signal);
    ScopedCriticalSection lock(*m_critSect);
    if (m_isOpen) {
        return 0;
    }
    if (openFile() != 0) {
        return failWith(kErrorFileOpen);
    }
    signal.connect_while_locked(this, &QelLogFileStream::writeFormatLog);
    m_isOpen = true;
    return 0;
}

void QelLogFileStream::closeLog() {
    LogSignal& signal = QelLog::getInstance().logSignal();
    sigslot::lock_block<sigslot::multi_threaded_local> signalLock(&signal);
    ScopedCriticalSection lock(*m_critSect);
    if (!m_isOpen) {
        return;
    }
    closeFile();
    signal.disconnect_while_locked(this);
    m_isOpen = false;
}

void QelLogFileStream::setFileFolder(const char* folder) {
    if (folder == nullptr) {
        return;
    }
    ScopedCriticalSection lock(*m_critSect);
    m_fileFolder = folder;
}

void QelLogFileStream::setMaxFileSize(uint32_t maxSize) {
    ScopedCriticalSection lock(*m_critSect);
    m_maxFileSize = maxSize;
    if (m_file != nullptr) {
        m_file->setMaxFileSize(maxSize);
    }
}

}  // namespace qel
