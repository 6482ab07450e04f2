#ifndef QELLOG_STATS_H_
#define QELLOG_STATS_H_

#include <cstdint>
#include <map>
#include <string>

#include "read/record.h"

namespace qellog {

// The summary that `qellog stats` prints: files and bytes read, the time span of the records,
// records per level and per module, pieces, and the records and pieces that cat warns about.
class RecordStats {
public:
    void addFile(std::uint64_t bytes);
    void add(const Record& record);

    // Plain text, one figure per line, the ten modules with most records last.
    std::string text() const;
    // The same as one JSON object on one line.
    std::string json() const;

private:
    std::uint64_t m_files = 0, m_bytes = 0;
    std::uint64_t m_records = 0, m_pieces = 0, m_warnings = 0;
    std::uint64_t m_levels[5] = {};  // V, I, W, E, other
    std::map<std::string, std::uint64_t> m_modules;
    bool m_hasTime = false;
    std::int64_t m_first = 0, m_last = 0;  // real times, ms since 1970 in UTC
    std::int32_t m_firstOffset = 0, m_lastOffset = 0;  // the offsets they were stamped under
};

}  // namespace qellog

#endif  // QELLOG_STATS_H_
