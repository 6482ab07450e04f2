// The lookup of error messages and the process-wide error slot.

#include <qel/error.h>

#include "error/error_codes.h"

// The slot is a plain aligned int, not thread-local: a code stored by one thread is the
// code every thread reads, and whole-word stores keep each read a complete code.
int g_errono = 0;
int key_created = 0;

const char* errorGetErrorCodeString(int code) {
    // Work on the bits, so that the sign of `code` plays no part in the tests.
    const unsigned int bits = static_cast<unsigned int>(code);
    if ((bits >> 24) != 0x80u || ((bits >> 16) & 0xFFu) != 0x30u) {
        return nullptr;
    }
    const unsigned int category = (bits >> 8) & 0xFFu;
    const unsigned int index = bits & 0xFFu;
    if (category >= qel::kErrorCategoryCount || index >= qel::kErrorIndexCount) {
        return nullptr;
    }
    // A base code means "no error"; only the first category's gives its text.
    if (index == 0 && category != 0) {
        return nullptr;
    }
    return qel::errorTableEntry(category, index);
}

int* ErrnoLocal(void) {
    return &g_errono;
}

namespace qel {

QelErrno::QelErrno() {}

QelErrno::~QelErrno() {}

int* QelErrno::getErrnoLocation() {
    return &g_errono;
}

namespace {
// The one instance, alive from load to unload of the library.
QelErrno g_qelErrno;
}  // namespace

}  // namespace qel
