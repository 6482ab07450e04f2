#include "log_file.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <tuple>

#include "text_cursor.h"

namespace qellog {

bool parseLogFileName(const std::string& name, FileTime& time) {
    TextCursor c{name.data(), name.size(), 0};
    unsigned long v[7];
    const int digits[7] = {4, 2, 2, 2, 2, 2, 1};
    if (!c.literal("QelLog")) return false;
    std::size_t millisBegin = 0;
    for (int i = 0; i < 7; ++i) {
        if (i > 0 && !c.literal("-")) return false;
        millisBegin = c.at;
        if (!c.number(digits[i], i == 6 ? 3 : digits[i], v[i])) return false;
    }
    // Milliseconds are not padded: "05" is no name the writer makes.
    if (c.at - millisBegin > 1 && name[millisBegin] == '0') return false;
    if (!c.literal(".log") || c.at != name.size()) return false;
    if (v[1] < 1 || v[1] > 12 || v[2] < 1 || v[2] > 31 || v[3] > 23 || v[4] > 59 || v[5] > 60) {
        return false;
    }
    time.year = static_cast<int>(v[0]);
    time.month = static_cast<int>(v[1]);
    time.day = static_cast<int>(v[2]);
    time.hour = static_cast<int>(v[3]);
    time.minute = static_cast<int>(v[4]);
    time.second = static_cast<int>(v[5]);
    time.millisecond = static_cast<int>(v[6]);
    return true;
}

bool operator<(const FileTime& a, const FileTime& b) {
    return std::tie(a.year, a.month, a.day, a.hour, a.minute, a.second, a.millisecond) <
           std::tie(b.year, b.month, b.day, b.hour, b.minute, b.second, b.millisecond);
}

LogFile logFileAt(const std::string& path) {
    LogFile file;
    file.path = path;
    const std::size_t slash = path.rfind('/');
    file.name = slash == std::string::npos ? path : path.substr(slash + 1);
    file.named = parseLogFileName(file.name, file.time);
    const std::size_t stem = file.name.size() - 3;
    file.dated = file.named || (file.name.size() > 3 && file.name.compare(stem, 3, ".gz") == 0 &&
                                parseLogFileName(file.name.substr(0, stem), file.time));
    return file;
}

std::string pathIn(const std::string& folder, const std::string& name) {
    return folder + (folder.empty() || folder.back() == '/' ? "" : "/") + name;
}

bool statLogFile(LogFile& file) {
    struct stat status;
    if (lstat(file.path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
    file.size = static_cast<std::uint64_t>(status.st_size);
    file.device = status.st_dev;
    file.inode = status.st_ino;
    file.modified = status.st_mtime;
    return true;
}

bool listLogFiles(const std::string& folder, std::vector<LogFile>& files, std::string& error,
                  bool withFacts) {
    files.clear();
    DIR* dir = opendir(folder.c_str());
    if (dir == nullptr) {
        error = std::strerror(errno);
        return false;
    }
    while (const dirent* entry = readdir(dir)) {
        LogFile file = logFileAt(pathIn(folder, entry->d_name));
        if (!file.named || !statLogFile(file)) continue;
        if (withFacts) file.facts = readRecordedFacts(file.path);
        files.push_back(file);
    }
    closedir(dir);
    std::sort(files.begin(), files.end(),
              [](const LogFile& a, const LogFile& b) { return a.time < b.time; });
    return true;
}

}  // namespace qellog
