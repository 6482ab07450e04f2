#ifndef QEL_LOG_QEL_LOG_FILE_STREAM_H_
#define QEL_LOG_QEL_LOG_FILE_STREAM_H_

#include <cstdint>
#include <string>

#include "log/qel_log_stream_base.h"

namespace qel {

// Appends log lines to log files in a folder. Every open creates a new file named
// "QelLog" + the local timestamp with ':' turned into '-' + ".log"; a file is never
// reopened, truncated or overwritten. When a line does not fit below the byte limit, the
// file is filled to exactly the limit and the line goes on in a new file; when the current
// file's name no longer leads to it (deleted, renamed, replaced by anything, its folder moved,
// a file system mounted over it), the next write starts a new one. Off until switched on.
// Reports nothing while writing: a record that cannot be written is dropped.
//
// Each record reaches the system before the call that logged it returns, unless the program
// asked for buffering (setMaxDelay): FileWriter says how records are written.
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

    // Closed, folder "./", limit 10485760 bytes, no buffering.
    QelLogFileStream();
    // Closes the current file.
    ~QelLogFileStream() override;

    // Writes the line of `msg` as the class comment says, rotating at the limit. Called by
    // the manager's signal, on the logging thread.
    void writeFormatLog(const LogMessage& msg) override;
    // Opens a new file in the folder and connects the writer. 0 when the writer is open
    // afterwards (also when it was open already); -1 with the error code 0x80300002 when
    // the file cannot be opened or process exit has begun, the writer staying closed.
    int openLog() override;
    // Writes out the buffer, closes the current file, forgets the folder (back to "./") and
    // disconnects the writer, releasing every descriptor it held; nothing happens when it is
    // closed.
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
    // 0: every record reaches the system before its call returns (the default). Otherwise
    // records may wait in a buffer for up to `maxDelayMs` milliseconds; what waits is written
    // out first when the mode changes.
    QEL_NO_EXPORT void setMaxDelay(unsigned int maxDelayMs);
    // Whether the writer learns of changes to its current file's path from the kernel (the
    // default) or walks the path before every write (see CurrentFileWatch).
    QEL_NO_EXPORT void useKernelReports(bool enabled);

    // Called by the manager's fork handlers with the signal lock held. Before the fork the
    // buffer is written out, so that a child never writes it a second time; in the child the
    // next record starts a new file.
    QEL_NO_EXPORT void prepareFork();
    QEL_NO_EXPORT void continueInChild();
    // At process exit or unload, after closeLog() and with the signal lock held, when no
    // other thread can reach the writer: frees what the writer holds.
    QEL_NO_EXPORT void release();

private:
    // Opens a new file in the folder. 0 on success, else the reason (an errno value). Caller
    // holds m_critSect.
    int openFile();
    // Closes the current file, resetting the folder to "./". Buffered records are not
    // written. Caller holds m_critSect (or is the destructor).
    void closeFile();
    // Closes the current file and opens one in `folder`, keeping the writer's place in the
    // dispatch. 0, or the failure of the open. Caller holds WriterLock.
    QEL_NO_EXPORT int startIn(const char* folder);
    // The buffered mode's deadline has come: writes out what waits. Called by its thread.
    QEL_NO_EXPORT static void flushDue(void* stream);

    // The writer's state: a FileWriter, owned; guarded by m_critSect. Opaque here, so that no
    // change of it is a change of this exported class's binary interface.
    void* m_state;
};

}  // namespace qel

#endif  // QEL_LOG_QEL_LOG_FILE_STREAM_H_
