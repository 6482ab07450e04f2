#include <qel/log.h>
#include <qel/version.h>

extern "C" {

// Built from the same header as the programs that include it, so that a program can tell the
// library it runs with from the one it was built against.
QEL_EXPORT const char* qelLogVersion(void) {
    return QEL_VERSION_STRING;
}

}  // extern "C"
