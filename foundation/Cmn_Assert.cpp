#include "Cmn_Assert.h"

#include <cstdio>

namespace {
// Swapped only during set-up (see the header), so reporting reads it without a lock and
// without copying: a failed assertion on a real-time thread costs no allocation.
Cmn_Assert::Handler& CurrentHandler() {
    static Cmn_Assert::Handler sHandler;
    return sHandler;
}
void DefaultHandler(const char* iText, int iLine) { std::fprintf(stderr, "Assertion failed: %s (line %d)\n", iText, iLine); }
}  // namespace

void Cmn_Assert::HandleMagicAssert(bool iOk, const char* iText, int iLine) {
    if (iOk) return;
    const Handler& handler = CurrentHandler();
    if (handler)
        handler(iText, iLine);
    else
        DefaultHandler(iText, iLine);
}

Cmn_Assert::Handler Cmn_Assert::SetHandler(Handler iHandler) {
    Handler previous = std::move(CurrentHandler());
    CurrentHandler() = std::move(iHandler);
    return previous;
}
