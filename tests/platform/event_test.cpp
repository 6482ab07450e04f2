#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include <qel/event.h>

#include "platform/event_impl.h"

using qel::EventWrapper;
using Clock = std::chrono::steady_clock;

TEST(EventTest, EachSetIsConsumedOnceAndResetClearsIt) {
    std::unique_ptr<EventWrapper> event(EventWrapper::create());
    EXPECT_EQ(-100, event->wait(0));  // not signalled at creation
    ASSERT_EQ(0, event->set());
    ASSERT_EQ(0, event->set());  // two sets before a wait count as one
    EXPECT_EQ(0, event->wait(-1));  // taken at once, even without limit
    EXPECT_EQ(-100, event->wait(0));
    ASSERT_EQ(0, event->set());
    ASSERT_EQ(0, event->reset());
    EXPECT_EQ(-100, event->wait(0));

    // Only a lower bound: a busy machine may wake us late, never early. The deadline of a
    // timed wait carries the milliseconds past a whole second into the seconds.
    const auto start = Clock::now();
    EXPECT_EQ(-100, event->wait(100));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(99));
    const timespec deadline = qel::EventImpl::deadlineAfter(timeval{10, 600000}, 1500);
    EXPECT_EQ(12, deadline.tv_sec);
    EXPECT_EQ(100000000L, deadline.tv_nsec);

    // Our choice: a negative time-out other than -1 only looks, as 0 does: it still takes a
    // set event, and otherwise gives up at once with a time-out, not an error or a hang.
    for (int timeout : {-2, -999, -1500, INT_MIN}) {
        SCOPED_TRACE(timeout);
        ASSERT_EQ(0, event->set());
        EXPECT_EQ(0, event->wait(timeout));
        const auto before = Clock::now();
        EXPECT_EQ(-100, event->wait(timeout));
        EXPECT_LT(Clock::now() - before, std::chrono::seconds(10));
    }
}

// Two waiters, one without limit and one with a long one: whichever re-takes the lock first
// consumes the set, the other goes back to waiting and needs a second set. A set that comes
// before a waiter sleeps is kept for it, with the same outcome.
TEST(EventTest, OneSetReleasesOneOfTwoWaiters) {
    std::unique_ptr<EventWrapper> event(EventWrapper::create());
    std::atomic<int> released{0};
    auto waitFor = [&](int timeoutMs) {
        EXPECT_EQ(0, event->wait(timeoutMs));
        ++released;
    };
    const auto start = Clock::now();
    std::thread first(waitFor, -1), second(waitFor, 60000);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_EQ(0, event->set());
    while (released == 0 && Clock::now() - start < std::chrono::seconds(30)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(1, released.load());
    ASSERT_EQ(0, event->set());
    first.join();
    second.join();
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(30));  // the timed waiter woke early
    EXPECT_EQ(-100, event->wait(0));
}
