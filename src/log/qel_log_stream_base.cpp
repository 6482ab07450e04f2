#include "log/qel_log_stream_base.h"

#include <cstdio>
#include <cstring>

#include <qel/version.h>

extern "C" {
const char* LEVELSTRING[4] = {"V", "I", "W", "E"};
}

namespace qel {

namespace {

// The letter of a level; levels without a letter show "?" so that the table is never read
// out of bounds.
const char* levelLetter(QelLogLevel level) {
    const int index = static_cast<int>(level);
    return index >= 0 && index < 4 ? LEVELSTRING[index] : "?";
}

}  // namespace

QelLogStreamBase::QelLogStreamBase() : m_isOpen(false), m_critSect(CriticalSectionWrapper::create()) {}

QelLogStreamBase::~QelLogStreamBase() {
    delete m_critSect;
    m_critSect = nullptr;
}

void QelLogStreamBase::formatLog(const LogMessage& msg, std::string& line) {
    char header[1024];
    int length = snprintf(header, sizeof(header), "[%s][V%d.%d.%d %s %s %u]", msg.module,
                          QEL_VERSION_MAJOR, QEL_VERSION_MINOR, QEL_VERSION_PATCH,
                          levelLetter(msg.level), msg.timeText, msg.threadId);
    if (length < 0) {
        length = 0;
    } else if (length >= static_cast<int>(sizeof(header))) {
        length = sizeof(header) - 1;
    }
    line.assign(header, static_cast<size_t>(length));
    line.append(msg.text, strnlen(msg.text, sizeof(msg.text)));
    line.append("\n\n", 2);
}

}  // namespace qel
