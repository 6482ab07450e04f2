// qellog stats: a summary of a log folder, for a first look at what it holds.

#include "stats.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include "commands.h"
#include "json.h"
#include "output.h"
#include "read/civil_time.h"
#include "read/folder_reader.h"
#include "read_options.h"

namespace qellog {
namespace {

const char kStatsUsage[] =
    "Usage: qellog stats [OPTION]... DIR|FILE|-...\n"
    "Summarize the records of the log files in each DIR and of each FILE, read as qellog cat\n"
    "reads them: files and bytes, the time span, records per level and for the ten modules\n"
    "with most records, bytes that are not a record (pieces), and warnings.\n"
    "\n"
    "  -j, --json           the summary as one JSON object\n"
    "  -h, --help           print this help and exit\n";

const char kLevelLetters[] = "VIWE?";
constexpr std::size_t kTopModules = 10;

std::vector<std::pair<std::string, std::uint64_t>> topModules(
    const std::map<std::string, std::uint64_t>& modules) {
    std::vector<std::pair<std::string, std::uint64_t>> top(modules.begin(), modules.end());
    std::stable_sort(top.begin(), top.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    if (top.size() > kTopModules) top.resize(kTopModules);
    return top;
}

}  // namespace

void RecordStats::addFile(std::uint64_t bytes) {
    ++m_files;
    m_bytes += bytes;
}

void RecordStats::add(const Record& record) {
    if (!record.whole()) ++m_warnings;
    if (!record.headed) {
        ++m_pieces;
        return;
    }
    ++m_records;
    const char* level = std::strchr(kLevelLetters, record.header.level);
    ++m_levels[level != nullptr && *level != '\0' ? level - kLevelLetters : 4];
    ++m_modules[std::string(record.header.module)];
    if (record.timed) {
        if (!m_hasTime || record.utcMs < m_first) {
            m_first = record.utcMs;
            m_firstOffset = record.zoneOffset;
        }
        if (!m_hasTime || record.utcMs > m_last) {
            m_last = record.utcMs;
            m_lastOffset = record.zoneOffset;
        }
        m_hasTime = true;
    }
}

std::string RecordStats::text() const {
    char line[256];
    std::string out;
    std::snprintf(line, sizeof(line), "files     %llu, %llu bytes\n",
                  static_cast<unsigned long long>(m_files),
                  static_cast<unsigned long long>(m_bytes));
    out += line;
    out += "span      ";
    // As in JSON's ts, without the offset and with a space.
    const auto plain = [](std::int64_t ms, std::int32_t offset) {
        std::string text = shownTimestamp(ms, offset);
        text[10] = ' ';
        return text.substr(0, text.size() - 6);
    };
    out += m_hasTime ? plain(m_first, m_firstOffset) + " to " + plain(m_last, m_lastOffset) : "-";
    std::snprintf(line, sizeof(line),
                  "\nrecords   %llu: V %llu, I %llu, W %llu, E %llu, other %llu\n"
                  "pieces    %llu\nwarnings  %llu\nmodules   %zu, with most records:\n",
                  static_cast<unsigned long long>(m_records),
                  static_cast<unsigned long long>(m_levels[0]),
                  static_cast<unsigned long long>(m_levels[1]),
                  static_cast<unsigned long long>(m_levels[2]),
                  static_cast<unsigned long long>(m_levels[3]),
                  static_cast<unsigned long long>(m_levels[4]),
                  static_cast<unsigned long long>(m_pieces),
                  static_cast<unsigned long long>(m_warnings), m_modules.size());
    out += line;
    for (const auto& module : topModules(m_modules)) {
        std::snprintf(line, sizeof(line), "%12llu  ",
                      static_cast<unsigned long long>(module.second));
        out += line + module.first + "\n";
    }
    return out;
}

std::string RecordStats::json() const {
    const auto number = [](const char* name, std::uint64_t value) {
        return std::string("\"") + name + "\":" + std::to_string(value);
    };
    std::string out = "{" + number("files", m_files) + "," + number("bytes", m_bytes);
    out += ",\"first\":";
    out += m_hasTime ? "\"" + shownTimestamp(m_first, m_firstOffset) + "\"" : "null";
    out += ",\"last\":";
    out += m_hasTime ? "\"" + shownTimestamp(m_last, m_lastOffset) + "\"" : "null";
    out += "," + number("records", m_records) + ",\"levels\":{";
    for (int i = 0; i < 5; ++i) {
        const char name[2] = {kLevelLetters[i], '\0'};
        out += (i == 0 ? "" : ",") + number(i < 4 ? name : "other", m_levels[i]);
    }
    out += "},\"modules\":[";
    bool first = true;
    for (const auto& module : topModules(m_modules)) {
        out += first ? "{\"module\":" : ",{\"module\":";
        appendJsonString(out, module.first.data(), module.first.size());
        out += "," + number("records", module.second) + "}";
        first = false;
    }
    out += "]," + number("pieces", m_pieces) + "," + number("warnings", m_warnings) + "}";
    return out;
}

int runStats(int argc, char** argv) {
    ReadOptions options;
    const int parsed = parseReadOptions(argc, argv, ReadCommand::Stats, kStatsUsage, options);
    if (parsed != kExitSuccess) return parsed == kHelpPrinted ? kExitSuccess : parsed;
    RecordStats stats;
    std::vector<LogFile> files;
    const bool read = readPaths(
        options.paths,
        [&](const Record& record) {
            if (options.filter.matches(record)) stats.add(record);
        },
        printWarning, &files);
    for (const LogFile& file : files) {
        struct stat status;
        stats.addFile(stat(file.path.c_str(), &status) == 0
                          ? static_cast<std::uint64_t>(status.st_size)
                          : 0);
    }
    const std::string out = options.json ? stats.json() + "\n" : stats.text();
    std::fwrite(out.data(), 1, out.size(), stdout);
    if (std::fflush(stdout) != 0) {
        std::fprintf(stderr, "qellog: cannot write the summary: %s\n", std::strerror(errno));
        return kExitFailure;
    }
    return read ? kExitSuccess : kExitFailure;
}

}  // namespace qellog
