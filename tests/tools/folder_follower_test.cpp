// Following a folder in this process, one pass at a time on a clock the test moves.

#include "tools/qellog_fixture.h"

using namespace qeltest;
using qellog::WarningKind;

namespace {

using FolderFollowerTest = QellogTest;

// A text may hold an empty line: a record at a file's end ends once the file is quiet (a guess).
TEST_F(FolderFollowerTest, ARecordAtTheEndOfAFileEndsWhenTheFileIsQuiet) {
    std::string first = recordBytes("first");
    first.pop_back();
    writeFiles({first});
    EXPECT_EQ(Texts(), settle());
    append(0, "\n");
    EXPECT_EQ(Texts(), passAfter());
    append(0, "second half\n\n");
    EXPECT_EQ(Texts(), passAfter(kSettle - 1));
    EXPECT_EQ(Texts{"first\n\nsecond half"}, passAfter(kSettle));
    append(0, "after a pause\n\n");
    EXPECT_EQ(Texts({"first\n\nsecond half", "after a pause"}), settle());
    EXPECT_EQ(Texts{"after a pause"}, m_followed.texts(true));
    EXPECT_EQ(std::vector<WarningKind>{WarningKind::EndGuessed}, m_followed.warningKinds());
    EXPECT_EQ(first.size() + 14, m_followed.warnings.at(0).offset);
}

// A second writer's file sorts after the first one's, which still grows.
TEST_F(FolderFollowerTest, EveryFileThatGrowsIsRead) {
    writeFiles({recordBytes("parent 1"), recordBytes("child 1")});
    passAfter();
    append(0, recordBytes("parent 2"));
    append(1, recordBytes("child 2"));
    EXPECT_EQ(Texts({"parent 1", "child 1", "parent 2", "child 2"}), settle());
}

// Each part joins as its file comes; a run resumed between the splits gives the record once.
TEST_F(FolderFollowerTest, ARecordSplitTwiceIsJoinedAsItsFilesCome) {
    const std::string text(350, 'x');
    const Texts files = splitAt(recordBytes("a") + recordBytes(text) + recordBytes("b"), 120);
    ASSERT_EQ(4u, files.size());
    EXPECT_EQ(Texts{"a"}, followFiles({files[0], files[1], files[2]}));
    const qellog::FollowState stopped = m_follower->progress();
    EXPECT_EQ(Texts({"a", text, "b"}), followFiles({files[3]}, 3));
    EXPECT_EQ(Texts(), m_followed.texts(true));
    ReadBack resumed;
    m_follower = follower(resumed);
    m_follower->resume(stopped, "");
    settle();
    EXPECT_EQ(Texts({text, "b"}), resumed.texts());
}

// A file replaced under its name is read anew; one with an older name (a clock step) is read.
TEST_F(FolderFollowerTest, ReplacedFilesAndOlderNamesAreRead) {
    writeFiles({recordBytes("old")}, 5);
    settle();
    rename(pathOf(5).c_str(), (m_dir / "kept").c_str());  // so that the inode is not reused
    writeFiles({recordBytes("new")}, 5);
    writeFiles({recordBytes("older name")}, 1);
    EXPECT_EQ(Texts({"old", "older name", "new"}), settle());
    EXPECT_EQ(std::vector<WarningKind>{WarningKind::Replaced}, m_followed.warningKinds());
}

}  // namespace
