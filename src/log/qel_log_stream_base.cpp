#include "log/qel_log_stream_base.h"

#include <cstdio>
#include <cstring>

#include <qel/version.h>

#include "platform/decimal_text.h"

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

#define QEL_TEXT_OF(value) #value
#define QEL_TEXT(value) QEL_TEXT_OF(value)
// What the header carries between the module and the level letter.
constexpr char kVersionText[] = "][V" QEL_TEXT(QEL_VERSION_MAJOR) "." QEL_TEXT(
    QEL_VERSION_MINOR) "." QEL_TEXT(QEL_VERSION_PATCH) " ";
#undef QEL_TEXT
#undef QEL_TEXT_OF

// Copies a record field up to its terminating zero byte, or its whole size, to `out`.
template <size_t N>
char* appendField(char* out, const char (&field)[N]) {
    const size_t length = strnlen(field, N);
    memcpy(out, field, length);
    return out + length;
}

// Letters longer than this (LEVELSTRING is writable) take the general path of the header.
constexpr size_t kLongestQuickLetter = 64;

// The header "[%s][V%d.%d.%d %s %s %u]" of `msg` in `header`, cut at 1023 characters and
// terminated; returns its length. It is put together piece by piece: the same characters,
// without a format to parse. Each field is bounded by its size in the record, so with a
// letter of ordinary length the header stays far below its limit.
size_t formatHeader(const LogMessage& msg, char (&header)[1024]) {
    const char* letter = levelLetter(msg.level);
    const size_t letterLength = letter != nullptr ? strnlen(letter, kLongestQuickLetter + 1) : 0;
    if (letter == nullptr || letterLength > kLongestQuickLetter) {
        const int length = snprintf(header, sizeof(header), "[%.*s][V%d.%d.%d %s %.*s %u]",
                                    static_cast<int>(strnlen(msg.module, sizeof(msg.module))),
                                    msg.module, QEL_VERSION_MAJOR, QEL_VERSION_MINOR,
                                    QEL_VERSION_PATCH, letter,
                                    static_cast<int>(strnlen(msg.timeText, sizeof(msg.timeText))),
                                    msg.timeText, msg.threadId);
        if (length < 0) {
            header[0] = '\0';
            return 0;
        }
        return static_cast<size_t>(length) < sizeof(header) ? static_cast<size_t>(length)
                                                            : sizeof(header) - 1;
    }
    char* out = header;
    *out++ = '[';
    out = appendField(out, msg.module);
    memcpy(out, kVersionText, sizeof(kVersionText) - 1);
    out += sizeof(kVersionText) - 1;
    memcpy(out, letter, letterLength);
    out += letterLength;
    *out++ = ' ';
    out = appendField(out, msg.timeText);
    *out++ = ' ';
    out = putDecimal(out, msg.threadId);
    *out++ = ']';
    *out = '\0';
    return static_cast<size_t>(out - header);
}

}  // namespace

QelLogStreamBase::QelLogStreamBase() : m_isOpen(false), m_critSect(CriticalSectionWrapper::create()) {}

QelLogStreamBase::~QelLogStreamBase() {
    delete m_critSect;
    m_critSect = nullptr;
}

void QelLogStreamBase::formatLog(const LogMessage& msg, std::string& line) {
    char header[1024];
    const size_t headerLength = formatHeader(msg, header);
    line.assign(header, headerLength);
    line.append(msg.text, strnlen(msg.text, sizeof(msg.text)));
    line.append("\n\n", 2);
}

}  // namespace qel
