// Folders with the facts a writer records beside its files, set by the test: the order of
// writing, ts, --since and prune across the hour that repeats in autumn and across a clock that
// went back between two runs; and the same folders with the facts gone.

#include <sys/time.h>
#include <sys/xattr.h>

#include <algorithm>

#include "read/civil_time.h"
#include "read_options.h"
#include "tools/qellog_fixture.h"

using namespace qeltest;
using qellog::WarningKind;

namespace {

const std::string kWriter = "0b6c7f0e-53a4-4c1e-9a51-3c0c2e7d1f00 10 100";
const std::string kLaterWriter = "0b6c7f0e-53a4-4c1e-9a51-3c0c2e7d1f00 20 200";
const char* const kFactNames[] = {"user.qel.writer", "user.qel.number", "user.qel.continues",
                                  "user.qel.zone"};

class RecordedFactsTest : public QellogTest {
protected:
    void SetUp() override { setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1), tzset(); }
    void TearDown() override {
        unsetenv("TZ"), tzset();
        qellog::setTimeShown(qellog::TimeShown::Writer);
    }
    // The file `name` with `bytes`, last written at `modified` (seconds since 1970), and `facts`
    // (writer, number, continues, zone; empty ones left out).
    void file(const std::string& name, const std::string& bytes, long modified,
              const Texts& facts) {
        const std::string path = m_dir / name;
        writeFile(path, bytes);
        for (std::size_t i = 0; i < facts.size(); ++i) {
            if (!facts[i].empty()) {
                ASSERT_EQ(0, setxattr(path.c_str(), kFactNames[i], facts[i].data(),
                                      facts[i].size(), 0));
            }
        }
        const timeval times[2] = {{modified, 0}, {modified, 0}};
        utimes(path.c_str(), times);
    }
    void dropFacts() {
        for (const std::string& path : logFiles(m_dir)) {
            for (const char* name : kFactNames) removexattr(path.c_str(), name);
        }
    }
    // "text ts" of each record of the folder as cat reads it with `options`.
    Texts timed(const Texts& options = {}, ReadBack* back = nullptr) {
        Texts words = {"cat"};
        words.insert(words.end(), options.begin(), options.end());
        words.push_back(m_dir);
        qellog::ReadOptions parsed;
        EXPECT_EQ(0, parseWords(qellog::parseReadOptions, words, qellog::ReadCommand::Cat, "",
                                parsed));
        ReadBack all;
        back = back != nullptr ? back : &all;
        qellog::readPaths(parsed.paths, std::ref(*back), std::ref(*back));
        Texts texts;
        for (const qellog::Record& r : back->records) {
            if (parsed.filter.matches(r)) texts.push_back(r.text() + " " +
                                  qellog::shownTimestamp(r.utcMs, r.zoneOffset).substr(11));
        }
        return texts;
    }
};

// 03:00 CEST becomes 02:00 CET on 2026-10-25 (01:00 UTC): the file opened at 02:10 CET sorts
// by name before the one opened at 02:30 CEST, and the hour from 02:00 repeats.
TEST_F(RecordedFactsTest, TheHourThatRepeatsIsReadInTheOrderOfWriting) {
    const std::string early = "QelLog2026-10-25-02-30-00-0.log", late = "QelLog2026-10-25-02-10-00-0.log";
    file(early, recordBytes("a", "02:30:00:0") + recordBytes("b", "02:59:59:500") +
                    recordBytes("c", "02:00:00:200") + recordBytes("d", "02:05:00:0"),
         1792890301, {kWriter, "1", "", "1792888200 7200 CEST\n1792890000 3600 CET\n"});
    file(late, recordBytes("e", "02:10:00:0") + recordBytes("f", "02:40:00:0"), 1792892400,
         {kWriter, "2", "", "1792890600 3600 CET\n"});
    const Texts local = {"a 02:30:00.000+02:00", "b 02:59:59.500+02:00", "c 02:00:00.200+01:00",
                         "d 02:05:00.000+01:00", "e 02:10:00.000+01:00", "f 02:40:00.000+01:00"};
    ReadBack back;
    EXPECT_EQ(local, timed({}, &back));
    EXPECT_TRUE(back.warnings.empty());
    EXPECT_EQ(Texts({"c 01:00:00.200+00:00", "d 01:05:00.000+00:00", "e 01:10:00.000+00:00",
                     "f 01:40:00.000+00:00"}),
              timed({"--utc", "--since", "2026-10-25 01:00"}));
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1), tzset();
    EXPECT_EQ("would delete " + (m_dir / early).string() + "\n",
              run({"prune", m_dir, "--keep", "1", "--dry-run"}).out);

    // Without the facts: the reading zone's rules, and the time of last writing, tell the same,
    // with a warning that the names are out of order.
    dropFacts();
    ReadBack bare;
    EXPECT_EQ(local, timed({}, &bare));
    EXPECT_EQ(std::vector<WarningKind>{WarningKind::ClockWentBack}, bare.warningKinds());
    EXPECT_EQ("would delete " + (m_dir / early).string() + "\n",
              run({"prune", m_dir, "--keep", "1", "--dry-run"}).out);
}

// The second run's files carry times an hour before the first run's: its process started later
// on the same boot, so they come after, with a warning; prune keeps them.
TEST_F(RecordedFactsTest, ARunAfterTheClockWentBackComesAfterTheRunBefore) {
    const Texts names = {"QelLog2026-11-20-10-00-00-0.log", "QelLog2026-11-20-10-30-00-0.log",
                         "QelLog2026-11-20-09-35-00-0.log", "QelLog2026-11-20-09-50-00-0.log"};
    const long opened[] = {1795168800, 1795170600, 1795167300, 1795168200};
    for (int i = 0; i < 4; ++i) {
        std::string time = names[i].substr(17, 8) + ":0";
        std::replace(time.begin(), time.end(), '-', ':');
        file(names[i], recordBytes(std::to_string(i), time.c_str()),
             opened[i] + 60, {i < 2 ? kWriter : kLaterWriter, std::to_string(i % 2 + 1), "",
                              std::to_string(opened[i]) + " 0 UTC\n"});
    }
    ReadBack back;
    EXPECT_EQ(Texts({"0", "1", "2", "3"}), read().texts());
    timed({}, &back);
    ASSERT_EQ(1u, back.warnings.size());
    EXPECT_EQ(names[2], back.warnings[0].file);
    EXPECT_EQ("would delete " + (m_dir / names[0]).string() + "\n",
              run({"prune", m_dir, "--keep", "2", "--dry-run"}).out);
}

}  // namespace
