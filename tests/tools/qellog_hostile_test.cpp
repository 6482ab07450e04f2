// qellog as a child on hostile input: archives, standard input, state files that are not one,
// patterns that would take the machine, and a folder larger than the memory it may use.

#include <sys/resource.h>
#include <zlib.h>

#include "tools/qellog_fixture.h"

using namespace qeltest;
namespace fs = std::filesystem;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;  // the sanitizers reserve terabytes of address space
#else
constexpr bool kSanitized = false;
#endif

// Limits the child's address space to `megabytes` (not under a sanitizer) and its processor
// time to `seconds`: a run that needs more is killed rather than left to take the machine.
std::function<void()> limits(rlim_t megabytes, rlim_t seconds) {
    return [=] {
        const rlimit cpu = {seconds, seconds}, space = {megabytes << 20, megabytes << 20};
        setrlimit(RLIMIT_CPU, &cpu);
        if (!kSanitized) setrlimit(RLIMIT_AS, &space);
    };
}

void writeGzip(const std::string& path, const std::string& bytes) {
    const gzFile file = gzopen(path.c_str(), "wb");
    ASSERT_TRUE(file != nullptr);
    EXPECT_EQ(static_cast<int>(bytes.size()),
              gzwrite(file, bytes.data(), static_cast<unsigned>(bytes.size())));
    gzclose(file);
}

class QellogHostileTest : public QellogTest {
protected:
    void SetUp() override { fs::create_directory(m_dir / "logs"); }
    const std::string m_log = "logs/QelLog2026-01-01-10-00-00-0.log";
};

// An archive and standard input (plain or compressed) read back byte for byte; an archive
// keeps the date of the log file it was made of; a cut archive says so.
TEST_F(QellogHostileTest, ArchivesAndStandardInputReadBackExactly) {
    const std::string bytes = recordBytes("one") + recordBytes("two\nlines") + recordBytes("3");
    writeGzip(m_dir / "QelLog2026-01-01-10-00-00-0.log.gz", bytes);
    std::string compressed = readFile(m_dir / "QelLog2026-01-01-10-00-00-0.log.gz");
    writeFile(m_dir / "cut.gz", compressed.substr(0, compressed.size() - 12));
    const struct { std::vector<std::string> args; std::string input; } same[] = {
        {{"cat", "QelLog2026-01-01-10-00-00-0.log.gz"}, ""},
        {{"cat", "-"}, bytes},
        {{"cat", "-"}, compressed},
    };
    for (const auto& c : same) {
        const ChildResult result = run(c.args, c.input);
        EXPECT_EQ(0, result.exitCode) << c.args.back() << result.err;
        EXPECT_EQ(bytes, result.out) << c.args.back();
    }
    const ChildResult json =
        run({"cat", "--json", "-n", "1", "-", "QelLog2026-01-01-10-00-00-0.log.gz"}, bytes);
    EXPECT_NE(std::string::npos, json.out.find("\"file\":\"QelLog2026-01-01-10-00-00-0.log.gz\","
                                                "\"date\":\"2026-01-01\"")) << json.out;
    const ChildResult cut = run({"cat", "cut.gz"});
    EXPECT_EQ(1, cut.exitCode);
    EXPECT_NE(std::string::npos, cut.err.find("cannot read 'cut.gz': damaged or cut compressed"));
}

// Refused before anything is printed, and left as they are: a folder, a log file, a place in
// the log folder, a file that is no state file, a place that cannot be written, a state file
// that another follow holds.
TEST_F(QellogHostileTest, FollowRefusesAStatePathItMustNotUse) {
    writeFile(m_dir / m_log, recordBytes("one"));
    writeFile(m_dir / "notes", "precious\n");
    const struct { const char* state; const char* reason; } refused[] = {
        {"logs", "it is a folder"},
        {"logs/", "it is a folder"},
        {"QelLog2026-01-01-10-00-00-0.log", "it has the name of a log file"},
        {"logs/state", "it lies inside the log folder"},
        {"./logs/../logs/state", "it lies inside the log folder"},
        {"notes", "it holds something else than the state of qellog follow"},
        {"missing/state", "cannot open its lock file 'missing/state.lock'"},
    };
    for (const auto& c : refused) {
        const ChildResult result = run({"follow", "--state", c.state, "logs"});
        EXPECT_EQ(1, result.exitCode) << c.state;
        EXPECT_EQ("", result.out) << c.state;
        EXPECT_EQ(std::string("qellog: cannot use the state file '") + c.state + "': ",
                  result.err.substr(0, result.err.find("': ") + 3));
        EXPECT_NE(std::string::npos, result.err.find(c.reason)) << result.err;
    }
    EXPECT_EQ("precious\n", readFile(m_dir / "notes"));
    EXPECT_EQ(recordBytes("one"), readFile(m_dir / m_log));
    EXPECT_FALSE(fs::exists(m_dir / "notes.bad") || fs::exists(m_dir / "logs/state.lock"));

    Follower first(m_dir, "first", {"follow", "--state", m_dir / "state", m_dir / "logs"});
    EXPECT_EQ(2u, first.lines(2));
    const ChildResult second = run({"follow", "--state", "state", "logs"});
    EXPECT_EQ(1, second.exitCode);
    EXPECT_EQ("qellog: cannot use the state file 'state': another qellog follow uses it (process " +
                  std::to_string(first.pid) + ")\n",
              second.err);
    EXPECT_EQ(0, first.stop(SIGTERM));
    EXPECT_EQ("qellog-follow 2\n", readFile(m_dir / "state").substr(0, 16));
}

// A matcher whose time or memory grows faster than the text: these patterns would take
// seconds and gigabytes on one record. Refused with the reason, or matched within the limits.
TEST_F(QellogHostileTest, PatternsThatBlowUpFinish) {
    writeFile(m_dir / m_log, recordBytes(std::string(2047, 'a')));
    const struct { const char* pattern; int exitCode; const char* err; } cases[] = {
        {"a{1,1000}{1,1000}b", 2, "value 'a{1,1000}{1,1000}b' for --grep: a repetition count"},
        {"(a{1,200}){1,200}", 2, "bad value '(a{1,200}){1,200}' for --grep: a repetition count"},
        {"(a)\\1", 2, "back-references are not supported"},
        {"(a{1,30}){1,30}b", 0, ""},
        {"(a|aa)*(a*)*c", 0, ""},
    };
    for (const auto& c : cases) {
        const ChildResult result = run({"cat", "--grep", c.pattern, "logs"}, "", limits(512, 10));
        EXPECT_EQ(c.exitCode, result.exitCode) << c.pattern << " " << result.signal;
        EXPECT_EQ("", result.out) << c.pattern;
        EXPECT_NE(std::string::npos, result.err.find(c.err)) << result.err;
    }
    const ChildResult found =
        run({"cat", "--grep", "(a{1,30}){1,30}$", m_log}, "", limits(512, 10));
    EXPECT_EQ(recordBytes(std::string(2047, 'a')), found.out);
}

// The last N records of a folder larger than the memory qellog may have, N above the count:
// nothing is held, so it fits.
TEST_F(QellogHostileTest, CatLinesHoldsNoRecords) {
    std::string file;
    for (int i = 0; i < 12000; ++i) file += recordBytes(std::to_string(i) + std::string(100, 'x'));
    for (int n = 0; n < 16; ++n) writeFile(pathOf(n), file);  // 16 files of 1.5 MB
    writeFile(pathOf(16), recordBytes("last"));
    const ChildResult last = run({"cat", "-n", "2", "."}, "", limits(64, 60));
    EXPECT_EQ(0, last.exitCode) << last.err;
    EXPECT_EQ(recordBytes("11999" + std::string(100, 'x')) + recordBytes("last"), last.out);
    const ChildResult all = run({"cat", "-n", "1000000", "--grep", "^1199[89]", "."}, "",
                                limits(64, 60));
    EXPECT_EQ(32u, countOf(all.out, "\n\n")) << all.err;
}

}  // namespace
