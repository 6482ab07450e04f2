#ifndef QEL_PLATFORM_FILE_IMPL_H_
#define QEL_PLATFORM_FILE_IMPL_H_

#include <cstdint>
#include <cstdio>
#include <string>

#include <qel/critical_section.h>
#include <qel/file.h>

namespace qel {

// The file object over a stdio stream opened and positioned with the 64-bit calls.
class QEL_EXPORT FileImpl : public FileWrapper {
public:
    FileImpl();
    ~FileImpl() override;
    FileImpl(const FileImpl&) = delete;
    FileImpl& operator=(const FileImpl&) = delete;

    bool open() const override;
    int openFile(const char* name, bool readOnly, bool loop, bool textMode) override;
    void closeFile() override;
    void setMaxFileSize(unsigned long limit) override;
    int flush() override;
    int fileName(char* buffer, unsigned long size) const override;
    int64_t fileSize() override;
    __attribute__((format(printf, 2, 3))) int64_t writeText(const char* format, ...) override;
    int read(void* buffer, int count) override;
    int write(const void* buffer, int count) override;
    int writetohead(const void* buffer, int count) override;
    int rewind() override;
    const char* getFileName() override;

    // Used inside the library only (the log file writer):

    // Creates `name` for writing, only if nothing exists under that name, not even a
    // symbolic link, with the permissions a plain write open would give (0666 less the
    // umask) and closed on exec; then the object works as after openFile(name, false, false,
    // false). There is no moment in which an existing file could be followed or emptied.
    // Returns 0; -1 when the file could not be made, errno telling why (EEXIST: the name is
    // taken); -1 with errno EBUSY when a file is open already. A new descriptor is never one
    // of 0, 1 and 2, so that a process that closed its standard streams does not get its
    // console output written into the file. While the file is open the object holds a shared
    // lock (flock) on it, so that a tool that removes old log files can tell, by failing to
    // lock it exclusively, that a writer still uses it.
    QEL_NO_EXPORT int createNewFile(const char* name);
    // The descriptor of the open stream; -1 when not open.
    QEL_NO_EXPORT int descriptor() const;
    // In a child made by fork, from the fork handler, with the stream's buffer empty: the
    // child's copy of the descriptor is turned to /dev/null, so that the child neither writes
    // into the parent's file nor keeps its lock once the parent has moved on. The stream stays
    // open for the caller to close. Async-signal-safe.
    QEL_NO_EXPORT void detachInChild();
    // True when a write or flush failed since the last call (a full disk, a file size limit
    // of the process, an I/O error); the flag is cleared.
    QEL_NO_EXPORT bool takeWriteError();

private:
    // Moves the stream to `offset` and writes `count` bytes there; returns the bytes written.
    // The caller holds m_critSect and updates the write position.
    QEL_NO_EXPORT int writeAt(int64_t offset, const void* buffer, int count);
    // The stream's offset, or `fallback` when the stream cannot tell it.
    QEL_NO_EXPORT int64_t streamOffset(int64_t fallback);

    std::string m_fileName;
    std::string m_mode;
    FILE* m_stream;
    bool m_opened;
    bool m_loop;
    int64_t m_sizeAtOpen;
    int64_t m_readPos;       // guarded by m_critSect, except in rewind()
    int64_t m_writePos;      // guarded by m_critSect, except in writeText()
    int64_t m_maxFileSize;   // -1: no limit
    int64_t m_bytesWritten;  // guarded by m_critSect
    bool m_writeFailed;      // guarded by m_critSect, except in flush()
    int64_t m_streamPos;     // where the stream stands after our last write; -1: unknown
    CriticalSectionWrapper* m_critSect;
};

}  // namespace qel

#endif  // QEL_PLATFORM_FILE_IMPL_H_
