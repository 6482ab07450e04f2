#ifndef QEL_LOG_WRITER_LOCK_H_
#define QEL_LOG_WRITER_LOCK_H_

#include "log/qel_log_stream_base.h"
#include "platform/scoped_critical_section.h"

namespace qel {

// The lock order of the logging core, written here once and referred to elsewhere:
//   1. the manager's signal lock: held for a whole dispatch, for every change of a writer's
//      connection, open flag, folder or size limit, and by the fork handlers across a fork;
//   2. a writer's critical section: taken by the writer inside a dispatch;
//   3. the file object's critical section, inside the file writer's.
// Whoever needs more than one takes them in this order; the first two together through
// WriterLock. With the signal lock held, no other thread is inside a writer.
//
// The signal lock is not recursive. A thread marks itself (SignalLockMark) from just before it
// takes the lock until just after it has released it; the manager refuses to be entered again
// on a marked thread (a signal handler that interrupted a record, a fork handler while the
// manager holds its lock across the fork) instead of waiting for itself for ever.
class SignalLockMark {
public:
    SignalLockMark() : m_outer(t_held) { t_held = true; }
    ~SignalLockMark() { t_held = m_outer; }
    SignalLockMark(const SignalLockMark&) = delete;
    SignalLockMark& operator=(const SignalLockMark&) = delete;

    // True while the calling thread holds, or is about to take, the signal lock.
    static bool held() { return t_held; }
    // For the fork handlers, whose taking and releasing are in different functions.
    static void set(bool held) { t_held = held; }

private:
    bool m_outer;
    // Initial-exec: reading it needs no allocation, so a signal handler may read it.
    static thread_local bool t_held __attribute__((tls_model("initial-exec")));
};

// Holds the manager's signal lock and then a writer's critical section, for the scope of the
// guard: every path that switches a writer on or off, moves it or changes its size limit.
class WriterLock {
public:
    explicit WriterLock(QelLogStreamBase& writer);
    WriterLock(const WriterLock&) = delete;
    WriterLock& operator=(const WriterLock&) = delete;

    // The manager's signal, held: connect and disconnect with its *_while_locked calls.
    LogSignal& signal() { return m_signal; }

private:
    SignalLockMark m_mark;
    LogSignal& m_signal;
    sigslot::lock_block<sigslot::multi_threaded_local> m_signalLock;
    ScopedCriticalSection m_writerLock;
};

}  // namespace qel

#endif  // QEL_LOG_WRITER_LOCK_H_
