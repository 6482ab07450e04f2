#ifndef QEL_QEL_H_
#define QEL_QEL_H_

/* The whole public interface of libqel in one include.
 *
 * From C it gives the logging interface, the error codes and the version; from C++ also the
 * platform services of namespace qel (threads, the recursive critical section, the
 * auto-reset event, files with a byte limit, clocks). Each header may also be included on
 * its own. */

#include <qel/export.h>
#include <qel/version.h>
#include <qel/error.h>
#include <qel/log.h>

#ifdef __cplusplus
#include <qel/critical_section.h>
#include <qel/event.h>
#include <qel/file.h>
#include <qel/thread.h>
#include <qel/timeutils.h>
#endif

#endif /* QEL_QEL_H_ */
