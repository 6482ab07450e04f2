#include "output.h"

#include <cstdio>

#include "colour.h"
#include "json.h"

namespace qellog {

void RecordPrinter::print(const Record& record) {
    const unsigned long long offset = record.offset;
    if (record.zeros) {
        std::fprintf(stderr, "qellog: %s at byte %llu: %zu NUL bytes (data lost in a crash), "
                     "left out\n", record.file.c_str(), offset, record.bytes.size());
        return;
    }
    if (!record.headed) {
        std::fprintf(stderr,
                     "qellog: %s at byte %llu: %zu bytes that are not a record, printed %s\n",
                     record.file.c_str(), offset, record.bytes.size(),
                     m_json ? "as a record with an empty header" : "as they are");
    } else if (record.cut) {
        std::fprintf(stderr, "qellog: %s at byte %llu: a record without end, printed in pieces\n",
                     record.file.c_str(), offset);
    } else if (!record.complete) {
        std::fprintf(stderr,
                     "qellog: %s at byte %llu: a record cut off before its closing empty line\n",
                     record.file.c_str(), offset);
    }
    if (m_json) {
        const std::string line = recordJson(record) + "\n";
        std::fwrite(line.data(), 1, line.size(), stdout);
    } else if (m_colour) {
        const std::string coloured = colouredRecord(record);
        std::fwrite(coloured.data(), 1, coloured.size(), stdout);
    } else {
        std::fwrite(record.bytes.data(), 1, record.bytes.size(), stdout);
    }
}

bool RecordPrinter::flush() { return std::fflush(stdout) == 0 && !std::ferror(stdout); }

std::string warningText(const ReadWarning& warning) {
    const std::string& file = warning.file;
    switch (warning.kind) {
        case WarningKind::CannotRead: return "cannot read '" + file + "': " + warning.reason;
        case WarningKind::CannotReadFolder:
            return "cannot read folder '" + file + "': " + warning.reason;
        case WarningKind::ClockWentBack:
            return file + ": the clock went back while the files were written; the records may "
                          "not be in the order they were written";
        case WarningKind::Replaced:
            return file + " was replaced by another file; reading the new one";
        case WarningKind::GoneUnread: return file + " is gone before it was read to its end";
        case WarningKind::EndGuessed:
            return file + " at byte " + std::to_string(warning.offset) +
                   ": the record before was taken as complete when the file stopped growing, "
                   "but it went on";
    }
    return file;
}

void printWarning(const ReadWarning& warning) {
    std::fprintf(stderr, "qellog: %s\n", warningText(warning).c_str());
}

}  // namespace qellog
