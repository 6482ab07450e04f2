/* Compiled by the tests, never run: the formatted write functions have their values checked
 * against the format. QEL_FORMAT_MISTAKE 1 or 2 passes a value of the wrong type to one of
 * them, which must stop the build. */
#include <qel/log.h>

void logFormatted(int frames, const char* name, va_list args);

void logFormatted(int frames, const char* name, va_list args) {
    qelLogFormat("cam", QEL_LOG_INFO, "%d frames from %s", frames, name);
    qelLogWriteFormat("cam", QEL_LOG_INFO, __FILE__, __LINE__, __func__, "%s", name);
    qelLogFormatV("cam", QEL_LOG_INFO, "%d", args);
    qelLogWriteFormatV("cam", QEL_LOG_INFO, __FILE__, __LINE__, __func__, "%s", args);
#if QEL_FORMAT_MISTAKE == 1
    qelLogFormat("cam", QEL_LOG_INFO, "%s frames", frames);
#elif QEL_FORMAT_MISTAKE == 2
    qelLogWriteFormat("cam", QEL_LOG_INFO, __FILE__, __LINE__, __func__, "%d", name);
#endif
}
