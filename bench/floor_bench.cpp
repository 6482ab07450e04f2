// What a record cannot cost less than: the system calls and the formatting that any logger
// of this kind makes per record, on the same 100-byte line.

#include <fcntl.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "bench_support.h"

namespace bench {
namespace {

int g_fd = -1;
FILE* g_stream = nullptr;
std::string g_path;

// One write(2) of the line per record; with `timeEachCall`, the latency of each.
void writeCall(benchmark::State& state, bool timeEachCall) {
    runCase(
        state,
        [](const std::string& folder) {
            g_fd = open((folder + "/floor.log").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        },
        [] { benchmark::DoNotOptimize(write(g_fd, kFloorLine, sizeof(kFloorLine) - 1)); },
        [] {
            close(g_fd);
            g_fd = -1;
        },
        timeEachCall);
}

void writeCall(benchmark::State& state) {
    writeCall(state, false);
}

void writeLatency(benchmark::State& state) {
    writeCall(state, true);
}

// What writing each record through with a check of the current file cannot cost less than: a
// look whether the kernel reported a change of the file's folder (epoll_wait on an inotify
// instance that watches it) and one write(2) of the line.
int g_reports = -1;

void writeAndCheck(benchmark::State& state) {
    runCase(
        state,
        [](const std::string& folder) {
            g_fd = open((folder + "/floor.log").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            const int instance = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
            inotify_add_watch(instance, folder.c_str(), IN_DELETE | IN_MOVED_FROM | IN_MOVE_SELF);
            g_reports = epoll_create1(EPOLL_CLOEXEC);
            struct epoll_event readable = {};
            readable.events = EPOLLIN;
            epoll_ctl(g_reports, EPOLL_CTL_ADD, instance, &readable);
            close(instance);  // the epoll instance keeps it
        },
        [] {
            struct epoll_event ready;
            benchmark::DoNotOptimize(epoll_wait(g_reports, &ready, 1, 0));
            benchmark::DoNotOptimize(write(g_fd, kFloorLine, sizeof(kFloorLine) - 1));
        },
        [] {
            close(g_fd);
            close(g_reports);
            g_fd = g_reports = -1;
        });
}

// The existence test of the file writer and a buffered write, per record.
void accessAndFwrite(benchmark::State& state) {
    runCase(
        state,
        [](const std::string& folder) {
            g_path = folder + "/floor.log";
            g_stream = fopen(g_path.c_str(), "wb");
        },
        [] {
            benchmark::DoNotOptimize(access(g_path.c_str(), F_OK));
            benchmark::DoNotOptimize(fwrite(kFloorLine, 1, sizeof(kFloorLine) - 1, g_stream));
        },
        [] {
            fclose(g_stream);
            g_stream = nullptr;
        });
}

// Formatting a line like the library's header and text into a stack buffer.
void headerSnprintf(benchmark::State& state) {
    runCase(
        state, [](const std::string&) {},
        [] {
            char line[1024];
            benchmark::DoNotOptimize(snprintf(line, sizeof(line), "[%s][V%d.%d.%d %s %s %u]%s\n\n",
                                              kModule, 1, 8, 63, "I", "12:34:56:789", 4242u,
                                              kText));
            benchmark::ClobberMemory();
        },
        [] {});
}

// What the console writer adds per record where standard output is a pipe or a socket, so that
// a reader that went away cannot end the process by SIGPIPE: the test of the output's type, the
// blocking of SIGPIPE in this thread, the look for a pending one before and after the write,
// and the mask put back.
void sigpipeGuard(benchmark::State& state) {
    runCase(
        state, [](const std::string&) {},
        [] {
            struct stat status;
            benchmark::DoNotOptimize(fstat(STDOUT_FILENO, &status));
            sigset_t sigpipe, saved, pending;
            sigemptyset(&sigpipe);
            sigaddset(&sigpipe, SIGPIPE);
            pthread_sigmask(SIG_BLOCK, &sigpipe, &saved);
            benchmark::DoNotOptimize(sigpending(&pending));
            benchmark::DoNotOptimize(sigpending(&pending));
            pthread_sigmask(SIG_SETMASK, &saved, nullptr);
        },
        [] {});
}

}  // namespace

void registerFloorCases() {
    registerCase("floor/write", writeCall);
    registerLatencyCase("latency/floor_write", writeLatency);
    registerCase("floor/write_check", writeAndCheck);
    registerCase("floor/access_fwrite", accessAndFwrite);
    registerCase("floor/snprintf", headerSnprintf);
    registerCase("floor/sigpipe_guard", sigpipeGuard);
}

}  // namespace bench
