#ifndef QEL_LOG_FILE_WRITER_H_
#define QEL_LOG_FILE_WRITER_H_

#include <cstdint>
#include <string>

#include "log/buffer_flusher.h"
#include "log/current_file_watch.h"
#include "log/file_facts.h"
#include "log/log_file.h"

namespace qel {

// What the file writer (QelLogFileStream) does below its locks: the current log file, the
// switch to a new one, the byte limit, the current-file check and the optional buffer.
//
// Every record reaches the system before the call that logged it returns: the check that the
// current file is still at its name, then one write of the line, or of its parts across the
// files that a split at the limit starts. A record logged before the file was renamed,
// deleted or replaced, or before the working directory or a mount changed, is in that file.
//
// On request records wait in a buffer of kBufferCapacity bytes instead, as whole records, at
// most the delay asked for: the buffer is written out when the next record does not fit, when
// a warning or an error comes (before its call returns), when a record reaches the limit, at
// the deadline (BufferFlusher), before a fork and when the writer closes or moves. The
// current-file check runs before each write of the buffer, so that waiting records go to the
// file that is current when they are written.
//
// Beside each file it creates the writer records facts that the bytes do not carry (FileFacts):
// which writer made it, its number among that writer's files, the file whose split record it
// completes, the local time's offsets while it was current.
//
// A write that failed (a full disk, a file size limit of the process) drops the rest of what
// it carried: when part of it reached the file, the record it cut is the last thing in that
// file and the next write starts a new one; a file that took nothing is kept, so a full disk
// costs no file per record, and logging goes on in it once there is room again.
//
// Not thread-safe: configuration calls come with the writer's lock and the signal lock held
// (WriterLock), records with the writer's lock held. Writing allocates no memory unless a new
// folder has to be made.
class FileWriter {
public:
    // The buffer of the buffered mode: the longest line (a header of at most 1023 characters,
    // a text of 2047 and two line feeds) fits it several times over.
    static constexpr size_t kBufferCapacity = 8192;
    // Records the buffer holds at most; the shortest line takes more than 16 bytes.
    static constexpr size_t kMaxBufferedRecords = kBufferCapacity / 16;

    // `flush(context)` takes the writer's locks and calls writeOut(); the buffered mode's
    // thread calls it at a deadline.
    FileWriter(void (*flush)(void*), void* context);
    ~FileWriter();
    FileWriter(const FileWriter&) = delete;
    FileWriter& operator=(const FileWriter&) = delete;

    // Writes the path of a new file in `folder`, named by the local time now, and a terminating
    // zero byte into `out`; returns its length, or 0 when it does not fit `capacity` bytes.
    static size_t fileName(const char* folder, char* out, size_t capacity);

    // ---- Configuration ----
    void setFolder(const char* folder) {
        m_folder = folder;
        m_facts.folderChanged();
    }
    // Applies to the current file from the next record on; 0 removes the limit.
    void setMaxFileSize(uint32_t maxSize) { m_maxFileSize = maxSize; }
    // 0: write-through; else the longest a record may wait, in milliseconds. What waits is
    // written out first.
    void setMaxDelay(unsigned int maxDelayMs);
    void useKernelReports(bool enabled) { m_watch.useKernelReports(enabled); }
    // Opens a new file in the folder, making the folder first, never reusing a name; clears the
    // retry pause. 0, or the errno value of the failure.
    int openFile();
    // Closes the current file (the buffer is not written) and resets the folder to the working
    // folder, "./".
    void closeFile();
    // The writer is off: closeFile(), and the watch lets go of its descriptors.
    void closeAll();
    // Starts the buffered mode's thread when records may wait; else, or when it cannot be
    // started, records are written through.
    void startFlusher();
    // Ends the buffered mode's thread; called with none of the writer's locks held.
    void stopFlusher() { m_flusher.stop(); }

    // ---- Records ----
    // The line that the record being written is formatted into, reused for every record.
    std::string& line() { return m_line; }
    // Writes line() through, or buffers it as the class comment says. `urgent`: a warning or
    // an error, which never waits; `timeOfDay`: the record's stamp as the line carries it.
    void take(bool urgent, const char* timeOfDay);
    // Writes out what waits in the buffer; dropped when no file can take it.
    void writeOut();

    // ---- Fork ----
    // In a child made by fork, from the fork handler (the buffer was written out before the
    // fork): the child lets go of the parent's file and watch, and its next record starts a
    // new file. The buffer's thread did not come along, and a child may not start one (only
    // async-signal-safe calls are allowed in it until it execs), so the child writes every
    // record through until it is configured anew.
    void continueInChild();

private:
    // Whether the current file can take a write, starting a new file where it has to: the one
    // place where the writer decides that it needs a new file.
    bool fileReady();
    // Switches to a new file in the same folder; on failure the writer stays silent for a
    // growing pause. `continues`: the new file takes the rest of a record that the current
    // one ends with.
    bool reopen(bool continues);
    // Creates a new file in m_folder under a name no file has, with its facts; 0 or an errno
    // value. `continues`: the name of the file whose last record it completes, or null.
    int createFile(const char* continues);
    // Writes `size` bytes into the current file, going on in new files at the limit.
    void writeAcrossFiles(const char* data, size_t size);
    // Whether `written` bytes into what writeAcrossFiles() writes, a record ends.
    bool endsRecord(size_t written) const;

    std::string m_folder;
    uint32_t m_maxFileSize;
    unsigned int m_maxDelayMs;
    std::string m_line;
    std::string m_buffer;       // whole records not yet written
    uint16_t m_recordEnds[kMaxBufferedRecords];  // where each record in m_buffer ends
    size_t m_recordCount;
    LogFile m_file;
    CurrentFileWatch m_watch;   // is m_file still at its name
    FileFacts m_facts;          // what is recorded beside m_file
    BufferFlusher m_flusher;
    bool m_newFileNeeded;       // the next write starts a new file
    uint64_t m_countedBytes;    // bytes the current file took while a limit was set
    uint64_t m_retryPauseUs;    // 0 unless the last reopen failed
    uint64_t m_nextRetryUs;     // monotonic time of the next reopen
    char m_name[PATH_MAX];      // where a new file's name is put together
    char m_previous[NAME_MAX + 1];  // the name of the file a new one continues
};

}  // namespace qel

#endif  // QEL_LOG_FILE_WRITER_H_
