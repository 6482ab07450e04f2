#ifndef QEL_TESTS_TOOLS_QELLOG_FIXTURE_H_
#define QEL_TESTS_TOOLS_QELLOG_FIXTURE_H_

// What the qellog tests share: a fresh folder per test, the built tool run in it as a child,
// log files made by hand, and what the reading library hands out of them in this process.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "read/folder_follower.h"
#include "read/folder_reader.h"
#include "support/test_support.h"

namespace qeltest {

using Texts = std::vector<std::string>;

// `words` as an argument vector (pointers into them, and a null), after `program` if given.
inline std::vector<char*> argvOf(const std::vector<std::string>& words, const char* program = 0) {
    std::vector<char*> argv;
    if (program != nullptr) argv.push_back(const_cast<char*>(program));
    for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    return argv;
}

// Calls `parser` with `words` as its argc and argv, then `rest`.
template <typename Parser, typename... Rest>
int parseWords(Parser parser, const std::vector<std::string>& words, Rest&&... rest) {
    std::vector<char*> argv = argvOf(words);
    return parser(static_cast<int>(words.size()), argv.data(), std::forward<Rest>(rest)...);
}

// Removes the facts a writer records beside the log files of `dir`, as a copy without them does.
inline void dropFacts(const std::string& dir) {
    for (const std::string& path : logFiles(dir)) {
        for (const char* fact : {"writer", "number", "continues", "zone"}) {
            removexattr(path.c_str(), (std::string("user.qel.") + fact).c_str());
        }
    }
}

inline std::string recordBytes(const std::string& text, const char* time = "10:00:00:0") {
    return std::string("[m][V" QELTEST_VERSION " I ") + time + " 7]" + text + "\n\n";
}

// `bytes` as a writer leaves them at the size limit `limit`: split wherever the limit falls.
inline Texts splitAt(const std::string& bytes, std::size_t limit) {
    Texts files;
    for (std::size_t at = 0; at < bytes.size(); at += limit) {
        files.push_back(bytes.substr(at, limit));
    }
    return files;
}

// What reading handed out; a sink for both records and warnings (pass it as std::ref).
struct ReadBack {
    std::vector<qellog::Record> records;
    std::vector<qellog::ReadWarning> warnings;

    // The texts of all records, or of those read with a warning (pieces, cut, NUL bytes).
    Texts texts(bool notWhole = false) const {
        Texts texts;
        for (const qellog::Record& record : records) {
            if (!notWhole || !record.whole()) texts.push_back(record.text());
        }
        return texts;
    }
    void operator()(const qellog::Record& record) { records.push_back(record); }
    void operator()(const qellog::ReadWarning& warning) { warnings.push_back(warning); }
    std::vector<qellog::WarningKind> warningKinds() const {
        std::vector<qellog::WarningKind> kinds;
        for (const qellog::ReadWarning& warning : warnings) kinds.push_back(warning.kind);
        return kinds;
    }
};

inline std::vector<std::string> textsOf(const std::vector<Record>& records) {
    std::vector<std::string> texts;
    for (const Record& record : records) texts.push_back(record.text);
    return texts;
}

// A run of qellog `args` beside the test, its output in dir/`name` and dir/`name`.err. Spawned,
// not forked: a fork would push out the records that the test's library holds.
struct Follower {
    pid_t pid = -1;
    std::string out;

    Follower(const std::string& dir, const char* name, const std::vector<std::string>& args)
        : out(dir + "/" + name) {
        std::vector<char*> argv = argvOf(args, QELLOG_PATH);
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
    // Waits up to `seconds` for the output (`suffix` ".err": the errors) to hold `count` lines.
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
    // Runs the tool in the test's folder, `input` on its standard input from a regular file;
    // `setup` (limits, say) runs in the child just before the tool starts.
    ChildResult run(const std::vector<std::string>& args, const std::string& input = "",
                    const std::function<void()>& setup = nullptr) {
        const std::string inputPath = (m_dir / "stdin.txt").string();
        writeFile(inputPath, input);
        std::vector<char*> argv = argvOf(args, QELLOG_PATH);  // made before the fork
        return runChild([&] {
            const int in = open(inputPath.c_str(), O_RDONLY);
            if (in < 0 || dup2(in, STDIN_FILENO) < 0 || chdir(m_dir.c_str()) != 0) return 126;
            if (setup) setup();
            execv(QELLOG_PATH, argv.data());
            return 127;
        });
    }

    static constexpr long long kSettle = qellog::FolderFollower::kSettleMs;

    // The path of the file that the writer opens `n` milliseconds after 10:00 on 2026-01-01.
    std::string pathOf(int n) const {
        return (m_dir / ("QelLog2026-01-01-10-00-0" + std::to_string(n / 1000) + "-" +
                         std::to_string(n % 1000) + ".log")).string();
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
        qellog::readPaths(paths.empty() ? Texts{m_dir} : paths, std::ref(back), std::ref(back));
        return back;
    }
    // A follower of the folder on the test's clock, handing out into `back`.
    std::unique_ptr<qellog::FolderFollower> follower(ReadBack& back) {
        return std::unique_ptr<qellog::FolderFollower>(new qellog::FolderFollower(
            m_dir, std::ref(back), std::ref(back), [this] { return m_now; }));
    }
    // A pass of the test's follower `ms` after the one before; the texts handed out so far.
    Texts passAfter(long long ms = 0) {
        m_now += ms;
        m_follower->pass();
        return m_followed.texts();
    }
    // A pass that sees what the files hold now, and one after the settle time.
    Texts settle() {
        passAfter();
        return passAfter(kSettle);
    }
    // Follows the folder, then `files` as they come one by one (number `first` on), settled.
    Texts followFiles(const Texts& files, int first = 0) {
        settle();
        for (const std::string& bytes : files) {
            writeFile(pathOf(first++), bytes);
            settle();
        }
        return m_followed.texts();
    }

    TempDir m_folder;
    const std::filesystem::path m_dir{m_folder.path()};
    long long m_now = 1000;
    ReadBack m_followed;
    std::unique_ptr<qellog::FolderFollower> m_follower = follower(m_followed);
};

}  // namespace qeltest

#endif  // QEL_TESTS_TOOLS_QELLOG_FIXTURE_H_
