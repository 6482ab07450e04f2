#ifndef QELLOG_SELECTION_H_
#define QELLOG_SELECTION_H_

#include <cstdint>
#include <deque>

#include "filter.h"
#include "output.h"
#include "records.h"

namespace qellog {

// What cat and follow print of the records read: those that pass the filter, either each at
// once or, with a tail of N, only the last N of those read before endTail().
class Selection {
public:
    // `tail`: keep back the last `lines` records until endTail().
    Selection(const RecordFilter& filter, RecordPrinter& printer, bool tail, std::uint64_t lines)
        : m_filter(filter), m_printer(printer), m_tailing(tail), m_lines(lines) {}

    void take(const Record& record);
    // Prints the records kept back; from here on each record that passes goes out at once.
    void endTail();

private:
    const RecordFilter& m_filter;
    RecordPrinter& m_printer;
    bool m_tailing;
    std::uint64_t m_lines;
    std::deque<Record> m_kept;
};

}  // namespace qellog

#endif  // QELLOG_SELECTION_H_
