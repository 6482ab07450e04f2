// Runs qellog cat, follow and prune as child processes on log files that the library itself
// wrote in a fresh folder, and reads the JSON output back with a real JSON parser.

#include <qel/log.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tools/child_process.h"

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

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

void writeFile(const fs::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// The writer's files in `folder`, oldest first: the numbers in the name, compared as numbers.
std::vector<fs::path> logFiles(const fs::path& folder) {
    const std::regex pattern(R"(QelLog(\d+)-(\d+)-(\d+)-(\d+)-(\d+)-(\d+)-(\d+)\.log)");
    std::vector<std::pair<std::vector<long>, fs::path>> found;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        std::smatch match;
        const std::string name = entry.path().filename().string();
        if (!std::regex_match(name, match, pattern)) continue;
        std::vector<long> time;
        for (std::size_t i = 1; i < match.size(); ++i) time.push_back(std::stol(match[i]));
        found.push_back({time, entry.path()});
    }
    std::sort(found.begin(), found.end());
    std::vector<fs::path> files;
    for (const auto& item : found) files.push_back(item.second);
    return files;
}

std::string unhex(const std::string& text) {
    std::string out;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        out += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
    }
    return out;
}

// Parses JSON lines with Python's json module, which fails on anything that is not valid JSON,
// and brings the fields back tab-separated, the text in hexadecimal.
std::vector<Parsed> parseJsonLines(const std::string& lines) {
    static const char kScript[] =
        "import json, sys\n"
        "for line in sys.stdin.buffer.read().decode('utf-8').split('\\n')[:-1]:\n"
        "    o = json.loads(line)\n"
        "    assert sorted(o) == sorted(['module','version','level','time','tid','text','file',"
        "'date']), o\n"
        "    print('\\t'.join([o['module'].encode().hex(), o['version'], o['level'], o['time'],\n"
        "                     str(o['tid']), o['file'], o['date'], o['text'].encode().hex()]))\n";
    const ChildResult result =
        runChild("/usr/bin/env", {"python3", "-c", kScript}, fs::temp_directory_path(), lines);
    EXPECT_EQ(0, result.exitCode) << result.err;
    std::vector<Parsed> parsed;
    std::istringstream in(result.out);
    for (std::string line; std::getline(in, line);) {
        std::vector<std::string> f;
        std::istringstream fields(line);
        for (std::string field; std::getline(fields, field, '\t');) f.push_back(field);
        f.resize(8);
        parsed.push_back({unhex(f[0]), f[1], f[2], f[3], f[4], f[5], f[6], unhex(f[7])});
    }
    return parsed;
}

// A child whose output goes into files while the test goes on.
struct Background {
    pid_t pid = -1;
    fs::path out;

    // Sends `signal` and returns the exit code (128 + signal when the signal ended it).
    int stop(int signal) {
        kill(pid, signal);
        int status = 0;
        waitpid(pid, &status, 0);
        pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    ~Background() {
        if (pid > 0) stop(SIGKILL);
    }
};

// Started with posix_spawn rather than fork: the library pushes its buffered records out
// before a fork, and the follow test needs a record to stay in the writer's buffer.
void startBackground(Background& child, const std::vector<std::string>& args,
                     const fs::path& out) {
    std::vector<char*> argv{const_cast<char*>(QELLOG_PATH)};
    for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    const std::string outPath = out.string(), errPath = out.string() + ".err";
    child.out = out;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outPath.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errPath.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int error = posix_spawn(&child.pid, QELLOG_PATH, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ASSERT_EQ(0, error) << std::strerror(error);
}

std::size_t lineCount(const fs::path& path) {
    const std::string text = readFile(path);
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

// Waits up to 20 s for `path` to hold `lines` lines; returns how many it holds.
std::size_t waitForLines(const fs::path& path, std::size_t lines) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (lineCount(path) < lines && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return lineCount(path);
}

class QellogReadTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "qellog-read-XXXXXX").string();
        ASSERT_NE(nullptr, mkdtemp(&pattern[0]));
        m_dir = pattern;
        m_logs = m_dir / "logs";
        qelLogConfigConsoleWriter(false);
    }
    void TearDown() override {
        qelLogConfigFileWriter(false);
        std::error_code ignored;
        fs::remove_all(m_dir, ignored);
    }
    ChildResult run(const std::vector<std::string>& args) {
        return runChild(QELLOG_PATH, args, m_dir.string(), "");
    }
    // Logs `records` into the log folder through the library with the given file size limit.
    void startLogging(unsigned int maxSize) {
        ASSERT_EQ(0, qelLogSetMaxSize(maxSize));
        ASSERT_EQ(0, qelLogSetFileFolder(m_logs.c_str()));
    }
    void log(const std::vector<Written>& records) {
        for (const Written& record : records) {
            ASSERT_EQ(0, qelLogSimplify(record.module.c_str(), record.level, record.text.c_str()));
        }
    }
    // Checks the JSON records against what was logged, in order.
    void expectRecords(const std::vector<Written>& written, const std::vector<Parsed>& parsed) {
        ASSERT_EQ(written.size(), parsed.size());
        const std::string tid = std::to_string(syscall(SYS_gettid));
        for (std::size_t i = 0; i < parsed.size(); ++i) {
            SCOPED_TRACE(i);
            EXPECT_EQ(written[i].module, parsed[i].module);
            EXPECT_EQ(std::string(1, "VIWE"[written[i].level]), parsed[i].level);
            EXPECT_EQ(written[i].text, parsed[i].text);
            EXPECT_EQ("1.8.63", parsed[i].version);
            EXPECT_EQ(tid, parsed[i].tid);
            EXPECT_TRUE(std::regex_match(parsed[i].time, std::regex(R"(\d\d:\d\d:\d\d:\d{1,3})")));
            // Nobody logs across midnight here: the date is the one in the file's name.
            EXPECT_EQ(0u, parsed[i].file.find("QelLog" + parsed[i].date + "-")) << parsed[i].file;
        }
    }

    fs::path m_dir;
    fs::path m_logs;
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
    const std::vector<Written> written = awkwardRecords();
    startLogging(777);
    log(written);
    ASSERT_EQ(0, qelLogConfigFileWriter(false));
    const std::vector<fs::path> files = logFiles(m_logs);
    ASSERT_GT(files.size(), 20u);

    // Plain: the records byte for byte, which is the files read in the order they were made.
    std::string all;
    for (const fs::path& file : files) all += readFile(file);
    ChildResult result = run({"cat", "logs"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ("", result.err);
    EXPECT_TRUE(all == result.out) << "plain output differs from the files";

    result = run({"cat", "--json", "logs"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ("", result.err);
    const std::vector<Parsed> parsed = parseJsonLines(result.out);
    expectRecords(written, parsed);
    // A record is listed under the file in which it starts.
    ASSERT_FALSE(parsed.empty());
    EXPECT_EQ(files[0].filename(), parsed[0].file);
    EXPECT_EQ(files[2].filename(), parsed[1].file);  // the first one filled two files
}

TEST_F(QellogReadTest, CatPrintsBytesThatAreNoRecordWithAWarning) {
    std::vector<Written> written = awkwardRecords();
    startLogging(777);
    log(written);
    ASSERT_EQ(0, qelLogConfigFileWriter(false));
    std::vector<fs::path> files = logFiles(m_logs);
    ASSERT_GT(files.size(), 3u);
    // The oldest file went away: the next one starts inside the first record. The newest file
    // ends in the middle of a record, as after a crash. A foreign file is named by hand.
    fs::remove(files[0]);
    const std::string newest = readFile(files.back());
    writeFile(files.back(), newest.substr(0, newest.size() - 5));
    writeFile(m_dir / "notes.txt", "no header\nhere");

    const ChildResult result = run({"cat", "--json", "logs", "notes.txt"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_NE(std::string::npos, result.err.find(files[1].filename().string() +
                                                 " at byte 0: ")) << result.err;
    EXPECT_NE(std::string::npos, result.err.find("cut off")) << result.err;
    EXPECT_NE(std::string::npos, result.err.find("notes.txt at byte 0: 14 bytes")) << result.err;
    const std::vector<Parsed> parsed = parseJsonLines(result.out);
    ASSERT_EQ(written.size() + 1, parsed.size());

    const Parsed& head = parsed.front();
    EXPECT_EQ("", head.module + head.version + head.level + head.time);
    EXPECT_EQ("None", head.tid);
    EXPECT_EQ(files[1].filename(), head.file);
    EXPECT_EQ(written[0].text.substr(written[0].text.size() - head.text.size()), head.text);
    EXPECT_LT(head.text.size(), written[0].text.size());

    const Parsed& foreign = parsed.back();
    EXPECT_EQ("", foreign.module);
    EXPECT_EQ("notes.txt", foreign.file);
    EXPECT_EQ("", foreign.date);
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
    writeFile(m_logs / "QelLog2026-12-31-23-59-59-990.log",
              "[m][V1.8.63 I 23:59:59:995 7]a\n\n[m][V1.8.63 W 00:00:00:3 7]b\n\n[m][V1.8");
    writeFile(m_logs / "QelLog2027-01-01-00-00-01-0.log",
              ".63 I 00:00:00:900 7]c\n\n[d]]][V1.8.63 E 23:59:59:999 8]d\n\n");
    writeFile(m_logs / "QelLog2027-01-01-00-00-01-5.log", "[m][V1.8.63 I 00:00:01:5 7]e\n\n");
    const ChildResult result = run({"cat", "--json", "logs"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ("", result.err);
    const std::vector<Parsed> parsed = parseJsonLines(result.out);
    ASSERT_EQ(5u, parsed.size());
    const char* dates[] = {"2026-12-31", "2027-01-01", "2027-01-01", "2026-12-31", "2027-01-01"};
    const char* texts[] = {"a", "b", "c", "d", "e"};
    for (std::size_t i = 0; i < parsed.size(); ++i) {
        EXPECT_EQ(dates[i], parsed[i].date) << i;
        EXPECT_EQ(texts[i], parsed[i].text) << i;
    }
    EXPECT_EQ("d]]", parsed[3].module);
    EXPECT_EQ("QelLog2026-12-31-23-59-59-990.log", parsed[2].file);
}

TEST_F(QellogReadTest, FollowEmitsEachRecordOnceAcrossAStopInsideASplitRecord) {
    std::vector<Written> written;
    for (int i = 0; i < 5; ++i) {
        written.push_back({"cam", QEL_LOG_WARNING, "before " + std::to_string(i)});
    }
    // Crosses the limit. Without a console writer an informational record waits in the
    // writer's buffer: the old file is complete on disk, the new one still empty.
    written.push_back({"cam", QEL_LOG_INFO, std::string(1500, 's') + "\nsplit"});
    startLogging(1000);
    log(written);
    const std::string state = (m_dir / "state").string();

    Background first;
    startBackground(first, {"follow", "--json", "--state", state, m_logs.string()},
                    m_dir / "out1");
    ASSERT_EQ(5u, waitForLines(first.out, 5)) << readFile(m_dir / "out1.err");
    std::this_thread::sleep_for(std::chrono::milliseconds(600));  // time to wrongly go on
    EXPECT_EQ(0, first.stop(SIGTERM));
    EXPECT_EQ(5u, lineCount(first.out));

    // The second run follows the rest of the split record and new files as they come.
    Background second;
    startBackground(second, {"follow", "--json", "--state", state, m_logs.string()},
                    m_dir / "out2");
    std::vector<Written> more;
    for (int i = 0; i < 30; ++i) {
        more.push_back(
            {"cam", QEL_LOG_WARNING, "after " + std::to_string(i) + std::string(90, '-')});
    }
    log(more);
    written.insert(written.end(), more.begin(), more.end());
    ASSERT_EQ(31u, waitForLines(second.out, 31)) << readFile(m_dir / "out2.err");
    EXPECT_EQ(0, second.stop(SIGINT));

    // A third run with nothing new prints nothing.
    Background third;
    startBackground(third, {"follow", "--json", "--state", state, m_logs.string()},
                    m_dir / "out3");
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_EQ(0, third.stop(SIGTERM));
    EXPECT_EQ("", readFile(m_dir / "out3"));

    EXPECT_EQ("", readFile(m_dir / "out1.err") + readFile(m_dir / "out2.err"));
    expectRecords(written, parseJsonLines(readFile(first.out) + readFile(second.out)));
    EXPECT_GT(logFiles(m_logs).size(), 3u);
}

TEST_F(QellogReadTest, PruneDeletesOldestLogFilesOnly) {
    fs::create_directory(m_logs);
    // In the order they were made; the last two share a second, and 9 ms comes before 10 ms.
    const std::vector<std::string> names = {
        "QelLog2025-12-31-23-00-00-0.log", "QelLog2026-01-01-08-00-00-0.log",
        "QelLog2026-01-02-08-00-00-0.log", "QelLog2026-01-10-08-00-00-0.log",
        "QelLog2026-02-01-08-00-00-9.log", "QelLog2026-02-01-08-00-00-10.log"};
    for (const std::string& name : names) writeFile(m_logs / name, std::string(100, 'x'));
    const std::vector<std::string> foreign = {"QelLog2020-01-01-00-00-00-05.log",
                                              "QelLog-old.log", "notes.txt",
                                              "QelLog2020-01-01-00-00-00-0.log.1"};
    for (const std::string& name : foreign) writeFile(m_logs / name, "keep");
    fs::create_directory(m_logs / "QelLog2019-01-01-00-00-00-0.log");
    const auto path = [&](std::size_t i) { return (m_logs / names[i]).string(); };
    const auto present = [&] {
        std::vector<std::string> left;
        for (const std::string& name : names) {
            if (fs::exists(m_logs / name)) left.push_back(name);
        }
        return left;
    };

    ChildResult result = run({"prune", "logs", "--keep", "4", "--dry-run"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ("would delete logs/" + names[0] + "\nwould delete logs/" + names[1] + "\n",
              result.out);
    EXPECT_EQ(names, present());

    result = run({"prune", "--keep", "4", "logs"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ("deleted logs/" + names[0] + "\ndeleted logs/" + names[1] + "\n", result.out);

    result = run({"prune", "logs", "--max-total", "250"});  // 400 bytes left: two go
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ(std::vector<std::string>(names.begin() + 4, names.end()), present());

    // Age counts from the last write; the newest file stays even when it is old.
    for (std::size_t i = 4; i < names.size(); ++i) {
        fs::last_write_time(path(i), fs::file_time_type::clock::now() - std::chrono::hours(72));
    }
    result = run({"prune", "logs", "--older-than", "2.5"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ("deleted logs/" + names[4] + "\n", result.out);
    result = run({"prune", "logs", "--keep", "0", "--max-total", "0"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ("", result.out);
    EXPECT_EQ(std::vector<std::string>{names.back()}, present());

    for (const std::string& name : foreign) EXPECT_TRUE(fs::exists(m_logs / name)) << name;
    EXPECT_TRUE(fs::is_directory(m_logs / "QelLog2019-01-01-00-00-00-0.log"));
    EXPECT_EQ(2, run({"prune", "logs"}).exitCode);
    EXPECT_EQ(2, run({"prune", "logs", "--keep", "x"}).exitCode);
}

}  // namespace
