#ifndef QEL_LOG_H_
#define QEL_LOG_H_

/* The logging interface of the kit, usable from C and C++.
 *
 * A caller passes a module name, a level and a message text (finished, or a printf format
 * and its values); the library stamps the record with the local time of day and the calling
 * thread's kernel id, drops it when its level is below its threshold (the global threshold,
 * 1 at start, unless a threshold is set for its module name), and otherwise hands it to the
 * writers that are switched on: the console writer (standard output, on from the start)
 * and the file writer (size-limited log files in a folder, off until switched on).
 *
 * Every line written has the form
 *     [module][V1.8.63 L hh:mm:ss:ms tid]text
 * followed by an empty line, where L is the level letter of LEVELSTRING.
 *
 * Conventions of every function below:
 * - Results: 0 for success, -1 for failure; a failure also stores a kit error code in the
 *   process-wide slot read by *ErrnoLocal(), which the library never clears. The write
 *   functions return 0 whether the record was written or dropped.
 * - NULL: a NULL string gives an empty field in a record; qelLogSetFileFolder refuses a NULL
 *   folder like a blank one. Strings longer than their field are cut, never refused.
 * - Threads: any function may be called from any thread. Configuration calls are meant to come
 *   from one thread at a time. Nothing throws.
 * - Signal handlers may call qelLogWrite, qelLogSimplify and qelLogErrno, once the program has
 *   made any call into the library outside a handler. A record takes no lock that code outside
 *   the library may hold (neither the C library's time-zone lock nor a stdio stream's, except
 *   standard output's for the console writer) and allocates no memory, except when a log folder
 *   that has gone has to be made again. The other functions must not be called from a
 *   handler, the formatted calls (qelLogFormat and its twins) among them: the C library's
 *   printf family they use is not safe there.
 * - Where the library must not be entered, a call changes nothing and returns at once:
 *   once process exit has begun (the library has closed its writers, the log file with them),
 *   and on a thread that is inside the library already (a signal handler that interrupted a
 *   log call, a fork handler while the library holds its lock across the fork). There the
 *   write functions drop the record and return 0, the configuration functions return -1
 *   without storing an error code (a folder text that qelLogSetFileFolder refuses for itself
 *   still stores its own), and qelLogGetGlobalLevel returns the threshold. No call crashes,
 *   at any moment of exit, from any thread. */

#include <qel/export.h>

#ifndef __cplusplus
#include <stdarg.h>
#include <stdbool.h>
#include <stddef.h>
#else
#include <cstdarg>
#include <cstddef>
#endif

/* Marks a function whose argument `format_index` is a printf format and whose arguments from
 * `first_arg` on (0 for a va_list) are its values, so that the compiler checks them. */
#if defined(__GNUC__)
#define QEL_PRINTF_FORMAT(format_index, first_arg) \
    __attribute__((format(printf, format_index, first_arg)))
#else
#define QEL_PRINTF_FORMAT(format_index, first_arg)
#endif

/* In C++ the enumerations take int as their fixed underlying type, so that every 32-bit
 * value a caller passes (levels outside 0..3 included) is a valid value, as it is in C. */
#ifdef __cplusplus
#define QEL_ENUM_BASE : int
#else
#define QEL_ENUM_BASE
#endif

/* Severity of a record; a higher value is more severe. */
typedef enum QelLogLevel QEL_ENUM_BASE {
    QEL_LOG_VERBOSE = 0,
    QEL_LOG_INFO = 1,
    QEL_LOG_WARNING = 2,
    QEL_LOG_ERROR = 3
} QelLogLevel;

/* Names a component of the kit. Only qelLogSetModuleLevel takes it, and stores nothing for
 * it; records name their module by a string. */
typedef enum QelModule QEL_ENUM_BASE {
    QEL_MODULE_SYSTEM = 0,
    QEL_MODULE_LOG = 1,
    QEL_MODULE_DEVICE = 2,
    QEL_MODULE_STREAM = 3,
    QEL_MODULE_USB = 4,
    QEL_MODULE_DECODER = 5,
    QEL_MODULE_APPLICATION = 6
} QelModule;

/* One log record, filled on the caller's stack by the write entry points and passed by
 * reference to the writers. Every text field holds a NUL-terminated string that fits its
 * array (longer input is cut at the size less one); every byte after the NUL is zero. */
typedef struct LogMessage {
    char module[128];   /* component that logs; printed first in every line */
    char file[128];     /* source file of the call; carried, not printed */
    char function[128]; /* function of the call; carried, not printed */
    char text[2048];    /* the message text, at most 2047 characters */
    char timeText[128]; /* time of day "hh:mm:ss:ms", milliseconds unpadded */
    int line;           /* source line of the call; carried, not printed */
    unsigned int threadId; /* kernel id of the thread that made the record */
    QelLogLevel level;  /* severity */
} LogMessage;

/* The record is an interface other libraries of the kit compile against: its layout is
 * fixed. The checks need C11 or C++11; a C99 compiler skips them (the library's own build
 * always makes them). */
#if defined(__cplusplus)
#define QEL_STATIC_ASSERT(condition, message) static_assert(condition, message)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define QEL_STATIC_ASSERT(condition, message) _Static_assert(condition, message)
#endif

#ifdef QEL_STATIC_ASSERT
QEL_STATIC_ASSERT(sizeof(QelLogLevel) == 4, "QelLogLevel is 32 bits");
QEL_STATIC_ASSERT(sizeof(QelModule) == 4, "QelModule is 32 bits");
QEL_STATIC_ASSERT(offsetof(LogMessage, module) == 0, "LogMessage layout");
QEL_STATIC_ASSERT(offsetof(LogMessage, file) == 128, "LogMessage layout");
QEL_STATIC_ASSERT(offsetof(LogMessage, function) == 256, "LogMessage layout");
QEL_STATIC_ASSERT(offsetof(LogMessage, text) == 384, "LogMessage layout");
QEL_STATIC_ASSERT(offsetof(LogMessage, timeText) == 2432, "LogMessage layout");
QEL_STATIC_ASSERT(offsetof(LogMessage, line) == 2560, "LogMessage layout");
QEL_STATIC_ASSERT(offsetof(LogMessage, threadId) == 2564, "LogMessage layout");
QEL_STATIC_ASSERT(offsetof(LogMessage, level) == 2568, "LogMessage layout");
QEL_STATIC_ASSERT(sizeof(LogMessage) == 2572, "LogMessage size");
#undef QEL_STATIC_ASSERT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The level letters "V", "I", "W", "E", indexed by QelLogLevel 0 to 3. */
QEL_EXPORT extern const char* LEVELSTRING[4];

/* Writes one record. NULL strings give empty fields; strings longer than their field are
 * cut. Returns 0 whether the record was dropped by the threshold or written. */
QEL_EXPORT int qelLogWrite(const char* module, QelLogLevel level, const char* file, int line,
                           const char* function, const char* text);

/* Writes one record without a source location (empty file and function, line 0).
 * Returns 0. */
QEL_EXPORT int qelLogSimplify(const char* module, QelLogLevel level, const char* text);

/* Logs the library's last error code as "Errno:0x%x" at level QEL_LOG_ERROR, or nothing
 * when the code is 0. The code is read, never cleared. Returns 0. */
QEL_EXPORT int qelLogErrno(const char* module);

/* Accepts a level for a module of the QelModule enumeration and stores nothing: thresholds
 * per module are set by module name (qelLogSetModuleThreshold). Returns 0. */
QEL_EXPORT int qelLogSetModuleLevel(QelModule module, QelLogLevel level);

/* Sets the global threshold: records below it are dropped. Any value is stored as it
 * comes (below 0 every record passes, above 3 none does). Returns 0. */
QEL_EXPORT int qelLogSetGlobalLevel(QelLogLevel level);

/* Returns the global threshold (1 at start). */
QEL_EXPORT QelLogLevel qelLogGetGlobalLevel(void);

/* Sets the byte limit of each log file, applied to the current file from the next record on;
 * 0 removes the limit. The default is 10485760. The limit counts what a file took while a limit
 * was set: after a limit of 0, the current file may grow by up to the new limit before the
 * writer switches files. Returns 0. */
QEL_EXPORT int qelLogSetMaxSize(unsigned int maxSize);

/* Switches the file writer on (true) or off (false). Switching on opens a new log file in
 * the writer's folder ("./" until a folder is set); switching off writes out what waits in its
 * buffer, closes the file and every descriptor the writer holds, and forgets the folder.
 * Returns 0, or -1 with the error code 0x80300002 when the file cannot be opened. */
QEL_EXPORT int qelLogConfigFileWriter(bool enable);

/* Switches the console writer on (true) or off (false). Returns 0. */
QEL_EXPORT int qelLogConfigConsoleWriter(bool enable);

/* ---- The file writer's buffer and its check of the current file ----
 * By default every record that the file writer takes has reached the system (one write(2) of
 * its line, or of its parts where the size limit splits it) before the call that logged it
 * returns, whatever its level: a crash of the program, SIGKILL included, loses no record
 * whose call has returned. Before each write the writer checks that its current file is still
 * at its name; a record logged before the file was renamed, deleted or replaced, before its
 * folder was moved or mounted over, or before a chdir (with a relative folder) stays in the
 * file it was written to, and the next record starts a new file. */

/* Lets records wait in the file writer's buffer (8 KiB of whole records) for at most
 * `maxDelayMs` milliseconds (1 to 60000), for programs that log at very high rates: one
 * write per buffer instead of one per record. 0, the default, writes every record through.
 * What waits is written out when a warning or an error is logged (before that call returns,
 * with every record before it), when the buffer is full, when a record reaches the size limit,
 * at the deadline (by a thread of the library's, named qel-flush, which runs while the file
 * writer is on with its buffer and blocks every signal), before fork(), when the writer is
 * switched off or moved, when the size limit or this setting changes, and at exit. The cost: a
 * crash (SIGKILL, abort(), a fatal signal, _exit(), a power cut) loses the verbose and info
 * records of up to the last `maxDelayMs`; and records that wait go into the file that is
 * current when they are written (after a rename of the current file, a new one). A child made
 * by fork writes every record through until it calls this again. Returns 0; -1 with the error
 * code 0x80300206 and no change for a delay above 60000. */
QEL_EXPORT int qelLogConfigFileBuffer(unsigned int maxDelayMs);

/* Chooses how the file writer notices a change of its current file's path. true, the default:
 * the kernel reports changes (inotify, and the process's mount table for mounts), and a record
 * costs one look at the reports instead of a walk of the path. While the writer is on this
 * holds one of the user's inotify instances (fs.inotify.max_user_instances, 128 by default,
 * shared by every program of the user) and two more descriptors; the writer takes none when
 * fewer than 8 more instances could be made, so that it never uses up the last ones, and then
 * works as with false. false: the path is looked up before every record (about as costly as
 * the record's write), and no inotify instance is used. Returns 0. */
QEL_EXPORT int qelLogConfigFileWatch(bool enable);

/* Creates `folder` (leading and trailing spaces removed, backslashes read as "/", at most
 * 128 characters) and switches the file writer on in a new file there. Returns 0 on
 * success. A NULL, empty or all-space folder gives -1 and the error code 0x80300206; a
 * longer one -1 and 0x80300002, both without any change. A folder that cannot be created
 * or opened gives -1 and 0x80300002, and logging continues in a new file in "./". */
QEL_EXPORT int qelLogSetFileFolder(const char* folder);

/* ---- Formatted records ---------------------------------------------------------------------
 * The write functions below take a printf format and its values instead of a finished text,
 * and the compiler checks the values against the format. A record below its threshold is
 * dropped before anything is formatted, so its values cost nothing. The text is formatted
 * straight into the record, without any heap allocation, and cut like a finished text at
 * 2047 bytes; where that cut would split a UTF-8 character, the whole character goes. A NULL
 * format gives an empty text. Each returns 0, as qelLogWrite does. */

/* Writes one record without a source location, its text formatted from `format`. */
QEL_EXPORT int qelLogFormat(const char* module, QelLogLevel level, const char* format, ...)
    QEL_PRINTF_FORMAT(3, 4);

/* qelLogFormat with the values in a va_list, which the call uses up. */
QEL_EXPORT int qelLogFormatV(const char* module, QelLogLevel level, const char* format,
                             va_list args) QEL_PRINTF_FORMAT(3, 0);

/* qelLogWrite with its text formatted from `format`. */
QEL_EXPORT int qelLogWriteFormat(const char* module, QelLogLevel level, const char* file,
                                 int line, const char* function, const char* format, ...)
    QEL_PRINTF_FORMAT(6, 7);

/* qelLogWriteFormat with the values in a va_list, which the call uses up. */
QEL_EXPORT int qelLogWriteFormatV(const char* module, QelLogLevel level, const char* file,
                                  int line, const char* function, const char* format,
                                  va_list args) QEL_PRINTF_FORMAT(6, 0);

/* ---- Thresholds per module -----------------------------------------------------------------
 * A module threshold applies to the records whose module name matches its pattern, in place of
 * the global threshold. A pattern is a module name in which '*' stands for any run of
 * characters (none included) and '?' for any one byte; names are compared byte for byte, as
 * the record carries them (the first 127 characters). When several patterns match a name, the
 * one set last wins; a name that no pattern matches keeps the global threshold. Levels are
 * stored as they come, like the global threshold's.
 *
 * The environment variable QEL_LOG_LEVEL, read once when the library first logs or is first
 * configured, sets thresholds at start with the text qelLogSetLevelSpec takes, for example
 *     QEL_LOG_LEVEL="I,net*=V,isp=W"
 * (global threshold I, verbose for the modules whose name starts with "net", warnings and up
 * for "isp"). A value that cannot be read whole changes nothing and is reported in one line on
 * standard error that names the items at fault. Set-user-id programs ignore the variable.
 *
 * A record pays for the module thresholds only while any is set. Changes made while other
 * threads log take effect from one record to the next: a record is filtered by the thresholds
 * before or after a change, never by a mixture, and no record waits for a change. */

/* Sets the threshold of the modules that `pattern` matches to `level`; setting a pattern again
 * replaces its level and makes it the one set last. Returns 0; a NULL or empty pattern, or one
 * longer than 127 characters, gives -1 and the error code 0x80300206. */
QEL_EXPORT int qelLogSetModuleThreshold(const char* pattern, QelLogLevel level);

/* Removes the threshold set for exactly `pattern` (the text it was set with, not the names it
 * matches), so that those modules fall back to another matching pattern or the global
 * threshold. Returns 0, also when no such pattern is set; a pattern that
 * qelLogSetModuleThreshold refuses gives -1 and the error code 0x80300206. */
QEL_EXPORT int qelLogClearModuleThreshold(const char* pattern);

/* Removes every module threshold: the global threshold filters every record again. Returns 0. */
QEL_EXPORT int qelLogClearModuleThresholds(void);

/* Returns the threshold that applies to the records of `module` now: the level of the pattern
 * set last that matches it, else the global threshold. */
QEL_EXPORT QelLogLevel qelLogGetModuleThreshold(const char* module);

/* Sets thresholds from a text of items separated by commas: LEVEL sets the global threshold,
 * PATTERN=LEVEL the threshold of a pattern, in the order written (so a later item wins). A
 * LEVEL is V, I, W, E or verbose, info, warning, error, in any case; spaces and tabs around
 * items, patterns and levels are ignored, and so are empty items. Thresholds the text does not
 * name stay as they are. Returns 0; when any item cannot be read, nothing is changed and the
 * result is -1 with the error code 0x80300206. */
QEL_EXPORT int qelLogSetLevelSpec(const char* levelText);

/* ---- Version -------------------------------------------------------------------------------
 * Returns the version of the library loaded at run time, "MAJOR.MINOR.PATCH" ("1.8.63"), which
 * may differ from QEL_VERSION_STRING of the headers a program was built with. Static storage,
 * never NULL. */
QEL_EXPORT const char* qelLogVersion(void);

#ifdef __cplusplus
}
#endif

#endif /* QEL_LOG_H_ */
