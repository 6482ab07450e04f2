#include <cstdio>
#include <cstring>
#include <string>

#include <qel/error.h>
#include <qel/log.h>
#include <qel/thread.h>
#include <qel/timeutils.h>

#include "log/qel_log.h"

namespace {

// Copies `source` into a record field by bounded formatting: cut at the field size less one,
// always terminated; NULL gives an empty field.
template <size_t N>
void copyField(char (&field)[N], const char* source) {
    if (source != nullptr) {
        snprintf(field, N, "%s", source);
    }
}

// The time of day of the local timestamp: the text after its last '-', or all of it.
void stampTime(LogMessage& msg) {
    const std::string timestamp = qel::localTimeFormat();
    const size_t dash = timestamp.rfind('-');
    const char* timeOfDay = timestamp.c_str() + (dash == std::string::npos ? 0 : dash + 1);
    copyField(msg.timeText, timeOfDay);
}

int writeRecord(const char* module, QelLogLevel level, const char* file, int line,
                const char* function, const char* text) {
    if (qel::QelLog::isShutDown()) {
        return 0;  // the process is exiting and the writers are gone: the record is dropped
    }
    qel::QelLog& log = qel::QelLog::getInstance();
    // A record below the threshold is dropped before it is stamped: it would be dropped by
    // the dispatch anyway, and the stamp is what a record costs.
    if (static_cast<int>(level) < static_cast<int>(log.globalLevel())) {
        return 0;
    }
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
