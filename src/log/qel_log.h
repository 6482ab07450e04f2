#ifndef QEL_LOG_QEL_LOG_H_
#define QEL_LOG_QEL_LOG_H_

#include <atomic>
#include <string>

#include <qel/export.h>
#include <qel/log.h>

#include "log/qel_log_console_stream.h"
#include "log/qel_log_file_stream.h"
#include "log/qel_log_stream_base.h"

namespace qel {

// The process-wide log manager: holds the threshold and the two writers, and dispatches
// every record that passes the threshold to the writers that are switched on, in the order
// in which they were switched on. Exactly one instance exists, created by the first call of
// getInstance() and destroyed at process exit.
class QEL_EXPORT QelLog {
public:
    // The one manager, created on the first call (concurrent first callers wait for it).
    // Do not call after isShutDown() turned true.
    static QelLog& getInstance();
    // True once the manager has been destroyed at process exit; entry points reached after
    // that return without touching it.
    QEL_NO_EXPORT static bool isShutDown();
    // The threshold as it was when the manager was destroyed, for calls made after that.
    QEL_NO_EXPORT static QelLogLevel levelAtShutDown();
    // The manager from the end of its construction to the start of its destruction, else
    // null. One load, for the paths that run on every record (a dropped record costs this
    // and a comparison) and for the fork handlers.
    static QelLog* live() { return s_live.load(std::memory_order_acquire); }

    // Drops `msg` when its level is below the threshold, else hands it to every connected
    // writer under the signal lock, so records never interleave. Returns 0 in every case.
    // Must not be called from inside a writer.
    int writeFormatLog(const LogMessage& msg);
    // Accepts a level for a module and stores nothing. Returns 0.
    int setModuleLevel(QelModule module, QelLogLevel level);

    // Creates `path` with every missing parent, mode 0755. 0 when every level exists as a
    // directory afterwards; -1 with the error code 0x80300002 after a failure ("mkdir error"
    // and the system's reason go to standard error when a directory could not be made) or
    // when a level to create is longer than 254 characters.
    static int createLogDirectory(const std::string& path);

    // The threshold: records below it are dropped. Read and written without a lock.
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

    LogSignal& logSignal() { return m_logSignal; }
    QelLogFileStream& fileStream() { return m_fileStream; }
    QelLogConsoleStream& consoleStream() { return m_consoleStream; }

    QelLog(const QelLog&) = delete;
    QelLog& operator=(const QelLog&) = delete;

private:
    QelLog();
    ~QelLog();

    // Declared first so that it outlives the writers connected to it.
    LogSignal m_logSignal;
    QelLogFileStream m_fileStream;
    QelLogConsoleStream m_consoleStream;
    std::atomic<int> m_globalLevel;

    QEL_NO_EXPORT static std::atomic<QelLog*> s_live;
};

}  // namespace qel

#endif  // QEL_LOG_QEL_LOG_H_
