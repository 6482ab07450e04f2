#include <string>

#include <qel/error.h>
#include <qel/file.h>
#include <qel/log.h>

#include "error/error_codes.h"
#include "log/level_spec.h"
#include "log/module_thresholds.h"
#include "log/qel_log.h"

namespace {

// The longest folder text that qelLogSetFileFolder admits, spaces trimmed.
constexpr size_t kMaxFolderLength = 128;
// The absolute path of the folder, with its terminating zero, must fit this.
constexpr unsigned int kFullPathSize = 256;
// What a configuration call returns where the manager must not be entered (log.h).
constexpr int kRefused = -1;
// The longest that qelLogConfigFileBuffer lets a record wait.
constexpr unsigned int kLongestBufferDelayMs = 60000;

// Runs `change` on the manager, or returns kRefused without any change where the manager must
// not be entered: once process exit has begun, or on a thread that is inside it already.
template <class Change>
int configure(Change change) {
    const qel::ConfigurationCall call;  // the writers stay whole while it runs, exit or not
    qel::QelLog* log = qel::QelLog::reachable();
    return log != nullptr ? change(*log) : kRefused;
}

// Runs `change` of the module thresholds under the manager's signal lock, which keeps their
// changes one at a time and out of a fork (module_thresholds.h). Returns 0, or kRefused where
// the manager must not be entered.
template <class Change>
int changeThresholds(Change change) {
    return configure([&change](qel::QelLog& log) {
        qel::SignalLockMark mark;
        sigslot::lock_block<sigslot::multi_threaded_local> lock(&log.logSignal());
        change(log);
        return 0;
    });
}

// Switches a writer on (its openLog result) or off (0).
int switchWriter(qel::QelLogStreamBase& writer, bool enable) {
    if (enable) {
        return writer.openLog();
    }
    writer.closeLog();
    return 0;
}

// The folder text as qelLogSetFileFolder takes it: spaces trimmed, backslashes read as "/".
// Empty when the text is blank.
std::string folderText(const char* folder) {
    std::string text(folder);
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) {
        return std::string();
    }
    text = text.substr(first, text.find_last_not_of(' ') - first + 1);
    for (char& c : text) {
        if (c == '\\') {
            c = '/';
        }
    }
    return text;
}

}  // namespace

extern "C" {

QEL_EXPORT int qelLogSetModuleLevel(QelModule module, QelLogLevel level) {
    return configure([=](qel::QelLog& log) { return log.setModuleLevel(module, level); });
}

QEL_EXPORT int qelLogSetGlobalLevel(QelLogLevel level) {
    return configure([=](qel::QelLog& log) {
        log.setGlobalLevel(level);
        return 0;
    });
}

// The manager is never freed, so its threshold can be read on any thread at any moment,
// process exit included.
QEL_EXPORT QelLogLevel qelLogGetGlobalLevel(void) {
    return qel::QelLog::getInstance().globalLevel();
}

QEL_EXPORT int qelLogSetMaxSize(unsigned int maxSize) {
    return configure([=](qel::QelLog& log) {
        log.fileStream().setMaxFileSize(maxSize);
        return 0;
    });
}

QEL_EXPORT int qelLogConfigFileWriter(bool enable) {
    return configure([=](qel::QelLog& log) { return switchWriter(log.fileStream(), enable); });
}

QEL_EXPORT int qelLogConfigConsoleWriter(bool enable) {
    return configure([=](qel::QelLog& log) { return switchWriter(log.consoleStream(), enable); });
}

QEL_EXPORT int qelLogSetFileFolder(const char* folder) {
    if (folder == nullptr) {
        return qel::failWith(qel::kErrorInvalidParameter);  // refused like a blank folder
    }
    const std::string text = folderText(folder);
    if (text.empty()) {
        return qel::failWith(qel::kErrorInvalidParameter);
    }
    if (text.size() > kMaxFolderLength) {
        return qel::failWith(qel::kErrorFileOpen);
    }
    return configure([&text](qel::QelLog& log) {
        char fullPath[kFullPathSize] = {0};
        if (qel::QelLog::createLogDirectory(text) != 0 ||
            qel::getFullPathName(text.c_str(), fullPath, kFullPathSize) != 0) {
            // Logging goes on in the working directory; the caller learns that its folder
            // was not taken.
            log.fileStream().moveToFolder(qel::QelLogFileStream::kWorkingFolder);
            return qel::failWith(qel::kErrorFileOpen);
        }
        return log.fileStream().moveToFolder(fullPath);
    });
}

QEL_EXPORT int qelLogSetModuleThreshold(const char* pattern, QelLogLevel level) {
    if (!qel::ModuleThresholdTable::isValidPattern(pattern)) {
        return qel::failWith(qel::kErrorInvalidParameter);
    }
    return changeThresholds([&](qel::QelLog&) {
        qel::ModuleThresholds::set({{pattern, static_cast<int>(level)}});
    });
}

QEL_EXPORT int qelLogClearModuleThreshold(const char* pattern) {
    if (!qel::ModuleThresholdTable::isValidPattern(pattern)) {
        return qel::failWith(qel::kErrorInvalidParameter);
    }
    return changeThresholds([&](qel::QelLog&) { qel::ModuleThresholds::clear(pattern); });
}

QEL_EXPORT int qelLogClearModuleThresholds(void) {
    return changeThresholds([](qel::QelLog&) { qel::ModuleThresholds::clearAll(); });
}

// Like qelLogGetGlobalLevel, it works at any moment, process exit included.
QEL_EXPORT QelLogLevel qelLogGetModuleThreshold(const char* module) {
    const int global = static_cast<int>(qel::QelLog::getInstance().globalLevel());
    return static_cast<QelLogLevel>(qel::ModuleThresholds::thresholdFor(module, global));
}

QEL_EXPORT int qelLogSetLevelSpec(const char* levelText) {
    const qel::LevelSpec levels(levelText);
    if (!levels.problems().empty()) {
        return qel::failWith(qel::kErrorInvalidParameter);
    }
    return changeThresholds([&levels](qel::QelLog& log) { levels.apply(log); });
}

QEL_EXPORT int qelLogConfigFileBuffer(unsigned int maxDelayMs) {
    if (maxDelayMs > kLongestBufferDelayMs) {
        return qel::failWith(qel::kErrorInvalidParameter);
    }
    return configure([=](qel::QelLog& log) {
        log.fileStream().setMaxDelay(maxDelayMs);
        return 0;
    });
}

QEL_EXPORT int qelLogConfigFileWatch(bool enable) {
    return configure([=](qel::QelLog& log) {
        log.fileStream().useKernelReports(enable);
        return 0;
    });
}

}  // extern "C"
