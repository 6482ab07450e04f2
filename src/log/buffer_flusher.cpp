#include "log/buffer_flusher.h"

#include <signal.h>
#include <sys/prctl.h>
#include <time.h>

#include <qel/timeutils.h>

namespace qel {

namespace {

void initialise(pthread_mutex_t* mutex, pthread_cond_t* wake) {
    pthread_mutex_init(mutex, nullptr);
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(wake, &attributes);
    pthread_condattr_destroy(&attributes);
}

}  // namespace

BufferFlusher::BufferFlusher(void (*flush)(void*), void* context)
    : m_flush(flush),
      m_context(context),
      m_thread(),
      m_running(false),
      m_stopping(false),
      m_deadlineUs(0) {
    initialise(&m_mutex, &m_wake);
}

BufferFlusher::~BufferFlusher() {
    stop();
    pthread_cond_destroy(&m_wake);
    pthread_mutex_destroy(&m_mutex);
}

bool BufferFlusher::start() {
    pthread_mutex_lock(&m_mutex);
    if (!m_running && !m_stopping) {
        // The thread starts with every signal blocked; this thread's mask is put back.
        sigset_t all, saved;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &saved);
        m_running = pthread_create(&m_thread, nullptr, &BufferFlusher::run, this) == 0;
        pthread_sigmask(SIG_SETMASK, &saved, nullptr);
    }
    const bool running = m_running && !m_stopping;
    pthread_mutex_unlock(&m_mutex);
    return running;
}

bool BufferFlusher::writeBy(uint64_t deadlineUs) {
    pthread_mutex_lock(&m_mutex);
    const bool running = m_running && !m_stopping;
    if (running && (m_deadlineUs == 0 || deadlineUs < m_deadlineUs)) {
        m_deadlineUs = deadlineUs;
        pthread_cond_signal(&m_wake);
    }
    pthread_mutex_unlock(&m_mutex);
    return running;
}

void BufferFlusher::stop() {
    pthread_mutex_lock(&m_mutex);
    const bool running = m_running && !m_stopping;
    m_stopping = running;
    pthread_cond_signal(&m_wake);
    pthread_mutex_unlock(&m_mutex);
    if (!running) {
        return;
    }
    pthread_join(m_thread, nullptr);
    pthread_mutex_lock(&m_mutex);
    m_running = false;
    m_stopping = false;
    m_deadlineUs = 0;
    pthread_mutex_unlock(&m_mutex);
}

void BufferFlusher::forgetInChild() {
    initialise(&m_mutex, &m_wake);
    m_running = false;
    m_stopping = false;
    m_deadlineUs = 0;
}

void* BufferFlusher::run(void* flusher) {
    prctl(PR_SET_NAME, kThreadName);
    static_cast<BufferFlusher*>(flusher)->loop();
    return nullptr;
}

void BufferFlusher::loop() {
    pthread_mutex_lock(&m_mutex);
    while (!m_stopping) {
        if (m_deadlineUs == 0) {
            pthread_cond_wait(&m_wake, &m_mutex);
            continue;
        }
        const uint64_t deadline = m_deadlineUs;
        if (timeMicros() < deadline) {
            const timespec until = {static_cast<time_t>(deadline / 1000000),
                                    static_cast<long>(deadline % 1000000) * 1000};
            pthread_cond_timedwait(&m_wake, &m_mutex, &until);
            continue;
        }
        m_deadlineUs = 0;
        pthread_mutex_unlock(&m_mutex);
        m_flush(m_context);
        pthread_mutex_lock(&m_mutex);
    }
    pthread_mutex_unlock(&m_mutex);
}

}  // namespace qel
