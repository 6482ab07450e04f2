#ifndef QEL_LOG_QEL_LOG_CONSOLE_STREAM_H_
#define QEL_LOG_QEL_LOG_CONSOLE_STREAM_H_

#include <string>

#include "log/qel_log_stream_base.h"

namespace qel {

// Prints log lines on standard output and flushes every output stream of the process after
// each record, so that a line is visible at once. On from the start: the manager connects
// it when it is created. Reports nothing; a line that cannot be printed is lost quietly,
// and a reader of standard output that went away never ends the process by SIGPIPE.
class QEL_EXPORT QelLogConsoleStream : public QelLogStreamBase {
public:
    QelLogConsoleStream();
    ~QelLogConsoleStream() override;

    // Prints the line of `msg` and flushes all output streams. Called by the manager's
    // signal, on the logging thread.
    void writeFormatLog(const LogMessage& msg) override;
    // Connects the writer to the manager's signal (at the end of the dispatch order) unless
    // it is connected already. Always 0.
    int openLog() override;
    // Disconnects the writer unless it is closed already.
    void closeLog() override;

private:
    std::string m_line;  // guarded by m_critSect; reused for every record
};

}  // namespace qel

#endif  // QEL_LOG_QEL_LOG_CONSOLE_STREAM_H_
