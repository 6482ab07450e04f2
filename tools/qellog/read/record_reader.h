#ifndef QELLOG_READ_RECORD_READER_H_
#define QELLOG_READ_RECORD_READER_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "log_file.h"
#include "record.h"

namespace qellog {

// What the caller knows about the bytes after the ones handed in so far.
enum class DataEnd {
    More,   // more may come: a record that may go on is kept
    Quiet,  // the newest file has not grown for a while: a record that ends with its empty
            // line (a piece: with a line feed) at the end of the data is taken as complete
    Final,  // nothing more comes: everything left is handed out
};

// Rejoins the records of log files. Bytes go in file by file; whole records come out. The
// rules that decide where a record ends are the ones that docs/operations.md gives:
// - a record starts with a header; it ends with an empty line ("\n\n") that is followed by the
//   next header, or by the end of the data, or at a file that does not continue it (see
//   beginFile; which file continues which is the caller's choice, see planReading);
// - bytes where a record should start but no header is are a piece; a piece ends where a
//   record would end, or before a header at the start of a line;
// - a NUL byte ends a record or a piece; a run of them is handed out as a record of its own.
class RecordReader {
public:
    // The bytes appended next come from `file`, starting at `offset` in it. `continues`: they
    // go on with the record before them, whatever they start with (the writer split it at its
    // size limit); otherwise that record ends here, and bytes without a header are a piece.
    void beginFile(const LogFile& file, std::uint64_t offset, bool continues);
    // Bytes handed in before end the life of the records taken from them.
    void append(const char* data, std::size_t size);
    // Takes the next record. Returns false when there is none yet (or, with Final, none left).
    // The record views the reader's bytes until the next append (see Record).
    bool next(Record& record, DataEnd end);

    // Where the next record starts. Before any file: an empty name.
    Position position() const;
    // The date of the next record is worked out from the time of the record before it: the
    // caller that resumes keeps it along with the position.
    void reference(std::string& file, std::int64_t& ms) const;
    void setReference(const std::string& file, std::int64_t ms);
    // `file`, already begun, has new recorded facts (its writer added a zone line).
    void refreshFacts(const LogFile& file);
    // Bytes handed in but not yet handed out as records.
    std::size_t pending() const { return m_buffer.size() - m_start; }
    // Bytes are pending and do not end with an empty line: the data ends inside a record.
    bool endsInside() const {
        return pending() > 0 &&
               (pending() < 2 || m_buffer.compare(m_buffer.size() - 2, 2, "\n\n") != 0);
    }

    // How the search for the end of a record came out: found, not decidable from the bytes so
    // far, not here (search on), or no end within the longest record.
    enum class Scan { Found, Wait, Open, Cut };

private:
    struct Segment {
        std::size_t at;  // index in m_buffer of the file's first byte here
        LogFile file;
        std::uint64_t offset;  // its offset in the file
        bool continues;
    };
    const Segment& segmentAt(std::size_t index) const;
    std::string dateOf(const Segment& segment, Record& record);
    void placeInRealTime(const RecordedFacts& facts, Record& record);
    // The steps of next(): where the record at m_start ends, whether it ends before the file
    // `segment` or after the line feed at `lineEnd` (offsets from m_start), and handing it out.
    Scan findEnd(std::size_t textBegin, bool headed, DataEnd end, std::size_t& length);
    Scan endAfterLine(std::size_t lineEnd, std::size_t textBegin, bool headed, DataEnd end);
    void take(Record& record, const HeaderFields* header, std::size_t textBegin,
              std::size_t length, bool cut);
    void consume(std::size_t length);
    void compact();

    std::string m_buffer;
    std::size_t m_start = 0;     // index of the next record in m_buffer
    std::size_t m_scanFrom = 0;  // bytes of the next record known not to end it
    std::vector<Segment> m_segments;
    std::string m_refFile;
    std::int64_t m_refMs = 0;
    std::int64_t m_dateDay = 0;  // the day of m_dateText, when that is not empty
    std::string m_dateText;
    // The header found after the end of a record, which starts the next one: read once. More
    // bytes never undo a header found, so it holds until the buffer moves.
    struct Ahead {
        std::size_t at = std::string::npos;  // index in m_buffer; npos: none
        HeaderFields header;
        std::size_t length = 0;
    } m_ahead;
    // The real time of the record before, and the recorded zone rule it was stamped under.
    bool m_hasRefUtc = false;
    std::int64_t m_refUtc = 0;
    std::size_t m_rule = 0;
};

}  // namespace qellog

#endif  // QELLOG_READ_RECORD_READER_H_
