#ifndef QELLOG_RECORDS_H_
#define QELLOG_RECORDS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qellog {

// The local time in a log file's name QelLog<yyyy>-<mm>-<dd>-<hh>-<mm>-<ss>-<ms>.log.
struct FileTime {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, millisecond = 0;
};

// Reads a bare file name (no folder). Returns false for any name the writer does not make.
bool parseLogFileName(const std::string& name, FileTime& time);

// Orders names by their time: the writer never gives two files the same millisecond, so this
// is the order in which they were made.
bool operator<(const FileTime& a, const FileTime& b);

struct LogFile {
    std::string path;  // folder and name
    std::string name;  // name only
    bool named = false;  // the name has the writer's pattern; `time` holds its time
    FileTime time;
    // What the file system said when the file was listed (zero when it was not asked).
    std::uint64_t size = 0;
    std::uint64_t device = 0, inode = 0;
    std::int64_t modified = 0;  // seconds since 1970
};

// The entry for the file at `path` (a folder, if any, and a name); `named` and `time` tell
// whether and when the writer made its name.
LogFile logFileAt(const std::string& path);
// `name` in `folder`, with one "/" between them.
std::string pathIn(const std::string& folder, const std::string& name);

// Fills `file`'s size, identity and time of last write from the file system; false when the
// file cannot be looked at or is no regular file.
bool statLogFile(LogFile& file);

// The regular files in `folder` with the writer's name pattern, oldest name first (with their
// size, identity and time of last write). Returns false, with the reason in `error`, when the
// folder cannot be read.
bool listLogFiles(const std::string& folder, std::vector<LogFile>& files, std::string& error);

// Milliseconds since 1970-01-01 00:00 of the calendar date and time, taken as UTC: a scale on
// which dates and times of day of the log can be compared and moved by whole days.
std::int64_t civilMs(int year, int month, int day, int msOfDay);
// "yyyy-mm-dd" of a value of that scale.
std::string civilDate(std::int64_t ms);

// The header "[module][V1.8.63 L hh:mm:ss:ms tid]" that starts every record. The module is
// any 0 to 127 bytes but NUL (line feeds and "]" too); L is V, I, W, E, or ? for a level that
// has no letter.
struct Header {
    std::string module;
    std::string version;  // "1.8.63"
    char level = '?';
    std::string time;  // "hh:mm:ss:ms", as printed
    unsigned long threadId = 0;
    int msOfDay = 0;
};

enum class HeaderMatch { Yes, No, Partial };

// Tries to read a header at data[0..size). Yes: `length` is its length and `header` its
// fields. Partial: the bytes end before it could be decided. No: there is no header here.
// Either pointer may be null.
HeaderMatch matchHeader(const char* data, std::size_t size, Header* header, std::size_t* length);

// One record as read back, or a piece of bytes that holds no record.
struct Record {
    bool headed = false;    // false: a piece that cannot be read as a record
    bool complete = false;  // ends with the empty line that ends every record
    bool cut = false;       // longer than any record can be: the rest follows as another piece
    bool zeros = false;     // a run of NUL bytes, which the writer never writes: lost data
    Header header;
    std::string bytes;  // as in the files: header, text and the closing line feeds
    std::size_t textBegin = 0, textEnd = 0;  // the text within `bytes`
    std::string file;                        // name of the file in which it starts
    std::uint64_t offset = 0;                // where in that file
    std::string date;                        // "yyyy-mm-dd", empty when the file has no dated name
};

// Where a record starts: a file name and a byte offset in it.
struct Position {
    std::string file;
    std::uint64_t offset = 0;
};

// What the caller knows about the bytes after the ones handed in so far.
enum class DataEnd {
    More,   // more may come: a record that may go on is kept
    Quiet,  // the newest file has not grown for a while: a record that ends with its empty
            // line at the end of the data is taken as complete
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
    void append(const char* data, std::size_t size);
    // Takes the next record. Returns false when there is none yet (or, with Final, none left).
    bool next(Record& record, DataEnd end);

    // Where the next record starts. Before any file: an empty name.
    Position position() const;
    // The date of the next record is worked out from the time of the record before it: the
    // caller that resumes keeps it along with the position.
    void reference(std::string& file, std::int64_t& ms) const;
    void setReference(const std::string& file, std::int64_t ms);
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
    std::string dateOf(const Segment& segment, const Record& record);
    // The steps of next(): where the record at m_start ends, whether it ends before the file
    // `segment` or after the line feed at `lineEnd` (offsets from m_start), and handing it out.
    Scan findEnd(std::size_t textBegin, bool headed, DataEnd end, std::size_t& length);
    Scan endAfterLine(std::size_t lineEnd, std::size_t textBegin, bool headed, DataEnd end) const;
    void take(Record& record, const Header* header, std::size_t textBegin, std::size_t length,
              bool cut);
    void consume(std::size_t length);

    std::string m_buffer;
    std::size_t m_start = 0;     // index of the next record in m_buffer
    std::size_t m_scanFrom = 0;  // bytes of the next record known not to end it
    std::vector<Segment> m_segments;
    std::string m_refFile;
    std::int64_t m_refMs = 0;
};

}  // namespace qellog

#endif  // QELLOG_RECORDS_H_
