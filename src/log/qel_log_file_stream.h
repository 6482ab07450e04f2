#ifndef QEL_LOG_QEL_LOG_FILE_STREAM_H_
#define QEL_LOG_QEL_LOG_FILE_STREAM_H_

#include <cstdint>
#include <string>

#include <qel/file.h>

#include "log/current_file_watch.h"
#include "log/qel_log_stream_base.h"
#include "platform/file_impl.h"

namespace qel {

// Appends log lines to log files in a folder. Every open creates a new file named
// "QelLog" + the local timestamp with ':' turned into '-' + ".log"; a file is never
// reopened, truncated or overwritten. When a line does not fit below the byte limit, the
// file is filled to exactly the limit and the line goes on in a new file; when the current
// file's name no longer leads to it (deleted, renamed, replaced by anything, its folder moved),
// the next write starts a new one. Off until switched on.
// Reports nothing while writing: a record that cannot be written is dropped.
//
// Lines wait in the writer's own buffer, which holds whole records only and goes to the
// system in one write when the next line would not fit, when a warning or an error comes
// (before its call returns), after every record while the console writer is on, before a
// fork and when the writer closes. So the bytes in a file end at a record end, except where
// a line is split at the limit or a write failed. The byte count against the limit is what
// the file really took. A write that failed after part of it reached the file leaves the
// torn record last in its file: the next write starts a new file. A file that took nothing
// is kept, so a full disk costs no file per failed record, and logging goes on in it once
// there is room again.
//
// New files are created exclusively and closed on exec: a name taken by anything, a
// planted file or symbolic link included, is skipped as in a name collision. A child made
// by fork continues in a new file of its own.
//
// Locks: see writer_lock.h. Everything that changes the writer's state takes WriterLock; a
// dispatch holds the signal lock and takes m_critSect.
class QEL_EXPORT QelLogFileStream : public QelLogStreamBase {
public:
    // The folder a failed move falls back to.
    static constexpr const char* kWorkingFolder = "./";

    // Closed, folder "./", limit 10485760 bytes.
    QelLogFileStream();
    // Closes the current file.
    ~QelLogFileStream() override;

    // Buffers the line of `msg` and writes it out as the class comment says, rotating at the
    // limit. Called by the manager's signal, on the logging thread.
    void writeFormatLog(const LogMessage& msg) override;
    // Opens a new file in the folder and connects the writer. 0 when the writer is open
    // afterwards (also when it was open already); -1 with the error code 0x80300002 when
    // the file cannot be opened or process exit has begun, the writer staying closed.
    int openLog() override;
    // Writes out the buffer, closes the current file, forgets the folder (back to "./") and
    // disconnects the writer; nothing happens when it is closed.
    void closeLog() override;
    // Moves the writer, whether on or off, into a new file in `folder` and switches it on,
    // in one step with respect to records that other threads log: each goes into the old
    // file or the new one. 0 on success. When no file can be made there: -1 with the error
    // code 0x80300002, the writer going on in a new file in "./", or switched off when that
    // fails too.
    QEL_NO_EXPORT int moveToFolder(const char* folder);

    // Sets the folder for the next file; NULL changes nothing. Meant for a closed writer.
    void setFileFolder(const char* folder);
    // Sets the byte limit of every file, applied to the current file from the next record on
    // (buffered records are written out under the old one); 0 removes the limit.
    void setMaxFileSize(uint32_t maxSize);
    // The path of a new file in `folder` named by the current local time.
    static std::string formatFileName(const std::string& folder);

    // Called by the manager's fork handlers with the signal lock held. Before the fork the
    // buffer is written out, so that a child never writes it a second time; in the child the
    // next record starts a new file.
    QEL_NO_EXPORT void prepareFork();
    QEL_NO_EXPORT void continueInChild();

private:
    // Opens a new file in m_fileFolder, never reusing an existing name. 0 on success, else
    // the reason (an errno value). Caller holds m_critSect.
    int openFile();
    // Closes and deletes the file object, resetting the folder to "./". Buffered records are
    // not written. Caller holds m_critSect (or is the destructor).
    void closeFile();
    // Switches to a new file in the same folder. Caller holds m_critSect.
    QEL_NO_EXPORT bool reopen();
    // The name for a new file in m_fileFolder that no file has yet, or an empty string.
    QEL_NO_EXPORT std::string freeFileName() const;
    // Whether the current file can take the buffer, starting a new file where it has to: the
    // one place where the writer decides that it needs a new file. Caller holds m_critSect.
    QEL_NO_EXPORT bool fileReady();
    // Writes the buffer into the current file, going on in new files at the limit; with
    // `fullFilesOnly` only what fills files up to the limit, the rest waiting in the buffer
    // for the file just begun. Dropped when no file can take it. Caller holds m_critSect.
    QEL_NO_EXPORT void writeOut(bool fullFilesOnly = false);
    // The part of writeOut() after fileReady(): the bytes of the buffer written or dropped.
    QEL_NO_EXPORT size_t writeAcrossFiles(bool fullFilesOnly);
    // Closes the current file and opens one in `folder`, keeping the writer's place in the
    // dispatch. 0, or the failure of the open. Caller holds WriterLock.
    QEL_NO_EXPORT int startIn(const char* folder);

    FileImpl* m_file;           // owned; guarded by m_critSect
    std::string m_fileFolder;   // guarded by m_critSect
    std::string m_fileName;     // guarded by m_critSect
    uint32_t m_maxFileSize;     // guarded by m_critSect
    std::string m_line;         // guarded by m_critSect; reused for every record
    std::string m_buffer;       // guarded by m_critSect; whole records not yet written
    bool m_newFileNeeded;       // guarded by m_critSect; the next write starts a new file
    uint64_t m_countedBytes;    // guarded by m_critSect; bytes the current file took while a
                                // limit was set, the count its file object keeps
    uint64_t m_retryPauseUs;    // guarded by m_critSect; 0 unless the last reopen failed
    uint64_t m_nextRetryUs;     // guarded by m_critSect; monotonic time of the next reopen
    CurrentFileWatch m_currentFile;  // guarded by m_critSect; is m_file still at its name
};

}  // namespace qel

#endif  // QEL_LOG_QEL_LOG_FILE_STREAM_H_
