#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "AllocCounter.h"

TEST(AllocCounter, CountsEveryFormOfNewOnThisThreadOnly) {
    if (!AllocCounter::IsCounting()) GTEST_SKIP() << "operator new belongs to the sanitizer here";
    AllocCounter counter;
    auto one = std::make_unique<int>(1);
    auto many = std::make_unique<int[]>(16);
    std::vector<int> grown;
    grown.reserve(100);
    EXPECT_EQ(counter.Count(), 3u);
    counter.Reset();
    EXPECT_EQ(counter.Count(), 0u);
    std::thread other([] { auto p = std::make_unique<long>(3); });
    const size_t afterSpawn = counter.Count();  // the thread's own set-up may allocate here
    other.join();
    EXPECT_EQ(counter.Count(), afterSpawn);
}
