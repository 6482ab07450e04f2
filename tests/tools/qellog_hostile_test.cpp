// qellog as a child on hostile input: archives, standard input, state files that are not one,
// patterns that would take the machine, and a folder larger than the memory it may use.

#include <sys/resource.h>
#include <zlib.h>

#include <cstring>

#include "tools/qellog_fixture.h"

using namespace qeltest;
namespace fs = std::filesystem;

namespace {

// Limits the child's processor time to `seconds` and its address space to `megabytes` (not
// under a sanitizer, which reserves terabytes): a run that needs more is stopped.
std::function<void()> limits(rlim_t megabytes, rlim_t seconds) {
    return [=] {
        const rlimit cpu = {seconds, seconds}, space = {megabytes << 20, megabytes << 20};
        setrlimit(RLIMIT_CPU, &cpu);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
        setrlimit(RLIMIT_AS, &space);
#endif
    };
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
    const std::string archive = "QelLog2026-01-01-10-00-00-0.log.gz";
    const gzFile file = gzopen((m_dir / archive).c_str(), "wb");
    ASSERT_EQ(static_cast<int>(bytes.size()), gzwrite(file, bytes.data(), bytes.size()));
    gzclose(file);
    const std::string compressed = readFile(m_dir / archive);
    writeFile(m_dir / "cut.gz", compressed.substr(0, compressed.size() - 12));
    for (const std::string& input : {std::string(), bytes, compressed}) {
        const ChildResult result = run({"cat", input.empty() ? archive : "-"}, input);
        EXPECT_TRUE(result.exitCode == 0 && result.out == bytes) << input << result.err;
    }
    const ChildResult json = run({"cat", "--json", "-n", "1", "-", archive}, bytes);
    EXPECT_NE(std::string::npos,
              json.out.find("\"file\":\"" + archive + "\",\"date\":\"2026-01-01\""));
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
    const struct { const char* state; int exitCode; const char* reason; } refused[] = {
        {"logs/", 2, "it is a folder"},
        {"QelLog2026-01-01-10-00-00-0.log", 2, "it has the name of a log file"},
        {"./logs/../logs/state", 2, "it lies inside the log folder"},
        {"notes", 1, "it holds something else than the state of qellog follow"},
        {"missing/state", 1, "cannot open its lock file 'missing/state.lock'"}};
    for (const auto& c : refused) {
        const ChildResult result = run({"follow", "--state", c.state, "logs"});
        EXPECT_TRUE(result.exitCode == c.exitCode && result.out.empty()) << c.state;
        EXPECT_EQ(std::string("qellog: cannot use the state file '") + c.state + "': ",
                  result.err.substr(0, result.err.find("': ") + 3));
        EXPECT_NE(std::string::npos, result.err.find(c.reason)) << result.err;
    }
    EXPECT_EQ("precious\n", readFile(m_dir / "notes"));
    EXPECT_EQ(recordBytes("one"), readFile(m_dir / m_log));
    EXPECT_FALSE(fs::exists(m_dir / "notes.bad") || fs::exists(m_dir / "logs/state.lock"));

    Follower first(m_dir, "first", {"follow", "--state", m_dir / "state", m_dir / "logs"});
    EXPECT_EQ(2u, first.lines(2));
    EXPECT_EQ("qellog: cannot use the state file 'state': another qellog follow uses it (process " +
                  std::to_string(first.pid) + ")\n",
              run({"follow", "--state", "state", "logs"}).err);
    EXPECT_EQ(0, first.stop(SIGTERM));
    EXPECT_EQ("qellog-follow 2\n", readFile(m_dir / "state").substr(0, 16));
}

// Patterns whose matching would take seconds and gigabytes on one record with a matcher that
// backtracks or builds its automaton whole: refused with the reason, or matched in bounds.
TEST_F(QellogHostileTest, PatternsThatBlowUpFinish) {
    writeFile(m_dir / m_log, recordBytes(std::string(2047, 'a')));
    const struct { const char* pattern; int exitCode; const char* err; } cases[] = {
        {"a{1,1000}{1,1000}b", 2, "value 'a{1,1000}{1,1000}b' for --grep: a repetition count"},
        {"(a{1,200}){1,200}", 2, "value '(a{1,200}){1,200}' for --grep: a repetition count"},
        {"(a)\\1", 2, "back-references are not supported"},
        {"(a{1,30}){1,30}b", 0, ""}, {"(a|aa)*(a*)*c", 0, ""}, {"(a{1,30}){1,30}$", 0, ""}};
    for (const auto& c : cases) {
        const ChildResult result = run({"cat", "--grep", c.pattern, "logs"}, "", limits(512, 10));
        EXPECT_EQ(c.exitCode, result.exitCode) << c.pattern << " " << result.signal;
        EXPECT_EQ(c.pattern[std::strlen(c.pattern) - 1] == '$' ? readFile(m_dir / m_log) : "",
                  result.out);
        EXPECT_NE(std::string::npos, result.err.find(c.err)) << result.err;
    }
}

// The last N records of a folder larger than the memory qellog may have, N at or above the
// count: nothing is held, so it fits.
TEST_F(QellogHostileTest, CatLinesHoldsNoRecords) {
    std::string file;
    for (int i = 0; i < 12000; ++i) file += recordBytes(std::to_string(i) + std::string(100, 'x'));
    for (int n = 0; n < 16; ++n) writeFile(pathOf(n), file);  // 16 files of 1.5 MB
    writeFile(pathOf(16), recordBytes("last"));
    const ChildResult last = run({"cat", "-n", "2", "."}, "", limits(64, 60));
    EXPECT_EQ(recordBytes("11999" + std::string(100, 'x')) + recordBytes("last"), last.out);
    const ChildResult all = run({"cat", "-n", "1000000", "."}, "", limits(64, 60));
    EXPECT_EQ(16 * file.size() + recordBytes("last").size(), all.out.size()) << all.err;
}

}  // namespace
