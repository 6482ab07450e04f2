#ifndef QEL_VERSION_H_
#define QEL_VERSION_H_

/* The library's version. Every log line carries it in its header ("V1.8.63"), and the
 * build reads it from here, so it is written in this one place only. */
#define QEL_VERSION_MAJOR 1
#define QEL_VERSION_MINOR 8
#define QEL_VERSION_PATCH 63

/* The same version as text, "1.8.63", made from the numbers above. qelLogVersion() gives the
 * version of the library a program actually loaded. */
#define QEL_VERSION_TEXT_(number) #number
#define QEL_VERSION_TEXT(number) QEL_VERSION_TEXT_(number)
#define QEL_VERSION_STRING                                                       \
    QEL_VERSION_TEXT(QEL_VERSION_MAJOR) "." QEL_VERSION_TEXT(QEL_VERSION_MINOR) "." \
        QEL_VERSION_TEXT(QEL_VERSION_PATCH)

#endif /* QEL_VERSION_H_ */
