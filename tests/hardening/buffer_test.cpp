

#include <qel/timeutils.h>

#include "hardening/stand_ins.h"

using namespace qeltest;

// What waits reaches the disk by its deadline with no further call, at once with a warning
// (every record before it too), before a fork (never a second time through the child, which
// writes through), in the old folder when the writer moves, and when the writer is switched
// off; the thread that keeps the deadline ends with the writer. Each record is on disk once.
TEST(BufferTest, WaitingRecordsReachTheDiskByTheirDeadlineAndBeforeWarningsForksAndMoves) {
    auto result = runChild([] {
        const auto onDisk = [](const char* folder, const char* text) {
            return countOf(concatenatedLogs(folder), "]" + std::string(text) + "\n\n");
        };
        CHILD_CHECK(qelLogConfigConsoleWriter(false) == 0 && qelLogConfigFileBuffer(60001) == -1);
        CHILD_CHECK(qelLogConfigFileBuffer(200) == 0 && qelLogSetFileFolder("a") == 0);
        qelLogSimplify("buf", QEL_LOG_INFO, "deadline");
        for (int waited = 0; waited < 5000 && onDisk("a", "deadline") == 0; waited += 20) {
            qel::sleepMs(20);
        }
        CHILD_CHECK(onDisk("a", "deadline") == 1);
        CHILD_CHECK(qelLogConfigFileBuffer(60000) == 0);  // from here only events write out
        qelLogSimplify("buf", QEL_LOG_INFO, "before-warning");
        qelLogSimplify("buf", QEL_LOG_WARNING, "warning");
        CHILD_CHECK(onDisk("a", "before-warning") == 1 && onDisk("a", "warning") == 1);
        qelLogSimplify("buf", QEL_LOG_INFO, "before-fork");
        const pid_t child = fork();
        if (child == 0) _exit(qelLogSimplify("buf", QEL_LOG_INFO, "in-child"));  // no exit
        CHILD_CHECK(waitpid(child, nullptr, 0) == child && onDisk("a", "in-child") == 1);
        CHILD_CHECK(onDisk("a", "before-fork") == 1);
        qelLogSimplify("buf", QEL_LOG_INFO, "before-move");
        CHILD_CHECK(qelLogSetFileFolder("b") == 0);
        qelLogSimplify("buf", QEL_LOG_INFO, "before-off");
        CHILD_CHECK(qelLogConfigFileWriter(false) == 0);
        CHILD_CHECK(onDisk("a", "before-fork") == 1 && onDisk("a", "before-move") == 1);
        CHILD_CHECK(onDisk("b", "before-off") == 1);
        CHILD_CHECK(hardening::threadsNamed("qel-flush") == 0);
        return 0;
    });
    EXPECT_CHILD_OK(result);
}
