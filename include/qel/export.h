#ifndef QEL_EXPORT_H_
#define QEL_EXPORT_H_

/* Marks a declaration as part of the shared library's interface. Everything else is
 * built with hidden visibility and stays inside libqel.so. */
#if defined(__GNUC__)
#define QEL_EXPORT __attribute__((visibility("default")))
#else
#define QEL_EXPORT
#endif

#endif /* QEL_EXPORT_H_ */
