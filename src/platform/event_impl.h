#ifndef QEL_PLATFORM_EVENT_IMPL_H_
#define QEL_PLATFORM_EVENT_IMPL_H_

#include <pthread.h>
#include <sys/time.h>
#include <time.h>

#include <qel/event.h>

namespace qel {

// The POSIX event: a flag guarded by a normal mutex, and a condition variable on the wall
// clock that waiters sleep on.
class QEL_EXPORT EventImpl : public EventWrapper {
public:
    EventImpl();
    ~EventImpl() override;
    EventImpl(const EventImpl&) = delete;
    EventImpl& operator=(const EventImpl&) = delete;

    int reset() override;
    int set() override;
    int wait(int timeoutMs) override;

    // The absolute time `timeoutMs` (0 or more) after the wall-clock reading `now`, with
    // the nanoseconds below one second.
    static timespec deadlineAfter(const timeval& now, int timeoutMs);

private:
    pthread_mutex_t mutex;
    pthread_cond_t condition;
    bool signalled;  // guarded by mutex
};

}  // namespace qel

#endif  // QEL_PLATFORM_EVENT_IMPL_H_
