#ifdef _WIN32

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include "PSUtil_PlatformMemory.h"

size_t PSUtil_PlatformPageSize() {
    static const size_t sPageSize = [] {
        SYSTEM_INFO info;
        GetSystemInfo(&info);
        return static_cast<size_t>(info.dwPageSize);
    }();
    return sPageSize;
}

// VirtualLock is limited by the process's minimum working set; a host that locks a lot
// raises it with SetProcessWorkingSetSize. A refusal is reported, never fatal.
bool PSUtil_PlatformLockPages(void* iPageStartP, size_t iBytes) { return VirtualLock(iPageStartP, iBytes) != 0; }

bool PSUtil_PlatformUnlockPages(void* iPageStartP, size_t iBytes) { return VirtualUnlock(iPageStartP, iBytes) != 0; }

#endif
