// Runs qellog cat, follow and prune on log files that the library itself wrote in a fresh
// folder, and reads the JSON output back with a real JSON parser.

#include <qel/log.h>

#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <chrono>
#include <cstring>
#include <regex>
#include <sstream>
#include <thread>

#include "tools/qellog_fixture.h"

using namespace qeltest;
namespace fs = std::filesystem;

namespace {

struct Written {
    std::string module;
    QelLogLevel level;
    std::string text;
};

// One JSON record as the JSON parser saw it.
struct Parsed {
    std::string module, version, level, time, tid, file, date, text;
};

// A follow run whose output goes into dir/`name` (and dir/`name`.err) while the test goes on,
// with its state in dir/state. Started with posix_spawn rather than fork: the library pushes its
// buffered records out before a fork, and a test may need a record to stay in the buffer.
struct Follower {
    pid_t pid = -1;
    std::string out;

    Follower(const fs::path& dir, const char* name, const std::string& logs = "logs")
        : out(dir / name) {
        const std::string folder = dir / logs, state = dir / "state", err = out + ".err";
        const char* argv[] = {QELLOG_PATH, "follow", "--json", "--state", state.c_str(),
                              folder.c_str(), nullptr};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT, 0644);
        posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT, 0644);
        EXPECT_EQ(0, posix_spawn(&pid, QELLOG_PATH, &actions, nullptr,
                                 const_cast<char* const*>(argv), environ));
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Follower() { if (pid > 0) stop(SIGKILL); }
    // Sends `signal` and returns the exit code (128 + signal when the signal ended it).
    int stop(int signal) {
        kill(pid, signal);
        int status = 0;
        waitpid(pid, &status, 0);
        pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    // Waits up to `seconds` for the output to hold `count` lines; returns how many it holds.
    std::size_t lines(std::size_t count = 0, int seconds = 20) const {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
        for (;; std::this_thread::sleep_for(std::chrono::milliseconds(20))) {
            const std::size_t got = countOf(readFile(out), "\n");
            if (got >= count || std::chrono::steady_clock::now() > deadline) return got;
        }
    }
};

class QellogReadTest : public QellogTest {
protected:
    void SetUp() override { qelLogConfigConsoleWriter(false); }
    void TearDown() override { qelLogConfigFileWriter(false); }
    // Logs `records` through the library. A `maxSize` sends them into the log folder, with that
    // file size limit; without one they go on into the files of the last call.
    void log(const std::vector<Written>& records, unsigned int maxSize = 0) {
        if (maxSize > 0) {
            ASSERT_EQ(0, qelLogSetMaxSize(maxSize));
            ASSERT_EQ(0, qelLogSetFileFolder(m_logs.c_str()));
        }
        for (const Written& record : records) {
            ASSERT_EQ(0, qelLogSimplify(record.module.c_str(), record.level, record.text.c_str()));
        }
    }
    // Parses JSON lines with Python's json module, which fails on anything that is not valid
    // JSON, and brings the fields back, each ended by a NUL byte.
    std::vector<Parsed> parseJsonLines(const std::string& lines) {
        static const char kScript[] =
            "import json, sys\n"
            "keys = ['module', 'version', 'level', 'time', 'tid', 'file', 'date', 'text']\n"
            "for line in sys.stdin.buffer.read().decode('utf-8').split('\\n')[:-1]:\n"
            "    o = json.loads(line)\n"
            "    assert sorted(o) == sorted(keys), o\n"
            "    for key in keys: sys.stdout.buffer.write(str(o[key]).encode() + b'\\0')\n";
        const ChildResult result = run({"python3", "-c", kScript}, lines, "/usr/bin/env");
        EXPECT_EQ(0, result.exitCode) << result.err;
        std::vector<std::string> f;
        std::istringstream in(result.out);
        for (std::string field; std::getline(in, field, '\0');) f.push_back(field);
        std::vector<Parsed> parsed;
        for (std::size_t i = 0; i + 8 <= f.size(); i += 8) {
            parsed.push_back({f[i], f[i + 1], f[i + 2], f[i + 3], f[i + 4], f[i + 5], f[i + 6],
                              f[i + 7]});
        }
        return parsed;
    }
    // Checks the JSON records against what this thread logged, in order.
    void expectRecords(const std::vector<Written>& written, const std::vector<Parsed>& parsed) {
        ASSERT_EQ(written.size(), parsed.size());
        for (std::size_t i = 0; i < parsed.size(); ++i) {
            const Parsed& p = parsed[i];
            EXPECT_EQ(written[i].module + " " + "VIWE"[written[i].level] + " " + written[i].text,
                      p.module + " " + p.level + " " + p.text) << i;
            EXPECT_EQ(QELTEST_VERSION " " + std::to_string(syscall(SYS_gettid)),
                      p.version + " " + p.tid);
            EXPECT_TRUE(std::regex_match(p.time, std::regex(R"(\d\d:\d\d:\d\d:\d{1,3})")));
            // Nobody logs across midnight here: the date is the one in the file's name.
            EXPECT_EQ(0u, p.file.find("QelLog" + p.date + "-")) << p.file;
        }
    }

    const fs::path m_logs = m_dir / "logs";
};

// Texts that a line-based reader gets wrong: line breaks, empty lines, things that look like
// the start of a record, and texts longer than the file size limit.
std::vector<Written> awkwardRecords() {
    std::vector<Written> records = {
        {"cam", QEL_LOG_WARNING, std::string(1700, 'a') + "\nend of a"},
        {"cam", QEL_LOG_INFO, "two\nlines"},
        {"cam", QEL_LOG_INFO, "empty line\n\ninside"},
        {"cam", QEL_LOG_ERROR, "ends with a line feed\n"},
        {"cam", QEL_LOG_INFO, ""},
        {"a]b", QEL_LOG_INFO, "[not][a header]\n\n[x][V1.8.63 Q 1:2:3:4 5]still text"},
        {"net", QEL_LOG_WARNING, "quote \" backslash \\ tab \t caf\xc3\xa9 \x01"},
        {"net", QEL_LOG_INFO, std::string(2047, 'z')},
    };
    for (int i = 0; i < 40; ++i) {
        records.push_back({"seq", QEL_LOG_INFO,
                           "record " + std::to_string(i) + " " + std::string(i * 53 % 1700, 'q') +
                               (i % 3 == 0 ? "\n\n" : "") + "tail"});
    }
    records.push_back({"seq", QEL_LOG_INFO, "the last record"});
    return records;
}

TEST_F(QellogReadTest, CatGivesBackEveryRecordWholeAcrossSplitFiles) {
    std::vector<Written> written = awkwardRecords();
    log(written, 777);
    ASSERT_EQ(0, qelLogConfigFileWriter(false));
    const std::vector<std::string> files = logFiles(m_logs);
    ASSERT_GT(files.size(), 20u);

    // Plain: the records byte for byte, which is the files read in the order they were made.
    ChildResult result = run({"cat", "logs"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ("", result.err);
    EXPECT_TRUE(concatenatedLogs(m_logs) == result.out) << "plain output differs from the files";

    result = run({"cat", "--json", "logs"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ("", result.err);
    std::vector<Parsed> parsed = parseJsonLines(result.out);
    expectRecords(written, parsed);
    // A record is listed under the file in which it starts.
    ASSERT_GT(parsed.size(), 1u);
    EXPECT_EQ(fs::path(files[0]).filename(), parsed[0].file);
    EXPECT_EQ(fs::path(files[2]).filename(), parsed[1].file);  // the first one filled two files

    // Bytes that are no record are printed with a warning: the oldest file went away, so the
    // next one starts inside the first record; the newest ends inside a record, as after a
    // crash; a foreign file is named by hand.
    fs::remove(files[0]);
    const std::string newest = readFile(files.back());
    writeFile(files.back(), newest.substr(0, newest.size() - 5));
    writeFile(m_dir / "notes.txt", "no header\nhere");
    result = run({"cat", "--json", "logs", "notes.txt"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    const std::string second = fs::path(files[1]).filename();
    EXPECT_NE(std::string::npos, result.err.find(second + " at byte 0: ")) << result.err;
    EXPECT_NE(std::string::npos, result.err.find("cut off")) << result.err;
    EXPECT_NE(std::string::npos, result.err.find("notes.txt at byte 0: 14 bytes")) << result.err;
    parsed = parseJsonLines(result.out);
    ASSERT_EQ(written.size() + 1, parsed.size());

    const Parsed& head = parsed.front();
    EXPECT_EQ("", head.module + head.version + head.level + head.time);
    EXPECT_EQ("None", head.tid);
    EXPECT_EQ(second, head.file);
    EXPECT_LT(head.text.size(), written[0].text.size());
    EXPECT_EQ(written[0].text.substr(written[0].text.size() - head.text.size()), head.text);
    const Parsed& foreign = parsed.back();
    EXPECT_EQ("", foreign.module + foreign.date);
    EXPECT_EQ("notes.txt", foreign.file);
    EXPECT_EQ("no header\nhere", foreign.text);
    // Between them: every other record whole, the last one without what the crash took.
    written.back().text = "the last rec";
    written.erase(written.begin());
    expectRecords(written, std::vector<Parsed>(parsed.begin() + 1, parsed.end() - 1));
}

TEST_F(QellogReadTest, JsonDateFollowsTheTimeOfDayAcrossMidnight) {
    fs::create_directory(m_logs);
    // Written by hand: the header of the second record is split between the files, and a
    // record made just before midnight landed in a file named just after it.
    writeFile(m_logs / "QelLog2025-12-31-23-59-59-990.log",
              "[m][V1.8.63 I 23:59:59:995 7]a\n\n[m][V1.8.63 W 00:00:00:3 7]b\n\n[m][V1.8");
    writeFile(m_logs / "QelLog2026-01-01-00-00-01-0.log",
              ".63 I 00:00:00:900 7]c\n\n[d]]][V1.8.63 E 23:59:59:999 8]d\n\n");
    writeFile(m_logs / "QelLog2026-01-01-00-00-01-5.log", "[m][V1.8.63 I 00:00:01:5 7]e\n\n");
    const ChildResult result = run({"cat", "--json", "logs"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ("", result.err);
    const std::vector<Parsed> parsed = parseJsonLines(result.out);
    ASSERT_EQ(5u, parsed.size());
    const char* dates[] = {"2025-12-31", "2026-01-01", "2026-01-01", "2025-12-31", "2026-01-01"};
    for (std::size_t i = 0; i < parsed.size(); ++i) {
        EXPECT_EQ(dates[i], parsed[i].date) << i;
        EXPECT_EQ(std::string(1, static_cast<char>('a' + i)), parsed[i].text) << i;
    }
    EXPECT_EQ("d]]", parsed[3].module);
    EXPECT_EQ("QelLog2025-12-31-23-59-59-990.log", parsed[2].file);
}

TEST_F(QellogReadTest, FollowEmitsEachRecordOnceAcrossAStopInsideASplitRecord) {
    std::vector<Written> written;
    for (int i = 0; i < 5; ++i) {
        written.push_back({"cam", QEL_LOG_WARNING, "before " + std::to_string(i)});
    }
    // Crosses the limit. Without a console writer an informational record waits in the
    // writer's buffer: the old file is complete on disk, the new one still empty.
    written.push_back({"cam", QEL_LOG_INFO, std::string(1500, 's') + "\nsplit"});
    log(written, 1000);
    Follower first(m_dir, "out1");
    ASSERT_EQ(5u, first.lines(5)) << readFile(first.out + ".err");
    EXPECT_EQ(5u, first.lines(6, 1));  // time to wrongly go on
    EXPECT_EQ(0, first.stop(SIGTERM));

    // The second run follows the rest of the split record and new files as they come.
    Follower second(m_dir, "out2");
    for (int i = 0; i < 30; ++i) {
        written.push_back(
            {"cam", QEL_LOG_WARNING, "after " + std::to_string(i) + std::string(90, '-')});
    }
    log(std::vector<Written>(written.begin() + 6, written.end()));
    ASSERT_EQ(31u, second.lines(31)) << readFile(second.out + ".err");
    EXPECT_EQ(0, second.stop(SIGINT));

    // A third run with nothing new prints nothing.
    Follower third(m_dir, "out3");
    EXPECT_EQ(0u, third.lines(1, 1));
    EXPECT_EQ(0, third.stop(SIGTERM));
    EXPECT_EQ("", readFile(third.out));

    EXPECT_EQ("", readFile(m_dir / "out1.err") + readFile(m_dir / "out2.err"));
    expectRecords(written, parseJsonLines(readFile(m_dir / "out1") + readFile(m_dir / "out2")));
    EXPECT_GT(logFiles(m_logs).size(), 3u);
}

// Which files go is tested in-process; here: the order of the names, files that are no log
// files, and what prune prints.
TEST_F(QellogReadTest, PruneDeletesOldestLogFilesOnly) {
    fs::create_directories(m_logs / "QelLog2019-01-01-00-00-00-0.log");  // a folder, not a file
    const std::vector<std::string> names = {  // 9 ms comes before 10 ms
        "QelLog2025-12-31-23-00-00-0.log", "QelLog2026-02-01-08-00-00-9.log",
        "QelLog2026-02-01-08-00-00-10.log"};
    for (const std::string& name : names) writeFile(m_logs / name, std::string(100, 'x'));
    const std::vector<std::string> foreign = {"QelLog2020-01-01-00-00-00-05.log",
                                              "QelLog-old.log", "QelLog2020-01-01-00-00-00-0.log.1"};
    for (const std::string& name : foreign) writeFile(m_logs / name, "keep");
    ChildResult result = run({"prune", "logs", "--keep", "2", "--dry-run"});
    EXPECT_EQ("would delete logs/" + names[0] + "\n", result.out);
    result = run({"prune", "--max-total", "0", "logs"});
    EXPECT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ("deleted logs/" + names[0] + "\ndeleted logs/" + names[1] + "\n", result.out);
    EXPECT_TRUE(fs::exists(m_logs / names[2]));
    for (const std::string& name : foreign) EXPECT_TRUE(fs::exists(m_logs / name)) << name;
    EXPECT_TRUE(fs::is_directory(m_logs / "QelLog2019-01-01-00-00-00-0.log"));
}

}  // namespace
