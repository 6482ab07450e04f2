#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <qel/file.h>

using qel::FileWrapper;

namespace {

class FileTest : public ::testing::Test {
protected:
    void SetUp() override {
        const char* base = getenv("TMPDIR");
        std::string pattern = std::string(base != nullptr ? base : "/tmp") + "/qel_file_XXXXXX";
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back('\0');
        ASSERT_NE(nullptr, mkdtemp(buffer.data()));
        m_folder = buffer.data();
    }

    void TearDown() override {
        for (const std::string& path : m_created) {
            unlink(path.c_str());
        }
        rmdir(m_folder.c_str());
    }

    // A path in the test's own folder, removed after the test.
    std::string path(const std::string& name) {
        m_created.push_back(m_folder + "/" + name);
        return m_created.back();
    }

    static void writeFile(const std::string& name, const std::string& content) {
        std::ofstream(name, std::ios::binary) << content;
    }

    static std::string readFile(const std::string& name) {
        std::ifstream in(name, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    std::string m_folder;
    std::vector<std::string> m_created;
};

// Our choice for a null name: -1, with the object and its stored name untouched.
TEST_F(FileTest, OpenModesAndTheFirstOpenWins) {
    const std::string existing = path("existing.bin");
    writeFile(existing, std::string(500, 'x'));

    std::unique_ptr<FileWrapper> reader(FileWrapper::create());
    EXPECT_EQ(-1, reader->openFile(nullptr, true, false, false));
    EXPECT_FALSE(reader->open());
    ASSERT_EQ(0, reader->openFile(existing.c_str(), true, false, false));
    EXPECT_EQ(500, reader->fileSize());
    // A second open keeps the first file under its old name.
    const std::string other = path("other.bin");
    EXPECT_EQ(0, reader->openFile(other.c_str(), false, false, false));
    EXPECT_EQ(-1, reader->openFile(nullptr, false, false, false));
    EXPECT_TRUE(reader->open());
    EXPECT_STREQ(existing.c_str(), reader->getFileName());
    EXPECT_NE(0, access(other.c_str(), F_OK));
    reader->closeFile();

    std::unique_ptr<FileWrapper> writer(FileWrapper::create());
    ASSERT_EQ(0, writer->openFile(existing.c_str(), false, false, false));
    EXPECT_EQ(0, writer->fileSize());  // a write open empties the file
    char byte = 0;
    EXPECT_EQ(0, writer->read(&byte, 1));  // the other direction gives nothing

    const std::string missing = path("missing.bin");
    std::unique_ptr<FileWrapper> absent(FileWrapper::create());
    EXPECT_EQ(-1, absent->openFile(missing.c_str(), true, false, false));
    EXPECT_FALSE(absent->open());
    EXPECT_EQ(-1, absent->openFile(nullptr, true, false, false));
    EXPECT_STREQ(missing.c_str(), absent->getFileName());
}

TEST_F(FileTest, ClosedObjectFailsButKeepsItsName) {
    const std::string name = path("closed.bin");
    std::unique_ptr<FileWrapper> file(FileWrapper::create());
    ASSERT_EQ(0, file->openFile(name.c_str(), false, false, false));
    file->closeFile();
    char buffer[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(-1, file->read(buffer, 4));
    EXPECT_EQ(-1, file->write(buffer, 4));
    EXPECT_EQ(-1, file->writetohead(buffer, 4));
    EXPECT_EQ(-1, file->writeText("%d", 1));
    EXPECT_EQ(-1, file->fileSize());
    EXPECT_EQ(-3, file->flush());
    EXPECT_EQ(-6, file->rewind());
    EXPECT_FALSE(file->open());
    EXPECT_STREQ(name.c_str(), file->getFileName());
}

TEST_F(FileTest, LimitCutsTheWriteThatPassesIt) {
    const std::string name = path("limited.bin");
    std::unique_ptr<FileWrapper> file(FileWrapper::create());
    ASSERT_EQ(0, file->openFile(name.c_str(), false, false, false));
    file->setMaxFileSize(100);
    const std::string block(60, 'L');
    EXPECT_EQ(60, file->write(block.data(), 60));
    EXPECT_EQ(40, file->write(block.data(), 60));
    EXPECT_EQ(0, file->write(block.data(), 60));
    EXPECT_EQ(0, file->flush());
    EXPECT_EQ(100, file->fileSize());

    file->setMaxFileSize(50);  // below the count: nothing more fits
    EXPECT_EQ(0, file->write(block.data(), 1));
    file->setMaxFileSize(0);  // no limit
    EXPECT_EQ(60, file->write(block.data(), 60));
    file->closeFile();
    EXPECT_EQ(std::string(160, 'L'), readFile(name));
}

// Only bytes of write() made under a limit count: not earlier unlimited writes, not head
// writes, not formatted text.
TEST_F(FileTest, OnlyLimitedWritesCount) {
    const std::string name = path("counted.bin");
    std::unique_ptr<FileWrapper> file(FileWrapper::create());
    ASSERT_EQ(0, file->openFile(name.c_str(), false, false, false));
    const std::string block(60, 'c');
    EXPECT_EQ(60, file->write(block.data(), 60));
    file->setMaxFileSize(100);
    EXPECT_EQ(10, file->writetohead("0123456789", 10));
    EXPECT_EQ(63, file->writeText("%s", "abc"));
    EXPECT_EQ(60, file->write(block.data(), 60));
    EXPECT_EQ(40, file->write(block.data(), 60));
    EXPECT_EQ(0, file->write(block.data(), 60));
    file->closeFile();
    EXPECT_EQ(163u, readFile(name).size());
}

// Our choice: a limit beyond the signed range is the largest one, still a limit in force, so
// what is written under it counts once a smaller limit is set.
TEST_F(FileTest, HugeLimitStillCounts) {
    std::unique_ptr<FileWrapper> file(FileWrapper::create());
    ASSERT_EQ(0, file->openFile(path("huge.bin").c_str(), false, false, false));
    const std::string block(60, 'h');
    file->setMaxFileSize(1UL << 63);
    EXPECT_EQ(60, file->write(block.data(), 60));
    file->setMaxFileSize(ULONG_MAX);
    EXPECT_EQ(60, file->write(block.data(), 60));
    file->setMaxFileSize(150);
    EXPECT_EQ(30, file->write(block.data(), 60));
    EXPECT_EQ(150, file->fileSize());
}

// Our choice: a negative count or a null buffer writes nothing, reads nothing from the
// buffer (the sanitizer build would see it) and gives -1, as read() does.
TEST_F(FileTest, BadArgumentsTransferNothing) {
    std::unique_ptr<FileWrapper> file(FileWrapper::create());
    ASSERT_EQ(0, file->openFile(path("bad.bin").c_str(), false, false, false));
    char one = 'z';
    EXPECT_EQ(-1, file->write(&one, -1));
    EXPECT_EQ(-1, file->write(nullptr, 16));
    EXPECT_EQ(-1, file->writetohead(&one, INT_MIN));
    EXPECT_EQ(-1, file->writetohead(nullptr, 16));
    EXPECT_EQ(-1, file->read(&one, -1));
    EXPECT_EQ(-1, file->read(nullptr, 16));
    EXPECT_EQ(0, file->fileSize());
    EXPECT_EQ(3, file->writeText("abc"));  // the write position did not move
}

TEST_F(FileTest, LoopingReadsWrapAtTheEnd) {
    const std::string name = path("ten.bin");
    writeFile(name, "0123456789");
    for (bool loop : {true, false}) {
        SCOPED_TRACE(loop ? "loop" : "no loop");
        std::unique_ptr<FileWrapper> file(FileWrapper::create());
        ASSERT_EQ(0, file->openFile(name.c_str(), true, loop, false));
        char buffer[5] = {};
        EXPECT_EQ(4, file->read(buffer, 4));
        EXPECT_STREQ("0123", buffer);
        EXPECT_EQ(4, file->read(buffer, 4));
        EXPECT_EQ(2, file->read(buffer, 4));
        EXPECT_EQ(0, memcmp("89", buffer, 2));
        memset(buffer, 0, sizeof buffer);
        EXPECT_EQ(loop ? 4 : 0, file->read(buffer, 4));
        EXPECT_STREQ(loop ? "0123" : "", buffer);

        // rewind() starts reading again at 0 in both modes.
        EXPECT_EQ(0, file->rewind());
        EXPECT_EQ(4, file->read(buffer, 4));
        EXPECT_STREQ("0123", buffer);
    }
}

TEST_F(FileTest, HeadWritesKeepAFartherWritePosition) {
    const std::string far = path("far.bin");
    std::unique_ptr<FileWrapper> file(FileWrapper::create());
    ASSERT_EQ(0, file->openFile(far.c_str(), false, false, false));
    EXPECT_EQ(100, file->write(std::string(100, '.').data(), 100));
    EXPECT_EQ(16, file->writetohead("HEADHEADHEADHEAD", 16));
    EXPECT_EQ(4, file->write("tail", 4));
    file->closeFile();
    EXPECT_EQ("HEADHEADHEADHEAD" + std::string(84, '.') + "tail", readFile(far));

    // On a fresh object the head write moves the write position behind the head.
    const std::string fresh = path("fresh.bin");
    file.reset(FileWrapper::create());
    ASSERT_EQ(0, file->openFile(fresh.c_str(), false, false, false));
    EXPECT_EQ(16, file->writetohead("HEADHEADHEADHEAD", 16));
    EXPECT_EQ(4, file->write("tail", 4));
    EXPECT_EQ(23, file->writeText("%03d", 7));
    file->closeFile();
    EXPECT_EQ("HEADHEADHEADHEADtail007", readFile(fresh));
}

TEST_F(FileTest, FileNameIsCutToTheBuffer) {
    const std::string name = path("name.bin");
    std::unique_ptr<FileWrapper> file(FileWrapper::create());
    ASSERT_EQ(0, file->openFile(name.c_str(), false, false, false));
    char buffer[4096];
    memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(5, file->fileName(buffer, 5));
    EXPECT_EQ(name.substr(0, 4), std::string(buffer));
    EXPECT_EQ(static_cast<int>(name.size() + 1), file->fileName(buffer, sizeof buffer));
    EXPECT_EQ(name, std::string(buffer));
    // Our choice: a size of 0 writes nothing and gives 0.
    memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(0, file->fileName(buffer, 0));
    EXPECT_EQ('#', buffer[0]);
}

// A sparse file just over 4 GiB: the size and the read offsets must not be cut to 32 bits, and
// the wrap of a looping read must compare the full 64-bit end. The file goes to shared memory
// where there is some, since reading a hole there costs no disk and little time.
TEST_F(FileTest, OffsetsBeyondFourGigabytes) {
    std::string pattern = (access("/dev/shm", W_OK) == 0 ? std::string("/dev/shm") : m_folder) +
                          "/qel_sparse_XXXXXX";
    const int fd = mkstemp(&pattern[0]);
    ASSERT_GE(fd, 0);
    const std::string name = pattern;
    m_created.push_back(name);
    const int64_t markerAt = (int64_t{1} << 32) + 16;
    const bool written = pwrite(fd, "MARK", 4, markerAt) == 4;
    close(fd);
    if (!written) {
        GTEST_SKIP() << "no room for a sparse file of 4 GiB";
    }

    std::unique_ptr<FileWrapper> file(FileWrapper::create());
    ASSERT_EQ(0, file->openFile(name.c_str(), true, true, false));
    EXPECT_EQ(markerAt + 4, file->fileSize());

    // Walk the read position up to the marker through the hole.
    constexpr int kChunk = 1 << 18;
    std::vector<char> buffer(kChunk);
    int64_t position = 0;
    while (position < markerAt) {
        const int64_t left = markerAt - position;
        const int count = left < kChunk ? static_cast<int>(left) : kChunk;
        ASSERT_EQ(count, file->read(buffer.data(), count)) << "at " << position;
        position += count;
    }
    char marker[8] = {};
    EXPECT_EQ(4, file->read(marker, 8));
    EXPECT_STREQ("MARK", marker);
    // The read ended exactly at the end: the next one starts again at 0, in the hole.
    marker[0] = 'x';
    EXPECT_EQ(8, file->read(marker, 8));
    EXPECT_EQ('\0', marker[0]);
}

TEST_F(FileTest, FullPathNameResolvesExistingPaths) {
    char cwd[4096];
    ASSERT_NE(nullptr, getcwd(cwd, sizeof cwd));
    char out[4096];
    ASSERT_EQ(0, qel::getFullPathName(".", out, sizeof out));
    EXPECT_STREQ(cwd, out);
    char expected[4096];
    ASSERT_NE(nullptr, realpath(m_folder.c_str(), expected));

    EXPECT_EQ(-1, qel::getFullPathName(path("absent").c_str(), out, sizeof out));
    EXPECT_EQ(-1, qel::getFullPathName(nullptr, out, sizeof out));
    EXPECT_EQ(-1, qel::getFullPathName(".", nullptr, sizeof out));

    // The result with its zero must fit: a size equal to its length is refused and leaves
    // the buffer alone, one more fits.
    const unsigned int length = static_cast<unsigned int>(strlen(expected));
    memset(out, '#', sizeof out);
    EXPECT_EQ(-1, qel::getFullPathName(m_folder.c_str(), out, length));
    EXPECT_EQ('#', out[0]);
    EXPECT_EQ(0, qel::getFullPathName(m_folder.c_str(), out, length + 1));
    EXPECT_STREQ(expected, out);
}

}  // namespace
