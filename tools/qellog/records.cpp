#include "records.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <tuple>

#include "numbers.h"

namespace qellog {
namespace {

constexpr std::int64_t kDayMs = 24 * 60 * 60 * 1000;
// The writer's module and time fields hold at most 127 characters.
constexpr std::size_t kModuleMax = 127;
// No record the writer makes comes near this: a header of under 300 bytes and 2047 bytes of
// text. Bytes that go on longer without an end are handed out in pieces of this size, so that
// a foreign file cannot make the reader hold it whole.
constexpr std::size_t kMaxRecord = 64 * 1024;

// Reads bytes one by one; `partial` notes that the bytes ended before a decision.
struct Cursor {
    const char* data;
    std::size_t size;
    std::size_t at;
    bool partial = false;

    bool literal(const char* text) {
        for (; *text != '\0'; ++text, ++at) {
            if (at >= size) {
                partial = true;
                return false;
            }
            if (data[at] != *text) return false;
        }
        return true;
    }
    // `minDigits` to `maxDigits` decimal digits.
    bool number(int minDigits, int maxDigits, unsigned long& value) {
        value = 0;
        int count = 0;
        while (count < maxDigits) {
            if (at >= size) {
                partial = true;
                return false;
            }
            if (!isDigit(data[at])) break;
            value = value * 10 + static_cast<unsigned long>(data[at++] - '0');
            ++count;
        }
        return count >= minDigits;
    }
};

// The part of a header after the module name: "][V1.8.63 L hh:mm:ss:ms tid]", at data[at].
HeaderMatch matchAfterModule(const char* data, std::size_t size, std::size_t at, Header* header,
                             std::size_t* length) {
    Cursor c{data, size, at};
    unsigned long major, minor, patch, hours, minutes, seconds, millis, tid;
    if (!c.literal("][V") || !c.number(1, 4, major) || !c.literal(".") ||
        !c.number(1, 4, minor) || !c.literal(".") || !c.number(1, 4, patch) || !c.literal(" ")) {
        return c.partial ? HeaderMatch::Partial : HeaderMatch::No;
    }
    if (c.at >= size) return HeaderMatch::Partial;
    const char level = data[c.at++];
    if (std::strchr("VIWE?", level) == nullptr || level == '\0') return HeaderMatch::No;
    const std::size_t timeBegin = c.at + 1;
    if (!c.literal(" ") || !c.number(2, 2, hours) || !c.literal(":") || !c.number(2, 2, minutes) ||
        !c.literal(":") || !c.number(2, 2, seconds) || !c.literal(":") ||
        !c.number(1, 3, millis)) {
        return c.partial ? HeaderMatch::Partial : HeaderMatch::No;
    }
    const std::size_t timeEnd = c.at;
    if (!c.literal(" ") || !c.number(1, 10, tid) || !c.literal("]")) {
        return c.partial ? HeaderMatch::Partial : HeaderMatch::No;
    }
    if (hours > 23 || minutes > 59 || seconds > 60 || tid > 0xFFFFFFFFul) return HeaderMatch::No;
    if (header != nullptr) {
        header->module.assign(data + 1, at - 1);
        header->version = std::to_string(major) + "." + std::to_string(minor) + "." +
                          std::to_string(patch);
        header->level = level;
        header->time.assign(data + timeBegin, timeEnd - timeBegin);
        header->threadId = tid;
        // A leap second counts as the last millisecond of its minute.
        header->msOfDay = static_cast<int>(
            std::min<unsigned long>(((hours * 60 + minutes) * 60 + seconds) * 1000 + millis,
                                    ((hours * 60 + minutes) * 60 + 59) * 1000 + 999));
    }
    if (length != nullptr) *length = c.at;
    return HeaderMatch::Yes;
}

std::int64_t daysFromCivil(int year, int month, int day) {
    year -= month <= 2;
    const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    const std::int64_t yoe = year - era * 400;
    const std::int64_t doy = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const std::int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

std::int64_t floorDiv(std::int64_t a, std::int64_t b) {
    return a / b - ((a % b != 0) && ((a < 0) != (b < 0)));
}

}  // namespace

bool parseLogFileName(const std::string& name, FileTime& time) {
    Cursor c{name.data(), name.size(), 0};
    unsigned long v[7];
    const int digits[7] = {4, 2, 2, 2, 2, 2, 1};
    if (!c.literal("QelLog")) return false;
    std::size_t millisBegin = 0;
    for (int i = 0; i < 7; ++i) {
        if (i > 0 && !c.literal("-")) return false;
        millisBegin = c.at;
        if (!c.number(digits[i], i == 6 ? 3 : digits[i], v[i])) return false;
    }
    // Milliseconds are not padded: "05" is no name the writer makes.
    if (c.at - millisBegin > 1 && name[millisBegin] == '0') return false;
    if (!c.literal(".log") || c.at != name.size()) return false;
    if (v[1] < 1 || v[1] > 12 || v[2] < 1 || v[2] > 31 || v[3] > 23 || v[4] > 59 || v[5] > 60) {
        return false;
    }
    time.year = static_cast<int>(v[0]);
    time.month = static_cast<int>(v[1]);
    time.day = static_cast<int>(v[2]);
    time.hour = static_cast<int>(v[3]);
    time.minute = static_cast<int>(v[4]);
    time.second = static_cast<int>(v[5]);
    time.millisecond = static_cast<int>(v[6]);
    return true;
}

bool operator<(const FileTime& a, const FileTime& b) {
    return std::tie(a.year, a.month, a.day, a.hour, a.minute, a.second, a.millisecond) <
           std::tie(b.year, b.month, b.day, b.hour, b.minute, b.second, b.millisecond);
}

LogFile logFileAt(const std::string& path) {
    LogFile file;
    file.path = path;
    const std::size_t slash = path.rfind('/');
    file.name = slash == std::string::npos ? path : path.substr(slash + 1);
    file.named = parseLogFileName(file.name, file.time);
    return file;
}

std::string pathIn(const std::string& folder, const std::string& name) {
    return folder + (folder.empty() || folder.back() == '/' ? "" : "/") + name;
}

bool statLogFile(LogFile& file) {
    struct stat status;
    if (lstat(file.path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
    file.size = static_cast<std::uint64_t>(status.st_size);
    file.device = status.st_dev;
    file.inode = status.st_ino;
    file.modified = status.st_mtime;
    return true;
}

bool listLogFiles(const std::string& folder, std::vector<LogFile>& files, std::string& error) {
    files.clear();
    DIR* dir = opendir(folder.c_str());
    if (dir == nullptr) {
        error = std::strerror(errno);
        return false;
    }
    while (const dirent* entry = readdir(dir)) {
        LogFile file = logFileAt(pathIn(folder, entry->d_name));
        if (file.named && statLogFile(file)) files.push_back(file);
    }
    closedir(dir);
    std::sort(files.begin(), files.end(),
              [](const LogFile& a, const LogFile& b) { return a.time < b.time; });
    return true;
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

HeaderMatch matchHeader(const char* data, std::size_t size, Header* header, std::size_t* length) {
    if (size == 0) return HeaderMatch::Partial;
    if (data[0] != '[') return HeaderMatch::No;
    // The module name may itself hold "]": each "]" in reach may be the one that closes it.
    for (std::size_t close = 1; close <= 1 + kModuleMax; ++close) {
        if (close >= size) return HeaderMatch::Partial;
        if (data[close] == '\0') return HeaderMatch::No;
        // An empty line followed by a header: that header starts the record, not this one.
        if (data[close] == '\n' && data[close - 1] == '\n' && close + 1 < size) {
            const HeaderMatch later =
                matchHeader(data + close + 1, size - close - 1, nullptr, nullptr);
            if (later == HeaderMatch::Yes) return HeaderMatch::No;
            if (later == HeaderMatch::Partial) return HeaderMatch::Partial;
        }
        if (data[close] != ']') continue;
        const HeaderMatch match = matchAfterModule(data, size, close, header, length);
        if (match != HeaderMatch::No) return match;
    }
    return HeaderMatch::No;
}

void RecordReader::beginFile(const LogFile& file, std::uint64_t offset, bool continues) {
    m_segments.push_back(Segment{m_buffer.size(), file, offset, continues});
}

void RecordReader::append(const char* data, std::size_t size) { m_buffer.append(data, size); }

const RecordReader::Segment& RecordReader::segmentAt(std::size_t index) const {
    for (std::size_t i = m_segments.size(); i-- > 1;) {
        if (m_segments[i].at <= index) return m_segments[i];
    }
    return m_segments.front();
}

Position RecordReader::position() const {
    if (m_segments.empty()) return Position();
    const Segment& segment = segmentAt(m_start);
    return Position{segment.file.name, segment.offset + (m_start - segment.at)};
}

void RecordReader::reference(std::string& file, std::int64_t& ms) const {
    file = m_refFile;
    ms = m_refMs;
}

void RecordReader::setReference(const std::string& file, std::int64_t ms) {
    m_refFile = file;
    m_refMs = ms;
}

// The line holds the time of day only. Starting from the time in the file's name, each record
// gets the date that puts it nearest to the record before it: a time of day that goes back by
// more than twelve hours is on the next day, and a record made just before midnight but
// written into a file named just after it stays on its own day.
std::string RecordReader::dateOf(const Segment& segment, const Record& record) {
    if (!segment.file.named) return std::string();
    if (m_refFile != segment.file.name) {
        const FileTime& t = segment.file.time;
        m_refFile = segment.file.name;
        m_refMs = civilMs(t.year, t.month, t.day,
                          ((t.hour * 60 + t.minute) * 60 + std::min(t.second, 59)) * 1000 +
                              t.millisecond);
    }
    if (record.headed) {
        const std::int64_t day = floorDiv(m_refMs, kDayMs) * kDayMs;
        std::int64_t best = day + record.header.msOfDay;
        for (const std::int64_t other : {best - kDayMs, best + kDayMs}) {
            if (std::llabs(other - m_refMs) < std::llabs(best - m_refMs)) best = other;
        }
        m_refMs = best;
    }
    return civilDate(m_refMs);
}

namespace {

// Whether a header (or its absence) after a line end or at a file's start ends the record.
RecordReader::Scan endBefore(HeaderMatch match, DataEnd end) {
    if (match == HeaderMatch::Yes || (match == HeaderMatch::Partial && end == DataEnd::Final)) {
        return RecordReader::Scan::Found;
    }
    return match == HeaderMatch::Partial ? RecordReader::Scan::Wait : RecordReader::Scan::Open;
}

}  // namespace

RecordReader::Scan RecordReader::endAfterLine(std::size_t lineEnd, std::size_t textBegin,
                                              bool headed, DataEnd end) const {
    const char* data = m_buffer.data() + m_start;
    const std::size_t size = m_buffer.size() - m_start;
    // A record ends with an empty line; a piece may also end with a plain line feed.
    const bool emptyLine = lineEnd >= textBegin + 1 && data[lineEnd - 1] == '\n';
    if (headed && !emptyLine) return Scan::Open;
    const std::size_t after = lineEnd + 1;
    if (after == size) {
        const bool ends = end == DataEnd::Final || (end == DataEnd::Quiet && emptyLine);
        return ends ? Scan::Found : Scan::Wait;
    }
    return endBefore(matchHeader(data + after, size - after, nullptr, nullptr), end);
}

RecordReader::Scan RecordReader::findEnd(std::size_t textBegin, bool headed, DataEnd end,
                                         std::size_t& length) {
    const char* data = m_buffer.data() + m_start;
    const std::size_t size = m_buffer.size() - m_start;
    const std::size_t limit = std::min(size, kMaxRecord);
    // The first file that begins after the start of the record.
    std::size_t segment = 0;
    while (segment < m_segments.size() &&
           m_segments[segment].at <= m_start + std::max<std::size_t>(textBegin, 1) - 1) {
        ++segment;
    }
    for (std::size_t at = std::max(m_scanFrom, textBegin);;) {
        const std::size_t boundary =
            segment < m_segments.size() ? m_segments[segment].at - m_start : std::string::npos;
        const void* feed = at < limit ? std::memchr(data + at, '\n', limit - at) : nullptr;
        const std::size_t lineEnd =
            feed != nullptr ? static_cast<const char*>(feed) - data : std::string::npos;
        // A NUL byte ends the record before it.
        const std::size_t stop = std::min({boundary, lineEnd, limit});
        if (stop > at && std::memchr(data + at, '\0', stop - at) != nullptr) {
            length = static_cast<const char*>(std::memchr(data + at, '\0', stop - at)) - data;
            return Scan::Found;
        }
        Scan scan;
        if (boundary < limit && boundary <= lineEnd) {
            // A file that does not continue the record ends it.
            scan = m_segments[segment++].continues ? Scan::Open : Scan::Found;
            length = m_scanFrom = boundary;
        } else if (lineEnd != std::string::npos) {
            at = lineEnd + 1;
            const bool continued = at == boundary && m_segments[segment].continues;
            scan = continued ? Scan::Open : endAfterLine(lineEnd, textBegin, headed, end);
            length = lineEnd + 1;
            m_scanFrom = lineEnd;
        } else {
            break;
        }
        if (scan != Scan::Open) return scan;
    }
    // No end in reach: a record longer than any the writer makes is handed out in pieces.
    if (limit < size) {
        length = limit;
        return Scan::Cut;
    }
    length = m_scanFrom = size;
    return end == DataEnd::Final ? Scan::Found : Scan::Wait;
}

void RecordReader::take(Record& record, const Header* header, std::size_t textBegin,
                        std::size_t length, bool cut) {
    const char* data = m_buffer.data() + m_start;
    record = Record();
    record.headed = header != nullptr;
    if (header != nullptr) record.header = *header;
    record.bytes.assign(data, length);
    record.complete =
        length >= textBegin + 2 && data[length - 1] == '\n' && data[length - 2] == '\n';
    record.cut = cut;
    record.textBegin = textBegin;
    record.textEnd = record.complete ? length - 2 : length;
    const Segment& first = segmentAt(m_start);
    record.file = first.file.name;
    record.offset = first.offset + (m_start - first.at);
    record.date = dateOf(first, record);
    consume(length);
}

bool RecordReader::next(Record& record, DataEnd end) {
    const std::size_t size = m_buffer.size() - m_start;
    if (size == 0) return false;
    const char* data = m_buffer.data() + m_start;
    if (data[0] == '\0') {
        std::size_t zeros = 1;
        while (zeros < size && data[zeros] == '\0') ++zeros;
        if (zeros == size && end == DataEnd::More) return false;
        take(record, nullptr, 0, zeros, false);
        record.zeros = true;
        return true;
    }
    Header header;
    std::size_t headerLength = 0;
    const HeaderMatch start = matchHeader(m_buffer.data() + m_start, size, &header, &headerLength);
    if (start == HeaderMatch::Partial && end != DataEnd::Final) return false;
    const bool headed = start == HeaderMatch::Yes;
    const std::size_t textBegin = headed ? headerLength : 0;
    std::size_t length = 0;
    const Scan scan = findEnd(textBegin, headed, end, length);
    if (scan == Scan::Wait) return false;
    take(record, headed ? &header : nullptr, textBegin, length, scan == Scan::Cut);
    return true;
}

void RecordReader::consume(std::size_t length) {
    m_start += length;
    m_scanFrom = 0;
    while (m_segments.size() >= 2 && m_segments[1].at <= m_start) {
        m_segments.erase(m_segments.begin());
    }
    if (m_start < 64 * 1024 && m_start < m_buffer.size()) return;
    // Drop the bytes handed out; the first file's offset moves along with them.
    Segment& first = m_segments.front();
    if (first.at < m_start) {
        first.offset += m_start - first.at;
        first.at = m_start;
    }
    for (Segment& segment : m_segments) segment.at -= m_start;
    m_buffer.erase(0, m_start);
    m_start = 0;
}

}  // namespace qellog
