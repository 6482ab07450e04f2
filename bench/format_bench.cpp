// Formatted records: the library's printf-style call against spdlog's logger->info(fmt, args)
// and against the library's own call with a finished text, for a record dropped by its
// threshold and for one written by the file writer; and the dropped record with a few module
// thresholds set, none of which matches the record's module. Every case makes the same text.

#include <spdlog/logger.h>
#include <spdlog/sinks/rotating_file_sink.h>

#include <memory>
#include <string>

#include <qel/log.h>

#include "bench_support.h"

namespace bench {
namespace {

constexpr unsigned int kFileLimit = 10485760;
constexpr int kKeptFiles = 3;

#define QEL_BENCH_FORMAT "frame %d delivered to the %s queue, %d buffers in use"
#define QEL_BENCH_VALUES 4711, "encoder", 3

void qelFormat(QelLogLevel level) {
    qelLogFormat(kModule, level, QEL_BENCH_FORMAT, QEL_BENCH_VALUES);
}

void qelWrite(QelLogLevel level) {
    qelLogWrite(kModule, level, __FILE__, __LINE__, __func__, kText);
}

void qelOff() {
    qelLogConfigConsoleWriter(false);
    qelLogConfigFileWriter(false);
    qelLogClearModuleThresholds();
}

// A record below the threshold with no writer on: only the filter runs.
void qelDroppedSetUp(const std::string&) {
    qelOff();
}

// Four patterns of other modules: the filter compares the record's module with each.
void qelDroppedModulesSetUp(const std::string&) {
    qelOff();
    qelLogSetLevelSpec("net*=V,isp=W,usb.?=V,cam*.raw=E");
}

void qelFileSetUp(const std::string& folder) {
    qelOff();
    qelLogSetMaxSize(kFileLimit);
    qelLogSetFileFolder(folder.c_str());
}

void droppedFormat(benchmark::State& state) {
    runCase(state, qelDroppedSetUp, [] { qelFormat(QEL_LOG_VERBOSE); }, qelOff);
}

void droppedWrite(benchmark::State& state) {
    runCase(state, qelDroppedSetUp, [] { qelWrite(QEL_LOG_VERBOSE); }, qelOff);
}

void droppedModulesFormat(benchmark::State& state) {
    runCase(state, qelDroppedModulesSetUp, [] { qelFormat(QEL_LOG_VERBOSE); }, qelOff);
}

void droppedModulesWrite(benchmark::State& state) {
    runCase(state, qelDroppedModulesSetUp, [] { qelWrite(QEL_LOG_VERBOSE); }, qelOff);
}

void fileFormat(benchmark::State& state) {
    runCase(state, qelFileSetUp, [] { qelFormat(QEL_LOG_INFO); }, qelOff);
}

void fileWrite(benchmark::State& state) {
    runCase(state, qelFileSetUp, [] { qelWrite(QEL_LOG_INFO); }, qelOff);
}

// spdlog as its users write a formatted call, with the library's line and a rotating file.
constexpr const char kSpdlogFormat[] = "frame {} delivered to the {} queue, {} buffers in use";
std::shared_ptr<spdlog::logger> g_spdlog;

void spdlogSetUp(const std::string& folder) {
    auto sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(folder + "/spdlog.log",
                                                                       kFileLimit, kKeptFiles);
    g_spdlog = std::make_shared<spdlog::logger>("bench", sink);
    g_spdlog->set_pattern("[%n][V1.8.63 %L %H:%M:%S:%e %t]%v\n");
    g_spdlog->set_level(spdlog::level::info);
    g_spdlog->flush_on(spdlog::level::off);
}

void spdlogOff() {
    g_spdlog->flush();
    g_spdlog.reset();
}

void droppedSpdlog(benchmark::State& state) {
    runCase(
        state, spdlogSetUp,
        [] { g_spdlog->debug(kSpdlogFormat, QEL_BENCH_VALUES); },
        spdlogOff);
}

void fileSpdlog(benchmark::State& state) {
    runCase(
        state, spdlogSetUp,
        [] { g_spdlog->info(kSpdlogFormat, QEL_BENCH_VALUES); },
        spdlogOff);
}

}  // namespace

void registerFormatCases() {
    registerCase("fmt_dropped/qel_format", droppedFormat);
    registerCase("fmt_dropped/qel_write", droppedWrite);
    registerCase("fmt_dropped/spdlog", droppedSpdlog);
    registerCase("fmt_dropped_4_modules/qel_format", droppedModulesFormat);
    registerCase("fmt_dropped_4_modules/qel_write", droppedModulesWrite);
    registerCase("fmt_file/qel_format", fileFormat);
    registerCase("fmt_file/qel_write", fileWrite);
    registerCase("fmt_file/spdlog", fileSpdlog);
}

}  // namespace bench
