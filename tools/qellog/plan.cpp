#include "plan.h"

#include <fcntl.h>
#include <unistd.h>

#include <ctime>
#include <map>

namespace qellog {
namespace {

// Longest header: "[", 127 bytes of module, "][V" and the rest, with room to spare.
constexpr std::size_t kHeaderReach = 320;

bool full(const LogFile& file, const std::set<std::uint64_t>& sizes) {
    return file.named && file.size > 0 && sizes.count(file.size) > 0;
}

// The newest file before `next` that `next`, which starts without a header, continues; -1
// when there is none.
long continuedBy(std::size_t next, const std::vector<LogFile>& files,
                 const std::vector<FileShape>& shapes, const std::set<std::uint64_t>& sizes,
                 const std::vector<bool>& continued) {
    // The file right before it was torn inside a record: the start of these bytes is lost.
    if (next > 0 && shapes[next - 1].endsInside && !full(files[next - 1], sizes)) return -1;
    long fallback = -1;
    for (std::size_t i = next; i-- > 0;) {
        if (continued[i] || !full(files[i], sizes)) continue;
        if (shapes[i].endsInside) return static_cast<long>(i);
        if (fallback < 0) fallback = static_cast<long>(i);
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

std::vector<PlannedFile> planReading(const std::vector<LogFile>& files,
                                     const std::vector<FileShape>& shapes) {
    const std::set<std::uint64_t> sizes = rotationSizes(files, shapes);
    const std::size_t count = files.size();
    std::vector<long> before(count, -1);  // the file that each one continues
    std::vector<bool> continued(count, false);
    for (std::size_t i = 0; i < count; ++i) {
        if (!files[i].named || !shapes[i].headless) continue;
        before[i] = continuedBy(i, files, shapes, sizes, continued);
        if (before[i] >= 0) continued[before[i]] = true;
    }
    for (std::size_t i = 0; i + 1 < count; ++i) {
        if (continued[i] || !shapes[i].endsInside || !full(files[i], sizes)) continue;
        if (before[i + 1] < 0 && files[i + 1].named && !shapes[i + 1].headless) {
            before[i + 1] = static_cast<long>(i);
            continued[i] = true;
        }
    }
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

FileShape shapeOf(const std::string& path, std::uint64_t size) {
    FileShape shape;
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0 || size == 0) {
        if (fd >= 0) close(fd);
        return shape;
    }
    char head[kHeaderReach];
    char tail[2] = {0, 0};
    const ssize_t got = pread(fd, head, sizeof(head), 0);
    const ssize_t tailGot = pread(fd, tail, 2, static_cast<off_t>(size >= 2 ? size - 2 : 0));
    close(fd);
    if (got > 0) {
        shape.headless = matchHeader(head, static_cast<std::size_t>(got), nullptr, nullptr) ==
                         HeaderMatch::No;
    }
    shape.endsInside = !(tailGot == 2 && tail[0] == '\n' && tail[1] == '\n');
    return shape;
}

}  // namespace qellog
