// Cmn_Assert: the report of a broken invariant.
// A failed assertion is reported through the installed handler and execution goes on: the
// asserting code then takes the fallback it documents. The text is the condition's source,
// the marker "@$^$@" and the source file path (relative to the repository when the build maps
// __FILE__, as ours does), so a report names both what failed and where.
// Threads: HandleMagicAssert may be called from any thread; the handler is swapped only during
// set-up (tests, host start-up). The default handler writes to standard error.
#pragma once

#include <functional>

class Cmn_Assert {
public:
    using Handler = std::function<void(const char* iText, int iLine)>;

    // Reports text/line when iOk is false. Never throws, never stops.
    static void HandleMagicAssert(bool iOk, const char* iText, int iLine);

    // Installs a handler (an empty one restores the default) and returns the previous one.
    static Handler SetHandler(Handler iHandler);
};

#define CMN_ASSERT_MARKER "@$^$@"

// The one assertion macro of the library. The condition is evaluated once; the text is a
// string literal built at compile time, so a report costs no allocation. A holding condition
// costs only its test: the out-of-line report is reached on failure alone, which keeps checks
// on the playback path free.
#define VELA_ASSERT(cond)                                                                   \
    (static_cast<bool>(cond) ? static_cast<void>(0)                                         \
                             : Cmn_Assert::HandleMagicAssert(false, #cond CMN_ASSERT_MARKER __FILE__, __LINE__))
