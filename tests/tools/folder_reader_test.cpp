// Reading folders as cat does, in this process, on files that the library or the test made.

#include <qel/log.h>

#include <sys/syscall.h>

#include "tools/qellog_fixture.h"

using namespace qeltest;
using qellog::WarningKind;

namespace {

using FolderReaderTest = QellogTest;

// Records of every kind in files of 777 bytes: the files' bytes in order, every field whole.
TEST_F(FolderReaderTest, ReadsBackExactlyWhatTheLibraryWrote) {
    struct Written { std::string module; QelLogLevel level; std::string text; };
    std::vector<Written> written = {
        {"cam", QEL_LOG_WARNING, std::string(1700, 'a') + "\nend of a"},
        {"cam", QEL_LOG_ERROR, "ends with a line feed\n"}, {"cam", QEL_LOG_INFO, ""},
        {"a]b", QEL_LOG_INFO, "[no][header]\n\n[x][V" QELTEST_VERSION " Q 1:2:3:4 5]still text"},
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
        EXPECT_EQ(written[i].module, r.header.module) << i;
        EXPECT_EQ(written[i].level < 4 ? "VIWE"[written[i].level] : '?', r.header.level) << i;
        EXPECT_EQ(written[i].text, r.text()) << i;
        EXPECT_EQ(static_cast<unsigned long>(syscall(SYS_gettid)), r.header.threadId);
        EXPECT_EQ(0u, r.file.find("QelLog" + r.date));  // nobody logs at midnight
        bytes += r.bytes;
    }
    EXPECT_EQ(concatenatedLogs(m_dir), bytes);
    EXPECT_TRUE(back.warnings.empty());
}

// A limit lowered from 100 to 60 bytes: a size that two files ending inside a record share is a
// limit too, also where a split fell between the two line feeds that end a record.
TEST_F(FolderReaderTest, SplitsAtALoweredLimitAreWholeAgain) {
    const std::string a(75 - recordBytes("").size(), 'a'), b(61 - recordBytes("").size(), 'b');
    writeFiles(splitAt(recordBytes(a) + recordBytes(a), 100));
    const Texts lowered = splitAt(recordBytes(b) + recordBytes(b) + recordBytes("end"), 60);
    ASSERT_EQ('\n', lowered[1][0]);  // the split right after a line feed
    EXPECT_EQ(Texts({a, a, b, b, "end"}), followFiles(lowered, 10));
    const ReadBack back = read();
    EXPECT_EQ(Texts({a, a, b, b, "end"}), back.texts());
    EXPECT_EQ(Texts(), back.texts(true));
}

// A stray line in a file of its own continues no record, even after the largest file.
TEST_F(FolderReaderTest, AFileHoldingOnlyALineThatIsNoRecordIsAPiece) {
    const Texts files = {recordBytes("one"), "a line that is no record\n"};
    EXPECT_EQ(Texts({"one", "a line that is no record\n"}), followFiles(files));
    const ReadBack back = read();
    EXPECT_EQ(Texts({"one", "a line that is no record\n"}), back.texts());
    EXPECT_EQ(Texts{"a line that is no record\n"}, back.texts(true));
}

// From the file's name, across midnight and back (a record made before it, in a file after it).
TEST_F(FolderReaderTest, DatesFollowTheTimeOfDayAcrossMidnight) {
    writeFile(m_dir / "QelLog2025-12-31-23-59-59-990.log",
              recordBytes("one", "23:59:59:995") + recordBytes("two", "00:00:00:3"));
    writeFile(m_dir / "QelLog2026-01-01-00-00-00-5.log",
              recordBytes("three", "23:59:59:999") + recordBytes("four", "11:00:00:0"));
    Texts dates;
    for (const qellog::Record& record : read().records) dates.push_back(record.date);
    EXPECT_EQ(Texts({"2025-12-31", "2026-01-01", "2025-12-31", "2026-01-01"}), dates);
}

// A file named in the future was written before the clock went back.
TEST_F(FolderReaderTest, AFileNamedInTheFutureShowsTheClockWentBack) {
    writeFile(m_dir / "QelLog2099-01-01-10-00-00-0.log", recordBytes("before the step"));
    writeFiles({recordBytes("after the step")});
    const ReadBack back = read();
    EXPECT_EQ(std::vector<WarningKind>{WarningKind::ClockWentBack}, back.warningKinds());
    EXPECT_EQ(Texts({"after the step", "before the step"}), back.texts());
}

}  // namespace
