#include "log/module_threshold_table.h"

#include <cstring>

namespace qel {
namespace {

// True when `pattern` matches all of `name`. '*' matches any run of bytes and '?' any one
// byte; everything else matches itself. A mismatch after a '*' lets that '*' take one byte
// more and tries again from there, so the work stays within the product of the two lengths.
bool matches(const std::string& pattern, const char* name, size_t nameLength) {
    const size_t patternLength = pattern.size();
    size_t p = 0;
    size_t n = 0;
    size_t star = std::string::npos;  // the position of the last '*' met in the pattern
    size_t starTaken = 0;             // the name's position where that '*' ends for now
    while (n < nameLength) {
        if (p < patternLength && (pattern[p] == '?' || pattern[p] == name[n])) {
            ++p;
            ++n;
        } else if (p < patternLength && pattern[p] == '*') {
            star = p++;
            starTaken = n;
        } else if (star != std::string::npos) {
            p = star + 1;
            n = ++starTaken;
        } else {
            return false;
        }
    }
    while (p < patternLength && pattern[p] == '*') {
        ++p;
    }
    return p == patternLength;
}

}  // namespace

bool ModuleThresholdTable::isValidPattern(const char* pattern) {
    return pattern != nullptr && pattern[0] != '\0' &&
           strnlen(pattern, kMaxNameLength + 1) <= kMaxNameLength;
}

ModuleThresholdTable* ModuleThresholdTable::with(const ModuleThresholdTable* table,
                                                 const std::string& pattern, int level) {
    ModuleThresholdTable* next =
        table != nullptr ? without(*table, pattern) : nullptr;
    if (next == nullptr) {
        next = new ModuleThresholdTable();
    }
    const bool hasWildcard = pattern.find_first_of("*?") != std::string::npos;
    next->m_entries.push_back(Entry{pattern, level, hasWildcard});
    return next;
}

ModuleThresholdTable* ModuleThresholdTable::without(const ModuleThresholdTable& table,
                                                    const std::string& pattern) {
    ModuleThresholdTable* next = new ModuleThresholdTable();
    for (const Entry& entry : table.m_entries) {
        if (entry.pattern != pattern) {
            next->m_entries.push_back(entry);
        }
    }
    if (next->m_entries.empty()) {
        delete next;
        return nullptr;
    }
    return next;
}

int ModuleThresholdTable::levelFor(const char* module, int fallback) const {
    const char* name = module != nullptr ? module : "";
    const size_t nameLength = strnlen(name, kMaxNameLength);
    for (auto entry = m_entries.rbegin(); entry != m_entries.rend(); ++entry) {
        const bool found = entry->hasWildcard
                               ? matches(entry->pattern, name, nameLength)
                               : entry->pattern.size() == nameLength &&
                                     memcmp(entry->pattern.data(), name, nameLength) == 0;
        if (found) {
            return entry->level;
        }
    }
    return fallback;
}

}  // namespace qel
