// The library's write paths. The log manager is one per process, so each case sets up the
// writers it measures and switches every writer off when it ends.

#include <qel/log.h>

#include "bench_support.h"

namespace bench {
namespace {

constexpr unsigned int kFileLimit = 10485760;

void writeInfo() {
    qelLogWrite(kModule, QEL_LOG_INFO, __FILE__, __LINE__, __func__, kText);
}

void allWritersOff() {
    qelLogConfigConsoleWriter(false);
    qelLogConfigFileWriter(false);
    qelLogSetGlobalLevel(QEL_LOG_INFO);
}

// A level-0 record under the threshold 1: it is dropped before it is stamped.
void droppedRecord(benchmark::State& state) {
    runCase(
        state,
        [](const std::string&) {
            allWritersOff();
            qelLogConfigConsoleWriter(true);  // the default set-up; nothing reaches it
        },
        [] { qelLogWrite(kModule, QEL_LOG_VERBOSE, __FILE__, __LINE__, __func__, kText); },
        allWritersOff);
}

void consoleOnly(benchmark::State& state) {
    runCase(
        state,
        [](const std::string&) {
            allWritersOff();
            qelLogConfigConsoleWriter(true);
        },
        writeInfo, allWritersOff);
}

// Folder set, 10 MiB per file: the measured time includes the switches to new files.
void fileOnly(benchmark::State& state) {
    runCase(
        state,
        [](const std::string& folder) {
            allWritersOff();
            qelLogSetMaxSize(kFileLimit);
            qelLogSetFileFolder(folder.c_str());
        },
        writeInfo, allWritersOff);
}

void bothWriters(benchmark::State& state) {
    runCase(
        state,
        [](const std::string& folder) {
            allWritersOff();
            qelLogSetMaxSize(kFileLimit);
            qelLogSetFileFolder(folder.c_str());
            qelLogConfigConsoleWriter(true);
        },
        writeInfo, allWritersOff);
}

}  // namespace

void registerQelCases() {
    registerCase("dropped/qel", droppedRecord);
    registerCase("console/qel", consoleOnly);
    registerCase("file/qel", fileOnly);
    registerCase("both/qel", bothWriters);
}

}  // namespace bench
