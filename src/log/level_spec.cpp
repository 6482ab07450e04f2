#include "log/level_spec.h"

#include <strings.h>

#include <cstdio>
#include <cstdlib>

#include "log/module_thresholds.h"
#include "log/qel_log.h"

namespace qel {
namespace {

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos) {
        return std::string();
    }
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The level a word names: the letter of LEVELSTRING or the level's name, in any case.
bool parseLevel(const std::string& word, int& level) {
    static const char* const kLetters[] = {"V", "I", "W", "E"};
    static const char* const kNames[] = {"verbose", "info", "warning", "error"};
    for (int i = 0; i < 4; ++i) {
        if (strcasecmp(word.c_str(), kLetters[i]) == 0 ||
            strcasecmp(word.c_str(), kNames[i]) == 0) {
            level = i;
            return true;
        }
    }
    return false;
}

}  // namespace

LevelSpec::LevelSpec(const char* text) {
    const std::string all = text != nullptr ? text : "";
    size_t start = 0;
    for (;;) {
        const size_t comma = all.find(',', start);
        readItem(trimmed(all.substr(start, comma == std::string::npos ? comma : comma - start)));
        if (comma == std::string::npos) {
            break;
        }
        start = comma + 1;
    }
}

void LevelSpec::readItem(const std::string& item) {
    if (item.empty()) {
        return;
    }
    const size_t equals = item.find('=');
    const bool global = equals == std::string::npos;
    const std::string levelWord = trimmed(global ? item : item.substr(equals + 1));
    const std::string pattern = trimmed(item.substr(0, global ? 0 : equals));
    int level = 0;
    std::string problem;
    if (!parseLevel(levelWord, level)) {
        problem = "\"" + levelWord + "\" is not a level";
    } else if (global) {
        m_hasGlobal = true;
        m_global = level;
    } else if (pattern.empty()) {
        problem = "no module pattern before '='";
    } else if (!ModuleThresholdTable::isValidPattern(pattern.c_str())) {
        problem = "a pattern has at most 127 characters";
    } else {
        m_modules.emplace_back(pattern, level);
    }
    if (!problem.empty()) {
        m_problems += (m_problems.empty() ? "\"" : "; \"") + item + "\": " + problem;
    }
}

void LevelSpec::apply(QelLog& log) const {
    if (m_hasGlobal) {
        log.setGlobalLevel(static_cast<QelLogLevel>(m_global));
    }
    ModuleThresholds::set(m_modules);
}

void LevelSpec::applyEnvironment(QelLog& log) {
    // A set-user-id program does not let whoever starts it choose what it logs.
    const char* value = secure_getenv(kVariable);
    if (value == nullptr) {
        return;
    }
    const LevelSpec fromVariable(value);
    if (fromVariable.problems().empty()) {
        fromVariable.apply(log);
        return;
    }
    const std::string line = std::string("qel: ") + kVariable +
                             " not applied: " + fromVariable.problems() +
                             "; expected LEVEL or PATTERN=LEVEL items separated by commas, LEVEL "
                             "one of V, I, W, E, verbose, info, warning, error\n";
    fputs(line.c_str(), stderr);
}

}  // namespace qel
