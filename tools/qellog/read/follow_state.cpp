#include "follow_state.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>

#include "log_file.h"

namespace qellog {
namespace {

const char kTagStart[] = "qellog-follow ";  // what every state file starts with
const char kTag[] = "qellog-follow 2";
const char kOldTag[] = "qellog-follow 1";
const char kEnd[] = "end";  // the last line: a file without it was cut

bool writeAll(int fd, const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t wrote = write(fd, text.data() + done, text.size() - done);
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote <= 0) return false;
        done += static_cast<std::size_t>(wrote);
    }
    return true;
}

}  // namespace

StateLoad loadState(const std::string& path, FollowState& state, std::string& before) {
    state.clear();
    before.clear();
    std::ifstream in(path);
    // What cannot be read cannot be known to be a state file.
    if (!in) return errno == ENOENT ? StateLoad::Missing : StateLoad::Foreign;
    std::string tag, line;
    if (!std::getline(in, tag)) return in.eof() ? StateLoad::Missing : StateLoad::Foreign;
    const std::string start(kTagStart);
    if (tag.compare(0, start.size(), start) != 0) {
        // Cut within its first line, it may still have been one.
        return start.compare(0, tag.size(), tag) == 0 && in.eof() ? StateLoad::Bad
                                                                  : StateLoad::Foreign;
    }
    if (tag == kOldTag) {
        std::string name, refFile;
        FileProgress progress;
        if (!(in >> name >> progress.offset >> refFile >> progress.refMs) ||
            !logFileAt(name).named || name.find('/') != std::string::npos) {
            return StateLoad::Bad;
        }
        if (refFile != name) progress.refMs = 0;
        state[name] = progress;
        before = name;
        return StateLoad::Loaded;
    }
    bool ended = tag == kTag;
    while (ended && std::getline(in, line)) {
        if (line == kEnd) return StateLoad::Loaded;
        std::istringstream fields(line);
        std::string name;
        FileProgress progress;
        if (!(fields >> name >> progress.inode >> progress.offset >> progress.refMs) ||
            !logFileAt(name).named || name.find('/') != std::string::npos) {
            break;
        }
        state[name] = progress;
    }
    state.clear();
    return StateLoad::Bad;
}

bool saveState(const std::string& path, const FollowState& state) {
    std::ostringstream text;
    text << kTag << "\n";
    for (const auto& entry : state) {
        text << entry.first << " " << entry.second.inode << " " << entry.second.offset << " "
             << entry.second.refMs << "\n";
    }
    text << kEnd << "\n";
    const std::string temporary = temporaryStatePath(path);
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    const bool written = writeAll(fd, text.str()) && fsync(fd) == 0;
    const int error = errno;
    if (close(fd) != 0 || !written || rename(temporary.c_str(), path.c_str()) != 0) {
        unlink(temporary.c_str());
        errno = written ? errno : error;
        return false;
    }
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const int dir = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        fsync(dir);
        close(dir);
    }
    return true;
}

std::string temporaryStatePath(const std::string& path) {
    return path + ".tmp." + std::to_string(getpid());
}

}  // namespace qellog
