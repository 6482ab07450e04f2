#ifndef QEL_LOG_LOG_FILE_H_
#define QEL_LOG_LOG_FILE_H_

#include <limits.h>

#include <cstddef>

namespace qel {

// Moves a descriptor just made to a number above 0, 1 and 2 (closed on exec), so that a
// process that closed a standard stream never finds the library's descriptor where its console
// output or its next open goes. Returns the descriptor, or -1 (with the original closed).
int aboveStandardStreams(int descriptor);

// One log file that the file writer has open: a descriptor written with write(2), each call
// reaching the system before it returns, and the path it was created under.
//
// Not thread-safe: the file writer uses it under its own lock. No operation allocates memory.
class LogFile {
public:
    LogFile();
    ~LogFile();  // closes the file
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    // Creates `path` for writing, only if nothing exists under that name, not even a symbolic
    // link, with the permissions a plain write open gives (0666 less the umask). While it is
    // open the file carries a shared lock (flock), so that a tool that removes old log files
    // can tell, by failing to lock it exclusively, that a writer still uses it; the file is
    // open only once it holds the lock at its name. Returns 0, or the errno value of the
    // failure (EEXIST: the name is taken; EAGAIN: a remover took the file between its creation
    // and the lock, or is about to; EBUSY: a file is open).
    int create(const char* path);
    bool isOpen() const { return m_descriptor >= 0; }
    int descriptor() const { return m_descriptor; }
    // The path of the open file, or of the last one created.
    const char* path() const { return m_path; }
    // Writes `size` bytes of `data` at the file's end, going on after a short write; returns
    // the bytes written. `*failed` tells whether a write failed (a full disk, a file size
    // limit of the process), after which the rest of `data` is not written.
    size_t write(const char* data, size_t size, bool* failed);
    // Closes the file; nothing happens when none is open.
    void close();
    // In a child made by fork: closes the child's copy of the parent's file, so that the child
    // neither writes into it nor keeps its lock once the parent has moved on.
    // Async-signal-safe.
    void forgetInChild() { close(); }

private:
    int m_descriptor;
    char m_path[PATH_MAX];
};

}  // namespace qel

#endif  // QEL_LOG_LOG_FILE_H_
