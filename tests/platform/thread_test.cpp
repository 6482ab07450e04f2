#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <memory>
#include <mutex>
#include <set>
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
    static void requestStop(ThreadImpl& thread) { thread.requestStop(); }
};

}  // namespace qel

using qel::ThreadImpl;
using qel::ThreadImplTestPeer;
using qel::ThreadWrapper;

namespace {

using Clock = std::chrono::steady_clock;

template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    while (!condition()) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// What a run function sees and does: it counts its calls, records the thread it runs on, and
// asks to be called again while `keepGoing` holds.
struct Runner {
    std::atomic<int> calls{0};
    std::atomic<long> threadId{0};
    std::atomic<pthread_t> handle{0};
    std::atomic<bool> keepGoing{true};
    std::mutex idsMutex;
    std::set<long> threadIds;  // guarded by idsMutex

    static bool run(void* object) {
        Runner* self = static_cast<Runner*>(object);
        const long id = ThreadWrapper::getThreadId();
        {
            std::lock_guard<std::mutex> lock(self->idsMutex);
            self->threadIds.insert(id);
        }
        self->threadId = id;
        self->handle = pthread_self();
        ++self->calls;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return self->keepGoing;
    }
};

std::string threadName(long threadId) {
    std::ifstream comm("/proc/self/task/" + std::to_string(threadId) + "/comm");
    std::string name;
    std::getline(comm, name);
    return name;
}

// The new thread runs under its own kernel id and shows its name; the main thread's id is the
// process id.
TEST(ThreadTest, TheSystemShowsTheNameAndId) {
    EXPECT_EQ(static_cast<long>(getpid()), ThreadWrapper::getThreadId());  // the main thread
    const std::string ownName = threadName(ThreadWrapper::getThreadId());
    const struct {
        const char* given;
        std::string shown;
    } cases[] = {
        {nullptr, "QEL_THREAD"},
        {"grabber", "grabber"},
        {"abcdefghijklmnopqrst", "abcdefghijklmno"},  // Linux keeps 15 characters
        {"", ownName},                                 // unnamed: keeps the creator's name
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.given != nullptr ? c.given : "(null)");
        Runner runner;
        std::unique_ptr<ThreadWrapper> thread(
            ThreadWrapper::createThread(&Runner::run, &runner, c.given));
        ASSERT_EQ(0, thread->start());
        ASSERT_TRUE(eventually([&] { return runner.calls > 0; }, std::chrono::seconds(30)));
        EXPECT_NE(ThreadWrapper::getThreadId(), runner.threadId.load());
        EXPECT_EQ(c.shown, threadName(runner.threadId));
        EXPECT_EQ(0, thread->stop());
    }
}

TEST(ThreadTest, FalseEndsTheThreadAfterOneCall) {
    Runner runner;
    runner.keepGoing = false;
    std::unique_ptr<ThreadWrapper> thread(
        ThreadWrapper::createThread(&Runner::run, &runner, "once"));
    ASSERT_EQ(0, thread->start());
    ASSERT_TRUE(eventually([&] { return runner.calls > 0; }, std::chrono::seconds(30)));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(0, thread->stop());
    EXPECT_EQ(1, runner.calls.load());

    // An ended thread object starts again, with a new thread.
    ASSERT_EQ(0, thread->start());
    ASSERT_TRUE(eventually([&] { return runner.calls == 2; }, std::chrono::seconds(30)));
    // Started again without a stop in between: the finished thread is replaced. Until it has
    // left its run loop the object still counts as running.
    int result = 0;
    ASSERT_TRUE(eventually([&] { return (result = thread->start()) != -3; },
                           std::chrono::seconds(30)));
    EXPECT_EQ(0, result);
    ASSERT_TRUE(eventually([&] { return runner.calls == 3; }, std::chrono::seconds(30)));
    EXPECT_EQ(0, thread->stop());
    EXPECT_EQ(3, runner.calls.load());
    EXPECT_EQ(3u, runner.threadIds.size());
}

TEST(ThreadTest, RunsUntilStoppedAndRestarts) {
    Runner runner;
    std::unique_ptr<ThreadWrapper> thread(
        ThreadWrapper::createThread(&Runner::run, &runner, "loop"));
    ASSERT_EQ(0, thread->start());
    ASSERT_TRUE(eventually([&] { return runner.calls >= 3; }, std::chrono::seconds(30)));
    EXPECT_EQ(-3, thread->start());  // already running: no second thread
    EXPECT_EQ(0, thread->stop());
    const int calls = runner.calls;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(calls, runner.calls.load());

    ASSERT_EQ(0, thread->start());
    ASSERT_TRUE(eventually([&] { return runner.calls > calls; }, std::chrono::seconds(30)));
    thread.reset();  // the destructor stops it
    const int final = runner.calls;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(final, runner.calls.load());
    EXPECT_EQ(2u, runner.threadIds.size());  // two runs, two threads
}

// Our choice: with no thread to wait for, stop() succeeds without trying a join.
TEST(ThreadTest, StopWithoutAThreadSucceeds) {
    Runner runner;
    std::unique_ptr<ThreadWrapper> thread(
        ThreadWrapper::createThread(&Runner::run, &runner, "idle"));
    EXPECT_EQ(0, thread->stop());
    ASSERT_EQ(0, thread->start());
    EXPECT_EQ(0, thread->stop());
    EXPECT_EQ(0, thread->stop());  // already joined; the destructor stops a third time
}

// The run function stops its own thread: the thread cannot join itself, so stop() gives -1 and
// the thread ends when that call returns; the owner's stop() then joins it.
TEST(ThreadTest, RunFunctionStoppingItsOwnThread) {
    struct Context {
        ThreadWrapper* thread = nullptr;
        std::atomic<int> calls{0};
        std::atomic<int> result{1};
    } context;
    auto run = [](void* object) {
        Context* self = static_cast<Context*>(object);
        if (++self->calls == 1) {
            self->result = self->thread->stop();
        }
        return true;
    };
    std::unique_ptr<ThreadWrapper> thread(ThreadWrapper::createThread(run, &context, "self"));
    context.thread = thread.get();
    ASSERT_EQ(0, thread->start());
    ASSERT_TRUE(eventually([&] { return context.result != 1; }, std::chrono::seconds(30)));
    EXPECT_EQ(-1, context.result.load());
    EXPECT_EQ(0, thread->stop());
    EXPECT_EQ(1, context.calls.load());
}

// The test holds the object's critical section, so the new thread cannot come up and start()
// times out. While the thread hangs there, a second start() must not create another one, and
// a stop request made then must survive the thread's coming up: it ends without calling the
// run function, so the join returns although the function would keep returning true.
TEST(ThreadTest, StartThatTimedOut) {
    Runner runner;
    ThreadImpl thread(&Runner::run, &runner, "late");
    qel::CriticalSectionWrapper& section = ThreadImplTestPeer::critSect(thread);
    section.enter();
    EXPECT_EQ(-100, thread.start());
    EXPECT_EQ(-3, thread.start());
    ThreadImplTestPeer::requestStop(thread);
    section.leave();
    EXPECT_EQ(0, thread.stop());
    EXPECT_EQ(0, runner.calls.load());

    // Afterwards the object works as usual.
    ASSERT_EQ(0, thread.start());
    ASSERT_TRUE(eventually([&] { return runner.calls > 0; }, std::chrono::seconds(30)));
    EXPECT_EQ(0, thread.stop());
    EXPECT_EQ(1u, runner.threadIds.size());
}

// Whether the process may use real-time scheduling depends on the machine: accept a refusal,
// and when it is granted check the policy and priority the thread actually got.
TEST(ThreadTest, PriorityNeedsAThread) {
    Runner runner;
    std::unique_ptr<ThreadWrapper> thread(
        ThreadWrapper::createThread(&Runner::run, &runner, "rt"));
    EXPECT_EQ(-3, thread->setPriority(qel::PriorityTop));
    ASSERT_EQ(0, thread->start());
    ASSERT_TRUE(eventually([&] { return runner.calls > 0; }, std::chrono::seconds(30)));
    const int result = thread->setPriority(qel::PriorityTop);
    EXPECT_TRUE(result == 0 || result == -1) << result;
    if (result == 0) {
        int policy = 0;
        sched_param parameters = {};
        ASSERT_EQ(0, pthread_getschedparam(runner.handle, &policy, &parameters));
        EXPECT_EQ(SCHED_RR, policy);
        EXPECT_EQ(qel::convertPriority(qel::PriorityTop, sched_get_priority_min(SCHED_RR),
                                       sched_get_priority_max(SCHED_RR)),
                  parameters.sched_priority);
    }
    EXPECT_EQ(0, thread->stop());
    EXPECT_EQ(-3, thread->setPriority(qel::PriorityLow));  // joined: no thread any more
}

TEST(ThreadTest, PriorityStepsOnTheSystemRange) {
    using qel::convertPriority;
    EXPECT_EQ(2, convertPriority(qel::PriorityLow, 1, 99));
    EXPECT_EQ(49, convertPriority(qel::PriorityMiddle, 1, 99));
    EXPECT_EQ(96, convertPriority(qel::PriorityHigh, 1, 99));
    EXPECT_EQ(97, convertPriority(qel::PriorityHigher, 1, 99));
    EXPECT_EQ(98, convertPriority(qel::PriorityTop, 1, 99));

    // The narrowest usable range: the upper steps never fall below the lowest.
    EXPECT_EQ(1, convertPriority(qel::PriorityLow, 0, 3));
    EXPECT_EQ(1, convertPriority(qel::PriorityMiddle, 0, 3));
    EXPECT_EQ(1, convertPriority(qel::PriorityHigh, 0, 3));
    EXPECT_EQ(1, convertPriority(qel::PriorityHigher, 0, 3));
    EXPECT_EQ(2, convertPriority(qel::PriorityTop, 0, 3));

    for (int outside : {0, 6, -1}) {
        EXPECT_EQ(2, convertPriority(static_cast<qel::ThreadPriority>(outside), 1, 99)) << outside;
    }
}

}  // namespace
