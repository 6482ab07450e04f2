#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include <qel/event.h>

#include "platform/event_impl.h"

using qel::EventImpl;
using qel::EventWrapper;

namespace {

using Clock = std::chrono::steady_clock;

// Waits up to `limit` for `condition`; returns whether it came true.
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

TEST(EventTest, EachSetIsConsumedOnceAndResetClearsIt) {
    std::unique_ptr<EventWrapper> event(EventWrapper::create());
    EXPECT_EQ(-100, event->wait(0));  // not signalled at creation
    ASSERT_EQ(0, event->set());
    ASSERT_EQ(0, event->set());  // two sets before a wait count as one
    EXPECT_EQ(0, event->wait(0));
    EXPECT_EQ(-100, event->wait(0));

    ASSERT_EQ(0, event->set());
    EXPECT_EQ(0, event->wait(-1));  // a signalled event is taken at once, even without limit
    EXPECT_EQ(-100, event->wait(0));

    ASSERT_EQ(0, event->set());
    ASSERT_EQ(0, event->reset());
    EXPECT_EQ(-100, event->wait(0));
}

// Only a lower bound: a busy machine may wake us late, never early.
TEST(EventTest, TimedWaitDoesNotReturnEarly) {
    std::unique_ptr<EventWrapper> event(EventWrapper::create());
    const auto start = Clock::now();
    EXPECT_EQ(-100, event->wait(100));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(99));
}

TEST(EventTest, SetWakesATimedWaiterEarly) {
    std::unique_ptr<EventWrapper> event(EventWrapper::create());
    std::atomic<int> result{1};
    const auto start = Clock::now();
    std::thread waiter([&] { result = event->wait(60000); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_EQ(0, event->set());
    waiter.join();
    EXPECT_EQ(0, result.load());
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(30));
    EXPECT_EQ(-100, event->wait(0));  // the waiter consumed it
}

// Whichever waiter re-takes the lock first consumes the set; the other goes back to waiting
// and needs a second set. The first set may even come before a waiter sleeps: it is then kept
// and consumed by that waiter, with the same outcome.
TEST(EventTest, OneSetReleasesOneOfTwoWaiters) {
    std::unique_ptr<EventWrapper> event(EventWrapper::create());
    std::atomic<int> released{0};
    std::atomic<int> failures{0};
    auto waitOnce = [&] {
        if (event->wait(-1) != 0) {
            ++failures;
        }
        ++released;
    };
    std::thread first(waitOnce);
    std::thread second(waitOnce);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_EQ(0, event->set());
    ASSERT_TRUE(eventually([&] { return released == 1; }, std::chrono::seconds(30)));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(1, released.load());

    ASSERT_EQ(0, event->set());
    first.join();
    second.join();
    EXPECT_EQ(2, released.load());
    EXPECT_EQ(0, failures.load());
    EXPECT_EQ(-100, event->wait(0));
}

// Our choice: a negative time-out other than -1 only looks, as 0 does: it still takes a set
// event, and otherwise gives up at once with a time-out rather than an error or a hang.
TEST(EventTest, NegativeTimeoutsOnlyLook) {
    std::unique_ptr<EventWrapper> event(EventWrapper::create());
    for (int timeout : {-2, -5, -999, -1500, INT_MIN}) {
        SCOPED_TRACE(timeout);
        ASSERT_EQ(0, event->set());
        EXPECT_EQ(0, event->wait(timeout));
        const auto start = Clock::now();
        EXPECT_EQ(-100, event->wait(timeout));
        EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));
    }
}

TEST(EventTest, DeadlineCarriesIntoTheSeconds) {
    timeval now = {10, 600000};
    timespec deadline = EventImpl::deadlineAfter(now, 1500);
    EXPECT_EQ(12, deadline.tv_sec);
    EXPECT_EQ(100000000L, deadline.tv_nsec);

    now = {10, 999999};
    deadline = EventImpl::deadlineAfter(now, 1);
    EXPECT_EQ(11, deadline.tv_sec);
    EXPECT_EQ(999000L, deadline.tv_nsec);

    now = {7, 0};
    deadline = EventImpl::deadlineAfter(now, 999);
    EXPECT_EQ(7, deadline.tv_sec);
    EXPECT_EQ(999000000L, deadline.tv_nsec);
}

}  // namespace
