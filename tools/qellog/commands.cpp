#include "commands.h"

#include <getopt.h>

#include <cstdio>

namespace qellog {

int optionError(int c, char** argv, const char* command) {
    if (c == ':') {
        std::fprintf(stderr, "qellog: option '%s' needs an argument\n", argv[optind - 1]);
    } else {
        std::fprintf(stderr, "qellog: unknown option '%s' (see qellog %s --help)\n",
                     argv[optind - 1], command);
    }
    return 2;
}

}  // namespace qellog
