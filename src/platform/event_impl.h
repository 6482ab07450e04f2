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
    // the nanoseconds below one second. Internal to the library.
    QEL_NO_EXPORT static timespec deadlineAfter(const timeval& now, int timeoutMs) {
        timespec deadline;
        deadline.tv_sec = now.tv_sec + timeoutMs / 1000;
        deadline.tv_nsec = static_cast<long>(now.tv_usec) * 1000L + (timeoutMs % 1000) * 1000000L;
        if (deadline.tv_nsec > 999999999L) {
            // Both terms are below one second, so one carry is always enough.
            deadline.tv_sec += 1;
            deadline.tv_nsec -= 1000000000L;
        }
        return deadline;
    }

private:
    pthread_mutex_t mutex;
    pthread_cond_t condition;
    bool signalled;  // guarded by mutex
};

}  // namespace qel

#endif  // QEL_PLATFORM_EVENT_IMPL_H_
