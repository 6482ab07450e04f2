#include "output.h"

#include <cstdio>

#include "colour.h"
#include "json.h"

namespace qellog {
namespace {

// What is wrong with a record that is not whole, as the warning says it.
std::string problemOf(const Record& record, bool json) {
    if (record.zeros) {
        return std::to_string(record.bytes.size()) + " NUL bytes (data lost in a crash), left out";
    }
    if (!record.headed) {
        return std::to_string(record.bytes.size()) + " bytes that are not a record, printed " +
               (json ? "as a record with an empty header" : "as they are");
    }
    if (record.cut) return "a record without end, printed in pieces";
    return "a record cut off before its closing empty line";
}

}  // namespace

void RecordPrinter::print(const Record& record) {
    if (!record.whole()) {
        std::fprintf(stderr, "qellog: %s at byte %llu: %s\n", record.file.c_str(),
                     static_cast<unsigned long long>(record.offset),
                     problemOf(record, m_json).c_str());
    }
    if (record.zeros) return;
    if (m_json) {
        const std::string line = recordJson(record) + "\n";
        std::fwrite(line.data(), 1, line.size(), stdout);
    } else if (m_colour) {
        const std::string coloured = colouredRecord(record);
        std::fwrite(coloured.data(), 1, coloured.size(), stdout);
    } else {
        fwrite_unlocked(record.bytes.data(), 1, record.bytes.size(), stdout);  // one thread
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
        case WarningKind::Guessed:
            return file + " has no recorded facts and may continue any of " + warning.reason +
                   ": joined to the first, a guess";
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
