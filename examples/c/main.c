/* A C program of the kit that logs through libqel.
 *
 * It sends its records to the console and to size-limited log files in a folder of its
 * own, logs from a second thread as well, and shows how a failed call reports its error
 * code and how to turn that code into a message.
 *
 * Usage: qel_example_c [LOG_FOLDER]   (default "example-logs") */

#include <pthread.h>
#include <stdio.h>

#include <qel/error.h>
#include <qel/log.h>
#include <qel/version.h>

static const char* const kModule = "example-c";

/* Reports a failed call with the message of the library's last error code. */
static int fail(const char* what) {
    const int code = *ErrnoLocal();
    const char* message = errorGetErrorCodeString(code);
    fprintf(stderr, "%s failed: 0x%x %s\n", what, (unsigned int)code,
            message != NULL ? message : "(no message)");
    return 1;
}

/* The log entry points may be called from any thread; the formatted ones take a printf format
 * that the compiler checks against its values. */
static void* worker(void* argument) {
    qelLogWriteFormat(kModule, QEL_LOG_INFO, __FILE__, __LINE__, __func__, "hello from worker %d",
                      *(const int*)argument);
    return NULL;
}

int main(int argc, char** argv) {
    const char* folder = argc > 1 ? argv[1] : "example-logs";
    pthread_t thread;
    int workerNumber = 1;
    int code;
    const char* message;

    /* Keep every level, cap each log file at 64 KiB and write the files into `folder`. The
     * environment variable QEL_LOG_LEVEL may have set thresholds for some modules already:
     * they keep applying to those modules. */
    qelLogSetGlobalLevel(QEL_LOG_VERBOSE);
    if (qelLogSetMaxSize(64u * 1024u) != 0) {
        return fail("qelLogSetMaxSize");
    }
    if (qelLogSetFileFolder(folder) != 0) {
        return fail("qelLogSetFileFolder");
    }

    qelLogFormat(kModule, QEL_LOG_INFO, "qel example in C, built with %s, running with %s",
                 QEL_VERSION_STRING, qelLogVersion());
    qelLogSimplify(kModule, QEL_LOG_VERBOSE, "a record without a source location");
    /* A module of its own, made quieter: its info records are dropped, before formatting. */
    qelLogSetModuleThreshold("example-c.noisy", QEL_LOG_WARNING);
    qelLogFormat("example-c.noisy", QEL_LOG_INFO, "dropped: %d frames", 30);

    if (pthread_create(&thread, NULL, worker, &workerNumber) != 0) {
        fprintf(stderr, "pthread_create failed\n");
        return 1;
    }
    pthread_join(thread, NULL);

    /* A folder of spaces is refused; the call leaves its code in the error slot. */
    if (qelLogSetFileFolder("   ") != -1) {
        fprintf(stderr, "an all-space folder was accepted\n");
        return 1;
    }
    code = *ErrnoLocal();
    message = errorGetErrorCodeString(code);
    if (code != QEL_ERROR_PARAM_THE_VALUE_OF_THE_PARAMETER_IS_INVALID || message == NULL) {
        fprintf(stderr, "unexpected error code 0x%x\n", (unsigned int)code);
        return 1;
    }
    printf("library %s, last error 0x%x: %s\n", qelLogVersion(), (unsigned int)code, message);
    qelLogErrno(kModule); /* logs "Errno:0x80300206" at error level */

    /* Switching the file writer off closes the current log file. */
    if (qelLogConfigFileWriter(false) != 0) {
        return fail("qelLogConfigFileWriter");
    }
    return 0;
}
