#ifndef QELLOG_PRUNE_H_
#define QELLOG_PRUNE_H_

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

namespace qellog {

// What `qellog prune` is asked to do.
struct PruneRequest {
    std::string folder;
    bool hasKeep = false, hasTotal = false, hasAge = false, dryRun = false;
    std::uint64_t keep = 0;      // the newest files to keep
    std::uint64_t maxTotal = 0;  // bytes the kept files may hold together
    double days = 0;             // files last written longer ago go
};

// Reads prune's arguments (argv[0] is "prune"). Returns kExitSuccess when `request` is usable,
// kExitUsage for a usage error (reported on standard error), kHelpPrinted after the help.
int parsePruneArguments(int argc, char** argv, PruneRequest& request);

// What prune knows of one log file.
struct PruneCandidate {
    std::uint64_t size = 0;
    std::time_t modified = 0;  // 0: unknown (the file went away), never too old
};

// Which of `files` (oldest first, in the order of writing) go under `request`'s limits at time
// `now`. The newest file and the one written to last (they differ after the clock went back)
// always stay.
std::vector<bool> selectForDeletion(const std::vector<PruneCandidate>& files,
                                    const PruneRequest& request, std::time_t now);

}  // namespace qellog

#endif  // QELLOG_PRUNE_H_
