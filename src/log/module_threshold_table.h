#ifndef QEL_LOG_MODULE_THRESHOLD_TABLE_H_
#define QEL_LOG_MODULE_THRESHOLD_TABLE_H_

#include <cstddef>
#include <string>
#include <vector>

namespace qel {

// One set of thresholds per module pattern, never changed once made: a change makes a new
// table from the old one, so that a thread reading a table never sees it change under it.
// A pattern is a module name in which '*' stands for any run of characters and '?' for any
// one byte. Lookups may run on any thread, at once, and in a signal handler: they allocate
// nothing and take no lock.
class ModuleThresholdTable {
public:
    // The longest pattern, and the part of a module name that is compared: a record carries
    // the first 127 characters of its module name.
    static constexpr size_t kMaxNameLength = 127;

    // True when `pattern` can be set: not NULL, not empty, at most kMaxNameLength characters.
    static bool isValidPattern(const char* pattern);

    // A new table, owned by the caller: the entries of `table` (none when null) with `pattern`
    // at `level` as the entry set last, in place of an entry of the same pattern.
    static ModuleThresholdTable* with(const ModuleThresholdTable* table, const std::string& pattern,
                                      int level);
    // A new table, owned by the caller, without the entry of exactly `pattern`; null when no
    // entry is left.
    static ModuleThresholdTable* without(const ModuleThresholdTable& table,
                                         const std::string& pattern);

    // The level of the entry set last whose pattern matches the first kMaxNameLength
    // characters of `module` (NULL read as ""), or `fallback` when none matches.
    int levelFor(const char* module, int fallback) const;

private:
    struct Entry {
        std::string pattern;
        int level;
        bool hasWildcard;  // false: the pattern matches its own text only
    };
    std::vector<Entry> m_entries;  // in the order they were set, the one set last at the end
};

}  // namespace qel

#endif  // QEL_LOG_MODULE_THRESHOLD_TABLE_H_
