#include "civil_time.h"

#include <time.h>

#include <cstdio>
#include <cstring>

#include "text_cursor.h"

namespace qellog {
namespace {

std::int64_t daysFromCivil(int year, int month, int day) {
    year -= month <= 2;
    const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    const std::int64_t yoe = year - era * 400;
    const std::int64_t doy = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const std::int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

}  // namespace

std::int64_t floorDiv(std::int64_t a, std::int64_t b) {
    return a / b - ((a % b != 0) && ((a < 0) != (b < 0)));
}

std::int64_t civilMs(int year, int month, int day, int msOfDay) {
    return daysFromCivil(year, month, day) * kDayMs + msOfDay;
}

std::string civilDate(std::int64_t ms) {
    std::int64_t z = floorDiv(ms, kDayMs) + 719468;
    const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const std::int64_t doe = z - era * 146097;
    const std::int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const std::int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const std::int64_t mp = (5 * doy + 2) / 153;
    const int day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    const int month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    const long long year = yoe + era * 400 + (month <= 2);
    char text[32];
    std::snprintf(text, sizeof(text), "%04lld-%02d-%02d", year, month, day);
    return text;
}

bool recordLocalMs(const Record& record, std::int64_t& ms) {
    const char* date = record.date.c_str();
    int year, month, day;
    if (!record.headed || record.date.size() != 10 || !readDigits(date, 4, year) ||
        *date++ != '-' || !readDigits(date, 2, month) || *date++ != '-' ||
        !readDigits(date, 2, day)) {
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
