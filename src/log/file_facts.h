#ifndef QEL_LOG_FILE_FACTS_H_
#define QEL_LOG_FILE_FACTS_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "platform/local_zone.h"

namespace qel {

// What the file writer records beside each log file it creates, as extended attributes of the
// file, so that a reader needs no guess about what the bytes alone leave open. The file's bytes
// and name stay exactly as they are. Set through the open descriptor, in this order, before the
// file's first byte:
//   user.qel.writer     "BOOT PID START": the boot's id, the process id and the process's
//                       start time (clock ticks since boot), one writing process across pid
//                       reuse; a child made by fork is a writer of its own.
//   user.qel.number     the writer's running number of the file, 1 for its first; a child made
//                       by fork goes on from the number it inherited.
//   user.qel.continues  the name of the file whose last record this file's first bytes
//                       complete; only on a file made to take the rest of a split record.
//   user.qel.zone       "UTC OFFSET ABBR\n" per local-time rule used while the file was
//                       current: when it was first used (whole seconds of the real-time clock;
//                       the first line is the file's opening), its offset east of UTC in
//                       seconds and its abbreviation. Rewritten with one more line when a
//                       record is stamped under another offset than the last line's, up to
//                       kMaxZoneLines lines.
//
// A fact costs a few system calls per file and nothing per record but one load of the zone
// cache's version. Where the file system refuses a fact, the file has no more facts (a reader treats a
// file with a writer but without the others as a file without facts) and the writer goes on;
// after "not supported" no fact is tried again until the folder changes.
//
// Not thread-safe: the file writer calls it under its own lock. Safe in a signal handler: it
// allocates nothing, formats its texts itself and reads /proc with open and read.
class FileFacts {
public:
    static constexpr int kMaxZoneLines = 16;

    FileFacts();
    FileFacts(const FileFacts&) = delete;
    FileFacts& operator=(const FileFacts&) = delete;

    // The writer's folder changed: facts are tried again there.
    void folderChanged() { m_refused = false; }
    // Records the facts of the file just created, locked and open as `descriptor`, and makes it
    // the current file. `continues`: the name of the file whose last record it completes, or
    // null.
    void recordNewFile(int descriptor, const char* continues);
    // The current file is closed: its zone is no longer followed.
    void fileClosed() { m_descriptor = -1; }
    // A record of the current file, stamped at the local time of day `timeOfDay` ("hh:mm:ss:ms"
    // as in the line): adds a zone line when it was stamped under another offset than the last
    // line's.
    void noteRecord(const char* timeOfDay);
    // In a child made by fork, from the fork handler: the parent's file is not the child's, and
    // the child's next file names the child's own identity. Async-signal-safe.
    void forgetInChild() {
        m_descriptor = -1;
        m_identityLength = 0;
    }

private:
    // Reads the boot id (once) and this process's identity; false when /proc cannot tell.
    bool readIdentity();
    // Sets one attribute on the current file; false (remembering a refusal) when it failed.
    bool set(const char* name, const char* value, size_t length);
    // Appends the line of the rule holding at `utcSeconds`, `offset` east of UTC, when there
    // is room; false when there is none.
    bool appendZoneLine(int64_t utcSeconds, int64_t offset);
    // The offset and abbreviation of local time at `utcSeconds`, read anew only when the last
    // reading's span does not hold it or the offset changed under it.
    const char* abbreviationAt(int64_t utcSeconds, int64_t offset);

    int m_descriptor;          // the current file with facts, or -1
    bool m_refused;            // the folder's file system does not support them
    uint64_t m_number;         // files created so far
    char m_bootId[40];         // empty until read
    char m_identity[96];       // "BOOT PID START"
    size_t m_identityLength;   // 0: not read in this process
    char m_zone[kMaxZoneLines * 64];
    size_t m_zoneLength;
    int m_zoneLines;
    int64_t m_lastOffset;      // the offset of the last zone line
    uint32_t m_zoneVersion;    // zoneCacheVersion() when the offset was last compared
    ZoneOffset m_reading;      // the last reading with an abbreviation
    char m_abbreviation[kAbbreviationSize];
};

}  // namespace qel

#endif  // QEL_LOG_FILE_FACTS_H_
