#include "options.h"

#include <getopt.h>

#include <climits>
#include <cstdint>
#include <cstring>

#include "commands.h"
#include "numbers.h"
#include "read/record_filter.h"

namespace qellog {
namespace {

// --file and --no-console have no short form: -f would be taken for following, and -n means
// "last N records" when reading.
const char kShortOptions[] = ":m:l:t:d:s:x:hV";  // leading ':' reports a missing argument as ':'

const option kLongOptions[] = {
    {"module", required_argument, nullptr, 'm'},   {"level", required_argument, nullptr, 'l'},
    {"threshold", required_argument, nullptr, 't'}, {"folder", required_argument, nullptr, 'd'},
    {"file", no_argument, nullptr, 'f'},             {"max-size", required_argument, nullptr, 's'},
    {"no-console", no_argument, nullptr, 'n'},       {"explain", required_argument, nullptr, 'x'},
    {"help", no_argument, nullptr, 'h'},             {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0}};

std::string longName(int shortOption) {
    for (const option* o = kLongOptions; o->name != nullptr; ++o) {
        if (o->val == shortOption) {
            return std::string("--") + o->name;
        }
    }
    return std::string("-") + static_cast<char>(shortOption);
}

}  // namespace

bool parseLevel(const char* text, QelLogLevel& level) {
    char letter = 0;
    if (!parseLevelName(text, letter)) return false;
    switch (letter) {
        case 'V': level = QEL_LOG_VERBOSE; break;
        case 'I': level = QEL_LOG_INFO; break;
        case 'W': level = QEL_LOG_WARNING; break;
        default: level = QEL_LOG_ERROR; break;
    }
    return true;
}

bool parseCode(const char* text, int& code) {
    std::uint64_t value = 0;
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        if (!parseUnsigned(text + 2, 16, UINT32_MAX, value)) return false;
    } else if (text[0] == '-') {
        if (!parseUnsigned(text + 1, 10, 0x80000000u, value)) return false;
        value = (~value + 1) & 0xFFFFFFFFu;  // two's complement of the magnitude
    } else if (!parseUnsigned(text, 10, UINT32_MAX, value)) {
        return false;
    }
    code = static_cast<int>(static_cast<std::uint32_t>(value));
    return true;
}

bool parseOptions(int argc, char** argv, Options& options, std::string& error) {
    opterr = 0;  // our own one-line messages instead of getopt's
    optind = 0;  // 0: getopt starts afresh, also after an earlier parse in this process
    int c;
    while ((c = getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr)) != -1) {
        switch (c) {
            case 'm':
                options.module = optarg;
                break;
            case 'l':
            case 't': {
                QelLogLevel& target = c == 'l' ? options.level : options.threshold;
                if (!parseLevel(optarg, target)) {
                    error = "bad level '" + std::string(optarg) + "' for " + longName(c) +
                            ": expected V, I, W, E or verbose, info, warning, error";
                    return false;
                }
                options.hasThreshold = options.hasThreshold || c == 't';
                break;
            }
            case 'd':
                options.folder = optarg;
                break;
            case 'f':
                options.fileWriter = true;
                break;
            case 's': {
                std::uint64_t size = 0;
                if (!parseSize(optarg, UINT_MAX, size)) {
                    error = "bad size '" + std::string(optarg) +
                            "' for --max-size: expected N, NK, NM or NG, at most 4294967295 bytes";
                    return false;
                }
                options.maxSize = static_cast<unsigned int>(size);
                options.hasMaxSize = true;
                break;
            }
            case 'n':
                options.console = false;
                break;
            case 'x':
                if (std::strcmp(optarg, "--list") == 0 || std::strcmp(optarg, "list") == 0) {
                    options.action = Options::Action::ExplainList;
                    break;
                }
                if (!parseCode(optarg, options.explainCode)) {
                    error = "bad error code '" + std::string(optarg) +
                            "' for --explain: expected hexadecimal 0x8030CCII or decimal";
                    return false;
                }
                options.action = Options::Action::Explain;
                break;
            case 'h':
                options.action = Options::Action::Help;
                return true;
            case 'V':
                options.action = Options::Action::Version;
                return true;
            case ':':
                error = "option " + longName(optopt) + " needs an argument";
                return false;
            default:  // '?': unknown option, or an ambiguous abbreviation of a long one
                if (optopt == 'f' || optopt == 'n') {
                    error = std::string("unknown option '-") + static_cast<char>(optopt) +
                            "': to read a log folder use qellog cat [-n N] DIR or qellog "
                            "follow DIR; to write log files use --file or --no-console";
                    return false;
                }
                error = "unknown option '" +
                        (optopt != 0 ? std::string("-") + static_cast<char>(optopt)
                                     : std::string(argv[optind - 1])) +
                        "' (see qellog --help)";
                return false;
        }
    }
    options.words.assign(argv + optind, argv + argc);
    options.wordsAfterDashes = optind > 1 && std::strcmp(argv[optind - 1], "--") == 0;
    if (options.action != Options::Action::Log && !options.words.empty()) {
        error = "--explain takes no MESSAGE";
        return false;
    }
    return true;
}

std::string usageText() {
    return "Usage: qellog [OPTION]... [MESSAGE]...\n" + subcommandUsage() +
           "Log MESSAGE as one record, or without MESSAGE each line of standard input as one\n"
           "record, on the console and, when switched on, into size-limited log files.\n"
           "\n"
           "  -m, --module NAME          module name that starts each line (default qellog)\n"
           "  -l, --level LEVEL          level of the records: V, I, W, E or verbose, info,\n"
           "                             warning, error (default I)\n"
           "  -t, --threshold LEVEL      drop records below this level (default I)\n"
           "  -d, --folder DIR           write log files into DIR, created when missing\n"
           "      --file                 write log files into the working directory\n"
           "  -s, --max-size N[K|M|G]    bytes per log file, K, M, G = 1024, 1024^2, 1024^3;\n"
           "                             0 for no limit (default 10M)\n"
           "      --no-console           do not print records on standard output\n"
           "  -x, --explain CODE         print the message of an error code (0x8030010A or\n"
           "                             decimal) and exit; --explain --list: every code\n"
           "                             and its message, a tab between them\n"
           "  -h, --help                 print this help and exit\n"
           "  -V, --version              print the library version and exit\n"
           "\n"
           "Commands, which read the log files back (qellog help COMMAND for each):\n" +
           subcommandSummaries() +
           "\n"
           "A record holds 2047 bytes of text: longer lines continue in the next records.\n"
           "A line feed ends a line; a carriage return stays in the text; a NUL byte is\n"
           "logged as a space. Log files are named QelLog<date-time>.log; a full file is\n"
           "continued in a new one.\n"
           "QEL_LOG_LEVEL in the environment sets thresholds at start, as for any program\n"
           "that logs through the library: QEL_LOG_LEVEL='I,net*=V' drops records below I,\n"
           "but keeps every level of the modules whose name starts with net. --threshold\n"
           "replaces the first; a module's own threshold wins for that module.\n"
           "To log a message that starts with a command's name or with the name of a folder,\n"
           "put -- before it.\n"
           "Exit status: 0 success, 1 runtime failure (folder refused, code without a\n"
           "message, unreadable input), 2 usage error.\n";
}

}  // namespace qellog
