#include "log/qel_log_file_stream.h"

#include <limits.h>

#include "error/error_codes.h"
#include "log/file_writer.h"
#include "log/qel_log.h"
#include "log/writer_lock.h"
#include "platform/scoped_critical_section.h"

namespace qel {

QelLogFileStream::QelLogFileStream() : m_writer(new FileWriter(&QelLogFileStream::flushDue, this)) {
    m_writer->line().reserve(kLineCapacity);
}

QelLogFileStream::~QelLogFileStream() {
    delete m_writer;
}

std::string QelLogFileStream::formatFileName(const std::string& folder) {
    std::string path(folder.size() + 64, '\0');
    path.resize(FileWriter::fileName(folder.c_str(), &path[0], path.size()));
    return path;
}

int QelLogFileStream::openFile() {
    return m_writer->openFile();
}

void QelLogFileStream::closeFile() {
    m_writer->closeFile();
}

void QelLogFileStream::writeFormatLog(const LogMessage& msg) {
    ScopedCriticalSection lock(*m_critSect);
    formatLog(msg, m_writer->line());
    m_writer->take(static_cast<int>(msg.level) >= QEL_LOG_WARNING);
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
    m_writer->startFlusher();
    lock.signal().connect_while_locked(this, &QelLogFileStream::writeFormatLog);
    m_isOpen = true;
    return 0;
}

void QelLogFileStream::closeLog() {
    {
        WriterLock lock(*this);
        if (m_isOpen) {
            m_writer->writeOut();
            m_writer->closeAll();
            lock.signal().disconnect_while_locked(this);
            m_isOpen = false;
        }
    }
    // Disconnected, the writer gets no more records that could start the thread again.
    m_writer->stopFlusher();
}

int QelLogFileStream::startIn(const char* folder) {
    closeFile();
    m_writer->setFolder(folder);
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
    m_writer->writeOut();
    int result = 0;
    if (startIn(folder) != 0) {
        result = failWith(kErrorFileOpen);
        if (startIn(kWorkingFolder) != 0) {
            m_writer->closeAll();
            if (m_isOpen) {
                lock.signal().disconnect_while_locked(this);
                m_isOpen = false;
            }
            return result;
        }
    }
    m_writer->startFlusher();
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
    m_writer->setFolder(folder);
}

void QelLogFileStream::setMaxFileSize(uint32_t maxSize) {
    WriterLock lock(*this);
    m_writer->writeOut();
    m_writer->setMaxFileSize(maxSize);
}

void QelLogFileStream::setMaxDelay(unsigned int maxDelayMs) {
    {
        WriterLock lock(*this);
        m_writer->setMaxDelay(maxDelayMs);
        if (maxDelayMs != 0) {
            if (m_isOpen) {
                m_writer->startFlusher();
            }
            return;
        }
    }
    m_writer->stopFlusher();
}

void QelLogFileStream::useKernelReports(bool enabled) {
    WriterLock lock(*this);
    m_writer->useKernelReports(enabled);
}

void QelLogFileStream::flushDue(void* stream) {
    auto* self = static_cast<QelLogFileStream*>(stream);
    WriterLock lock(*self);
    self->m_writer->writeOut();
}

void QelLogFileStream::prepareFork() {
    ScopedCriticalSection lock(*m_critSect);
    m_writer->writeOut();
}

void QelLogFileStream::continueInChild() {
    m_writer->continueInChild();
}

void QelLogFileStream::release() {
    delete m_writer;
    m_writer = nullptr;
    delete m_critSect;
    m_critSect = nullptr;
}

}  // namespace qel
