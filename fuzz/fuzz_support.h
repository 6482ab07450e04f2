#ifndef QEL_FUZZ_FUZZ_SUPPORT_H_
#define QEL_FUZZ_FUZZ_SUPPORT_H_

// Shared by the fuzzers: a scratch directory that is the working directory, so
// that the file writer's default folder "./" stays inside it; standard output
// to /dev/null; and a reader of the input that hands out fields as terminated
// strings.

#include <fcntl.h>
#include <ftw.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>

namespace qelfuzz {

// Makes a new scratch directory, changes into it and returns its path.
inline std::string enterScratch() {
  char pattern[] = "/tmp/qelfz-XXXXXX";
  if (mkdtemp(pattern) == nullptr || chdir(pattern) != 0) {
    abort();
  }
  const int null = open("/dev/null", O_WRONLY);
  if (null >= 0) {
    dup2(null, STDOUT_FILENO);
    close(null);
  }
  return pattern;
}

// Removes everything inside `dir`, which stays. Symbolic links are not
// followed.
inline void emptyDirectory(const std::string &dir) {
  nftw(
      dir.c_str(),
      [](const char *name, const struct stat *, int, struct FTW *where) {
        if (where->level > 0) {
          remove(name);
        }
        return 0;
      },
      16, FTW_DEPTH | FTW_PHYS);
}

// Reads the fuzzer's input front to back; past its end everything reads as
// zero.
class Input {
public:
  Input(const uint8_t *data, size_t size) : m_data(data), m_size(size) {}

  bool empty() const { return m_size == 0; }

  uint8_t byte() {
    if (m_size == 0) {
      return 0;
    }
    --m_size;
    return *m_data++;
  }

  uint32_t word() {
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i) {
      value = value << 8 | byte();
    }
    return value;
  }

  // Up to `max` bytes as given, zero bytes included; a length byte scaled by
  // `scale` comes first. The string keeps them and adds the terminating zero
  // that the callee needs: a field may be longer than the record's field
  // without a zero in its reach.
  std::string field(size_t max, size_t scale) {
    size_t length = byte() * scale;
    if (length > max) {
      length = max;
    }
    if (length > m_size) {
      length = m_size;
    }
    std::string text(reinterpret_cast<const char *>(m_data), length);
    m_data += length;
    m_size -= length;
    return text;
  }

private:
  const uint8_t *m_data;
  size_t m_size;
};

} // namespace qelfuzz

#endif // QEL_FUZZ_FUZZ_SUPPORT_H_
