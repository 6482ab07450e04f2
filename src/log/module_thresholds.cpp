#include "log/module_thresholds.h"

namespace qel {

std::atomic<const ModuleThresholdTable*> ModuleThresholds::s_table{nullptr};
std::atomic<unsigned int> ModuleThresholds::s_readers{0};

std::vector<const ModuleThresholdTable*>& ModuleThresholds::retired() {
    static auto* const tables = new std::vector<const ModuleThresholdTable*>();
    return *tables;
}

// The counter is raised before the table is loaded and lowered after the lookup; the
// sequentially consistent order of those two steps against a change's exchange and its
// reading of the counter is what lets that change free what it retired (see publish).
int ModuleThresholds::lookUp(const char* module, int global) {
    s_readers.fetch_add(1, std::memory_order_seq_cst);
    const ModuleThresholdTable* table = s_table.load(std::memory_order_seq_cst);
    const int level = table != nullptr ? table->levelFor(module, global) : global;
    s_readers.fetch_sub(1, std::memory_order_release);
    return level;
}

void ModuleThresholds::set(const std::vector<std::pair<std::string, int>>& levels) {
    if (levels.empty()) {
        return;
    }
    const ModuleThresholdTable* table = s_table.load(std::memory_order_relaxed);
    const ModuleThresholdTable* next = nullptr;
    for (const auto& level : levels) {
        const ModuleThresholdTable* made = ModuleThresholdTable::with(
            next != nullptr ? next : table, level.first, level.second);
        delete next;  // a step between the current table and the new one, never published
        next = made;
    }
    publish(next);
}

void ModuleThresholds::clear(const std::string& pattern) {
    if (const ModuleThresholdTable* table = s_table.load(std::memory_order_relaxed)) {
        publish(ModuleThresholdTable::without(*table, pattern));
    }
}

void ModuleThresholds::clearAll() {
    publish(nullptr);
}

// A reader that counted itself after the exchange finds the new table. One that counted itself
// before it is still counted when the counter is read here, unless its lookup has ended (its
// release then orders the lookup before the frees). So a counter read as zero after the
// exchange means that no reader holds any retired table.
void ModuleThresholds::publish(const ModuleThresholdTable* table) {
    const ModuleThresholdTable* previous = s_table.exchange(table, std::memory_order_seq_cst);
    std::vector<const ModuleThresholdTable*>& replaced = retired();
    if (previous != nullptr) {
        replaced.push_back(previous);
    }
    if (s_readers.load(std::memory_order_seq_cst) == 0) {
        for (const ModuleThresholdTable* old : replaced) {
            delete old;
        }
        replaced.clear();
    }
}

}  // namespace qel
