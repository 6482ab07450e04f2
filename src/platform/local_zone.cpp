// The local time zone, read without the C library's conversion: that conversion takes a lock
// of the C library for every call, and a signal handler that logs while the code it
// interrupted holds that lock would wait for ever. The zone is read the way the C library
// reads it (a TZif file, its closing POSIX rule, or a POSIX rule in TZ) and evaluated by
// arithmetic, with the same results.

#include "platform/local_zone.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace qel {

namespace {

constexpr int64_t kSecondsPerDay = 86400;
constexpr int64_t kEver = INT64_MIN;
constexpr int64_t kForever = INT64_MAX;
constexpr ZoneOffset kUtc = {0, kEver, kForever};

int64_t floorDivide(int64_t value, int64_t divisor) {
    return value / divisor - (value % divisor < 0 ? 1 : 0);
}

bool isLeapYear(int64_t year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

int daysInMonth(int64_t year, int month) {
    static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return kDays[month - 1] + (month == 2 && isLeapYear(year) ? 1 : 0);
}

int64_t yearStart(int64_t year) {
    return daysFromCivil(year, 1, 1) * kSecondsPerDay;
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Reads a decimal number at `p`, saturating far above any meaningful value; false when no
// digit is there.
bool readNumber(const char*& p, unsigned int* value) {
    if (!isDigit(*p)) {
        return false;
    }
    unsigned int number = 0;
    for (; isDigit(*p); ++p) {
        number = number < 100000 ? number * 10 + static_cast<unsigned int>(*p - '0') : number;
    }
    *value = number;
    return true;
}

// hh[:mm[:ss]] into `parts`, whose entries keep their values where nothing is given; false
// when not even hh is there.
bool readClock(const char*& p, unsigned int (&parts)[3]) {
    if (!readNumber(p, &parts[0])) {
        return false;
    }
    for (int i = 1; i < 3 && p[0] == ':' && isDigit(p[1]); ++i) {
        ++p;
        readNumber(p, &parts[i]);
    }
    return true;
}

// ---- POSIX rules ("std offset [dst [offset] [,start[/time],end[/time]]]") -----------------

// One change of a rule: Jn (day 1 to 365, February 29 never counted), n (day 0 to 365) or
// Mm.w.d (weekday d of week w of month m, w 5 meaning the last), at a local time of day.
struct RuleChange {
    char form;  // 'J', 'n' or 'M'
    unsigned int day, week, month;
    int64_t seconds;
};

// Index 0: standard time and the change into daylight saving time; index 1: daylight saving
// time and the change back. Without daylight saving time both are alike.
struct PosixZone {
    int64_t offset[2];  // seconds east of UTC
    RuleChange change[2];
    char name[2][kAbbreviationSize];
};

// Copies `length` characters of an abbreviation, cut to fit, and a terminating zero byte.
void copyAbbreviation(char* out, const char* from, size_t length) {
    length = length < kAbbreviationSize - 1 ? length : kAbbreviationSize - 1;
    memcpy(out, from, length);
    out[length] = '\0';
}

// A zone name: three or more letters, or three or more letters, digits and signs in <>; put
// into `name` without the brackets.
bool readName(const char*& p, char (&name)[kAbbreviationSize]) {
    const char* start = p;
    while (isLetter(*p)) {
        ++p;
    }
    if (p - start >= 3) {
        copyAbbreviation(name, start, static_cast<size_t>(p - start));
        return true;
    }
    p = start;
    if (*p++ != '<') {
        return false;
    }
    start = p;
    while (isLetter(*p) || isDigit(*p) || *p == '+' || *p == '-') {
        ++p;
    }
    if (*p != '>' || p - start < 3) {
        return false;
    }
    copyAbbreviation(name, start, static_cast<size_t>(p - start));
    ++p;
    return true;
}

// An offset west of UTC ("5", "-05:30"); the standard one is required, daylight saving time
// defaults to an hour ahead of standard time.
bool readOffset(const char*& p, int which, PosixZone* zone) {
    if (which == 0 && *p != '+' && *p != '-' && !isDigit(*p)) {
        return false;
    }
    int64_t east = -1;
    if (*p == '+' || *p == '-') {
        east = *p++ == '-' ? 1 : -1;
    }
    unsigned int parts[3] = {0, 0, 0};
    if (readClock(p, parts)) {
        const int64_t hours = parts[0] < 24 ? parts[0] : 24;
        const int64_t minutes = parts[1] < 59 ? parts[1] : 59;
        const int64_t seconds = parts[2] < 59 ? parts[2] : 59;
        zone->offset[which] = east * (hours * 3600 + minutes * 60 + seconds);
        return true;
    }
    if (which == 0) {
        return false;
    }
    zone->offset[1] = zone->offset[0] + 3600;
    return true;
}

// A change of the rule; with none given, the changes of the United States since 2007.
bool readChange(const char*& p, int which, PosixZone* zone) {
    RuleChange& change = zone->change[which];
    p += *p == ',' ? 1 : 0;
    if (*p == 'J' || isDigit(*p)) {
        change.form = *p == 'J' ? 'J' : 'n';
        p += change.form == 'J' ? 1 : 0;
        if (!readNumber(p, &change.day) || change.day > 365 ||
            (change.form == 'J' && change.day == 0)) {
            return false;
        }
    } else if (*p == 'M') {
        ++p;
        change.form = 'M';
        if (!readNumber(p, &change.month) || *p++ != '.' || !readNumber(p, &change.week) ||
            *p++ != '.' || !readNumber(p, &change.day) || change.month < 1 ||
            change.month > 12 || change.week < 1 || change.week > 5 || change.day > 6) {
            return false;
        }
    } else if (*p == '\0') {
        change = which == 0 ? RuleChange{'M', 0, 2, 3, 0} : RuleChange{'M', 0, 1, 11, 0};
    } else {
        return false;
    }
    if (*p != '\0' && *p != '/' && *p != ',') {
        return false;
    }
    change.seconds = 2 * 3600;
    if (*p == '/') {
        ++p;
        if (*p == '\0') {
            return false;
        }
        const int64_t sign = *p == '-' ? -1 : 1;
        p += sign < 0 ? 1 : 0;
        unsigned int parts[3] = {2, 0, 0};
        readClock(p, parts);
        change.seconds = sign * (parts[0] * 3600 + parts[1] * 60 + parts[2]);
    }
    return true;
}

// A text the C library cannot read gives UTC, as there.
PosixZone readPosixZone(const char* text) {
    PosixZone zone = {};
    const char* p = text;
    if (!readName(p, zone.name[0]) || !readOffset(p, 0, &zone)) {
        zone = PosixZone{};
        copyAbbreviation(zone.name[0], "UTC", 3);
        memcpy(zone.name[1], zone.name[0], sizeof(zone.name[0]));
        return zone;
    }
    memcpy(zone.name[1], zone.name[0], sizeof(zone.name[0]));
    if (*p == '\0') {
        zone.offset[1] = zone.offset[0];
        zone.change[1] = zone.change[0];
        return zone;
    }
    if (readName(p, zone.name[1])) {
        readOffset(p, 1, &zone);
    }
    if (readChange(p, 0, &zone)) {
        readChange(p, 1, &zone);
    }
    return zone;
}

// The instant of `change` in `year`, the local time of day counted in `offset`. Years up to
// 1970 count from the epoch, as the C library counts them.
int64_t changeInstant(const RuleChange& change, int64_t offset, int64_t year) {
    int64_t day = year > 1970 ? daysFromCivil(year, 1, 1) : 0;
    switch (change.form) {
        case 'J':
            day += change.day - 1 + (change.day >= 60 && isLeapYear(year) ? 1 : 0);
            break;
        case 'M': {
            day += daysFromCivil(year, static_cast<int>(change.month), 1) -
                   daysFromCivil(year, 1, 1);
            // The weekday of the month's first day (Zeller), then the week asked for, or the
            // last one the month has.
            const int64_t shifted = (change.month + 9) % 12 + 1;
            const int64_t y = change.month <= 2 ? year - 1 : year;
            int64_t weekday = ((26 * shifted - 2) / 10 + 1 + y % 100 + y % 100 / 4 +
                               y / 100 / 4 - 2 * (y / 100)) % 7;
            weekday += weekday < 0 ? 7 : 0;
            int64_t dayOfMonth = static_cast<int64_t>(change.day) - weekday;
            dayOfMonth += dayOfMonth < 0 ? 7 : 0;
            const int length = daysInMonth(year, static_cast<int>(change.month));
            for (unsigned int week = 1; week < change.week && dayOfMonth + 7 < length; ++week) {
                dayOfMonth += 7;
            }
            day += dayOfMonth;
            break;
        }
        default:
            day += change.day;
            break;
    }
    return day * kSecondsPerDay - offset + change.seconds;
}

// The rule at `t`, within the UTC year of `t` (the changes are computed per UTC year), and its
// name into `abbreviation` when that is given.
ZoneOffset evaluate(const PosixZone& zone, int64_t t, char* abbreviation) {
    const int64_t year = civilFromDays(floorDivide(t, kSecondsPerDay)).year;
    const int64_t changes[2] = {changeInstant(zone.change[0], zone.offset[0], year),
                                changeInstant(zone.change[1], zone.offset[1], year)};
    const bool daylight = changes[0] > changes[1] ? (t < changes[1] || t >= changes[0])
                                                  : (t >= changes[0] && t < changes[1]);
    ZoneOffset result = {zone.offset[daylight ? 1 : 0], yearStart(year), yearStart(year + 1)};
    if (abbreviation != nullptr) {
        memcpy(abbreviation, zone.name[daylight ? 1 : 0], kAbbreviationSize);
    }
    for (const int64_t change : changes) {
        if (change <= t && change > result.from) {
            result.from = change;
        } else if (change > t && change < result.until) {
            result.until = change;
        }
    }
    return result;
}

// ---- TZif files ---------------------------------------------------------------------------

// Reads big-endian fields of a zone file at given offsets; every read is one pread.
class ZoneFile {
public:
    explicit ZoneFile(const char* path) : m_descriptor(open(path, O_RDONLY | O_CLOEXEC)) {}
    ~ZoneFile() {
        if (m_descriptor >= 0) {
            close(m_descriptor);
        }
    }
    ZoneFile(const ZoneFile&) = delete;
    ZoneFile& operator=(const ZoneFile&) = delete;

    bool opened() const { return m_descriptor >= 0; }
    bool bytes(int64_t at, void* out, size_t size) const {
        return readSome(at, out, size) == static_cast<ssize_t>(size);
    }
    ssize_t readSome(int64_t at, void* out, size_t size) const {
        return pread(m_descriptor, out, size, at);
    }
    bool number(int64_t at, size_t width, int64_t* value) const {
        unsigned char raw[8];
        if (!bytes(at, raw, width)) {
            return false;
        }
        uint64_t bits = 0;
        for (size_t i = 0; i < width; ++i) {
            bits = bits << 8 | raw[i];
        }
        // Sign-extend a 32-bit field.
        *value = width == 4 ? static_cast<int32_t>(bits) : static_cast<int64_t>(bits);
        return true;
    }

private:
    int m_descriptor;
};

// The counts of one TZif header, in file order.
enum { kUtCount, kStdCount, kLeapCount, kTimeCount, kTypeCount, kCharCount };
constexpr int64_t kHeaderSize = 44;
constexpr int64_t kLargestCount = 1 << 16;

bool readHeader(const ZoneFile& file, int64_t at, char* version, int64_t (&counts)[6]) {
    char magic[5];
    if (!file.bytes(at, magic, sizeof(magic)) || memcmp(magic, "TZif", 4) != 0) {
        return false;
    }
    *version = magic[4];
    for (int i = 0; i < 6; ++i) {
        if (!file.number(at + 20 + 4 * i, 4, &counts[i]) || counts[i] < 0 ||
            counts[i] > kLargestCount) {
            return false;
        }
    }
    return counts[kTypeCount] > 0;
}

int64_t dataSize(const int64_t (&counts)[6], int64_t width) {
    return counts[kTimeCount] * (width + 1) + counts[kTypeCount] * 6 + counts[kCharCount] +
           counts[kLeapCount] * (width + 4) + counts[kStdCount] + counts[kUtCount];
}

// The POSIX rule at the end of a zone file of version 2 or later, without its line feeds;
// false when there is none.
bool readFooter(const ZoneFile& file, int64_t at, char (&rule)[128]) {
    ssize_t got = 0;
    if (!file.bytes(at, rule, 1) || rule[0] != '\n' ||
        (got = file.readSome(at + 1, rule, sizeof(rule) - 1)) <= 0) {
        return false;
    }
    rule[got] = '\0';
    char* end = strchr(rule, '\n');
    if (end == nullptr || end == rule) {
        return false;  // cut, or empty: as if there were none
    }
    *end = '\0';
    return true;
}

// The type that holds before the first change: the first of standard time, else the first.
bool typeBeforeFirstChange(const ZoneFile& file, int64_t types, int64_t count, int64_t* type) {
    for (int64_t i = 0; i < count; ++i) {
        unsigned char daylight = 1;
        if (!file.bytes(types + i * 6 + 4, &daylight, 1)) {
            return false;
        }
        if (daylight == 0) {
            *type = i;
            return true;
        }
    }
    *type = 0;
    return true;
}

// The abbreviation of local time type `type`, from the zone file's characters after the types.
bool readTypeName(const ZoneFile& file, int64_t types, const int64_t (&counts)[6], int64_t type,
                  char* abbreviation) {
    unsigned char index = 0;
    if (!file.bytes(types + type * 6 + 5, &index, 1) || index >= counts[kCharCount]) {
        return false;
    }
    char name[kAbbreviationSize] = {};
    const ssize_t got = file.readSome(types + counts[kTypeCount] * 6 + index, name,
                                      sizeof(name) - 1);
    copyAbbreviation(abbreviation, name, got > 0 ? strnlen(name, static_cast<size_t>(got)) : 0);
    return true;
}

// The offset at `t` from the zone file at `path`, and the abbreviation when asked for; false
// when it is no readable zone file.
bool readZoneFile(const char* path, int64_t t, ZoneOffset* result, char* abbreviation) {
    ZoneFile file(path);
    char version = 0;
    int64_t counts[6];
    if (!file.opened() || !readHeader(file, 0, &version, counts)) {
        return false;
    }
    int64_t data = kHeaderSize, width = 4;
    if (version >= '2') {  // the 64-bit block follows the 32-bit one
        const int64_t second = kHeaderSize + dataSize(counts, 4);
        if (!readHeader(file, second, &version, counts)) {
            return false;
        }
        data = second + kHeaderSize;
        width = 8;
    }
    const int64_t times = counts[kTimeCount];
    const int64_t indexes = data + times * width, types = indexes + times;
    int64_t first = 0, last = 0, type = 0;
    if (times > 0 && (!file.number(data, width, &first) ||
                      !file.number(data + (times - 1) * width, width, &last))) {
        return false;
    }
    *result = kUtc;
    char rule[128];
    if (times == 0 || t < first) {
        if (!typeBeforeFirstChange(file, types, counts[kTypeCount], &type)) {
            return false;
        }
        result->until = times > 0 ? first : kForever;
    } else if (t >= last && width == 8 && readFooter(file, data + dataSize(counts, 8), rule)) {
        *result = evaluate(readPosixZone(rule), t, abbreviation);
        result->from = result->from > last ? result->from : last;
        return true;
    } else {
        int64_t low = 0, high = times - 1;  // the last change at or before `t`
        while (low < high) {
            const int64_t middle = low + (high - low + 1) / 2;
            int64_t at = 0;
            if (!file.number(data + middle * width, width, &at)) {
                return false;
            }
            if (at <= t) {
                low = middle;
            } else {
                high = middle - 1;
            }
        }
        unsigned char index = 0;
        if (!file.bytes(indexes + low, &index, 1) || index >= counts[kTypeCount] ||
            !file.number(data + low * width, width, &result->from) ||
            (low + 1 < times && !file.number(data + (low + 1) * width, width, &result->until))) {
            return false;
        }
        type = index;
    }
    return file.number(types + type * 6, 4, &result->utcOffset) &&
           (abbreviation == nullptr ||
            readTypeName(file, types, counts, type, abbreviation));
}

// The zone file TZ names: an absolute path, or a name under TZDIR (/usr/share/zoneinfo).
bool zoneFilePath(const char* name, char (&path)[512]) {
    const char* folder = "";
    if (name[0] != '/') {
        folder = getenv("TZDIR");
        folder = folder != nullptr && folder[0] != '\0' ? folder : "/usr/share/zoneinfo";
    }
    const size_t folderLength = strlen(folder), nameLength = strlen(name);
    if (folderLength + 1 + nameLength >= sizeof(path)) {
        return false;
    }
    memcpy(path, folder, folderLength);
    size_t at = folderLength;
    if (folderLength > 0) {
        path[at++] = '/';
    }
    memcpy(path + at, name, nameLength + 1);
    return true;
}

// The zone the last reading found, shared by all threads, with the tzset() state it was read
// under. A sequence count (odd while a thread stores) lets readers take it without a lock: a
// reader that finds it being stored, or stored anew meanwhile, reads the zone itself, and only
// one thread stores at a time, so no thread ever waits for another, a handler that interrupted
// a store on its own thread included. Every access is sequentially consistent, which keeps
// each reader's loads between its two looks at the count; on this machine such a load is a
// plain load, and stores are rare.
class SharedOffset {
public:
    struct Zone {  // what tzset() leaves, compared to tell a change of zone
        const char* names[2];
        long westOfUtc;
        int daylight;
    };

    static Zone currentZone() { return {{::tzname[0], ::tzname[1]}, ::timezone, ::daylight}; }

    bool find(int64_t t, const Zone& zone, int64_t* offset) const {
        const uint32_t before = m_sequence.load();
        const ZoneOffset found = {m_offset.load(), m_from.load(), m_until.load()};
        const bool sameZone = m_names[0].load() == zone.names[0] &&
                              m_names[1].load() == zone.names[1] &&
                              m_westOfUtc.load() == zone.westOfUtc &&
                              m_daylight.load() == zone.daylight;
        if ((before & 1) != 0 || m_sequence.load() != before || !sameZone || t < found.from ||
            t >= found.until) {
            return false;
        }
        *offset = found.utcOffset;
        return true;
    }

    void store(const Zone& zone, const ZoneOffset& found) {
        // A child made by fork while another thread stored would find the cache taken for good.
        static const bool forkHandled = pthread_atfork(nullptr, nullptr, &forgetStoreInChild) == 0;
        (void)forkHandled;
        if (m_storing.test_and_set()) {
            return;  // another thread stores what it read; the next reader sees it
        }
        const uint32_t sequence = m_sequence.load();
        m_sequence.store(sequence + 1);
        m_offset.store(found.utcOffset);
        m_from.store(found.from);
        m_until.store(found.until);
        m_names[0].store(zone.names[0]);
        m_names[1].store(zone.names[1]);
        m_westOfUtc.store(zone.westOfUtc);
        m_daylight.store(zone.daylight);
        m_sequence.store(sequence + 2);
        m_storing.clear();
    }

    uint32_t version() const { return m_sequence.load(); }

private:
    static void forgetStoreInChild();

    std::atomic<uint32_t> m_sequence{0};
    std::atomic<int64_t> m_offset{0};
    std::atomic<int64_t> m_from{0};
    std::atomic<int64_t> m_until{0};  // an empty span until the first reading
    std::atomic<const char*> m_names[2] = {{nullptr}, {nullptr}};
    std::atomic<long> m_westOfUtc{0};
    std::atomic<int> m_daylight{0};
    std::atomic_flag m_storing = ATOMIC_FLAG_INIT;
};

SharedOffset g_sharedOffset;

// In the child the storing thread is gone: its half-stored span is emptied and the cache freed.
void SharedOffset::forgetStoreInChild() {
    SharedOffset& cache = g_sharedOffset;
    const uint32_t sequence = cache.m_sequence.load();
    cache.m_until.store(0);
    cache.m_sequence.store(sequence + (sequence & 1) + 2);
    cache.m_storing.clear();
}

}  // namespace

// As the C library reads TZ: empty means UTC, a leading ':' is dropped, unset means
// /etc/localtime; a zone file of that name if there is one, else a POSIX rule; UTC when the
// default file is missing.
ZoneOffset readZoneOffset(int64_t utcSeconds, char* abbreviation) {
    const char* const kDefault = "/etc/localtime";
    const char* tz = getenv("TZ");
    if (tz != nullptr && tz[0] == '\0') {
        tz = "Universal";
    }
    if (tz != nullptr && tz[0] == ':') {
        ++tz;
    }
    const bool byDefault = tz == nullptr;
    tz = byDefault ? kDefault : tz;
    char path[512];
    ZoneOffset result = kUtc;
    if (tz[0] != '\0' && zoneFilePath(tz, path) &&
        readZoneFile(path, utcSeconds, &result, abbreviation)) {
        return result;
    }
    if (byDefault || tz[0] == '\0' || strcmp(tz, kDefault) == 0) {
        if (abbreviation != nullptr) {
            copyAbbreviation(abbreviation, "UTC", 3);
        }
        return kUtc;
    }
    return evaluate(readPosixZone(tz), utcSeconds, abbreviation);
}

int64_t localOffset(int64_t utcSeconds) {
    // The zone is taken before it is read: a change meanwhile shows at the next call.
    const SharedOffset::Zone zone = SharedOffset::currentZone();
    int64_t offset = 0;
    if (g_sharedOffset.find(utcSeconds, zone, &offset)) {
        return offset;
    }
    const ZoneOffset found = readZoneOffset(utcSeconds);
    g_sharedOffset.store(zone, found);
    return found.utcOffset;
}

uint32_t zoneCacheVersion() {
    return g_sharedOffset.version();
}

int64_t daysFromCivil(int64_t year, int month, int day) {
    year -= month <= 2 ? 1 : 0;
    const int64_t era = floorDivide(year, 400);
    const int64_t yearOfEra = year - era * 400;
    const int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

CivilDate civilFromDays(int64_t days) {
    days += 719468;
    const int64_t era = floorDivide(days, 146097);
    const int64_t dayOfEra = days - era * 146097;
    const int64_t yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;
    const int day = static_cast<int>(dayOfYear - (153 * shiftedMonth + 2) / 5 + 1);
    const int month = static_cast<int>(shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9);
    return {yearOfEra + era * 400 + (month <= 2 ? 1 : 0), month, day};
}

}  // namespace qel
