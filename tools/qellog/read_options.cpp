#include "read_options.h"

#include <getopt.h>
#include <sys/stat.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "commands.h"
#include "numbers.h"
#include "read/civil_time.h"
#include "read/text_cursor.h"
#include "time_spec.h"

namespace qellog {
namespace {

enum : int { kSince = 256, kUntil, kThreadId, kGrep, kColour, kState, kUtc, kZone };

const char* commandName(ReadCommand command) {
    switch (command) {
        case ReadCommand::Cat: return "cat";
        case ReadCommand::Follow: return "follow";
        default: return "stats";
    }
}

int badValue(const char* value, const char* option, ReadCommand command,
             const std::string& reason = "") {
    std::fprintf(stderr, "qellog: bad value '%s' for %s%s%s (see qellog %s --help)\n", value,
                 option, reason.empty() ? "" : ": ", reason.c_str(), commandName(command));
    return kExitUsage;
}

// A zone that the C library knows: a file of the zone database, or a rule (a name of three
// letters or more, or one in <>, then an offset), as TZ takes them. Anything else the C library
// would take silently as UTC.
bool knownZone(const char* zone) {
    if (*zone == ':') ++zone;
    if (*zone == '\0') return false;
    const char* folder = std::getenv("TZDIR");
    const std::string path =
        *zone == '/' ? zone : std::string(folder != nullptr ? folder : "/usr/share/zoneinfo") +
                                  "/" + zone;
    struct stat status;
    if (std::strstr(zone, "..") == nullptr && stat(path.c_str(), &status) == 0 &&
        S_ISREG(status.st_mode)) {
        return true;
    }
    const char* at = zone;
    if (*at == '<') {
        at = std::strchr(at, '>');
        if (at == nullptr) return false;
        ++at;
    } else {
        while (std::isalpha(static_cast<unsigned char>(*at))) ++at;
        if (at - zone < 3) return false;
    }
    if (*at == '+' || *at == '-') ++at;
    return isDigit(*at);
}

// --utc and --tz ZONE choose the zone in which the command line's times and the records of files
// without recorded facts are read, and how real times are shown; they take effect before the
// other options are read, wherever they stand.
int applyReadingZone(int argc, char** argv, ReadCommand command) {
    const char* zone = nullptr;
    bool utc = false;
    for (int i = 1; i < argc && std::strcmp(argv[i], "--") != 0; ++i) {
        if (std::strcmp(argv[i], "--utc") == 0) {
            utc = true;
        } else if (std::strncmp(argv[i], "--tz=", 5) == 0) {
            zone = argv[i] + 5;
        } else if (std::strcmp(argv[i], "--tz") == 0 && i + 1 < argc) {
            zone = argv[++i];
        }
    }
    if (utc && zone != nullptr) {
        std::fprintf(stderr, "qellog: --utc and --tz exclude each other (see qellog %s --help)\n",
                     commandName(command));
        return 2;
    }
    if (zone != nullptr && !knownZone(zone)) {
        return badValue(zone, "--tz", command,
                        "no such time zone (a name such as Europe/Berlin, or a rule such as "
                        "CET-1CEST,M3.5.0,M10.5.0/3)");
    }
    if (utc || zone != nullptr) {
        setenv("TZ", utc ? "UTC0" : zone, 1);
        tzset();
    }
    setTimeShown(utc ? TimeShown::Utc : zone != nullptr ? TimeShown::Zone : TimeShown::Writer);
    return 0;
}

}  // namespace

int parseReadOptions(int argc, char** argv, ReadCommand command, const char* usage,
                     ReadOptions& options) {
    std::vector<option> table = {
        {"json", no_argument, nullptr, 'j'},         {"level", required_argument, nullptr, 'l'},
        {"module", required_argument, nullptr, 'm'}, {"since", required_argument, nullptr, kSince},
        {"until", required_argument, nullptr, kUntil},
        {"tid", required_argument, nullptr, kThreadId},
        {"grep", required_argument, nullptr, kGrep}, {"ignore-case", no_argument, nullptr, 'i'},
        {"help", no_argument, nullptr, 'h'},         {"utc", no_argument, nullptr, kUtc},
        {"tz", required_argument, nullptr, kZone}};
    std::string shortOptions = ":jl:m:ih";
    if (command != ReadCommand::Stats) {
        table.push_back({"lines", required_argument, nullptr, 'n'});
        table.push_back({"color", optional_argument, nullptr, kColour});
        table.push_back({"colour", optional_argument, nullptr, kColour});
        shortOptions += "n:";
    }
    if (command == ReadCommand::Follow) {
        table.push_back({"state", required_argument, nullptr, kState});
    }
    table.push_back({nullptr, 0, nullptr, 0});

    if (const int refused = applyReadingZone(argc, argv, command)) return refused;
    const std::int64_t now = localNowMs();
    const char* pattern = nullptr;
    bool ignoreCase = false;
    RecordFilter& filter = options.filter;
    opterr = 0;
    optind = 0;  // 0: getopt starts afresh, also after an earlier parse in this process
    int c;
    while ((c = getopt_long(argc, argv, shortOptions.c_str(), table.data(), nullptr)) != -1) {
        switch (c) {
            case 'j': options.json = true; break;
            case 'l':
                if (!parseLevelRange(optarg, filter.minLevel, filter.maxLevel)) {
                    return badValue(optarg, "--level", command,
                                    "expected V, I, W, E (or verbose, info, warn, error) or a "
                                    "range such as W..E");
                }
                break;
            case 'm': filter.modules.push_back(optarg); break;
            case kSince:
            case kUntil: {
                std::int64_t& ms = c == kSince ? filter.since : filter.until;
                if (!parseTimeSpec(optarg, now, ms)) {
                    return badValue(optarg, c == kSince ? "--since" : "--until", command,
                                    "expected yyyy-mm-dd [hh:mm[:ss[.fff]]], hh:mm[:ss], today, "
                                    "yesterday, now or -N{s,m,h,d,w}");
                }
                (c == kSince ? filter.hasSince : filter.hasUntil) = true;
                break;
            }
            case kThreadId: {
                std::uint64_t id = 0;
                if (!parseUnsigned(optarg, 10, 0xFFFFFFFFu, id)) {
                    return badValue(optarg, "--tid", command);
                }
                filter.hasThreadId = true;
                filter.threadId = static_cast<unsigned long>(id);
                break;
            }
            case kGrep: pattern = optarg; break;
            case 'i': ignoreCase = true; break;
            case 'n':
                if (!parseUnsigned(optarg, 10, UINT64_MAX, options.lines)) {
                    return badValue(optarg, "--lines", command);
                }
                options.hasLines = true;
                break;
            case kColour:
                // Bare, it means always; "--color WHEN" takes the next argument only when it is
                // one of the words, so that "--color DIR" still reads DIR.
                if (optarg == nullptr && optind < argc &&
                    parseColourMode(argv[optind], options.colour)) {
                    ++optind;
                } else if (optarg == nullptr) {
                    options.colour = ColourMode::Always;
                } else if (!parseColourMode(optarg, options.colour)) {
                    return badValue(optarg, "--color", command, "expected auto, always or never");
                }
                break;
            case kState: options.statePath = optarg; break;
            case kUtc:
            case kZone: break;  // taken before the others, see applyReadingZone
            case 'h':
                std::fputs(usage, stdout);
                std::fputs(selectionHelp(), stdout);
                return kHelpPrinted;
            default: return optionError(c, argv, commandName(command));
        }
    }
    // The command line's times are local times of the reading zone; records carry real ones.
    if (filter.hasSince) filter.since = localToUtcMs(filter.since);
    if (filter.hasUntil) filter.until = localToUtcMs(filter.until);
    if (pattern != nullptr) {
        std::string error;
        if (!filter.setPattern(pattern, ignoreCase, error)) {
            return badValue(pattern, "--grep", command, error);
        }
    } else if (ignoreCase) {
        std::fprintf(stderr, "qellog: --ignore-case goes with --grep (see qellog %s --help)\n",
                     commandName(command));
        return kExitUsage;
    }
    if (options.hasLines && !options.statePath.empty()) {
        std::fprintf(stderr,
                     "qellog: follow takes --lines or --state, not both: with --state it goes "
                     "on where the last run stopped\n");
        return kExitUsage;
    }
    options.paths.assign(argv + optind, argv + argc);
    const bool one = command == ReadCommand::Follow;  // follow reads one folder
    if (one && options.paths.size() == 1 && options.paths[0] == "-") {
        std::fprintf(stderr, "qellog: follow reads a folder, not standard input (qellog cat - "
                             "reads it)\n");
        return kExitUsage;
    }
    if (options.paths.empty() ||
        (one && (options.paths.size() > 1 || options.paths[0].empty()))) {
        std::fprintf(stderr, "qellog: %s needs %s (see qellog %s --help)\n",
                     commandName(command), one ? "one DIR" : "a DIR or FILE", commandName(command));
        return kExitUsage;
    }
    return kExitSuccess;
}

const char* selectionHelp() {
    return "\n"
           "Selecting records (all conditions given must hold):\n"
           "  -l, --level L        this level and above: V, I, W, E, or verbose (debug), info,\n"
           "                       warn(ing), err(or), any case; L..H: from L up to H (W..E,\n"
           "                       ..I: up to I)\n"
           "  -m, --module NAME    this module; shell wildcards (* ? [...]), repeatable\n"
           "      --since TIME     records at or after TIME, and --until TIME at or before it:\n"
           "      --until TIME     yyyy-mm-dd [hh:mm[:ss[.fff]]], hh:mm[:ss[.fff]] (today),\n"
           "                       today, yesterday, now, or -N with s, m(in), h, d or w\n"
           "                       (-10min: ten minutes ago);\n"
           "                       local times (see --tz), compared with the real time of\n"
           "                       each record\n"
           "      --tid N          records of thread N\n"
           "      --grep REGEX     records whose text holds a match of the POSIX extended\n"
           "                       REGEX; -i, --ignore-case: ignore case\n"
           "Time zones (times on the command line, records without recorded facts):\n"
           "      --tz ZONE        read them as local times of ZONE (Europe/Berlin, UTC, or a\n"
           "                       TZ rule) and show ts in ZONE; default: this machine's zone,\n"
           "                       and ts in each writer's own offset\n"
           "      --utc            the same as --tz UTC, and ts in UTC\n"
           "Bytes that are not a record have no level, module, thread or time: only --grep\n"
           "alone selects them.\n";
}

}  // namespace qellog
