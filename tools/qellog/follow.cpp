// qellog follow: the records of a log folder, whole, as the writers add them.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "colour.h"
#include "commands.h"
#include "follow_state.h"
#include "output.h"
#include "plan.h"
#include "read_options.h"
#include "records.h"
#include "selection.h"

namespace qellog {
namespace {

const char kFollowUsage[] =
    "Usage: qellog follow [OPTION]... DIR\n"
    "Print the records of the log files in DIR like qellog cat, then go on printing each\n"
    "record as soon as it is complete, from every file that grows, until SIGINT or SIGTERM.\n"
    "A DIR that does not exist yet is waited for (with a note on standard error).\n"
    "\n"
    "  -j, --json           one JSON object per line and record (see qellog cat --help)\n"
    "  -n, --lines N        start with the last N records (0: only new ones)\n"
    "      --color WHEN     auto (the default), always or never (see qellog cat --help)\n"
    "      --state FILE     start where the last run with this FILE stopped, and keep in it\n"
    "                       how far this run got, so that each record is printed once\n"
    "  -h, --help           print this help and exit\n";

// A record that ends with its empty line at the end of a file is taken as complete once the
// file has not grown for this long: a text may itself hold an empty line, and a writer of an
// older version may have pushed out only the part before it.
constexpr long kSettleMs = 200;
// Without a watch on the folder (no inotify, or the folder is missing) it is looked at this
// often; with one, still this often, in case an event was missed.
constexpr int kPollMs = 200;
constexpr int kWatchedPollMs = 1000;
// Passes follow each other at least this far apart, however busy the writers are.
constexpr long kPassGapMs = 20;
// The state file, pushed to the disk each time, is written at most this often while running
// (and always at the end): a hard kill or a power cut repeats at most this much.
constexpr long kSaveGapMs = 1000;

volatile sig_atomic_t g_stop = 0;
int g_wakeFd = -1;

// Every SIGINT and SIGTERM, however many, only asks for a stop: follow ends after the record
// it is printing, with its state saved.
void onStopSignal(int) {
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

// One log file as follow knows it.
struct Tracked {
    LogFile file;               // as listed last
    std::uint64_t printed = 0;  // where the next record starts, while no reader holds the file
    std::int64_t refMs = 0;     // the time of the record before it (0: from the name)
    std::uint64_t read = 0;     // bytes handed to the reader
    std::unique_ptr<RecordReader> reader;  // the file's records not yet printed
    std::string continuedBy;    // the file that continues its last record, which has the reader
    long long grewMs = 0;
    bool settled = false;  // the last record was taken as ended when the file stopped growing
};

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
    void resume();
    // One pass: lists the folder once, reads what is new in every file, prints what is
    // complete. Returns false when the output failed.
    bool pass();
    // Starts to follow a file it has not seen: where to start in it, and whether it continues
    // the last record of a file before it (the rules of planReading).
    void track(const LogFile& file);
    Tracked* continuedFile(const LogFile& file, bool headless);
    bool isFull(const Tracked& t) const;
    void findFullSizes(const std::vector<LogFile>& files);
    void read(Tracked& tracked);
    void emit(Tracked& tracked, DataEnd end);
    // Writes the state file when records were printed since, at most once a second unless `now`.
    bool save(bool now);
    void watch();
    void wait();

    ReadOptions m_options;
    std::string m_folder;
    RecordPrinter m_printer;
    Selection m_selection;  // with -n: keeps the last records until the catch-up is done
    std::string m_statePath;
    std::map<FileTime, Tracked> m_files;  // in the order of their names
    std::set<std::uint64_t> m_fullSizes;     // the sizes at which the writers rotate
    FollowState m_resumed;                   // the state file's entries not yet matched
    std::string m_resumedBefore;             // earlier format: files before it were read
    bool m_emitted = false;  // records printed since the state was saved
    long long m_tailEndsMs = 0;  // with -n: when the catch-up ends at the latest
    long long m_savedMs = 0;
    int m_inotify = -1;
    int m_watch = -1;
    int m_wake[2] = {-1, -1};
};

void Follower::resume() {
    if (m_statePath.empty()) return;
    const StateLoad loaded = loadState(m_statePath, m_resumed, m_resumedBefore);
    if (loaded != StateLoad::Bad) return;
    // Nothing is known of what was printed: print everything again rather than lose records;
    // the bad file stays for a look.
    const std::string kept = m_statePath + ".bad";
    rename(m_statePath.c_str(), kept.c_str());
    std::fprintf(stderr,
                 "qellog: the state file '%s' is empty or damaged (kept as '%s'); printing "
                 "every record of the folder again\n",
                 m_statePath.c_str(), kept.c_str());
}

// The file whose last record the new `file` continues, under the rules of planReading.
bool Follower::isFull(const Tracked& t) const {
    return t.file.size > 0 && m_fullSizes.count(t.file.size) > 0;
}

void Follower::findFullSizes(const std::vector<LogFile>& files) {
    // The largest size, and any size that two files whose records went on into another share.
    m_fullSizes.clear();
    std::uint64_t largest = 0;
    std::map<std::uint64_t, int> split;
    for (const LogFile& file : files) largest = std::max(largest, file.size);
    for (const auto& entry : m_files) {
        const Tracked& t = entry.second;
        if (!t.continuedBy.empty() && ++split[t.file.size] == 2) m_fullSizes.insert(t.file.size);
    }
    m_fullSizes.insert(largest);
}

Tracked* Follower::continuedFile(const LogFile& file, bool headless) {
    const auto after = m_files.lower_bound(file.time);
    if (!headless) {
        // A file with a header continues only the file right before it, when that one is full
        // and ends inside a record.
        if (after == m_files.begin()) return nullptr;
        Tracked& t = std::prev(after)->second;
        const bool inside = t.reader != nullptr && t.reader->endsInside();
        return inside && t.continuedBy.empty() && isFull(t) ? &t : nullptr;
    }
    if (after != m_files.begin()) {
        const Tracked& t = std::prev(after)->second;
        if (t.reader != nullptr && t.reader->endsInside() && !isFull(t)) return nullptr;  // torn
    }
    Tracked* fallback = nullptr;
    for (auto it = after; it != m_files.begin();) {
        Tracked& t = (--it)->second;
        if (!t.continuedBy.empty() || !isFull(t)) continue;
        if (t.reader != nullptr && t.reader->endsInside()) return &t;
        if (fallback == nullptr) fallback = &t;
    }
    return fallback;
}

void Follower::track(const LogFile& file) {
    Tracked tracked;
    tracked.file = file;
    tracked.grewMs = nowMs();
    const auto resumed = m_resumed.find(file.name);
    if (resumed != m_resumed.end() &&
        (resumed->second.inode == file.inode || resumed->second.inode == 0)) {
        tracked.printed = std::min(resumed->second.offset, file.size);
        tracked.refMs = resumed->second.refMs;
        m_files[file.time] = std::move(tracked);
        return;
    }
    if (!m_resumedBefore.empty() && file.time < logFileAt(m_resumedBefore).time) {
        tracked.printed = file.size;  // read by a run of the earlier state format
        m_files[file.time] = std::move(tracked);
        return;
    }
    const FileShape shape = shapeOf(file.path, file.size);
    Tracked* before = continuedFile(file, shape.headless);
    if (before != nullptr) {
        if (before->reader == nullptr) {
            before->reader.reset(new RecordReader);
            before->reader->beginFile(before->file, before->printed, false);
            if (before->refMs != 0) before->reader->setReference(before->file.name, before->refMs);
        }
        tracked.reader = std::move(before->reader);
        tracked.reader->beginFile(file, 0, true);
        before->continuedBy = file.name;
    } else if (!shape.headless && m_files.lower_bound(file.time) != m_files.begin()) {
        // A full file before a new one that starts a record grows no more: a record at its
        // end that ends with its empty line is complete now, not after the settle time.
        Tracked& last = std::prev(m_files.lower_bound(file.time))->second;
        if (last.reader != nullptr && !last.reader->endsInside() && isFull(last)) {
            emit(last, DataEnd::Quiet);
        }
    }
    m_files[file.time] = std::move(tracked);
}

void Follower::read(Tracked& t) {
    if (!t.continuedBy.empty() || t.file.size <= std::max(t.read, t.printed)) return;
    if (t.reader == nullptr) {
        t.reader.reset(new RecordReader);
        t.reader->beginFile(t.file, t.printed, false);
        if (t.refMs != 0) t.reader->setReference(t.file.name, t.refMs);
        t.read = t.printed;
    }
    const long long got = readInto(t.file.path, t.read, *t.reader, [&] { emit(t, DataEnd::More); });
    if (got > 0) {
        t.read += static_cast<std::uint64_t>(got);
        t.grewMs = nowMs();
    }
}

void Follower::emit(Tracked& t, DataEnd end) {
    if (t.reader == nullptr) return;
    Record record;
    bool any = false;
    while (t.reader->next(record, end)) {
        if (t.settled && !record.headed && !record.zeros) {
            std::fprintf(stderr,
                         "qellog: %s at byte %llu: the record before was taken as complete when "
                         "the file stopped growing, but it went on\n",
                         record.file.c_str(), static_cast<unsigned long long>(record.offset));
        }
        t.settled = false;
        m_selection.take(record);
        m_emitted = any = true;
    }
    if (end == DataEnd::Quiet && any && t.reader->pending() == 0) t.settled = true;
}

bool Follower::pass() {
    std::vector<LogFile> files;
    std::string error;
    if (!listLogFiles(m_folder, files, error)) files.clear();
    findFullSizes(files);
    std::set<std::string> listed;
    // Oldest name first, so that a new file is placed after the files before it were read.
    for (const LogFile& file : files) {
        listed.insert(file.name);
        auto it = m_files.find(file.time);
        if (it != m_files.end() && it->second.file.inode != file.inode) {
            std::fprintf(stderr, "qellog: %s was replaced by another file; reading the new one\n",
                         file.name.c_str());
            m_files.erase(it);
            it = m_files.end();
        }
        if (it == m_files.end()) {
            if (file.size == 0 || g_stop) continue;  // an empty file cannot be placed yet
            track(file);
            it = m_files.find(file.time);
        }
        it->second.file = file;
        if (!g_stop) read(it->second);  // a stop waits for no backlog
    }
    for (auto it = m_files.begin(); it != m_files.end();) {
        const Tracked& t = it->second;
        if (listed.count(t.file.name) > 0) {
            ++it;
            continue;
        }
        if (t.continuedBy.empty() &&
            (t.read < t.file.size || (t.reader != nullptr && t.reader->pending() > 0))) {
            std::fprintf(stderr, "qellog: %s is gone before it was read to its end\n",
                         t.file.name.c_str());
        }
        it = m_files.erase(it);
    }
    bool pending = false;
    for (auto& entry : m_files) {
        Tracked& t = entry.second;
        emit(t, DataEnd::More);
        if (t.reader != nullptr && t.reader->pending() > 0 && nowMs() - t.grewMs >= kSettleMs) {
            emit(t, DataEnd::Quiet);
        }
        pending = pending || (t.reader != nullptr && t.reader->pending() > 0);
        if (t.reader != nullptr && t.reader->pending() == 0 && t.continuedBy.empty()) {
            // Nothing held: keep the place, not the reader.
            std::string refFile;
            t.printed = t.reader->position().offset;
            t.reader->reference(refFile, t.refMs);
            if (refFile != t.file.name) t.refMs = 0;
            t.read = t.printed;
            t.reader.reset();
        }
    }
    // Caught up with the files: nothing is left, or a writer that never pauses keeps the last
    // record open; then the records of the settling time still count as the folder's last.
    if (m_tailEndsMs == 0) m_tailEndsMs = nowMs() + kSettleMs;
    if (!pending || nowMs() >= m_tailEndsMs) m_selection.endTail();
    if (!m_printer.flush()) {
        std::fprintf(stderr, "qellog: cannot write the records: %s\n", std::strerror(errno));
        return false;
    }
    return true;
}

bool Follower::save(bool now) {
    const long long at = nowMs();
    if (m_statePath.empty() || !m_emitted || (!now && at - m_savedMs < kSaveGapMs)) return true;
    m_savedMs = at;
    FollowState state;
    for (const auto& entry : m_files) {
        const Tracked& t = entry.second;
        if (t.reader == nullptr) {
            const std::uint64_t printed = t.continuedBy.empty() ? t.printed : t.file.size;
            if (printed > 0) state[t.file.name] = {t.file.inode, printed, t.refMs};
        }
    }
    for (const auto& entry : m_files) {
        const Tracked& t = entry.second;
        if (t.reader == nullptr) continue;
        // The files from the one where the next record starts on hold bytes not printed yet:
        // the first at that record, the others not at all (a resumed run joins them again).
        const Position at = t.reader->position();
        std::string refFile;
        std::int64_t refMs = 0;
        t.reader->reference(refFile, refMs);
        for (auto it = m_files.find(logFileAt(at.file).time); it != m_files.end();
             it = m_files.find(logFileAt(it->second.continuedBy).time)) {
            state.erase(it->second.file.name);
        }
        const auto first = m_files.find(logFileAt(at.file).time);
        if (first != m_files.end() && at.offset > 0) {
            state[at.file] = {first->second.file.inode, at.offset, refFile == at.file ? refMs : 0};
        }
    }
    if (!saveState(m_statePath, state)) {
        std::fprintf(stderr, "qellog: cannot write the state file '%s': %s\n",
                     m_statePath.c_str(), std::strerror(errno));
        return false;
    }
    m_emitted = false;
    return true;
}

void Follower::watch() {
    if (m_inotify < 0 || m_watch >= 0) return;
    m_watch = inotify_add_watch(m_inotify, m_folder.c_str(),
                                IN_CREATE | IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_TO |
                                    IN_MOVED_FROM | IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF);
}

void Follower::wait() {
    const long long started = nowMs();
    int timeout = m_watch >= 0 ? kWatchedPollMs : kPollMs;
    for (const auto& entry : m_files) {
        const Tracked& t = entry.second;
        if (t.reader == nullptr || t.reader->pending() == 0) continue;
        const long long settled = t.grewMs + kSettleMs - started;
        if (settled >= 0 && settled < timeout) timeout = static_cast<int>(settled) + 1;
    }
    pollfd fds[2] = {{m_wake[0], POLLIN, 0}, {m_inotify, POLLIN, 0}};
    if (poll(fds, m_inotify >= 0 ? 2 : 1, timeout) <= 0) return;
    if (m_inotify >= 0 && (fds[1].revents & POLLIN)) {
        alignas(inotify_event) char events[4096];
        ssize_t got;
        while ((got = ::read(m_inotify, events, sizeof(events))) > 0) {
            for (ssize_t at = 0; at < got;) {
                const inotify_event* event = reinterpret_cast<const inotify_event*>(events + at);
                if (event->mask & IN_IGNORED) m_watch = -1;  // the folder went away
                at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            }
        }
        const long long gap = started + kPassGapMs - nowMs();
        if (gap > 0 && !g_stop) poll(fds, 1, static_cast<int>(gap));
    }
}

int Follower::run() {
    resume();
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
        if (!pass() || !save(false)) {
            status = 1;
            break;
        }
        if (!g_stop) wait();
    }
    // Whatever was printed is out; the state says so, and the next run starts after it.
    if (status == 0 && (!m_printer.flush() || !save(true))) status = 1;
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
