#ifndef QEL_LOG_MODULE_THRESHOLDS_H_
#define QEL_LOG_MODULE_THRESHOLDS_H_

#include <atomic>
#include <string>
#include <utility>
#include <vector>

#include "log/module_threshold_table.h"

namespace qel {

// The thresholds per module pattern of the process: the current ModuleThresholdTable,
// published through one atomic pointer, null while no pattern is set.
//
// The record path reads it without a lock: with no pattern set it costs one relaxed load;
// otherwise a reader announces itself in a counter before it loads the table and leaves it
// after its lookup (threads share a few counters, each on a cache line of its own, so that
// threads that log at once seldom write to the same line). A change publishes a new table and retires the old one, which is freed by
// a later change that finds no reader inside at that moment: a reader that counted itself
// before that moment had loaded the table current then, never a retired one. Nobody waits for
// anybody, so a signal handler may log at any point, also on a thread that is changing the
// table.
//
// Changes are made with the manager's signal lock held (writer_lock.h): one change at a time,
// none across a fork, and none from a signal handler that interrupted a change on its thread.
class ModuleThresholds {
public:
    // The threshold of the records of `module`: the level of the pattern set last that matches
    // its first 127 characters (NULL read as ""), else `global`. Any thread, any time.
    static int thresholdFor(const char* module, int global) {
        if (s_table.load(std::memory_order_relaxed) == nullptr) {
            return global;
        }
        return lookUp(module, global);
    }

    // The changes, made with the manager's signal lock held. Patterns are valid
    // (ModuleThresholdTable::isValidPattern).
    // Sets each pattern to its level, in order, so that the last one is the one set last.
    static void set(const std::vector<std::pair<std::string, int>>& levels);
    // Removes the entry of exactly `pattern`, if there is one.
    static void clear(const std::string& pattern);
    // Removes every entry.
    static void clearAll();

private:
    static constexpr unsigned int kReaderSlots = 16;
    struct alignas(64) ReaderCount {
        std::atomic<unsigned int> count{0};  // lookups under way on the threads of this slot
    };

    static int lookUp(const char* module, int global);
    // True when every reader counter is zero.
    static bool noReader();
    // Makes `table` (owned from here on; null for none) the current table.
    static void publish(const ModuleThresholdTable* table);

    // The tables replaced but not freed yet; guarded by the signal lock. Never destroyed, so
    // that a change is safe also while the process exits.
    static std::vector<const ModuleThresholdTable*>& retired();

    static std::atomic<const ModuleThresholdTable*> s_table;
    static ReaderCount s_readers[kReaderSlots];
};

}  // namespace qel

#endif  // QEL_LOG_MODULE_THRESHOLDS_H_
