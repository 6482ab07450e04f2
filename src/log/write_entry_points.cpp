#include <cstdio>
#include <cstring>

#include <qel/error.h>
#include <qel/log.h>
#include <qel/thread.h>

#include "log/qel_log.h"
#include "platform/time_text.h"

namespace {

// Copies `source` into a zero-filled record field, cut at the field size less one so that
// the field stays terminated, as bounded formatting with "%s" would; NULL leaves the field
// empty. The source is scanned once, and never further than the field can hold.
template <size_t N>
void copyField(char (&field)[N], const char* source) {
    if (source != nullptr) {
        memcpy(field, source, strnlen(source, N - 1));
    }
}

// The time of day of the local timestamp: the text after the last '-' of localTimeFormat(),
// made straight into the record, without the date and without a string on the heap.
void stampTime(LogMessage& msg) {
    static_assert(sizeof(msg.timeText) >= qel::kTimeOfDaySize, "the time of day must fit");
    qel::formatTimeOfDay(msg.timeText);
}

// Fills the record on this stack frame and hands it to the manager. Kept out of line, so
// that a dropped record does not pay for setting up this frame.
__attribute__((noinline)) int stampAndDispatch(qel::QelLog& log, const char* module,
                                               QelLogLevel level, const char* file, int line,
                                               const char* function, const char* text) {
    LogMessage msg;
    memset(&msg, 0, sizeof(msg));
    copyField(msg.module, module);
    msg.level = level;
    copyField(msg.file, file);
    copyField(msg.function, function);
    copyField(msg.text, text);
    msg.line = line;
    stampTime(msg);
    msg.threadId = static_cast<unsigned int>(qel::ThreadWrapper::getThreadId());
    return log.writeFormatLog(msg);
}

int writeRecord(const char* module, QelLogLevel level, const char* file, int line,
                const char* function, const char* text) {
    qel::QelLog* log = qel::QelLog::reachable();
    // A record below the threshold is dropped before it is stamped: it would be dropped by
    // the dispatch anyway, and the stamp is what a record costs. Where the manager must not be
    // entered, the record is dropped as well (log.h).
    if (log == nullptr || static_cast<int>(level) < static_cast<int>(log->globalLevel())) {
        return 0;
    }
    return stampAndDispatch(*log, module, level, file, line, function, text);
}

}  // namespace

extern "C" {

QEL_EXPORT int qelLogWrite(const char* module, QelLogLevel level, const char* file, int line,
                           const char* function, const char* text) {
    return writeRecord(module, level, file, line, function, text);
}

QEL_EXPORT int qelLogSimplify(const char* module, QelLogLevel level, const char* text) {
    return writeRecord(module, level, nullptr, 0, nullptr, text);
}

QEL_EXPORT int qelLogErrno(const char* module) {
    const int code = *ErrnoLocal();
    if (code == 0) {
        return 0;
    }
    char text[128] = {0};
    snprintf(text, sizeof(text), "Errno:0x%x", static_cast<unsigned int>(code));
    return qelLogSimplify(module, QEL_LOG_ERROR, text);
}

}  // extern "C"
