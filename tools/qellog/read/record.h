#ifndef QELLOG_READ_RECORD_H_
#define QELLOG_READ_RECORD_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "header.h"

namespace qellog {

// What is known of one record as read back, or of a piece of bytes that holds no record.
struct RecordFields {
    bool headed = false;    // false: a piece that cannot be read as a record
    bool complete = false;  // ends with the empty line that ends every record
    bool cut = false;       // longer than any record can be: the rest follows as another piece
    bool zeros = false;     // a run of NUL bytes, which the writer never writes: lost data
    Header header;          // its texts lie within `bytes`
    std::string_view bytes;  // as in the files: header, text and the closing line feeds
    std::size_t textBegin = 0, textEnd = 0;  // the text within `bytes`
    std::string file;                        // name of the file in which it starts
    std::uint64_t offset = 0;                // where in that file
    std::string date;                        // "yyyy-mm-dd", empty when the file has no dated name
    // When it was made, for a record with a date: milliseconds since 1970 in UTC, and the
    // writer's offset east of UTC in seconds at that moment (recorded beside the file, or else
    // the reading zone's: see civil_time.h).
    bool timed = false;
    std::int64_t utcMs = 0;
    std::int32_t zoneOffset = 0;

    std::string text() const { return std::string(bytes.substr(textBegin, textEnd - textBegin)); }
    // A record as the writer writes it, whole: anything else is read with a warning.
    bool whole() const { return headed && complete && !cut; }
};

// A record as the reader hands it out: its bytes (and the header's texts within them) are the
// reader's, valid until the reader is called again, so that reading copies nothing. A copy
// owns its bytes and may be kept.
struct Record : RecordFields {
    Record() = default;
    Record(const Record& other) : RecordFields(other) { ownBytes(); }
    Record& operator=(const Record& other);

private:
    void ownBytes();
    std::string m_owned;
};

// Where a record starts: a file name and a byte offset in it.
struct Position {
    std::string file;
    std::uint64_t offset = 0;
};

}  // namespace qellog

#endif  // QELLOG_READ_RECORD_H_
