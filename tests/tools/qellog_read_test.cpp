// Runs qellog cat, follow and prune as a child on log folders that the test made.

#include <sys/file.h>

#include "tools/qellog_fixture.h"

using namespace qeltest;
namespace fs = std::filesystem;

namespace {

class QellogReadTest : public QellogTest {
protected:
    void SetUp() override { fs::create_directory(m_logs); }
    std::vector<std::string> followArgs() const {
        return {"follow", "--state", m_dir / "state", m_logs};
    }

    const fs::path m_logs = m_dir / "logs";
};

// No record (a start whose file went, a tear and what follows it, NUL bytes, a foreign file):
// printed, with a warning naming the file and the byte.
TEST_F(QellogReadTest, CatWarnsAboutBytesThatAreNoRecord) {
    writeFile(m_logs / "QelLog2026-01-01-10-00-01-0.log", "rest\n\n" + recordBytes("one"));
    const std::string torn = recordBytes("two") + recordBytes("to");
    writeFile(m_logs / "QelLog2026-01-01-10-00-02-0.log", torn.substr(0, torn.size() - 3));
    writeFile(m_logs / "QelLog2026-01-01-10-00-04-0.log",
              "rn\n\n" + recordBytes("six") + std::string(64, '\0') + recordBytes("seven"));
    writeFile(m_dir / "notes.txt", "no header\nhere");
    const ChildResult result = run({"cat", "--json", "logs", "notes.txt"});
    EXPECT_EQ("qellog: QelLog2026-01-01-10-00-01-0.log at byte 0: 6 bytes that are not a record, "
              "printed as a record with an empty header\n"
              "qellog: QelLog2026-01-01-10-00-02-0.log at byte 32: a record cut off before its "
              "closing empty line\n"
              "qellog: QelLog2026-01-01-10-00-04-0.log at byte 0: 4 bytes that are not a record, "
              "printed as a record with an empty header\n"
              "qellog: QelLog2026-01-01-10-00-04-0.log at byte 36: 64 NUL bytes (data lost in a "
              "crash), left out\n"
              "qellog: notes.txt at byte 0: 14 bytes that are not a record, printed as a record "
              "with an empty header\n",
              result.err);
    EXPECT_EQ(8u, countOf(result.out, "\n"));  // the NUL bytes left out
}

// Only the writer's files go, never the newest one nor one a writer holds a lock on.
TEST_F(QellogReadTest, PruneDeletesOnlyFreeOldLogFiles) {
    fs::create_directories(m_logs / "QelLog2019-01-01-00-00-00-0.log");  // a folder, not a file
    for (const char* name : {"QelLog2020-01-01-00-00-00-05.log", "QelLog-old.log", "x.log.1"})
        writeFile(m_logs / name, "keep");
    const std::string old = "QelLog2026-01-01-10-00-00-0.log";
    writeFile(m_logs / old, recordBytes("old"));
    writeFile(m_logs / "QelLog2026-01-01-10-00-01-0.log", recordBytes("new"));
    EXPECT_EQ("would delete logs/" + old + "\n", run({"prune", "logs", "-k1", "--dry-run"}).out);
    const int held = open((m_logs / old).c_str(), O_RDONLY);  // as a writer holds its file
    ASSERT_EQ(0, flock(held, LOCK_SH));
    EXPECT_EQ("kept logs/" + old + ": a writer holds it\n", run({"prune", "logs", "-k", "1"}).out);
    close(held);
    EXPECT_EQ("deleted logs/" + old + "\n", run({"prune", "--keep", "1", "logs"}).out);
    EXPECT_EQ(5u, std::distance(fs::directory_iterator(m_logs), fs::directory_iterator()));
}

// Any SIGINT and SIGTERM end follow after a whole record, state saved; the next run goes on.
TEST_F(QellogReadTest, FollowStopsWholeOnAnySignalsAndTheNextRunGoesOn) {
    std::string big;
    for (int i = 0; i < 4000; ++i) big += recordBytes(std::to_string(i) + std::string(2000, 'b'));
    const std::string file = m_logs / "QelLog2026-01-01-10-00-00-9.log";
    writeFile(file, big);
    Follower one(m_dir, "out1", followArgs());
    one.lines(1);
    for (int signal : {SIGTERM, SIGINT, SIGTERM, SIGINT}) kill(one.pid, signal);
    EXPECT_EQ(0, one.stop(SIGINT));
    writeFile(file, big + recordBytes("4000"));
    const std::string out1 = readFile(one.out);
    const std::size_t rest = 4001 - countOf(out1, "\n\n");
    Follower two(m_dir, "out2", followArgs());
    EXPECT_EQ(2 * rest, two.lines(2 * rest));
    EXPECT_EQ(0, two.stop(SIGTERM));
    EXPECT_EQ(big + recordBytes("4000"), out1 + readFile(two.out));
}

// A state file cut short (after a whole line): everything is printed again rather than lost.
TEST_F(QellogReadTest, FollowKeepsADamagedStateFileAsideAndPrintsEverythingAgain) {
    const std::string cut = "qellog-follow 2\nQelLog2026-01-01-10-00-00-0.log 0 33 0\n";
    writeFile(m_logs / "QelLog2026-01-01-10-00-00-0.log", recordBytes("one") + recordBytes("two"));
    writeFile(m_dir / "state", cut);
    Follower follower(m_dir, "out", followArgs());
    EXPECT_EQ(4u, follower.lines(4));
    EXPECT_EQ(0, follower.stop(SIGTERM));
    const std::string state = m_dir / "state";
    EXPECT_EQ("qellog: the state file '" + state + "' is damaged (kept as '" + state +
                  ".bad'); printing every record of the folder again\n",
              readFile(follower.out + ".err"));
    EXPECT_EQ(cut, readFile(state + ".bad"));
}

// A writer that never pauses keeps its last record open: follow -n still ends its catch-up.
TEST_F(QellogReadTest, FollowEndsItsCatchUpWhileAWriterNeverPauses) {
    const std::string busy = m_logs / "QelLog2026-01-01-10-00-00-0.log";
    writeFile(busy, recordBytes("done") + recordBytes("open"));
    Follower tail(m_dir, "tail", {"follow", "-n", "1", m_logs});
    for (int i = 0; i < 500 && tail.lines(2, 0) < 2; ++i) {
        std::ofstream(busy, std::ios::app) << "more\n";
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(recordBytes("done"), readFile(tail.out));
}

}  // namespace
