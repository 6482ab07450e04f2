#ifndef QELLOG_READ_RECORD_FILTER_H_
#define QELLOG_READ_RECORD_FILTER_H_

#include <regex.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "record.h"

namespace qellog {

// "V", "I", "W", "E" or "verbose", "info", "warning", "error", any case, into the level letter.
// Returns false for anything else.
bool parseLevelName(const char* text, char& letter);

// Which records cat, follow and stats let through; every condition set must hold. A piece
// (bytes that are not a record) has no level, module, thread or time: only --grep can select
// it, and only when no other condition is set.
class RecordFilter {
public:
    char minLevel = 0;                 // 0: any level; else this letter and the ones above it
    std::vector<std::string> modules;  // shell patterns, one of which the module matches
    bool hasSince = false, hasUntil = false;
    std::int64_t since = 0, until = 0;  // real times (ms since 1970, UTC), both ends included
    bool hasThreadId = false;
    unsigned long threadId = 0;

    // Sets the extended regular expression that the text must hold somewhere. Returns false,
    // with the reason in `error`, when it does not compile.
    bool setPattern(const std::string& pattern, bool ignoreCase, std::string& error);
    bool matches(const Record& record) const;

private:
    bool headerMatches(const Record& record) const;
    std::shared_ptr<regex_t> m_pattern;
};

}  // namespace qellog

#endif  // QELLOG_READ_RECORD_FILTER_H_
