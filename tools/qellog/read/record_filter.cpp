#include "record_filter.h"

#include <fnmatch.h>
#include <strings.h>

#include <cstring>


namespace qellog {
namespace {

const char kLevels[] = "VIWE";  // lowest first

}  // namespace

bool parseLevelName(const char* text, char& letter) {
    static const char* const kNames[] = {"verbose", "info", "warning", "error"};
    for (int i = 0; i < 4; ++i) {
        const char single[2] = {kLevels[i], '\0'};
        if (strcasecmp(text, single) == 0 || strcasecmp(text, kNames[i]) == 0) {
            letter = kLevels[i];
            return true;
        }
    }
    return false;
}

bool RecordFilter::setPattern(const std::string& pattern, bool ignoreCase, std::string& error) {
    std::unique_ptr<regex_t> compiled(new regex_t);
    const int result =
        regcomp(compiled.get(), pattern.c_str(), REG_EXTENDED | (ignoreCase ? REG_ICASE : 0));
    if (result != 0) {
        char reason[256];
        regerror(result, compiled.get(), reason, sizeof(reason));
        error = reason;
        return false;
    }
    m_pattern.reset(compiled.release(), [](regex_t* r) {
        regfree(r);
        delete r;
    });
    return true;
}

bool RecordFilter::headerMatches(const Record& record) const {
    if (minLevel != 0) {
        const char* level = std::strchr(kLevels, record.header.level);
        if (level == nullptr || record.header.level == '\0' ||
            level < std::strchr(kLevels, minLevel)) {
            return false;
        }
    }
    if (!modules.empty()) {
        bool any = false;
        for (const std::string& pattern : modules) {
            any = any || fnmatch(pattern.c_str(), record.header.module.c_str(), 0) == 0;
        }
        if (!any) return false;
    }
    if (hasThreadId && record.header.threadId != threadId) return false;
    if (hasSince || hasUntil) {
        const std::int64_t ms = record.utcMs;
        if (!record.timed || (hasSince && ms < since) || (hasUntil && ms > until)) {
            return false;
        }
    }
    return true;
}

bool RecordFilter::matches(const Record& record) const {
    const bool headerSelects = minLevel != 0 || !modules.empty() || hasThreadId || hasSince ||
                               hasUntil;
    if (headerSelects && (!record.headed || !headerMatches(record))) return false;
    if (!m_pattern) return true;
    regmatch_t range[1];
    range[0].rm_so = 0;  // the text may hold NUL bytes: its length bounds it
    range[0].rm_eo = static_cast<regoff_t>(record.textEnd - record.textBegin);
    return regexec(m_pattern.get(), record.bytes.c_str() + record.textBegin, 1, range,
                   REG_STARTEND) == 0;
}

}  // namespace qellog
