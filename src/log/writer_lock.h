#ifndef QEL_LOG_WRITER_LOCK_H_
#define QEL_LOG_WRITER_LOCK_H_

#include "log/qel_log_stream_base.h"
#include "platform/scoped_critical_section.h"

namespace qel {

// Holds the log manager's signal lock and then a writer's critical section, for the scope of
// the guard. A dispatch takes the two in this order (it holds the signal lock while it calls
// the writers), so every other path that needs both takes them through this guard: switching
// a writer on or off, changing its folder or its size limit. None of them can then deadlock
// against a thread that logs, and the fork handlers, which take only the signal lock, know
// that no other thread is inside a writer.
class WriterLock {
public:
    explicit WriterLock(QelLogStreamBase& writer);
    WriterLock(const WriterLock&) = delete;
    WriterLock& operator=(const WriterLock&) = delete;

    // The manager's signal, held: connect and disconnect with its *_while_locked calls.
    LogSignal& signal() { return m_signal; }

private:
    LogSignal& m_signal;
    sigslot::lock_block<sigslot::multi_threaded_local> m_signalLock;
    ScopedCriticalSection m_writerLock;
};

}  // namespace qel

#endif  // QEL_LOG_WRITER_LOCK_H_
