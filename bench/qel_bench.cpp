// The library's write paths. The log manager is one per process, so each case sets up the
// writers it measures and switches every writer off when it ends.

#include <errno.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <thread>

#include <qel/log.h>

#include "bench_support.h"

namespace {

// While set, setting an extended attribute fails as on a file system without them, so that the
// file writer records no facts beside its files.
bool g_refuseFacts = false;

}  // namespace

extern "C" int fsetxattr(int file, const char* name, const void* value, size_t size, int flags) {
    if (g_refuseFacts) {
        errno = ENOTSUP;
        return -1;
    }
    return static_cast<int>(syscall(SYS_fsetxattr, file, name, value, size, flags));
}

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

// Sets up the writers a case measures: the console writer and, with `folder`, the file
// writer in that folder at a 10 MiB limit (the measured time includes switches to new files),
// each record written through as the library does by default.
void switchOn(bool console, const std::string* folder) {
    allWritersOff();
    if (folder != nullptr) {
        qelLogSetMaxSize(kFileLimit);
        qelLogSetFileFolder(folder->c_str());
    }
    if (console) {
        qelLogConfigConsoleWriter(true);
    }
}

// A level-0 record under the threshold 1, in the default set-up: it is dropped before it is
// stamped.
void droppedRecord(benchmark::State& state) {
    runCase(
        state, [](const std::string&) { switchOn(true, nullptr); },
        [] { qelLogWrite(kModule, QEL_LOG_VERBOSE, __FILE__, __LINE__, __func__, kText); },
        allWritersOff);
}

void consoleOnly(benchmark::State& state) {
    runCase(state, [](const std::string&) { switchOn(true, nullptr); }, writeInfo, allWritersOff);
}

void fileOnlySetUp(const std::string& folder) {
    switchOn(false, &folder);
}

void fileOnly(benchmark::State& state) {
    runCase(state, fileOnlySetUp, writeInfo, allWritersOff);
}

void fileLatency(benchmark::State& state) {
    runCase(state, fileOnlySetUp, writeInfo, allWritersOff, true);
}

// The file writer with the buffer a program may ask for: records wait up to a second.
void fileBuffered(benchmark::State& state) {
    runCase(
        state,
        [](const std::string& folder) {
            fileOnlySetUp(folder);
            qelLogConfigFileBuffer(1000);
        },
        writeInfo,
        [] {
            allWritersOff();
            qelLogConfigFileBuffer(0);
        });
}

// A limit of 64 bytes splits every record of about 100 bytes over two new files: the cost of
// making a file, with the facts recorded beside it or, on a file system that refuses them,
// without. Names have a resolution of one millisecond, so the writer waits for the next one
// before each file: compare the CPU time, which the wait does not count.
void newFiles(benchmark::State& state, bool facts) {
    runCase(
        state,
        [facts](const std::string& folder) {
            g_refuseFacts = !facts;
            fileOnlySetUp(folder);
            qelLogSetMaxSize(64);
        },
        writeInfo,
        [] {
            allWritersOff();
            g_refuseFacts = false;
        });
}

void newFilesWithFacts(benchmark::State& state) {
    newFiles(state, true);
}

void newFilesWithoutFacts(benchmark::State& state) {
    newFiles(state, false);
}

void bothWriters(benchmark::State& state) {
    runCase(state, [](const std::string& folder) { switchOn(true, &folder); }, writeInfo,
            allWritersOff);
}

// The console writer with standard output a pipe that a thread drains: the path on which the
// writer guards against SIGPIPE.
int g_savedStdout = -1;
std::thread g_drain;

void consoleIntoPipe(benchmark::State& state) {
    runCase(
        state,
        [](const std::string&) {
            int ends[2];
            if (pipe(ends) != 0) {
                return;
            }
            fflush(stdout);
            g_savedStdout = dup(STDOUT_FILENO);
            dup2(ends[1], STDOUT_FILENO);
            close(ends[1]);
            g_drain = std::thread([reader = ends[0]] {
                char buffer[65536];
                while (read(reader, buffer, sizeof(buffer)) > 0) {
                }
                close(reader);
            });
            switchOn(true, nullptr);
        },
        writeInfo,
        [] {
            allWritersOff();
            fflush(stdout);
            dup2(g_savedStdout, STDOUT_FILENO);  // the last write end goes: the drain ends
            close(g_savedStdout);
            g_drain.join();
        });
}

}  // namespace

void registerQelCases() {
    registerCase("dropped/qel", droppedRecord);
    registerCase("console/qel", consoleOnly);
    registerCase("console_pipe/qel", consoleIntoPipe);
    registerCase("file/qel", fileOnly);
    registerCase("file_buffered/qel", fileBuffered);
    registerCase("new_files/qel", newFilesWithFacts);
    registerCase("new_files_no_facts/qel", newFilesWithoutFacts);
    registerCase("both/qel", bothWriters);
    registerLatencyCase("latency/qel", fileLatency);
}

}  // namespace bench
