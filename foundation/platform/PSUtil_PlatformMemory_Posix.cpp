#ifndef _WIN32

#include <sys/mman.h>
#include <unistd.h>

#include "PSUtil_PlatformMemory.h"

size_t PSUtil_PlatformPageSize() {
    static const size_t sPageSize = [] {
        const long size = sysconf(_SC_PAGESIZE);
        return size > 0 ? static_cast<size_t>(size) : size_t{4096};
    }();
    return sPageSize;
}

bool PSUtil_PlatformLockPages(void* iPageStartP, size_t iBytes) { return mlock(iPageStartP, iBytes) == 0; }

bool PSUtil_PlatformUnlockPages(void* iPageStartP, size_t iBytes) { return munlock(iPageStartP, iBytes) == 0; }

#endif
