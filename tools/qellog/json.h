#ifndef QELLOG_JSON_H_
#define QELLOG_JSON_H_

#include <cstddef>
#include <string>

#include "read/record.h"

namespace qellog {

// Appends `size` bytes as a JSON string, quotes included. Line breaks and other control
// characters are escaped; a byte that is not part of valid UTF-8 becomes U+FFFD, so the result
// is always valid JSON.
void appendJsonString(std::string& out, const char* data, std::size_t size);

// One record as a JSON object on one line (no line feed): module, version, level, time, tid,
// text, file, date, ts (the real time of the record with an offset: see shownTimestamp). A
// piece that holds no record has empty header fields, an empty ts and a null tid.
std::string recordJson(const Record& record);

}  // namespace qellog

#endif  // QELLOG_JSON_H_
