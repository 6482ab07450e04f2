// The built qellog logging: the exact bytes it leaves on the console and in the log files.

#include "tools/qellog_fixture.h"

using namespace qeltest;

namespace {

constexpr std::size_t kRecordText = 2047;

TEST_F(QellogTest, StdinLinesAndMessageWordsBecomeRecords) {
    ChildResult result = run({"-m", "cam", "--level", "W", "--folder", "logs/day1", "-s", "100"},
                             "first line\n\ntab\there\r\nlast without feed");
    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ("", result.err);
    std::vector<Record> records = parseRecords(result.out);
    EXPECT_EQ(std::vector<std::string>({"first line", "", "tab\there\r", "last without feed"}),
              textsOf(records));
    for (const Record& r : records) {
        EXPECT_TRUE(r.module == "cam" && r.level == "W" && r.tid == result.pid);
    }
    EXPECT_EQ(2u, logFiles(m_dir / "logs/day1").size());  // 171 bytes in files of 100
    EXPECT_EQ(result.out, concatenatedLogs(m_dir / "logs/day1"));

    // MESSAGE words are one record, and stdin is not read; no file unless asked for.
    result = run({"-m", "app", "-l", "E", "hello", "big", "world"}, "from stdin\n");
    ASSERT_EQ(0, result.exitCode) << result.err;
    records = parseRecords(result.out);
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("app E hello big world",
              records[0].module + " " + records[0].level + " " + records[0].text);
    EXPECT_TRUE(logFiles(m_dir).empty());

    // Below the threshold: nothing. Console off, file in the working folder, V let through.
    EXPECT_EQ("", run({"--threshold", "E", "--level", "W", "--file", "dropped"}).out +
                      concatenatedLogs(m_dir));
    EXPECT_EQ("", run({"--no-console", "--file", "-t", "V", "-l", "V", "quiet"}).out);
    records = parseRecords(concatenatedLogs(m_dir));
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("qellog V quiet", records[0].module + " " + records[0].level + " " + records[0].text);
}

// A line of two records' worth whose line feed opens the second 64 KiB block gives two records,
// not an empty third; lines of every length then cross the later block boundaries anywhere.
TEST_F(QellogTest, LongLinesArriveWholeInConsecutiveRecords) {
    std::vector<std::string> lines = {std::string(64 * 1024 - 1 - 2 * kRecordText, 'a'),
                                      std::string(2 * kRecordText, 'b')};
    for (std::size_t i = 0, total = 0; total < 300 * 1024; total += lines.back().size() + 1, ++i) {
        lines.emplace_back(i % 8 == 0 ? i * 977 % 7000 : i * 13 % 90, 'c');
        for (std::size_t k = 0; k < lines.back().size(); ++k) lines.back()[k] += (k + i) % 20;
    }
    std::string input;
    for (const std::string& line : lines) input += line + "\n";
    const ChildResult result = run({}, input + std::string("a\0b", 3));
    ASSERT_EQ(0, result.exitCode) << result.err;
    std::vector<std::string> expected;  // each line in pieces of 2047 bytes
    for (const std::string& line : lines) {
        for (std::size_t at = 0; at == 0 || at < line.size(); at += kRecordText) {
            expected.push_back(line.substr(at, kRecordText));
        }
    }
    expected.push_back("a b");  // a NUL byte is logged as a space, and nothing after it is lost
    EXPECT_EQ(expected, textsOf(parseRecords(result.out)));
}

TEST_F(QellogTest, RefusedFolderLogsInTheWorkingDirectoryAndFails) {
    writeFile(m_dir / "blocker", "a file where a folder should be");
    for (const char* folder : {"blocker/sub", "   "}) {
        const ChildResult result = run({"--folder", folder, "still", "logged"});
        EXPECT_EQ(1, result.exitCode);
        // The library's own "mkdir error" line may come first.
        const std::string reason = folder[0] == ' ' ? "The value of the parameter is invalid!"
                                                    : "Failed to open the file! (Not a directory)";
        EXPECT_NE(std::string::npos,
                  result.err.find("qellog: folder '" + std::string(folder) + "' refused: " +
                                  reason + "; logging continues in the working directory\n"))
            << result.err;
        EXPECT_EQ(std::vector<std::string>{"still logged"}, textsOf(parseRecords(result.out)));
        EXPECT_EQ(result.out, concatenatedLogs(m_dir));
        for (const std::string& file : logFiles(m_dir)) std::filesystem::remove(file);
    }
}

}  // namespace
