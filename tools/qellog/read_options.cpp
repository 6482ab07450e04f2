#include "read_options.h"

#include <getopt.h>

#include <cstdio>
#include <cstring>

#include "commands.h"
#include "numbers.h"
#include "read/civil_time.h"
#include "time_spec.h"

namespace qellog {
namespace {

enum : int { kSince = 256, kUntil, kThreadId, kGrep, kColour, kState };

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

}  // namespace

int parseReadOptions(int argc, char** argv, ReadCommand command, const char* usage,
                     ReadOptions& options) {
    std::vector<option> table = {
        {"json", no_argument, nullptr, 'j'},         {"level", required_argument, nullptr, 'l'},
        {"module", required_argument, nullptr, 'm'}, {"since", required_argument, nullptr, kSince},
        {"until", required_argument, nullptr, kUntil},
        {"tid", required_argument, nullptr, kThreadId},
        {"grep", required_argument, nullptr, kGrep}, {"ignore-case", no_argument, nullptr, 'i'},
        {"help", no_argument, nullptr, 'h'}};
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
            case 'h':
                std::fputs(usage, stdout);
                std::fputs(selectionHelp(), stdout);
                return kHelpPrinted;
            default: return optionError(c, argv, commandName(command));
        }
    }
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
           "                       local times, compared with each record's date and time\n"
           "      --tid N          records of thread N\n"
           "      --grep REGEX     records whose text holds a match of the POSIX extended\n"
           "                       REGEX; -i, --ignore-case: ignore case\n"
           "Bytes that are not a record have no level, module, thread or time: only --grep\n"
           "alone selects them.\n";
}

}  // namespace qellog
