// Vela_CallbackTimer: the time each audio callback took, kept for a summary at the end (minimum,
// median, 99th percentile, maximum) against the period's budget. Record is real-time safe: it
// writes into storage sized at construction; callbacks past that capacity still count in the
// minimum and maximum but not in the percentiles. Summarize reads from another thread once
// recording has stopped (or tolerates a sample being written meanwhile).
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

struct Vela_TimingSummary {
    uint64_t mCount = 0;  // callbacks recorded
    uint64_t mMinNs = 0;
    uint64_t mMedianNs = 0;
    uint64_t mP99Ns = 0;
    uint64_t mMaxNs = 0;
};

class Vela_CallbackTimer {
public:
    explicit Vela_CallbackTimer(size_t iCapacity);

    // Real-time.
    void Record(uint64_t iNanoseconds);
    // Nearest-rank percentiles over the stored samples.
    Vela_TimingSummary Summarize() const;
    // "<iWhat> over N periods of F frames: min .. us, median .. us, p99 .. us, max .. us;
    // budget B us (p99 = P%)"
    static std::string Describe(const char* iWhat, const Vela_TimingSummary& iSummary, uint32_t iFrames, uint32_t iSampleRate);

    // Monotonic clock in nanoseconds (real-time safe).
    static uint64_t Now();
    // CPU time of the calling thread in nanoseconds (real-time safe): unlike the wall clock it
    // leaves out time the thread was preempted, which on a loaded machine dominates the tail.
    static uint64_t ThreadNow();

private:
    std::vector<uint64_t> mSamples;
    std::atomic<uint64_t> mCount{0};
    uint64_t mMin = UINT64_MAX;
    uint64_t mMax = 0;
};
