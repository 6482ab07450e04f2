// Folders the library wrote (forked children, two programs; 512 B to 64 KiB) read back with their
// facts and without them; and follow of a writer at a 64-byte limit.

#include <qel/log.h>

#include <map>

#include "tools/qellog_fixture.h"

using namespace qeltest;

namespace {

// Texts are "PID-N filler": every writer's N count up from 0 to `records` - 1, each record once
// and whole. Returns how many records are not so (missing ones included).
int misread(const std::vector<qellog::Record>& read, std::size_t writers, int records) {
    std::map<unsigned long, int> next;
    int wrong = 0;
    for (const qellog::Record& r : read) {
        const unsigned long tid = r.header.threadId;
        wrong += !r.whole() || r.text().find(std::to_string(tid) + "-" +
                                             std::to_string(next[tid]++)) != 0;
    }
    for (const auto& writer : next) wrong += std::abs(records - writer.second);
    return wrong + static_cast<int>(writers > next.size() ? (writers - next.size()) * records : 0);
}

class WrittenFoldersTest : public QellogTest {
protected:
    // `writers` processes logging `records` records each into `dir` at once: a parent and its
    // forked children, or (`apart`) children that each switch on a writer of their own, at the
    // limits in `limits` (one per writer, the last one for the rest).
    void write(const std::string& dir, std::vector<int> limits, int writers, int records,
               bool apart = false) {
        const ChildResult written = runChild([&] {
            qelLogConfigConsoleWriter(false);
            const auto start = [&](int w) {
                return qelLogSetMaxSize(limits[std::min<std::size_t>(w, limits.size() - 1)]) == 0 &&
                       qelLogSetFileFolder(dir.c_str()) == 0;
            };
            CHILD_CHECK(apart || start(0));
            std::vector<pid_t> forked;
            for (int w = 0; w < writers; ++w) {
                const pid_t pid = w + 1 < writers || apart ? fork() : 0;
                if (pid != 0) {
                    forked.push_back(pid);
                    continue;
                }
                if (apart && !start(w)) _exit(1);
                for (int i = 0; i < records; ++i) {
                    const std::string text = std::to_string(getpid()) + "-" +
                                             std::to_string(i) + std::string(i * 37 % 300, 'x');
                    qelLogSimplify("w", QEL_LOG_INFO, text.c_str());
                }
                if (apart || w + 1 < writers) _exit(qelLogConfigFileWriter(false));
            }
            for (const pid_t pid : forked) waitpid(pid, nullptr, 0);
            return qelLogConfigFileWriter(false);
        });
        EXPECT_CHILD_OK(written);
    }
    // Every folder shape, two runs each, read with its facts or with them removed.
    void readEveryShape(bool facts) {
        const struct { std::vector<int> limits; int writers, records; bool apart; } shapes[] = {
            {{512}, 2, 200, false}, {{4096}, 4, 300, false}, {{65536}, 5, 1200, false},
            {{4096}, 2, 800, true}, {{4096, 1024}, 2, 800, true}};
        int n = 0;
        for (const auto& s : shapes) {
            const std::string dir = m_dir / std::to_string(n++);
            for (int run = 0; run < 2; ++run) write(dir, s.limits, s.writers, s.records, s.apart);
            if (!facts) dropFacts(dir);
            if (facts && getxattr(logFiles(dir).at(0).c_str(), "user.qel.writer", nullptr, 0) < 0) {
                GTEST_SKIP() << "the library records no facts beside its files";
            }
            const ReadBack back = read({dir});
            const int wrong = misread(back.records, 2 * s.writers, s.records);
            EXPECT_TRUE(facts ? wrong == 0 && back.warnings.empty()
                              : wrong == 0 || !back.warnings.empty())
                << dir << ": " << wrong << " records misread, " << back.warnings.size()
                << " warnings";
        }
    }
};

TEST_F(WrittenFoldersTest, ByTheFactsEveryRecordIsOnceWholeInOrder) { readEveryShape(true); }
TEST_F(WrittenFoldersTest, WithoutFactsNothingIsGluedUnwarned) { readEveryShape(false); }

// Nearly every record is split, many inside their header, while follow reads.
TEST_F(WrittenFoldersTest, FollowOfAWriterAtA64ByteLimitIsExact) {
    const std::string dir = m_dir / "small";
    std::filesystem::create_directory(dir);
    Follower follow(m_dir, "followed", {"follow", dir});
    write(dir, {64}, 1, 500);
    EXPECT_EQ(1000u, follow.lines(1000));  // a line and an empty line per record
    EXPECT_EQ(0, follow.stop(SIGTERM));
    int n = 0;
    for (const Record& record : parseRecords(readFile(follow.out))) {
        EXPECT_EQ(0u, record.text.find(std::to_string(record.tid) + "-" + std::to_string(n++)));
    }
    EXPECT_EQ("", readFile(follow.out + ".err"));
}

}  // namespace
