#include "log/qel_log.h"

#include <pthread.h>

namespace qel {

namespace {

// Outlives every static object: set when the manager is destroyed at exit, so that calls
// from later exit-time code find it gone instead of using freed writers.
std::atomic<bool> g_shutDown{false};
std::atomic<int> g_levelAtShutDown{QEL_LOG_INFO};

// A child made by fork gets a copy of the memory but only the thread that forked. A lock
// that another thread held at that moment would stay locked in the child for good, so the
// signal lock is taken before the fork and released on both sides afterwards.
void prepareFork() {
    if (QelLog* log = QelLog::live()) {
        log->lockForFork();
    }
}

void afterForkInParent() {
    if (QelLog* log = QelLog::live()) {
        log->unlockAfterFork(false);
    }
}

void afterForkInChild() {
    if (QelLog* log = QelLog::live()) {
        log->unlockAfterFork(true);
    }
}

}  // namespace

std::atomic<QelLog*> QelLog::s_live{nullptr};

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
    // Registered once per process; the handlers find the manager through live().
    static const bool forkHandlersInstalled =
        pthread_atfork(&prepareFork, &afterForkInParent, &afterForkInChild) == 0;
    (void)forkHandlersInstalled;
    s_live.store(this, std::memory_order_release);
}

// Every holder of a writer's lock holds the signal lock as well (a dispatch, a writer's
// open and close, the size limit and the folder), so with the signal lock taken before the
// fork no other thread is inside a writer. The writers' own locks are recursive and remember
// their owner's kernel thread id, which the child's thread no longer has: they are left
// free across the fork rather than held, since the child could not release them.
void QelLog::lockForFork() {
    m_logSignal.lock();
    m_fileStream.prepareFork();
}

void QelLog::unlockAfterFork(bool inChild) {
    if (inChild) {
        m_fileStream.continueInChild();
    }
    m_logSignal.unlock();
}

QelLog::~QelLog() {
    // The flag goes up before the manager stops being live, so a late caller that finds it
    // gone also finds the flag and never reaches getInstance() again.
    g_levelAtShutDown.store(m_globalLevel.load(std::memory_order_relaxed));
    g_shutDown.store(true, std::memory_order_release);
    s_live.store(nullptr, std::memory_order_release);
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
