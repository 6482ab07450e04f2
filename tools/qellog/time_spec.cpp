#include "time_spec.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

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

}  // namespace

bool parseDuration(const char* text, std::int64_t defaultUnitMs, std::int64_t& ms) {
    static const struct {
        const char* unit;
        std::int64_t ms;
    } kUnits[] = {{"s", kSecondMs}, {"sec", kSecondMs}, {"m", kMinuteMs},  {"min", kMinuteMs},
                  {"h", kHourMs},   {"hour", kHourMs},  {"hours", kHourMs}, {"d", kDayMs},
                  {"day", kDayMs},  {"days", kDayMs},   {"w", 7 * kDayMs},  {"week", 7 * kDayMs},
                  {"weeks", 7 * kDayMs}};
    // Digits and a decimal point only: no sign, no space, no exponent, no "inf".
    const char* end = text;
    while (isDigit(*end) || *end == '.') ++end;
    const std::string number(text, end);
    char* numberEnd = nullptr;
    const double count = std::strtod(number.c_str(), &numberEnd);
    if (number.empty() || *numberEnd != '\0') return false;
    std::int64_t unitMs = *end == '\0' ? defaultUnitMs : 0;
    for (const auto& unit : kUnits) {
        if (std::strcmp(end, unit.unit) == 0) unitMs = unit.ms;
    }
    if (unitMs == 0 || !(count * unitMs <= 1e6 * 365 * kDayMs)) return false;
    ms = static_cast<std::int64_t>(std::llround(count * static_cast<double>(unitMs)));
    return true;
}

bool parseTimeSpec(const char* text, std::int64_t nowMs, std::int64_t& ms) {
    std::int64_t offset = 0;
    const std::int64_t today = floorDiv(nowMs, kDayMs) * kDayMs;
    if (std::strcmp(text, "now") == 0) {
        ms = nowMs;
        return true;
    }
    if (std::strcmp(text, "today") == 0 || std::strcmp(text, "yesterday") == 0) {
        ms = text[0] == 't' ? today : today - kDayMs;
        return true;
    }
    if (text[0] == '-') {
        if (!parseDuration(text + 1, 0, offset)) return false;
        ms = nowMs - offset;
        return true;
    }
    const char* at = text;
    int year, month, day;
    if (readDigits(at, 4, year) && *at++ == '-' && readDigits(at, 2, month) && *at++ == '-' &&
        readDigits(at, 2, day)) {
        if (*at != '\0' && *at != ' ' && *at != 'T') return false;
        if (*at != '\0' && !parseClock(at + 1, offset)) return false;
        // A day the calendar has comes back as itself: 2026-02-30 would come back as March 2.
        const std::int64_t midnight = civilMs(year, month, day, 0);
        if (month < 1 || month > 12 || civilDate(midnight) != std::string(text, 10)) return false;
        ms = midnight + offset;
        return true;
    }
    if (!parseClock(text, offset)) return false;
    ms = today + offset;
    return true;
}

}  // namespace qellog
