#ifndef QELLOG_READ_RECORDED_FACTS_H_
#define QELLOG_READ_RECORDED_FACTS_H_

#include <cstdint>
#include <string>
#include <vector>

namespace qellog {

// One local-time rule that a writer used while a file was current: from `utc` (seconds since
// 1970, the real-time clock) on, it stamped records with the local time `offset` seconds east
// of UTC, called `abbr`.
struct ZoneRule {
    std::int64_t utc = 0;
    std::int32_t offset = 0;
    std::string abbr;
};

// What the file writer records beside each log file, as extended attributes of the file (the
// writer sets them through its descriptor before the file's first byte):
//   user.qel.writer     "BOOT PID START": the boot, the process and its start in clock ticks
//                       since boot, one writing process across pid reuse;
//   user.qel.number     the writer's running number of the file (1 for its first);
//   user.qel.continues  the name of the file whose last record this file's first bytes
//                       complete (only on such a file);
//   user.qel.zone       "UTC OFFSET ABBR\n" per local-time rule used while the file was
//                       current, the first line at its opening.
// A file copied without its attributes, one on a file system without them, or one whose writer
// died between the first attribute and the last has no facts: `present` is false and the reader
// infers what it needs from the bytes.
struct RecordedFacts {
    bool present = false;
    std::string writer;  // "BOOT PID START" as recorded
    std::string boot;
    std::uint64_t start = 0;  // START: orders the processes of one boot by their start
    std::uint64_t number = 0;
    std::string continues;  // empty: the file continues no record
    std::vector<ZoneRule> zones;
};

// The facts from the attributes' texts (`continues` may be empty). False, with `facts` not
// present, when one of them is not what the writer records.
bool parseRecordedFacts(const std::string& writer, const std::string& number,
                        const std::string& continues, const std::string& zone,
                        RecordedFacts& facts);
// Only the zone attribute's lines into `rules`; false when it is not what the writer records.
bool parseZoneRules(const std::string& zone, std::vector<ZoneRule>& rules);

// The facts recorded on the file at `path` (not present when any is missing or unreadable).
RecordedFacts readRecordedFacts(const std::string& path);
// Reads the zone attribute again (the writer adds a line when the offset changes while the file
// is current). False when it cannot be read.
bool readZoneRules(const std::string& path, std::vector<ZoneRule>& rules);

}  // namespace qellog

#endif  // QELLOG_READ_RECORDED_FACTS_H_
