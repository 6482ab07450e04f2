// The tool's pure parts called in this process: the command-line and number parsers, prune's
// choice of files, and the record reader on bytes given by hand.

#include <climits>
#include <cstdint>

#include <gtest/gtest.h>

#include "numbers.h"
#include "options.h"
#include "prune.h"
#include "pump.h"
#include "read/record_reader.h"
#include "read/header.h"
#include "support/test_support.h"

using namespace qellog;

namespace {

// Calls `parser` with `words` as its argc and argv, then `rest`.
template <typename Parser, typename... Rest>
int parse(Parser parser, const std::vector<std::string>& words, Rest&... rest) {
    std::vector<char*> argv;
    for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    return parser(static_cast<int>(words.size()), argv.data(), rest...);
}

TEST(QellogParsers, NumbersSizesAndCodes) {
    const struct { const char* text; std::uint64_t max, value; } sizes[] = {  // value 1: refused
        {"0", UINT_MAX, 0}, {"3k", UINT_MAX, 3072}, {"4294967295", UINT_MAX, UINT_MAX},
        {"4G", UINT_MAX, 1}, {"4294967296", UINT_MAX, 1}, {"99999999999999999999", UINT64_MAX, 1},
        {"12Q", UINT_MAX, 1}, {"-1", UINT_MAX, 1}, {"K", UINT_MAX, 1}, {"", UINT_MAX, 1},
        {"16777215T", UINT64_MAX, 16777215ull << 40}, {"16777216T", UINT64_MAX, 1},
        {"18446744073709551615", UINT64_MAX, UINT64_MAX}};
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
        {{"qellog", "-x", "1", "t"}, "--explain takes no MESSAGE"},
        {{"qellog", "-x", "z"}, "bad error code 'z' for --explain: expected hexadecimal "
                                "0x8030CCII or decimal"}};
    for (const auto& c : refused) {
        Options options;
        std::string error;
        EXPECT_FALSE(parse(parseOptions, c.args, options, error) || error != c.error) << error;
    }
    const std::vector<std::string> words = {"qellog", "-m", "cam", "-l", "Warning", "-t", "V",
                                            "-d", "logs", "-s", "2K", "--no-console", "a", "b"};
    Options o;  // it points into the words
    std::string error;
    ASSERT_TRUE(parse(parseOptions, words, o, error)) << error;
    EXPECT_EQ("cam logs", std::string(o.module) + " " + o.folder);
    EXPECT_TRUE(o.level == QEL_LOG_WARNING && o.threshold == QEL_LOG_VERBOSE && o.hasThreshold);
    EXPECT_TRUE(o.hasMaxSize && o.maxSize == 2048 && !o.console && o.words.size() == 2);
}

TEST(QellogParsers, PruneArgumentsAndChoice) {
    for (const auto& args : std::vector<std::vector<std::string>>{
             {"prune", "logs"}, {"prune", "logs", "-k", "x"}, {"prune", "logs", "-s", "1Q"},
             {"prune", "logs", "-o", "-1"}, {"prune", "a", "b", "-k", "1"}}) {
        PruneRequest request;
        EXPECT_EQ(2, parse(parsePruneArguments, args, request)) << args.back();
    }
    PruneRequest request;
    ASSERT_EQ(0, parse(parsePruneArguments, {"prune", "logs", "-s", "1K", "-o", "0.5", "--dry-run"},
                       request));
    EXPECT_TRUE(request.hasTotal && request.hasAge && request.dryRun && !request.hasKeep &&
                request.maxTotal == 1024 && request.days == 0.5 && request.folder == "logs");

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
}

// The longest module a header can have, and a newest file cut right after one line feed.
TEST(QellogReader, HeaderLimitsAndQuietEnds) {
    const std::string header =
        "[" + std::string(127, 'm') + "][V" QELTEST_VERSION " W 01:02:03:4 56]";
    Header parsed;
    std::size_t length = 0;
    ASSERT_EQ(HeaderMatch::Yes, matchHeader(header.data(), header.size(), &parsed, &length));
    EXPECT_TRUE(parsed.module == std::string(127, 'm') && length == header.size());
    const std::string tooLong = "[m" + header.substr(1);
    EXPECT_EQ(HeaderMatch::No, matchHeader(tooLong.data(), tooLong.size(), nullptr, nullptr));

    RecordReader reader;
    reader.beginFile(logFileAt("logs/QelLog2026-01-01-00-00-00-0.log"), 0, false);
    const std::string bytes = header + "text\n";
    reader.append(bytes.data(), bytes.size());
    Record record;
    EXPECT_FALSE(reader.next(record, DataEnd::Quiet));  // one line feed is no record end
    reader.append("\n", 1);
    ASSERT_TRUE(reader.next(record, DataEnd::Quiet));
    EXPECT_TRUE(record.headed && record.complete);
    EXPECT_EQ("text", record.bytes.substr(record.textBegin, record.textEnd - record.textBegin));
    EXPECT_EQ("2026-01-01", record.date);
}

// A long text is cut into records at a character boundary when it is UTF-8.
TEST(QellogReader, RecordCutsKeepCharactersWhole) {
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
