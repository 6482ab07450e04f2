#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <qel/error.h>
#include <qel/log.h>

#include "log/qel_log.h"
#include "support/test_support.h"

using namespace qeltest;

namespace {

const int kInvalidParameter = QEL_ERROR_PARAM_THE_VALUE_OF_THE_PARAMETER_IS_INVALID;

// A record handed straight to the manager, as the kit's libraries may do.
void writeThroughManager(const char* module, QelLogLevel level, const char* text) {
    LogMessage msg = {};
    strcpy(msg.module, module);
    strcpy(msg.text, text);
    strcpy(msg.timeText, "00:00:00:0");
    msg.level = level;
    qel::QelLog::getInstance().writeFormatLog(msg);
}

}  // namespace

// '*' matches any run of bytes, '?' any one byte, anything else itself, over the whole name.
TEST(ModuleThresholdTest, PatternsMatchWholeNames) {
    struct Case {
        const char* pattern;
        const char* name;
        bool matches;
    };
    const Case cases[] = {
        {"net*", "net", true},     {"net*", "net.tcp", true}, {"net*", "ne", false},
        {"net*", "xnet", false},   {"*cam", "ipcam", true},   {"*cam", "camx", false},
        {"n?t", "nut", true},      {"n?t", "nt", false},      {"n?t", "neet", false},
        {"a*b*c", "aXbYbc", true}, {"a*b*c", "acb", false},   {"*ab", "aab", true},
        {"**", "", true},          {"cam", "cam", true},      {"cam", "Cam", false}};
    auto result = runChild([&] {
        for (const Case& c : cases) {
            CHILD_CHECK(qelLogSetModuleThreshold(c.pattern, QEL_LOG_ERROR) == 0);
            if ((qelLogGetModuleThreshold(c.name) == QEL_LOG_ERROR) != c.matches) {
                fprintf(stderr, "pattern '%s', name '%s'\n", c.pattern, c.name);
            }
            CHILD_CHECK(qelLogClearModuleThresholds() == 0);
        }
        return 0;
    });
    EXPECT_CHILD_OK(result);
    EXPECT_EQ("", result.err);
}

// A module threshold replaces the global one for the names it matches, on every write path; the
// pattern set last wins, also when set again, and clearing one lets the others or the global
// threshold apply. Names are compared as the record carries them, cut at 127 characters; a
// pattern that could match no such name is refused.
TEST(ModuleThresholdTest, TheLastMatchingPatternDecides) {
    const std::string longName(200, 'L');
    auto result = runChild([&] {
        CHILD_CHECK(qelLogSetModuleThreshold("net*", QEL_LOG_VERBOSE) == 0);
        CHILD_CHECK(qelLogSetModuleThreshold("net.tcp", QEL_LOG_ERROR) == 0);
        qelLogSimplify("net.udp", QEL_LOG_VERBOSE, "verbose udp");
        writeThroughManager("net.udp", QEL_LOG_VERBOSE, "verbose udp");
        qelLogFormat("net.tcp", QEL_LOG_WARNING, "dropped");
        qelLogSimplify("cam", QEL_LOG_VERBOSE, "dropped");
        CHILD_CHECK(qelLogSetModuleThreshold("net*", QEL_LOG_WARNING) == 0);
        qelLogWrite("net.tcp", QEL_LOG_WARNING, "f", 1, "g", "tcp warning");
        CHILD_CHECK(qelLogClearModuleThreshold("net*") == 0 && qelLogClearModuleThreshold("x") == 0);
        writeThroughManager("net.tcp", QEL_LOG_WARNING, "dropped");
        qelLogSimplify("net.udp", QEL_LOG_INFO, "udp at the global threshold");
        CHILD_CHECK(qelLogSetModuleThreshold(longName.substr(0, 127).c_str(), QEL_LOG_VERBOSE) == 0);
        qelLogSimplify(longName.c_str(), QEL_LOG_VERBOSE, "long name");
        CHILD_CHECK(qelLogClearModuleThresholds() == 0 && qelLogGetModuleThreshold("net.tcp") == 1);
        for (const char* refused : {static_cast<const char*>(nullptr), "", longName.c_str()}) {
            *ErrnoLocal() = 0;
            CHILD_CHECK(qelLogSetModuleThreshold(refused, QEL_LOG_VERBOSE) == -1);
            CHILD_CHECK(qelLogClearModuleThreshold(refused) == -1);
            CHILD_CHECK(*ErrnoLocal() == kInvalidParameter);
        }
        return 0;
    });
    EXPECT_CHILD_OK(result);
    EXPECT_EQ("net.udp V verbose udp|net.udp V verbose udp|net.tcp W tcp warning|"
              "net.udp I udp at the global threshold|" + longName.substr(0, 127) + " V long name|",
              summary(result.out));
}

// QEL_LOG_LEVEL is read once, when the library is first used. A value with an item that cannot
// be read changes nothing and is reported on one line that names each such item. The same text
// given to qelLogSetLevelSpec is taken whole or refused without a change.
TEST(ModuleThresholdTest, LevelTextFromTheEnvironmentAndFromACall) {
    auto applied = runChild([] {
        setenv("QEL_LOG_LEVEL", " W , net*=V,\tisp = error ,", 1);
        CHILD_CHECK(qelLogGetGlobalLevel() == QEL_LOG_WARNING);
        setenv("QEL_LOG_LEVEL", "V", 1);
        qelLogSimplify("net.tcp", QEL_LOG_VERBOSE, "net verbose");
        qelLogSimplify("isp", QEL_LOG_WARNING, "dropped");
        qelLogSimplify("cam", QEL_LOG_INFO, "dropped");
        CHILD_CHECK(qelLogSetLevelSpec("isp=V,i,cam=X") == -1 && *ErrnoLocal() == kInvalidParameter);
        qelLogSimplify("isp", QEL_LOG_WARNING, "dropped");
        CHILD_CHECK(qelLogSetLevelSpec("isp=V,i,isp=Warning") == 0);
        qelLogSimplify("isp", QEL_LOG_INFO, "dropped");
        qelLogSimplify("isp", QEL_LOG_WARNING, "isp warning");
        qelLogSimplify("cam", QEL_LOG_INFO, "cam info");
        CHILD_CHECK(qelLogGetModuleThreshold("net.x") == QEL_LOG_VERBOSE);
        return 0;
    });
    EXPECT_CHILD_OK(applied);
    EXPECT_EQ("net.tcp V net verbose|isp W isp warning|cam I cam info|", summary(applied.out));
    EXPECT_EQ("", applied.err);
    auto refused = runChild([] {
        setenv("QEL_LOG_LEVEL", "V,net*=V,isp=loud,=W", 1);
        qelLogSimplify("net", QEL_LOG_VERBOSE, "dropped");
        qelLogSimplify("cam", QEL_LOG_INFO, "at the default threshold");
        return 0;
    });
    EXPECT_CHILD_OK(refused);
    EXPECT_EQ("cam I at the default threshold|", summary(refused.out));
    EXPECT_EQ(1u, countOf(refused.err, "\n")) << refused.err;
    for (const char* named : {"QEL_LOG_LEVEL", "\"isp=loud\"", "\"=W\""}) {
        EXPECT_NE(std::string::npos, refused.err.find(named)) << refused.err;
    }
}

// Four threads log while thresholds change over and over. A module that no pattern matches keeps
// every record and one whose pattern stays set loses every record, whatever table a record
// meets; a replaced table is freed only once no record can read it (the sanitizers watch that).
TEST(ModuleThresholdTest, ChangesWhileThreadsLogLoseNothing) {
    auto result = runChild([] {
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0 && qelLogConfigFileWriter(true) == 0);
        CHILD_CHECK(qelLogSetModuleThreshold("mute", QEL_LOG_ERROR) == 0);
        std::atomic<bool> done{false};
        std::atomic<int> steady{0};
        auto logAll = [&] {
            for (int i = 0; !done || i < 2000; ++i) {
                qelLogFormat("steady", QEL_LOG_INFO, "%d", i);
                qelLogSimplify("mute", QEL_LOG_WARNING, "dropped");
                qelLogFormat("churn.x", QEL_LOG_VERBOSE, "%d", i);
                ++steady;
            }
        };
        std::thread loggers[] = {std::thread(logAll), std::thread(logAll), std::thread(logAll),
                                 std::thread(logAll)};
        for (int i = 0; i < 2000; ++i) {
            qelLogSetModuleThreshold("churn*", QEL_LOG_VERBOSE);
            qelLogSetLevelSpec("ch?rn.x=E,other=W");
            qelLogClearModuleThreshold(i % 2 == 0 ? "churn*" : "ch?rn.x");
        }
        done = true;
        for (auto& logger : loggers) {
            logger.join();
        }
        printf("%d\n", steady.load());
        return 0;
    }, 240);
    EXPECT_CHILD_OK(result);
    const std::string records = summary(concatenatedLogs(result.dir));
    EXPECT_EQ(std::stoul(result.out), countOf(records, "steady I "));
    EXPECT_EQ(0u, countOf(records, "mute "));
    EXPECT_EQ(countOf(records, "|"), countOf(records, "steady I ") + countOf(records, "churn.x V "));
}
