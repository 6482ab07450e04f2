#ifndef QEL_THREAD_H_
#define QEL_THREAD_H_

#include <qel/export.h>

namespace qel {

// The five-step real-time priority scale of a thread object, from just above the system's
// minimum to just below its maximum.
enum ThreadPriority : int {
    PriorityLow = 1,
    PriorityMiddle = 2,
    PriorityHigh = 3,
    PriorityHigher = 4,
    PriorityTop = 5
};

// A thread object: it runs the owner's function over and over on a POSIX thread of its own,
// under a name the system shows, until the function returns false or the owner stops it.
// A call of the function is never interrupted: a stop takes effect when it returns.
//
// One controlling thread calls start(), stop(), setPriority() and the destructor, one at a
// time; getThreadId() may be called from any thread.
class QEL_EXPORT ThreadWrapper {
public:
    // Returns a new thread object, not started, owned by the caller (delete it through this
    // interface); never null. `runFunction` is called with `object` on the new thread;
    // returning true asks to be called again. `name` names the thread (the system shows its
    // first 15 characters); null gives "QEL_THREAD", an empty text leaves it unnamed.
    static ThreadWrapper* createThread(bool (*runFunction)(void*), void* object,
                                       const char* name);
    // Returns the calling thread's kernel thread id; the main thread's equals the process id.
    static long getThreadId();

    // Stops the thread, waiting until the current call of the run function returns.
    virtual ~ThreadWrapper();
    // Starts the thread and waits up to 2000 ms until it runs, named and with its id known.
    // Returns 0 when it runs; -3 when a thread of this object is already running or still
    // starting; -1 when the thread cannot be created; -100 when it did not report in time
    // (it is left to come up, and a stop() still applies to it).
    virtual int start() = 0;
    // Asks the thread to end after the current call of the run function and waits for it.
    // Returns 0 when it ended, and also when there is no thread to wait for; -1 when it
    // cannot be waited for (as when the run function stops its own thread), in which case
    // the thread still ends after the current call and stop() may be called again.
    virtual int stop() = 0;
    // Puts the thread on round-robin real-time scheduling at the step's priority. Returns 0;
    // -3 when there is no thread; -8 when the system's priority range is unusable; -1 when
    // the system refuses (as it does a process without the right to real-time scheduling).
    virtual int setPriority(ThreadPriority priority) = 0;
};

// Returns the system priority for `priority` on the range `minimum` to `maximum`: one above
// the minimum for PriorityLow and for any value outside the scale, the middle of the usable
// range for PriorityMiddle, three, two and one below the maximum for PriorityHigh,
// PriorityHigher and PriorityTop (never below PriorityLow's). Checks nothing itself.
QEL_EXPORT int convertPriority(ThreadPriority priority, int minimum, int maximum);

}  // namespace qel

#endif  // QEL_THREAD_H_
