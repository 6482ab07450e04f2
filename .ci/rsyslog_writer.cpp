// Logs 4 x 5000 records from 4 threads into log files of 64 KiB for the rsyslog pipeline
// check: rsyslog_writer FOLDER. The texts come from recordText(), which rsyslog.sh rebuilds
// to check what reached the collector.
#include <qel/log.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int kThreads = 4;
constexpr int kPerThread = 5000;

// Line breaks, empty lines, quotes and texts of all lengths up to about 1960 bytes.
std::string recordText(int thread, int index) {
    std::string text = "w" + std::to_string(thread) + "-" + std::to_string(index) + " ";
    text.append(static_cast<std::size_t>((index * 7919 + thread * 104729) % 1900),
                static_cast<char>('a' + index % 26));
    if (index % 5 == 0) text += "\nsecond line";
    if (index % 7 == 0) text += "\n\n[after an empty line]";
    if (index % 11 == 0) text += " \"quoted\" \\ tab\t";
    return text;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: rsyslog_writer FOLDER\n");
        return 2;
    }
    qelLogConfigConsoleWriter(false);
    qelLogSetMaxSize(64 * 1024);
    if (qelLogSetFileFolder(argv[1]) != 0) {
        std::fprintf(stderr, "rsyslog_writer: cannot log into %s\n", argv[1]);
        return 1;
    }
    const QelLogLevel levels[] = {QEL_LOG_INFO, QEL_LOG_WARNING, QEL_LOG_ERROR};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &levels] {
            const std::string module = "w" + std::to_string(t);
            for (int i = 0; i < kPerThread; ++i) {
                qelLogSimplify(module.c_str(), levels[i % 3], recordText(t, i).c_str());
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    qelLogConfigFileWriter(false);
    return 0;
}
