#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <qel/error.h>
#include <qel/log.h>
#include <qel/thread.h>

#include "log/module_thresholds.h"
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

// Drops the end of a UTF-8 character that a cut at `length` bytes split, so that the text ends
// with whole characters: looks back over at most three continuation bytes for the character's
// first byte, and zeroes from there when that byte announces more bytes than the cut left.
// Other bytes stay as they are, so text that is not UTF-8 loses at most a last byte that looks
// like the first of a character.
template <size_t N>
void cutAtCharacterStart(char (&text)[N], size_t length) {
    const auto byte = [&text](size_t at) { return static_cast<unsigned char>(text[at]); };
    size_t start = length;
    while (start > 0 && length - start < 3 && (byte(start - 1) & 0xC0) == 0x80) {
        --start;
    }
    if (start == 0) {
        return;
    }
    // 110xxxxx starts a character of two bytes, 1110xxxx of three, 11110xxx of four.
    const unsigned char first = byte(start - 1);
    const size_t size = first >= 0xF8   ? 1
                        : first >= 0xF0 ? 4
                        : first >= 0xE0 ? 3
                        : first >= 0xC0 ? 2
                                        : 1;
    if (length - start + 1 < size) {
        memset(text + start - 1, 0, length - start + 1);
    }
}

// Formats the text into the zero-filled text field: cut at the field size less one like a
// copied text, and then at the start of the character the cut split. A NULL format, or one
// that the C library cannot format (a wide character with no multibyte form), leaves the
// field empty.
template <size_t N>
void formatField(char (&field)[N], const char* format, va_list args) {
    const int length = format != nullptr ? vsnprintf(field, N, format, args) : 0;
    if (length < 0) {
        memset(field, 0, N);
    } else if (static_cast<size_t>(length) >= N) {
        cutAtCharacterStart(field, N - 1);
    }
}

// The time of day of the local timestamp: the text after the last '-' of localTimeFormat(),
// made straight into the record, without the date and without a string on the heap.
void stampTime(LogMessage& msg) {
    static_assert(sizeof(msg.timeText) >= qel::kTimeOfDaySize, "the time of day must fit");
    qel::formatTimeOfDay(msg.timeText);
}

// Fills the record on this stack frame and hands it to the manager: its text is `text` as it
// comes or, with `args`, formatted from the format `text`. Kept out of line, so that a dropped
// record does not pay for setting up this frame.
__attribute__((noinline)) int stampAndDispatch(qel::QelLog& log, const char* module,
                                               QelLogLevel level, const char* file, int line,
                                               const char* function, const char* text,
                                               va_list* args) {
    LogMessage msg;
    memset(&msg, 0, sizeof(msg));
    copyField(msg.module, module);
    msg.level = level;
    copyField(msg.file, file);
    copyField(msg.function, function);
    if (args != nullptr) {
        formatField(msg.text, text, *args);
    } else {
        copyField(msg.text, text);
    }
    msg.line = line;
    stampTime(msg);
    msg.threadId = static_cast<unsigned int>(qel::ThreadWrapper::getThreadId());
    return log.dispatch(msg);
}

// The manager that takes a record of `module` at `level`, or null when the record is dropped:
// below its threshold, or where the manager must not be entered (log.h). A dropped record is
// neither stamped nor formatted: the stamp and the text are what a record costs.
qel::QelLog* recipient(const char* module, QelLogLevel level) {
    qel::QelLog* log = qel::QelLog::reachable();
    if (log == nullptr ||
        static_cast<int>(level) <
            qel::ModuleThresholds::thresholdFor(module, static_cast<int>(log->globalLevel()))) {
        return nullptr;
    }
    return log;
}

int writeRecord(const char* module, QelLogLevel level, const char* file, int line,
                const char* function, const char* text) {
    qel::QelLog* log = recipient(module, level);
    return log != nullptr
               ? stampAndDispatch(*log, module, level, file, line, function, text, nullptr)
               : 0;
}

int writeFormatted(const char* module, QelLogLevel level, const char* file, int line,
                   const char* function, const char* format, va_list args) {
    qel::QelLog* log = recipient(module, level);
    if (log == nullptr) {
        return 0;
    }
    va_list values;  // a parameter of array type is a pointer: its own copy can be pointed to
    va_copy(values, args);
    const int result = stampAndDispatch(*log, module, level, file, line, function, format, &values);
    va_end(values);
    return result;
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

QEL_EXPORT int qelLogFormat(const char* module, QelLogLevel level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int result = writeFormatted(module, level, nullptr, 0, nullptr, format, args);
    va_end(args);
    return result;
}

QEL_EXPORT int qelLogFormatV(const char* module, QelLogLevel level, const char* format,
                             va_list args) {
    return writeFormatted(module, level, nullptr, 0, nullptr, format, args);
}

QEL_EXPORT int qelLogWriteFormat(const char* module, QelLogLevel level, const char* file,
                                 int line, const char* function, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int result = writeFormatted(module, level, file, line, function, format, args);
    va_end(args);
    return result;
}

QEL_EXPORT int qelLogWriteFormatV(const char* module, QelLogLevel level, const char* file,
                                  int line, const char* function, const char* format,
                                  va_list args) {
    return writeFormatted(module, level, file, line, function, format, args);
}

}  // extern "C"
