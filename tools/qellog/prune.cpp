// qellog prune: deletes the oldest log files of a folder beyond a count, a total size or an age.

#include <fcntl.h>
#include <getopt.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "commands.h"
#include "numbers.h"
#include "prune.h"
#include "read/civil_time.h"
#include "read/log_file.h"
#include "read/writing_order.h"
#include "time_spec.h"

namespace qellog {
namespace {

const char kPruneUsage[] =
    "Usage: qellog prune DIR LIMIT... [--dry-run]\n"
    "Delete the oldest log files in DIR beyond the LIMITs and print each one deleted.\n"
    "Only files named QelLog<date-time>.log are looked at, oldest first in the order they\n"
    "were written (by the facts recorded beside them, else by their names' real times);\n"
    "the newest one is never deleted.\n"
    "A file goes when any LIMIT says so.\n"
    "\n"
    "  -k, --keep N                keep the N newest files\n"
    "  -s, --max-total SIZE[K|M|G|T]  keep the newest files that together hold at most\n"
    "                              SIZE bytes (K, M, G, T = 1024, 1024^2, ...)\n"
    "  -o, --older-than AGE        delete files last written more than AGE ago: days\n"
    "                              (a decimal number, like 0.5), or a number with a\n"
    "                              unit s, m, h, d or w (90m, 36h, 14d)\n"
    "      --dry-run               print what would be deleted, delete nothing\n"
    "  -h, --help                  print this help and exit\n";

// An age: a number of days ("0.5"), or a number and a unit ("90m", "36h", "14d").
bool parseAge(const char* text, double& days) {
    std::int64_t ms = 0;
    if (!parseDuration(text, kDayMs, ms)) return false;
    days = static_cast<double>(ms) / kDayMs;
    return true;
}

// Whether file `index` of `count` goes by one of the limits; `total` is what the files from
// this one on hold together.
bool beyondCount(std::size_t index, std::size_t count, const PruneRequest& request) {
    return request.hasKeep && count - index > std::max<std::uint64_t>(request.keep, 1);
}
bool beyondTotal(std::uint64_t total, const PruneRequest& request) {
    return request.hasTotal && total > request.maxTotal;
}
bool tooOld(const PruneCandidate& file, const PruneRequest& request, std::time_t now) {
    return request.hasAge && file.modified != 0 &&
           std::difftime(now, file.modified) > request.days * 86400.0;
}

// Deletes the file at `path` unless a process holds a lock on it (a writer holds a shared one
// on its current file). The exclusive lock is taken without waiting, and the file is removed
// while it is held and only when the name still leads to the file locked: a writer that has
// just created a file checks, once it holds its own lock, that the name leads to its file, and
// makes a new one when not, so that no file it writes is ever removed. Returns false with
// errno set (EWOULDBLOCK: held; ENOENT: gone, or the name now leads to another file).
bool deleteUnlessHeld(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return false;
    int error = 0;
    struct stat locked, named;
    if (flock(fd, LOCK_EX | LOCK_NB) != 0 || fstat(fd, &locked) != 0 ||
        lstat(path.c_str(), &named) != 0) {
        error = errno;
    } else if (locked.st_dev != named.st_dev || locked.st_ino != named.st_ino) {
        error = ENOENT;
    } else if (unlink(path.c_str()) != 0) {
        error = errno;
    }
    close(fd);
    errno = error;
    return error == 0;
}

}  // namespace

int parsePruneArguments(int argc, char** argv, PruneRequest& request) {
    static const option kOptions[] = {
        {"keep", required_argument, nullptr, 'k'},   {"max-total", required_argument, nullptr, 's'},
        {"older-than", required_argument, nullptr, 'o'}, {"dry-run", no_argument, nullptr, 'n'},
        {"help", no_argument, nullptr, 'h'},         {nullptr, 0, nullptr, 0}};
    opterr = 0;
    optind = 0;  // 0: getopt starts afresh, also after an earlier parse in this process
    int c;
    bool ok = true;
    while ((c = getopt_long(argc, argv, ":k:s:o:h", kOptions, nullptr)) != -1) {
        switch (c) {
            case 'k':
                ok = request.hasKeep = parseUnsigned(optarg, 10, UINT64_MAX, request.keep);
                break;
            case 's':
                ok = request.hasTotal = parseSize(optarg, UINT64_MAX, request.maxTotal);
                break;
            case 'o': ok = request.hasAge = parseAge(optarg, request.days); break;
            case 'n': request.dryRun = true; break;
            case 'h': std::fputs(kPruneUsage, stdout); return kHelpPrinted;
            default: return optionError(c, argv, "prune");
        }
        if (!ok) {
            const char* option = c == 'k' ? "--keep" : c == 's' ? "--max-total" : "--older-than";
            std::fprintf(stderr, "qellog: bad value '%s' for %s (see qellog prune --help)\n",
                         optarg, option);
            return kExitUsage;
        }
    }
    if (optind + 1 != argc || !(request.hasKeep || request.hasTotal || request.hasAge)) {
        std::fprintf(stderr,
                     "qellog: prune needs one DIR and --keep, --max-total or --older-than (see "
                     "qellog prune --help)\n");
        return kExitUsage;
    }
    request.folder = argv[optind];
    return kExitSuccess;
}

std::vector<bool> selectForDeletion(const std::vector<PruneCandidate>& files,
                                    const PruneRequest& request, std::time_t now) {
    std::uint64_t total = 0;
    std::size_t latest = 0;  // written to last: after the clock went back, not the newest name
    for (std::size_t i = 0; i < files.size(); ++i) {
        total += files[i].size;
        if (files[i].modified >= files[latest].modified) latest = i;
    }
    std::vector<bool> doomed(files.size(), false);
    for (std::size_t i = 0; i + 1 < files.size(); ++i) {
        if (i == latest) continue;
        doomed[i] = beyondCount(i, files.size(), request) || beyondTotal(total, request) ||
                    tooOld(files[i], request, now);
        if (doomed[i]) total -= files[i].size;
    }
    return doomed;
}

int runPrune(int argc, char** argv) {
    PruneRequest request;
    const int parsed = parsePruneArguments(argc, argv, request);
    if (parsed != kExitSuccess) return parsed == kHelpPrinted ? kExitSuccess : parsed;
    std::vector<LogFile> files;
    std::string error;
    if (!listLogFiles(request.folder, files, error, true)) {
        std::fprintf(stderr, "qellog: cannot read folder '%s': %s\n", request.folder.c_str(),
                     error.c_str());
        return kExitFailure;
    }
    // Oldest first in the order of writing, as cat reads them: a writer's newest files stay
    // however its names or file times went back (a clock step, the hour that repeats).
    orderByWriting(files, std::time(nullptr), [](const ReadWarning&) {});
    std::vector<PruneCandidate> candidates;
    for (const LogFile& file : files) candidates.push_back({file.size, file.modified});
    const std::vector<bool> doomed = selectForDeletion(candidates, request, std::time(nullptr));
    int result = kExitSuccess;
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (!doomed[i]) continue;
        if (request.dryRun) {
            std::printf("would delete %s\n", files[i].path.c_str());
        } else if (!deleteUnlessHeld(files[i].path)) {
            if (errno == EWOULDBLOCK) {
                std::printf("kept %s: a writer holds it\n", files[i].path.c_str());
            } else if (errno != ENOENT) {  // gone already: nothing left to do
                std::fprintf(stderr, "qellog: cannot delete '%s': %s\n", files[i].path.c_str(),
                             std::strerror(errno));
                result = kExitFailure;
            }
        } else {
            std::printf("deleted %s\n", files[i].path.c_str());
        }
    }
    return std::fflush(stdout) == 0 ? result : kExitFailure;
}

}  // namespace qellog
