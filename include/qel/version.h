#ifndef QEL_VERSION_H_
#define QEL_VERSION_H_

/* The library's version. Every log line carries it in its header ("V1.8.63"), and the
 * build reads it from here, so it is written in this one place only. */
#define QEL_VERSION_MAJOR 1
#define QEL_VERSION_MINOR 8
#define QEL_VERSION_PATCH 63

#endif /* QEL_VERSION_H_ */
