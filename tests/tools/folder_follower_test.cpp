// Following a folder in this process, one pass at a time on a clock the test moves: when a
// record is complete, how split records join as their files come, where a later run resumes.

#include <unistd.h>

#include <memory>

#include "read/folder_follower.h"
#include "tools/reading.h"

using namespace qeltest;
using qellog::FolderFollower;
using qellog::WarningKind;

namespace {

constexpr long long kSettle = FolderFollower::kSettleMs;

class FolderFollowerTest : public LogFolderTest {
protected:
    std::unique_ptr<FolderFollower> follower(ReadBack& back) {
        return std::unique_ptr<FolderFollower>(new FolderFollower(
            m_dir, back.recordSink(), back.warningSink(), [this] { return m_now; }));
    }
    // One pass `ms` milliseconds after the one before; the texts handed out so far.
    Texts passAfter(long long ms = 0) {
        m_now += ms;
        m_follower->pass();
        return m_back.texts();
    }
    // A pass that sees what the files hold now, and one after the settle time.
    Texts settle() {
        passAfter();
        return passAfter(kSettle);
    }
    // The texts that a run resumed from `state` hands out once it has settled.
    Texts resumeFrom(const qellog::FollowState& state) {
        ReadBack back;
        const auto later = follower(back);
        later->resume(state, "");
        later->pass();
        m_now += kSettle;
        later->pass();
        return back.texts();
    }

    long long m_now = 1000;
    ReadBack m_back;
    std::unique_ptr<FolderFollower> m_follower = follower(m_back);
};

// A record ends with an empty line, not one line feed; and a text may itself hold an empty
// line: a record that ends with one at the end of its file is held until the file is quiet.
TEST_F(FolderFollowerTest, ARecordAtTheEndOfAFileIsHeldUntilTheFileIsQuiet) {
    std::string first = recordBytes("first");
    first.pop_back();
    writeFiles({first});
    EXPECT_EQ(Texts(), settle());
    append(0, "\n");
    EXPECT_EQ(Texts(), passAfter());
    EXPECT_TRUE(m_follower->holding());
    EXPECT_EQ(kSettle, m_follower->msUntilSettled());
    append(0, "second half\n\n");
    EXPECT_EQ(Texts(), passAfter(kSettle - 1));
    EXPECT_EQ(Texts{"first\n\nsecond half"}, passAfter(kSettle));
    EXPECT_FALSE(m_follower->holding());
}

TEST_F(FolderFollowerTest, ARecordThatGoesOnAfterTheSettleTimeEndsAsAGuess) {
    writeFiles({recordBytes("first")});
    EXPECT_EQ(Texts{"first"}, settle());
    append(0, "after a pause\n\n");
    EXPECT_EQ(Texts({"first", "after a pause"}), settle());
    EXPECT_EQ(Texts{"after a pause"}, m_back.texts(true));
    EXPECT_EQ(std::vector<WarningKind>{WarningKind::EndGuessed}, m_back.warningKinds());
    EXPECT_EQ(recordBytes("first").size(), m_back.warnings.at(0).offset);
}

// A full file grows no more once a newer file starts with a header.
TEST_F(FolderFollowerTest, ANewFileEndsTheLastRecordOfTheFullFileBeforeIt) {
    writeFiles({recordBytes(std::string(100, 'a'))});
    EXPECT_EQ(Texts(), passAfter());
    writeFiles({recordBytes("b")}, 1);
    EXPECT_EQ(Texts{std::string(100, 'a')}, passAfter());
}

// As cat prints it: the line in a file of its own is no continuation, and comes out once quiet.
TEST_F(FolderFollowerTest, AFileHoldingOnlyALineThatIsNoRecordIsAPiece) {
    writeFiles({recordBytes("one"), "a line that is no record\n"});
    EXPECT_EQ(Texts({"one", "a line that is no record\n"}), settle());
    EXPECT_EQ(Texts{"a line that is no record\n"}, m_back.texts(true));
}

// A second writer's file sorts after the first one's, which still grows.
TEST_F(FolderFollowerTest, EveryFileThatGrowsIsRead) {
    writeFiles({recordBytes("parent 1"), recordBytes("child 1")});
    passAfter();
    append(0, recordBytes("parent 2"));
    append(1, recordBytes("child 2"));
    EXPECT_EQ(Texts({"parent 1", "child 1", "parent 2", "child 2"}), settle());
}

// A record longer than a file: each part is joined as its file comes, and a run that stops
// between the two splits and resumes later gives the record once, whole.
TEST_F(FolderFollowerTest, ARecordSplitTwiceIsJoinedAsItsFilesCome) {
    const std::string text(250, 'x');
    const Texts files = splitAt(recordBytes("a") + recordBytes(text) + recordBytes("b"), 120);
    ASSERT_EQ(3u, files.size());
    writeFiles({files[0]});
    EXPECT_EQ(Texts{"a"}, settle());
    writeFiles({files[1]}, 1);
    EXPECT_EQ(Texts{"a"}, settle());
    const qellog::FollowState stopped = m_follower->progress();
    writeFiles({files[2]}, 2);
    EXPECT_EQ(Texts({"a", text, "b"}), settle());
    EXPECT_EQ(Texts(), m_back.texts(true));
    EXPECT_EQ(Texts({text, "b"}), resumeFrom(stopped));
}

// The file grew without rotating: the next run goes on after what the last one handed out.
TEST_F(FolderFollowerTest, AResumedRunStartsAfterWhatTheLastOneHandedOut) {
    writeFiles({recordBytes("one") + recordBytes("two")});
    settle();
    const qellog::FollowState stopped = m_follower->progress();
    append(0, recordBytes("three"));
    EXPECT_EQ(Texts{"three"}, resumeFrom(stopped));
}

TEST_F(FolderFollowerTest, AReplacedFileIsReadAnew) {
    writeFiles({recordBytes("old")});
    settle();
    rename(pathOf(0).c_str(), (m_dir + "/kept").c_str());  // so that the inode is not reused
    writeFiles({recordBytes("new")});
    EXPECT_EQ(Texts({"old", "new"}), settle());
    EXPECT_EQ(std::vector<WarningKind>{WarningKind::Replaced}, m_back.warningKinds());
}

// The clock went back: a new file has a name older than the files already read.
TEST_F(FolderFollowerTest, AFileWithAnOlderNameIsRead) {
    writeFiles({recordBytes("before the step")}, 5);
    settle();
    writeFiles({recordBytes("after the step")}, 1);
    EXPECT_EQ(Texts({"before the step", "after the step"}), settle());
}

// A state file is replaced in one step, but a copy or a disk may still cut it short: cut
// anywhere before its last line is whole, it is refused as a whole, never read as the files
// it still names.
TEST_F(FolderFollowerTest, AStateFileCutShortIsRefused) {
    const std::string path = m_dir + "/state", a = "QelLog2026-01-01-10-00-00-1.log",
                      b = "QelLog2026-01-01-10-00-00-2.log";
    ASSERT_TRUE(qellog::saveState(path, {{a, {7, 120, 5}}, {b, {8, 40, 0}}}));
    const std::string saved = readFile(path);
    qellog::FollowState state;
    std::string before;
    ASSERT_EQ(qellog::StateLoad::Loaded, qellog::loadState(path, state, before));
    EXPECT_TRUE(state[a].inode == 7 && state[a].offset == 120 && state[a].refMs == 5);
    for (std::size_t size = 0; size + 1 < saved.size(); ++size) {
        writeFile(path, saved.substr(0, size));
        EXPECT_EQ(qellog::StateLoad::Bad, qellog::loadState(path, state, before)) << size;
        EXPECT_TRUE(state.empty());
    }
}

}  // namespace
