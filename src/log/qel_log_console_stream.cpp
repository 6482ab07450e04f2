#include "log/qel_log_console_stream.h"

#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>

#include <cstdio>

#include "log/qel_log.h"
#include "log/writer_lock.h"
#include "platform/scoped_critical_section.h"

namespace qel {

namespace {

// True when standard output leads into a pipe or a socket: a write there raises SIGPIPE
// once the reader has gone (`./app | head -1`), and SIGPIPE ends a process by default.
bool outputCanRaiseSigpipe() {
    struct stat status;
    return fstat(fileno(stdout), &status) == 0 &&
           (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
}

// For its lifetime, keeps a SIGPIPE raised by this thread's writes from reaching the process:
// blocked in this thread, and taken back if a write raised it. The thread's mask is restored,
// and a SIGPIPE that was pending before is left pending, so the host program's own signal
// handling sees no difference.
class SigpipeShield {
public:
    SigpipeShield() {
        sigemptyset(&m_sigpipe);
        sigaddset(&m_sigpipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &m_sigpipe, &m_savedMask);
        m_wasPending = isPending();
    }
    ~SigpipeShield() {
        if (!m_wasPending && isPending()) {
            const timespec noWait = {0, 0};
            sigtimedwait(&m_sigpipe, nullptr, &noWait);
        }
        pthread_sigmask(SIG_SETMASK, &m_savedMask, nullptr);
    }
    SigpipeShield(const SigpipeShield&) = delete;
    SigpipeShield& operator=(const SigpipeShield&) = delete;

private:
    static bool isPending() {
        sigset_t pending;
        return sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
    }

    sigset_t m_sigpipe;
    sigset_t m_savedMask;
    bool m_wasPending;
};

// Prints `line` and flushes standard output. The line holds no zero byte, so writing its
// length prints what "%s" would, without measuring it again. Only standard output is flushed:
// a flush of all streams would take the lock of every stream of the program, and a log call
// would then wait for a thread that reads its standard input, or deadlock with one that holds
// a stream of its own.
void printAndFlush(const std::string& line) {
    fwrite(line.data(), 1, line.size(), stdout);
    fflush(stdout);
}

}  // namespace

QelLogConsoleStream::QelLogConsoleStream() {
    m_line.reserve(kLineCapacity);
}

QelLogConsoleStream::~QelLogConsoleStream() = default;

void QelLogConsoleStream::writeFormatLog(const LogMessage& msg) {
    ScopedCriticalSection lock(*m_critSect);
    formatLog(msg, m_line);
    // A reader that went away makes console output fail quietly for this record; it never
    // ends the host program, and the other writers go on.
    if (outputCanRaiseSigpipe()) {
        SigpipeShield shield;
        printAndFlush(m_line);
    } else {
        printAndFlush(m_line);
    }
}

int QelLogConsoleStream::openLog() {
    WriterLock lock(*this);
    if (!m_isOpen && !QelLog::exiting()) {
        lock.signal().connect_while_locked(this, &QelLogConsoleStream::writeFormatLog);
        m_isOpen = true;
    }
    return 0;
}

void QelLogConsoleStream::closeLog() {
    WriterLock lock(*this);
    if (m_isOpen) {
        lock.signal().disconnect_while_locked(this);
        m_isOpen = false;
    }
}

void QelLogConsoleStream::release() {
    std::string().swap(m_line);
    delete m_critSect;
    m_critSect = nullptr;
}

}  // namespace qel
