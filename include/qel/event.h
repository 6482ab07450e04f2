#ifndef QEL_EVENT_H_
#define QEL_EVENT_H_

#include <qel/export.h>

namespace qel {

// An auto-reset event. Each set() releases one wait(); a set() with nobody waiting is kept
// until a wait() or reset() consumes it, and several set() calls before a wait count as one.
// Any thread may call any operation, on one event at the same time.
class QEL_EXPORT EventWrapper {
public:
    // Returns a new event, not signalled, owned by the caller (delete it through this
    // interface); never null.
    static EventWrapper* create();

    virtual ~EventWrapper();
    // Clears the signalled state. Returns 0, or -1 when the event's lock cannot be taken.
    virtual int reset() = 0;
    // Signals the event and wakes the waiters, of which one consumes it. Returns 0, or -1
    // when the lock cannot be taken or the waiters cannot be woken (the event stays set).
    virtual int set() = 0;
    // Waits until the event is signalled and consumes it. `timeoutMs` -1 waits without
    // limit, 0 and any other negative value only look. Returns 0 when consumed, -100 when
    // the time ran out, -1 on any other failure. The limit runs on the wall clock, so a
    // change of the system time shortens or lengthens a pending wait.
    virtual int wait(int timeoutMs) = 0;
};

}  // namespace qel

#endif  // QEL_EVENT_H_
