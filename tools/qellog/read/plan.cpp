#include "plan.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <map>

#include "header.h"

namespace qellog {
namespace {

// Longest header: "[", 127 bytes of module, "][V" and the rest, with room to spare.
constexpr std::size_t kHeaderReach = 320;

bool full(const LogFile& file, const std::set<std::uint64_t>& sizes) {
    return file.named && file.size > 0 && sizes.count(file.size) > 0;
}

// The newest file before `next` that `next`, which starts without a header, continues; -1
// when there is none.
long headlessContinues(std::size_t next, const std::vector<LogFile>& files,
                       const std::vector<FileShape>& shapes, const std::set<std::uint64_t>& sizes,
                       const std::vector<bool>& continued) {
    // The file right before it was torn inside a record: the start of these bytes is lost.
    if (next > 0 && shapes[next - 1].endsInside && !full(files[next - 1], sizes)) return -1;
    // Where a split fell right after an empty line of a text, the rest of that record ends
    // with its own empty line, or fills its file in turn; a line that is no record does not.
    const bool restOfARecord = !shapes[next].endsInside || full(files[next], sizes);
    long fallback = -1;
    for (std::size_t i = next; i-- > 0;) {
        if (continued[i] || !full(files[i], sizes)) continue;
        if (shapes[i].endsInside) return static_cast<long>(i);
        if (fallback < 0 && restOfARecord) fallback = static_cast<long>(i);
    }
    return fallback;
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
               std::vector<long>& continues, std::vector<bool>& continued) {
    const std::set<std::uint64_t> sizes = rotationSizes(files, shapes);
    const std::size_t count = files.size();
    const auto join = [&](std::size_t next, long before) {
        continues[next] = before;
        if (before >= 0) continued[before] = true;
    };
    // Headless files first: a continuation of another writer's split may sort after a file
    // that starts with a header.
    for (std::size_t i = 0; i < count; ++i) {
        if (continues[i] != kUndecided || !shapes[i].headless) continue;
        join(i, files[i].named ? headlessContinues(i, files, shapes, sizes, continued)
                               : kContinuesNone);
    }
    for (std::size_t i = 0; i < count; ++i) {
        if (continues[i] != kUndecided) continue;
        const bool splitBefore = i > 0 && !continued[i - 1] && shapes[i - 1].endsInside &&
                                 full(files[i - 1], sizes);
        join(i, splitBefore && files[i].named ? static_cast<long>(i - 1) : kContinuesNone);
    }
}

std::vector<PlannedFile> planReading(const std::vector<LogFile>& files,
                                     const std::vector<FileShape>& shapes) {
    const std::size_t count = files.size();
    std::vector<long> before(count, kUndecided);
    std::vector<bool> continued(count, false);
    joinFiles(files, shapes, before, continued);
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

const LogFile* clockWentBack(const std::vector<LogFile>& files, std::int64_t now) {
    constexpr std::int64_t kSlack = 2;  // seconds: file times are whole seconds
    for (const LogFile& file : files) {
        if (!file.named || file.modified == 0) continue;
        std::tm local{};
        local.tm_year = file.time.year - 1900;
        local.tm_mon = file.time.month - 1;
        local.tm_mday = file.time.day;
        local.tm_hour = file.time.hour;
        local.tm_min = file.time.minute;
        local.tm_sec = file.time.second;
        local.tm_isdst = -1;
        const std::int64_t named = std::mktime(&local);
        if (file.modified + kSlack < named || now + kSlack < named) return &file;
    }
    return nullptr;
}

FileShape shapeOf(LogFile& file) {
    FileShape shape;
    const int fd = open(file.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return shape;
    struct stat status;
    if (fstat(fd, &status) == 0) file.size = static_cast<std::uint64_t>(status.st_size);
    char head[kHeaderReach];
    char tail[2] = {0, 0};
    ssize_t got = 0, tailGot = 0;
    if (file.size > 0) {
        got = pread(fd, head, sizeof(head), 0);
        tailGot = pread(fd, tail, 2, static_cast<off_t>(file.size >= 2 ? file.size - 2 : 0));
        shape.endsInside = !(tailGot == 2 && tail[0] == '\n' && tail[1] == '\n');
    }
    close(fd);
    if (got > 0) {
        shape.headless = matchHeader(head, static_cast<std::size_t>(got), nullptr, nullptr) ==
                         HeaderMatch::No;
    }
    return shape;
}

}  // namespace qellog
