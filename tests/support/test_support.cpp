#include "support/test_support.h"

#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

namespace qeltest {

TempDir::TempDir() {
    char pattern[] = "/tmp/qel-test-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        ADD_FAILURE() << "cannot make a temporary folder";
    }
    m_path = pattern;
}

TempDir::~TempDir() {
    removeTree(m_path);
}

ChildResult runChild(const std::function<int()>& body, int timeoutSeconds) {
    ChildResult result;
    result.folder = std::make_shared<TempDir>();
    result.dir = result.folder->path();
    const std::string outPath = *result.folder / ".stdout";
    const std::string errPath = *result.folder / ".stderr";
    fflush(nullptr);
    const pid_t pid = fork();
    result.pid = pid;
    if (pid == 0) {
        if (chdir(result.dir.c_str()) != 0) {
            _exit(120);
        }
        const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(out, 1);
        dup2(err, 2);
        close(out);
        close(err);
        exit(body());
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            status = -1;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    result.finished = status != -1;
    if (result.finished && WIFEXITED(status)) {
        result.exitCode = WEXITSTATUS(status);
    } else if (result.finished && WIFSIGNALED(status)) {
        result.signal = WTERMSIG(status);
    }
    result.out = readFile(outPath);
    result.err = readFile(errPath);
    return result;
}

std::vector<Record> parseRecords(const std::string& output) {
    static const std::regex kRecord(
        R"(\[([^\]]*)\]\[V)" + std::regex_replace(std::string(QELTEST_VERSION), std::regex(R"(\.)"), R"(\.)") +
        R"( ([VIWE?]) (\d{2}:\d{2}:\d{2}:(?:0|[1-9]\d{0,2})) (\d+)\]([^\n]*)\n\n)");
    std::vector<Record> records;
    auto begin = output.cbegin();
    std::smatch match;
    while (begin != output.cend()) {
        if (!std::regex_search(begin, output.cend(), match, kRecord,
                               std::regex_constants::match_continuous)) {
            ADD_FAILURE() << "not a record: " << std::string(begin, output.cend()).substr(0, 200);
            break;
        }
        records.push_back({match[1], match[2], match[3], match[5], std::stol(match[4])});
        begin = match[0].second;
    }
    return records;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

void removeTree(const std::string& path) {
    auto removeOne = [](const char* name, const struct stat*, int, struct FTW*) {
        remove(name);
        return 0;
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
    static const std::regex kName(R"(QelLog(\d+)-(\d+)-(\d+)-(\d+)-(\d+)-(\d+)-(\d+)\.log)");
    std::vector<std::pair<std::array<long, 7>, std::string>> found;
    if (DIR* handle = opendir(dir.c_str())) {
        while (dirent* entry = readdir(handle)) {
            std::cmatch match;
            if (std::regex_match(entry->d_name, match, kName)) {
                std::array<long, 7> time;
                for (size_t i = 0; i < time.size(); ++i) {
                    time[i] = std::stol(match[i + 1].str());
                }
                found.emplace_back(time, dir + "/" + entry->d_name);
            }
        }
        closedir(handle);
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
