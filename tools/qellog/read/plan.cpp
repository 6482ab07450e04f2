#include "plan.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>

#include "header.h"

namespace qellog {
namespace {

// Longest header: "[", 127 bytes of module, "][V" and the rest, with room to spare.
constexpr std::size_t kHeaderReach = 320;
// How far from a file's start and end its headers are looked at for evidence.
constexpr std::size_t kEvidenceReach = 4096;

bool full(const LogFile& file, const std::set<std::uint64_t>& sizes) {
    return file.named && file.size > 0 && sizes.count(file.size) > 0;
}

// The processes that wrote the files, as far as their headers tell: files that share a thread
// id were written by one process (a thread id names one thread of one process while it runs, and
// a forked child's threads have ids of their own). -1: no header seen.
std::vector<long> processesOf(const std::vector<FileShape>& shapes) {
    std::vector<long> parent(shapes.size());
    for (std::size_t i = 0; i < parent.size(); ++i) parent[i] = static_cast<long>(i);
    const std::function<long(long)> root = [&](long i) {
        return parent[i] == i ? i : parent[i] = root(parent[i]);
    };
    std::map<unsigned long, long> firstWith;
    for (std::size_t i = 0; i < shapes.size(); ++i) {
        for (const auto* threads : {&shapes[i].headThreads, &shapes[i].tailThreads}) {
            for (const unsigned long id : *threads) {
                const auto seen = firstWith.emplace(id, static_cast<long>(i));
                parent[root(static_cast<long>(i))] = root(seen.first->second);
            }
        }
    }
    std::vector<long> process(shapes.size(), -1);
    for (std::size_t i = 0; i < shapes.size(); ++i) {
        if (!shapes[i].headThreads.empty() || !shapes[i].tailThreads.empty()) {
            process[i] = root(static_cast<long>(i));
        }
    }
    return process;
}

bool sameProcess(long a, long b) { return a < 0 || b < 0 || a == b; }

// The file before `next` that `next`, which starts without a header, continues; -1 when there
// is none.
long headlessContinues(std::size_t next, const std::vector<LogFile>& files,
                       const std::vector<FileShape>& shapes, const std::set<std::uint64_t>& sizes,
                       const std::vector<bool>& continued, const std::vector<long>& process,
                       const GuessSink& onGuess) {
    // The file right before it was torn inside a record: the start of these bytes is lost.
    if (next > 0 && shapes[next - 1].endsInside && !full(files[next - 1], sizes)) return -1;
    // Where a split fell right after an empty line of a text, the rest of that record ends
    // with its own empty line, or fills its file in turn; a line that is no record does not.
    const bool restOfARecord = !shapes[next].endsInside || full(files[next], sizes);
    // Those that end inside a record first, then newest first; of its own process when known.
    std::vector<std::size_t> inside, atEnd;
    for (int pass = 0; pass < 2 && inside.empty() && atEnd.empty(); ++pass) {
        for (std::size_t i = next; i-- > 0;) {
            if (continued[i] || !full(files[i], sizes) || files[i].facts.present) continue;
            if (pass == 0 && !sameProcess(process[i], process[next])) continue;
            if (shapes[i].endsInside) inside.push_back(i);
            if (!shapes[i].endsInside && restOfARecord) atEnd.push_back(i);
        }
    }
    const std::vector<std::size_t>& candidates = inside.empty() ? atEnd : inside;
    if (candidates.empty()) return -1;
    if (onGuess && candidates.size() > 1) {
        std::vector<const LogFile*> alike;
        for (const std::size_t i : candidates) alike.push_back(&files[i]);
        onGuess(files[next], alike);
    }
    return static_cast<long>(candidates.front());
}

// The file that the facts of `file` say it continues, or kContinuesNone.
long recordedContinues(const LogFile& file, const std::vector<LogFile>& files,
                       const std::vector<bool>& continued) {
    if (file.facts.continues.empty()) return kContinuesNone;
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (files[i].name == file.facts.continues && !continued[i]) return static_cast<long>(i);
    }
    return kContinuesNone;  // gone: its start is printed as a piece
}

// The thread ids and times of day of the headers that start a line after an empty line (or the
// data) in data[0..size).
void headersIn(const char* data, std::size_t size, bool atStart,
               std::vector<unsigned long>& threads) {
    for (std::size_t at = 0; at < size; ++at) {
        const bool lineStart = at == 0 ? atStart : at >= 2 && data[at - 1] == '\n' &&
                                                       data[at - 2] == '\n';
        HeaderFields header;
        if (!lineStart || data[at] != '[' ||
            matchHeader(data + at, size - at, &header, nullptr) != HeaderMatch::Yes) {
            continue;
        }
        if (std::find(threads.begin(), threads.end(), header.threadId) == threads.end()) {
            threads.push_back(header.threadId);
        }
    }
}

}  // namespace

std::set<std::uint64_t> rotationSizes(const std::vector<LogFile>& files,
                                      const std::vector<FileShape>& shapes) {
    std::set<std::uint64_t> sizes;
    std::map<std::uint64_t, int> torn;
    std::uint64_t largest = 0;
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (!files[i].named) continue;
        largest = std::max(largest, files[i].size);
        if (shapes[i].endsInside && ++torn[files[i].size] == 2) sizes.insert(files[i].size);
    }
    if (largest > 0) sizes.insert(largest);
    return sizes;
}

void joinFiles(const std::vector<LogFile>& files, const std::vector<FileShape>& shapes,
               std::vector<long>& continues, std::vector<bool>& continued,
               const GuessSink& onGuess) {
    const std::set<std::uint64_t> sizes = rotationSizes(files, shapes);
    const std::vector<long> process = processesOf(shapes);
    const std::size_t count = files.size();
    const auto join = [&](std::size_t next, long before) {
        continues[next] = before;
        if (before >= 0) continued[before] = true;
    };
    // Recorded links first: they are certain, and the files they join are not free for a guess.
    for (std::size_t i = 0; i < count; ++i) {
        if (continues[i] == kUndecided && files[i].facts.present) {
            join(i, recordedContinues(files[i], files, continued));
        }
    }
    const auto splitBefore = [&](std::size_t i) {
        return i > 0 && !continued[i - 1] && shapes[i - 1].endsInside &&
               full(files[i - 1], sizes) && !files[i - 1].facts.present &&
               sameProcess(process[i - 1], process[i]) && files[i].named;
    };
    // A file that is too short to tell whether it starts with a header goes on with a full file
    // right before it, as any file does below; decided first, so that it is no candidate for a
    // headless file.
    for (std::size_t i = 0; i < count; ++i) {
        if (continues[i] == kUndecided && shapes[i].partialHead && splitBefore(i)) {
            join(i, static_cast<long>(i - 1));
        }
    }
    // Headless files next: a continuation of another writer's split may sort after a file
    // that starts with a header.
    for (std::size_t i = 0; i < count; ++i) {
        if (continues[i] != kUndecided || !shapes[i].headless) continue;
        join(i, files[i].named
                    ? headlessContinues(i, files, shapes, sizes, continued, process, onGuess)
                    : kContinuesNone);
    }
    for (std::size_t i = 0; i < count; ++i) {
        if (continues[i] != kUndecided) continue;
        join(i, splitBefore(i) ? static_cast<long>(i - 1) : kContinuesNone);
    }
}

std::vector<PlannedFile> planReading(const std::vector<LogFile>& files,
                                     const std::vector<FileShape>& shapes,
                                     const GuessSink& onGuess) {
    const std::size_t count = files.size();
    std::vector<long> before(count, kUndecided);
    std::vector<bool> continued(count, false);
    joinFiles(files, shapes, before, continued, onGuess);
    std::vector<long> after(count, -1);
    for (std::size_t i = 0; i < count; ++i) {
        if (before[i] >= 0) after[before[i]] = static_cast<long>(i);
    }
    std::vector<PlannedFile> plan;
    for (std::size_t i = 0; i < count; ++i) {
        if (before[i] >= 0) continue;  // read right after the file it continues
        plan.push_back({i, false});
        for (long next = after[i]; next >= 0; next = after[next]) {
            plan.push_back({static_cast<std::size_t>(next), true});
        }
    }
    return plan;
}

FileShape shapeOf(LogFile& file) {
    FileShape shape;
    const int fd = open(file.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return shape;
    struct stat status;
    if (fstat(fd, &status) == 0) file.size = static_cast<std::uint64_t>(status.st_size);
    std::string head(kEvidenceReach, '\0'), tail(kEvidenceReach, '\0');
    ssize_t got = 0, tailGot = 0;
    const std::uint64_t tailAt = file.size > kEvidenceReach ? file.size - kEvidenceReach : 0;
    if (file.size > 0) {
        got = pread(fd, &head[0], head.size(), 0);
        tailGot = pread(fd, &tail[0], static_cast<std::size_t>(file.size - tailAt),
                        static_cast<off_t>(tailAt));
    }
    close(fd);
    head.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    tail.resize(tailGot > 0 ? static_cast<std::size_t>(tailGot) : 0);
    if (file.size > 0 && tail.size() == file.size - tailAt) {
        shape.endsInside = !(tail.size() >= 2 && tail.compare(tail.size() - 2, 2, "\n\n") == 0);
    } else if (file.size > 0) {
        shape.endsInside = true;
    }
    if (!head.empty()) {
        const HeaderMatch start =
            matchHeader(head.data(), std::min(head.size(), kHeaderReach), nullptr, nullptr);
        shape.headless = start == HeaderMatch::No;
        shape.partialHead = start == HeaderMatch::Partial;
        headersIn(head.data(), head.size(), !shape.headless, shape.headThreads);
        headersIn(tail.data(), tail.size(), tailAt == 0, shape.tailThreads);
    }
    return shape;
}

}  // namespace qellog
