#include "time_spec.h"

#include <cstring>

#include "read/civil_time.h"
#include "read/text_cursor.h"

namespace qellog {
namespace {

// "hh:mm[:ss[.fff]]" up to the end of `text`.
bool parseClock(const char* text, std::int64_t& msOfDay) {
    int hours, minutes, seconds = 0, millis = 0;
    if (!readDigits(text, 2, hours) || *text++ != ':' || !readDigits(text, 2, minutes)) {
        return false;
    }
    if (*text == ':') {
        ++text;
        if (!readDigits(text, 2, seconds)) return false;
        if (*text == '.') {  // a decimal fraction: ".5" is half a second
            ++text;
            int scale = 100;
            if (!isDigit(*text)) return false;
            for (; isDigit(*text); ++text, scale /= 10) millis += (*text - '0') * scale;
        }
    }
    if (*text != '\0' || hours > 23 || minutes > 59 || seconds > 59) return false;
    msOfDay = hours * kHourMs + minutes * kMinuteMs + seconds * kSecondMs + millis;
    return true;
}

bool parseAgo(const char* text, std::int64_t& ago) {
    std::int64_t count = 0;
    const char* at = text;
    for (; isDigit(*at); ++at) {
        if (count > 1000000000) return false;
        count = count * 10 + (*at - '0');
    }
    if (at == text) return false;
    static const struct {
        const char* unit;
        std::int64_t ms;
    } kUnits[] = {{"s", kSecondMs}, {"sec", kSecondMs}, {"m", kMinuteMs}, {"min", kMinuteMs},
                  {"h", kHourMs},   {"hour", kHourMs},  {"hours", kHourMs}, {"d", kDayMs},
                  {"day", kDayMs},  {"days", kDayMs}};
    for (const auto& unit : kUnits) {
        if (std::strcmp(at, unit.unit) == 0) {
            ago = count * unit.ms;
            return true;
        }
    }
    return false;
}

}  // namespace

bool parseTimeSpec(const char* text, std::int64_t nowMs, std::int64_t& ms) {
    std::int64_t offset = 0;
    if (std::strcmp(text, "now") == 0) {
        ms = nowMs;
        return true;
    }
    if (text[0] == '-') {
        if (!parseAgo(text + 1, offset)) return false;
        ms = nowMs - offset;
        return true;
    }
    const char* at = text;
    int year, month, day;
    if (readDigits(at, 4, year) && *at++ == '-' && readDigits(at, 2, month) && *at++ == '-' &&
        readDigits(at, 2, day) && month >= 1 && month <= 12 && day >= 1 && day <= 31) {
        if (*at != '\0' && *at != ' ' && *at != 'T') return false;
        if (*at != '\0' && !parseClock(at + 1, offset)) return false;
        ms = civilMs(year, month, day, 0) + offset;
        return true;
    }
    if (!parseClock(text, offset)) return false;
    ms = floorDiv(nowMs, kDayMs) * kDayMs + offset;
    return true;
}

}  // namespace qellog
