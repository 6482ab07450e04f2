#include "civil_time.h"

#include <time.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>


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

namespace {
TimeShown g_shown = TimeShown::Writer;
}  // namespace

void setTimeShown(TimeShown shown) { g_shown = shown; }

std::string shownTimestamp(std::int64_t utcMs, std::int32_t offset) {
    if (g_shown == TimeShown::Utc) offset = 0;
    if (g_shown == TimeShown::Zone) offset = zoneOffsetAt(utcMs);
    return isoTimestamp(utcMs, offset);
}

namespace {

// localtime_r reads TZ once: a zone changed since (--tz) is taken up here. Returns true when it
// changed.
bool zoneChanged() {
    static std::string seen = "unset";
    const char* zone = std::getenv("TZ");
    const std::string now = zone != nullptr ? std::string("=") + zone : std::string();
    if (now == seen) return false;
    seen = now;
    tzset();
    return true;
}

}  // namespace

std::int32_t zoneOffsetAt(std::int64_t utcMs) {
    zoneChanged();
    const time_t seconds = static_cast<time_t>(floorDiv(utcMs, kSecondMs));
    tm local;
    localtime_r(&seconds, &local);
    return static_cast<std::int32_t>(local.tm_gmtoff);
}

std::vector<std::int32_t> zoneOffsetsOf(std::int64_t localMs) {
    // Asked for every record: the offsets of the last local hour asked for are kept.
    static std::int64_t cachedHour = INT64_MIN;
    static std::vector<std::int32_t> offsets;
    const std::int64_t hour = floorDiv(localMs, kHourMs);
    if (!zoneChanged() && hour == cachedHour) return offsets;
    cachedHour = hour;
    // Offsets run from -12 h to +14 h: the real time of `localMs` lies in that window, and an
    // offset is one it can have when the zone gives it at localMs - offset.
    offsets.clear();
    for (const std::int64_t probe : {localMs - 14 * kHourMs, localMs + 12 * kHourMs}) {
        const std::int32_t offset = zoneOffsetAt(probe);
        const bool holds = zoneOffsetAt(localMs - offset * kSecondMs) == offset;
        if (holds && (offsets.empty() || offsets[0] != offset)) offsets.push_back(offset);
    }
    if (offsets.empty()) offsets.push_back(zoneOffsetAt(localMs - 14 * kHourMs));
    return offsets;
}

std::int64_t localToUtcMs(std::int64_t localMs, const std::int64_t* previous) {
    std::vector<std::int64_t> candidates;
    for (const std::int32_t offset : zoneOffsetsOf(localMs)) {
        candidates.push_back(localMs - offset * kSecondMs);
    }
    if (previous == nullptr) return *std::min_element(candidates.begin(), candidates.end());
    return nearestAfter(candidates, previous);
}

std::int64_t nearestAfter(const std::vector<std::int64_t>& candidates,
                          const std::int64_t* previous) {
    constexpr std::int64_t kCrossing = 2 * kSecondMs, kReach = 12 * kHourMs;
    if (previous == nullptr) return candidates.back();
    const std::int64_t* best = nullptr;
    for (const std::int64_t& c : candidates) {
        const bool follows = c >= *previous - kCrossing && c - *previous <= kReach;
        if (follows && (best == nullptr || c < *best)) best = &c;
    }
    if (best != nullptr) return *best;
    for (const std::int64_t& c : candidates) {
        if (!best || std::llabs(c - *previous) < std::llabs(*best - *previous)) best = &c;
    }
    return *best;
}

std::string isoTimestamp(std::int64_t utcMs, std::int32_t offset) {
    std::string text = plainTimestamp(utcMs + offset * kSecondMs);
    const long minutes = (offset < 0 ? -offset : offset) / 60;
    char zone[32];
    std::snprintf(zone, sizeof(zone), "%c%02ld:%02ld", offset < 0 ? '-' : '+', minutes / 60,
                  minutes % 60);
    text[10] = 'T';
    return text + zone;
}

}  // namespace qellog
