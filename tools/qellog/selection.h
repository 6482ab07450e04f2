#ifndef QELLOG_SELECTION_H_
#define QELLOG_SELECTION_H_

#include <cstdint>
#include <deque>
#include <utility>

#include "read/read_warning.h"
#include "read/record_filter.h"

namespace qellog {

// What cat and follow print of the records read: those that pass the filter, either each at
// once or, with a tail of N, only the last N of those read before endTail() (held meanwhile),
// or, for a second reading of the same records, a window of them (nothing held).
class Selection {
public:
    // `print` gets the records that go out; `tail`: keep back the last `lines` records until
    // endTail().
    Selection(const RecordFilter& filter, RecordSink print, bool tail, std::uint64_t lines)
        : m_filter(filter), m_print(std::move(print)), m_tailing(tail), m_lines(lines) {}

    // From here on only records number `skip` to `skip` + `lines` - 1 of those that pass go
    // out (counted from 0), at once.
    void window(std::uint64_t skip, std::uint64_t lines);
    void take(const Record& record);
    // Prints the records kept back; from here on each record that passes goes out at once.
    void endTail();

private:
    const RecordFilter& m_filter;
    RecordSink m_print;
    bool m_tailing;
    std::uint64_t m_lines;
    std::deque<Record> m_kept;
    bool m_windowed = false;
    std::uint64_t m_skip = 0;
};

}  // namespace qellog

#endif  // QELLOG_SELECTION_H_
