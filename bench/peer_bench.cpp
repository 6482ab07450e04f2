// The same cases with the peer logging libraries, set up as their users would for the same
// job: a debug call under an info threshold; a standard-output sink that flushes every
// record; a file sink that starts a new file at 10 MiB, without a flush per record.

#include <glog/logging.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/fileappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <memory>
#include <string>
#include <vector>

#include "bench_support.h"

namespace bench {
namespace {

constexpr size_t kFileLimit = 10485760;
constexpr int kKeptFiles = 3;

// ---- spdlog ----------------------------------------------------------------------------

std::shared_ptr<spdlog::logger> g_spdlog;

void makeSpdlog(std::vector<spdlog::sink_ptr> sinks, bool flushEveryRecord) {
    g_spdlog = std::make_shared<spdlog::logger>("bench", sinks.begin(), sinks.end());
    // A line like the library's: module, version, level, time of day, thread, empty line.
    g_spdlog->set_pattern("[%n][V1.8.63 %L %H:%M:%S:%e %t]%v\n");
    g_spdlog->set_level(spdlog::level::info);
    g_spdlog->flush_on(flushEveryRecord ? spdlog::level::trace : spdlog::level::off);
}

void spdlogInfo() {
    g_spdlog->info(kText);
}

void dropSpdlog() {
    g_spdlog->flush();
    g_spdlog.reset();
}

void spdlogDropped(benchmark::State& state) {
    runCase(
        state,
        [](const std::string&) {
            makeSpdlog({std::make_shared<spdlog::sinks::stdout_sink_mt>()}, true);
        },
        [] { g_spdlog->debug(kText); }, dropSpdlog);
}

void spdlogConsole(benchmark::State& state) {
    runCase(
        state,
        [](const std::string&) {
            makeSpdlog({std::make_shared<spdlog::sinks::stdout_sink_mt>()}, true);
        },
        spdlogInfo, dropSpdlog);
}

void makeSpdlogFile(const std::string& folder) {
    makeSpdlog({std::make_shared<spdlog::sinks::rotating_file_sink_mt>(folder + "/spdlog.log",
                                                                       kFileLimit, kKeptFiles)},
               false);
}

void spdlogFile(benchmark::State& state) {
    runCase(state, makeSpdlogFile, spdlogInfo, dropSpdlog);
}

void spdlogFileLatency(benchmark::State& state) {
    runCase(state, makeSpdlogFile, spdlogInfo, dropSpdlog, true);
}

void spdlogBoth(benchmark::State& state) {
    runCase(
        state,
        [](const std::string& folder) {
            makeSpdlog({std::make_shared<spdlog::sinks::stdout_sink_mt>(),
                        std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
                            folder + "/spdlog.log", kFileLimit, kKeptFiles)},
                       true);
        },
        spdlogInfo, dropSpdlog);
}

// ---- glog ------------------------------------------------------------------------------

// glog keeps one set of files per process; a case points the info file into its folder
// and takes it away again before the folder is removed.
void glogQuiet() {
    FLAGS_logtostdout = false;
    FLAGS_logtostderr = false;
    FLAGS_alsologtostderr = false;
    FLAGS_stderrthreshold = google::GLOG_FATAL;
    FLAGS_v = 0;
    for (int severity = google::GLOG_INFO; severity <= google::GLOG_FATAL; ++severity) {
        google::SetLogDestination(severity, "");
    }
}

void glogDropped(benchmark::State& state) {
    runCase(
        state, [](const std::string&) { glogQuiet(); }, [] { VLOG(1) << kText; }, glogQuiet);
}

void glogConsole(benchmark::State& state) {
    runCase(
        state,
        [](const std::string&) {
            glogQuiet();
            FLAGS_logtostdout = true;
        },
        [] { LOG(INFO) << kText; },
        [] {
            fflush(stdout);
            glogQuiet();
        });
}

void glogFile(benchmark::State& state) {
    runCase(
        state,
        [](const std::string& folder) {
            glogQuiet();
            FLAGS_max_log_size = kFileLimit >> 20;  // in MiB
            google::SetLogDestination(google::GLOG_INFO, (folder + "/glog.").c_str());
        },
        [] { LOG(INFO) << kText; },
        [] {
            google::FlushLogFiles(google::GLOG_INFO);
            glogQuiet();
        });
}

// ---- log4cplus -------------------------------------------------------------------------

log4cplus::Logger g_log4cplus;

log4cplus::SharedAppenderPtr withLayout(log4cplus::Appender* appender) {
    log4cplus::SharedAppenderPtr shared(appender);
    shared->setLayout(std::unique_ptr<log4cplus::Layout>(new log4cplus::PatternLayout(
        LOG4CPLUS_TEXT("[%c][V1.8.63 %p %d{%H:%M:%S:%q} %t]%m%n%n"))));
    return shared;
}

log4cplus::Appender* consoleAppender() {
    return new log4cplus::ConsoleAppender(false, true);  // standard output, flush per record
}

log4cplus::Appender* rollingAppender(const std::string& folder) {
    return new log4cplus::RollingFileAppender(LOG4CPLUS_TEXT(folder + "/log4cplus.log"),
                                              kFileLimit, kKeptFiles, false);
}

void makeLog4cplus(std::vector<log4cplus::Appender*> appenders) {
    g_log4cplus = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("bench"));
    g_log4cplus.removeAllAppenders();
    g_log4cplus.setAdditivity(false);
    g_log4cplus.setLogLevel(log4cplus::INFO_LOG_LEVEL);
    for (log4cplus::Appender* appender : appenders) {
        g_log4cplus.addAppender(withLayout(appender));
    }
}

void log4cplusInfo() {
    LOG4CPLUS_INFO_STR(g_log4cplus, LOG4CPLUS_TEXT(kText));
}

void dropLog4cplus() {
    g_log4cplus.removeAllAppenders();  // closes the files
}

void log4cplusDropped(benchmark::State& state) {
    runCase(
        state, [](const std::string&) { makeLog4cplus({consoleAppender()}); },
        [] { LOG4CPLUS_DEBUG_STR(g_log4cplus, LOG4CPLUS_TEXT(kText)); }, dropLog4cplus);
}

void log4cplusConsole(benchmark::State& state) {
    runCase(
        state, [](const std::string&) { makeLog4cplus({consoleAppender()}); }, log4cplusInfo,
        dropLog4cplus);
}

void log4cplusFile(benchmark::State& state) {
    runCase(
        state,
        [](const std::string& folder) { makeLog4cplus({rollingAppender(folder)}); },
        log4cplusInfo, dropLog4cplus);
}

void log4cplusBoth(benchmark::State& state) {
    runCase(
        state,
        [](const std::string& folder) {
            makeLog4cplus({consoleAppender(), rollingAppender(folder)});
        },
        log4cplusInfo, dropLog4cplus);
}

}  // namespace

void registerPeerCases(const char* argv0) {
    static log4cplus::Initializer* log4cplusLibrary = new log4cplus::Initializer;
    (void)log4cplusLibrary;
    google::InitGoogleLogging(argv0);
    glogQuiet();

    registerCase("dropped/spdlog", spdlogDropped);
    registerCase("dropped/glog", glogDropped);
    registerCase("dropped/log4cplus", log4cplusDropped);
    registerCase("console/spdlog", spdlogConsole);
    registerCase("console/glog", glogConsole);
    registerCase("console/log4cplus", log4cplusConsole);
    registerCase("file/spdlog", spdlogFile);
    registerCase("file/glog", glogFile);
    registerCase("file/log4cplus", log4cplusFile);
    registerCase("both/spdlog", spdlogBoth);
    registerLatencyCase("latency/spdlog", spdlogFileLatency);
    registerCase("both/log4cplus", log4cplusBoth);
}

}  // namespace bench
