#ifndef QEL_CRITICAL_SECTION_H_
#define QEL_CRITICAL_SECTION_H_

#include <qel/export.h>

namespace qel {

// A recursive lock: the thread that holds it may enter it again, and releases it for
// other threads after as many leave() calls as enter() calls. Any thread may call any
// operation. Errors of the underlying mutex calls are ignored.
class QEL_EXPORT CriticalSectionWrapper {
public:
    // Returns a new critical section, not held, owned by the caller (delete it through
    // this interface); never null.
    static CriticalSectionWrapper* create();

    // Atomically adds 1 to `*value` with full ordering and returns the new value; wraps
    // around from 2147483647 to -2147483648. Lock-free; needs no critical section.
    static int atomic32Increment(int* value);
    // Atomically subtracts 1 from `*value` with full ordering and returns the new value;
    // wraps around from -2147483648 to 2147483647.
    static int atomic32Decrement(int* value);

    virtual ~CriticalSectionWrapper();
    // Takes the lock, waiting while another thread holds it.
    virtual void enter() = 0;
    // Releases one enter() of the calling thread; a thread that does not hold the lock
    // changes nothing.
    virtual void leave() = 0;
};

}  // namespace qel

#endif  // QEL_CRITICAL_SECTION_H_
