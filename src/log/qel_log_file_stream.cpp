#include "log/qel_log_file_stream.h"

#include "error/error_codes.h"
#include "log/file_writer.h"
#include "log/qel_log.h"
#include "log/writer_lock.h"
#include "platform/scoped_critical_section.h"

namespace qel {

namespace {

// The writer's state behind the class's opaque pointer.
FileWriter& writer(void* state) {
    return *static_cast<FileWriter*>(state);
}

}  // namespace

QelLogFileStream::QelLogFileStream() : m_state(new FileWriter(&QelLogFileStream::flushDue, this)) {
    writer(m_state).line().reserve(kLineCapacity);
}

QelLogFileStream::~QelLogFileStream() {
    delete static_cast<FileWriter*>(m_state);
}

std::string QelLogFileStream::formatFileName(const std::string& folder) {
    std::string path(folder.size() + 64, '\0');
    path.resize(FileWriter::fileName(folder.c_str(), &path[0], path.size()));
    return path;
}

int QelLogFileStream::openFile() {
    return writer(m_state).openFile();
}

void QelLogFileStream::closeFile() {
    writer(m_state).closeFile();
}

void QelLogFileStream::writeFormatLog(const LogMessage& msg) {
    ScopedCriticalSection lock(*m_critSect);
    formatLog(msg, writer(m_state).line());
    writer(m_state).take(static_cast<int>(msg.level) >= QEL_LOG_WARNING, msg.timeText);
}

int QelLogFileStream::openLog() {
    WriterLock lock(*this);
    if (m_isOpen) {
        return 0;
    }
    if (QelLog::exiting()) {
        return -1;  // refused as after exit (log.h): the writers stay closed
    }
    if (openFile() != 0) {
        return failWith(kErrorFileOpen);
    }
    writer(m_state).startFlusher();
    lock.signal().connect_while_locked(this, &QelLogFileStream::writeFormatLog);
    m_isOpen = true;
    return 0;
}

void QelLogFileStream::closeLog() {
    {
        WriterLock lock(*this);
        if (m_isOpen) {
            writer(m_state).writeOut();
            writer(m_state).closeAll();
            lock.signal().disconnect_while_locked(this);
            m_isOpen = false;
        }
    }
    // Disconnected, the writer gets no more records that could start the thread again.
    writer(m_state).stopFlusher();
}

int QelLogFileStream::startIn(const char* folder) {
    closeFile();
    writer(m_state).setFolder(folder);
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
    writer(m_state).writeOut();
    int result = 0;
    if (startIn(folder) != 0) {
        result = failWith(kErrorFileOpen);
        if (startIn(kWorkingFolder) != 0) {
            writer(m_state).closeAll();
            if (m_isOpen) {
                lock.signal().disconnect_while_locked(this);
                m_isOpen = false;
            }
            return result;
        }
    }
    writer(m_state).startFlusher();
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
    writer(m_state).setFolder(folder);
}

void QelLogFileStream::setMaxFileSize(uint32_t maxSize) {
    WriterLock lock(*this);
    writer(m_state).writeOut();
    writer(m_state).setMaxFileSize(maxSize);
}

void QelLogFileStream::setMaxDelay(unsigned int maxDelayMs) {
    {
        WriterLock lock(*this);
        writer(m_state).setMaxDelay(maxDelayMs);
        if (maxDelayMs != 0) {
            if (m_isOpen) {
                writer(m_state).startFlusher();
            }
            return;
        }
    }
    writer(m_state).stopFlusher();
}

void QelLogFileStream::useKernelReports(bool enabled) {
    WriterLock lock(*this);
    writer(m_state).useKernelReports(enabled);
}

void QelLogFileStream::flushDue(void* stream) {
    auto* self = static_cast<QelLogFileStream*>(stream);
    WriterLock lock(*self);
    writer(self->m_state).writeOut();
}

void QelLogFileStream::prepareFork() {
    ScopedCriticalSection lock(*m_critSect);
    writer(m_state).writeOut();
}

void QelLogFileStream::continueInChild() {
    writer(m_state).continueInChild();
}

void QelLogFileStream::release() {
    delete static_cast<FileWriter*>(m_state);
    m_state = nullptr;
    delete m_critSect;
    m_critSect = nullptr;
}

}  // namespace qel
