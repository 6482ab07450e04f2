// Runs the built qellog as a child process in a fresh folder and checks the exact bytes it
// leaves on the console and in the log files.

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/child_process.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kRecordText = 2047;

struct Record {
    std::string module;
    char level = '?';
    unsigned long threadId = 0;
    std::string text;
};

// Reads `minDigits` to `maxDigits` decimal digits at bytes[at], moving `at` past them.
bool readNumber(const std::string& bytes, std::size_t& at, int minDigits, int maxDigits,
                unsigned long& value) {
    value = 0;
    int digits = 0;
    while (digits < maxDigits && at < bytes.size() && bytes[at] >= '0' && bytes[at] <= '9') {
        value = value * 10 + static_cast<unsigned long>(bytes[at++] - '0');
        ++digits;
    }
    return digits >= minDigits;
}

bool readLiteral(const std::string& bytes, std::size_t& at, const std::string& literal) {
    if (bytes.compare(at, literal.size(), literal) != 0) return false;
    at += literal.size();
    return true;
}

// Reads the header "[module][V1.8.63 L hh:mm:ss:ms tid]" at bytes[at], moving `at` past it.
bool readHeader(const std::string& bytes, std::size_t& at, Record& record) {
    const std::size_t moduleEnd = bytes.find(']', at);
    if (bytes[at] != '[' || moduleEnd == std::string::npos) return false;
    record.module = bytes.substr(at + 1, moduleEnd - at - 1);
    at = moduleEnd + 1;
    if (!readLiteral(bytes, at, "[V1.8.63 ") || at >= bytes.size()) return false;
    record.level = bytes[at++];
    unsigned long hours, minutes, seconds, milliseconds;
    return std::string("VIWE").find(record.level) != std::string::npos &&
           readLiteral(bytes, at, " ") && readNumber(bytes, at, 2, 2, hours) && hours < 24 &&
           readLiteral(bytes, at, ":") && readNumber(bytes, at, 2, 2, minutes) && minutes < 60 &&
           readLiteral(bytes, at, ":") && readNumber(bytes, at, 2, 2, seconds) && seconds < 61 &&
           readLiteral(bytes, at, ":") && readNumber(bytes, at, 1, 3, milliseconds) &&
           readLiteral(bytes, at, " ") && readNumber(bytes, at, 1, 10, record.threadId) &&
           readLiteral(bytes, at, "]");
}

// Splits log bytes (console or file) into records of the form
// "[module][V1.8.63 L hh:mm:ss:ms tid]text\n\n". Fails the test at the first byte that does not
// belong to such a record. The texts must not hold a line feed.
std::vector<Record> parseRecords(const std::string& bytes) {
    std::vector<Record> records;
    std::size_t pos = 0;
    while (pos < bytes.size()) {
        Record record;
        std::size_t textBegin = pos;
        if (!readHeader(bytes, textBegin, record)) {
            ADD_FAILURE() << "no record header at byte " << pos << ": " << bytes.substr(pos, 80);
            break;
        }
        const std::size_t textEnd = bytes.find("\n\n", textBegin);
        if (textEnd == std::string::npos || bytes.find('\n', textBegin) != textEnd) {
            ADD_FAILURE() << "record at byte " << pos << " does not end in an empty line";
            break;
        }
        record.text = bytes.substr(textBegin, textEnd - textBegin);
        records.push_back(record);
        pos = textEnd + 2;
    }
    return records;
}

// The record texts that logging `lines` should give: each line in pieces of 2047 bytes.
std::vector<std::string> recordTexts(const std::vector<std::string>& lines) {
    std::vector<std::string> texts;
    for (const std::string& line : lines) {
        std::size_t at = 0;
        do {
            texts.push_back(line.substr(at, kRecordText));
            at += kRecordText;
        } while (at < line.size());
    }
    return texts;
}

std::vector<std::string> textsOf(const std::vector<Record>& records) {
    std::vector<std::string> texts;
    for (const Record& record : records) texts.push_back(record.text);
    return texts;
}

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

// The log files in `folder`, oldest first. Names are QelLog<yyyy-mm-dd-hh-mm-ss-ms>.log with
// unpadded milliseconds, never reused within a millisecond, so the numbers of the time order
// them.
std::vector<fs::path> logFiles(const fs::path& folder) {
    std::vector<std::pair<std::vector<unsigned long>, fs::path>> found;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        std::vector<unsigned long> time(7);
        std::size_t at = 0;
        bool ok = readLiteral(name, at, "QelLog");
        for (std::size_t i = 0; ok && i < time.size(); ++i) {
            ok = (i == 0 || readLiteral(name, at, "-")) && readNumber(name, at, 1, 4, time[i]);
        }
        if (ok && readLiteral(name, at, ".log") && at == name.size()) {
            found.push_back({time, entry.path()});
        }
    }
    std::sort(found.begin(), found.end());
    std::vector<fs::path> files;
    for (const auto& item : found) files.push_back(item.second);
    return files;
}

class QellogTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "qellog-test-XXXXXX").string();
        ASSERT_NE(nullptr, mkdtemp(&pattern[0]));
        m_dir = pattern;
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(m_dir, ignored);
    }
    ChildResult run(const std::vector<std::string>& args, const std::string& input = "") {
        return runChild(QELLOG_PATH, args, m_dir.string(), input);
    }

    fs::path m_dir;
};

TEST_F(QellogTest, StdinLinesAreRecordsOnConsoleAndInFile) {
    const ChildResult result =
        run({"-m", "cam", "--level", "W", "--folder", "logs/day1"},
            "first line\n\ntab\there\r\nlast without feed");
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ("", result.err);

    const std::vector<Record> records = parseRecords(result.out);
    const std::vector<std::string> expected = {"first line", "", "tab\there\r",
                                               "last without feed"};
    EXPECT_EQ(expected, textsOf(records));
    for (const Record& record : records) {
        EXPECT_EQ("cam", record.module);
        EXPECT_EQ('W', record.level);
        EXPECT_EQ(static_cast<unsigned long>(result.pid), record.threadId);
    }
    // The file carries the very same lines as the console.
    const std::vector<fs::path> files = logFiles(m_dir / "logs/day1");
    ASSERT_EQ(1u, files.size());
    EXPECT_EQ(result.out, readFile(files[0]));
}

TEST_F(QellogTest, MessageWordsAreOneRecordAndWritersFollowTheSwitches) {
    ChildResult result = run({"-m", "app", "-l", "E", "hello", "big", "world"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    std::vector<Record> records = parseRecords(result.out);
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("app", records[0].module);
    EXPECT_EQ('E', records[0].level);
    EXPECT_EQ("hello big world", records[0].text);
    EXPECT_TRUE(logFiles(m_dir).empty()) << "no log file unless asked for";

    // Below the threshold: nothing anywhere.
    result = run({"--threshold", "E", "--level", "W", "--file", "dropped"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ("", result.out);
    std::vector<fs::path> files = logFiles(m_dir);
    ASSERT_EQ(1u, files.size());
    EXPECT_EQ("", readFile(files[0]));
    fs::remove(files[0]);

    // Console off, file in the working directory, verbose records let through.
    result = run({"--no-console", "--file", "-t", "V", "-l", "V", "quiet"});
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ("", result.out);
    files = logFiles(m_dir);
    ASSERT_EQ(1u, files.size());
    records = parseRecords(readFile(files[0]));
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("qellog", records[0].module);
    EXPECT_EQ('V', records[0].level);
    EXPECT_EQ("quiet", records[0].text);
}

TEST_F(QellogTest, LongLinesContinueInTheNextRecords) {
    std::string line5000;
    for (int i = 0; line5000.size() < 5000; ++i) line5000 += std::to_string(i) + ",";
    line5000.resize(5000);
    const std::string line4094(4094, 'x');  // two full records and no empty third one
    const ChildResult result =
        run({}, line5000 + "\n" + line4094 + "\n" + std::string("a\0b", 3));
    ASSERT_EQ(0, result.exitCode) << result.err;

    const std::vector<std::string> texts = textsOf(parseRecords(result.out));
    const std::vector<std::string> expected = {
        line5000.substr(0, 2047), line5000.substr(2047, 2047), line5000.substr(4094),
        line4094.substr(0, 2047), line4094.substr(2047),
        "a b"};  // a NUL byte is logged as a space, and nothing after it is lost
    EXPECT_EQ(expected, texts);
}

// From a regular file the tool reads whole 64 KiB blocks, so the input below puts the end of the
// first block exactly after two records' worth of a line whose line feed opens the second
// block: that line must give two records, not two and an empty third.
TEST_F(QellogTest, LineEndingAtABlockBoundaryGivesNoEmptyRecord) {
    const std::vector<std::string> lines = {std::string(64 * 1024 - 1 - 2 * kRecordText, 'a'),
                                            std::string(2 * kRecordText, 'b'), "after"};
    std::ofstream(m_dir / "input.txt", std::ios::binary)
        << lines[0] << "\n" << lines[1] << "\n" << lines[2] << "\n";
    const ChildResult result =
        runChild("/bin/sh", {"-c", "exec \"$0\" < input.txt", QELLOG_PATH}, m_dir.string(), "");
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ(recordTexts(lines), textsOf(parseRecords(result.out)));
}

// Lines of every length up to a few records, enough to cross many 64 KiB read boundaries in
// every position, arrive complete and in order.
TEST_F(QellogTest, ManyLinesOfMixedLengthArriveInOrder) {
    std::vector<std::string> lines;
    std::string input;
    unsigned int seed = 12345;
    while (input.size() < 400 * 1024) {
        seed = seed * 1103515245u + 12345u;
        const std::size_t length = (seed >> 8) % 8 == 0 ? (seed >> 12) % 7000 : (seed >> 12) % 90;
        std::string line(length, 'a');
        for (std::size_t i = 0; i < length; ++i) line[i] = static_cast<char>('a' + (i + seed) % 26);
        lines.push_back(line);
        input += line + "\n";
    }
    const ChildResult result = run({}, input);
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ(recordTexts(lines), textsOf(parseRecords(result.out)));
}

TEST_F(QellogTest, MaxSizeRotatesFilesByteExactly) {
    std::vector<std::string> lines;
    std::string input;
    for (int i = 1; i <= 200; ++i) {
        lines.push_back("record number " + std::to_string(i));
        input += lines.back() + "\n";
    }
    const ChildResult result = run({"--no-console", "--folder", "logs", "--max-size", "1K"}, input);
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ("", result.out);

    const std::vector<fs::path> files = logFiles(m_dir / "logs");
    ASSERT_GE(files.size(), 8u);  // 200 records of about 50 bytes each
    std::string stream;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const std::string content = readFile(files[i]);
        if (i + 1 < files.size()) {
            EXPECT_EQ(1024u, content.size()) << files[i];
        } else {
            EXPECT_GT(content.size(), 0u);
            EXPECT_LE(content.size(), 1024u);
        }
        stream += content;
    }
    EXPECT_EQ(lines, textsOf(parseRecords(stream)));
}

TEST_F(QellogTest, BadInputIsAUsageError) {
    const struct {
        std::vector<std::string> args;
        const char* message;
    } cases[] = {
        {{"--bogus"}, "qellog: unknown option '--bogus'"},
        {{"-q"}, "qellog: unknown option '-q'"},
        {{"--level"}, "qellog: option --level needs an argument"},
        {{"-s"}, "qellog: option --max-size needs an argument"},
        {{"--level", "X", "text"}, "qellog: bad level 'X' for --level"},
        {{"-t", "II", "text"}, "qellog: bad level 'II' for --threshold"},
        {{"--max-size", "4G", "text"}, "qellog: bad size '4G' for --max-size"},
        {{"--max-size", "4294967296", "text"}, "qellog: bad size '4294967296'"},
        {{"--max-size", "99999999999999999999", "text"}, "qellog: bad size"},
        {{"--max-size", "12Q", "text"}, "qellog: bad size '12Q'"},
        {{"--max-size", "-1", "text"}, "qellog: bad size '-1'"},
        {{"--max-size", "K", "text"}, "qellog: bad size 'K'"},
        {{"--explain", "0x80300002", "text"}, "qellog: --explain takes no MESSAGE"},
    };
    for (const auto& c : cases) {
        const ChildResult result = run(c.args, "from stdin\n");
        EXPECT_EQ(2, result.exitCode) << c.message;
        EXPECT_EQ(0u, result.err.rfind(c.message, 0)) << result.err;
        EXPECT_EQ(1, std::count(result.err.begin(), result.err.end(), '\n')) << result.err;
        EXPECT_EQ("", result.out) << c.message;
    }
    // The largest limit that fits is taken.
    const ChildResult largest = run({"--max-size", "4294967295", "fits"});
    EXPECT_EQ(0, largest.exitCode) << largest.err;
    EXPECT_EQ(1u, parseRecords(largest.out).size());
}

TEST_F(QellogTest, RefusedFolderLogsInTheWorkingDirectoryAndFails) {
    std::ofstream(m_dir / "blocker") << "a file where a folder should be";
    ChildResult result = run({"--folder", "blocker/sub", "still", "logged"});
    EXPECT_EQ(1, result.exitCode);
    // The library's own "mkdir error" line may come first; ours is the last one.
    EXPECT_NE(std::string::npos,
              result.err.find("qellog: folder 'blocker/sub' refused: Failed to open the file!; "
                              "logging continues in the working directory\n"))
        << result.err;
    EXPECT_EQ(std::vector<std::string>{"still logged"}, textsOf(parseRecords(result.out)));
    std::vector<fs::path> files = logFiles(m_dir);
    ASSERT_EQ(1u, files.size());
    EXPECT_EQ(result.out, readFile(files[0]));
    fs::remove(files[0]);

    // A blank folder changes nothing in the library; the tool still logs to a file here.
    result = run({"--folder", "   ", "blank"});
    EXPECT_EQ(1, result.exitCode);
    EXPECT_EQ("qellog: folder '   ' refused: The value of the parameter is invalid!; logging "
              "continues in the working directory\n",
              result.err);
    files = logFiles(m_dir);
    ASSERT_EQ(1u, files.size());
    EXPECT_EQ(result.out, readFile(files[0]));
}

TEST_F(QellogTest, ExplainLooksUpErrorCodes) {
    for (const char* code : {"0x80300002", "0X80300002", "2150629378", "-2144337918"}) {
        const ChildResult result = run({"--explain", code});
        EXPECT_EQ(0, result.exitCode) << code;
        EXPECT_EQ("Failed to open the file!\n", result.out) << code;
        EXPECT_EQ("", result.err) << code;
    }
    ChildResult result = run({"-x", "0x8030010a"});
    EXPECT_EQ("Wait timeout!\n", result.out);

    result = run({"--explain", "0x80300003"});
    EXPECT_EQ(1, result.exitCode);
    EXPECT_EQ("", result.out);
    EXPECT_EQ("qellog: error code 0x80300003 has no message\n", result.err);

    for (const char* code : {"zz", "0x", "0x1FFFFFFFF", "12a", ""}) {
        result = run({"--explain", code});
        EXPECT_EQ(2, result.exitCode) << code;
        EXPECT_EQ(0u, result.err.rfind("qellog: bad error code", 0)) << result.err;
    }
}

TEST_F(QellogTest, HelpAndVersion) {
    ChildResult result = run({"--version"});
    EXPECT_EQ(0, result.exitCode);
    EXPECT_EQ("qellog 1.8.63\n", result.out);

    result = run({"-h"});
    EXPECT_EQ(0, result.exitCode);
    EXPECT_EQ(0u, result.out.rfind("Usage: qellog [OPTION]... [MESSAGE]...\n", 0));
    EXPECT_NE(std::string::npos, result.out.find("--max-size N[K|M|G]"));
}

}  // namespace
