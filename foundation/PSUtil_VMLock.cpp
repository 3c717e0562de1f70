#include "PSUtil_VMLock.h"

#include <cstdint>

#include "platform/PSUtil_PlatformMemory.h"

namespace {
using PageFunction = bool (*)(void*, size_t);

// Widens [iP, iP + iSize) to whole pages and hands it to the platform. Nothing to do for an
// empty range; a null pointer with a size is a caller's mistake and fails.
bool ApplyToPages(const void* iP, size_t iSize, PageFunction iFunction) {
    if (iSize == 0) return true;
    if (iP == nullptr) return false;
    const uintptr_t pageSize = PSUtil_PlatformPageSize();
    const uintptr_t start = reinterpret_cast<uintptr_t>(iP);
    if (iSize > UINTPTR_MAX - start - pageSize) return false;
    const uintptr_t first = start & ~(pageSize - 1);
    const uintptr_t last = (start + iSize + pageSize - 1) & ~(pageSize - 1);
    return iFunction(reinterpret_cast<void*>(first), static_cast<size_t>(last - first));
}
}  // namespace

bool PSUtil_VMLock(const void* iP, size_t iSize) { return ApplyToPages(iP, iSize, PSUtil_PlatformLockPages); }

bool PSUtil_VMUnlock(const void* iP, size_t iSize) { return ApplyToPages(iP, iSize, PSUtil_PlatformUnlockPages); }
