#include "Vela_CallbackTimer.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

Vela_CallbackTimer::Vela_CallbackTimer(size_t iCapacity) : mSamples(iCapacity) {}

void Vela_CallbackTimer::Record(uint64_t iNanoseconds) {
    const uint64_t index = mCount.load(std::memory_order_relaxed);
    if (index < mSamples.size()) mSamples[index] = iNanoseconds;
    mMin = std::min(mMin, iNanoseconds);
    mMax = std::max(mMax, iNanoseconds);
    mCount.store(index + 1, std::memory_order_release);
}

Vela_TimingSummary Vela_CallbackTimer::Summarize() const {
    Vela_TimingSummary summary;
    summary.mCount = mCount.load(std::memory_order_acquire);
    if (summary.mCount == 0) return summary;
    std::vector<uint64_t> sorted(mSamples.begin(),
                                 mSamples.begin() + static_cast<ptrdiff_t>(std::min<uint64_t>(summary.mCount, mSamples.size())));
    std::sort(sorted.begin(), sorted.end());
    // Nearest rank: the smallest sample with at least p of all samples at or below it.
    auto rank = [&](double iP) {
        if (sorted.empty()) return uint64_t{0};
        const auto n = static_cast<double>(sorted.size());
        size_t k = static_cast<size_t>(iP * n + 0.999999);
        return sorted[std::clamp<size_t>(k, 1, sorted.size()) - 1];
    };
    summary.mMinNs = mMin;
    summary.mMaxNs = mMax;
    summary.mMedianNs = rank(0.5);
    summary.mP99Ns = rank(0.99);
    return summary;
}

std::string Vela_CallbackTimer::Describe(const char* iWhat, const Vela_TimingSummary& iSummary, uint32_t iFrames,
                                         uint32_t iSampleRate) {
    const double budgetUs = iSampleRate ? 1e6 * iFrames / iSampleRate : 0;
    char text[256];
    std::snprintf(text, sizeof text,
                  "%s over %llu periods of %u frames: min %.1f us, median %.1f us, p99 %.1f us, max %.1f us; "
                  "budget %.0f us (p99 = %.2f%%)",
                  iWhat, static_cast<unsigned long long>(iSummary.mCount), iFrames, iSummary.mMinNs / 1e3, iSummary.mMedianNs / 1e3,
                  iSummary.mP99Ns / 1e3, iSummary.mMaxNs / 1e3, budgetUs,
                  budgetUs > 0 ? 100.0 * (iSummary.mP99Ns / 1e3) / budgetUs : 0.0);
    return text;
}

namespace {
uint64_t Clock(clockid_t iClock) {
    timespec now{};
    clock_gettime(iClock, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}
}  // namespace

uint64_t Vela_CallbackTimer::Now() { return Clock(CLOCK_MONOTONIC); }
uint64_t Vela_CallbackTimer::ThreadNow() { return Clock(CLOCK_THREAD_CPUTIME_ID); }
