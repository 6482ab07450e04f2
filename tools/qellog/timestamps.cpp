#include "timestamps.h"

#include <time.h>

#include <cstdio>
#include <cstring>

#include "numbers.h"

namespace qellog {
namespace {

constexpr std::int64_t kSecondMs = 1000, kMinuteMs = 60 * kSecondMs, kHourMs = 60 * kMinuteMs,
                       kDayMs = 24 * kHourMs;

std::int64_t floorDiv(std::int64_t a, std::int64_t b) {
    return a / b - ((a % b != 0) && ((a < 0) != (b < 0)));
}

// Exactly `count` digits at `text`, moved past them.
bool digits(const char*& text, int count, int& value) {
    value = 0;
    for (int i = 0; i < count; ++i, ++text) {
        if (!isDigit(*text)) return false;
        value = value * 10 + (*text - '0');
    }
    return true;
}

// "hh:mm[:ss[.fff]]" up to the end of `text`.
bool parseClock(const char* text, std::int64_t& msOfDay) {
    int hours, minutes, seconds = 0, millis = 0;
    if (!digits(text, 2, hours) || *text++ != ':' || !digits(text, 2, minutes)) return false;
    if (*text == ':') {
        ++text;
        if (!digits(text, 2, seconds)) return false;
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

bool recordLocalMs(const Record& record, std::int64_t& ms) {
    const char* date = record.date.c_str();
    int year, month, day;
    if (!record.headed || record.date.size() != 10 || !digits(date, 4, year) || *date++ != '-' ||
        !digits(date, 2, month) || *date++ != '-' || !digits(date, 2, day)) {
        return false;
    }
    ms = civilMs(year, month, day, record.header.msOfDay);
    return true;
}

std::int64_t localNowMs() {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    tm local;
    localtime_r(&now.tv_sec, &local);
    return civilMs(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                   ((local.tm_hour * 60 + local.tm_min) * 60 + local.tm_sec) * 1000 +
                       static_cast<int>(now.tv_nsec / 1000000));
}

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
    if (digits(at, 4, year) && *at++ == '-' && digits(at, 2, month) && *at++ == '-' &&
        digits(at, 2, day) && month >= 1 && month <= 12 && day >= 1 && day <= 31) {
        if (*at != '\0' && *at != ' ' && *at != 'T') return false;
        if (*at != '\0' && !parseClock(at + 1, offset)) return false;
        ms = civilMs(year, month, day, 0) + offset;
        return true;
    }
    if (!parseClock(text, offset)) return false;
    ms = floorDiv(nowMs, kDayMs) * kDayMs + offset;
    return true;
}

std::string plainTimestamp(std::int64_t ms) {
    const std::int64_t msOfDay = ms - floorDiv(ms, kDayMs) * kDayMs;
    char text[32];
    std::snprintf(text, sizeof(text), " %02d:%02d:%02d.%03d",
                  static_cast<int>(msOfDay / kHourMs), static_cast<int>(msOfDay / kMinuteMs % 60),
                  static_cast<int>(msOfDay / kSecondMs % 60), static_cast<int>(msOfDay % 1000));
    return civilDate(ms) + text;
}

std::string isoTimestamp(std::int64_t ms) {
    // The zone's offset at this local time; mktime() is costly, so one per hour is kept.
    static std::int64_t cachedHour = INT64_MIN;
    static long cachedOffset = 0;
    const std::int64_t hour = floorDiv(ms, kHourMs);
    std::string text = plainTimestamp(ms);
    if (hour != cachedHour) {
        tm local;
        std::memset(&local, 0, sizeof(local));
        std::sscanf(text.c_str(), "%d-%d-%d %d", &local.tm_year, &local.tm_mon, &local.tm_mday,
                    &local.tm_hour);
        local.tm_year -= 1900;
        local.tm_mon -= 1;
        local.tm_isdst = -1;
        mktime(&local);
        cachedHour = hour;
        cachedOffset = local.tm_gmtoff;
    }
    const long minutes = (cachedOffset < 0 ? -cachedOffset : cachedOffset) / 60;
    char zone[32];
    std::snprintf(zone, sizeof(zone), "%c%02ld:%02ld", cachedOffset < 0 ? '-' : '+',
                  minutes / 60, minutes % 60);
    text[10] = 'T';
    return text + zone;
}

}  // namespace qellog
