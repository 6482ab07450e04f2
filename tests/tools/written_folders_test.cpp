// Folders that the library wrote, read back whole: a parent with forked children and two programs
// at once, at limits from 512 B to 64 KiB, with the facts the writer records beside its files and
// with them removed; and follow of a writer at a 64-byte limit.

#include <qel/log.h>

#include <sys/wait.h>
#include <sys/xattr.h>

#include <map>

#include "tools/qellog_fixture.h"

using namespace qeltest;

namespace {

// The texts are "TAG-N filler": every record of every tag must come once, whole, with N counting
// up from 0 to `records` - 1 and one thread id per tag.
int misread(const ReadBack& back, std::size_t tags, int records) {
    std::map<std::string, std::pair<int, unsigned long>> next;  // per tag: N, thread id
    int wrong = 0;
    for (const qellog::Record& r : back.records) {
        const std::string text = r.text();
        const std::size_t dash = text.find('-');
        auto& seen = next[text.substr(0, dash)];
        if (seen.first == 0) seen.second = r.header.threadId;
        wrong += !r.whole() || dash == std::string::npos || r.header.threadId != seen.second ||
                 std::atoi(text.c_str() + dash + 1) != seen.first++;
    }
    for (const auto& tag : next) wrong += std::abs(records - tag.second.first);
    return wrong + static_cast<int>(std::abs(static_cast<long>(tags - next.size())) * records);
}

class WrittenFoldersTest : public QellogTest {
protected:
    static constexpr int kProgramRecords = 800;

    // A parent and `children` forked children, each logging `records` records at `limit`.
    void forkedWriters(const std::string& dir, int limit, int children, int records) {
        const ChildResult written = runChild([&] {
            qelLogConfigConsoleWriter(false);
            CHILD_CHECK(qelLogSetMaxSize(limit) == 0 && qelLogSetFileFolder(dir.c_str()) == 0);
            std::vector<pid_t> forked;
            for (int c = 0; c <= children; ++c) {
                const pid_t pid = c < children ? fork() : 0;
                if (pid != 0) {
                    forked.push_back(pid);
                    continue;
                }
                for (int i = 0; i < records; ++i) {
                    const std::string text = std::to_string(getpid()) + "-" +
                                             std::to_string(i) + std::string(i * 37 % 300, 'x');
                    qelLogSimplify("w", QEL_LOG_INFO, text.c_str());
                }
                if (c < children) _exit(qelLogConfigFileWriter(false));
            }
            for (const pid_t pid : forked) waitpid(pid, nullptr, 0);
            return qelLogConfigFileWriter(false);
        });
        EXPECT_CHILD_OK(written);
    }
    // Two qellog programs logging their standard input into `dir` at once, at their limits;
    // `run` tells this run's tags from another's.
    void twoPrograms(const std::string& dir, const char* limitA, const char* limitB, int run) {
        pid_t pids[2];
        for (int p = 0; p < 2; ++p) {
            const std::string tag = std::string(1, 'A' + p) + std::to_string(run);
            std::string lines;
            for (int i = 0; i < kProgramRecords; ++i) {
                lines += tag + "-" + std::to_string(i) + std::string(i * 41 % 300, 'y') + "\n";
            }
            const std::string input = m_dir / ("in" + tag);
            writeFile(input, lines);
            posix_spawn_file_actions_t actions;
            posix_spawn_file_actions_init(&actions);
            posix_spawn_file_actions_addopen(&actions, 0, input.c_str(), O_RDONLY, 0);
            const Texts args = {"--no-console", "--folder", dir, "-s", p == 0 ? limitA : limitB};
            std::vector<char*> argv = argvOf(args, QELLOG_PATH);
            EXPECT_EQ(0, posix_spawn(&pids[p], QELLOG_PATH, &actions, nullptr, argv.data(),
                                     environ));
            posix_spawn_file_actions_destroy(&actions);
        }
        for (const pid_t pid : pids) waitpid(pid, nullptr, 0);
    }
    // Every folder shape, read with its facts (`facts`) or with them removed.
    void readEveryShape(bool facts) {
        const struct { int limit, children, records; } forks[] = {
            {512, 1, 200}, {4096, 3, 300}, {65536, 4, 1200}};
        int shape = 0;
        for (const auto& f : forks) {
            const std::string dir = m_dir / ("fork" + std::to_string(shape++));
            for (int run = 0; run < 2; ++run) forkedWriters(dir, f.limit, f.children, f.records);
            check(dir, facts, 2 * (f.children + 1), f.records);
        }
        for (const char* limitB : {"4K", "1K"}) {
            const std::string dir = m_dir / (std::string("two") + limitB);
            for (int run = 0; run < 2; ++run) twoPrograms(dir, "4K", limitB, run);
            check(dir, facts, 4, kProgramRecords);
        }
    }
    // `dir` read as cat reads it: `tags` writers of `records` records each.
    void check(const std::string& dir, bool facts, std::size_t tags, int records) {
        const std::vector<std::string> files = logFiles(dir);
        ASSERT_FALSE(files.empty());
        if (!facts) {
            for (const std::string& path : files) {
                for (const char* name : {"user.qel.writer", "user.qel.number",
                                         "user.qel.continues", "user.qel.zone"}) {
                    removexattr(path.c_str(), name);
                }
            }
        } else if (getxattr(files[0].c_str(), "user.qel.writer", nullptr, 0) < 0) {
            GTEST_SKIP() << "the library records no facts beside its files (" << dir << ")";
        }
        const ReadBack back = read({dir});
        const int wrong = misread(back, tags, records);
        if (facts) {
            EXPECT_EQ(0, wrong) << dir;
            EXPECT_TRUE(back.warnings.empty()) << dir;
        } else {
            EXPECT_TRUE(wrong == 0 || !back.warnings.empty()) << dir << ": " << wrong;
        }
    }
};

TEST_F(WrittenFoldersTest, EveryRecordOnceWholeAndInOrderByTheRecordedFacts) {
    readEveryShape(true);
}

TEST_F(WrittenFoldersTest, WithoutTheFactsNoRecordIsGluedWithoutAWarning) {
    readEveryShape(false);
}

}  // namespace

namespace {

// Nearly every record is split, many inside their header, while follow reads.
TEST_F(WrittenFoldersTest, FollowOfAWriterAtA64ByteLimitIsExact) {
    const std::string dir = m_dir / "small";
    std::filesystem::create_directory(dir);
    Follower follow(m_dir, "followed", {"follow", dir});
    forkedWriters(dir, 64, 0, 500);
    EXPECT_EQ(1000u, follow.lines(1000));  // a line and an empty line per record
    EXPECT_EQ(0, follow.stop(SIGTERM));
    int n = 0;
    for (const Record& record : parseRecords(readFile(follow.out))) {
        EXPECT_EQ(std::to_string(record.tid) + "-" + std::to_string(n),
                  record.text.substr(0, record.text.find('x')));
        ++n;
    }
    EXPECT_EQ(500, n);
    EXPECT_EQ("", readFile(follow.out + ".err"));
}

}  // namespace
