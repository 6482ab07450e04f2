#include "follow_wait.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "read/folder_follower.h"

namespace qellog {
namespace {

volatile sig_atomic_t g_stop = 0;
int g_wakeFd = -1;

void onStopSignal(int) {
    const int error = errno;  // the thread that was interrupted may be about to read it
    g_stop = 1;
    const char byte = 0;
    const ssize_t ignored = write(g_wakeFd, &byte, 1);
    (void)ignored;
    errno = error;
}

}  // namespace

FollowWait::~FollowWait() {
    g_wakeFd = -1;  // a late signal writes nowhere
    for (int fd : {m_inotify, m_wake[0], m_wake[1]}) {
        if (fd >= 0) close(fd);
    }
}

bool FollowWait::start() {
    if (pipe2(m_wake, O_CLOEXEC | O_NONBLOCK) != 0) return false;
    g_wakeFd = m_wake[1];
    struct sigaction action;
    std::memset(&action, 0, sizeof(action));
    action.sa_handler = onStopSignal;
    action.sa_flags = SA_RESTART;  // a record being written goes out whole
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    signal(SIGPIPE, SIG_IGN);
    m_inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    return true;
}

bool FollowWait::stopAsked() { return g_stop != 0; }

void FollowWait::watch(const std::string& folder) {
    if (m_inotify < 0 || m_watch >= 0) return;
    m_watch = inotify_add_watch(m_inotify, folder.c_str(),
                                IN_CREATE | IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_TO |
                                    IN_MOVED_FROM | IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF);
}

void FollowWait::wait(int timeoutMs, int gapMs) {
    const long long started = monotonicMs();
    pollfd fds[2] = {{m_wake[0], POLLIN, 0}, {m_inotify, POLLIN, 0}};
    if (poll(fds, m_inotify >= 0 ? 2 : 1, timeoutMs) <= 0) return;
    if (m_inotify < 0 || !(fds[1].revents & POLLIN)) return;
    alignas(inotify_event) char events[4096];
    ssize_t got;
    while ((got = read(m_inotify, events, sizeof(events))) > 0) {
        for (ssize_t at = 0; at < got;) {
            const inotify_event* event = reinterpret_cast<const inotify_event*>(events + at);
            if (event->mask & IN_IGNORED) m_watch = -1;  // the folder went away
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
    const long long gap = started + gapMs - monotonicMs();
    if (gap > 0 && !g_stop) poll(fds, 1, static_cast<int>(gap));
}

}  // namespace qellog
