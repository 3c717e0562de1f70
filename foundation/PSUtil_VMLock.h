// Pinning of memory that real-time code touches, so that it is never paged out.
// mlock/munlock on POSIX, VirtualLock/VirtualUnlock on Windows. Answers whether it worked;
// failure (limits, permissions) is reported to the caller and is never fatal. The range is
// widened to whole pages; an empty range answers true, a null pointer with a size false.
// Locks do not nest on POSIX: unlocking a page unlocks it for every caller that locked it.
// Any thread; no allocation.
#pragma once

#include <cstddef>

bool PSUtil_VMLock(const void* iP, size_t iSize);
bool PSUtil_VMUnlock(const void* iP, size_t iSize);
