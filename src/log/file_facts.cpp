#include "log/file_facts.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/xattr.h>
#include <time.h>
#include <unistd.h>

#include <cstring>

#include "platform/decimal_text.h"

namespace qel {

namespace {

constexpr int64_t kMillisPerDay = 86400 * 1000;

// Reads up to `capacity` bytes of the file at `path` into `out`; the number read, or 0.
size_t readSmallFile(const char* path, char* out, size_t capacity) {
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        return 0;
    }
    size_t length = 0;
    while (length < capacity) {
        const ssize_t got = read(descriptor, out + length, capacity - length);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            break;
        }
        length += static_cast<size_t>(got);
    }
    close(descriptor);
    return length;
}

// An abbreviation that the attribute's line can carry: letters, digits and signs only.
bool usableAbbreviation(const char* name) {
    if (name[0] == '\0') {
        return false;
    }
    for (const char* c = name; *c != '\0'; ++c) {
        const bool usable = (*c >= 'a' && *c <= 'z') || (*c >= 'A' && *c <= 'Z') ||
                            (*c >= '0' && *c <= '9') || *c == '+' || *c == '-';
        if (!usable) {
            return false;
        }
    }
    return true;
}

// The offset as "+hhmm", or "+hhmmss" when it has seconds: what names a zone without a name.
void numericAbbreviation(int64_t offset, char (&out)[kAbbreviationSize]) {
    char* at = out;
    *at++ = offset < 0 ? '-' : '+';
    const int64_t magnitude = offset < 0 ? -offset : offset;
    at = putTwoDigits(at, magnitude / 3600 % 100);
    at = putTwoDigits(at, magnitude / 60 % 60);
    if (magnitude % 60 != 0) {
        at = putTwoDigits(at, magnitude % 60);
    }
    *at = '\0';
}

// The milliseconds of the day of "hh:mm:ss:ms", or -1 when the text is not of that form.
int64_t millisOfDay(const char* timeOfDay) {
    int64_t fields[4] = {0, 0, 0, 0};
    const char* p = timeOfDay;
    for (int i = 0; i < 4; ++i) {
        if (*p < '0' || *p > '9') {
            return -1;
        }
        for (int digits = 0; *p >= '0' && *p <= '9' && digits < 3; ++p, ++digits) {
            fields[i] = fields[i] * 10 + (*p - '0');
        }
        if (i < 3 && *p++ != ':') {
            return -1;
        }
    }
    return ((fields[0] * 60 + fields[1]) * 60 + fields[2]) * 1000 + fields[3];
}

// How long before `nowMillis` a stamp at `stampMillis` of the day was made, had it been made
// under `offset`: the time of day of now in that offset less the stamp's, within one day.
int64_t ageUnder(int64_t offset, int64_t nowMillis, int64_t stampMillis) {
    int64_t age = (nowMillis + offset * 1000 - stampMillis) % kMillisPerDay;
    return age < 0 ? age + kMillisPerDay : age;
}

}  // namespace

FileFacts::FileFacts()
    : m_descriptor(-1),
      m_refused(false),
      m_number(0),
      m_identityLength(0),
      m_zoneLength(0),
      m_zoneLines(0),
      m_lastOffset(0),
      m_zoneVersion(0),
      m_reading{0, 0, 0} {
    m_bootId[0] = '\0';
    m_identity[0] = '\0';
    m_zone[0] = '\0';
    m_abbreviation[0] = '\0';
}

bool FileFacts::readIdentity() {
    if (m_identityLength > 0) {
        return true;
    }
    constexpr size_t kBootIdLength = 36;
    if (m_bootId[0] == '\0') {
        char text[kBootIdLength + 1];
        if (readSmallFile("/proc/sys/kernel/random/boot_id", text, sizeof(text)) <
            kBootIdLength) {
            return false;
        }
        memcpy(m_bootId, text, kBootIdLength);
        m_bootId[kBootIdLength] = '\0';
    }
    // The start time is the 22nd field; the second, the command's name in parentheses, may
    // hold spaces and parentheses itself, so the fields are counted from its last ')'.
    char stat[1024];
    const size_t length = readSmallFile("/proc/self/stat", stat, sizeof(stat) - 1);
    stat[length] = '\0';
    const char* field = strrchr(stat, ')');
    for (int skipped = 2; field != nullptr && skipped < 22; ++skipped) {
        field = strchr(field + 1, ' ');
    }
    if (field == nullptr || field[1] < '0' || field[1] > '9') {
        return false;
    }
    ++field;
    char* at = m_identity;
    at = static_cast<char*>(memcpy(at, m_bootId, kBootIdLength)) + kBootIdLength;
    *at++ = ' ';
    at = putDecimal(at, getpid());
    *at++ = ' ';
    for (int digits = 0; *field >= '0' && *field <= '9' && digits < 20; ++digits) {
        *at++ = *field++;
    }
    m_identityLength = static_cast<size_t>(at - m_identity);
    return true;
}

bool FileFacts::set(const char* name, const char* value, size_t length) {
    if (fsetxattr(m_descriptor, name, value, length, 0) == 0) {
        return true;
    }
    if (errno == ENOTSUP) {  // also EOPNOTSUPP, the same number on Linux
        m_refused = true;
    }
    m_descriptor = -1;  // the file's facts end here
    return false;
}

void FileFacts::recordNewFile(int descriptor, const char* continues) {
    ++m_number;
    m_descriptor = -1;
    m_zoneLength = 0;
    m_zoneLines = 0;
    if (m_refused || !readIdentity()) {
        return;
    }
    m_descriptor = descriptor;
    char number[24];
    const size_t numberLength = static_cast<size_t>(putDecimal(number, m_number) - number);
    m_zoneVersion = zoneCacheVersion();  // taken first: a change meanwhile shows at the next record
    struct timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const int64_t offset = localOffset(now.tv_sec);
    appendZoneLine(now.tv_sec, offset);
    // Each set() ends the file's facts when it fails, so the rest is not tried.
    set("user.qel.writer", m_identity, m_identityLength) &&
        set("user.qel.number", number, numberLength) &&
        (continues == nullptr || set("user.qel.continues", continues, strlen(continues))) &&
        set("user.qel.zone", m_zone, m_zoneLength);
}

void FileFacts::noteRecord(const char* timeOfDay) {
    // Until the zone cache stores a new reading, every record is stamped under a cached offset
    // that the last line already shows: one load per record.
    const uint32_t version = zoneCacheVersion();
    if (m_descriptor < 0 || m_zoneLines >= kMaxZoneLines || version == m_zoneVersion) {
        return;
    }
    struct timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const int64_t offset = localOffset(now.tv_sec);
    if (offset != m_lastOffset) {
        // Stamped just before the change but written after it, a record still belongs to the
        // last line: the offset under which its time of day was made is the one that makes it
        // younger. The next record is looked at again.
        const int64_t stamp = millisOfDay(timeOfDay);
        const int64_t nowMillis = static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
        if (stamp >= 0 &&
            ageUnder(m_lastOffset, nowMillis, stamp) < ageUnder(offset, nowMillis, stamp)) {
            return;
        }
        if (appendZoneLine(now.tv_sec, offset)) {
            set("user.qel.zone", m_zone, m_zoneLength);
        }
    }
    m_zoneVersion = version;
}

bool FileFacts::appendZoneLine(int64_t utcSeconds, int64_t offset) {
    if (m_zoneLines >= kMaxZoneLines) {
        return false;
    }
    char* const start = m_zone + m_zoneLength;
    char* at = putDecimal(start, utcSeconds);
    *at++ = ' ';
    at = putDecimal(at, offset);
    *at++ = ' ';
    const char* name = abbreviationAt(utcSeconds, offset);
    const size_t nameLength = strlen(name);
    at = static_cast<char*>(memcpy(at, name, nameLength)) + nameLength;
    *at++ = '\n';
    m_zoneLength = static_cast<size_t>(at - m_zone);
    ++m_zoneLines;
    m_lastOffset = offset;
    return true;
}

const char* FileFacts::abbreviationAt(int64_t utcSeconds, int64_t offset) {
    if (utcSeconds < m_reading.from || utcSeconds >= m_reading.until ||
        m_reading.utcOffset != offset) {
        m_reading = readZoneOffset(utcSeconds, m_abbreviation);
        if (m_reading.utcOffset != offset || !usableAbbreviation(m_abbreviation)) {
            // The zone changed between the two readings, or names no usable abbreviation.
            numericAbbreviation(offset, m_abbreviation);
        }
    }
    return m_abbreviation;
}

}  // namespace qel
