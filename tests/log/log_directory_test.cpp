#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include <qel/error.h>

#include "log/qel_log.h"
#include "support/test_support.h"

using qel::QelLog;
using qeltest::runChild;

namespace {

int modeOf(const char* path) {
    struct stat status;
    return stat(path, &status) == 0 && S_ISDIR(status.st_mode) ? (status.st_mode & 07777) : -1;
}

}  // namespace

TEST(LogDirectoryTest, CreatesEveryMissingLevelWithMode0755) {
    auto result = runChild([] {
        umask(022);
        CHILD_CHECK(QelLog::createLogDirectory("./") == 0);
        CHILD_CHECK(QelLog::createLogDirectory("") == 0);
        CHILD_CHECK(QelLog::createLogDirectory("logs/a/b") == 0);
        CHILD_CHECK(modeOf("logs") == 0755 && modeOf("logs/a") == 0755);
        CHILD_CHECK(modeOf("logs/a/b") == 0755);
        CHILD_CHECK(QelLog::createLogDirectory("logs/a/b") == 0);  // existing: no change
        CHILD_CHECK(QelLog::createLogDirectory("trail/x/") == 0);
        CHILD_CHECK(modeOf("trail/x") == 0755);
        char cwd[4096];
        CHILD_CHECK(getcwd(cwd, sizeof(cwd)) != nullptr);
        const std::string absolute = std::string(cwd) + "/abs/y";
        CHILD_CHECK(QelLog::createLogDirectory(absolute) == 0);
        CHILD_CHECK(modeOf(absolute.c_str()) == 0755);
        CHILD_CHECK(*ErrnoLocal() == 0);
        return 0;
    });
    EXPECT_CHILD_OK(result);
    EXPECT_EQ("", result.err);  // nothing printed on success
}

TEST(LogDirectoryTest, RegularFileInTheWayFailsWithMessageAndCode) {
    auto result = runChild([] {
        std::ofstream("plain") << "x";
        CHILD_CHECK(QelLog::createLogDirectory("plain/sub/deeper") == -1);
        CHILD_CHECK(*ErrnoLocal() == static_cast<int>(0x80300002u));
        CHILD_CHECK(access("plain/sub", F_OK) != 0);
        return 0;
    });
    EXPECT_CHILD_OK(result);
    EXPECT_EQ(0u, result.err.find("mkdir error: "));
    EXPECT_EQ(1u, [&] {
        size_t count = 0;
        for (size_t at = result.err.find("mkdir error"); at != std::string::npos;
             at = result.err.find("mkdir error", at + 1)) {
            ++count;
        }
        return count;
    }());
}

// A level that has to be created must fit the 256-byte level buffer with a "/" and a zero;
// a longer one is refused rather than cut, while an existing long directory is accepted.
TEST(LogDirectoryTest, LevelsTooLongForTheBufferAreRefused) {
    auto result = runChild([] {
        const std::string fits(254, 'a');
        const std::string tooLong(255, 'b');
        // A single name is limited to 255 bytes by the file system too, so nest the path.
        const std::string nestedFits = std::string(126, 'c') + "/" + std::string(127, 'd');
        const std::string nestedTooLong = std::string(127, 'e') + "/" + std::string(127, 'f');
        CHILD_CHECK(QelLog::createLogDirectory(fits) == 0);
        CHILD_CHECK(QelLog::createLogDirectory(nestedFits) == 0);
        CHILD_CHECK(modeOf(nestedFits.c_str()) != -1);
        CHILD_CHECK(QelLog::createLogDirectory(tooLong) == -1);
        CHILD_CHECK(QelLog::createLogDirectory(nestedTooLong) == -1);
        CHILD_CHECK(*ErrnoLocal() == static_cast<int>(0x80300002u));
        return 0;
    });
    EXPECT_CHILD_OK(result);
}
