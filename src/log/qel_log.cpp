#include "log/qel_log.h"

namespace qel {

namespace {

// Outlives every static object: set when the manager is destroyed at exit, so that calls
// from later exit-time code find it gone instead of using freed writers.
std::atomic<bool> g_shutDown{false};
std::atomic<int> g_levelAtShutDown{QEL_LOG_INFO};

}  // namespace

QelLog& QelLog::getInstance() {
    static QelLog qelLog;
    return qelLog;
}

bool QelLog::isShutDown() {
    return g_shutDown.load(std::memory_order_acquire);
}

QelLogLevel QelLog::levelAtShutDown() {
    return static_cast<QelLogLevel>(g_levelAtShutDown.load(std::memory_order_relaxed));
}

QelLog::QelLog() : m_globalLevel(QEL_LOG_INFO) {
    sigslot::lock_block<sigslot::multi_threaded_local> signalLock(&m_logSignal);
    m_logSignal.connect_while_locked(&m_consoleStream, &QelLogConsoleStream::writeFormatLog);
    m_consoleStream.m_isOpen = true;  // the console writer is on from the start
}

QelLog::~QelLog() {
    g_levelAtShutDown.store(m_globalLevel.load(std::memory_order_relaxed));
    g_shutDown.store(true, std::memory_order_release);
    m_consoleStream.closeLog();
    m_fileStream.closeLog();
}

int QelLog::writeFormatLog(const LogMessage& msg) {
    if (static_cast<int>(msg.level) < m_globalLevel.load(std::memory_order_relaxed)) {
        return 0;
    }
    m_logSignal.emit(msg);
    return 0;
}

int QelLog::setModuleLevel(QelModule, QelLogLevel) {
    return 0;
}

}  // namespace qel
