#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <qel/critical_section.h>

using qel::CriticalSectionWrapper;

// Two threads race on one counter: no increment may be lost and no value handed out twice.
// Each call returns the new value, wrapping around at the ends of the range.
TEST(CriticalSectionTest, CountersAreNeitherLostNorDuplicatedAndWrapAround) {
    constexpr int kPerThread = 1000000;
    int counter = 0;
    std::vector<int> seen[2];
    auto work = [&](int index) {
        for (int i = 0; i < kPerThread; ++i) {
            seen[index].push_back(CriticalSectionWrapper::atomic32Increment(&counter));
        }
    };
    std::thread first(work, 0), second(work, 1);
    first.join();
    second.join();
    EXPECT_EQ(2 * kPerThread, counter);
    seen[0].insert(seen[0].end(), seen[1].begin(), seen[1].end());
    std::sort(seen[0].begin(), seen[0].end());
    for (int i = 0; i < 2 * kPerThread; ++i) {
        ASSERT_EQ(i + 1, seen[0][i]);
    }
    counter = 2147483647;
    EXPECT_EQ(-2147483647 - 1, CriticalSectionWrapper::atomic32Increment(&counter));
    EXPECT_EQ(2147483647, CriticalSectionWrapper::atomic32Decrement(&counter));
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
