#include <string>

#include <qel/error.h>
#include <qel/file.h>
#include <qel/log.h>

#include "error/error_codes.h"
#include "log/qel_log.h"

namespace {

// The longest folder text that qelLogSetFileFolder admits, spaces trimmed.
constexpr size_t kMaxFolderLength = 128;
// The absolute path of the folder, with its terminating zero, must fit this.
constexpr unsigned int kFullPathSize = 256;

// Moves the file writer to the working directory after a failed folder change, so that
// logging goes on somewhere. Returns the failure to report: the fallback's own if it failed
// too, else `failure`.
int fallBackToWorkingDirectory(int failure) {
    qel::QelLogFileStream& writer = qel::QelLog::getInstance().fileStream();
    writer.closeLog();
    qel::QelLog::createLogDirectory("./");
    writer.setFileFolder("./");
    const int result = writer.openLog();
    return result != 0 ? result : failure;
}

// Switches a writer on (its openLog result) or off (0).
int switchWriter(qel::QelLogStreamBase& writer, bool enable) {
    if (enable) {
        return writer.openLog();
    }
    writer.closeLog();
    return 0;
}

}  // namespace

extern "C" {

QEL_EXPORT int qelLogSetModuleLevel(QelModule module, QelLogLevel level) {
    if (qel::QelLog::isShutDown()) {
        return 0;
    }
    return qel::QelLog::getInstance().setModuleLevel(module, level);
}

QEL_EXPORT int qelLogSetGlobalLevel(QelLogLevel level) {
    if (qel::QelLog::isShutDown()) {
        return -1;
    }
    qel::QelLog::getInstance().setGlobalLevel(level);
    return 0;
}

QEL_EXPORT QelLogLevel qelLogGetGlobalLevel(void) {
    if (qel::QelLog::isShutDown()) {
        return qel::QelLog::levelAtShutDown();
    }
    return qel::QelLog::getInstance().globalLevel();
}

QEL_EXPORT int qelLogSetMaxSize(unsigned int maxSize) {
    if (qel::QelLog::isShutDown()) {
        return -1;
    }
    qel::QelLog::getInstance().fileStream().setMaxFileSize(maxSize);
    return 0;
}

QEL_EXPORT int qelLogConfigFileWriter(bool enable) {
    if (qel::QelLog::isShutDown()) {
        return -1;
    }
    return switchWriter(qel::QelLog::getInstance().fileStream(), enable);
}

QEL_EXPORT int qelLogConfigConsoleWriter(bool enable) {
    if (qel::QelLog::isShutDown()) {
        return -1;
    }
    return switchWriter(qel::QelLog::getInstance().consoleStream(), enable);
}

QEL_EXPORT int qelLogSetFileFolder(const char* folder) {
    if (folder == nullptr) {
        return qel::failWith(qel::kErrorInvalidParameter);  // refused like a blank folder
    }
    std::string text(folder);
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) {
        return qel::failWith(qel::kErrorInvalidParameter);
    }
    text = text.substr(first, text.find_last_not_of(' ') - first + 1);
    if (text.size() > kMaxFolderLength) {
        return qel::failWith(qel::kErrorFileOpen);
    }
    if (qel::QelLog::isShutDown()) {
        return -1;
    }
    for (char& c : text) {
        if (c == '\\') {
            c = '/';
        }
    }
    int result = qel::QelLog::createLogDirectory(text);
    if (result != 0) {
        return fallBackToWorkingDirectory(result);
    }
    char fullPath[kFullPathSize] = {0};
    result = qel::getFullPathName(text.c_str(), fullPath, kFullPathSize);
    if (result != 0) {
        qel::failWith(qel::kErrorFileOpen);
        return fallBackToWorkingDirectory(result);
    }
    qel::QelLogFileStream& writer = qel::QelLog::getInstance().fileStream();
    writer.closeLog();
    writer.setFileFolder(fullPath);
    result = writer.openLog();
    return result == 0 ? 0 : fallBackToWorkingDirectory(result);
}

}  // extern "C"
