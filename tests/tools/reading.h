#ifndef QEL_TESTS_TOOLS_READING_H_
#define QEL_TESTS_TOOLS_READING_H_

// What the in-process tests of the reading library share: log folders made by hand in a fresh
// temporary folder, records as the writer writes them, and what reading hands out.

#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "read/folder_reader.h"
#include "support/test_support.h"

namespace qeltest {

using Texts = std::vector<std::string>;

// Calls `parser` with `words` as its argc and argv, then `rest`.
template <typename Parser, typename... Rest>
int parseWords(Parser parser, const std::vector<std::string>& words, Rest&&... rest) {
    std::vector<char*> argv;
    for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    return parser(static_cast<int>(words.size()), argv.data(), std::forward<Rest>(rest)...);
}

// A record as the writer writes it: the header, the text and an empty line.
inline std::string recordBytes(const std::string& text, const char* time = "10:00:00:0") {
    return std::string("[m][V" QELTEST_VERSION " I ") + time + " 7]" + text + "\n\n";
}

// `bytes` as a writer with the size limit `limit` leaves them: each file filled up to the
// limit, a record that does not fit split where the limit falls.
inline Texts splitAt(const std::string& bytes, std::size_t limit) {
    Texts files;
    for (std::size_t at = 0; at < bytes.size(); at += limit) {
        files.push_back(bytes.substr(at, limit));
    }
    return files;
}

// What reading handed out.
struct ReadBack {
    std::vector<qellog::Record> records;
    std::vector<qellog::ReadWarning> warnings;

    // The texts of all records, or only of those read with a warning (pieces, cut, NUL bytes).
    Texts texts(bool notWhole = false) const {
        Texts texts;
        for (const qellog::Record& record : records) {
            if (!notWhole || !record.whole()) texts.push_back(record.text());
        }
        return texts;
    }
    std::vector<qellog::WarningKind> warningKinds() const {
        std::vector<qellog::WarningKind> kinds;
        for (const qellog::ReadWarning& warning : warnings) kinds.push_back(warning.kind);
        return kinds;
    }
    qellog::RecordSink recordSink() {
        return [this](const qellog::Record& record) { records.push_back(record); };
    }
    qellog::WarningSink warningSink() {
        return [this](const qellog::ReadWarning& warning) { warnings.push_back(warning); };
    }
};

class LogFolderTest : public ::testing::Test {
protected:
    // The path of the file that the writer opens `n` milliseconds after 10:00 on 2026-01-01.
    std::string pathOf(int n) const {
        return m_dir + "/QelLog2026-01-01-10-00-0" + std::to_string(n / 1000) + "-" +
               std::to_string(n % 1000) + ".log";
    }
    // Writes `files` as the folder's files number `first`, `first` + 1, ...
    void writeFiles(const Texts& files, int first = 0) {
        for (const std::string& bytes : files) writeFile(pathOf(first++), bytes);
    }
    void append(int n, const std::string& bytes) {
        std::ofstream(pathOf(n), std::ios::binary | std::ios::app) << bytes;
    }
    // Reads `paths` (by default the folder) as cat does.
    ReadBack read(const Texts& paths = {}) {
        ReadBack back;
        m_readOk = qellog::readPaths(paths.empty() ? Texts{m_dir} : paths, back.recordSink(),
                                     back.warningSink());
        return back;
    }

    TempDir m_folder;
    const std::string m_dir = m_folder.path();
    bool m_readOk = false;
};

}  // namespace qeltest

#endif  // QEL_TESTS_TOOLS_READING_H_
