// Client of the optional trace library (libOrbiTrace.so / OrbiTrace.dll).
// The library is located and its 26 entry points resolved once, at load. Without it every
// pointer stays null and tracing is silently off. A line is written only when the library is
// present and its is-active query answers true for the line's category.
//
// Where the library is looked for:
//   Windows: <drive of the system directory>\Program Files\Common Files\Halvard\Tonewright\OrbiTrace.dll
//   POSIX:   $VELA_ORBITRACE_PATH/libOrbiTrace.so, or kVela_TraceDefaultDirectory when unset.
//
// Threads: the pointers are written once at set-up and only read afterwards. IsActive and
// Format take no lock of ours and make no heap allocation (Format renders into a stack buffer
// of kMaxLineBytes, truncating longer lines); what the trace library does is its own affair.
// Reload is for tests and must not run while another thread traces.
#pragma once

#include <cstdint>

// Trace category of the library's own lines.
constexpr uint32_t kVela_TraceCategory = 0x2000F27;

#if !defined(_WIN32)
// Directory searched for libOrbiTrace.so when VELA_ORBITRACE_PATH is not set.
constexpr const char* kVela_TraceDefaultDirectory = "/usr/local/lib/orbitrace";
#endif

class Vela_TraceClient {
public:
    // Result codes of resolving one entry point.
    static constexpr int kOK = 0;
    static constexpr int kEntryMissing = -1501;
    static constexpr int kLibraryMissing = -1502;

    static constexpr int kEntryPointCount = 26;
    static constexpr int kMaxLineBytes = 1024;
    // The entry points' names, in the order of GetEntryPoint's indices.
    static const char* const kEntryPointNames[kEntryPointCount];

    // Whether the trace library was found when the client was set up.
    static bool IsPresent();
    // True when the library is present and its is-active query accepts iCategory.
    static bool IsActive(uint32_t iCategory);
    // Formatted write; call only when IsActive(iCategory) (VELA_TRACE does both).
    static void Format(uint32_t iCategory, const char* iFormat, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 2, 3)))
#endif
        ;

    // The resolved entry point iIndex (see kEntryPointNames), or null. For the host, which
    // casts it to the trace library's signature.
    static void* GetEntryPoint(int iIndex);

    // Resolves iName from the trace library into *oPointerP, loading the library first when it
    // is not loaded: kOK, kEntryMissing or kLibraryMissing (then *oPointerP is untouched).
    static int ResolveEntryPoint(const char* iName, void** oPointerP);

    // Unloads the library and sets the client up again (tests: after changing the environment).
    static void Reload();
};

#define VELA_TRACE(category, ...)                                              \
    do {                                                                       \
        if (Vela_TraceClient::IsActive(category)) Vela_TraceClient::Format(category, __VA_ARGS__); \
    } while (0)
