#ifndef QEL_PLATFORM_THREAD_IMPL_H_
#define QEL_PLATFORM_THREAD_IMPL_H_

#include <pthread.h>

#include <string>

#include <qel/critical_section.h>
#include <qel/event.h>
#include <qel/thread.h>

namespace qel {

// The POSIX thread object. start() creates a joinable thread and waits for its start event;
// the thread marks itself alive under m_critSect, names itself, records its id and sets the
// event. stop() clears the alive flag under m_critSect and joins.
//
// A start() that timed out leaves a thread that has not yet marked itself alive. Such a
// thread is "pending": a second start() refuses to create another, and a stop() made before
// it comes up is remembered in m_stopRequested, so that it ends without calling the run
// function instead of marking itself alive.
class QEL_EXPORT ThreadImpl : public ThreadWrapper {
public:
    ThreadImpl(bool (*runFunction)(void*), void* object, const char* name);
    ~ThreadImpl() override;
    ThreadImpl(const ThreadImpl&) = delete;
    ThreadImpl& operator=(const ThreadImpl&) = delete;

    int start() override;
    int stop() override;
    int setPriority(ThreadPriority priority) override;

private:
    friend class ThreadImplTestPeer;  // lets the tests hold a new thread before it comes up

    // The entry handed to pthread_create: runs Run() on the ThreadImpl `object`.
    static void* startThread(void* object);
    // The body of the thread.
    void Run();
    // Clears the alive flag and records the stop request; the first half of stop().
    QEL_NO_EXPORT void requestStop();

    bool (*m_runFunction)(void*);
    void* m_object;
    bool m_alive;  // guarded by m_critSect
    EventWrapper* m_startEvent;
    CriticalSectionWrapper* m_critSect;
    int m_threadId;  // written by the thread itself
    pthread_attr_t m_attributes;
    bool m_attributesReady;  // m_attributes has been initialised
    pthread_t m_thread;      // 0: no thread created, or joined
    std::string m_name;
    // Set by start() before the thread is created, cleared by the thread when it comes up.
    bool m_pending;        // guarded by m_critSect
    bool m_stopRequested;  // guarded by m_critSect
};

}  // namespace qel

#endif  // QEL_PLATFORM_THREAD_IMPL_H_
