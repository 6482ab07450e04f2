#ifndef QEL_TESTS_TOOLS_QELLOG_FIXTURE_H_
#define QEL_TESTS_TOOLS_QELLOG_FIXTURE_H_

// What the qellog tests share: a fresh folder per test, in which the built tool runs as a child
// process, and the record parser of the log tests for what it writes.

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace qeltest {

// The texts of records, as parsed from the console or from JSON.
template <typename Parsed>
std::vector<std::string> textsOf(const std::vector<Parsed>& records) {
    std::vector<std::string> texts;
    for (const Parsed& record : records) texts.push_back(record.text);
    return texts;
}

class QellogTest : public ::testing::Test {
protected:
    // Runs `program` with `args` in the test's folder, `input` read from a regular file on its
    // standard input, so that the tool's reads fill whole blocks.
    ChildResult run(const std::vector<std::string>& args, const std::string& input = "",
                    const char* program = QELLOG_PATH) {
        const std::string inputPath = (m_dir / "stdin.txt").string();
        writeFile(inputPath, input);
        std::vector<char*> argv{const_cast<char*>(program)};  // made before the fork
        for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
        argv.push_back(nullptr);
        return runChild([&] {
            const int in = open(inputPath.c_str(), O_RDONLY);
            if (in < 0 || dup2(in, STDIN_FILENO) < 0 || chdir(m_dir.c_str()) != 0) return 126;
            execv(program, argv.data());
            return 127;
        });
    }

    TempDir m_folder;
    const std::filesystem::path m_dir{m_folder.path()};
};

}  // namespace qeltest

#endif  // QEL_TESTS_TOOLS_QELLOG_FIXTURE_H_
