// qellog prune: deletes the oldest log files of a folder beyond a count, a total size or an age.

#include <getopt.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "commands.h"
#include "records.h"

namespace qellog {
namespace {

const char kPruneUsage[] =
    "Usage: qellog prune DIR LIMIT... [--dry-run]\n"
    "Delete the oldest log files in DIR beyond the LIMITs and print each one deleted.\n"
    "Only files named QelLog<date-time>.log are looked at; the newest one is never deleted.\n"
    "A file goes when any LIMIT says so.\n"
    "\n"
    "  -k, --keep N                keep the N newest files\n"
    "  -s, --max-total SIZE[K|M|G|T]  keep the newest files that together hold at most\n"
    "                              SIZE bytes (K, M, G, T = 1024, 1024^2, ...)\n"
    "  -o, --older-than DAYS       delete files last written more than DAYS days ago\n"
    "                              (a decimal number, like 0.5)\n"
    "  -n, --dry-run               print what would be deleted, delete nothing\n"
    "  -h, --help                  print this help and exit\n";

bool parseCount(const char* text, std::uint64_t& value) {
    if (*text == '\0') return false;
    value = 0;
    for (; *text != '\0'; ++text) {
        if (*text < '0' || *text > '9' || value > (UINT64_MAX - 9) / 10) return false;
        value = value * 10 + static_cast<std::uint64_t>(*text - '0');
    }
    return true;
}

bool parseTotal(const char* text, std::uint64_t& value) {
    std::string digits(text);
    int shift = 0;
    if (!digits.empty()) {
        switch (digits.back()) {
            case 'K': case 'k': shift = 10; break;
            case 'M': case 'm': shift = 20; break;
            case 'G': case 'g': shift = 30; break;
            case 'T': case 't': shift = 40; break;
            default: break;
        }
        if (shift != 0) digits.pop_back();
    }
    if (!parseCount(digits.c_str(), value) || value > (UINT64_MAX >> shift)) return false;
    value <<= shift;
    return true;
}

bool parseDays(const char* text, double& days) {
    char* end = nullptr;
    errno = 0;
    days = std::strtod(text, &end);
    return *text != '\0' && *end == '\0' && errno == 0 && std::isfinite(days) && days >= 0;
}

}  // namespace

int runPrune(int argc, char** argv) {
    static const option kOptions[] = {
        {"keep", required_argument, nullptr, 'k'},   {"max-total", required_argument, nullptr, 's'},
        {"older-than", required_argument, nullptr, 'o'}, {"dry-run", no_argument, nullptr, 'n'},
        {"help", no_argument, nullptr, 'h'},         {nullptr, 0, nullptr, 0}};
    bool hasKeep = false, hasTotal = false, hasAge = false, dryRun = false;
    std::uint64_t keep = 0, maxTotal = 0;
    double days = 0;
    opterr = 0;
    optind = 1;
    int c;
    bool ok = true;
    while ((c = getopt_long(argc, argv, ":k:s:o:nh", kOptions, nullptr)) != -1) {
        switch (c) {
            case 'k': ok = hasKeep = parseCount(optarg, keep); break;
            case 's': ok = hasTotal = parseTotal(optarg, maxTotal); break;
            case 'o': ok = hasAge = parseDays(optarg, days); break;
            case 'n': dryRun = true; break;
            case 'h': std::fputs(kPruneUsage, stdout); return 0;
            default: return optionError(c, argv, "prune");
        }
        if (!ok) {
            const char* option = c == 'k' ? "--keep" : c == 's' ? "--max-total" : "--older-than";
            std::fprintf(stderr, "qellog: bad value '%s' for %s (see qellog prune --help)\n",
                         optarg, option);
            return 2;
        }
    }
    if (optind + 1 != argc || !(hasKeep || hasTotal || hasAge)) {
        std::fprintf(stderr,
                     "qellog: prune needs one DIR and --keep, --max-total or --older-than (see "
                     "qellog prune --help)\n");
        return 2;
    }
    const std::string folder = argv[optind];
    std::vector<LogFile> files;
    std::string error;
    if (!listLogFiles(folder, files, error)) {
        std::fprintf(stderr, "qellog: cannot read folder '%s': %s\n", folder.c_str(),
                     error.c_str());
        return 1;
    }
    // Files are looked at oldest first; the newest one, the writer's current file, stays.
    const std::size_t count = files.size();
    std::vector<bool> doomed(count, false);
    std::vector<struct stat> status(count);
    std::uint64_t total = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (stat(files[i].path.c_str(), &status[i]) != 0) {
            std::memset(&status[i], 0, sizeof(struct stat));  // gone: counts as empty, no age
        }
        total += static_cast<std::uint64_t>(status[i].st_size);
    }
    const std::time_t now = std::time(nullptr);
    for (std::size_t i = 0; i + 1 < count; ++i) {
        if (hasKeep && count - i > std::max<std::uint64_t>(keep, 1)) doomed[i] = true;
        if (hasTotal && total > maxTotal) doomed[i] = true;
        if (hasAge && status[i].st_mtime != 0 &&
            std::difftime(now, status[i].st_mtime) > days * 86400.0) {
            doomed[i] = true;
        }
        if (doomed[i]) total -= static_cast<std::uint64_t>(status[i].st_size);
    }
    int result = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (!doomed[i]) continue;
        if (dryRun) {
            std::printf("would delete %s\n", files[i].path.c_str());
        } else if (unlink(files[i].path.c_str()) == 0) {
            std::printf("deleted %s\n", files[i].path.c_str());
        } else if (errno != ENOENT) {  // gone already: nothing left to do
            std::fprintf(stderr, "qellog: cannot delete '%s': %s\n", files[i].path.c_str(),
                         std::strerror(errno));
            result = 1;
        }
    }
    return std::fflush(stdout) == 0 ? result : 1;
}

}  // namespace qellog
