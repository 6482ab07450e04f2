#include <atomic>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <qel/log.h>

#include "support/test_support.h"

// Four threads log while a fifth switches both writers and the folder over and over: a
// dispatch holds the signal lock and then a writer's lock, while switching takes them too;
// any inconsistent order deadlocks here (the child is killed), any unguarded state shows under
// the thread sanitizer, and an interleaved write shows as a broken record.
TEST(LogConcurrencyTest, SwitchingWritersWhileLoggingNeitherDeadlocksNorInterleaves) {
    auto result = qeltest::runChild([] {
        std::atomic<bool> done{false};
        std::vector<std::thread> loggers;
        for (int t = 0; t < 4; ++t) {
            loggers.emplace_back([t, &done] {
                for (int i = 0; !done || i < 500; ++i) {
                    qelLogSimplify("w", QEL_LOG_INFO, (std::to_string(t) + "-" + std::to_string(i) + std::string(40, 'x')).c_str());
                }
            });
        }
        for (int i = 0; i < 1500; ++i) {
            switch (i % 6) {
                case 0: qelLogConfigFileWriter(true); break;
                case 1: qelLogConfigConsoleWriter(false); break;
                case 2: qelLogSetFileFolder(i % 4 == 0 ? "dirA" : "dirB"); break;
                case 3: qelLogConfigConsoleWriter(true); break;
                case 4: qelLogSetMaxSize(i % 5 == 0 ? 0 : 1u << 30); break;  // never splits a record
                default: qelLogConfigFileWriter(false); break;
            }
        }
        done = true;
        for (auto& logger : loggers) {
            logger.join();
        }
        return 0;
    }, 240);
    EXPECT_CHILD_OK(result);
    std::string all = result.out;
    size_t files = 0;
    for (const char* dir : {"", "/dirA", "/dirB"}) {
        files += qeltest::logFiles(result.dir + dir).size();
        all += qeltest::concatenatedLogs(result.dir + dir);
    }
    EXPECT_GT(files, 100u);
    const std::regex text(R"(\d-\d+x{40})");
    for (const auto& record : qeltest::parseRecords(all)) {
        ASSERT_TRUE(std::regex_match(record.text, text)) << record.text;
    }
}
