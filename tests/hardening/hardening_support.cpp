#include "hardening/hardening_support.h"

#include <dirent.h>
#include <ftw.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

namespace qeltest {

StdoutCapture::StdoutCapture() : m_readEnd(-1), m_finished(false) {
  int ends[2];
  if (pipe(ends) != 0) {
    return;
  }
  fflush(stdout);
  dup2(ends[1], STDOUT_FILENO);
  close(ends[1]);
  m_readEnd = ends[0];
  m_reader = std::thread([this] {
    char buffer[4096];
    ssize_t got;
    while ((got = read(m_readEnd, buffer, sizeof(buffer))) > 0) {
      m_text.append(buffer, static_cast<size_t>(got));
    }
  });
}

StdoutCapture::~StdoutCapture() { finish(); }

std::string StdoutCapture::finish() {
  if (!m_finished && m_readEnd >= 0) {
    m_finished = true;
    fflush(stdout);
    close(STDOUT_FILENO);
    m_reader.join();
    close(m_readEnd);
  }
  return m_text;
}

void removeTree(const std::string &path) {
  nftw(
      path.c_str(),
      [](const char *name, const struct stat *, int, struct FTW *) {
        remove(name);
        return 0;
      },
      16, FTW_DEPTH | FTW_PHYS);
}

size_t countOf(const std::string &text, const std::string &needle) {
  size_t count = 0;
  for (size_t at = text.find(needle); at != std::string::npos;
       at = text.find(needle, at + needle.size())) {
    ++count;
  }
  return count;
}

int openDescriptorCount() {
  int count = 0;
  if (DIR *handle = opendir("/proc/self/fd")) {
    while (dirent *entry = readdir(handle)) {
      if (entry->d_name[0] != '.') {
        ++count;
      }
    }
    closedir(handle);
    --count; // the descriptor of the listing itself
  }
  return count;
}

bool waitWithTimeout(pid_t pid, int timeoutSeconds, int *status) {
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
  while (waitpid(pid, status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      kill(pid, SIGKILL);
      waitpid(pid, status, 0);
      return false;
    }
    usleep(2000);
  }
  return true;
}

} // namespace qeltest
