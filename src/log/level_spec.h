#ifndef QEL_LOG_LEVEL_SPEC_H_
#define QEL_LOG_LEVEL_SPEC_H_

#include <string>
#include <utility>
#include <vector>

namespace qel {

class QelLog;

// A text that sets thresholds, as qelLogSetLevelSpec and the environment variable
// QEL_LOG_LEVEL give it: items separated by ',', each LEVEL (the global threshold) or
// PATTERN=LEVEL (a module threshold), LEVEL being V, I, W, E or verbose, info, warning, error
// in any case. Spaces and tabs around items, patterns and levels do not count, nor do empty
// items. A text is applied whole or not at all.
class LevelSpec {
public:
    // The name of the environment variable read at start.
    static constexpr const char* kVariable = "QEL_LOG_LEVEL";

    // Reads `text`; NULL reads as "".
    explicit LevelSpec(const char* text);

    // What is wrong with the text, one clause per item that cannot be read, each naming the
    // item; empty when the whole text was read.
    const std::string& problems() const { return m_problems; }

    // Sets the thresholds the text names on `log`, in order. Only for a text without problems,
    // with the manager's signal lock held.
    void apply(QelLog& log) const;

    // Reads QEL_LOG_LEVEL, when it is set and the program is not set-user-id, and applies it;
    // a value that cannot be read changes nothing and gets one line on standard error. For the
    // manager's construction, with its signal lock held.
    static void applyEnvironment(QelLog& log);

private:
    void readItem(const std::string& item);

    bool m_hasGlobal = false;
    int m_global = 0;
    std::vector<std::pair<std::string, int>> m_modules;  // patterns and levels, in order
    std::string m_problems;
};

}  // namespace qel

#endif  // QEL_LOG_LEVEL_SPEC_H_
