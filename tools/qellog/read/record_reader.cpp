#include "record_reader.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "civil_time.h"
#include "writing_order.h"

namespace qellog {
namespace {

// No record the writer makes comes near this: a header of under 300 bytes and 2047 bytes of
// text. Bytes that go on longer without an end are handed out in pieces of this size, so that
// a foreign file cannot make the reader hold it whole.
constexpr std::size_t kMaxRecord = 64 * 1024;

}  // namespace

void RecordReader::beginFile(const LogFile& file, std::uint64_t offset, bool continues) {
    m_segments.push_back(Segment{m_buffer.size(), file, offset, continues});
}

void RecordReader::append(const char* data, std::size_t size) {
    compact();
    m_buffer.append(data, size);
}

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
    m_hasRefUtc = false;
    m_rule = 0;
}

void RecordReader::refreshFacts(const LogFile& file) {
    for (Segment& segment : m_segments) {
        if (segment.file.name == file.name) segment.file.facts = file.facts;
    }
}

// The line holds the time of day only. Starting from the time in the file's name, each record
// gets the date that puts it nearest to the record before it: a time of day that goes back by
// more than twelve hours is on the next day, and a record made just before midnight but
// written into a file named just after it stays on its own day.
std::string RecordReader::dateOf(const Segment& segment, Record& record) {
    if (!segment.file.dated) return std::string();
    const RecordedFacts& facts = segment.file.facts;
    if (m_refFile != segment.file.name) {
        const FileTime& t = segment.file.time;
        m_refFile = segment.file.name;
        m_refMs = civilMs(t.year, t.month, t.day,
                          ((t.hour * 60 + t.minute) * 60 + std::min(t.second, 59)) * 1000 +
                              t.millisecond);
        m_refUtc = openedUtcMs(segment.file);
        m_hasRefUtc = true;
        m_rule = 0;
    }
    if (record.headed) {
        const std::int64_t day = floorDiv(m_refMs, kDayMs) * kDayMs;
        std::int64_t best = day + record.header.msOfDay;
        for (const std::int64_t other : {best - kDayMs, best + kDayMs}) {
            if (std::llabs(other - m_refMs) < std::llabs(best - m_refMs)) best = other;
        }
        m_refMs = best;
        placeInRealTime(facts, record);
    }
    // Records come day after day: the text of a day is made once.
    const std::int64_t day = floorDiv(m_refMs, kDayMs);
    if (m_dateText.empty() || day != m_dateDay) {
        m_dateDay = day;
        m_dateText = civilDate(m_refMs);
    }
    return m_dateText;
}

// The record's local time is m_refMs. With recorded zone rules, the writer stamped it under the
// rule of the record before it or a later one, and under rule j only from that rule's first use
// on (a few seconds before: threads whose stamps cross); in the hour that repeats when daylight
// saving time ends two rules fit, and the one that follows the record before most closely is
// taken. Without facts the reading zone's rules stand in.
void RecordReader::placeInRealTime(const RecordedFacts& facts, Record& record) {
    constexpr std::int64_t kCrossing = 2 * kSecondMs;
    const std::int64_t* previous = m_hasRefUtc ? &m_refUtc : nullptr;
    std::int64_t utc = 0;
    if (facts.present) {
        const std::vector<ZoneRule>& zones = facts.zones;
        m_rule = std::min(m_rule, zones.size() - 1);
        std::vector<std::int64_t> candidates;
        std::vector<std::size_t> rules;
        for (std::size_t j = m_rule; j < zones.size(); ++j) {
            const std::int64_t at = m_refMs - zones[j].offset * kSecondMs;
            if (at >= zones[j].utc * kSecondMs - kCrossing) {
                candidates.push_back(at);
                rules.push_back(j);
            }
        }
        if (candidates.empty()) {  // the clock went back while the file was current
            candidates.push_back(m_refMs - zones[m_rule].offset * kSecondMs);
            rules.push_back(m_rule);
        }
        utc = nearestAfter(candidates, previous);
        for (std::size_t i = 0; i < candidates.size(); ++i) {
            if (candidates[i] == utc) m_rule = rules[i];
        }
        record.zoneOffset = zones[m_rule].offset;
    } else {
        utc = localToUtcMs(m_refMs, previous);
        record.zoneOffset = static_cast<std::int32_t>((m_refMs - utc) / kSecondMs);
    }
    record.timed = true;
    record.utcMs = m_refUtc = utc;
    m_hasRefUtc = true;
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
                                              bool headed, DataEnd end) {
    const char* data = m_buffer.data() + m_start;
    const std::size_t size = m_buffer.size() - m_start;
    // A record ends with an empty line; a piece may also end with a plain line feed.
    const bool emptyLine = lineEnd >= textBegin + 1 && data[lineEnd - 1] == '\n';
    if (headed && !emptyLine) return Scan::Open;
    const std::size_t after = lineEnd + 1;
    if (after == size) {
        const bool quietEnd = emptyLine || !headed;
        const bool ends = end == DataEnd::Final || (end == DataEnd::Quiet && quietEnd);
        return ends ? Scan::Found : Scan::Wait;
    }
    const HeaderMatch next =
        matchHeader(data + after, size - after, &m_ahead.header, &m_ahead.length);
    if (next == HeaderMatch::Yes) m_ahead.at = m_start + after;
    return endBefore(next, end);
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

void RecordReader::take(Record& record, const HeaderFields* header, std::size_t textBegin,
                        std::size_t length, bool cut) {
    const char* data = m_buffer.data() + m_start;
    // Field by field rather than a fresh Record: a caller that passes the same one each time
    // keeps the memory of its strings (file and date).
    record.headed = header != nullptr;
    record.zeros = false;
    record.header = header != nullptr ? header->at(data) : Header();
    record.bytes = std::string_view(data, length);
    record.complete =
        length >= textBegin + 2 && data[length - 1] == '\n' && data[length - 2] == '\n';
    record.cut = cut;
    record.textBegin = textBegin;
    record.textEnd = record.complete ? length - 2 : length;
    const Segment& first = segmentAt(m_start);
    if (record.file != first.file.name) record.file = first.file.name;
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
    // The search for this record's end reads the next header into m_ahead: this one is kept.
    HeaderFields header = m_ahead.header;
    std::size_t headerLength = m_ahead.length;
    HeaderMatch start = HeaderMatch::Yes;
    if (m_ahead.at == m_start) {
        m_ahead.at = std::string::npos;
    } else {
        start = matchHeader(data, size, &header, &headerLength);
    }
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
}

// The records handed out view the buffer: the bytes they came from are dropped only when more
// bytes come in.
void RecordReader::compact() {
    if (m_start < 64 * 1024 && m_start < m_buffer.size()) return;
    // Drop the bytes handed out; the first file's offset moves along with them.
    Segment& first = m_segments.front();
    if (first.at < m_start) {
        first.offset += m_start - first.at;
        first.at = m_start;
    }
    for (Segment& segment : m_segments) segment.at -= m_start;
    m_ahead.at = m_ahead.at != std::string::npos && m_ahead.at >= m_start ? m_ahead.at - m_start
                                                                         : std::string::npos;
    m_buffer.erase(0, m_start);
    m_start = 0;
}

}  // namespace qellog
