#ifndef QEL_EXPORT_H_
#define QEL_EXPORT_H_

/* QEL_EXPORT marks a declaration as part of the shared library's interface; everything else
 * is built with hidden visibility and stays inside libqel.so. QEL_NO_EXPORT keeps a helper
 * member of an exported class inside the library. */
#if defined(__GNUC__)
#define QEL_EXPORT __attribute__((visibility("default")))
#define QEL_NO_EXPORT __attribute__((visibility("hidden")))
#else
#define QEL_EXPORT
#define QEL_NO_EXPORT
#endif

#endif /* QEL_EXPORT_H_ */
