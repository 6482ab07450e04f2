#include "colour.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace qellog {
namespace {

const char kHeader[] = "\x1b[36m", kReset[] = "\x1b[0m";

const char* levelColour(char level) {
    switch (level) {
        case 'E': return "\x1b[1;31m";
        case 'W': return "\x1b[1;33m";
        case 'I': return "\x1b[32m";
        default: return "\x1b[0m";
    }
}

}  // namespace

bool parseColourMode(const char* text, ColourMode& mode) {
    if (std::strcmp(text, "auto") == 0) {
        mode = ColourMode::Auto;
    } else if (std::strcmp(text, "always") == 0 || std::strcmp(text, "yes") == 0) {
        mode = ColourMode::Always;
    } else if (std::strcmp(text, "never") == 0 || std::strcmp(text, "no") == 0) {
        mode = ColourMode::Never;
    } else {
        return false;
    }
    return true;
}

bool colourWanted(ColourMode mode, int fd) {
    if (mode != ColourMode::Auto) return mode == ColourMode::Always;
    const char* noColour = std::getenv("NO_COLOR");
    const char* term = std::getenv("TERM");
    return isatty(fd) && (noColour == nullptr || noColour[0] == '\0') &&
           !(term != nullptr && std::strcmp(term, "dumb") == 0);
}

std::string colouredRecord(const Record& record) {
    if (!record.headed) return std::string(record.bytes);
    // "[module][V1.8.63 L hh:mm:ss:ms tid]": the level letter follows the first space after
    // the module (a version has none).
    const std::size_t space = record.bytes.find(' ', record.header.module.size() + 3);
    if (space == std::string::npos || space + 1 >= record.textBegin) {
        return std::string(record.bytes);
    }
    std::string out = kHeader;
    out.append(record.bytes, 0, space + 1);
    out += kReset;
    out += levelColour(record.header.level);
    out += record.bytes[space + 1];
    out += kReset;
    out += kHeader;
    out.append(record.bytes, space + 2, record.textBegin - space - 2);
    out += kReset;
    out.append(record.bytes.substr(record.textBegin));
    return out;
}

}  // namespace qellog
