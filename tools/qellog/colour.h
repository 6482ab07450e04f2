#ifndef QELLOG_COLOUR_H_
#define QELLOG_COLOUR_H_

#include <string>

#include "read/record.h"

namespace qellog {

enum class ColourMode { Auto, Always, Never };

// "auto", "always" or "never" (also "yes"/"no"). Returns false for anything else.
bool parseColourMode(const char* text, ColourMode& mode);

// Whether output on `fd` gets colours: Always and Never as they say; Auto only on a terminal,
// and not when the environment holds a non-empty NO_COLOR or TERM=dumb.
bool colourWanted(ColourMode mode, int fd);

// The record's bytes with terminal colours: the header in cyan, its level letter in the
// level's colour (errors red, warnings yellow, information green). A piece stays as it is.
std::string colouredRecord(const Record& record);

}  // namespace qellog

#endif  // QELLOG_COLOUR_H_
