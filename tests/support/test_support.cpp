#include "support/test_support.h"

#include <ftw.h>
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include <gtest/gtest.h>

namespace qeltest {

long long g_wallMicros = -1;

}  // namespace qeltest

extern "C" int gettimeofday(struct timeval* now, void*) noexcept {
    timespec real;
    clock_gettime(CLOCK_REALTIME, &real);
    const long long micros = qeltest::g_wallMicros >= 0
                                 ? qeltest::g_wallMicros
                                 : real.tv_sec * 1000000LL + real.tv_nsec / 1000;
    *now = {static_cast<time_t>(micros / 1000000), static_cast<suseconds_t>(micros % 1000000)};
    return 0;
}

namespace qeltest {

TempDir::TempDir() {
    char pattern[] = "/tmp/qel-test-XXXXXX";
    EXPECT_NE(nullptr, mkdtemp(pattern)) << "cannot make a temporary folder";
    m_path = pattern;
}

TempDir::~TempDir() {
    removeTree(m_path);
}

ChildResult runChild(const std::function<int()>& body, int timeoutSeconds) {
    ChildResult result;
    result.folder = std::make_shared<TempDir>();
    result.dir = result.folder->path();
    const std::string outPath = *result.folder / ".stdout", errPath = *result.folder / ".stderr";
    fflush(nullptr);
    result.pid = fork();
    if (result.pid == 0) {
        // SIGALRM ends a child that hangs; a body that wants the alarm for itself re-arms it.
        alarm(timeoutSeconds);
        if (chdir(result.dir.c_str()) != 0 || !freopen(outPath.c_str(), "w", stdout) ||
            !freopen(errPath.c_str(), "w", stderr)) {
            _exit(120);
        }
        exit(body());
    }
    int status = 0;
    waitpid(result.pid, &status, 0);
    result.finished = !WIFSIGNALED(status) || WTERMSIG(status) != SIGALRM;
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    result.out = readFile(outPath);
    result.err = readFile(errPath);
    return result;
}

std::vector<Record> parseRecords(const std::string& output) {
    static const std::regex kRecord(
        R"(\[([^\]]*)\]\[V)" + std::regex_replace(QELTEST_VERSION, std::regex(R"(\.)"), R"(\.)") +
        R"( ([VIWE?]) (\d{2}:\d{2}:\d{2}:(?:0|[1-9]\d{0,2})) (\d+)\]([^\n]*)\n\n)");
    std::vector<Record> records;
    std::smatch match;
    for (auto at = output.cbegin(); at != output.cend(); at = match[0].second) {
        if (!std::regex_search(at, output.cend(), match, kRecord,
                               std::regex_constants::match_continuous)) {
            ADD_FAILURE() << "not a record: " << std::string(at, output.cend()).substr(0, 200);
            break;
        }
        records.push_back({match[1], match[2], match[3], match[5], std::stol(match[4])});
    }
    return records;
}

std::string summary(const std::string& output) {
    std::string records;
    for (const Record& record : parseRecords(output)) {
        records += record.module + " " + record.level + " " + record.text + "|";
    }
    return records;
}

std::string readFile(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

void removeTree(const std::string& path) {
    auto removeOne = [](const char* name, const struct stat*, int, struct FTW*) {
        return remove(name), 0;
    };
    nftw(path.c_str(), removeOne, 16, FTW_DEPTH | FTW_PHYS);
}

size_t countOf(const std::string& text, const std::string& needle) {
    size_t count = 0;
    for (size_t at = text.find(needle); at != std::string::npos;
         at = text.find(needle, at + needle.size())) {
        ++count;
    }
    return count;
}

std::vector<std::string> logFiles(const std::string& dir) {
    // The milliseconds are unpadded: the names sort by their time once those are padded.
    static const std::regex kName(R"(QelLog([\d-]+-)(\d{1,3})\.log)");
    std::vector<std::pair<std::string, std::string>> found;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(dir, error)) {
        const std::string name = entry.path().filename().string();
        std::smatch match;
        if (std::regex_match(name, match, kName)) {
            const std::string millis = std::string(3 - match.length(2), '0') + match[2].str();
            found.emplace_back(match[1].str() + millis, dir + "/" + name);
        }
    }
    std::sort(found.begin(), found.end());
    std::vector<std::string> paths;
    for (const auto& file : found) {
        paths.push_back(file.second);
    }
    return paths;
}

std::string concatenatedLogs(const std::string& dir) {
    std::string all;
    for (const auto& path : logFiles(dir)) {
        all += readFile(path);
    }
    return all;
}

}  // namespace qeltest
