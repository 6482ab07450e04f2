#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include <qel/error.h>
#include <qel/log.h>
#include <qel/timeutils.h>
#include <qel/version.h>

#include "log/qel_log.h"
#include "log/qel_log_stream_base.h"
#include "support/test_support.h"

using namespace qeltest;

namespace {

// The base is abstract; a writer that writes nothing is enough to reach formatLog.
struct SilentWriter : qel::QelLogStreamBase {
    void writeFormatLog(const LogMessage&) override {}
    int openLog() override { return 0; }
    void closeLog() override {}
};

std::string format(const LogMessage& msg) {
    std::string line(5000, 'z');  // whatever the string held before is replaced
    SilentWriter().formatLog(msg, line);
    return line;
}

// The line as the format "[%s][V%d.%d.%d %s %s %u]" and the text would give it.
std::string byFormat(const LogMessage& msg, const char* letter) {
    char header[1024];
    snprintf(header, sizeof(header), "[%s][V%d.%d.%d %s %s %u]", msg.module, QEL_VERSION_MAJOR,
             QEL_VERSION_MINOR, QEL_VERSION_PATCH, letter, msg.timeText, msg.threadId);
    return header + std::string(msg.text) + "\n\n";
}

const int kFileOpen = static_cast<int>(0x80300002u);
const int kInvalidParameter = static_cast<int>(0x80300206u);
const std::string c126(126, 'c');

int modeOf(const std::string& path) {
    struct stat status;
    const bool isDirectory = stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    return isDirectory ? static_cast<int>(status.st_mode & 07777) : -1;
}

}  // namespace

// The header is put together by hand, not by a format: it must give what the format gives for
// every field at its limits, "?" for a level without a letter, and with a caller's long letter
// (LEVELSTRING is writable) cut at 1023 characters.
TEST(LogRecordsTest, LineFormatMatchesTheFormatAtTheFieldLimits) {
    LogMessage msg = {};
    memset(msg.module, 'm', 127);
    memset(msg.timeText, 't', 127);
    strcpy(msg.text, " two\nlines ");
    const char* letters[] = {"V", "I", "W", "E"};
    for (unsigned tid : {0u, 9u, 10u, 99u, 100u, 4294967295u, 1000000000u}) {
        for (int level : {0, 1, 2, 3, 4, -1, INT_MIN}) {
            msg.threadId = tid;
            msg.level = static_cast<QelLogLevel>(level);
            ASSERT_EQ(byFormat(msg, level >= 0 && level < 4 ? letters[level] : "?"), format(msg));
        }
    }
    const char* saved = LEVELSTRING[2];
    const std::string hugeLetter(2000, 'L');
    LEVELSTRING[2] = hugeLetter.c_str();
    msg.level = QEL_LOG_WARNING;
    EXPECT_EQ(byFormat(msg, hugeLetter.c_str()).substr(0, 1023) + msg.text + "\n\n", format(msg));
    LEVELSTRING[2] = nullptr;
    EXPECT_EQ(byFormat(msg, "(null)"), format(msg));
    LEVELSTRING[2] = saved;
    EXPECT_STREQ(QELTEST_VERSION, qelLogVersion());  // the loaded library's own version
}

// A record passes when its level is at least the threshold, compared as signed numbers; the
// threshold starts at I, takes any value, and an enumerated module's level changes nothing.
TEST(LogRecordsTest, GlobalThresholdDropsWhatIsBelowIt) {
    auto result = runChild([] {
        CHILD_CHECK(qelLogGetGlobalLevel() == QEL_LOG_INFO);
        qelLogSimplify("cam", QEL_LOG_VERBOSE, "dropped");
        qelLogSimplify("cam", QEL_LOG_INFO, "at the start");
        CHILD_CHECK(qelLogSetGlobalLevel(QEL_LOG_ERROR) == 0);
        qelLogSimplify("cam", QEL_LOG_WARNING, "dropped");
        qelLogSimplify("cam", QEL_LOG_ERROR, "at E");
        CHILD_CHECK(qelLogSetModuleLevel(QEL_MODULE_DEVICE, QEL_LOG_VERBOSE) == 0);
        qelLogSimplify("cam", QEL_LOG_VERBOSE, "dropped");
        CHILD_CHECK(qelLogSetGlobalLevel(static_cast<QelLogLevel>(-5)) == 0);
        qelLogSimplify("cam", static_cast<QelLogLevel>(-3), "below zero");
        return 0;
    });
    EXPECT_CHILD_OK(result);
    EXPECT_EQ("cam I at the start|cam E at E|cam ? below zero|", summary(result.out));
    EXPECT_TRUE(logFiles(result.dir).empty()) << "no file before the writer is on";
}

// Every field is cut at its size less one; NULL strings give empty fields.
TEST(LogRecordsTest, FieldsAreCutAtTheirSize) {
    auto result = runChild([] {
        qelLogSimplify(std::string(200, 'm').c_str(), QEL_LOG_INFO, "");
        qelLogSimplify("cam", QEL_LOG_ERROR, std::string(2047, 'f').c_str());
        qelLogSimplify("cut", QEL_LOG_ERROR, (std::string(2047, 'c') + "X").c_str());
        CHILD_CHECK(qelLogWrite(nullptr, QEL_LOG_WARNING, nullptr, 0, nullptr, nullptr) == 0);
        return 0;
    });
    EXPECT_CHILD_OK(result);
    EXPECT_EQ(std::string(127, 'm') + " I |cam E " + std::string(2047, 'f') + "|cut E " +
                  std::string(2047, 'c') + "| W |", summary(result.out));
}

// The error slot is logged in lower-case hexadecimal at E, and kept; at 0 nothing is logged.
// Records logged while the console writer is off never show on it.
TEST(LogRecordsTest, ErrnoAndConsoleSwitch) {
    auto result = runChild([] {
        CHILD_CHECK(qelLogErrno("err") == 0);
        *ErrnoLocal() = static_cast<int>(0x8030010Au);
        CHILD_CHECK(qelLogErrno("err") == 0 && *ErrnoLocal() == static_cast<int>(0x8030010Au));
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0 && qelLogConfigConsoleWriter(false) == 0);
        qelLogSimplify("cam", QEL_LOG_ERROR, "nowhere");
        CHILD_CHECK(qelLogConfigConsoleWriter(true) == 0 && qelLogConfigConsoleWriter(true) == 0);
        qelLogSimplify("cam", QEL_LOG_ERROR, "back");
        return 0;
    });
    EXPECT_CHILD_OK(result);
    EXPECT_EQ("err E Errno:0x8030010a|cam E back|", summary(result.out));
}

// A record carries the kernel id of the thread that made it (which each thread logs as its text
// here): the process id on the main thread.
TEST(LogRecordsTest, RecordsCarryTheirThreadId) {
    auto result = runChild([] {
        auto logOwnId = [] {
            qelLogSimplify("t", QEL_LOG_INFO, std::to_string(syscall(SYS_gettid)).c_str());
        };
        logOwnId();
        std::thread(logOwnId).join();
        return 0;
    });
    EXPECT_CHILD_OK(result);
    for (const Record& record : parseRecords(result.out)) {
        EXPECT_EQ(std::stol(record.text), record.tid);
    }
    EXPECT_EQ(0u, summary(result.out).find("t I " + std::to_string(result.pid) + "|t I "));
}

// At fixed instants the timestamp text is local time and the record's time its tail,
// milliseconds unpadded; a new second and a new zone show at once.
TEST(LogRecordsTest, TimeOfDayFollowsTheClockAndTheZone) {
    const int millis[] = {0, 5, 9, 10, 99, 100, 999, 1045};
    auto result = runChild([&] {
        setenv("TZ", "QEL-05:30", 1);
        tzset();
        for (int ms : millis) {
            g_wallMicros = 1794865643000000LL + ms * 1000LL;  // 2026-11-16 21:47:23 UTC and ms
            qelLogSimplify("t", QEL_LOG_INFO, qel::localTimeFormat().c_str());
        }
        setenv("TZ", "UTC0", 1);
        tzset();
        qelLogSimplify("t", QEL_LOG_INFO, qel::localTimeFormat().c_str());
        return 0;
    });
    EXPECT_CHILD_OK(result);
    std::string expected, stamped;
    for (int ms : millis) {
        const auto time = (ms < 1000 ? "03:17:23:" : "03:17:24:") + std::to_string(ms % 1000);
        expected += "2026-11-17-" + time + " at " + time + "|";
    }
    expected += "2026-11-16-21:47:24:45 at 21:47:24:45|";
    for (const Record& record : parseRecords(result.out)) {
        stamped += record.text + " at " + record.time + "|";
    }
    EXPECT_EQ(expected, stamped);
}

// Formats through the va_list entry point; no format check, so that a NULL format can be passed.
static int formatV(const char* module, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int result = qelLogFormatV(module, QEL_LOG_INFO, format, args);
    va_end(args);
    return result;
}

// A formatted text is what snprintf makes of the format and values, cut like a copied text at
// 2047 bytes and then before a UTF-8 character the cut split. A record below its threshold is
// not formatted: its value, which formatting would read at address 1, is never read.
TEST(LogFormatTest, TextIsThePrintfTextCutBeforeASplitCharacter) {
    const std::string pad(2045, 'p');
    const char* const e = "\xC3\xA9";  // two bytes
    auto result = runChild([&] {
        qelLogFormat("fmt", QEL_LOG_INFO, "%d|%5.2f|%-4s|%x|%c|%%", -42, 3.14159, "ab", 255u, 'z');
        qelLogWriteFormat("loc", QEL_LOG_WARNING, "f.c", 7, "fn", "%s=%lu", "n", 123456789012UL);
        CHILD_CHECK(formatV("vee", "%s %d", "v", 5) == 0 && formatV("nul", nullptr) == 0);
        qelLogFormat("cut", QEL_LOG_INFO, "%s%s", pad.c_str(), "abc");
        qelLogFormat("two", QEL_LOG_INFO, "%sa%s", pad.c_str(), e);
        qelLogFormat("three", QEL_LOG_INFO, "%s\xE2\x82\xAC", pad.c_str());
        qelLogFormat("four", QEL_LOG_INFO, "%s\xF0\x9F\x93\xB7", pad.substr(1).c_str());
        qelLogFormat("whole", QEL_LOG_INFO, "%s%s!", pad.c_str(), e);
        CHILD_CHECK(qelLogFormat("drop", QEL_LOG_VERBOSE, "%s", reinterpret_cast<char*>(1)) == 0);
        return 0;
    });
    EXPECT_CHILD_OK(result);
    char fmt[64];
    snprintf(fmt, sizeof(fmt), "%d|%5.2f|%-4s|%x|%c|%%", -42, 3.14159, "ab", 255u, 'z');
    EXPECT_EQ("fmt I " + std::string(fmt) + "|loc W n=123456789012|vee I v 5|nul I |cut I " +
                  pad + "ab|two I " + pad + "a|three I " + pad + "|four I " + pad.substr(1) +
                  "|whole I " + pad + e + "|", summary(result.out));
}

// A record handed straight to the manager, as the kit's libraries may do.
static void writeThroughManager(const char* module, QelLogLevel level, const char* text) {
    LogMessage msg = {};
    strcpy(msg.module, module);
    strcpy(msg.text, text);
    strcpy(msg.timeText, "00:00:00:0");
    msg.level = level;
    qel::QelLog::getInstance().writeFormatLog(msg);
}

// A module threshold replaces the global one for the names it matches, on every write path; the
// pattern set last wins, also when set again, and clearing one lets the others or the global
// threshold apply. '*' matches any run of bytes, '?' any one byte, anything else itself, over
// the whole name as the record carries it, cut at 127 characters; a pattern that could match no
// such name is refused.
TEST(ModuleThresholdTest, TheLastMatchingPatternDecides) {
    const std::string longName(200, 'L');
    const std::tuple<const char*, const char*, bool> cases[] = {
        {"net*", "net", true},   {"net*", "net.tcp", true}, {"net*", "ne", false},
        {"net*", "xnet", false}, {"*cam", "ipcam", true},   {"*cam", "camx", false},
        {"n?t", "nut", true},    {"n?t", "nt", false},      {"n?t", "neet", false},
        {"a*b*c", "aXbc", true}, {"a*b*c", "acb", false},   {"*ab", "aab", true},
        {"**", "", true},        {"cam", "cam", true},      {"cam", "Cam", false}};
    auto result = runChild([&] {
        for (const auto& [pattern, name, matches] : cases) {
            CHILD_CHECK(qelLogSetModuleThreshold(pattern, QEL_LOG_ERROR) == 0);
            if ((qelLogGetModuleThreshold(name) == QEL_LOG_ERROR) != matches) {
                fprintf(stderr, "pattern '%s', name '%s'\n", pattern, name);
            }
            CHILD_CHECK(qelLogClearModuleThresholds() == 0);
        }
        CHILD_CHECK(qelLogSetModuleThreshold("net*", QEL_LOG_VERBOSE) == 0);
        CHILD_CHECK(qelLogSetModuleThreshold("net.tcp", QEL_LOG_ERROR) == 0);
        qelLogSimplify("net.udp", QEL_LOG_VERBOSE, "verbose udp");
        writeThroughManager("net.udp", QEL_LOG_VERBOSE, "verbose udp");
        qelLogFormat("net.tcp", QEL_LOG_WARNING, "dropped");
        qelLogSimplify("cam", QEL_LOG_VERBOSE, "dropped");
        CHILD_CHECK(qelLogSetModuleThreshold("net*", QEL_LOG_WARNING) == 0);
        qelLogWrite("net.tcp", QEL_LOG_WARNING, "f", 1, "g", "tcp warning");
        CHILD_CHECK(qelLogClearModuleThreshold("net*") == 0);
        CHILD_CHECK(qelLogClearModuleThreshold("x") == 0);  // none set: nothing to do
        writeThroughManager("net.tcp", QEL_LOG_WARNING, "dropped");
        qelLogSimplify("net.udp", QEL_LOG_INFO, "udp at the global threshold");
        CHILD_CHECK(qelLogSetModuleThreshold(longName.substr(0, 127).c_str(), QEL_LOG_VERBOSE) ==
                    0);
        qelLogSimplify(longName.c_str(), QEL_LOG_VERBOSE, "long name");
        CHILD_CHECK(qelLogClearModuleThresholds() == 0 && qelLogGetModuleThreshold("net.tcp") == 1);
        for (const char* refused : {static_cast<const char*>(nullptr), "", longName.c_str()}) {
            *ErrnoLocal() = 0;
            CHILD_CHECK(qelLogSetModuleThreshold(refused, QEL_LOG_VERBOSE) == -1 &&
                        *ErrnoLocal() == kInvalidParameter &&
                        qelLogClearModuleThreshold(refused) == -1);
        }
        return 0;
    });
    EXPECT_CHILD_OK(result);
    EXPECT_EQ("net.udp V verbose udp|net.udp V verbose udp|net.tcp W tcp warning|"
              "net.udp I udp at the global threshold|" + longName.substr(0, 127) + " V long name|",
              summary(result.out));
    EXPECT_EQ("", result.err);
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
        CHILD_CHECK(qelLogSetLevelSpec("isp=V,i,cam=X") == -1);
        CHILD_CHECK(*ErrnoLocal() == kInvalidParameter);
        qelLogSimplify("isp", QEL_LOG_WARNING, "dropped");
        CHILD_CHECK(qelLogSetLevelSpec("isp=V,i,isp=Warning") == 0);
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

// Four threads log while thresholds, the console writer, the folder and the size limit change
// over and over. A module that no pattern matches keeps every record and one whose pattern stays
// set loses every record, whatever table a record meets; a replaced table is freed only once no
// record can read it (the sanitizers watch that). An inconsistent lock order deadlocks here (the
// child is killed), and an interleaved write shows as output that is not whole records.
TEST(ModuleThresholdTest, ChangesWhileThreadsLogLoseNothing) {
    auto result = runChild([] {
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0);
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
            qelLogConfigConsoleWriter(i % 3 != 0);
            qelLogSetMaxSize(i % 5 == 0 ? 0 : 1u << 30);  // no record split
            if (i % 100 == 0) qelLogSetFileFolder(i % 200 == 0 ? "dirA" : "dirB");
        }
        done = true;
        for (auto& logger : loggers) logger.join();
        fprintf(stderr, "%d\n", steady.load());
        return 0;
    }, 240);
    EXPECT_CHILD_OK(result);
    EXPECT_LT(1000u, parseRecords(result.out).size());
    std::string records;
    for (const char* dir : {"", "/dirA", "/dirB"}) {
        records += summary(concatenatedLogs(result.dir + dir));
    }
    EXPECT_EQ(std::stoul(result.err), countOf(records, "steady I "));
    EXPECT_EQ(0u, countOf(records, "mute "));
    EXPECT_EQ(countOf(records, "|"),
              countOf(records, "steady I ") + countOf(records, "churn.x V "));
}

// Records longer than the limit spread over several files: every file but the newest is
// exactly the limit, and together they hold byte for byte what the console printed once the
// writer was on. Bytes written without a limit are not counted; a limit below what the
// current file holds sends the next record whole to a new file.
TEST(LogFilesTest, FilesSplitExactlyAtTheLimit) {
    auto result = runChild([] {
        qelLogSimplify("early", QEL_LOG_INFO, "console only");
        CHILD_CHECK(qelLogSetMaxSize(100) == 0);
        CHILD_CHECK(qelLogConfigFileWriter(true) == 0 && qelLogConfigFileWriter(true) == 0);
        for (int i = 0; i < 30; ++i) {
            qelLogSimplify("rot", QEL_LOG_INFO, std::string(i * 17 % 260, 'a' + i % 26).c_str());
        }
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0 && qelLogSetFileFolder("big") == 0);
        CHILD_CHECK(qelLogSetMaxSize(0) == 0);
        for (int i = 0; i < 12; ++i) {
            CHILD_CHECK(i != 10 || qelLogSetMaxSize(3000) == 0);
            qelLogSimplify("big", QEL_LOG_INFO, std::string(2000, 'n').c_str());
        }
        CHILD_CHECK(qelLogSetMaxSize(1000) == 0);
        qelLogSimplify("small", QEL_LOG_INFO, "whole");
        return 0;
    });
    EXPECT_CHILD_OK(result);
    const auto files = logFiles(result.dir);
    ASSERT_GT(files.size(), 10u);
    for (size_t i = 0; i < files.size(); ++i) {
        const size_t size = readFile(files[i]).size();
        EXPECT_TRUE(i + 1 < files.size() ? size == 100 : size > 0 && size <= 100) << size;
    }
    EXPECT_EQ(31u, parseRecords(result.out).size());
    EXPECT_EQ(result.out.substr(result.out.find("[rot]")), concatenatedLogs(result.dir));
    const auto big = logFiles(result.dir + "/big");
    ASSERT_EQ(3u, big.size());
    const std::string first = readFile(big[0]), second = readFile(big[1]);
    EXPECT_EQ(10 * first.find("[big]", 1) + 3000, first.size());  // counted from the limit on
    EXPECT_EQ(std::string(10, 'n'), second.substr(0, 10));       // the rest of the record
    EXPECT_GT(second.size(), 1000u);
    EXPECT_EQ(0u, readFile(big[2]).find("[small]"));
}

// Every missing level is made with mode 0755; a level to be made must fit the 256-byte level
// buffer with a "/" and a zero, and a longer one is refused rather than cut. Setting the folder
// trims spaces and reads backslashes as slashes; refusals before anything is made change
// nothing; a folder that cannot be made moves logging into a new file in the working folder
// and says so once; switching the writer off and on forgets a folder. The error slot keeps
// the last failure.
TEST(LogFilesTest, FoldersAreMadeAndSet) {
    const std::string longest = std::string(64, 'x') + "/" + std::string(63, 'y');
    const std::string tooLong = std::string(64, 'x') + "/" + std::string(64, 'z');
    auto result = runChild([&] {
        umask(0);  // the mode is the library's alone
        const std::string absolute = std::filesystem::current_path().string() + "/abs/y";
        const std::string nested = c126 + "/" + std::string(127, 'd');
        for (const std::string& path : {std::string("./"), std::string(""), std::string("a/b"),
                                        std::string("a/b"), std::string("t/x/"), absolute,
                                        std::string(254, 'a'), nested}) {
            CHILD_CHECK(qel::QelLog::createLogDirectory(path) == 0);
            CHILD_CHECK(path.size() < 3 || modeOf(path) == 0755);
        }
        CHILD_CHECK(modeOf("a") == 0755 && modeOf("t") == 0755 && *ErrnoLocal() == 0);
        CHILD_CHECK(qel::QelLog::createLogDirectory(std::string(255, 'b')) == -1);
        CHILD_CHECK(qel::QelLog::createLogDirectory(c126 + "e/" + std::string(127, 'f')) == -1);
        CHILD_CHECK(*ErrnoLocal() == kFileOpen && fflush(stderr) == 0 && ftell(stderr) == 0);
        CHILD_CHECK(qelLogSetFileFolder("  logs  ") == 0);  // writer was off: now on
        qelLogSimplify("m", QEL_LOG_INFO, "in logs");
        *ErrnoLocal() = 0;
        CHILD_CHECK(qelLogSetFileFolder("a\\b\\c") == 0 && *ErrnoLocal() == 0);
        for (const char* blank : {"", "   ", static_cast<const char*>(nullptr)}) {
            *ErrnoLocal() = 0;
            CHILD_CHECK(qelLogSetFileFolder(blank) == -1 && *ErrnoLocal() == kInvalidParameter);
        }
        CHILD_CHECK(qelLogSetFileFolder(tooLong.c_str()) == -1 && *ErrnoLocal() == kFileOpen);
        qelLogSimplify("m", QEL_LOG_INFO, "in a/b/c");
        CHILD_CHECK(qelLogSetFileFolder(("  " + longest + " ").c_str()) == 0);  // 128 trimmed
        writeFile("plain", "x");
        CHILD_CHECK(qelLogSetFileFolder("plain/sub") == -1 && *ErrnoLocal() == kFileOpen);
        qelLogSimplify("m", QEL_LOG_INFO, "fallback");
        CHILD_CHECK(qelLogSetFileFolder("logs") == 0);
        CHILD_CHECK(qelLogConfigFileWriter(false) == 0 && qelLogConfigFileWriter(true) == 0);
        qelLogSimplify("m", QEL_LOG_INFO, "after reopen");
        CHILD_CHECK(*ErrnoLocal() == kFileOpen);  // never cleared by a success
        return 0;
    });
    EXPECT_CHILD_OK(result);
    EXPECT_EQ(0u, result.err.find("mkdir error: "));
    EXPECT_EQ(1u, countOf(result.err, "mkdir error"));
    EXPECT_EQ("m I in logs|", summary(concatenatedLogs(result.dir + "/logs")));
    EXPECT_EQ("m I in a/b/c|", summary(concatenatedLogs(result.dir + "/a/b/c")));
    EXPECT_EQ("m I fallback|m I after reopen|", summary(concatenatedLogs(result.dir)));
    EXPECT_EQ(1u, logFiles(result.dir + "/" + longest).size());
    EXPECT_EQ(-1, modeOf(result.dir + "/" + tooLong));
    EXPECT_EQ(-1, modeOf(result.dir + "/plain/sub"));
}
