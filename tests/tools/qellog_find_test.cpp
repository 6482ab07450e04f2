// Finding records: filters, -n and stats in this process; colour, follow -n and traps as a child.

#include <stdlib.h>

#include "colour.h"
#include "read/civil_time.h"
#include "read_options.h"
#include "selection.h"
#include "stats.h"
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
    // The texts that `qellog cat ARGS logs` prints, worked out in this process.
    Texts selected(const std::vector<std::string>& args) {
        std::vector<std::string> words{"cat"};
        words.insert(words.end(), args.begin(), args.end());
        words.push_back(m_dir / "logs");
        qellog::ReadOptions options;
        EXPECT_EQ(0, parseWords(qellog::parseReadOptions, words, qellog::ReadCommand::Cat, "",
                                options));
        Texts texts;
        qellog::Selection selection(
            options.filter, [&](const qellog::Record& record) { texts.push_back(record.text()); },
            options.hasLines, options.lines);
        qellog::readPaths(
            options.paths, [&](const qellog::Record& record) { selection.take(record); },
            [](const qellog::ReadWarning&) {});
        selection.endTail();
        return texts;
    }
};

TEST_F(QellogFindTest, OptionsSelectTheRecordsCatPrints) {
    const Texts all = {"cam started", "link slow", "frame lost\nsecond line", "retry",
                       "Link down", "cam stopped"};
    const struct { std::vector<std::string> args; Texts texts; } cases[] = {
        {{}, all},
        {{"--level", "warn"}, {"link slow", "frame lost\nsecond line", "Link down"}},
        {{"-l", "I..W"}, {"cam started", "link slow", "cam stopped"}},
        {{"-l", "..information"}, {"cam started", "retry", "cam stopped"}},
        {{"-l", "debug..V"}, {"retry"}},
        {{"-l", "ERR"}, {"frame lost\nsecond line", "Link down"}},
        {{"-m", "net"}, {"link slow", "retry"}},
        {{"-m", "n?t*", "--module", "nobody"}, {"link slow", "retry", "Link down"}},
        {{"--since", "2026-11-16 23:59:59.999"},
         {"frame lost\nsecond line", "retry", "Link down", "cam stopped"}},
        {{"--until", "2026-11-17T00:00:00.001"},
         {"cam started", "link slow", "frame lost\nsecond line", "retry"}},
        {{"--since", "-10min"}, {}},
        {{"--tid", "200"}, {"link slow", "retry"}},
        {{"--grep", "^link"}, {"link slow"}},
        {{"--grep", "^link|lost", "-i"}, {"link slow", "frame lost\nsecond line", "Link down"}},
        // The text ends before the record's empty line; a line feed in it is no line end.
        {{"--grep", "slow$|lost$"}, {"link slow"}},
        {{"--grep", "line$"}, {"frame lost\nsecond line"}},
        {{"--grep", "lost.second"}, {"frame lost\nsecond line"}},
        {{"-l", "W", "--since", "2026-11-17", "--grep", "down|lost"}, {"Link down"}},
        {{"-n", "2"}, {"Link down", "cam stopped"}},
        {{"--lines", "1", "-l", "W", "--tid", "200"}, {"link slow"}},
        {{"-n", "6"}, all},
        {{"-n", "0"}, {}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.texts, selected(c.args)) << testing::PrintToString(c.args);
    }
}

TEST_F(QellogFindTest, ColourIsAskedForOrFollowsTheTerminal) {
    // Bare --color means always; a word after it is taken only when it is a colour word.
    using Mode = qellog::ColourMode;
    const struct { std::vector<std::string> args; Mode mode; std::string path; } parsed[] = {
        {{"cat", "--color", "-n", "1", "logs"}, Mode::Always, "logs"},
        {{"cat", "--color", "never", "logs"}, Mode::Never, "logs"},
        {{"cat", "--color", "logs"}, Mode::Always, "logs"},
        {{"cat", "--colour=auto", "logs"}, Mode::Auto, "logs"}};
    for (const auto& c : parsed) {
        qellog::ReadOptions options;
        ASSERT_EQ(0, parseWords(qellog::parseReadOptions, c.args, qellog::ReadCommand::Cat, "",
                                options));
        EXPECT_TRUE(options.colour == c.mode && options.paths == Texts{c.path}) << c.args[2];
    }
    const std::string coloured =
        "\x1b[36m[cam][V" QELTEST_VERSION " \x1b[0m\x1b[32mI\x1b[0m\x1b[36m 00:00:02:0 100]\x1b[0m"
        "cam stopped\n\n";
    setenv("NO_COLOR", "1", 1);  // the command line wins over the environment
    EXPECT_EQ(coloured, run({"cat", "--color=always", "-n", "1", "logs"}).out);
    unsetenv("NO_COLOR");

    // With a pseudo-terminal as output, auto colours unless NO_COLOR is set and not empty.
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_TRUE(terminal >= 0 && grantpt(terminal) == 0 && unlockpt(terminal) == 0);
    const int screen = open(ptsname(terminal), O_RDWR | O_NOCTTY);
    setenv("TERM", "xterm", 1);
    const auto wanted = [&](qellog::ColourMode mode, const char* noColour) {
        noColour != nullptr ? setenv("NO_COLOR", noColour, 1) : unsetenv("NO_COLOR");
        return qellog::colourWanted(mode, screen);
    };
    EXPECT_TRUE(wanted(Mode::Auto, nullptr) && wanted(Mode::Auto, "") && wanted(Mode::Always, "1"));
    EXPECT_FALSE(wanted(Mode::Auto, "1") || wanted(Mode::Never, nullptr));
    unsetenv("NO_COLOR");
    close(screen), close(terminal);
}

// A record without end in reach comes in pieces, warned about even where one ends complete.
TEST_F(QellogFindTest, StatsSummarizesWhatCatReads) {
    const std::string cut =
        "[cam][V" QELTEST_VERSION " I 00:00:03:0 100]" + std::string(100 * 1024, '\n');
    writeFile(m_dir / "notes.txt", "not a record\n\n");
    std::ofstream(m_dir / kSecond, std::ios::app) << cut;
    qellog::RecordStats stats;
    for (const qellog::Record& record : read({m_dir / "logs", m_dir / "notes.txt"}).records) {
        stats.add(record);
    }
    const std::string text = stats.text();
    EXPECT_EQ("span      2026-11-16 23:59:00.000 to 2026-11-17 00:00:03.000\n"
              "records   7: V 1, I 3, W 1, E 2, other 0\npieces    2\nwarnings  3\n"
              "modules   3, with most records:\n           4  cam\n           2  net\n"
              "           1  netd\n",
              text.substr(text.find("span")));
    setenv("TZ", "UTC0", 1);
    const ChildResult json = run({"stats", "--json", "--level", "E", "logs"});
    unsetenv("TZ");
    const std::size_t bytes = kBefore.size() + kAfter.size() + cut.size();
    EXPECT_EQ("{\"files\":2,\"bytes\":" + std::to_string(bytes) +
                  ",\"first\":\"2026-11-16T23:59:59.999+00:00\",\"last\":\"2026-11-17T00:00:"
                  "01.000+00:00\",\"records\":2,\"levels\":{\"V\":0,\"I\":0,\"W\":0,\"E\":2,"
                  "\"other\":0},\"modules\":[{\"module\":\"cam\",\"records\":1},{\"module\":"
                  "\"netd\",\"records\":1}],\"pieces\":0,\"warnings\":0}\n",
              json.out);
}

// The last N records, then what is new; a missing folder is waited for with a note.
TEST_F(QellogFindTest, FollowStartsFromTheEnd) {
    const std::string missing = m_dir / "missing";
    Follower last(m_dir, "last", {"follow", "-n", "1", m_dir / "logs"});
    Follower waiting(m_dir, "waiting", {"follow", missing});
    EXPECT_EQ(2u, last.lines(2));
    std::this_thread::sleep_for(std::chrono::seconds(1));  // both are at the end
    const std::string added = "[new][V" QELTEST_VERSION " E 00:00:03:0 9]fresh\n\n";
    std::ofstream(m_dir / kSecond, std::ios::app) << added;
    EXPECT_EQ(4u, last.lines(4));
    EXPECT_EQ(1u, waiting.lines(1, 20, ".err"));
    for (Follower* follower : {&last, &waiting}) EXPECT_EQ(0, follower->stop(SIGTERM));
    EXPECT_EQ(kAfter.substr(kAfter.rfind("[cam]")) + added, readFile(last.out));
    EXPECT_EQ("qellog: folder '" + missing + "' does not exist (yet); waiting for it\n",
              readFile(waiting.out + ".err"));
}

TEST_F(QellogFindTest, CommandLineTraps) {
    const struct { std::vector<std::string> args; int exitCode; const char *out, *err; } cases[] = {
        {{"-f", "logs"}, 2, "", "unknown option '-f': to read a log folder use qellog cat"},
        {{"logs"}, 2, "", "'logs' is a folder: to read it, qellog cat logs"},
        {{"-l", "warning", "--", "logs"}, 0, "[qellog][V" QELTEST_VERSION " W ", ""},
        {{"follow", kFirst}, 1, "", "-00-0.log': Not a directory (to read one file: qellog cat"},
        {{"follow", "-n", "1", "--state", "s", "logs"}, 2, "", "takes --lines or --state"},
        {{"cat", "--level", "E..W", "logs"}, 2, "", "bad value 'E..W' for --level"},
        {{"cat", "-f", "logs"}, 2, "", "unknown option '-f': to print new records as they come, "
                                       "use qellog follow DIR"},
        {{"follow", "-"}, 2, "", "follow reads a folder, not standard input"},
        {{"prune", "logs", "-k", "1", "-n"}, 2, "", "unknown option '-n'"},
        // The wiring from the parsers (tested in this process) to exit status and output.
        {{"cat", "--bogus", "logs"}, 2, "",
         "qellog: unknown option '--bogus' (see qellog cat --help)\n"},
        {{"--explain", "0x80300003"}, 1, "", "qellog: error code 0x80300003 has no message\n"},
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

TEST(QellogFindParsers, TimeSpecsAreReadRelativeToNow) {
    using qellog::civilMs;
    const std::int64_t now = civilMs(2026, 11, 17, 10 * 3600000 + 30 * 60000);
    const struct { const char* text; std::int64_t ms; } times[] = {  // ms -1: refused
        {"-10min", now - 600000}, {"-2h", now - 7200000}, {"-1d", now - 86400000}, {"now", now},
        {"09:05", civilMs(2026, 11, 17, 9 * 3600000 + 5 * 60000)},
        {"2026-11-16 23:59:59.5", civilMs(2026, 11, 16, 86399500)},
        {"2026-11-16", civilMs(2026, 11, 16, 0)}, {"24:00", -1}, {"-10", -1}, {"-5 min", -1},
        {"2026-13-01", -1}, {"9:05", -1}, {"2026-11-16 10", -1}, {"", -1},
        {"2028-02-29", civilMs(2028, 2, 29, 0)}, {"2026-02-29", -1}, {"2026-02-30 10:00", -1},
        {"2026-04-31", -1}, {"2026-00-10", -1}, {"2026-01-00", -1},
        {"today", civilMs(2026, 11, 17, 0)}, {"yesterday", civilMs(2026, 11, 16, 0)},
        {"-90m", now - 90 * 60000}, {"-1.5h", now - 5400000}, {"-1w", now - 7 * 86400000}};
    for (const auto& t : times) {
        std::int64_t ms = -1;
        EXPECT_EQ(t.ms != -1, qellog::parseTimeSpec(t.text, now, ms)) << t.text;
        EXPECT_EQ(t.ms, ms) << t.text;
    }
}

// Pieces have no header: only --grep alone selects them.
TEST(QellogFindParsers, OnlyGrepAloneSelectsPieces) {
    qellog::Record piece;
    piece.bytes = piece.header.module = "stray bytes";
    piece.textEnd = piece.bytes.size();
    qellog::RecordFilter filter;
    std::string error;
    ASSERT_TRUE(filter.setPattern("stray", false, error) && filter.matches(piece));
    filter.modules.push_back("*");
    EXPECT_FALSE(filter.matches(piece));
}

}  // namespace
