#include <atomic>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <qel/log.h>

#include "support/test_support.h"

using qeltest::logFiles;
using qeltest::readFile;
using qeltest::runChild;

namespace {

// Every piece of output between record ends must be one whole record of ours.
void expectWholeRecords(const std::string& content, const std::string& where) {
    static const std::regex kRecord(R"(\[w\d\]\[V1\.8\.63 I [0-9:]+ \d+\]t\d-\d+ x{40})");
    size_t begin = 0;
    while (begin < content.size()) {
        const size_t end = content.find("\n\n", begin);
        ASSERT_NE(std::string::npos, end) << where << ": unterminated record";
        const std::string record = content.substr(begin, end - begin);
        ASSERT_TRUE(std::regex_match(record, kRecord)) << where << ": " << record;
        begin = end + 2;
    }
}

}  // namespace

// Four threads log while a fifth switches both writers and the folder over and over: a
// dispatch holds the signal lock and then a writer's lock, while switching takes them too;
// any inconsistent order deadlocks here (the watchdog fails the test), any unguarded state
// shows under the thread sanitizer, and an interleaved write shows as a broken record.
TEST(LogConcurrencyTest, SwitchingWritersWhileLoggingNeitherDeadlocksNorInterleaves) {
    auto result = runChild(
        [] {
            std::atomic<bool> done{false};
            std::vector<std::thread> loggers;
            for (int t = 0; t < 4; ++t) {
                loggers.emplace_back([t, &done] {
                    const std::string module = "w" + std::to_string(t);
                    for (int i = 0; !done.load() || i < 500; ++i) {
                        const std::string text =
                            "t" + std::to_string(t) + "-" + std::to_string(i) + " " + std::string(40, 'x');
                        qelLogSimplify(module.c_str(), QEL_LOG_INFO, text.c_str());
                    }
                });
            }
            for (int i = 0; i < 1500; ++i) {
                switch (i % 6) {
                    case 0: qelLogConfigFileWriter(true); break;
                    case 1: qelLogConfigConsoleWriter(false); break;
                    case 2: qelLogSetFileFolder(i % 4 == 0 ? "dirA" : "dirB"); break;
                    case 3: qelLogConfigConsoleWriter(true); break;
                    // The limit stays far above what a file gets: records are never split.
                    case 4: qelLogSetMaxSize(i % 5 == 0 ? 0 : 1u << 30); break;
                    default: qelLogConfigFileWriter(false); break;
                }
            }
            done = true;
            for (auto& logger : loggers) {
                logger.join();
            }
            return 0;
        },
        240);
    EXPECT_CHILD_OK(result);
    expectWholeRecords(result.out, "console");
    size_t files = 0;
    for (const char* dir : {"", "/dirA", "/dirB"}) {
        for (const auto& path : logFiles(result.dir + dir)) {
            expectWholeRecords(readFile(path), path);
            ++files;
        }
    }
    EXPECT_GT(files, 100u);
}
