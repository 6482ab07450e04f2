#ifndef QELLOG_OPTIONS_H_
#define QELLOG_OPTIONS_H_

#include <qel/log.h>

#include <string>
#include <vector>

namespace qellog {

// What one command line asks for. Pointers point into argv and live as long as the process.
struct Options {
    enum class Action { Log, Explain, ExplainList, Help, Version };

    Action action = Action::Log;
    const char* module = "qellog";
    QelLogLevel level = QEL_LOG_INFO;
    bool hasThreshold = false;
    QelLogLevel threshold = QEL_LOG_INFO;
    bool hasMaxSize = false;
    unsigned int maxSize = 0;  // bytes per log file, 0 for no limit
    bool console = true;
    bool fileWriter = false;       // --file: log files in the working directory
    const char* folder = nullptr;  // --folder: log files there (wins over --file)
    int explainCode = 0;
    std::vector<const char*> words;  // MESSAGE words; none: read standard input
    bool wordsAfterDashes = false;   // the words came after "--": taken as they are
};

// Reads the command line into `options`. Returns true when it is usable; otherwise `error`
// holds a one-line reason (without the "qellog: " prefix) and the caller exits with 2.
bool parseOptions(int argc, char** argv, Options& options, std::string& error);

// A level as parseLevelName() reads it. Returns false for anything else.
bool parseLevel(const char* text, QelLogLevel& level);

// An error code in hexadecimal ("0x8030010A") or decimal, negative decimals read as the
// signed 32-bit form of the code. Returns false when malformed or out of 32 bits.
bool parseCode(const char* text, int& code);

// The text that --help prints.
std::string usageText();

}  // namespace qellog

#endif  // QELLOG_OPTIONS_H_
