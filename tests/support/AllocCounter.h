// Counts heap allocations (every form of the global operator new, replaced for all tests)
// made on the current thread while a scope is open. Real-time paths prove with it that they
// allocate nothing:
//     AllocCounter counter;
//     ...real-time work...
//     EXPECT_EQ(counter.Count(), 0);
// Counting is per thread, so work on other threads (a test runner, a deleter) does not count.
// Under ThreadSanitizer (VELA_ALLOC_COUNTER_OFF) the sanitizer owns operator new, so nothing is
// replaced and every count stays 0; the ordinary and ASan builds do the proving.
#pragma once

#include <cstddef>

class AllocCounter {
public:
    AllocCounter();
    ~AllocCounter();
    AllocCounter(const AllocCounter&) = delete;
    AllocCounter& operator=(const AllocCounter&) = delete;

    // Allocations made on this thread since construction (or the last Reset).
    size_t Count() const;
    void Reset();
    // False where the counter cannot count (see above).
    static bool IsCounting();

private:
    size_t mStart;
};

// Allocations made on this thread since it started (for tests of the counter itself).
size_t AllocCounterThreadTotal();
