#include "AllocCounter.h"

#include <cstdlib>
#include <new>

namespace {
thread_local size_t tAllocations = 0;
}  // namespace

AllocCounter::AllocCounter() : mStart(tAllocations) {}
AllocCounter::~AllocCounter() = default;
size_t AllocCounter::Count() const { return tAllocations - mStart; }
void AllocCounter::Reset() { mStart = tAllocations; }
size_t AllocCounterThreadTotal() { return tAllocations; }

#if defined(VELA_ALLOC_COUNTER_OFF)
bool AllocCounter::IsCounting() { return false; }
#else
bool AllocCounter::IsCounting() { return true; }

namespace {
void* CountedAlloc(size_t iSize, size_t iAlign) {
    ++tAllocations;
    if (iSize == 0) iSize = 1;
    void* p = iAlign > alignof(std::max_align_t) ? std::aligned_alloc(iAlign, (iSize + iAlign - 1) / iAlign * iAlign)
                                                 : std::malloc(iSize);
    if (!p) throw std::bad_alloc();
    return p;
}

void* CountedAllocNoThrow(size_t iSize) noexcept {
    try {
        return CountedAlloc(iSize, 0);
    } catch (...) {
        return nullptr;
    }
}
}  // namespace

// Replacements of the global allocation functions for every test program.
void* operator new(size_t iSize) { return CountedAlloc(iSize, 0); }
void* operator new[](size_t iSize) { return CountedAlloc(iSize, 0); }
void* operator new(size_t iSize, std::align_val_t iAlign) { return CountedAlloc(iSize, static_cast<size_t>(iAlign)); }
void* operator new[](size_t iSize, std::align_val_t iAlign) { return CountedAlloc(iSize, static_cast<size_t>(iAlign)); }
void* operator new(size_t iSize, const std::nothrow_t&) noexcept { return CountedAllocNoThrow(iSize); }
void* operator new[](size_t iSize, const std::nothrow_t&) noexcept { return CountedAllocNoThrow(iSize); }
void operator delete(void* iP) noexcept { std::free(iP); }
void operator delete[](void* iP) noexcept { std::free(iP); }
void operator delete(void* iP, size_t) noexcept { std::free(iP); }
void operator delete[](void* iP, size_t) noexcept { std::free(iP); }
void operator delete(void* iP, std::align_val_t) noexcept { std::free(iP); }
void operator delete[](void* iP, std::align_val_t) noexcept { std::free(iP); }
void operator delete(void* iP, size_t, std::align_val_t) noexcept { std::free(iP); }
void operator delete[](void* iP, size_t, std::align_val_t) noexcept { std::free(iP); }
#endif
