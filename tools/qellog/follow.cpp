// qellog follow: the records of a log folder, whole, as the writers add them.

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "colour.h"
#include "commands.h"
#include "follow_wait.h"
#include "output.h"
#include "read/folder_follower.h"
#include "read/follow_state.h"
#include "read_options.h"
#include "selection.h"
#include "state_file.h"

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
    "      --color[=WHEN]   auto (the default), always or never (see qellog cat --help)\n"
    "      --state FILE     start where the last run with this FILE stopped, and keep in it\n"
    "                       how far this run got, so that each record is printed once;\n"
    "                       FILE lies outside DIR, and FILE.lock beside it keeps a second\n"
    "                       follow off it\n"
    "  -h, --help           print this help and exit\n";

// Without a watch on the folder (no inotify, or the folder is missing) it is looked at this
// often; with one, still this often, in case an event was missed.
constexpr int kPollMs = 200;
constexpr int kWatchedPollMs = 1000;
// Passes follow each other at least this far apart, however busy the writers are.
constexpr int kPassGapMs = 20;
// The state file, pushed to the disk each time, is written at most this often while running
// (and always at the end): a hard kill or a power cut repeats at most this much.
constexpr long kSaveGapMs = 1000;

// The command around a FolderFollower: the printing, the -n catch-up, the state file and the
// waiting between passes.
class FollowCommand {
public:
    explicit FollowCommand(const ReadOptions& options)
        : m_options(options),
          m_printer(options.json, !options.json && colourWanted(options.colour, STDOUT_FILENO)),
          m_selection(m_options.filter, [this](const Record& r) { m_printer.print(r); },
                      options.hasLines, options.lines),
          m_follower(options.paths[0],
                     [this](const Record& record) {
                         m_selection.take(record);
                         m_printed = true;
                     },
                     printWarning) {}

    int run();

private:
    // Loads the state file. Returns false (said on standard error) when the file is no state
    // file (any more): it is left as it is.
    bool resume();
    // One pass of the follower, then the records kept for -n once the catch-up is done.
    // Returns false when the output failed.
    bool pass();
    // Writes the state file when records were printed since, at most once a second unless `now`.
    bool save(bool now);

    ReadOptions m_options;
    RecordPrinter m_printer;
    Selection m_selection;  // with -n: keeps the last records until the catch-up is done
    FolderFollower m_follower;
    FollowWait m_wait;
    bool m_printed = false;      // records printed since the state was saved
    long long m_tailEndsMs = 0;  // with -n: when the catch-up ends at the latest
    long long m_savedMs = 0;
};

bool FollowCommand::resume() {
    const std::string& path = m_options.statePath;
    if (path.empty()) return true;
    FollowState state;
    std::string before;
    const StateLoad loaded = loadState(path, state, before);
    if (loaded == StateLoad::Loaded) m_follower.resume(state, before);
    if (loaded == StateLoad::Foreign) {  // replaced since it was checked: not ours to replace
        std::fprintf(stderr, "qellog: the state file '%s' was replaced; left as it is\n",
                     path.c_str());
        return false;
    }
    if (loaded != StateLoad::Bad) return true;
    // Nothing is known of what was printed: print everything again rather than lose records;
    // the bad file stays for a look.
    const std::string kept = path + ".bad";
    rename(path.c_str(), kept.c_str());
    std::fprintf(stderr,
                 "qellog: the state file '%s' is damaged (kept as '%s'); printing every record "
                 "of the folder again\n",
                 path.c_str(), kept.c_str());
    return true;
}

bool FollowCommand::pass() {
    m_follower.pass(FollowWait::stopAsked);
    // Caught up with the files: nothing is left, or a writer that never pauses keeps the last
    // record open; then the records of the settling time still count as the folder's last.
    if (m_tailEndsMs == 0) m_tailEndsMs = monotonicMs() + FolderFollower::kSettleMs;
    if (!m_follower.holding() || monotonicMs() >= m_tailEndsMs) m_selection.endTail();
    if (!m_printer.flush()) {
        std::fprintf(stderr, "qellog: cannot write the records: %s\n", std::strerror(errno));
        return false;
    }
    return true;
}

bool FollowCommand::save(bool now) {
    const long long at = monotonicMs();
    const std::string& path = m_options.statePath;
    if (path.empty() || !m_printed || (!now && at - m_savedMs < kSaveGapMs)) return true;
    m_savedMs = at;
    if (!saveState(path, m_follower.progress())) {
        std::fprintf(stderr, "qellog: cannot write the state file '%s': %s\n", path.c_str(),
                     std::strerror(errno));
        return false;
    }
    m_printed = false;
    return true;
}

int FollowCommand::run() {
    if (!resume()) return kExitFailure;
    if (!m_wait.start()) {
        std::fprintf(stderr, "qellog: %s\n", std::strerror(errno));
        return kExitFailure;
    }
    int status = kExitSuccess;
    while (!FollowWait::stopAsked()) {
        m_wait.watch(m_options.paths[0]);
        if (!pass() || !save(false)) {
            status = kExitFailure;
            break;
        }
        if (FollowWait::stopAsked()) break;
        int timeout = m_wait.watching() ? kWatchedPollMs : kPollMs;
        const long long settle = m_follower.msUntilSettled();
        if (settle >= 0 && settle < timeout) timeout = static_cast<int>(settle) + 1;
        m_wait.wait(timeout, kPassGapMs);
    }
    // Whatever was printed is out; the state says so, and the next run starts after it.
    if (status == kExitSuccess && (!m_printer.flush() || !save(true))) status = kExitFailure;
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
    if (parsed != kExitSuccess) return parsed == kHelpPrinted ? kExitSuccess : parsed;
    if (!checkFolder(options.paths[0].c_str())) return kExitFailure;
    StateFile state;
    std::string error;
    const int refused = options.statePath.empty()
                            ? kExitSuccess
                            : state.open(options.statePath, options.paths[0], error);
    if (refused != kExitSuccess) {
        std::fprintf(stderr, "qellog: cannot use the state file '%s': %s\n",
                     options.statePath.c_str(), error.c_str());
        return refused;
    }
    FollowCommand command(options);
    return command.run();
}

}  // namespace qellog
