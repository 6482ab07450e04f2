// qellog: logs a message, or every line of standard input, through the library's writers.

#include <qel/error.h>
#include <qel/log.h>
#include <qel/version.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "commands.h"
#include "folder_problem.h"
#include "options.h"
#include "pump.h"

namespace {

// The library's message for `code`, or the code itself when the table has none.
std::string describe(int code) {
    if (const char* message = errorGetErrorCodeString(code)) {
        return message;
    }
    char text[32];
    std::snprintf(text, sizeof(text), "error code 0x%08X", static_cast<unsigned int>(code));
    return text;
}

// Every code of the table 0x8030CCII (categories 0 to 5) with its message, a tab between.
int explainAll() {
    for (unsigned int category = 0; category <= 5; ++category) {
        for (unsigned int index = 0; index <= 0xFF; ++index) {
            const unsigned int code = 0x80300000u | category << 8 | index;
            if (const char* message = errorGetErrorCodeString(static_cast<int>(code))) {
                std::printf("0x%08X\t%s\n", code, message);
            }
        }
    }
    return std::fflush(stdout) == 0 ? qellog::kExitSuccess : qellog::kExitFailure;
}

int explain(int code) {
    const char* message = errorGetErrorCodeString(code);
    if (message == nullptr) {
        std::fprintf(stderr, "qellog: error code 0x%08X has no message\n",
                     static_cast<unsigned int>(code));
        return qellog::kExitFailure;
    }
    std::printf("%s\n", message);
    return qellog::kExitSuccess;
}

// Switches the file writer on as asked. Returns kExitSuccess, or kExitFailure when the asked
// place was refused (logging then goes on in the working directory when a log file can be
// opened there).
int configureFiles(const qellog::Options& options) {
    if (options.folder != nullptr) {
        if (qelLogSetFileFolder(options.folder) == 0) {
            return qellog::kExitSuccess;
        }
        std::string reason = describe(*ErrnoLocal());
        const std::string problem = qellog::folderProblem(options.folder);
        if (!problem.empty()) reason += " (" + problem + ")";
        // Most refusals leave the file writer on in the working directory; a blank or too long
        // folder changes nothing, so the writer is switched on there here. Switching on a writer
        // that is on changes nothing, so the result also tells whether a log file is open.
        const bool inWorkingDirectory = qelLogConfigFileWriter(true) == 0;
        std::fprintf(stderr, "qellog: folder '%s' refused: %s; logging continues %s\n",
                     options.folder, reason.c_str(),
                     inWorkingDirectory ? "in the working directory" : "without a log file");
        return qellog::kExitFailure;
    }
    if (options.fileWriter && qelLogConfigFileWriter(true) != 0) {
        std::fprintf(stderr,
                     "qellog: no log file in the working directory: %s; logging continues "
                     "without a log file\n",
                     describe(*ErrnoLocal()).c_str());
        return qellog::kExitFailure;
    }
    return qellog::kExitSuccess;
}

int run(const qellog::Options& options) {
    if (options.hasThreshold) {
        qelLogSetGlobalLevel(options.threshold);
    }
    if (options.hasMaxSize) {
        qelLogSetMaxSize(options.maxSize);
    }
    if (!options.console) {
        qelLogConfigConsoleWriter(false);
    }
    int status = configureFiles(options);

    if (!options.words.empty()) {
        std::string text;
        for (std::size_t i = 0; i < options.words.size(); ++i) {
            text += i == 0 ? "" : " ";
            text += options.words[i];
        }
        const std::size_t length = text.size();
        text.push_back('\0');  // the byte that logText borrows as a terminator
        qellog::logText(options.module, options.level, &text[0], length);
    } else if (const int error = qellog::logLines(STDIN_FILENO, options.module, options.level)) {
        std::fprintf(stderr, "qellog: cannot read standard input: %s\n", std::strerror(error));
        status = qellog::kExitFailure;
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    // A first argument that names a subcommand reads log files instead of writing them (or
    // prints help); a message that starts with such a word is logged after "--".
    if (argc > 1) {
        if (const qellog::Subcommand* subcommand = qellog::findSubcommand(argv[1])) {
            // Records go out in large writes (as large as the copy tools make), unless a person
            // watches them come.
            if (!isatty(STDOUT_FILENO)) std::setvbuf(stdout, nullptr, _IOFBF, 128 * 1024);
            return subcommand->run(argc - 1, argv + 1);
        }
    }
    qellog::Options options;
    std::string error;
    if (!qellog::parseOptions(argc, argv, options, error)) {
        std::fprintf(stderr, "qellog: %s\n", error.c_str());
        return qellog::kExitUsage;
    }
    switch (options.action) {
        case qellog::Options::Action::Help:
            std::fputs(qellog::usageText().c_str(), stdout);
            return qellog::kExitSuccess;
        case qellog::Options::Action::Version:
            std::printf("qellog %d.%d.%d\n", QEL_VERSION_MAJOR, QEL_VERSION_MINOR,
                        QEL_VERSION_PATCH);
            return qellog::kExitSuccess;
        case qellog::Options::Action::Explain:
            return explain(options.explainCode);
        case qellog::Options::Action::ExplainList:
            return explainAll();
        case qellog::Options::Action::Log:
            break;
    }
    // A folder's name is more likely a habit from other tools than a message to log.
    struct stat status;
    if (!options.words.empty() && !options.wordsAfterDashes &&
        stat(options.words[0], &status) == 0 && S_ISDIR(status.st_mode)) {
        std::fprintf(stderr,
                     "qellog: '%s' is a folder: to read it, qellog cat %s (or follow); to log "
                     "it as a message, put -- before it\n",
                     options.words[0], options.words[0]);
        return qellog::kExitUsage;
    }
    return run(options);
}
