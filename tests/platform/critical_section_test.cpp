#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <qel/critical_section.h>

using qel::CriticalSectionWrapper;

TEST(CriticalSectionTest, CountersReturnTheNewValueAndWrapAround) {
    int counter = 0;
    EXPECT_EQ(1, CriticalSectionWrapper::atomic32Increment(&counter));
    EXPECT_EQ(1, counter);
    EXPECT_EQ(0, CriticalSectionWrapper::atomic32Decrement(&counter));
    EXPECT_EQ(0, counter);

    counter = 2147483647;
    EXPECT_EQ(-2147483647 - 1, CriticalSectionWrapper::atomic32Increment(&counter));
    EXPECT_EQ(2147483647, CriticalSectionWrapper::atomic32Decrement(&counter));
}

// Two threads race on one counter: no increment may be lost and no value handed out twice.
TEST(CriticalSectionTest, RacingIncrementsAreNeitherLostNorDuplicated) {
    constexpr int kPerThread = 1000000;
    int counter = 0;
    std::vector<int> seen[2];
    auto work = [&](int index) {
        seen[index].reserve(kPerThread);
        for (int i = 0; i < kPerThread; ++i) {
            seen[index].push_back(CriticalSectionWrapper::atomic32Increment(&counter));
        }
    };
    std::thread first(work, 0);
    std::thread second(work, 1);
    first.join();
    second.join();
    EXPECT_EQ(2 * kPerThread, counter);
    std::vector<bool> taken(2 * kPerThread + 1, false);
    for (const auto& values : seen) {
        for (int value : values) {
            ASSERT_GE(value, 1);
            ASSERT_LE(value, 2 * kPerThread);
            ASSERT_FALSE(taken[value]) << value << " returned twice";
            taken[value] = true;
        }
    }
}

// The owner enters twice and leaves once: another thread must stay out until the second leave.
TEST(CriticalSectionTest, RecursiveEntryHoldsUntilBalanced) {
    std::unique_ptr<CriticalSectionWrapper> section(CriticalSectionWrapper::create());
    section->enter();
    section->enter();
    section->leave();

    std::atomic<bool> entered{false};
    std::thread other([&] {
        section->enter();
        entered = true;
        section->leave();
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(entered.load());
    section->leave();
    other.join();
    EXPECT_TRUE(entered.load());
}
