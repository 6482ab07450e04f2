#include "commands.h"

#include <getopt.h>

#include <cstdio>
#include <cstring>

#include "options.h"

namespace qellog {
namespace {

const Subcommand kSubcommands[] = {
    {"cat", runCat, "[OPTION]... DIR|FILE|-...",
     {"the records, whole, oldest first; filters (--level, --module, --since,",
      "--until, --tid, --grep), -n N for the last N, --json, --color"}},
    {"follow", runFollow, "[OPTION]... DIR",
     {"the same, then each new record as the writer adds it", ""}},
    {"stats", runStats, "[OPTION]... DIR|FILE|-...",
     {"files, bytes, time span, records per level and module, warnings", ""}},
    {"prune", runPrune, "DIR --keep N|--max-total SIZE|--older-than AGE [--dry-run]",
     {"delete the oldest log files beyond a count, size or age", ""}},
    {"help", runHelp, "[COMMAND]", {"the help of qellog or of COMMAND", ""}},
};

}  // namespace

const Subcommand* findSubcommand(const std::string& name) {
    for (const Subcommand& command : kSubcommands) {
        if (name == command.name) return &command;
    }
    return nullptr;
}

std::string subcommandUsage() {
    std::string out;
    for (const Subcommand& command : kSubcommands) {
        out += std::string("   or: qellog ") + command.name + " " + command.arguments + "\n";
    }
    return out;
}

std::string subcommandSummaries() {
    std::string out;
    for (const Subcommand& command : kSubcommands) {
        char line[128];
        std::snprintf(line, sizeof(line), "  %-8s %s\n", command.name, command.summary[0]);
        out += line;
        if (command.summary[1][0] != '\0') out += std::string(11, ' ') + command.summary[1] + "\n";
    }
    return out;
}

int runHelp(int argc, char** argv) {
    if (argc < 2) {
        std::fputs(usageText().c_str(), stdout);
        return kExitSuccess;
    }
    const Subcommand* command = findSubcommand(argv[1]);
    if (command == nullptr || command->run == runHelp) {
        std::string names;
        for (const Subcommand& each : kSubcommands) {
            if (each.run != runHelp) names += std::string(names.empty() ? "" : ", ") + each.name;
        }
        std::fprintf(stderr, "qellog: no command '%s': %s (see qellog --help)\n", argv[1],
                     names.c_str());
        return kExitUsage;
    }
    char helpOption[] = "--help";
    char* arguments[] = {argv[1], helpOption, nullptr};
    return command->run(2, arguments);
}

int optionError(int c, char** argv, const char* command) {
    const char* option = argv[optind - 1];
    if (c == ':') {
        std::fprintf(stderr, "qellog: option '%s' needs an argument\n", option);
    } else if (std::strcmp(command, "cat") == 0 &&
               (optopt == 'f' || std::strcmp(option, "--follow") == 0)) {
        std::fprintf(stderr,
                     "qellog: unknown option '%s': to print new records as they come, use "
                     "qellog follow DIR\n",
                     option);
    } else {
        std::fprintf(stderr, "qellog: unknown option '%s' (see qellog %s --help)\n", option,
                     command);
    }
    return kExitUsage;
}

}  // namespace qellog
