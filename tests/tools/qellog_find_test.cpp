// Finding records: cat, follow and stats with filters, -n, colour, the summary and the traps,
// run as a child on a folder made by hand; the time, level and filter parsers in this process.

#include <stdlib.h>

#include "colour.h"
#include "read/record_filter.h"
#include "read/civil_time.h"
#include "time_spec.h"
#include "tools/qellog_fixture.h"

using namespace qeltest;
namespace fs = std::filesystem;

namespace {

// Two files around midnight: three modules, all four levels, three threads.
const std::string kBefore =
    "[cam][V" QELTEST_VERSION " I 23:59:00:0 100]cam started\n\n"
    "[net][V" QELTEST_VERSION " W 23:59:30:5 200]link slow\n\n"
    "[cam][V" QELTEST_VERSION " E 23:59:59:999 100]frame lost\nsecond line\n\n";
const std::string kAfter =
    "[net][V" QELTEST_VERSION " V 00:00:00:1 200]retry\n\n"
    "[netd][V" QELTEST_VERSION " E 00:00:01:0 300]Link down\n\n"
    "[cam][V" QELTEST_VERSION " I 00:00:02:0 100]cam stopped\n\n";
const char kFirst[] = "logs/QelLog2026-11-16-23-59-00-0.log";
const char kSecond[] = "logs/QelLog2026-11-17-00-00-00-0.log";

class QellogFindTest : public QellogTest {
protected:
    void SetUp() override {
        fs::create_directory(m_dir / "logs");
        writeFile(m_dir / kFirst, kBefore);
        writeFile(m_dir / kSecond, kAfter);
    }
};

TEST_F(QellogFindTest, FiltersAloneAndCombinedAndTheLastRecords) {
    const std::string all =
        "cam started|link slow|frame lost\nsecond line|retry|Link down|cam stopped";
    const struct { std::vector<std::string> args; std::string texts; } cases[] = {
        {{}, all},
        {{"--level", "warning"}, "link slow|frame lost\nsecond line|Link down"},
        {{"-l", "e"}, "frame lost\nsecond line|Link down"},
        {{"-m", "net"}, "link slow|retry"},
        {{"-m", "n?t*", "--module", "nobody"}, "link slow|retry|Link down"},
        {{"--since", "2026-11-16 23:59:59.999"},
         "frame lost\nsecond line|retry|Link down|cam stopped"},
        {{"--until", "2026-11-17T00:00:00.001"},
         "cam started|link slow|frame lost\nsecond line|retry"},
        {{"--since", "-10min"}, ""},
        {{"--tid", "200"}, "link slow|retry"},
        {{"--grep", "^link"}, "link slow"},
        {{"--grep", "^link|lost", "-i"}, "link slow|frame lost\nsecond line|Link down"},
        {{"-l", "W", "--since", "2026-11-17", "--grep", "down|lost"}, "Link down"},
        {{"-n", "2"}, "Link down|cam stopped"},
        {{"--lines", "1", "-l", "W", "--tid", "200"}, "link slow"},
        {{"-n", "6"}, all},
    };
    for (const auto& c : cases) {  // the texts that `qellog cat ARGS logs` prints, joined by "|"
        std::vector<std::string> args{"cat", "logs"};
        args.insert(args.begin() + 1, c.args.begin(), c.args.end());
        const ChildResult result = run(args);
        EXPECT_EQ(0, result.exitCode) << result.err;
        std::string joined;
        for (std::size_t at = 0, end; (end = result.out.find("\n\n", at)) != std::string::npos;
             at = end + 2) {
            const std::size_t text = result.out.find(']', result.out.find("][V", at) + 3) + 1;
            joined += (joined.empty() ? "" : "|") + result.out.substr(text, end - text);
        }
        EXPECT_EQ(c.texts, joined) << ::testing::PrintToString(c.args);
    }
}

TEST_F(QellogFindTest, ColourAndTimestamps) {
    const std::string coloured =
        "\x1b[36m[cam][V" QELTEST_VERSION " \x1b[0m\x1b[32mI\x1b[0m\x1b[36m 00:00:02:0 100]\x1b[0m"
        "cam stopped\n\n";
    setenv("NO_COLOR", "1", 1);  // the command line wins over the environment
    EXPECT_EQ(coloured, run({"cat", "--color=always", "-n", "1", "logs"}).out);
    unsetenv("NO_COLOR");
    for (const char* mode : {"--color=auto", "--color=never"}) {  // auto: not a terminal
        EXPECT_EQ(kAfter.substr(kAfter.rfind("[cam]")), run({"cat", mode, "-n", "1", "logs"}).out);
    }

    // ts: the reader's zone offset at the record's local time, milliseconds padded.
    setenv("TZ", "XYZ-5:30", 1);
    const ChildResult json = run({"cat", "--json", "-m", "net", "-l", "V", "-n", "1", "logs"});
    unsetenv("TZ");
    EXPECT_NE(std::string::npos, json.out.find(",\"date\":\"2026-11-17\",\"ts\":"
                                               "\"2026-11-17T00:00:00.001+05:30\"}\n"))
        << json.out;

    // With a pseudo-terminal as output, auto colours unless NO_COLOR is set and not empty.
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_TRUE(terminal >= 0 && grantpt(terminal) == 0 && unlockpt(terminal) == 0);
    const int screen = open(ptsname(terminal), O_RDWR | O_NOCTTY);
    setenv("TERM", "xterm", 1);
    const auto wanted = [&](qellog::ColourMode mode, const char* noColour) {
        noColour != nullptr ? setenv("NO_COLOR", noColour, 1) : unsetenv("NO_COLOR");
        return qellog::colourWanted(mode, screen);
    };
    using Mode = qellog::ColourMode;
    EXPECT_TRUE(wanted(Mode::Auto, nullptr) && wanted(Mode::Auto, "") && wanted(Mode::Always, "1"));
    EXPECT_FALSE(wanted(Mode::Auto, "1") || wanted(Mode::Never, nullptr));
    unsetenv("NO_COLOR");
    close(screen);
    close(terminal);
}

TEST_F(QellogFindTest, StatsFigures) {
    writeFile(m_dir / "notes.txt", "not a record\n\n");
    const std::string files = "3, " + std::to_string(kBefore.size() + kAfter.size() + 14);
    ChildResult result = run({"stats", "logs", "notes.txt"});
    EXPECT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ("files     " + files + " bytes\n"
              "span      2026-11-16 23:59:00.000 to 2026-11-17 00:00:02.000\n"
              "records   6: V 1, I 2, W 1, E 2, other 0\npieces    1\nwarnings  1\n"
              "modules   3, with most records:\n           3  cam\n           2  net\n"
              "           1  netd\n",
              result.out);
    setenv("TZ", "UTC0", 1);
    result = run({"stats", "--json", "--since", "2026-11-17", "logs"});
    unsetenv("TZ");
    EXPECT_EQ("{\"files\":2,\"bytes\":" + std::to_string(kBefore.size() + kAfter.size()) +
                  ",\"first\":\"2026-11-17T00:00:00.001+00:00\",\"last\":\"2026-11-17T00:00:"
                  "02.000+00:00\",\"records\":3,\"levels\":{\"V\":1,\"I\":1,\"W\":0,\"E\":1,"
                  "\"other\":0},\"modules\":[{\"module\":\"cam\",\"records\":1},{\"module\":"
                  "\"net\",\"records\":1},{\"module\":\"netd\",\"records\":1}],\"pieces\":0,"
                  "\"warnings\":0}\n",
              result.out);
}

// follow -n N prints the last N records of the folder, then only what is new; a missing folder
// is waited for with a note.
TEST_F(QellogFindTest, FollowStartsFromTheEnd) {
    const std::string logs = m_dir / "logs", missing = m_dir / "missing";
    const std::string fresh = "[new][V" QELTEST_VERSION " E 00:00:03:0 9]fresh\n\n";
    Follower last(m_dir, "last", {"follow", "-n", "1", logs});
    Follower errors(m_dir, "errors", {"follow", "--lines", "0", "-l", "E", logs});
    Follower waiting(m_dir, "waiting", {"follow", missing});
    EXPECT_EQ(2u, last.lines(2));
    std::this_thread::sleep_for(std::chrono::seconds(1));  // all three are at the end
    const std::string added = "[new][V" QELTEST_VERSION " I 00:00:04:0 9]no\n\n" + fresh;
    std::ofstream(m_dir / kSecond, std::ios::app) << added;
    EXPECT_EQ(6u, last.lines(6));
    EXPECT_EQ(2u, errors.lines(2));
    EXPECT_EQ(1u, waiting.lines(1, 20, ".err"));
    for (Follower* follower : {&last, &errors, &waiting}) EXPECT_EQ(0, follower->stop(SIGTERM));
    EXPECT_EQ(kAfter.substr(kAfter.rfind("[cam]")) + added, readFile(last.out));
    EXPECT_EQ(fresh, readFile(errors.out));
    EXPECT_EQ("qellog: folder '" + missing + "' does not exist (yet); waiting for it\n",
              readFile(waiting.out + ".err"));
}

TEST_F(QellogFindTest, CommandLineTraps) {
    // A part of standard output and one of standard error.
    const struct { std::vector<std::string> args; int exitCode; const char *out, *err; } cases[] = {
        {{"-f", "logs"}, 2, "", "unknown option '-f': to read a log folder use qellog cat"},
        {{"logs"}, 2, "", "'logs' is a folder: to read it, qellog cat logs"},
        {{"-l", "warning", "--", "logs"}, 0, "[qellog][V" QELTEST_VERSION " W ", ""},
        {{"help"}, 0, "   or: qellog stats [OPTION]... DIR|FILE...\n", ""},
        {{"help", "stats"}, 0, "  -m, --module NAME    this module; shell wildcards", ""},
        {{"cat", "--help"}, 0, "  -n, --lines N ", ""},
        {{"follow", "-h"}, 0, "      --color WHEN ", ""},
        {{"follow", kFirst}, 1, "", "-00-0.log': Not a directory (to read one file: qellog cat"},
        {{"follow", "-n", "1", "--state", "s", "logs"}, 2, "", "takes --lines or --state"},
        {{"cat", "--level", "loud", "logs"}, 2, "", "bad value 'loud' for --level"},
        {{"cat", "--grep", "(", "logs"}, 2, "", "bad value '(' for --grep: "},
        {{"prune", "logs", "-k", "1", "-n"}, 2, "", "unknown option '-n'"},
        {{"--explain", "--list"}, 0, "\n0x80300002\tFailed to open the file!\n", ""},
        // The wiring from the parsers (tested in-process) to exit status and output.
        {{"--level", "X", "t"}, 2, "", "qellog: bad level 'X' for --level: expected V, I, W, E or "
                                       "verbose, info, warning, error\n"},
        {{"prune", "logs", "--keep", "x"}, 2, "",
         "qellog: bad value 'x' for --keep (see qellog prune --help)\n"},
        {{"cat", "--bogus", "logs"}, 2, "",
         "qellog: unknown option '--bogus' (see qellog cat --help)\n"},
        {{"--explain", "0x80300002"}, 0, "Failed to open the file!\n", ""},
        {{"--explain", "0x80300003"}, 1, "", "qellog: error code 0x80300003 has no message\n"},
        {{"--version"}, 0, "qellog " QELTEST_VERSION "\n", ""},
        {{"-h"}, 0, "Usage: qellog [OPTION]... [MESSAGE]...\n", ""},
    };
    for (const auto& c : cases) {
        const ChildResult result = run(c.args);
        EXPECT_EQ(c.exitCode, result.exitCode) << c.args[0] << " " << c.args.back();
        EXPECT_NE(std::string::npos, result.out.find(c.out)) << result.out;
        EXPECT_NE(std::string::npos, result.err.find(c.err)) << result.err;
        // A refusal is one line on standard error and nothing logged.
        EXPECT_TRUE(countOf(result.err, "\n") <= 1 && (c.exitCode == 0 || result.out.empty()));
    }
}

TEST(QellogFindParsers, TimesAndPieces) {
    using namespace qellog;
    const std::int64_t now = civilMs(2026, 11, 17, 10 * 3600000 + 30 * 60000);
    const struct { const char* text; std::int64_t ms; } times[] = {  // ms -1: refused
        {"-10min", now - 600000}, {"-2h", now - 7200000}, {"-1d", now - 86400000}, {"now", now},
        {"09:05", civilMs(2026, 11, 17, 9 * 3600000 + 5 * 60000)},
        {"2026-11-16 23:59:59.5", civilMs(2026, 11, 16, 86399500)},
        {"2026-11-16", civilMs(2026, 11, 16, 0)}, {"24:00", -1}, {"-10", -1}, {"-5 min", -1},
        {"2026-13-01", -1}, {"9:05", -1}, {"2026-11-16 10", -1}, {"", -1}};
    for (const auto& t : times) {
        std::int64_t ms = -1;
        EXPECT_EQ(t.ms != -1, parseTimeSpec(t.text, now, ms)) << t.text;
        EXPECT_EQ(t.ms, ms) << t.text;
    }

    // Pieces have no header: only --grep alone selects them.
    qellog::Record piece;
    piece.bytes = "stray bytes";
    piece.textEnd = piece.bytes.size();
    RecordFilter filter;
    std::string error;
    ASSERT_TRUE(filter.setPattern("stray", false, error));
    EXPECT_TRUE(filter.matches(piece));
    filter.minLevel = 'V';
    EXPECT_FALSE(filter.matches(piece));
}

}  // namespace
