// How new log files come into being in a folder that others share: exclusively,
// never through a planted file or symbolic link, with the permissions of a
// plain open.

#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <qel/log.h>

#include "hardening/hardening_support.h"
#include "log/log_test_support.h"

using namespace qeltest;

namespace {

// The name the writer gives a file made `offsetMs` from now in the working
// directory.
std::string logNameAt(int offsetMs) {
  struct timeval now;
  gettimeofday(&now, nullptr);
  long long ms =
      static_cast<long long>(now.tv_sec) * 1000 + now.tv_usec / 1000 + offsetMs;
  const time_t seconds = static_cast<time_t>(ms / 1000);
  struct tm local;
  localtime_r(&seconds, &local);
  char name[96];
  snprintf(name, sizeof(name), "QelLog%04d-%02d-%02d-%02d-%02d-%02d-%d.log",
           local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
           local.tm_min, local.tm_sec, static_cast<int>(ms % 1000));
  return name;
}

bool isRegularFile(const std::string &path, mode_t *mode = nullptr) {
  struct stat status;
  if (lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return false;
  }
  if (mode != nullptr) {
    *mode = status.st_mode & 07777;
  }
  return true;
}

} // namespace

// Names of the coming 1.5 seconds are taken in turn by a file of someone else,
// a symbolic link to a file of someone else, and a symbolic link to nothing.
// The writer, rotating at a small limit through that time, must skip every one
// of them: the victims keep their content, no link target comes into being, and
// its own files hold every record in order.
TEST(FileCreationTest, PlantedFilesAndLinksAreNeverFollowedOrEmptied) {
  auto result = runChild([] {
    umask(027);
    char *workingDirectory = get_current_dir_name();
    const std::string cwd = workingDirectory;
    free(workingDirectory);
    {
      FILE *victim = fopen("victim", "w");
      CHILD_CHECK(victim != nullptr);
      fputs("victim", victim);
      fclose(victim);
    }
    std::set<std::string> planted;
    for (int ms = 0; ms < 1500; ++ms) {
      const std::string name = logNameAt(ms);
      if (!planted.insert(name).second) {
        continue;
      }
      if (ms % 3 == 0) {
        FILE *file = fopen(name.c_str(), "w");
        CHILD_CHECK(file != nullptr);
        fputs("planted", file);
        fclose(file);
      } else if (ms % 3 == 1) {
        CHILD_CHECK(symlink((cwd + "/victim").c_str(), name.c_str()) == 0);
      } else {
        CHILD_CHECK(symlink((cwd + "/ghost-" + std::to_string(ms)).c_str(),
                            name.c_str()) == 0);
      }
    }
    CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0);
    CHILD_CHECK(qelLogSetMaxSize(250) == 0);
    CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
    for (int i = 0; i < 150; ++i) {
      CHILD_CHECK(qelLogSimplify("plant", QEL_LOG_INFO,
                                 ("rec-" + std::to_string(i)).c_str()) == 0);
    }
    CHILD_CHECK(qelLogConfigFileWriter(false) == 0);

    CHILD_CHECK(readFile("victim") == "victim");
    std::string own;
    int ownFiles = 0;
    for (const auto &path : logFiles(".")) {
      const std::string name = path.substr(2);
      if (planted.count(name) != 0) {
        if (isRegularFile(path)) {
          CHILD_CHECK(readFile(path) == "planted");
        }
        continue;
      }
      mode_t mode = 0;
      CHILD_CHECK(isRegularFile(path, &mode));
      CHILD_CHECK(mode == 0640);
      own += readFile(path);
      ++ownFiles;
    }
    CHILD_CHECK(ownFiles > 10); // the writer went through many planted names
    size_t at = 0;
    for (int i = 0; i < 150; ++i) {
      const std::string record = "]rec-" + std::to_string(i) + "\n\n";
      at = own.find(record, at);
      CHILD_CHECK(at != std::string::npos);
      CHILD_CHECK(countOf(own, record) == 1);
    }
    for (int ms = 0; ms < 1500; ++ms) {
      CHILD_CHECK(access(("ghost-" + std::to_string(ms)).c_str(), F_OK) != 0);
    }
    return 0;
  });
  EXPECT_CHILD_OK(result);
}

// Two processes open and close their file writers in the same folder as fast as
// they can, one record per file, so that both keep reaching for the same names.
// Each file must hold exactly one whole record, and every record of both must
// be there once.
TEST(FileCreationTest, TwoProcessesNeverWriteIntoOneFile) {
  constexpr int kOpens = 150;
  auto result = runChild([] {
    std::vector<pid_t> children;
    for (int process = 0; process < 2; ++process) {
      const pid_t pid = fork();
      if (pid == 0) {
        qelLogConfigConsoleWriter(false);
        for (int i = 0; i < kOpens; ++i) {
          if (qelLogConfigFileWriter(true) != 0) {
            _exit(1);
          }
          const std::string text =
              "p" + std::to_string(process) + "-" + std::to_string(i);
          qelLogSimplify("share", QEL_LOG_INFO, text.c_str());
          qelLogConfigFileWriter(false);
        }
        _exit(0);
      }
      children.push_back(pid);
    }
    for (const pid_t pid : children) {
      int status = 0;
      CHILD_CHECK(waitWithTimeout(pid, 60, &status));
      CHILD_CHECK(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    const auto files = logFiles(".");
    CHILD_CHECK(files.size() == 2 * kOpens);
    std::string all;
    for (const auto &path : files) {
      const std::string content = readFile(path);
      CHILD_CHECK(countOf(content, "[share]") == 1);
      CHILD_CHECK(content.size() > 2 &&
                  content.compare(content.size() - 2, 2, "\n\n") == 0);
      all += content;
    }
    for (int process = 0; process < 2; ++process) {
      for (int i = 0; i < kOpens; ++i) {
        const std::string record =
            "]p" + std::to_string(process) + "-" + std::to_string(i) + "\n";
        CHILD_CHECK(countOf(all, record) == 1);
      }
    }
    return 0;
  });
  EXPECT_CHILD_OK(result);
}
