#include "log/module_thresholds.h"

namespace qel {

std::atomic<const ModuleThresholdTable*> ModuleThresholds::s_table{nullptr};
ModuleThresholds::ReaderCount ModuleThresholds::s_readers[kReaderSlots];

namespace {

// The reader slot of the calling thread, handed out in turn at its first lookup; 0 until then.
// Initial-exec, so that a signal handler may read it without any allocation.
thread_local unsigned int t_readerSlot __attribute__((tls_model("initial-exec"))) = 0;
std::atomic<unsigned int> g_nextReaderSlot{0};

}  // namespace

std::vector<const ModuleThresholdTable*>& ModuleThresholds::retired() {
    static auto* const tables = new std::vector<const ModuleThresholdTable*>();
    return *tables;
}

// The thread's counter is raised before the table is loaded and lowered after the lookup; the
// sequentially consistent order of those two steps against a change's exchange and its
// reading of the counters is what lets that change free what it retired (see publish).
int ModuleThresholds::lookUp(const char* module, int global) {
    if (t_readerSlot == 0) {
        t_readerSlot = g_nextReaderSlot.fetch_add(1, std::memory_order_relaxed) % kReaderSlots + 1;
    }
    std::atomic<unsigned int>& readers = s_readers[t_readerSlot - 1].count;
    readers.fetch_add(1, std::memory_order_seq_cst);
    const ModuleThresholdTable* table = s_table.load(std::memory_order_seq_cst);
    const int level = table != nullptr ? table->levelFor(module, global) : global;
    readers.fetch_sub(1, std::memory_order_release);
    return level;
}

bool ModuleThresholds::noReader() {
    for (const ReaderCount& readers : s_readers) {
        if (readers.count.load(std::memory_order_seq_cst) != 0) {
            return false;
        }
    }
    return true;
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
// before it is still counted when its counter is read here, unless its lookup has ended (its
// release then orders the lookup before the frees). So counters read as zero after the
// exchange mean that no reader holds any retired table; each counter answers for the readers
// that use it, whenever it is read.
void ModuleThresholds::publish(const ModuleThresholdTable* table) {
    const ModuleThresholdTable* previous = s_table.exchange(table, std::memory_order_seq_cst);
    std::vector<const ModuleThresholdTable*>& replaced = retired();
    if (previous != nullptr) {
        replaced.push_back(previous);
    }
    if (noReader()) {
        for (const ModuleThresholdTable* old : replaced) {
            delete old;
        }
        replaced.clear();
    }
}

}  // namespace qel
