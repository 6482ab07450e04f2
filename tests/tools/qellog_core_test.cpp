// The tool's pure parts in this process: parsers, prune's choice, JSON and record cuts.

#include <climits>
#include <cstdint>

#include "json.h"
#include "numbers.h"
#include "options.h"
#include "prune.h"
#include "pump.h"
#include "read/record_reader.h"
#include "tools/qellog_fixture.h"

using namespace qellog;
using qeltest::parseWords;

namespace {

TEST(QellogParsers, NumbersSizesCodes) {
    const struct { const char* text; std::uint64_t max, value; } sizes[] = {  // value 1: refused
        {"0", UINT_MAX, 0}, {"3k", UINT_MAX, 3072}, {"4294967295", UINT_MAX, UINT_MAX},
        {"4G", UINT_MAX, 1}, {"4294967296", UINT_MAX, 1}, {"99999999999999999999", UINT64_MAX, 1},
        {"12Q", UINT_MAX, 1}, {"-1", UINT_MAX, 1}, {"K", UINT_MAX, 1}, {"", UINT_MAX, 1},
        {"16777215T", UINT64_MAX, 16777215ull << 40}, {"16777216T", UINT64_MAX, 1}};
    for (const auto& c : sizes) {
        std::uint64_t value = 1;
        EXPECT_EQ(c.value != 1, parseSize(c.text, c.max, value)) << c.text;
        EXPECT_EQ(c.value, value) << c.text;
    }
    const struct { const char* text; std::uint32_t code; } codes[] = {  // code 1: refused
        {"0x80300002", 0x80300002u}, {"0X8030010a", 0x8030010Au}, {"2150629378", 0x80300002u},
        {"-2144337918", 0x80300002u}, {"-2147483648", 0x80000000u}, {"-2147483649", 1},
        {"zz", 1}, {"0x", 1}, {"0x1FFFFFFFF", 1}, {"12a", 1}, {"", 1}, {"4294967296", 1}};
    for (const auto& c : codes) {
        int code = 1;
        EXPECT_EQ(c.code != 1, parseCode(c.text, code)) << c.text;
        EXPECT_EQ(c.code, static_cast<std::uint32_t>(code)) << c.text;
    }
}

TEST(QellogParsers, LoggingCommandLine) {
    const struct { std::vector<std::string> args; const char* error; } refused[] = {
        {{"qellog", "-q"}, "unknown option '-q' (see qellog --help)"},
        {{"qellog", "-s"}, "option --max-size needs an argument"},
        {{"qellog", "-t", "II"}, "bad level 'II' for --threshold: expected V, I, W, E or "
                                 "verbose, info, warning, error"},
        {{"qellog", "-s", "4G"}, "bad size '4G' for --max-size: expected N, NK, NM or NG, at "
                                 "most 4294967295 bytes"},
        {{"qellog", "-x", "1", "t"}, "--explain takes no MESSAGE"}};
    for (const auto& c : refused) {
        Options options;
        std::string error;
        EXPECT_FALSE(parseWords(parseOptions, c.args, options, error) || error != c.error) << error;
    }
    const std::vector<std::string> words = {"qellog", "-m", "cam", "-l", "Warning", "-t", "V",
                                            "-d", "logs", "-s", "2K", "--no-console", "a", "b"};
    Options o;  // it points into the words
    std::string error;
    ASSERT_TRUE(parseWords(parseOptions, words, o, error)) << error;
    EXPECT_EQ("cam logs", std::string(o.module) + " " + o.folder);
    EXPECT_TRUE(o.level == QEL_LOG_WARNING && o.threshold == QEL_LOG_VERBOSE && o.hasThreshold);
    EXPECT_TRUE(o.hasMaxSize && o.maxSize == 2048 && !o.console && o.words.size() == 2);
}

TEST(QellogParsers, PruneArguments) {
    PruneRequest request;
    EXPECT_EQ(2, parseWords(parsePruneArguments, {"prune", "logs", "-o", "-1"}, request));
    ASSERT_EQ(0, parseWords(parsePruneArguments,
                            {"prune", "logs", "-s", "1K", "-o", "0.5", "--dry-run"}, request));
    EXPECT_TRUE(request.hasTotal && request.hasAge && request.dryRun && !request.hasKeep &&
                request.maxTotal == 1024 && request.days == 0.5 && request.folder == "logs");
    // An age in days, or with a unit: s, m (minutes), h, d, w.
    const struct { const char* age; double days; } ages[] = {  // days -1: refused
        {"14d", 14}, {"36h", 1.5}, {"90m", 90.0 / 1440}, {"2w", 14}, {"30", 30}, {"1.5d", 1.5},
        {"1e3", -1}, {"0x10", -1}, {"5x", -1}, {"h", -1}, {"", -1}, {"+1d", -1}, {"inf", -1}};
    for (const auto& c : ages) {
        PruneRequest r;
        EXPECT_EQ(c.days < 0 ? 2 : 0, parseWords(parsePruneArguments, {"prune", "d", "-o", c.age},
                                                 r));
        EXPECT_NEAR(c.days < 0 ? 0 : c.days, r.days, 1e-9) << c.age;
    }
}

TEST(PruneTest, TheOldestFilesGoBeyondEachLimit) {
    // Five files of 300 bytes, oldest first, written 24, 20, 16, 12 and 8 hours before `now`.
    const std::time_t now = 1000000;
    std::vector<PruneCandidate> files;
    for (int i = 0; i < 5; ++i) files.push_back({300, now - 86400 + i * 3600 * 4});
    const auto chosen = [&](std::uint64_t keep, std::uint64_t total, double days) {
        PruneRequest r;
        r.hasKeep = keep != 9, r.keep = keep, r.hasTotal = total != 9, r.maxTotal = total;
        r.hasAge = days != 9, r.days = days;
        std::string marks;
        for (bool doomed : selectForDeletion(files, r, now)) marks += doomed ? 'x' : '.';
        return marks;
    };
    EXPECT_EQ("xxx.." + std::string("xxxx.") + "xx..." + "xx...",
              chosen(2, 9, 9) + chosen(0, 9, 9) + chosen(9, 900, 9) + chosen(9, 9, 0.75));
    files[0].modified = 0;  // gone meanwhile: no age known
    files[3].modified = now;  // the one written last stays, whatever its name
    EXPECT_EQ(".x...", chosen(9, 9, 0.75));
    EXPECT_EQ("xxx..", chosen(9, 0, 9));
    // Of files written in the same second, the newest name was written last.
    for (PruneCandidate& file : files) file.modified = now;
    EXPECT_EQ("xxxx.", chosen(1, 9, 9));
}

// Line breaks and control characters escaped; any byte that is not part of valid UTF-8 (cut,
// overlong, a surrogate, above U+10FFFF) becomes U+FFFD; whole characters stay as they are.
TEST(QellogJson, StringsAreValidJsonOfTheirBytes) {
    const struct { std::string bytes, json; } cases[] = {
        {"q\" b\\ \n\r\t\x01\x7f", "\"q\\\" b\\\\ \\n\\r\\t\\u0001\\u007f\""},
        {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80 \xf4\x8f\xbf\xbf",
         "\"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80 \xf4\x8f\xbf\xbf\""},
        {"\xc3", "\"\\ufffd\""}, {"\xe2\x82x", "\"\\ufffd\\ufffdx\""},
        {"\xc0\xaf", "\"\\ufffd\\ufffd\""}, {"\xe0\x80\xaf", "\"\\ufffd\\ufffd\\ufffd\""},
        {"\xed\xa0\x80", "\"\\ufffd\\ufffd\\ufffd\""}, {"\x80\xbf", "\"\\ufffd\\ufffd\""},
        {"\xf4\x90\x80\x80", "\"\\ufffd\\ufffd\\ufffd\\ufffd\""}, {"\xf8", "\"\\ufffd\""},
    };
    for (const auto& c : cases) {
        std::string json;
        appendJsonString(json, c.bytes.data(), c.bytes.size());
        EXPECT_EQ(c.json, json) << c.bytes;
    }
}

// ts with the reader's zone offset; bytes that are no record: fields empty, tid null.
TEST(QellogJson, ARecordIsOneObjectOnOneLine) {
    setenv("TZ", "XYZ-5:30", 1);
    RecordReader reader;
    reader.beginFile(logFileAt("QelLog2026-11-17-23-59-00-0.log"), 0, false);
    const std::string bytes = "stray\n[a\"b][V" QELTEST_VERSION " E 23:59:59:5 42]x\ny\n\n";
    reader.append(bytes.data(), bytes.size());
    Record piece, record;
    ASSERT_TRUE(reader.next(piece, DataEnd::Final) && reader.next(record, DataEnd::Final));
    EXPECT_EQ("{\"module\":\"a\\\"b\",\"version\":\"" QELTEST_VERSION "\",\"level\":\"E\","
              "\"time\":\"23:59:59:5\",\"tid\":42,\"text\":\"x\\ny\",\"file\":\"QelLog2026-11-17-"
              "23-59-00-0.log\",\"date\":\"2026-11-17\",\"ts\":\"2026-11-17T23:59:59.005+05:30\"}",
              recordJson(record));
    EXPECT_EQ("{\"module\":\"\",\"version\":\"\",\"level\":\"\",\"time\":\"\",\"tid\":null,"
              "\"text\":\"stray\\n\",\"file\":\"QelLog2026-11-17-23-59-00-0.log\",\"date\":"
              "\"2026-11-17\",\"ts\":\"\"}",
              recordJson(piece));
    unsetenv("TZ");
}

// A long text is cut into records at a character boundary when it is UTF-8.
TEST(QellogPump, LongTextsAreCutBetweenCharacters) {
    const auto repeat = [](const char* piece, int times) {
        std::string text;
        for (int i = 0; i < times; ++i) text += piece;
        return text;
    };
    const struct { std::string text; std::size_t cut; } cases[] = {
        {"a" + repeat("\xc3\xa9", 1500), 2047},      {repeat("\xc3\xa9", 1500), 2046},
        {repeat("\xe2\x82\xac", 1000), 2046},       {repeat("\xf0\x9f\x98\x80", 600), 2044},
        {"ab" + repeat("\xf0\x9f\x98\x80", 600), 2046}, {repeat("\x80", 3000), 2047},
        {repeat("z", 2047), 2047},                   {"short", 5}};
    for (const auto& c : cases) EXPECT_EQ(c.cut, recordCut(c.text.data(), c.text.size()));
}

}  // namespace
