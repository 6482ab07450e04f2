#include "record_filter.h"

#include <fnmatch.h>
#include <re2/re2.h>
#include <strings.h>

#include <cstring>


namespace qellog {
namespace {

const char kLevels[] = "VIWE";  // lowest first
// What a --grep pattern may take: its compiled program and the matcher's caches together.
constexpr std::int64_t kPatternMemory = 16 << 20;

}  // namespace

bool parseLevelName(const char* text, char& letter) {
    static const struct {
        const char* name;
        char letter;
    } kNames[] = {{"v", 'V'},    {"verbose", 'V'}, {"debug", 'V'},       {"i", 'I'},
                  {"info", 'I'}, {"information", 'I'}, {"w", 'W'},       {"warn", 'W'},
                  {"warning", 'W'}, {"e", 'E'},     {"err", 'E'},        {"error", 'E'}};
    for (const auto& name : kNames) {
        if (strcasecmp(text, name.name) == 0) {
            letter = name.letter;
            return true;
        }
    }
    return false;
}

bool parseLevelRange(const char* text, char& min, char& max) {
    const char* dots = std::strstr(text, "..");
    if (dots == nullptr) {
        max = 0;
        return parseLevelName(text, min);
    }
    const std::string low(text, dots), high(dots + 2);
    min = max = 0;
    if (low.empty() && high.empty()) return false;
    if (!low.empty() && !parseLevelName(low.c_str(), min)) return false;
    if (!high.empty() && !parseLevelName(high.c_str(), max)) return false;
    return min == 0 || max == 0 || std::strchr(kLevels, min) <= std::strchr(kLevels, max);
}

bool RecordFilter::setPattern(const std::string& pattern, bool ignoreCase, std::string& error) {
    // Extended regular expressions read as the C library reads them without a locale: bytes,
    // "." matching a line feed too, "^" and "$" at the ends of the text only. The GNU habits
    // \w, \s, \d and \b are taken as well.
    re2::RE2::Options options;
    options.set_encoding(re2::RE2::Options::EncodingLatin1);
    options.set_posix_syntax(true);
    options.set_perl_classes(true);
    options.set_word_boundary(true);
    options.set_one_line(true);
    options.set_dot_nl(true);
    options.set_never_capture(true);
    options.set_case_sensitive(!ignoreCase);
    options.set_log_errors(false);
    options.set_max_mem(kPatternMemory);
    std::shared_ptr<const re2::RE2> compiled = std::make_shared<const re2::RE2>(pattern, options);
    if (compiled->ok()) {
        m_pattern = std::move(compiled);
        return true;
    }
    switch (compiled->error_code()) {
        case re2::RE2::ErrorRepeatSize:
            error = "a repetition count above 1000 (counted repetitions multiply when nested)";
            break;
        case re2::RE2::ErrorPatternTooLarge:
            error = "the pattern needs more than the matcher's " +
                    std::to_string(kPatternMemory >> 20) + " MiB";
            break;
        default:
            error = compiled->error();
            if (compiled->error_code() == re2::RE2::ErrorBadEscape &&
                compiled->error_arg().size() == 2 && compiled->error_arg()[1] >= '1' &&
                compiled->error_arg()[1] <= '9') {
                error += " (back-references are not supported: they cannot be matched in "
                         "linear time)";
            }
            break;
    }
    return false;
}

bool RecordFilter::headerMatches(const Record& record) const {
    if (minLevel != 0 || maxLevel != 0) {
        // A level without a letter ('?') is within no bound.
        const char* level =
            record.header.level == '\0' ? nullptr : std::strchr(kLevels, record.header.level);
        if (level == nullptr || (minLevel != 0 && level < std::strchr(kLevels, minLevel)) ||
            (maxLevel != 0 && level > std::strchr(kLevels, maxLevel))) {
            return false;
        }
    }
    if (!modules.empty()) {
        bool any = false;
        const std::string module(record.header.module);
        for (const std::string& pattern : modules) {
            any = any || fnmatch(pattern.c_str(), module.c_str(), 0) == 0;
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
    const bool headerSelects = minLevel != 0 || maxLevel != 0 || !modules.empty() ||
                               hasThreadId || hasSince || hasUntil;
    if (headerSelects && (!record.headed || !headerMatches(record))) return false;
    if (!m_pattern) return true;
    return re2::RE2::PartialMatch(
        re2::StringPiece(record.bytes.data() + record.textBegin, record.textEnd - record.textBegin),
        *m_pattern);
}

}  // namespace qellog
