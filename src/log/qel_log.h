#ifndef QEL_LOG_QEL_LOG_H_
#define QEL_LOG_QEL_LOG_H_

#include <atomic>
#include <string>

#include <qel/export.h>
#include <qel/log.h>

#include "log/qel_log_console_stream.h"
#include "log/qel_log_file_stream.h"
#include "log/qel_log_stream_base.h"
#include "log/writer_lock.h"

namespace qel {

// The process-wide log manager: holds the threshold and the two writers, and dispatches
// every record that passes the threshold to the writers that are switched on, in the order
// in which they were switched on. Exactly one instance exists, created by the first call of
// getInstance() in the library's own static storage, and never destroyed: at process exit,
// and when the library is unloaded, its writers are closed (the log file and every descriptor
// with them) and the entry points stop entering it. What the writers hold on the heap is
// then freed unless a configuration call is still inside (ConfigurationCall), so that loading
// and unloading the library leaks nothing; a record that reached the manager a moment before,
// on any thread, finds it with no writer connected.
class QEL_EXPORT QelLog {
public:
    // The one manager, created on the first call (concurrent first callers wait for it).
    static QelLog& getInstance();
    // The guard of every entry point: the manager, created on first use, or null where it
    // must not be entered: once process exit has begun, and on a thread that is inside the
    // manager already (see SignalLockMark). A dropped record costs this and a comparison.
    static QelLog* reachable() {
        // Sequentially consistent, as a plain load is on this machine: a configuration call
        // counts itself in (ConfigurationCall) before this look, exit looks at the count after
        // it has cleared the pointer, and one of the two must see the other.
        QelLog* log = s_live.load(std::memory_order_seq_cst);
        if (log == nullptr) {
            log = firstUse();
        }
        return log != nullptr && !SignalLockMark::held() ? log : nullptr;
    }
    // True once process exit has begun: the writers are closed and stay closed.
    QEL_NO_EXPORT static bool exiting();
    // The manager from the end of its construction until process exit begins, else null.
    static QelLog* live() { return s_live.load(std::memory_order_acquire); }

    // Drops `msg` when its level is below its threshold (its module's, else the global one),
    // else hands it to every connected writer under the signal lock, so records never
    // interleave. Returns 0 in every case. Must not be called from inside a writer.
    int writeFormatLog(const LogMessage& msg);
    // writeFormatLog for a record that has passed its threshold already.
    QEL_NO_EXPORT int dispatch(const LogMessage& msg);
    // Accepts a level for a module and stores nothing. Returns 0.
    int setModuleLevel(QelModule module, QelLogLevel level);

    // Creates `path` with every missing parent, mode 0755. 0 when every level exists as a
    // directory afterwards; -1 with the error code 0x80300002 after a failure ("mkdir error"
    // and the system's reason go to standard error when a directory could not be made) or
    // when a level to create is longer than 254 characters.
    static int createLogDirectory(const std::string& path);

    // The global threshold: records of a module without a threshold of its own are dropped
    // below it. Read and written without a lock.
    QelLogLevel globalLevel() const {
        return static_cast<QelLogLevel>(m_globalLevel.load(std::memory_order_relaxed));
    }
    void setGlobalLevel(QelLogLevel level) {
        m_globalLevel.store(static_cast<int>(level), std::memory_order_relaxed);
    }

    // The fork handlers: hold the signal lock across a fork, so that no other thread is
    // inside a writer at that moment, and release it in the parent and in the child.
    QEL_NO_EXPORT void lockForFork();
    QEL_NO_EXPORT void unlockAfterFork(bool inChild);
    // At process exit: closes the console writer, then the file writer, for good.
    QEL_NO_EXPORT void closeAtExit();

    // The number of configuration calls inside the manager (ConfigurationCall).
    QEL_NO_EXPORT static std::atomic<int> s_configurationCalls;

    LogSignal& logSignal() { return m_logSignal; }
    QelLogFileStream& fileStream() { return m_fileStream; }
    QelLogConsoleStream& consoleStream() { return m_consoleStream; }

    QelLog(const QelLog&) = delete;
    QelLog& operator=(const QelLog&) = delete;

private:
    QelLog();
    ~QelLog();  // never runs: see the class comment
    // The slow part of reachable(): creates the manager unless process exit has begun.
    QEL_NO_EXPORT static QelLog* firstUse();

    // Declared first so that it outlives the writers connected to it.
    LogSignal m_logSignal;
    QelLogFileStream m_fileStream;
    QelLogConsoleStream m_consoleStream;
    std::atomic<int> m_globalLevel;

    QEL_NO_EXPORT static std::atomic<QelLog*> s_live;
};

// Counts a configuration call in for its lifetime. At exit the writers' memory is freed only
// when no configuration call is inside: a call counts itself in before it looks whether exit
// has begun, and exit marks itself before it looks at the count, so one of the two always
// sees the other. Records need no count: they reach the writers only through the signal,
// which holds no writer once exit has closed them.
class ConfigurationCall {
public:
    ConfigurationCall() { QelLog::s_configurationCalls.fetch_add(1, std::memory_order_seq_cst); }
    ~ConfigurationCall() { QelLog::s_configurationCalls.fetch_sub(1, std::memory_order_seq_cst); }
    ConfigurationCall(const ConfigurationCall&) = delete;
    ConfigurationCall& operator=(const ConfigurationCall&) = delete;
};

}  // namespace qel

#endif  // QEL_LOG_QEL_LOG_H_
