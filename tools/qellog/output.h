#ifndef QELLOG_OUTPUT_H_
#define QELLOG_OUTPUT_H_

#include <functional>
#include <string>

#include "records.h"

namespace qellog {

// Prints records on standard output, as they were in the files or one JSON object per line,
// and warns on standard error about bytes that are not a whole record. Nothing is dropped.
// `colour` adds terminal colours to the records as in the files.
class RecordPrinter {
public:
    explicit RecordPrinter(bool json, bool colour = false) : m_json(json), m_colour(colour) {}
    void print(const Record& record);
    // Pushes what was printed out of the process. Returns false when standard output failed.
    bool flush();

private:
    bool m_json;
    bool m_colour;
};

// Reads the file at `path` from `offset` to its current end into `reader`. Returns the number
// of bytes read, or -1 with errno set when the file cannot be opened or read. `drain` (when
// set) runs after each piece of the file, so that a large file need not be held whole.
long long readInto(const std::string& path, unsigned long long offset, RecordReader& reader,
                   const std::function<void()>& drain = nullptr);

}  // namespace qellog

#endif  // QELLOG_OUTPUT_H_
