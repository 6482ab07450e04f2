// A C++ program of the kit that logs through libqel and uses its platform services.
//
// It sends its records to the console and to size-limited log files in a folder of its
// own, runs a worker on a qel thread object that logs a few rounds and then signals an
// event the main thread waits for, and turns an error code into its message.
//
// Usage: qel_example_cpp [LOG_FOLDER]   (default "example-logs")

#include <cstdio>
#include <memory>

#include <qel/error.h>
#include <qel/event.h>
#include <qel/log.h>
#include <qel/thread.h>
#include <qel/version.h>

namespace {

const char kModule[] = "example-cpp";
constexpr int kRounds = 3;

// Reports a failed call with the message of the library's last error code.
int fail(const char* what) {
    const int code = *qel::QelErrno::getErrnoLocation();
    const char* message = errorGetErrorCodeString(code);
    std::fprintf(stderr, "%s failed: 0x%x %s\n", what, static_cast<unsigned int>(code),
                 message != nullptr ? message : "(no message)");
    return 1;
}

// What the worker thread shares with main(): the event it signals when it is done.
struct Worker {
    qel::EventWrapper* done;  // owned by main()
    int round = 0;            // touched by the worker thread only
};

// The thread object calls this over and over on its own thread until it returns false.
bool runRound(void* object) {
    Worker& worker = *static_cast<Worker*>(object);
    ++worker.round;
    qelLogWriteFormat(kModule, QEL_LOG_INFO, __FILE__, __LINE__, __func__,
                      "worker round %d on thread %ld", worker.round,
                      qel::ThreadWrapper::getThreadId());
    if (worker.round < kRounds) {
        return true;
    }
    worker.done->set();
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    const char* folder = argc > 1 ? argv[1] : "example-logs";

    // Keep every level, cap each log file at 64 KiB and write the files into `folder`.
    qelLogSetGlobalLevel(QEL_LOG_VERBOSE);
    if (qelLogSetMaxSize(64u * 1024u) != 0) {
        return fail("qelLogSetMaxSize");
    }
    if (qelLogSetFileFolder(folder) != 0) {
        return fail("qelLogSetFileFolder");
    }
    qelLogWrite(kModule, QEL_LOG_INFO, __FILE__, __LINE__, __func__, "qel example in C++");

    std::unique_ptr<qel::EventWrapper> done(qel::EventWrapper::create());
    Worker worker{done.get()};
    std::unique_ptr<qel::ThreadWrapper> thread(
        qel::ThreadWrapper::createThread(runRound, &worker, "qel-example"));
    if (thread->start() != 0) {
        std::fprintf(stderr, "the worker thread did not start\n");
        return 1;
    }
    const int waited = done->wait(10000);
    thread->stop();
    if (waited != 0) {
        std::fprintf(stderr, "the worker did not finish (wait returned %d)\n", waited);
        return 1;
    }

    // A folder of spaces is refused; the call leaves its code in the error slot.
    if (qelLogSetFileFolder("   ") != -1) {
        std::fprintf(stderr, "an all-space folder was accepted\n");
        return 1;
    }
    const int code = *ErrnoLocal();
    const char* message = errorGetErrorCodeString(code);
    if (code != QEL_ERROR_PARAM_THE_VALUE_OF_THE_PARAMETER_IS_INVALID || message == nullptr) {
        std::fprintf(stderr, "unexpected error code 0x%x\n", static_cast<unsigned int>(code));
        return 1;
    }
    std::printf("library %s (built with %s), %d worker rounds, last error 0x%x: %s\n",
                qelLogVersion(), QEL_VERSION_STRING, worker.round,
                static_cast<unsigned int>(code), message);
    qelLogErrno(kModule);  // logs "Errno:0x80300206" at error level

    // Switching the file writer off closes the current log file.
    if (qelLogConfigFileWriter(false) != 0) {
        return fail("qelLogConfigFileWriter");
    }
    return 0;
}
