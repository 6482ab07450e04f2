#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <qel/thread.h>

#include "platform/thread_impl.h"

namespace qel {

// Reaches into a thread object to hold its new thread before it comes up.
class ThreadImplTestPeer {
public:
    static CriticalSectionWrapper& critSect(ThreadImpl& thread) { return *thread.m_critSect; }
    // Makes the request of stop() without its join, which the held thread could not answer:
    // with the handle hidden for the call, stop() finds nothing to wait for.
    static void requestStop(ThreadImpl& thread) {
        const pthread_t handle = thread.m_thread;
        thread.m_thread = 0;
        EXPECT_EQ(0, thread.stop());
        thread.m_thread = handle;
    }
};

}  // namespace qel

using qel::ThreadWrapper;

template <typename Condition>
static bool eventually(Condition condition) {  // polls for up to 30 s
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return condition();
}

// A run function that counts its calls, records the thread it runs on, and asks to be called
// again while `keepGoing` holds.
struct Runner {
    std::atomic<int> calls{0};
    std::atomic<long> threadId{0};
    std::atomic<bool> keepGoing{true};

    static bool run(void* object) {
        Runner* self = static_cast<Runner*>(object);
        self->threadId = ThreadWrapper::getThreadId();
        ++self->calls;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return self->keepGoing;
    }
};

// The new thread runs under its own kernel id, under which the system shows its name.
TEST(ThreadTest, TheSystemShowsTheNameAndId) {
    auto shownName = [](long threadId) {
        std::ifstream comm("/proc/self/task/" + std::to_string(threadId) + "/comm");
        std::string name;
        std::getline(comm, name);
        return name;
    };
    const std::pair<const char*, std::string> cases[] = {
        {nullptr, "QEL_THREAD"},
        {"grabber", "grabber"},
        {"abcdefghijklmnopqrst", "abcdefghijklmno"},  // Linux keeps 15 characters
        {"", shownName(getpid())},                     // unnamed: keeps the creator's name
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.second);
        Runner runner;
        std::unique_ptr<ThreadWrapper> thread(
            ThreadWrapper::createThread(&Runner::run, &runner, c.first));
        ASSERT_EQ(0, thread->start());
        ASSERT_TRUE(eventually([&] { return runner.calls > 0; }));
        EXPECT_EQ(c.second, shownName(runner.threadId));
    }
}

// Our choice: with no thread to wait for (never started, or joined), stop() gives 0 without
// trying a join. Real-time scheduling depends on the machine: a refusal is accepted.
TEST(ThreadTest, RunsUntilStoppedOrUntilTheRunFunctionSaysNo) {
    Runner runner;
    std::unique_ptr<ThreadWrapper> thread(
        ThreadWrapper::createThread(&Runner::run, &runner, "loop"));
    EXPECT_EQ(0, thread->stop());
    EXPECT_EQ(-3, thread->setPriority(qel::PriorityTop));
    ASSERT_EQ(0, thread->start());
    ASSERT_TRUE(eventually([&] { return runner.calls >= 3; }));
    EXPECT_EQ(-3, thread->start());  // already running: no second thread
    const int result = thread->setPriority(qel::PriorityTop);
    EXPECT_TRUE(result == 0 || result == -1) << result;
    EXPECT_EQ(0, thread->stop());
    const int calls = runner.calls;
    EXPECT_EQ(0, thread->stop());
    EXPECT_EQ(-3, thread->setPriority(qel::PriorityLow));

    // A run function that returns false is called once.
    runner.keepGoing = false;
    ASSERT_EQ(0, thread->start());
    ASSERT_TRUE(eventually([&] { return runner.calls == calls + 1; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(0, thread->stop());
    EXPECT_EQ(calls + 1, runner.calls.load());
}

// The test holds the object's critical section, so the new thread cannot come up and start()
// times out. While the thread hangs there, a second start() must not create another one, and
// a stop request made then must survive the thread's coming up: it ends without calling the
// run function, so the join returns although the function would keep returning true.
TEST(ThreadTest, StartThatTimedOut) {
    Runner runner;
    qel::ThreadImpl thread(&Runner::run, &runner, "late");
    qel::CriticalSectionWrapper& section = qel::ThreadImplTestPeer::critSect(thread);
    section.enter();
    EXPECT_EQ(-100, thread.start());
    EXPECT_EQ(-3, thread.start());
    qel::ThreadImplTestPeer::requestStop(thread);
    section.leave();
    EXPECT_EQ(0, thread.stop());
    EXPECT_EQ(0, runner.calls.load());
    ASSERT_EQ(0, thread.start());  // afterwards the object works as usual
    ASSERT_TRUE(eventually([&] { return runner.calls > 0; }));
    EXPECT_EQ(0, thread.stop());
}
