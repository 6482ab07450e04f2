// Runs qellog cat, follow and prune on log files that the library itself wrote in a fresh
// folder, and reads the JSON output back with a real JSON parser.

#include <qel/log.h>

#include <sys/file.h>
#include <sys/syscall.h>

#include <regex>
#include <sstream>

#include "tools/qellog_fixture.h"

using namespace qeltest;
namespace fs = std::filesystem;

namespace {

struct Written { std::string module; QelLogLevel level; std::string text; };

// One JSON record as the JSON parser saw it.
struct Parsed { std::string module, version, level, time, tid, file, date, text; };

class QellogReadTest : public QellogTest {
protected:
    void SetUp() override { qelLogConfigConsoleWriter(false); }
    void TearDown() override { qelLogConfigFileWriter(false); }
    // Parses JSON lines with Python's json module, which fails on anything that is not valid
    // JSON, and brings the fields back, each ended by a NUL byte.
    std::vector<Parsed> parseJsonLines(const std::string& lines) {
        static const char kScript[] =
            "import json, sys\n"
            "keys = ['module', 'version', 'level', 'time', 'tid', 'file', 'date', 'text']\n"
            "for line in sys.stdin.buffer.read().decode('utf-8').split('\\n')[:-1]:\n"
            "    o = json.loads(line)\n"
            "    assert sorted(o) == sorted(keys + ['ts']), o\n"
            "    for key in keys: sys.stdout.buffer.write(str(o[key]).encode() + b'\\0')\n";
        const ChildResult result = run({"python3", "-c", kScript}, lines, "/usr/bin/env");
        EXPECT_EQ(0, result.exitCode) << result.err;
        std::vector<std::string> f;  // eight fields a record
        std::istringstream in(result.out);
        for (std::string field; std::getline(in, field, '\0');) f.push_back(field);
        std::vector<Parsed> parsed;
        for (const std::string* p = f.data(); p + 8 <= f.data() + f.size(); p += 8) {
            parsed.push_back({p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7]});
        }
        return parsed;
    }
    // Checks the JSON records against what this thread logged, in order.
    void expectRecords(const std::vector<Written>& written, const std::vector<Parsed>& parsed) {
        ASSERT_EQ(written.size(), parsed.size());
        for (std::size_t i = 0; i < parsed.size(); ++i) {
            const Parsed& p = parsed[i];
            const char letter = written[i].level < 4 ? "VIWE"[written[i].level] : '?';
            EXPECT_EQ(written[i].module + " " + letter + " " + written[i].text,
                      p.module + " " + p.level + " " + p.text) << i;
            const std::size_t dated = p.file.find("QelLog" + p.date);  // nobody logs at midnight
            EXPECT_EQ(QELTEST_VERSION " " + std::to_string(syscall(SYS_gettid)) + " 0",
                      p.version + " " + p.tid + " " + std::to_string(dated));
            EXPECT_TRUE(std::regex_match(p.time, std::regex(R"(\d\d:\d\d:\d\d:\d{1,3})")));
        }
    }

    // Runs qellog `args` (exit status 0): the JSON records it printed, its standard error in `err`.
    std::vector<Parsed> json(const std::vector<std::string>& args, std::string& err) {
        const ChildResult result = run(args);
        EXPECT_EQ(0, result.exitCode) << result.err;
        err = result.err;
        return parseJsonLines(result.out);
    }

    // follow with its state in the test's folder, printing JSON.
    std::vector<std::string> followArgs() const {
        return {"follow", "--json", "--state", m_dir / "state", m_logs};
    }

    const fs::path m_logs = m_dir / "logs";
};

// A record as the writer writes it, for folders made by hand.
std::string line(const std::string& text, const std::string& module = "m") {
    return "[" + module + "][V" QELTEST_VERSION " I 10:00:00:0 7]" + text + "\n\n";
}

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST_F(QellogReadTest, CatGivesBackEveryRecordWholeAcrossSplitFiles) {
    // Texts that a line-based reader gets wrong: line breaks, empty lines, things that look like
    // the start of a record, and texts longer than the file size limit.
    std::vector<Written> written = {
        {"cam", QEL_LOG_WARNING, std::string(1700, 'a') + "\nend of a"},
        {"cam", QEL_LOG_INFO, "two\nlines"}, {"cam", QEL_LOG_INFO, "empty line\n\ninside"},
        {"cam", QEL_LOG_ERROR, "ends with a line feed\n"}, {"cam", QEL_LOG_INFO, ""},
        {"a]b", QEL_LOG_INFO, "[not][a header]\n\n[x][V" QELTEST_VERSION " Q 1:2:3:4 5]still text"},
        {"net", QEL_LOG_WARNING, "quote \" backslash \\ tab \t caf\xc3\xa9 \x01"},
        {"net", QEL_LOG_INFO, std::string(2047, 'z')}, {std::string(127, 'm'), QEL_LOG_ERROR, ""},
        {"a\nb]c", static_cast<QelLogLevel>(7), "a level without a letter"}};
    for (int i = 0; i < 40; ++i) {
        const std::string text = "record " + std::to_string(i) + std::string(i * 53 % 1700, 'q');
        written.push_back({"seq", QEL_LOG_INFO, text + (i % 3 == 0 ? "\n\n" : "") + "tail"});
    }
    written.push_back({"seq", QEL_LOG_INFO, "the last record"});
    ASSERT_TRUE(qelLogSetMaxSize(777) == 0 && qelLogSetFileFolder(m_logs.c_str()) == 0);
    for (const Written& w : written) qelLogSimplify(w.module.c_str(), w.level, w.text.c_str());
    ASSERT_EQ(0, qelLogConfigFileWriter(false));
    const std::vector<std::string> files = logFiles(m_logs);
    ASSERT_GT(files.size(), 20u);

    // Plain: the records byte for byte, which is the files read in the order they were made.
    const ChildResult plain = run({"cat", "logs"});
    EXPECT_TRUE(plain.exitCode == 0 && plain.err.empty() && plain.out == concatenatedLogs(m_logs));

    std::string err;
    std::vector<Parsed> parsed = json({"cat", "--json", "logs"}, err);
    EXPECT_EQ("", err);
    expectRecords(written, parsed);
    // A record is listed under the file in which it starts; the first one filled two files.
    EXPECT_EQ(fs::path(files[0]).filename().string() + fs::path(files[2]).filename().string(),
              parsed.at(0).file + parsed.at(1).file);

    // Bytes that are no record are printed with a warning: the oldest file went away, so the
    // next one starts inside the first record; a foreign file is named by hand.
    fs::remove(files[0]);
    writeFile(m_dir / "notes.txt", "no header\nhere");
    parsed = json({"cat", "--json", "logs", "notes.txt"}, err);
    const std::string second = fs::path(files[1]).filename();
    EXPECT_TRUE(holds(err, second + " at byte 0: ") && holds(err, "notes.txt at byte 0: 14 bytes"));
    ASSERT_EQ(written.size() + 1, parsed.size());
    const Parsed& head = parsed.front();
    EXPECT_EQ("None " + second, head.module + head.version + head.level + head.time + head.tid +
                                    " " + head.file);
    EXPECT_LT(head.text.size(), written[0].text.size());
    EXPECT_EQ(written[0].text.substr(written[0].text.size() - head.text.size()), head.text);
    const Parsed& foreign = parsed.back();
    EXPECT_EQ("notes.txt no header\nhere", foreign.module + foreign.date + foreign.file + " " +
                                                foreign.text);
    written.erase(written.begin());  // between them: every other record whole
    expectRecords(written, std::vector<Parsed>(parsed.begin() + 1, parsed.end() - 1));
}

// Folders made by hand: a record split right before a text that looks like a header, a file
// torn by a power cut followed by the rest that it lost, and a tail of NUL bytes. The dates
// follow the time of day across midnight: a record made just before it may land in a file
// named just after it.
TEST_F(QellogReadTest, TearsAndNulTailsAreNeverGlued) {
    fs::create_directory(m_logs);
    const std::string forged = "[x][V" QELTEST_VERSION " E 00:00:00:0 1]forged";
    writeFile(m_logs / "QelLog2025-12-31-23-59-59-990.log",
              "[m][V" QELTEST_VERSION " I 23:59:59:995 7]one\n\n"
              "[m][V" QELTEST_VERSION " W 00:00:00:3 7]two " + std::string(150, 'x'));
    writeFile(m_logs / "QelLog2026-01-01-10-00-01-0.log",
              forged + "\n\n[d]]][V" QELTEST_VERSION " E 23:59:59:999 8]three\n\n");
    writeFile(m_logs / "QelLog2026-01-01-10-00-02-0.log", line("four") + line("to").substr(0, 29));
    writeFile(m_logs / "QelLog2026-01-01-10-00-03-0.log", "rn\n\n" + line("five"));
    writeFile(m_logs / "QelLog2026-01-01-10-00-04-0.log", line("six") + std::string(64, '\0'));
    writeFile(m_logs / "QelLog2026-01-01-10-00-05-0.log", line("seven"));
    std::string err, dates;
    const std::vector<Parsed> parsed = json({"cat", "--json", "logs"}, err);
    EXPECT_EQ(std::vector<std::string>({"one", "two " + std::string(150, 'x') + forged, "three",
                                        "four", "to", "rn", "five", "six", "seven"}),
              textsOf(parsed));
    for (const Parsed& p : parsed) dates += p.date.substr(3) + " ";
    EXPECT_EQ("5-12-31 6-01-01 5-12-31 6-01-01 6-01-01 6-01-01 6-01-01 6-01-01 6-01-01 ", dates);
    EXPECT_EQ("d]] QelLog2026-01-01-10-00-01-0.log", parsed.at(2).module + " " + parsed[2].file);
    EXPECT_TRUE(holds(err, "QelLog2026-01-01-10-00-02-0.log at byte 33: a record cut off"));
    EXPECT_TRUE(holds(err, "QelLog2026-01-01-10-00-03-0.log at byte 0: 4 bytes that are not"));
    EXPECT_TRUE(holds(err, "QelLog2026-01-01-10-00-04-0.log at byte 32: 64 NUL bytes")) << err;
    EXPECT_EQ(3u, countOf(err, "\n")) << err;
}

// The clock went back: files named before the step sort after the ones written since. Which
// files prune deletes is tested in-process; here: names, files that are no log files, a file
// a writer holds, output.
TEST_F(QellogReadTest, ClockSteppedBackAndPrune) {
    fs::create_directories(m_logs / "QelLog2019-01-01-00-00-00-0.log");  // a folder, not a file
    for (const char* name : {"QelLog2020-01-01-00-00-00-05.log", "QelLog-old.log", "x.log.1"})
        writeFile(m_logs / name, "keep");
    const std::string late[] = {"QelLog2099-01-01-10-00-00-0.log",
                                "QelLog2099-01-01-10-00-01-0.log"};
    for (int i : {0, 1}) writeFile(m_logs / late[i], line("before " + std::to_string(i)));
    Follower first(m_dir, "out1", followArgs());
    EXPECT_EQ(2u, first.lines(2));
    EXPECT_EQ(0, first.stop(SIGTERM));
    const auto anHourAgo = fs::file_time_type::clock::now() - std::chrono::hours(1);
    for (const std::string& name : late) fs::last_write_time(m_logs / name, anHourAgo);
    Follower second(m_dir, "out2", followArgs());
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // the file comes while it runs
    writeFile(m_logs / "QelLog2026-01-01-10-00-00-0.log", line("after 1") + line("after 2"));
    EXPECT_EQ(2u, second.lines(2));
    EXPECT_EQ(0, second.stop(SIGTERM));
    EXPECT_EQ(std::vector<std::string>({"after 1", "after 2"}),
              textsOf(parseJsonLines(readFile(m_dir / "out2"))));

    std::string err;
    EXPECT_EQ(4u, json({"cat", "--json", "logs"}, err).size());
    EXPECT_TRUE(holds(err, "the clock went back")) << err;
    EXPECT_EQ("would delete logs/" + late[0] + "\n",
              run({"prune", "logs", "-k", "1", "--dry-run"}).out);
    const int held = open((m_logs / late[0]).c_str(), O_RDONLY);  // as a writer holds its file
    ASSERT_EQ(0, flock(held, LOCK_SH));
    const std::string kept = run({"prune", "logs", "-k", "1"}).out;
    EXPECT_EQ("kept logs/" + late[0] + ": a writer holds it\n", kept);
    close(held);
    EXPECT_EQ("deleted logs/" + late[0] + "\n", run({"prune", "--keep", "1", "logs"}).out);
    EXPECT_EQ(6u, std::distance(fs::directory_iterator(m_logs), fs::directory_iterator()));
}

// However many SIGINT and SIGTERM come, follow ends after a whole line with its state saved.
// The next run goes on in the file, which grew without rotating, up to a record whose rest is
// in a file still to come; the run after that joins the two. A damaged state file gives a
// warning and everything once more.
TEST_F(QellogReadTest, FollowStopsWholeOnAnySignalsAndResumesExactly) {
    fs::create_directory(m_logs);
    std::string big;
    for (int i = 0; i < 4000; ++i) big += line(std::to_string(i) + std::string(2000, 'b'));
    const std::string file = m_logs / "QelLog2026-01-01-10-00-00-9.log";  // 9 ms: before 10 ms
    writeFile(file, big);
    Follower one(m_dir, "out1", followArgs());
    one.lines(1);
    for (int signal : {SIGTERM, SIGINT, SIGTERM, SIGINT}) kill(one.pid, signal);
    EXPECT_EQ(0, one.stop(SIGINT));
    const std::string out1 = readFile(one.out);
    ASSERT_TRUE(!out1.empty() && out1.back() == '\n');
    writeFile(file, big + line("4000") + "[m][V" QELTEST_VERSION " I 10:00:00:0 7]split ");
    Follower two(m_dir, "out2", followArgs());
    const std::size_t rest = 4001 - countOf(out1, "\n");
    EXPECT_EQ(rest, two.lines(rest));
    EXPECT_EQ(rest, two.lines(rest + 1, 1));
    EXPECT_EQ(0, two.stop(SIGTERM));
    writeFile(m_logs / "QelLog2026-01-01-10-00-00-10.log", "record\n\n" + line("4002"));
    Follower three(m_dir, "out3", followArgs());
    EXPECT_EQ(2u, three.lines(2));
    EXPECT_EQ(0, three.stop(SIGTERM));
    const std::vector<Parsed> all = parseJsonLines(out1 + readFile(two.out) + readFile(three.out));
    ASSERT_EQ(4003u, all.size());
    EXPECT_EQ("split record", all[4001].text);

    writeFile(m_dir / "state", "qellog-follow 2\nQelLog2026-01-01-10");  // cut by a power cut
    Follower four(m_dir, "out4", followArgs());
    EXPECT_EQ(4003u, four.lines(4003));
    EXPECT_EQ(0, four.stop(SIGTERM));
    EXPECT_TRUE(holds(readFile(four.out + ".err"), "is empty or damaged"));
}

// A record whose second half comes within the settle time is one record; one that goes on
// after a longer pause is printed with a warning that says follow guessed. A second writer's
// file sorts after the first one, which still grows: follow prints from both.
TEST_F(QellogReadTest, FollowWaitsForTheRestOfARecordAndReadsEveryGrowingFile) {
    fs::create_directory(m_logs);
    const std::string path = m_logs / "QelLog2026-01-01-10-00-00-0.log";
    std::string bytes = line("first");
    writeFile(path, bytes);
    Follower follower(m_dir, "out", followArgs());
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    writeFile(path, bytes += "second half\n\n");
    EXPECT_EQ(1u, follower.lines(1));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    writeFile(path, bytes += "after a pause\n\n");
    writeFile(m_logs / "QelLog2026-01-01-10-00-01-0.log", line("child"));
    EXPECT_EQ(3u, follower.lines(3));
    writeFile(path, bytes + line("next"));
    EXPECT_EQ(4u, follower.lines(4));
    EXPECT_EQ(0, follower.stop(SIGTERM));
    EXPECT_EQ(std::vector<std::string>({"first\n\nsecond half", "after a pause", "child", "next"}),
              textsOf(parseJsonLines(readFile(follower.out))));
    EXPECT_TRUE(holds(readFile(follower.out + ".err"), "at byte 47: the record before was taken"));
    // A writer that never pauses keeps its last record open: follow -n still ends its catch-up.
    const std::string busy = m_dir / "busy" / "QelLog2026-01-01-10-00-00-0.log";
    fs::create_directory(m_dir / "busy");
    writeFile(busy, line("done") + line("open"));
    Follower tail(m_dir, "tail", {"follow", "-n", "1", m_dir / "busy"});
    for (int i = 0; i < 500 && tail.lines(2, 0) < 2; ++i) {
        std::ofstream(busy, std::ios::app) << "more\n";
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(line("done"), readFile(tail.out));
}

}  // namespace
