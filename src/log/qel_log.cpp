#include "log/qel_log.h"

#include <pthread.h>

#include <cstdlib>
#include <new>

extern "C" {
extern void* __dso_handle;
int __cxa_atexit(void (*handler)(void*), void* argument, void* library);
}

#include "log/level_spec.h"
#include "log/module_thresholds.h"

namespace qel {

namespace {

std::atomic<bool> g_exiting{false};

// The manager whose lock the forking thread holds across the fork, else null. A thread that
// forks from inside the manager (a fork handler or a signal handler of its own) already holds
// the lock, and the handlers then leave it alone. Kept here rather than looked up again after
// the fork, since exit may begin meanwhile on another thread and still needs the lock.
thread_local QelLog* t_lockedForFork __attribute__((tls_model("initial-exec"))) = nullptr;

// A child made by fork gets a copy of the memory but only the thread that forked. A lock
// that another thread held at that moment would stay locked in the child for good, so the
// signal lock is taken before the fork and released on both sides afterwards.
void prepareFork() {
    QelLog* log = QelLog::live();
    if (log != nullptr && !SignalLockMark::held()) {
        log->lockForFork();
        t_lockedForFork = log;
    }
}

void afterFork(bool inChild) {
    if (QelLog* log = t_lockedForFork) {
        t_lockedForFork = nullptr;
        log->unlockAfterFork(inChild);
    }
}

void afterForkInParent() {
    afterFork(false);
}

void afterForkInChild() {
    afterFork(true);
}

void closeAtProcessExit() {
    if (QelLog* log = QelLog::live()) {
        log->closeAtExit();
    }
}

void closeAtExitOrUnload(void*) {
    closeAtProcessExit();
}

// Should the exit handler not have run when the library is unloaded (a tool that keeps exit
// handlers for the end of the process), this closes the writers before the library's code
// goes, their thread and descriptors with it.
__attribute__((destructor)) void closeAtUnload() {
    closeAtProcessExit();
}

}  // namespace

std::atomic<QelLog*> QelLog::s_live{nullptr};
std::atomic<int> QelLog::s_configurationCalls{0};

// The manager lives in the library's static storage, so that nothing of it stays behind when
// the library is unloaded; its destructor never runs (see the class comment).
QelLog& QelLog::getInstance() {
    alignas(QelLog) static unsigned char storage[sizeof(QelLog)];
    static QelLog* const instance = new (storage) QelLog();
    return *instance;
}

QelLog* QelLog::firstUse() {
    return g_exiting.load(std::memory_order_acquire) ? nullptr : &getInstance();
}

bool QelLog::exiting() {
    return g_exiting.load(std::memory_order_acquire);
}

QelLog::QelLog() : m_globalLevel(QEL_LOG_INFO) {
    sigslot::lock_block<sigslot::multi_threaded_local> signalLock(&m_logSignal);
    m_logSignal.connect_while_locked(&m_consoleStream, &QelLogConsoleStream::writeFormatLog);
    m_consoleStream.m_isOpen = true;  // the console writer is on from the start
    LevelSpec::applyEnvironment(*this);
    // Registered once per process; the handlers find the manager through live(). The exit
    // handler runs when the process exits or the library is unloaded, where a destructor of
    // the manager would have run: it is registered for this library (__dso_handle), as atexit()
    // in a library does, but without an atexit() that a tool may have put in its place.
    static const int handlersInstalled =
        pthread_atfork(&prepareFork, &afterForkInParent, &afterForkInChild) +
        __cxa_atexit(&closeAtExitOrUnload, nullptr, &__dso_handle);
    (void)handlersInstalled;
    s_live.store(this, std::memory_order_release);
}

QelLog::~QelLog() = default;

// The fork handlers take only the signal lock: by the lock order (writer_lock.h) no other
// thread is then inside a writer. The writers' own locks are recursive and remember their
// owner's kernel thread id, which the child's thread no longer has: they are left free across
// the fork rather than held, since the child could not release them.
void QelLog::lockForFork() {
    SignalLockMark::set(true);
    m_logSignal.lock();
    m_fileStream.prepareFork();
}

void QelLog::unlockAfterFork(bool inChild) {
    if (inChild) {
        m_fileStream.continueInChild();
    }
    m_logSignal.unlock();
    SignalLockMark::set(false);
}

void QelLog::closeAtExit() {
    // The flag goes up before the manager stops being live, so a late caller that finds it
    // gone also finds the flag and never creates it again.
    g_exiting.store(true, std::memory_order_seq_cst);
    s_live.store(nullptr, std::memory_order_seq_cst);
    if (SignalLockMark::held()) {
        return;  // exit called from inside the manager: its lock cannot be taken again
    }
    m_consoleStream.closeLog();
    m_fileStream.closeLog();
    if (s_configurationCalls.load(std::memory_order_seq_cst) == 0) {
        sigslot::lock_block<sigslot::multi_threaded_local> signalLock(&m_logSignal);
        m_consoleStream.release();
        m_fileStream.release();
    }
}

int QelLog::writeFormatLog(const LogMessage& msg) {
    const int threshold =
        ModuleThresholds::thresholdFor(msg.module, m_globalLevel.load(std::memory_order_relaxed));
    if (static_cast<int>(msg.level) < threshold) {
        return 0;
    }
    return dispatch(msg);
}

int QelLog::dispatch(const LogMessage& msg) {
    SignalLockMark mark;
    m_logSignal.emit(msg);
    return 0;
}

int QelLog::setModuleLevel(QelModule, QelLogLevel) {
    return 0;
}

}  // namespace qel
