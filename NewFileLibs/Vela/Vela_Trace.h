// Client of the optional trace library (libOrbiTrace.so / OrbiTrace.dll).
// The library is located and its 26 entry points resolved once, at load. Without it every
// pointer stays null and tracing is silently off. A line is written only when the library is
// present and its is-active query answers true for the line's category.
// Threads: the pointers are written once at set-up and only read afterwards; tracing takes no
// lock of ours (what the trace library does is its own affair).
#pragma once

#include <cstdint>

// Trace category of the library's own lines.
constexpr uint32_t kVela_TraceCategory = 0x2000F27;

class Vela_TraceClient {
public:
    // Result codes of resolving one entry point.
    static constexpr int kOK = 0;
    static constexpr int kEntryMissing = -1501;
    static constexpr int kLibraryMissing = -1502;

    static bool IsPresent();
    static bool IsActive(uint32_t iCategory);
    // Formatted write; call only when IsActive(iCategory) (VELA_TRACE does both).
    static void Format(uint32_t iCategory, const char* iFormat, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 2, 3)))
#endif
        ;
};

#define VELA_TRACE(category, ...)                                              \
    do {                                                                       \
        if (Vela_TraceClient::IsActive(category)) Vela_TraceClient::Format(category, __VA_ARGS__); \
    } while (0)
