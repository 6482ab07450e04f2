#ifndef QEL_LOG_BUFFER_FLUSHER_H_
#define QEL_LOG_BUFFER_FLUSHER_H_

#include <pthread.h>

#include <cstdint>

namespace qel {

// Bounds how long a record may wait in the file writer's buffer: a thread of the library's
// own that writes the buffer out once its deadline has come. It runs only while the file
// writer is on with its buffer (an option the program switches on), is started and stopped by
// configuration calls, never by a record, and blocks every signal, so that it never runs a
// handler of the program's.
//
// Locks: its own mutex is the innermost lock. The thread holds none of the writer's locks
// while it waits, and takes them only inside `flush`, with its own mutex released.
class BufferFlusher {
public:
    // The thread's name, as ps and top show it.
    static constexpr const char* kThreadName = "qel-flush";

    // `flush(context)` writes the buffer out, taking the writer's locks itself.
    BufferFlusher(void (*flush)(void*), void* context);
    ~BufferFlusher();  // stop()
    BufferFlusher(const BufferFlusher&) = delete;
    BufferFlusher& operator=(const BufferFlusher&) = delete;

    // Starts the thread unless it runs; false when it cannot be started.
    bool start();
    // The buffer must be written out by `deadlineUs` (monotonic microseconds). False when the
    // thread does not run: the caller then writes the buffer out itself.
    bool writeBy(uint64_t deadlineUs);
    // Ends and joins the thread. The caller must hold none of the writer's locks, which the
    // thread may be waiting for. Meant for one thread at a time.
    void stop();
    // In a child made by fork, from the fork handler: the thread did not come along, and its
    // mutex may have been held by it.
    void forgetInChild();

private:
    static void* run(void* flusher);
    void loop();

    void (*m_flush)(void*);
    void* m_context;
    pthread_mutex_t m_mutex;
    pthread_cond_t m_wake;  // waits on the monotonic clock
    pthread_t m_thread;     // guarded by m_mutex, as are the three below
    bool m_running;
    bool m_stopping;
    uint64_t m_deadlineUs;  // 0: nothing waits
};

}  // namespace qel

#endif  // QEL_LOG_BUFFER_FLUSHER_H_
