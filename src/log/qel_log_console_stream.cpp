#include "log/qel_log_console_stream.h"

#include <cstdio>

#include "log/qel_log.h"
#include "log/writer_lock.h"
#include "platform/scoped_critical_section.h"

namespace qel {

QelLogConsoleStream::QelLogConsoleStream() {
    m_line.reserve(kLineCapacity);
}

QelLogConsoleStream::~QelLogConsoleStream() = default;

void QelLogConsoleStream::writeFormatLog(const LogMessage& msg) {
    ScopedCriticalSection lock(*m_critSect);
    formatLog(msg, m_line);
    // The line holds no zero byte, so writing its length prints what "%s" would, without
    // measuring it again.
    fwrite(m_line.data(), 1, m_line.size(), stdout);
    fflush(nullptr);
}

int QelLogConsoleStream::openLog() {
    WriterLock lock(*this);
    if (!m_isOpen) {
        lock.signal().connect_while_locked(this, &QelLogConsoleStream::writeFormatLog);
        m_isOpen = true;
    }
    return 0;
}

void QelLogConsoleStream::closeLog() {
    WriterLock lock(*this);
    if (m_isOpen) {
        lock.signal().disconnect_while_locked(this);
        m_isOpen = false;
    }
}

}  // namespace qel
