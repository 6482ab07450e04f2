#ifndef QEL_TESTS_TOOLS_QELLOG_FIXTURE_H_
#define QEL_TESTS_TOOLS_QELLOG_FIXTURE_H_

// What the tests of the built tool share: a fresh folder per test in which it runs as a child
// process, and a follow run that goes on beside the test.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace qeltest {

// The texts of records parsed from the console.
inline std::vector<std::string> textsOf(const std::vector<Record>& records) {
    std::vector<std::string> texts;
    for (const Record& record : records) texts.push_back(record.text);
    return texts;
}

// A run of qellog `args` whose output goes into dir/`name` (and dir/`name`.err) while the test
// goes on. Started with posix_spawn rather than fork: the library pushes its buffered records out
// before a fork, and a test may need a record to stay in the buffer.
struct Follower {
    pid_t pid = -1;
    std::string out;

    Follower(const std::string& dir, const char* name, const std::vector<std::string>& args)
        : out(dir + "/" + name) {
        std::vector<char*> argv{const_cast<char*>(QELLOG_PATH)};
        for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT, 0644);
        posix_spawn_file_actions_addopen(&actions, 2, (out + ".err").c_str(),
                                         O_WRONLY | O_CREAT, 0644);
        EXPECT_EQ(0, posix_spawn(&pid, QELLOG_PATH, &actions, nullptr, argv.data(), environ));
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Follower() { if (pid > 0) stop(SIGKILL); }
    // Sends `signal` and returns the exit code (128 + signal when the signal ended it).
    int stop(int signal) {
        int status = 0;
        kill(pid, signal);
        waitpid(std::exchange(pid, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    // Waits up to `seconds` for the output (with `suffix` ".err": the errors) to hold `count`
    // lines; returns how many it holds.
    std::size_t lines(std::size_t count = 0, int seconds = 20, const char* suffix = "") const {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
        for (;; std::this_thread::sleep_for(std::chrono::milliseconds(20))) {
            const std::size_t got = countOf(readFile(out + suffix), "\n");
            if (got >= count || std::chrono::steady_clock::now() > deadline) return got;
        }
    }
};

class QellogTest : public ::testing::Test {
protected:
    // Runs the tool with `args` in the test's folder, `input` read from a regular file on its
    // standard input, so that the tool's reads fill whole blocks.
    ChildResult run(const std::vector<std::string>& args, const std::string& input = "") {
        const std::string inputPath = (m_dir / "stdin.txt").string();
        writeFile(inputPath, input);
        std::vector<char*> argv{const_cast<char*>(QELLOG_PATH)};  // made before the fork
        for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
        argv.push_back(nullptr);
        return runChild([&] {
            const int in = open(inputPath.c_str(), O_RDONLY);
            if (in < 0 || dup2(in, STDIN_FILENO) < 0 || chdir(m_dir.c_str()) != 0) return 126;
            execv(QELLOG_PATH, argv.data());
            return 127;
        });
    }

    TempDir m_folder;
    const std::filesystem::path m_dir{m_folder.path()};
};

}  // namespace qeltest

#endif  // QEL_TESTS_TOOLS_QELLOG_FIXTURE_H_
