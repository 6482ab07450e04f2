#ifndef QEL_TESTS_HARDENING_HARDENING_SUPPORT_H_
#define QEL_TESTS_HARDENING_HARDENING_SUPPORT_H_

// Helpers of the hardening tests, for use inside a child made by
// qeltest::runChild.

#include <sys/types.h>

#include <atomic>
#include <string>
#include <thread>

namespace qeltest {

// Standard output into a pipe that a thread of the child reads, so that console
// output can be checked while regular files are made to fail (a file size limit
// does not apply to a pipe). finish() closes descriptor 1 and returns
// everything that was printed.
class StdoutCapture {
public:
  StdoutCapture();
  ~StdoutCapture();
  std::string finish();

private:
  int m_readEnd;
  std::string m_text;
  std::thread m_reader;
  bool m_finished;
};

// Removes `path` and everything below it, symbolic links not followed. Quiet on
// failure.
void removeTree(const std::string &path);

// The number of times `needle` occurs in `text`.
size_t countOf(const std::string &text, const std::string &needle);

// The child's number of open descriptors.
int openDescriptorCount();

// Waits at most `timeoutSeconds` for the child `pid`; kills it and returns
// false when it has not ended by then. `status` gets its wait status.
bool waitWithTimeout(pid_t pid, int timeoutSeconds, int *status);

} // namespace qeltest

#endif // QEL_TESTS_HARDENING_HARDENING_SUPPORT_H_
