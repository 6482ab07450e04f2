#include "recorded_facts.h"

#include <sys/xattr.h>

#include <cstdlib>
#include <sstream>

namespace qellog {
namespace {

// The writer keeps its texts far below this: 16 zone lines, or a file name.
constexpr std::size_t kLongestFact = 4096;

bool attribute(const std::string& path, const char* name, std::string& value) {
    char buffer[kLongestFact];
    const ssize_t got = getxattr(path.c_str(), name, buffer, sizeof(buffer));
    if (got < 0) return false;
    value.assign(buffer, static_cast<std::size_t>(got));
    return true;
}

// A decimal number that is all of `text`.
bool decimal(const std::string& text, std::int64_t& value, bool allowSign) {
    if (text.empty() || text.size() > 19 || (!allowSign && text[0] == '-')) return false;
    char* end = nullptr;
    value = std::strtoll(text.c_str(), &end, 10);
    return *end == '\0' && (text[0] == '-' || (text[0] >= '0' && text[0] <= '9'));
}

}  // namespace

bool parseZoneRules(const std::string& zone, std::vector<ZoneRule>& rules) {
    rules.clear();
    std::istringstream lines(zone);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        std::string utc, offset;
        ZoneRule rule;
        std::int64_t seconds = 0;
        if (!(words >> utc >> offset >> rule.abbr) || !decimal(utc, rule.utc, true) ||
            !decimal(offset, seconds, true) || seconds < -86400 || seconds > 86400) {
            return false;
        }
        rule.offset = static_cast<std::int32_t>(seconds);
        rules.push_back(rule);
    }
    return !rules.empty() && !zone.empty() && zone.back() == '\n';
}

bool parseRecordedFacts(const std::string& writer, const std::string& number,
                        const std::string& continues, const std::string& zone,
                        RecordedFacts& facts) {
    facts = RecordedFacts();
    std::istringstream words(writer);
    std::string pid, start, rest;
    std::int64_t value = 0, count = 0;
    if (!(words >> facts.boot >> pid >> start) || (words >> rest) || facts.boot.size() != 36 ||
        !decimal(pid, value, false) || !decimal(start, value, false) ||
        !decimal(number, count, false) || count < 1 ||
        continues.find('/') != std::string::npos || !parseZoneRules(zone, facts.zones)) {
        facts = RecordedFacts();
        return false;
    }
    facts.start = static_cast<std::uint64_t>(value);
    facts.writer = writer;
    facts.number = static_cast<std::uint64_t>(count);
    facts.continues = continues;
    facts.present = true;
    return true;
}

RecordedFacts readRecordedFacts(const std::string& path) {
    std::string writer, number, continues, zone;
    RecordedFacts facts;
    if (attribute(path, "user.qel.writer", writer) && attribute(path, "user.qel.number", number) &&
        attribute(path, "user.qel.zone", zone)) {
        attribute(path, "user.qel.continues", continues);
        parseRecordedFacts(writer, number, continues, zone, facts);
    }
    return facts;
}

bool readZoneRules(const std::string& path, std::vector<ZoneRule>& rules) {
    std::string zone;
    std::vector<ZoneRule> read;
    if (!attribute(path, "user.qel.zone", zone) || !parseZoneRules(zone, read)) return false;
    rules = read;
    return true;
}

}  // namespace qellog
