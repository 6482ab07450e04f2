#include "writing_order.h"

#include <algorithm>
#include <map>
#include <numeric>

#include "civil_time.h"

namespace qellog {
namespace {

// File times are whole seconds; a name is the millisecond of the opening.
constexpr std::int64_t kSlackMs = 2 * kSecondMs;

std::int64_t nameLocalMs(const FileTime& t) {
    return civilMs(t.year, t.month, t.day,
                   ((t.hour * 60 + t.minute) * 60 + std::min(t.second, 59)) * 1000 +
                       t.millisecond);
}

// One writer's files, known by its recorded facts.
struct Writer {
    std::vector<std::size_t> files;  // indexes, in the order of their numbers
    std::int64_t first = 0, last = 0;  // the earliest and latest real times of opening
    std::int64_t shift = 0;            // added to its files' times to order them
};

}  // namespace

std::int64_t openedUtcMs(const LogFile& file) {
    const std::int64_t local = nameLocalMs(file.time);
    if (file.facts.present) return local - file.facts.zones[0].offset * kSecondMs;
    std::int64_t best = localToUtcMs(local);
    for (const std::int32_t offset : zoneOffsetsOf(local)) {
        const std::int64_t at = local - offset * kSecondMs;
        // Opened before its last write; of two that were, the later is the nearer to it.
        if (file.modified != 0 && at <= file.modified * kSecondMs + kSlackMs && at > best) {
            best = at;
        }
    }
    return best;
}

void orderByWriting(std::vector<LogFile>& files, std::int64_t now, const WarningSink& onWarning) {
    const std::size_t count = files.size();
    std::vector<std::int64_t> opened(count);
    std::map<std::string, Writer> writers;
    for (std::size_t i = 0; i < count; ++i) {
        opened[i] = openedUtcMs(files[i]);
        if (files[i].facts.present) writers[files[i].facts.writer].files.push_back(i);
    }
    std::vector<Writer*> byStart;
    for (auto& entry : writers) {
        Writer& w = entry.second;
        std::sort(w.files.begin(), w.files.end(), [&](std::size_t a, std::size_t b) {
            return files[a].facts.number < files[b].facts.number;
        });
        w.first = w.last = opened[w.files.front()];
        for (const std::size_t i : w.files) {
            w.first = std::min(w.first, opened[i]);
            w.last = std::max(w.last, opened[i]);
        }
        byStart.push_back(&w);
    }
    std::sort(byStart.begin(), byStart.end(), [&](const Writer* a, const Writer* b) {
        const RecordedFacts& fa = files[a->files[0]].facts;
        const RecordedFacts& fb = files[b->files[0]].facts;
        return std::tie(fa.boot, fa.start) < std::tie(fb.boot, fb.start);
    });
    // A process that started later but whose files are all older than an earlier process's
    // first: the clock went back between them.
    bool warned = false;
    for (std::size_t k = 0; k < byStart.size(); ++k) {
        Writer& later = *byStart[k];
        const std::string& boot = files[later.files[0]].facts.boot;
        for (std::size_t e = 0; e < k; ++e) {
            const Writer& earlier = *byStart[e];
            const RecordedFacts& facts = files[earlier.files[0]].facts;
            if (facts.boot != boot || facts.start == files[later.files[0]].facts.start) continue;
            // Processes started at once may take their turns in any order: only a gap beyond
            // that shows a step.
            if (later.last + later.shift + kSlackMs < earlier.first + earlier.shift) {
                later.shift = earlier.last + earlier.shift - later.first + 1;
                const std::string& name = files[later.files[0]].name;
                if (!warned) onWarning({WarningKind::ClockWentBack, name, 0, ""});
                warned = true;
            }
        }
        for (const std::size_t i : later.files) opened[i] += later.shift;
    }
    std::vector<std::size_t> order(count);
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return opened[a] < opened[b]; });
    // Each writer's files take the places its files have in that order, by their numbers.
    std::map<std::string, std::size_t> taken;
    for (std::size_t& slot : order) {
        const RecordedFacts& facts = files[slot].facts;
        if (facts.present) slot = writers[facts.writer].files[taken[facts.writer]++];
    }
    std::int64_t latest = INT64_MIN;
    std::vector<LogFile> ordered;
    for (std::size_t k = 0; k < count; ++k) {
        const LogFile& file = files[order[k]];
        const std::int64_t at = opened[order[k]];
        // Written before it was opened, named in the future, numbered after a file opened
        // later, or read before a file with an earlier name: the clock went back (or the hour
        // repeated), and the names do not give the order of writing.
        const bool stepped = (file.modified != 0 && file.modified * kSecondMs + kSlackMs < at &&
                              !file.facts.present) ||
                             (now != 0 && now * kSecondMs + kSlackMs < at) || at < latest ||
                             (k > 0 && !file.facts.present && file.time < ordered.back().time);
        if (stepped && !warned) {
            onWarning({WarningKind::ClockWentBack, file.name, 0, ""});
            warned = true;
        }
        latest = std::max(latest, at);
        ordered.push_back(file);
    }
    files = ordered;
}

}  // namespace qellog
