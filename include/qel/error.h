#ifndef QEL_ERROR_H_
#define QEL_ERROR_H_

/* The error codes of the kit and the library's error slot, usable from C and C++.
 *
 * Every code of the kit has the form 0x8030CCII: 0x80 marks the kit, 0x30 this library
 * family, CC is the category (0 to 5) and II the index within it (0 to 174). Read as a
 * signed int, every code is negative. Index 0 of a category is its base code and means
 * "no error".
 *
 * An operation of the library that fails stores its code in the error slot, one int for
 * the whole process shared by all threads; nothing clears it, a success leaves it as it
 * was. A caller reads the last code as *ErrnoLocal() and may reset it by storing 0 there.
 * The slot has no lock: it is one aligned int, so a reader always sees a whole code, and
 * when threads fail at once the last store wins. */

#include <qel/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Returns the English message of `code`, or NULL when the code has none: a code outside
 * the kit's layout, an index above 174, an empty slot of the table, and the base codes of
 * categories 1 to 5 all give NULL (the base code 0x80300000 gives its message). The text
 * is constant static storage, never freed by the caller. Any thread may call it. */
QEL_EXPORT const char* errorGetErrorCodeString(int code);

/* Returns the address of the error slot g_errono: the same address on every call and in
 * every thread, never NULL. */
QEL_EXPORT int* ErrnoLocal(void);

/* The error slot: the last code stored by a failing operation of the library, 0 if none.
 * Prefer reading it through ErrnoLocal(). */
QEL_EXPORT extern int g_errono;

/* Kept for the kit's binary interface: 0 at load, and no operation reads or writes it. */
QEL_EXPORT extern int key_created;

#ifdef __cplusplus
}  /* extern "C" */

namespace qel {

// Reaches the error slot from C++. The class holds no data and its constructor and
// destructor do nothing; the library keeps one instance at file scope for its lifetime.
class QEL_EXPORT QelErrno {
public:
    QelErrno();
    ~QelErrno();

    // Returns the address of the error slot, the same address as ErrnoLocal(); never
    // null. Static, so it needs no instance, though one may call it through any. Any
    // thread may call it.
    static int* getErrnoLocation();
};

}  // namespace qel
#endif /* __cplusplus */

#endif /* QEL_ERROR_H_ */
