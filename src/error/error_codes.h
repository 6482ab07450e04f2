#ifndef QEL_ERROR_ERROR_CODES_H_
#define QEL_ERROR_ERROR_CODES_H_

// Error codes inside the library: the codes it stores itself, the shape of the message
// table, and the one-line way to fail with a code.

#include <qel/error.h>

namespace qel {

// Codes this library stores itself; read as int, every one is negative.
// "Failed to open the file!": a log folder or log file cannot be made or opened.
constexpr int kErrorFileOpen = QEL_ERROR_SYSTEM_FAILED_TO_OPEN_THE_FILE;
// "The value of the parameter is invalid!": a blank folder argument, a module pattern or a
// threshold text that cannot be used.
constexpr int kErrorInvalidParameter = QEL_ERROR_PARAM_THE_VALUE_OF_THE_PARAMETER_IS_INVALID;

// The message table has 6 categories (bits 15 to 8 of a code) of 175 slots each
// (bits 7 to 0).
constexpr unsigned int kErrorCategoryCount = 6;
constexpr unsigned int kErrorIndexCount = 175;

// Returns the table's text for `category` (below kErrorCategoryCount) and `index` (below
// kErrorIndexCount), or null for an empty slot. Applies none of the lookup rules of
// errorGetErrorCodeString (a base code of any category has its text here). Constant data;
// any thread may call it.
const char* errorTableEntry(unsigned int category, unsigned int index);

// Stores `code` in the error slot and returns -1, so a failure path is one line.
inline int failWith(int code) {
    *ErrnoLocal() = code;
    return -1;
}

}  // namespace qel

#endif  // QEL_ERROR_ERROR_CODES_H_
