#include "log_test_support.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

namespace qeltest {

ChildResult runChild(const std::function<int()>& body, int timeoutSeconds) {
    ChildResult result;
    char pattern[] = "/tmp/qel-log-test-XXXXXX";
    result.dir = mkdtemp(pattern);
    result.removeDir = std::shared_ptr<void>(nullptr, [dir = result.dir](void*) {
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    });
    const std::string outPath = result.dir + "/.stdout";
    const std::string errPath = result.dir + "/.stderr";
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
            result.out = readFile(outPath);
            result.err = readFile(errPath);
            return result;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    result.finished = true;
    if (WIFEXITED(status)) {
        result.exitCode = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        result.signal = WTERMSIG(status);
    }
    result.out = readFile(outPath);
    result.err = readFile(errPath);
    return result;
}

std::vector<Record> parseRecords(const std::string& output) {
    static const std::regex kRecord(
        R"(\[([^\]]*)\]\[V1\.8\.63 ([VIWE?]) (\d{2}:\d{2}:\d{2}:(?:0|[1-9]\d{0,2})) (\d+)\]([^\n]*)\n\n)");
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
