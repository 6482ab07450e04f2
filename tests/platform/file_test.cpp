#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <qel/file.h>

#include "support/test_support.h"

using qel::FileWrapper;

// Each test gets its own folder, removed with everything in it afterwards.
class FileTest : public ::testing::Test {
protected:
    std::string path(const std::string& name) { return m_folder / name; }
    static std::unique_ptr<FileWrapper> open(const std::string& name, bool readOnly = false,
                                             bool loop = false) {
        std::unique_ptr<FileWrapper> file(FileWrapper::create());
        EXPECT_EQ(0, file->openFile(name.c_str(), readOnly, loop, false)) << name;
        return file;
    }
    qeltest::TempDir m_folder;
};

// Our choice for a null name: -1, with the object, open or not, and its stored name untouched.
// A looping read goes on from the start once it meets the end; rewind() starts again either way.
TEST_F(FileTest, OpenModesNullNamesAndLoopingReads) {
    const std::string existing = path("existing.bin"), other = path("other.bin");
    std::ofstream(existing) << "0123456789";
    for (bool loop : {true, false}) {
        SCOPED_TRACE(loop);
        auto reader = open(existing, true, loop);
        char buffer[5] = {};
        EXPECT_EQ(4, reader->read(buffer, 4));
        EXPECT_EQ(4, reader->read(buffer, 4));
        EXPECT_EQ(2, reader->read(buffer, 4));
        memset(buffer, 0, sizeof buffer);
        EXPECT_EQ(loop ? 4 : 0, reader->read(buffer, 4));
        EXPECT_STREQ(loop ? "0123" : "", buffer);
        EXPECT_EQ(0, reader->rewind());
        EXPECT_EQ(4, reader->read(buffer, 4));
        EXPECT_STREQ("0123", buffer);
        EXPECT_EQ(0, reader->openFile(other.c_str(), false, false, false));  // the first open wins
        EXPECT_EQ(-1, reader->openFile(nullptr, false, false, false));
        EXPECT_STREQ(existing.c_str(), reader->getFileName());
        EXPECT_EQ(10, reader->fileSize());
    }
    EXPECT_NE(0, access(other.c_str(), F_OK));
    EXPECT_EQ(0, open(existing)->fileSize());  // a write open empties the file

    const std::string missing = path("missing.bin");
    std::unique_ptr<FileWrapper> absent(FileWrapper::create());
    EXPECT_EQ(-1, absent->openFile(missing.c_str(), true, false, false));
    EXPECT_EQ(-1, absent->openFile(nullptr, true, false, false));
    EXPECT_FALSE(absent->open());
    EXPECT_STREQ(missing.c_str(), absent->getFileName());
}

// A head write on a fresh object puts the write position behind the head, and keeps one
// that is farther. Only bytes of write() made under a limit count: not unlimited writes, not
// head writes, not formatted text. Our choice: a limit of 2^63 or more is the largest one,
// still in force, so what is written under it counts once a smaller limit is set.
TEST_F(FileTest, HeadWritesAndTheLimit) {
    const std::string name = path("limited.bin");
    auto file = open(name);
    const std::string block(60, 'L');
    EXPECT_EQ(10, file->writetohead("0123456789", 10));
    EXPECT_EQ(13, file->writeText("%s", "abc"));
    EXPECT_EQ(47, file->write(block.data(), 47));
    file->setMaxFileSize(100);
    EXPECT_EQ(10, file->writetohead("ABCDEFGHIJ", 10));
    EXPECT_EQ(63, file->writeText("%s", "abc"));
    for (int expected : {60, 40, 0}) {
        EXPECT_EQ(expected, file->write(block.data(), 60));
    }
    file->setMaxFileSize(0);  // no limit
    EXPECT_EQ(60, file->write(block.data(), 60));
    file->setMaxFileSize(50);  // below the count: nothing more fits
    EXPECT_EQ(0, file->write(block.data(), 1));
    file->closeFile();
    std::ifstream written(name);
    EXPECT_EQ("ABCDEFGHIJabc" + std::string(47, 'L') + "abc" + std::string(160, 'L'),
              std::string(std::istreambuf_iterator<char>(written), {}));

    file = open(path("huge.bin"));
    file->setMaxFileSize(1UL << 63);
    EXPECT_EQ(60, file->write(block.data(), 60));
    file->setMaxFileSize(ULONG_MAX);
    EXPECT_EQ(60, file->write(block.data(), 60));
    file->setMaxFileSize(150);
    EXPECT_EQ(30, file->write(block.data(), 60));
}

// Our choice: a negative count or a null buffer transfers nothing, reads nothing from the
// buffer (the sanitizer build would see it) and gives -1, as read() does. A name buffer of
// size 0 is left alone and gives 0.
TEST_F(FileTest, BadArgumentsTransferNothingAndNamesAreCut) {
    const std::string name = path("bad.bin");
    auto file = open(name);
    char one = 'z';
    EXPECT_EQ(-1, file->write(&one, -1));
    EXPECT_EQ(-1, file->write(nullptr, 16));
    EXPECT_EQ(-1, file->writetohead(&one, INT_MIN));
    EXPECT_EQ(-1, file->writetohead(nullptr, 16));
    EXPECT_EQ(-1, file->read(&one, -1));
    EXPECT_EQ(-1, file->read(nullptr, 16));
    EXPECT_EQ(3, file->writeText("abc"));  // the write position did not move

    char buffer[] = "########";
    EXPECT_EQ(0, file->fileName(buffer, 0));
    EXPECT_EQ('#', buffer[0]);
    EXPECT_EQ(5, file->fileName(buffer, 5));
    EXPECT_EQ(name.substr(0, 4), std::string(buffer));
}

// A sparse file just over 4 GiB: the size and the read offsets must not be cut to 32 bits, and
// the wrap of a looping read must compare the full 64-bit end. Shared memory, where there is
// some, makes reading the hole cost no disk and little time.
TEST_F(FileTest, OffsetsBeyondFourGigabytes) {
    std::string name = (access("/dev/shm", W_OK) == 0 ? "/dev/shm" : m_folder.path()) + "/qel_XXXXXX";
    const int fd = mkstemp(&name[0]);
    ASSERT_GE(fd, 0);
    const int64_t markerAt = (int64_t{1} << 32) + 16;
    const bool written = pwrite(fd, "MARK", 4, markerAt) == 4;
    close(fd);
    auto file = open(name, true, true);
    unlink(name.c_str());  // the open stream keeps it
    if (!written) {
        GTEST_SKIP() << "no room for a sparse file of 4 GiB";
    }
    EXPECT_EQ(markerAt + 4, file->fileSize());
    constexpr int kChunk = 1 << 18;
    std::vector<char> buffer(kChunk);
    for (int64_t position = 0; position < markerAt; position += kChunk) {
        const int count = static_cast<int>(std::min<int64_t>(kChunk, markerAt - position));
        ASSERT_EQ(count, file->read(buffer.data(), count)) << "at " << position;
    }
    char marker[8] = {};
    EXPECT_EQ(4, file->read(marker, 8));
    EXPECT_STREQ("MARK", marker);
    marker[0] = 'x';  // the read ended exactly at the end: the next starts again in the hole
    EXPECT_EQ(8, file->read(marker, 8));
    EXPECT_EQ('\0', marker[0]);
}
