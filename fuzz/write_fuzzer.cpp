// The write entry points with arbitrary module, file, function and text bytes,
// levels and line numbers, with the file writer on in a scratch folder at a
// tiny size limit.

#include <string>

#include <qel/log.h>

#include "fuzz_support.h"

namespace {

constexpr int kRunsBetweenCleanUps = 256;

std::string g_folder;

void startLogging() {
  qelLogSetGlobalLevel(QEL_LOG_VERBOSE);
  qelLogSetMaxSize(512);
  qelLogSetFileFolder(g_folder.c_str());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const std::string scratch = qelfuzz::enterScratch();
  static int runs = 0;
  if (runs == 0) {
    g_folder = scratch + "/logs";
    startLogging();
  }
  if (++runs % kRunsBetweenCleanUps == 0) {
    qelLogConfigFileWriter(false);
    qelfuzz::emptyDirectory(scratch);
    startLogging();
  }
  qelfuzz::Input input(data, size);
  const uint8_t call = input.byte();
  const auto level =
      static_cast<QelLogLevel>(static_cast<int32_t>(input.word()));
  const int line = static_cast<int32_t>(input.word());
  // Longer than the record's fields (128 bytes each, 2048 for the text) can
  // hold.
  const std::string module = input.field(400, 2);
  const std::string file = input.field(400, 2);
  const std::string function = input.field(400, 2);
  const std::string text = input.field(3000, 12);
  // Bits of the first byte replace fields with NULL.
  const char *modulePtr = call & 0x10 ? nullptr : module.c_str();
  const char *filePtr = call & 0x20 ? nullptr : file.c_str();
  const char *functionPtr = call & 0x40 ? nullptr : function.c_str();
  const char *textPtr = call & 0x80 ? nullptr : text.c_str();
  switch (call % 3) {
  case 0:
    qelLogWrite(modulePtr, level, filePtr, line, functionPtr, textPtr);
    break;
  case 1:
    qelLogSimplify(modulePtr, level, textPtr);
    break;
  default:
    qelLogErrno(modulePtr);
    break;
  }
  return 0;
}
