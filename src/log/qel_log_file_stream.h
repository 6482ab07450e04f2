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
// file's name no longer leads to it (deleted, renamed, replaced by anything, its folder moved), the
// next record starts a new one. Off until switched on.
// Reports nothing while writing: a record that cannot be written is dropped.
//
// New files are created exclusively and closed on exec: a name taken by anything, a
// planted file or symbolic link included, is skipped as in a name collision. Warning and
// error records are pushed to the system before the call returns, so that they survive a
// crash of the process; lower levels wait in the stream's buffer. A child made by fork
// continues in a new file of its own, and a file that has failed to take bytes (a full
// disk, a file size limit of the process) is not replaced by new files in a loop.
class QEL_EXPORT QelLogFileStream : public QelLogStreamBase {
public:
    // Closed, folder "./", limit 10485760 bytes.
    QelLogFileStream();
    // Closes the current file. The manager closes the writer before destroying it.
    ~QelLogFileStream() override;

    // Writes the line of `msg` into the current file, rotating at the limit. Called by the
    // manager's signal, on the logging thread.
    void writeFormatLog(const LogMessage& msg) override;
    // Opens a new file in the folder and connects the writer. 0 when the writer is open
    // afterwards (also when it was open already); -1 with the error code 0x80300002 when
    // the file cannot be opened, the writer staying closed.
    int openLog() override;
    // Closes the current file, forgets the folder (back to "./") and disconnects the writer;
    // nothing happens when it is closed.
    void closeLog() override;

    // Sets the folder for the next file; NULL changes nothing. Meant for a closed writer.
    // Takes the signal lock, then the writer's.
    void setFileFolder(const char* folder);
    // Sets the byte limit of every file, applied at once to the current file; 0 removes the
    // limit. Safe against concurrent writes. Takes the signal lock, then the writer's.
    void setMaxFileSize(uint32_t maxSize);
    // The path of a new file in `folder` named by the current local time.
    static std::string formatFileName(const std::string& folder);

    // Called by the manager's fork handlers with the signal lock held. Before the fork the
    // current file's buffered bytes are pushed to the system, so that a child never writes
    // them a second time; in the child the next record starts a new file.
    QEL_NO_EXPORT void prepareFork();
    QEL_NO_EXPORT void continueInChild();

    // The folder for new files.
    const std::string& fileFolder() const { return m_fileFolder; }
    // The path that the last open tried; empty before any.
    const std::string& fileName() const { return m_fileName; }

private:
    // Opens a new file in m_fileFolder, never reusing an existing name. 0 on success, else
    // the file object's failure. Caller holds m_critSect.
    int openFile();
    // Closes and deletes the file object, resetting the folder to "./". Caller holds
    // m_critSect (or is the destructor).
    void closeFile();
    // Switches to a new file in the same folder. Caller holds m_critSect.
    bool reopen();
    // The name for a new file in m_fileFolder that no file has yet, or an empty string.
    std::string freeFileName() const;
    // After a write or flush that failed: a file that holds bytes is left for a new one at
    // the next record; a file that took nothing is kept. Caller holds m_critSect.
    QEL_NO_EXPORT void handleWriteError();

    FileImpl* m_file;           // owned; guarded by m_critSect
    std::string m_fileFolder;   // guarded by m_critSect
    std::string m_fileName;     // guarded by m_critSect
    uint32_t m_maxFileSize;     // guarded by m_critSect
    std::string m_line;         // guarded by m_critSect; reused for every record
    bool m_newFileNeeded;       // guarded by m_critSect; the next record starts a new file
    uint64_t m_retryPauseUs;    // guarded by m_critSect; 0 unless the last reopen failed
    uint64_t m_nextRetryUs;     // guarded by m_critSect; monotonic time of the next reopen
    CurrentFileWatch m_currentFile;  // guarded by m_critSect; is m_file still at its name
};

}  // namespace qel

#endif  // QEL_LOG_QEL_LOG_FILE_STREAM_H_
