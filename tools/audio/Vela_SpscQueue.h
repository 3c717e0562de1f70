// Vela_SpscQueue: a bounded lock-free queue from exactly one producer thread to exactly one
// consumer thread, for handing transport commands to an audio callback without a lock. Both
// ends are wait-free; the storage is allocated once, at construction (capacity rounded up to a
// power of two). T must be trivially copyable: a slot is overwritten, never destroyed.
#pragma once

#include <atomic>
#include <cstddef>
#include <type_traits>
#include <vector>

template <typename T>
class Vela_SpscQueue {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    explicit Vela_SpscQueue(size_t iCapacity) : mSlots(RoundUp(iCapacity)), mMask(mSlots.size() - 1) {}

    // Producer. False when full (nothing is queued).
    bool Push(const T& iValue) {
        const size_t tail = mTail.load(std::memory_order_relaxed);
        if (tail - mHead.load(std::memory_order_acquire) == mSlots.size()) return false;
        mSlots[tail & mMask] = iValue;
        mTail.store(tail + 1, std::memory_order_release);
        return true;
    }

    // Consumer. False when empty.
    bool Pop(T& oValue) {
        const size_t head = mHead.load(std::memory_order_relaxed);
        if (head == mTail.load(std::memory_order_acquire)) return false;
        oValue = mSlots[head & mMask];
        mHead.store(head + 1, std::memory_order_release);
        return true;
    }

    size_t GetCapacity() const { return mSlots.size(); }

private:
    static size_t RoundUp(size_t iCapacity) {
        size_t size = 1;
        while (size < iCapacity) size <<= 1;
        return size;
    }

    std::vector<T> mSlots;
    const size_t mMask;
    // Each index on its own cache line, so the two threads do not contend for one.
    alignas(64) std::atomic<size_t> mHead{0};
    alignas(64) std::atomic<size_t> mTail{0};
};
