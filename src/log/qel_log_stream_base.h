#ifndef QEL_LOG_QEL_LOG_STREAM_BASE_H_
#define QEL_LOG_QEL_LOG_STREAM_BASE_H_

#include <string>

#include <qel/critical_section.h>
#include <qel/export.h>
#include <qel/log.h>

#include "sigslot/sigslot.h"

namespace qel {

// The signal over which the log manager hands finished records to its writers.
using LogSignal = sigslot::signal1<const LogMessage&, sigslot::multi_threaded_local>;

// The common base of the log writers. A writer is a receiver of the manager's signal:
// while it is open (connected), every record that passes the threshold reaches its
// writeFormatLog on the thread that logged it. The base owns the one line format of the
// system, so that the console and the log files carry identical lines.
//
// Locks: the order is written in writer_lock.h. A dispatch holds the signal lock while it
// calls the writers; openLog and closeLog take both through WriterLock.
class QEL_EXPORT QelLogStreamBase : public sigslot::has_slots<sigslot::single_threaded> {
public:
    // A writer starts closed and unconnected, with its own recursive critical section.
    QelLogStreamBase();
    // Releases the critical section; the receiver base then detaches the writer from
    // every signal still connected to it. Close the writer before destroying it.
    ~QelLogStreamBase() override;
    QelLogStreamBase(const QelLogStreamBase&) = delete;
    QelLogStreamBase& operator=(const QelLogStreamBase&) = delete;

    // Formats one record and outputs it; the slot connected to the manager's signal.
    virtual void writeFormatLog(const LogMessage& msg) = 0;
    // Starts delivery of records to this writer: 0 on success, -1 on failure.
    virtual int openLog() = 0;
    // Stops delivery of records to this writer; nothing happens when it is closed.
    virtual void closeLog() = 0;
    // Replaces the whole content of `line` with the log line of `msg`:
    // "[module][V1.8.63 L time tid]text" and two line feeds. A level outside 0..3 shows
    // "?" in place of its letter. Takes no lock and only reads `msg`.
    virtual void formatLog(const LogMessage& msg, std::string& line);

    // True while the writer is connected to the manager's signal.
    bool isOpen() const { return m_isOpen; }
    // The writer's own lock, taken around every write, open and close.
    CriticalSectionWrapper& critSect() { return *m_critSect; }

protected:
    friend class QelLog;  // the manager connects the console writer while it is built

    // Capacity reserved for one line: a header and a text of maximal length fit without
    // growing the string.
    static constexpr size_t kLineCapacity = 3084;

    bool m_isOpen;                     // guarded by m_critSect and the signal lock
    CriticalSectionWrapper* m_critSect;  // owned
};

}  // namespace qel

#endif  // QEL_LOG_QEL_LOG_STREAM_BASE_H_
