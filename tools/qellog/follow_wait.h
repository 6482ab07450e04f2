#ifndef QELLOG_FOLLOW_WAIT_H_
#define QELLOG_FOLLOW_WAIT_H_

#include <string>

namespace qellog {

// How qellog follow waits between two passes: for a change in the folder (through inotify
// where the system gives it), for SIGINT or SIGTERM, or for a time-out, whichever comes
// first. Once started it catches SIGINT and SIGTERM, however many come: each only asks for a
// stop, so that follow ends after the record it is printing, with its state saved. SIGPIPE
// is ignored: a reader that went away shows as a failed write. One per process, on the thread
// that follows.
class FollowWait {
public:
    FollowWait() = default;
    ~FollowWait();
    FollowWait(const FollowWait&) = delete;
    FollowWait& operator=(const FollowWait&) = delete;

    // Catches the signals and opens what the waiting needs. Returns false, with errno set,
    // when it cannot.
    bool start();
    // Whether SIGINT or SIGTERM came. Safe to ask at any time.
    static bool stopAsked();
    // Watches `folder` for changes unless it is watched already: it may not exist yet, or may
    // have gone away since.
    void watch(const std::string& folder);
    bool watching() const { return m_watch >= 0; }
    // Waits up to `timeoutMs` for a change, a stop or the time-out. After a change it waits on
    // until `gapMs` have passed since the wait began (unless a stop comes), so that passes
    // follow each other at least that far apart however busy the writers are.
    void wait(int timeoutMs, int gapMs);

private:
    int m_inotify = -1;
    int m_watch = -1;
    int m_wake[2] = {-1, -1};  // a signal writes a byte, which ends any wait
};

}  // namespace qellog

#endif  // QELLOG_FOLLOW_WAIT_H_
