#ifndef QELLOG_PUMP_H_
#define QELLOG_PUMP_H_

#include <qel/log.h>

#include <cstddef>

namespace qellog {

// A record's text holds this many bytes; longer text continues in the next records.
constexpr std::size_t kRecordTextSize = sizeof(LogMessage::text) - 1;

// How many of the `length` bytes at `text` go into one record: all when they fit, else
// kRecordTextSize, or up to three bytes fewer so that a UTF-8 character is not cut in two.
std::size_t recordCut(const char* text, std::size_t length);

// Logs the `length` bytes at `text` as one record, or as consecutive records of up to
// kRecordTextSize bytes cut by recordCut when it does not fit one; an empty text is one
// empty record. A NUL byte would end a record's text early, so each one is turned into a space
// in place. text[length] must be writable: it is borrowed as the terminator and restored.
void logText(const char* module, QelLogLevel level, char* text, std::size_t length);

// Reads `fd` until its end and logs every line through logText, without the line feed that
// ends it. A last line without a line feed is logged too. Returns 0, or the errno of a failed
// read (the lines read before it are logged).
int logLines(int fd, const char* module, QelLogLevel level);

}  // namespace qellog

#endif  // QELLOG_PUMP_H_
