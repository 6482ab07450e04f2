#include "platform/event_impl.h"

#include <errno.h>

namespace qel {

namespace {

// Holds the event's mutex for a scope; remembers whether the lock was taken, so that a
// failed lock is neither reported twice nor released.
class MutexLock {
public:
    explicit MutexLock(pthread_mutex_t& mutex) : m_mutex(mutex) {
        m_locked = pthread_mutex_lock(&m_mutex) == 0;
    }
    ~MutexLock() {
        if (m_locked) {
            pthread_mutex_unlock(&m_mutex);
        }
    }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    bool locked() const { return m_locked; }

private:
    pthread_mutex_t& m_mutex;
    bool m_locked;
};

}  // namespace

EventWrapper* EventWrapper::create() {
    return new EventImpl();
}

EventImpl::EventImpl() : signalled(false) {
    pthread_mutex_init(&mutex, nullptr);
    pthread_cond_init(&condition, nullptr);
}

EventImpl::~EventImpl() {
    pthread_mutex_destroy(&mutex);
    pthread_cond_destroy(&condition);
}

int EventImpl::reset() {
    MutexLock lock(mutex);
    if (!lock.locked()) {
        return -1;
    }
    signalled = false;
    return 0;
}

int EventImpl::set() {
    MutexLock lock(mutex);
    if (!lock.locked()) {
        return -1;
    }
    signalled = true;
    return pthread_cond_broadcast(&condition) == 0 ? 0 : -1;
}

int EventImpl::wait(int timeoutMs) {
    // A negative time-out other than "no limit" would put the deadline in the past, some of
    // them with a negative nanosecond part that the timed wait rejects; such a wait only
    // looks, like a time-out of 0.
    if (timeoutMs < -1) {
        timeoutMs = 0;
    }
    MutexLock lock(mutex);
    // The deadline is fixed before looking at the state, so a waiter that is woken without
    // getting the event goes back to sleep with the limit it began with.
    timespec deadline = {0, 0};
    if (timeoutMs != -1) {
        timeval now;
        gettimeofday(&now, nullptr);
        deadline = deadlineAfter(now, timeoutMs);
    }
    while (!signalled) {
        const int result = timeoutMs == -1 ? pthread_cond_wait(&condition, &mutex)
                                           : pthread_cond_timedwait(&condition, &mutex, &deadline);
        if (result != 0) {
            // A set() that came together with the time-out stays for the next waiter.
            return result == ETIMEDOUT ? -100 : -1;
        }
    }
    signalled = false;
    return 0;
}

}  // namespace qel
