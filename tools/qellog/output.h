#ifndef QELLOG_OUTPUT_H_
#define QELLOG_OUTPUT_H_

#include <string>

#include "read/read_warning.h"
#include "read/record.h"

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

// The line (without "qellog: " and the line feed) that tells the operator about `warning`.
std::string warningText(const ReadWarning& warning);
// Prints `warning` on standard error, as "qellog: " and its text.
void printWarning(const ReadWarning& warning);

}  // namespace qellog

#endif  // QELLOG_OUTPUT_H_
