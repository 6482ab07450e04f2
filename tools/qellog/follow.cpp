// qellog follow: the records of a log folder, whole, as the writer adds them.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "commands.h"
#include "colour.h"
#include "output.h"
#include "read_options.h"
#include "records.h"
#include "selection.h"

namespace qellog {
namespace {

const char kFollowUsage[] =
    "Usage: qellog follow [OPTION]... DIR\n"
    "Print the records of the log files in DIR like qellog cat, then go on printing each\n"
    "record as soon as it is complete, across new files, until SIGINT or SIGTERM.\n"
    "A DIR that does not exist yet is waited for (with a note on standard error).\n"
    "\n"
    "  -j, --json           one JSON object per line and record (see qellog cat --help)\n"
    "  -n, --lines N        start with the last N records (0: only new ones)\n"
    "      --color WHEN     auto (the default), always or never (see qellog cat --help)\n"
    "      --state FILE     start where the last run with this FILE stopped, and keep in it\n"
    "                       how far this run got, so that each record is printed once\n"
    "  -h, --help           print this help and exit\n";

// A record that ends with its empty line at the end of the newest file is taken as complete
// once the file has not grown for this long: a text may itself hold an empty line, and the
// writer may have pushed out only the part before it.
constexpr long kSettleMs = 200;
// Without a watch on the folder (no inotify, or the folder is missing) it is looked at this
// often; with one, still this often, in case an event was missed.
constexpr int kPollMs = 200;
constexpr int kWatchedPollMs = 1000;

volatile sig_atomic_t g_stop = 0;
int g_wakeFd = -1;

void onStopSignal(int signal) {
    if (g_stop) {  // a second signal: the output is stuck, give up at once
        ::signal(signal, SIG_DFL);
        raise(signal);
        return;
    }
    g_stop = 1;
    const char byte = 0;
    const ssize_t ignored = write(g_wakeFd, &byte, 1);
    (void)ignored;
}

long long nowMs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

const char kStateTag[] = "qellog-follow 1";

// The state file: a tag line, then the file and offset where the next record starts and the
// time of the record before it, from which the next record's date follows.
struct State {
    Position position;
    std::string refFile;
    std::int64_t refMs = 0;
};

// Returns 1 when `path` held a state, 0 when there is none, -1 when it is unreadable.
int loadState(const std::string& path, State& state) {
    std::ifstream in(path);
    if (!in) return errno == ENOENT ? 0 : -1;
    std::string tag, refFile;
    unsigned long long offset = 0;
    long long refMs = 0;
    if (!std::getline(in, tag) || tag != kStateTag ||
        !(in >> state.position.file >> offset >> refFile >> refMs)) {
        return -1;
    }
    state.position.offset = offset;
    state.refFile = refFile == "-" ? std::string() : refFile;
    state.refMs = refMs;
    return 1;
}

// Replaces the state file in one step: a stop at any moment leaves the old state or the new.
bool saveState(const std::string& path, const State& state) {
    const std::string temporary = path + ".tmp";
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    char text[512];
    const int length = std::snprintf(text, sizeof(text), "%s\n%s %llu %s %lld\n", kStateTag,
                                     state.position.file.c_str(),
                                     static_cast<unsigned long long>(state.position.offset),
                                     state.refFile.empty() ? "-" : state.refFile.c_str(),
                                     static_cast<long long>(state.refMs));
    const bool written = length > 0 && length < static_cast<int>(sizeof(text)) &&
                         write(fd, text, static_cast<std::size_t>(length)) == length;
    if (close(fd) != 0 || !written || rename(temporary.c_str(), path.c_str()) != 0) {
        unlink(temporary.c_str());
        return false;
    }
    return true;
}

class Follower {
public:
    explicit Follower(const ReadOptions& options)
        : m_options(options),
          m_folder(options.paths[0]),
          m_printer(options.json, !options.json && colourWanted(options.colour, STDOUT_FILENO)),
          m_selection(m_options.filter, m_printer, options.hasLines, options.lines),
          m_statePath(options.statePath) {}

    int run();

private:
    bool resume();
    // Reads what is new; returns false when the output failed.
    bool step();
    bool emit(DataEnd end);
    bool save();
    void watch();
    void wait();

    ReadOptions m_options;
    std::string m_folder;
    RecordPrinter m_printer;
    Selection m_selection;  // with -n: keeps the last records until the catch-up is done
    std::string m_statePath;
    RecordReader m_reader;
    LogFile m_current;  // the file being read; empty name before the first
    std::uint64_t m_readOffset = 0;
    bool m_emitted = false;  // records printed since the state was saved
    long long m_lastGrowthMs = 0;
    long long m_tailEndsMs = 0;  // with -n: when the catch-up ends at the latest
    int m_inotify = -1;
    int m_watch = -1;
    int m_wake[2] = {-1, -1};
};

bool Follower::resume() {
    if (m_statePath.empty()) return true;
    State state;
    const int loaded = loadState(m_statePath, state);
    if (loaded < 0) {
        std::fprintf(stderr, "qellog: cannot read the state file '%s'\n", m_statePath.c_str());
        return false;
    }
    if (loaded == 1) {
        m_current = logFileAt(pathIn(m_folder, state.position.file));
        if (!m_current.named) {
            std::fprintf(stderr, "qellog: the state file '%s' names no log file\n",
                         m_statePath.c_str());
            return false;
        }
        m_readOffset = state.position.offset;
        m_reader.beginFile(m_current, m_readOffset);
        m_reader.setReference(state.refFile, state.refMs);
    }
    return true;
}

bool Follower::save() {
    if (m_statePath.empty() || !m_emitted) return true;
    State state;
    state.position = m_reader.position();
    m_reader.reference(state.refFile, state.refMs);
    if (!saveState(m_statePath, state)) {
        std::fprintf(stderr, "qellog: cannot write the state file '%s': %s\n",
                     m_statePath.c_str(), std::strerror(errno));
        return false;
    }
    m_emitted = false;
    return true;
}

bool Follower::emit(DataEnd end) {
    Record record;
    while (m_reader.next(record, end)) {
        m_selection.take(record);
        m_emitted = true;
    }
    return true;
}

bool Follower::step() {
    for (;;) {
        std::vector<LogFile> files;
        std::string error;
        if (!listLogFiles(m_folder, files, error) || files.empty()) break;
        std::size_t index = 0;
        if (m_current.name.empty()) {
            m_current = files[0];
            m_readOffset = 0;
            m_reader.beginFile(m_current, 0);
        } else {
            while (index < files.size() && files[index].name != m_current.name) ++index;
            if (index == files.size()) {
                // The file went away (pruned, or removed by hand): go on with the next one.
                std::size_t later = 0;
                while (later < files.size() && !(m_current.time < files[later].time)) ++later;
                if (later == files.size()) break;
                std::fprintf(stderr, "qellog: %s is gone; going on with %s\n",
                             m_current.name.c_str(), files[later].name.c_str());
                m_current = files[later];
                m_readOffset = 0;
                m_reader.beginFile(m_current, 0);
                continue;
            }
        }
        // The list was taken before this read: when it holds a newer file, the writer had
        // closed this one already and the read got all of it.
        const long long got = readInto(m_current.path, m_readOffset, m_reader,
                                       [this] { emit(DataEnd::More); });
        if (got > 0) {
            m_readOffset += static_cast<std::uint64_t>(got);
            m_lastGrowthMs = nowMs();
        }
        if (index + 1 < files.size() && !g_stop) {  // a stop waits for no backlog
            m_current = files[index + 1];
            m_readOffset = 0;
            m_reader.beginFile(m_current, 0);
            m_lastGrowthMs = nowMs();
            continue;
        }
        break;
    }
    emit(DataEnd::More);
    if (m_reader.pending() > 0 && nowMs() - m_lastGrowthMs >= kSettleMs) emit(DataEnd::Quiet);
    // Caught up with the files: nothing is left, or a writer that never pauses keeps the last
    // record open; then the records of the settling time still count as the folder's last.
    if (m_tailEndsMs == 0) m_tailEndsMs = nowMs() + kSettleMs;
    if (m_reader.pending() == 0 || nowMs() >= m_tailEndsMs) m_selection.endTail();
    if (!m_printer.flush()) {
        std::fprintf(stderr, "qellog: cannot write the records: %s\n", std::strerror(errno));
        return false;
    }
    return true;
}

void Follower::watch() {
    if (m_inotify < 0 || m_watch >= 0) return;
    m_watch = inotify_add_watch(m_inotify, m_folder.c_str(),
                                IN_CREATE | IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_TO |
                                    IN_MOVED_FROM | IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF);
}

void Follower::wait() {
    int timeout = m_watch >= 0 ? kWatchedPollMs : kPollMs;
    if (m_reader.pending() > 0) {
        const long long settled = m_lastGrowthMs + kSettleMs - nowMs();
        if (settled >= 0 && settled < timeout) timeout = static_cast<int>(settled) + 1;
    }
    pollfd fds[2] = {{m_wake[0], POLLIN, 0}, {m_inotify, POLLIN, 0}};
    if (poll(fds, m_inotify >= 0 ? 2 : 1, timeout) <= 0) return;
    if (m_inotify >= 0 && (fds[1].revents & POLLIN)) {
        alignas(inotify_event) char events[4096];
        ssize_t got;
        while ((got = read(m_inotify, events, sizeof(events))) > 0) {
            for (ssize_t at = 0; at < got;) {
                const inotify_event* event = reinterpret_cast<const inotify_event*>(events + at);
                if (event->mask & IN_IGNORED) m_watch = -1;  // the folder went away
                at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            }
        }
    }
}

int Follower::run() {
    if (!resume()) return 1;
    if (pipe2(m_wake, O_CLOEXEC | O_NONBLOCK) != 0) {
        std::fprintf(stderr, "qellog: %s\n", std::strerror(errno));
        return 1;
    }
    g_wakeFd = m_wake[1];
    struct sigaction action;
    std::memset(&action, 0, sizeof(action));
    action.sa_handler = onStopSignal;
    action.sa_flags = SA_RESTART;  // a record being written goes out whole
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    signal(SIGPIPE, SIG_IGN);  // a reader that went away shows as a failed write
    m_inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);

    int status = 0;
    while (!g_stop) {
        watch();
        if (!step()) {
            status = 1;
            break;
        }
        if (!save()) {
            status = 1;
            break;
        }
        if (!g_stop) wait();
    }
    // Whatever was printed is out; the state says so, and the next run starts after it.
    if (status == 0 && (!m_printer.flush() || !save())) status = 1;
    if (m_inotify >= 0) close(m_inotify);
    return status;
}

// Says on standard error why `folder` cannot be followed and returns false; a folder that does
// not exist yet is waited for, with a note.
bool checkFolder(const char* folder) {
    struct stat status;
    if (stat(folder, &status) == 0) {
        if (S_ISDIR(status.st_mode) && access(folder, R_OK | X_OK) == 0) return true;
        if (!S_ISDIR(status.st_mode)) errno = ENOTDIR;
    } else if (errno == ENOENT) {
        std::fprintf(stderr, "qellog: folder '%s' does not exist (yet); waiting for it\n", folder);
        return true;
    }
    const int error = errno;
    std::fprintf(stderr, "qellog: cannot follow '%s': %s%s\n", folder, std::strerror(error),
                 error == ENOTDIR ? " (to read one file: qellog cat FILE)" : "");
    return false;
}

}  // namespace

int runFollow(int argc, char** argv) {
    ReadOptions options;
    const int parsed = parseReadOptions(argc, argv, ReadCommand::Follow, kFollowUsage, options);
    if (parsed != 0) return parsed < 0 ? 0 : parsed;
    if (!checkFolder(options.paths[0])) return 1;
    Follower follower(options);
    return follower.run();
}

}  // namespace qellog
