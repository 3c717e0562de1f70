// The operating system's page locking, behind PSUtil_VMLock/PSUtil_VMUnlock.
// Callers pass whole pages (page-aligned start, size a multiple of the page size); the
// functions answer whether the system did it. Any thread; no allocation.
#pragma once

#include <cstddef>

size_t PSUtil_PlatformPageSize();
bool PSUtil_PlatformLockPages(void* iPageStartP, size_t iBytes);
bool PSUtil_PlatformUnlockPages(void* iPageStartP, size_t iBytes);
