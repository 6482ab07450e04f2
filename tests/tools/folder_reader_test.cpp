// Reading folders as cat does, in this process, on files that the library or the test made:
// where records end, which file continues which, and what comes with a warning.

#include <qel/log.h>

#include <sys/syscall.h>
#include <unistd.h>

#include "tools/reading.h"

using namespace qeltest;
using qellog::WarningKind;

namespace {

using FolderReaderTest = LogFolderTest;

// The library writes records of every kind into files of 777 bytes: read back, they are the
// files' bytes in the order the files were made, and every field is as it was written.
TEST_F(FolderReaderTest, ReadsBackExactlyWhatTheLibraryWrote) {
    struct Written { std::string module; QelLogLevel level; std::string text; };
    std::vector<Written> written = {
        {"cam", QEL_LOG_WARNING, std::string(1700, 'a') + "\nend of a"},
        {"cam", QEL_LOG_ERROR, "ends with a line feed\n"}, {"cam", QEL_LOG_INFO, ""},
        {"a]b", QEL_LOG_INFO, "[not][a header]\n\n[x][V" QELTEST_VERSION " Q 1:2:3:4 5]still text"},
        {std::string(127, 'm'), QEL_LOG_ERROR, std::string(2047, 'z')},
        {"a\nb]c", static_cast<QelLogLevel>(7), "a level without a letter"}};
    for (int i = 0; i < 40; ++i) {
        const std::string text = "record " + std::to_string(i) + std::string(i * 53 % 1700, 'q');
        written.push_back({"seq", QEL_LOG_INFO, text + (i % 3 == 0 ? "\n\n" : "") + "tail"});
    }
    qelLogConfigConsoleWriter(false);
    ASSERT_TRUE(qelLogSetMaxSize(777) == 0 && qelLogSetFileFolder(m_dir.c_str()) == 0);
    for (const Written& w : written) qelLogSimplify(w.module.c_str(), w.level, w.text.c_str());
    ASSERT_EQ(0, qelLogConfigFileWriter(false));
    ASSERT_GT(logFiles(m_dir).size(), 20u);

    const ReadBack back = read();
    ASSERT_EQ(written.size(), back.records.size());
    std::string bytes;
    for (std::size_t i = 0; i < written.size(); ++i) {
        const qellog::Record& r = back.records[i];
        const char letter = written[i].level < 4 ? "VIWE"[written[i].level] : '?';
        EXPECT_EQ(written[i].module, r.header.module) << i;
        EXPECT_EQ(letter, r.header.level) << i;
        EXPECT_EQ(written[i].text, r.text()) << i;
        EXPECT_EQ(static_cast<unsigned long>(syscall(SYS_gettid)), r.header.threadId);
        EXPECT_EQ(0u, r.file.find("QelLog" + r.date));  // nobody logs at midnight
        bytes += r.bytes;
    }
    EXPECT_EQ(concatenatedLogs(m_dir), bytes);
    EXPECT_TRUE(back.warnings.empty());
}

// The limit went down from 100 to 60 bytes while the writer ran: the size that two files
// which end inside a record share is a limit too, also where a split fell right after the
// first line feed of the empty line that ends a record.
TEST_F(FolderReaderTest, SplitsAtALoweredLimitAreWholeAgain) {
    const std::string a(75 - recordBytes("").size(), 'a'), b(61 - recordBytes("").size(), 'b');
    writeFiles(splitAt(recordBytes(a) + recordBytes(a), 100));
    writeFiles(splitAt(recordBytes(b) + recordBytes(b) + recordBytes("end"), 60), 10);
    ASSERT_EQ('\n', readFile(pathOf(11))[0]);  // the split right after a line feed
    const ReadBack back = read();
    EXPECT_EQ(Texts({a, a, b, b, "end"}), back.texts());
    EXPECT_EQ(Texts(), back.texts(true));
}

// A power cut tore a file inside a record; the writer started a new file with a record, and
// after it the rest of a record whose start was in a file that went away. A run of NUL bytes
// (lost data) ends the record before it.
TEST_F(FolderReaderTest, NothingIsJoinedAcrossATearOrNulBytes) {
    const std::string torn = recordBytes("four") + recordBytes("to");
    writeFiles({recordBytes(std::string(200, 'a')), torn.substr(0, torn.size() - 3),
                "rn\n\n" + recordBytes("five") + std::string(9, '\0') + recordBytes("six")});
    const ReadBack back = read();
    EXPECT_EQ(Texts({std::string(200, 'a'), "four", "t", "rn", "five", std::string(9, '\0'), "six"}),
              back.texts());
    EXPECT_EQ(Texts({"t", "rn", std::string(9, '\0')}), back.texts(true));
    EXPECT_TRUE(back.records[5].zeros);
}

// A stray line in a file of its own is no continuation of the record before it, even when
// that file is the largest of the folder and so looks full.
TEST_F(FolderReaderTest, AFileHoldingOnlyALineThatIsNoRecordIsAPiece) {
    writeFiles({recordBytes("one"), "a line that is no record\n"});
    const ReadBack back = read();
    EXPECT_EQ(Texts({"one", "a line that is no record\n"}), back.texts());
    EXPECT_EQ(Texts{"a line that is no record\n"}, back.texts(true));
}

// The line holds the time of day only: the date starts from the file's name and follows the
// records, across midnight and back when a record made before midnight lands in a file
// named after it.
TEST_F(FolderReaderTest, DatesFollowTheTimeOfDayAcrossMidnight) {
    writeFile(m_dir + "/QelLog2025-12-31-23-59-59-990.log",
              recordBytes("one", "23:59:59:995") + recordBytes("two", "00:00:00:3"));
    writeFile(m_dir + "/QelLog2026-01-01-00-00-00-5.log",
              recordBytes("three", "23:59:59:999") + recordBytes("four", "11:00:00:0"));
    std::string dates;
    for (const qellog::Record& record : read().records) dates += record.date + " ";
    EXPECT_EQ("2025-12-31 2026-01-01 2025-12-31 2026-01-01 ", dates);
}

TEST_F(FolderReaderTest, APathThatCannotBeReadIsWarnedAboutAndTheOthersAreRead) {
    writeFiles({recordBytes("kept")});
    const ReadBack back = read({m_dir + "/missing", m_dir});
    EXPECT_FALSE(m_readOk);
    EXPECT_EQ(std::vector<WarningKind>{WarningKind::CannotRead}, back.warningKinds());
    EXPECT_EQ(Texts{"kept"}, back.texts());
}

// A file named in the future was written before the clock went back.
TEST_F(FolderReaderTest, AFileNamedInTheFutureShowsTheClockWentBack) {
    writeFile(m_dir + "/QelLog2099-01-01-10-00-00-0.log", recordBytes("before the step"));
    writeFiles({recordBytes("after the step")});
    const ReadBack back = read();
    EXPECT_EQ(std::vector<WarningKind>{WarningKind::ClockWentBack}, back.warningKinds());
    EXPECT_EQ(Texts({"after the step", "before the step"}), back.texts());
}

}  // namespace
