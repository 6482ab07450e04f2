// The configuration entry points as a sequence of operations taken from the
// input, mixed with writes. Folders always lie under the scratch directory, and
// a folder text with ".." anywhere is skipped, so nothing is created outside
// it.

#include <string>

#include <qel/error.h>
#include <qel/log.h>

#include "fuzz_support.h"

namespace {

constexpr int kRunsBetweenCleanUps = 64;
constexpr int kMostOperations = 64;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const std::string scratch = qelfuzz::enterScratch();
  static int runs = 0;
  if (++runs % kRunsBetweenCleanUps == 0) {
    // Closing sends the writer back to "./", the scratch directory, which
    // stays.
    qelLogConfigFileWriter(false);
    qelfuzz::emptyDirectory(scratch);
  }
  qelfuzz::Input input(data, size);
  for (int operation = 0; operation < kMostOperations && !input.empty();
       ++operation) {
    switch (input.byte() % 11) {
    case 0:
      qelLogSetGlobalLevel(
          static_cast<QelLogLevel>(static_cast<int32_t>(input.word())));
      break;
    case 1: {
      // Tiny limits make a file per few bytes; keep them to what runs quickly.
      const uint32_t limit = input.word();
      qelLogSetMaxSize(limit == 0 ? 0 : 256 + limit % 65536);
      break;
    }
    case 2: {
      const std::string text = input.field(160, 1);
      if (text.find("..") == std::string::npos) {
        qelLogSetFileFolder((scratch + "/" + text).c_str());
      }
      break;
    }
    case 3:
      qelLogConfigFileWriter(input.byte() & 1);
      break;
    case 4:
      qelLogConfigConsoleWriter(input.byte() & 1);
      break;
    case 5:
      qelLogSetModuleLevel(
          static_cast<QelModule>(static_cast<int32_t>(input.word())),
          static_cast<QelLogLevel>(static_cast<int32_t>(input.word())));
      break;
    case 6:
      (void)qelLogGetGlobalLevel();
      break;
    case 7:
      qelLogErrno("fuzz");
      break;
    case 8:
      // Delays up to the longest allowed and beyond it, short ones most often.
      qelLogConfigFileBuffer(input.byte() & 1 ? input.word() % 70000 : input.byte() % 4);
      break;
    case 9:
      qelLogConfigFileWatch(input.byte() & 1);
      break;
    default: {
      const auto level = static_cast<QelLogLevel>(input.byte() % 6 - 1);
      qelLogSimplify("fuzz", level, input.field(2500, 10).c_str());
      break;
    }
    }
  }
  return 0;
}
