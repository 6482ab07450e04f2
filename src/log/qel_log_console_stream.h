#ifndef QEL_LOG_QEL_LOG_CONSOLE_STREAM_H_
#define QEL_LOG_QEL_LOG_CONSOLE_STREAM_H_

#include <string>

#include "log/qel_log_stream_base.h"

namespace qel {

// Prints log lines on standard output and flushes standard output after each record, so that
// a line is visible at once; no other stream of the program is touched. On from the start: the
// manager connects it when it is created. Reports nothing; a line that cannot be printed is
// lost quietly, and a reader of standard output that went away never ends the process by
// SIGPIPE.
class QEL_EXPORT QelLogConsoleStream : public QelLogStreamBase {
public:
    QelLogConsoleStream();
    ~QelLogConsoleStream() override;

    // Prints the line of `msg` and flushes standard output. Called by the manager's signal,
    // on the logging thread.
    void writeFormatLog(const LogMessage& msg) override;
    // Connects the writer to the manager's signal (at the end of the dispatch order) unless
    // it is connected already or process exit has begun. Always 0.
    int openLog() override;
    // Disconnects the writer unless it is closed already.
    void closeLog() override;
    // At process exit or unload, after closeLog() and with the signal lock held, when no
    // other thread can reach the writer: frees what the writer holds.
    QEL_NO_EXPORT void release();

private:
    std::string m_line;  // guarded by m_critSect; reused for every record
};

}  // namespace qel

#endif  // QEL_LOG_QEL_LOG_CONSOLE_STREAM_H_
