#ifndef QELLOG_READ_RECORD_FILTER_H_
#define QELLOG_READ_RECORD_FILTER_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "record.h"

namespace re2 {
class RE2;
}

namespace qellog {

// A level's letter or word, any case, into the letter: V, verbose or debug; I, info or
// information; W, warn or warning; E, err or error. Returns false for anything else.
bool parseLevelName(const char* text, char& letter);
// A level (see parseLevelName) for that level and above, or a range "LOW..HIGH" with either
// end left out for no bound ("W..E", "I..W", "..W"). Returns false for anything else, and for a
// range whose low end is above its high end; `min`/`max` are 0 for no bound.
bool parseLevelRange(const char* text, char& min, char& max);

// Which records cat, follow and stats let through; every condition set must hold. A piece
// (bytes that are not a record) has no level, module, thread or time: only --grep can select
// it, and only when no other condition is set.
class RecordFilter {
public:
    char minLevel = 0;                 // 0: any level; else this letter and the ones above it
    char maxLevel = 0;                 // 0: any level; else this letter and the ones below it
    std::vector<std::string> modules;  // shell patterns, one of which the module matches
    bool hasSince = false, hasUntil = false;
    std::int64_t since = 0, until = 0;  // real times (ms since 1970, UTC), both ends included
    bool hasThreadId = false;
    unsigned long threadId = 0;

    // Sets the extended regular expression that the text must hold somewhere, matched byte by
    // byte in time linear in the text and within a fixed memory budget. Returns false, with the
    // reason in `error`, for a pattern that does not compile or needs more than the matcher
    // takes (a back-reference, a repetition above 1000 or one too large for the budget).
    bool setPattern(const std::string& pattern, bool ignoreCase, std::string& error);
    bool matches(const Record& record) const;

private:
    bool headerMatches(const Record& record) const;
    std::shared_ptr<const re2::RE2> m_pattern;
};

}  // namespace qellog

#endif  // QELLOG_READ_RECORD_FILTER_H_
