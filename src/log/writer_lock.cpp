#include "log/writer_lock.h"

#include "log/qel_log.h"

namespace qel {

thread_local bool SignalLockMark::t_held = false;

WriterLock::WriterLock(QelLogStreamBase& writer)
    : m_signal(QelLog::getInstance().logSignal()),
      m_signalLock(&m_signal),
      m_writerLock(writer.critSect()) {}

}  // namespace qel
