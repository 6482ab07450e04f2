// The message lookup with codes from anywhere in the 32-bit range; the whole
// family 0x8030xxxx is swept by a test.

#include <cstdint>
#include <cstring>

#include <qel/error.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  for (size_t at = 0; at + 4 <= size; at += 4) {
    uint32_t code;
    memcpy(&code, data + at, sizeof(code));
    const char *text = errorGetErrorCodeString(static_cast<int>(code));
    if (text != nullptr && strlen(text) == 0) {
      __builtin_trap(); // a code with a message must have a text
    }
  }
  return 0;
}
