// Folders with writers' facts set by the test, and without them: the order of writing, ts,
// --since and prune across the hour that repeats in autumn and a clock that went back.

#include <sys/time.h>

#include "read/civil_time.h"
#include "read_options.h"
#include "tools/qellog_fixture.h"

using namespace qeltest;

namespace {

const char* const kFactNames[] = {"user.qel.writer", "user.qel.number", "user.qel.zone"};
const std::string kBoot = "0b6c7f0e-53a4-4c1e-9a51-3c0c2e7d1f00 ";

class RecordedFactsTest : public QellogTest {
protected:
    void SetUp() override { setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1), tzset(); }  // Berlin
    void TearDown() override { unsetenv("TZ"), tzset(); }
    // The file `name` holding `bytes`, last written at `modified` (seconds since 1970), with the
    // facts writer, number and zone.
    void file(const std::string& name, const std::string& bytes, long modified,
              const Texts& facts) {
        const std::string path = m_dir / name;
        writeFile(path, bytes);
        for (int i = 0; i < 3; ++i) {
            ASSERT_EQ(0, setxattr(path.c_str(), kFactNames[i], facts[i].data(), facts[i].size(),
                                  0));
        }
        const timeval times[2] = {{modified, 0}, {modified, 0}};
        utimes(path.c_str(), times);
    }
    // "text ts" of each record that cat with `options` prints; `back` gets what was read.
    Texts timed(ReadBack& back, Texts options = {}) {
        options.insert(options.begin(), "cat"), options.push_back(m_dir);
        qellog::ReadOptions parsed;
        EXPECT_EQ(0, parseWords(qellog::parseReadOptions, options, qellog::ReadCommand::Cat, "",
                                parsed));
        qellog::readPaths(parsed.paths, std::ref(back), std::ref(back));
        Texts texts;
        for (const qellog::Record& r : back.records) {
            const std::string ts = qellog::shownTimestamp(r.utcMs, r.zoneOffset);
            if (parsed.filter.matches(r)) texts.push_back(r.text() + " " + ts.substr(11));
        }
        qellog::setTimeShown(qellog::TimeShown::Writer);
        return texts;
    }
    std::string pruned(const char* keep) {
        SetUp();  // --utc set the process's zone
        return run({"prune", m_dir, "--keep", keep, "--dry-run"}).out;
    }
};

// 03:00 CEST becomes 02:00 CET on 2026-10-25 (01:00 UTC): the file opened at 02:10 CET sorts
// by name before the one opened at 02:30 CEST, and the hour from 02:00 repeats.
TEST_F(RecordedFactsTest, TheHourThatRepeatsIsReadInTheOrderOfWriting) {
    const std::string early = "QelLog2026-10-25-02-30-00-0.log";
    file(early, recordBytes("a", "02:30:00:0") + recordBytes("b", "02:59:59:500") +
                    recordBytes("c", "02:00:00:200") + recordBytes("d", "02:05:00:0"),
         1792890301, {kBoot + "10 100", "1", "1792888200 7200 CEST\n1792890000 3600 CET\n"});
    file("QelLog2026-10-25-02-10-00-0.log", recordBytes("e", "02:10:00:0") +
         recordBytes("f", "02:40:00:0"), 1792892400,
         {kBoot + "10 100", "2", "1792890600 3600 CET\n"});
    const Texts local = {"a 02:30:00.000+02:00", "b 02:59:59.500+02:00", "c 02:00:00.200+01:00",
                         "d 02:05:00.000+01:00", "e 02:10:00.000+01:00", "f 02:40:00.000+01:00"};
    ReadBack back, since, utc, bare;
    EXPECT_EQ(local, timed(back));
    EXPECT_TRUE(back.warnings.empty());
    // The first 02:59:59.600 of the day is CEST: c is after it, b before.
    EXPECT_EQ(Texts(local.begin() + 2, local.end()),
              timed(since, {"--since", "2026-10-25 02:59:59.600"}));
    EXPECT_EQ(Texts({"c 01:00:00.200+00:00", "d 01:05:00.000+00:00", "e 01:10:00.000+00:00",
                     "f 01:40:00.000+00:00"}),
              timed(utc, {"--utc", "--since", "2026-10-25 01:00"}));
    EXPECT_EQ("would delete " + (m_dir / early).string() + "\n", pruned("1"));
    // Without the facts, the reading zone's rules and the times of last writing tell the same,
    // with a warning that the names are out of the order of writing.
    dropFacts(m_dir);
    EXPECT_EQ(local, timed(bare));
    EXPECT_EQ(std::vector<qellog::WarningKind>{qellog::WarningKind::ClockWentBack},
              bare.warningKinds());
    EXPECT_EQ("would delete " + (m_dir / early).string() + "\n", pruned("1"));
}

// The second run's files carry times before the first run's: its process started later on the
// same boot, so they come after, with a warning naming its first file; prune keeps them.
TEST_F(RecordedFactsTest, ARunAfterTheClockWentBackComesAfterTheRunBefore) {
    // The second run's clock went back once more between its two files.
    const Texts names = {"QelLog2026-11-20-10-00-00-0.log", "QelLog2026-11-20-10-30-00-0.log",
                         "QelLog2026-11-20-09-50-00-0.log", "QelLog2026-11-20-09-35-00-0.log"};
    const long opened[] = {1795168800, 1795170600, 1795168200, 1795167300};
    for (int i = 0; i < 4; ++i) {
        file(names[i], recordBytes(std::to_string(i)), opened[i] + 60,
             {kBoot + (i < 2 ? "10 100" : "20 200"), std::to_string(i % 2 + 1),
              std::to_string(opened[i]) + " 0 UTC\n"});
    }
    ReadBack back;
    timed(back);
    EXPECT_EQ(Texts({"0", "1", "2", "3"}), back.texts());
    ASSERT_EQ(1u, back.warnings.size());
    EXPECT_EQ(names[2], back.warnings[0].file);
    EXPECT_EQ("would delete " + (m_dir / names[0]).string() + "\n", pruned("2"));
}

}  // namespace
