#include "platform/thread_impl.h"

#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/scoped_critical_section.h"

namespace qel {

namespace {

// How long start() waits for the new thread to report that it runs.
constexpr int kStartTimeoutMs = 2000;

// The calling thread's kernel id after its first lookup, 0 before: every log record asks for
// it, and a system call per record is what this saves. A child made by fork starts as a copy
// of the thread that forked, cache included; the fork handler clears the copy there.
thread_local long t_threadId = 0;

void forgetThreadId() {
    t_threadId = 0;
}

// Registered once, before any thread keeps its id. Without the handler a child could carry
// its parent's id, so the id is then looked up on every call.
bool forkHandlerInstalled() {
    static const bool installed = pthread_atfork(nullptr, nullptr, &forgetThreadId) == 0;
    return installed;
}

}  // namespace

ThreadWrapper* ThreadWrapper::createThread(bool (*runFunction)(void*), void* object,
                                           const char* name) {
    return new ThreadImpl(runFunction, object, name);
}

long ThreadWrapper::getThreadId() {
    if (t_threadId != 0) {
        return t_threadId;
    }
    const long id = syscall(SYS_gettid);
    if (forkHandlerInstalled()) {
        t_threadId = id;
    }
    return id;
}

int convertPriority(ThreadPriority priority, int minimum, int maximum) {
    const int low = minimum + 1;
    const int top = maximum - 1;
    switch (priority) {
        case PriorityLow:
            return low;
        case PriorityMiddle:
            return (low + top - 1) / 2;
        case PriorityHigh:
            return top - 2 > low ? top - 2 : low;
        case PriorityHigher:
            return top - 1 > low ? top - 1 : low;
        case PriorityTop:
            return top;
    }
    return low;  // a value outside the scale
}

ThreadImpl::ThreadImpl(bool (*runFunction)(void*), void* object, const char* name)
    : m_runFunction(runFunction),
      m_object(object),
      m_alive(false),
      m_startEvent(EventWrapper::create()),
      m_critSect(CriticalSectionWrapper::create()),
      m_threadId(-1),
      m_attributes(),
      m_attributesReady(false),
      m_thread(0),
      m_name(name != nullptr ? name : "QEL_THREAD"),
      m_pending(false),
      m_stopRequested(false) {}

ThreadImpl::~ThreadImpl() {
    if (m_attributesReady) {
        pthread_attr_destroy(&m_attributes);
    }
    stop();
    delete m_critSect;
    delete m_startEvent;
}

int ThreadImpl::start() {
    {
        ScopedCriticalSection lock(*m_critSect);
        if (m_alive || m_pending) {
            return -3;
        }
    }
    if (m_thread != 0) {
        // The previous thread has ended, or ends after its current call since its alive flag
        // is clear. It is reaped before another takes its place, so that the run function
        // never runs on two threads and no finished thread is left unjoined. Only the thread
        // itself cannot do that.
        if (pthread_equal(m_thread, pthread_self()) || pthread_join(m_thread, nullptr) != 0) {
            return -3;
        }
        m_thread = 0;
    }
    if (!m_attributesReady) {
        if (pthread_attr_init(&m_attributes) != 0) {
            return -1;
        }
        m_attributesReady = true;
    }
    m_startEvent->reset();
    {
        ScopedCriticalSection lock(*m_critSect);
        m_stopRequested = false;
        m_pending = true;
    }
    if (pthread_create(&m_thread, &m_attributes, &ThreadImpl::startThread, this) != 0) {
        m_thread = 0;
        ScopedCriticalSection lock(*m_critSect);
        m_pending = false;
        return -1;
    }
    // On a time-out the thread is not cancelled: it stays pending and may come up later.
    return m_startEvent->wait(kStartTimeoutMs) == 0 ? 0 : -100;
}

int ThreadImpl::stop() {
    requestStop();
    if (m_thread == 0) {
        return 0;  // nothing to wait for: never started, or already joined
    }
    // A thread cannot join itself: the run function that stops its own thread gets -1, and
    // the thread ends when that call returns. The join is not even tried then.
    if (pthread_equal(m_thread, pthread_self()) || pthread_join(m_thread, nullptr) != 0) {
        return -1;  // keep the handle, so that stop() can be called again
    }
    m_thread = 0;
    return 0;
}

void ThreadImpl::requestStop() {
    ScopedCriticalSection lock(*m_critSect);
    m_alive = false;
    m_stopRequested = true;
}

int ThreadImpl::setPriority(ThreadPriority priority) {
    if (m_thread == 0) {
        return -3;
    }
    const int minimum = sched_get_priority_min(SCHED_RR);
    const int maximum = sched_get_priority_max(SCHED_RR);
    if (minimum == -1 || maximum == -1 || maximum - minimum <= 2) {
        return -8;
    }
    sched_param parameters = {};
    parameters.sched_priority = convertPriority(priority, minimum, maximum);
    return pthread_setschedparam(m_thread, SCHED_RR, &parameters) == 0 ? 0 : -1;
}

void* ThreadImpl::startThread(void* object) {
    static_cast<ThreadImpl*>(object)->Run();
    return nullptr;
}

void ThreadImpl::Run() {
    {
        ScopedCriticalSection lock(*m_critSect);
        m_pending = false;
        if (m_stopRequested) {
            // The owner gave up on a start that timed out and asked for a stop before this
            // thread came up: the run function is not called at all.
            return;
        }
        m_alive = true;
    }
    if (!m_name.empty()) {
        // Linux keeps the first 15 characters; m_name keeps the whole text.
        prctl(PR_SET_NAME, m_name.c_str(), 0, 0, 0);
    }
    m_threadId = static_cast<int>(getThreadId());
    m_startEvent->set();  // from here start() returns 0
    for (;;) {
        // Called outside any lock, so that a stop never interrupts a call.
        const bool again = m_runFunction(m_object);
        ScopedCriticalSection lock(*m_critSect);
        if (!again) {
            m_alive = false;
            return;
        }
        if (!m_alive) {
            return;  // a stop was requested
        }
    }
}

}  // namespace qel
