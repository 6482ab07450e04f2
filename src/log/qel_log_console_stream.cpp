#include "log/qel_log_console_stream.h"

#include <cstdio>

#include "log/qel_log.h"
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
    LogSignal& signal = QelLog::getInstance().logSignal();
    sigslot::lock_block<sigslot::multi_threaded_local> signalLock(&signal);
    ScopedCriticalSection lock(*m_critSect);
    if (!m_isOpen) {
        signal.connect_while_locked(this, &QelLogConsoleStream::writeFormatLog);
        m_isOpen = true;
    }
    return 0;
}

void QelLogConsoleStream::closeLog() {
    LogSignal& signal = QelLog::getInstance().logSignal();
    sigslot::lock_block<sigslot::multi_threaded_local> signalLock(&signal);
    ScopedCriticalSection lock(*m_critSect);
    if (m_isOpen) {
        signal.disconnect_while_locked(this);
        m_isOpen = false;
    }
}

}  // namespace qel
