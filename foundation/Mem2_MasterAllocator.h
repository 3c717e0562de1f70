// Mem2_MasterAllocator: the engine's real-time memory pool.
// The pool's memory is taken once at construction and locked (PSUtil_VMLock); after that,
// Alloc and Free take no lock, never touch the general heap and never wait, and may be called
// from several threads at once. Alloc answers null when the pool cannot serve the request;
// callers degrade and never throw on that. Each client passes its own named statistics record.
// Alloc/Free are virtual so that a test (or a host) can supply an allocator that refuses.
//
// How it serves requests: blocks come in power-of-two size classes from 16 bytes to
// kLargestBlock. A freed block goes onto its class's lock-free free list and is reused only
// for that class; fresh blocks are carved from the pool on demand. When the pool is used up,
// a request may be served from a free block of a larger class. Requests above kLargestBlock
// answer null. Every block is aligned to 16 bytes.
//
// Ownership: blocks belong to the allocator that gave them; every block must be freed before
// the allocator is destroyed. Freeing a pointer the pool did not give, or freeing twice, is
// reported by an assertion and ignored.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

// A client's running counts, updated with relaxed atomics (figures for diagnostics, not for
// synchronisation). mBytesInUse counts block capacities (the size class), not requested sizes.
struct Mem2_Statistics {
    constexpr explicit Mem2_Statistics(const char* iName) : mName(iName) {}
    const char* mName;
    std::atomic<int64_t> mAllocations{0};
    std::atomic<int64_t> mFrees{0};
    std::atomic<int64_t> mFailures{0};
    std::atomic<int64_t> mBytesInUse{0};
};

class Mem2_MasterAllocator {
public:
    static constexpr size_t kDefaultPoolBytes = 4u << 20;
    static constexpr int kLargestBlock = 64 * 1024;

    // Takes and locks iPoolBytes of memory (0: no pool; every Alloc of the base answers null).
    explicit Mem2_MasterAllocator(size_t iPoolBytes = kDefaultPoolBytes);
    virtual ~Mem2_MasterAllocator();
    Mem2_MasterAllocator(const Mem2_MasterAllocator&) = delete;
    Mem2_MasterAllocator& operator=(const Mem2_MasterAllocator&) = delete;

    // Memory for iSize bytes (aligned for any scalar), or null when exhausted, iSize < 0 or
    // iSize > kLargestBlock. iSize 0 gives a distinct smallest block. iStatsP may be null.
    virtual void* Alloc(int iSize, Mem2_Statistics* iStatsP);
    // Returns memory from Alloc of this allocator; null is ignored. Pass the record given to
    // Alloc so that the client's figures balance.
    virtual void Free(void* iP, Mem2_Statistics* iStatsP);

    // Whether the pool's memory could be locked (failure is reported, not fatal).
    bool IsLocked() const;
    // The pool's size, and how much of it has been carved into blocks so far.
    size_t GetPoolBytes() const;
    size_t GetCarvedBytes() const;

private:
    struct Impl;
    Impl* mImplP;
};
