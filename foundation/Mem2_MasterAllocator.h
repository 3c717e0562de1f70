// Mem2_MasterAllocator: the engine's real-time memory pool.
// The pool's memory is taken once at construction and locked (PSUtil_VMLock); after that,
// Alloc and Free take no lock, never touch the general heap and may be called from several
// threads at once. Alloc answers null when the pool cannot serve the request; callers degrade
// and never throw on that. Each client passes its own named statistics record.
// Alloc/Free are virtual so that a test (or a host) can supply an allocator that refuses.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

struct Mem2_Statistics {
    explicit Mem2_Statistics(const char* iName) : mName(iName) {}
    const char* mName;
    std::atomic<int64_t> mAllocations{0};
    std::atomic<int64_t> mFrees{0};
    std::atomic<int64_t> mFailures{0};
    std::atomic<int64_t> mBytesInUse{0};
};

class Mem2_MasterAllocator {
public:
    static constexpr size_t kDefaultPoolBytes = 4u << 20;

    // Takes and locks iPoolBytes of memory (0: no pool; every Alloc of the base answers null).
    explicit Mem2_MasterAllocator(size_t iPoolBytes = kDefaultPoolBytes);
    virtual ~Mem2_MasterAllocator();
    Mem2_MasterAllocator(const Mem2_MasterAllocator&) = delete;
    Mem2_MasterAllocator& operator=(const Mem2_MasterAllocator&) = delete;

    // Memory for iSize bytes (aligned for any scalar), or null when exhausted or iSize < 0.
    virtual void* Alloc(int iSize, Mem2_Statistics* iStatsP);
    // Returns memory from Alloc of this allocator; null is ignored.
    virtual void Free(void* iP, Mem2_Statistics* iStatsP);

    // Whether the pool's memory could be locked (failure is reported, not fatal).
    bool IsLocked() const;

private:
    struct Impl;
    Impl* mImplP;
};
