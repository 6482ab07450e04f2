#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <ctime>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <qel/file.h>
#include <qel/timeutils.h>

#include "platform/event_impl.h"
#include "platform/thread_impl.h"
#include "support/test_support.h"

using namespace qel;
using Clock = std::chrono::steady_clock;

// Polls for up to 30 s.
template <typename Condition>
static bool eventually(Condition condition) {
    for (const auto end = Clock::now() + std::chrono::seconds(30); !condition(); sleepMs(1)) {
        if (Clock::now() >= end) return false;
    }
    return true;
}

// No increment is lost and no value handed out twice while two threads race (a plain add
// shows under the thread sanitizer); each call returns the new value, wrapping at the ends
// of the range. Entering twice does not block.
TEST(CriticalSectionTest, CountersAndRecursiveEntry) {
    constexpr int kPerThread = 500000;
    int counter = 0;
    std::vector<std::atomic<char>> seen(2 * kPerThread + 1);
    auto work = [&] {
        for (int i = 0; i < kPerThread; ++i) {
            seen[CriticalSectionWrapper::atomic32Increment(&counter)]++;
        }
    };
    std::thread first(work), second(work);
    first.join();
    second.join();
    EXPECT_EQ(2 * kPerThread, std::count(seen.begin() + 1, seen.end(), 1));
    counter = INT_MAX;
    EXPECT_EQ(INT_MIN, CriticalSectionWrapper::atomic32Increment(&counter));
    EXPECT_EQ(INT_MAX, CriticalSectionWrapper::atomic32Decrement(&counter));
    std::unique_ptr<CriticalSectionWrapper> section(CriticalSectionWrapper::create());
    section->enter();
    section->enter();
    section->leave();
    section->leave();
}

// Each set is consumed by one wait, sets before it count as one, reset clears it. Our
// choice: a negative time-out other than -1 only looks, as 0 does. Of two waiters, one set
// releases one; the other sleeps on until a second set.
TEST(EventTest, EachSetIsConsumedByOneWait) {
    std::unique_ptr<EventWrapper> event(EventWrapper::create());
    for (int timeout : {0, -2, -1500, INT_MIN}) {
        EXPECT_EQ(-100, event->wait(timeout));
        event->set();
        event->set();
        EXPECT_EQ(0, event->wait(timeout == 0 ? -1 : timeout));
    }
    event->set();
    EXPECT_EQ(0, event->reset());
    const auto start = Clock::now();
    EXPECT_EQ(-100, event->wait(100));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(99));  // late, never early
    const timespec deadline = EventImpl::deadlineAfter(timeval{10, 600000}, 1500);
    EXPECT_EQ(12, deadline.tv_sec);  // the milliseconds past a whole second carry over
    EXPECT_EQ(100000000L, deadline.tv_nsec);
    std::atomic<int> released{0};
    auto waitFor = [&](int timeoutMs) { released += event->wait(timeoutMs) == 0; };
    std::thread one(waitFor, -1), two(waitFor, 60000);
    sleepMs(20);
    event->set();
    sleepMs(100);
    EXPECT_EQ(1, released);
    event->set();
    one.join();
    two.join();
}

// Each unit is the monotonic nanosecond clock truncated, so bracketed by nanosecond reads it
// lies between their truncations. A sleep of more than a second needs both fields.
TEST(TimeUtilsTest, ClocksAndSleep) {
    for (int i = 0; i < 100000; ++i) {
        const uint64_t before = timeNanos(), millis = time(), micros = timeMicros();
        const uint64_t after = timeNanos();
        ASSERT_TRUE(before / 1000000 <= millis && millis <= after / 1000000);
        ASSERT_TRUE(before / 1000 <= micros && micros <= after / 1000);
    }
    const auto steady = std::chrono::steady_clock::now().time_since_epoch();
    EXPECT_NEAR(timeNanos(), std::chrono::nanoseconds(steady).count(), 1e9);  // not the wall clock
    EXPECT_EQ(7u, timeDiff(5u, 4294967294u));  // the later reading wrapped around
    const auto start = Clock::now();
    sleepMs(-1500);
    sleepMs(1050);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(1050));
}

// The local time follows each zone as the C library's conversion does, at every change to and
// from daylight saving time in 2026 (the second before and the second of the change, found in
// steps of 15 minutes, forwards and then back, as after a clock step) and far beyond the zone
// file's table: zones with half-hour changes, south of the equator, without daylight saving
// time any more, POSIX rules in TZ, and UTC.
TEST(TimeUtilsTest, LocalTimeFollowsTheZoneAcrossItsChanges) {
    for (const char* zone : {"Europe/Berlin", "America/New_York", "Australia/Lord_Howe",
                             "America/Sao_Paulo", "<+0330>-3:30<+0430>,J79/24,J263/24",
                             "AEST-10AEDT,M10.1.0,M4.1.0/3", "CET-1CEST,M3.5.0,M10.5.0/3", "",
                             "UTC0"}) {
        setenv("TZ", zone, 1);
        tzset();
        std::vector<time_t> instants = {2209075200, 4102444800};  // 2040, 2100
        struct tm local, before = {};
        for (time_t t = 1767225600; t < 1798761600; t += 900) {  // 2026, every 15 minutes
            if (localtime_r(&t, &local)->tm_gmtoff != before.tm_gmtoff && t > 1767225600) {
                instants.insert(instants.end(), {t - 1, t});
            }
            before = local;
        }
        std::sort(instants.begin(), instants.end());
        instants.insert(instants.end(), instants.rbegin(), instants.rend());  // and back again
        for (const time_t t : instants) {
            char expected[64];
            strftime(expected, sizeof(expected), "%Y-%m-%d-%H:%M:%S:7", localtime_r(&t, &local));
            qeltest::g_wallMicros = t * 1000000LL + 7000;
            EXPECT_EQ(expected, localTimeFormat()) << zone << " at " << t;
        }
        qeltest::g_wallMicros = -1;
    }
    unsetenv("TZ");
    tzset();
}

class FileTest : public ::testing::Test {
protected:
    std::unique_ptr<FileWrapper> open(const std::string& name, bool readOnly, bool loop = false) {
        std::unique_ptr<FileWrapper> file(FileWrapper::create());
        EXPECT_EQ(0, file->openFile(name.c_str(), readOnly, loop, false)) << name;
        return file;
    }
    qeltest::TempDir m_folder;
};

// A looping read starts again at 0 once it begins at the end; the first open wins. Our
// choice for a null name: -1, with the object and its name untouched.
TEST_F(FileTest, OpenModesAndLoopingReads) {
    const std::string existing = m_folder / "existing", other = m_folder / "other";
    qeltest::writeFile(existing, "0123456789");
    for (bool loop : {true, false}) {
        auto reader = open(existing, true, loop);
        char buffer[5] = {};
        for (int expected : {4, 4, 2, loop ? 4 : 0}) EXPECT_EQ(expected, reader->read(buffer, 4));
        EXPECT_EQ(loop ? "0123" : "8967", std::string(buffer)) << loop;
        EXPECT_EQ(0, reader->rewind());
        EXPECT_EQ(1, reader->read(buffer, 1));
        EXPECT_EQ('0', buffer[0]);
        EXPECT_EQ(0, reader->openFile(other.c_str(), false, false, false));
        EXPECT_EQ(-1, reader->openFile(nullptr, false, false, false));
        EXPECT_EQ(existing, reader->getFileName());
        EXPECT_EQ(10, reader->fileSize());
        EXPECT_EQ(0, reader->write("x", 1));  // read only
    }
    EXPECT_NE(0, access(other.c_str(), F_OK));
    EXPECT_EQ(0, open(existing, false)->fileSize());  // a write open empties the file
    std::unique_ptr<FileWrapper> absent(FileWrapper::create());
    EXPECT_EQ(-1, absent->openFile(other.c_str(), true, false, false));
    EXPECT_FALSE(absent->open());
}

// Only bytes of write() made under a limit count: not head writes, not formatted text. A head
// write keeps a farther write position. Our choice: a limit of 2^63 or more is the largest one,
// still counted; a negative count or a null buffer moves nothing.
TEST_F(FileTest, HeadWritesTheLimitAndBadArguments) {
    const std::string name = m_folder / "limited";
    auto file = open(name, false);
    const std::string block(60, 'L');
    EXPECT_EQ(10, file->writetohead("0123456789", 10));
    EXPECT_EQ(13, file->writeText("%s", "abc"));
    file->setMaxFileSize(ULONG_MAX);
    EXPECT_EQ(47, file->write(block.data(), 47));
    file->setMaxFileSize(100);
    EXPECT_EQ(10, file->writetohead("ABCDEFGHIJ", 10));
    EXPECT_EQ(63, file->writeText("%s", "abc"));
    for (const auto& c : {std::make_pair(52, 52), {2, 1}, {1, 0}}) {
        EXPECT_EQ(c.second, file->write(block.data(), c.first));  // cut to what fits
    }
    file->setMaxFileSize(0);
    EXPECT_EQ(60, file->write(block.data(), 60));
    file->setMaxFileSize(50);
    EXPECT_EQ(0, file->write(block.data(), 1));
    for (const void* buffer : {static_cast<const void*>(nullptr), static_cast<const void*>("z")}) {
        EXPECT_EQ(-1, file->write(buffer, buffer ? -1 : 16));
        EXPECT_EQ(-1, file->writetohead(buffer, buffer ? INT_MIN : 16));
    }
    char buffer[] = "########";
    EXPECT_EQ(0, file->fileName(buffer, 0));
    EXPECT_EQ(5, file->fileName(buffer, 5));
    EXPECT_EQ(name.substr(0, 4), buffer);
    file->closeFile();
    EXPECT_EQ("ABCDEFGHIJabc" + std::string(47, 'L') + "abc" + std::string(113, 'L'),
              qeltest::readFile(name));
}

// A sparse file just over 4 GiB: sizes and read offsets must not be cut to 32 bits, and the
// wrap of a looping read must compare the full end.
TEST_F(FileTest, OffsetsBeyondFourGigabytes) {
    const std::string folder = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : m_folder.path();
    std::string name = folder + "/qel_XXXXXX";
    const int fd = mkstemp(&name[0]);
    const int64_t markerAt = (int64_t{1} << 32) + 16;
    const bool written = pwrite(fd, "MARK", 4, markerAt) == 4;
    close(fd);
    auto file = open(name, true, true);
    unlink(name.c_str());
    if (!written) GTEST_SKIP() << "no room for a sparse file of 4 GiB";
    EXPECT_EQ(markerAt + 4, file->fileSize());
    std::vector<char> buffer(1 << 18);
    for (int64_t at = 0; at < markerAt; at += buffer.size()) {
        const int count = static_cast<int>(std::min<int64_t>(buffer.size(), markerAt - at));
        ASSERT_EQ(count, file->read(buffer.data(), count)) << at;
    }
    EXPECT_EQ(4, file->read(buffer.data(), 8));
    EXPECT_EQ("MARK", std::string(buffer.data(), 4));
    EXPECT_EQ(8, file->read(buffer.data(), 8));  // ended exactly at the end: the next starts at 0
    EXPECT_EQ('\0', buffer[0]);
}

// The resolved path and its zero must fit: one byte short is refused, the buffer untouched.
TEST_F(FileTest, FullPathNames) {
    char real[PATH_MAX], out[PATH_MAX] = "#";
    ASSERT_NE(nullptr, realpath(m_folder.path().c_str(), real));
    const std::string twisted = m_folder.path() + "/./../" + basename(real);
    EXPECT_EQ(-1, getFullPathName(twisted.c_str(), out, strlen(real)));
    EXPECT_STREQ("#", out);
    EXPECT_EQ(0, getFullPathName(twisted.c_str(), out, strlen(real) + 1));
    EXPECT_STREQ(real, out);
    EXPECT_EQ(-1, getFullPathName((m_folder / "missing").c_str(), out, sizeof(out)));
    EXPECT_EQ(-1, getFullPathName(nullptr, out, sizeof(out)));
    EXPECT_EQ(-1, getFullPathName(real, nullptr, sizeof(out)));
}

namespace qel {

// Reaches into a thread object: its lock, and its handle (hidden, stop() only asks).
class ThreadImplTestPeer {
public:
    static CriticalSectionWrapper& critSect(ThreadImpl& thread) { return *thread.m_critSect; }
    static pthread_t& handle(ThreadImpl& thread) { return thread.m_thread; }
};

}  // namespace qel

// The run function: counts its calls, records its thread, asks again while g_keepGoing.
static std::atomic<int> g_calls{0};
static std::atomic<long> g_threadId{0};
static std::atomic<bool> g_keepGoing{true};
static bool run(void*) {
    g_threadId = ThreadWrapper::getThreadId();
    ++g_calls;
    sleepMs(1);
    return g_keepGoing;
}

// The system shows the name under the new thread's own id: Linux keeps 15 characters, and
// an empty name keeps the creator's.
TEST(ThreadTest, TheSystemShowsTheNameAndId) {
    auto shownName = [](long id) {
        return qeltest::readFile("/proc/self/task/" + std::to_string(id) + "/comm");
    };
    const std::pair<const char*, std::string> cases[] = {
        {nullptr, "QEL_THREAD\n"}, {"abcdefghijklmnopqrst", "abcdefghijklmno\n"},
        {"", shownName(getpid())}};
    for (const auto& c : cases) {
        g_calls = 0;
        std::unique_ptr<ThreadWrapper> thread(ThreadWrapper::createThread(&run, nullptr, c.first));
        ASSERT_EQ(0, thread->start());
        ASSERT_TRUE(eventually([&] { return g_calls > 0; }));
        EXPECT_EQ(c.second, shownName(g_threadId));
    }
}

// Our choice: with no thread to wait for, stop() gives 0 without a join. Real-time scheduling
// depends on the machine: a refusal is accepted. A run function that returns false is called
// once, and the object starts again without a stop in between. While the test holds the lock,
// the new thread cannot come up and start() times out: a second start() must not create another
// thread, and a stop request made then must survive: the thread ends without a call.
TEST(ThreadTest, StartStopAndPriority) {
    g_calls = 0;
    ThreadImpl thread(&run, nullptr, "loop");
    EXPECT_EQ(0, thread.stop());
    EXPECT_EQ(-3, thread.setPriority(PriorityTop));
    ASSERT_EQ(0, thread.start());
    ASSERT_TRUE(eventually([&] { return g_calls >= 3; }));
    EXPECT_EQ(-3, thread.start());  // already running: no second thread
    const int result = thread.setPriority(PriorityTop);
    EXPECT_TRUE(result == 0 || result == -1) << result;
    EXPECT_EQ(0, thread.stop());
    int calls = g_calls;
    EXPECT_EQ(0, thread.stop());
    EXPECT_EQ(-3, thread.setPriority(PriorityLow));
    g_keepGoing = false;
    for (int round = 1; round <= 2; ++round) {
        ASSERT_TRUE(eventually([&] { return thread.start() == 0; }));
        ASSERT_TRUE(eventually([&] { return g_calls == calls + round; }));
    }
    ASSERT_TRUE(eventually([&] { return thread.stop() == 0; }));
    calls = g_calls;
    g_keepGoing = true;
    ThreadImplTestPeer::critSect(thread).enter();
    EXPECT_EQ(-100, thread.start());
    EXPECT_EQ(-3, thread.start());
    pthread_t held = 0;
    std::swap(ThreadImplTestPeer::handle(thread), held);
    EXPECT_EQ(0, thread.stop());
    std::swap(ThreadImplTestPeer::handle(thread), held);
    ThreadImplTestPeer::critSect(thread).leave();
    EXPECT_EQ(0, thread.stop());
    EXPECT_EQ(calls, g_calls);
    EXPECT_EQ(0, thread.start());  // afterwards the object works as usual
    const int steps[] = {PriorityLow, PriorityMiddle, PriorityHigh, PriorityHigher, PriorityTop,
                         0, 6, -1};
    const int onLinux[] = {2, 49, 96, 97, 98, 2, 2, 2}, narrowest[] = {1, 1, 1, 1, 2, 1, 1, 1};
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(onLinux[i], convertPriority(static_cast<ThreadPriority>(steps[i]), 1, 99)) << i;
        EXPECT_EQ(narrowest[i], convertPriority(static_cast<ThreadPriority>(steps[i]), 0, 3)) << i;
    }
}
