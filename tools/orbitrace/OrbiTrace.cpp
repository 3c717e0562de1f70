#include "OrbiTrace.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

namespace {

constexpr size_t kLineBytes = 4096;
constexpr int kMaxCategories = 64;
constexpr int kAllCategories = -1;

// One line being built in a stack buffer: the category prefix, then text appended piece by
// piece. Text that does not fit is cut; the buffer's last byte stays free for the line break.
class Line {
public:
    explicit Line(unsigned int iCategory) : mCategory(iCategory) { Append("%08x ", iCategory); }

    void AppendV(const char* iFormat, va_list iArguments) {
        const int written = std::vsnprintf(mText + mUsed, kCapacity - mUsed, iFormat, iArguments);
        if (written > 0) mUsed = std::min(kCapacity - 1, mUsed + static_cast<size_t>(written));
    }
    ORBITRACE_PRINTF(2, 3) void Append(const char* iFormat, ...) {
        va_list arguments;
        va_start(arguments, iFormat);
        AppendV(iFormat, arguments);
        va_end(arguments);
    }
    // How many more characters fit whole.
    size_t Room() const { return kCapacity - 1 - mUsed; }

    // What vsnprintf may fill: text and its terminating zero, short of the break's byte.
    static constexpr size_t kCapacity = kLineBytes - 1;
    const unsigned int mCategory;
    char mText[kLineBytes];
    size_t mUsed = 0;  // characters of text, without the terminating zero
};

// Configuration and output file. Readers of the category filter take no lock (the is-active
// query is asked on playback threads); writers of lines and of the configuration share one.
class Tracer {
public:
    Tracer() : mStart(std::chrono::steady_clock::now()) { Configure(); }
    ~Tracer() { CloseFile(); }

    void Configure() {
        std::lock_guard<std::mutex> lock(mMutex);
        mEnabled.store(false);
        CloseFile();
        const char* path = std::getenv("ORBITRACE_FILE");
        mPath = path ? path : "";
        if (mPath.empty()) return;
        mFile = ::open(mPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        if (mFile < 0) return;
        ParseCategories(std::getenv("ORBITRACE_CATEGORIES"));
        mEnabled.store(true);
    }

    bool IsActive(unsigned int iCategory) const {
        if (!mEnabled.load()) return false;
        const int count = mCategoryCount.load();
        if (count == kAllCategories) return true;
        for (int i = 0; i < count; ++i)
            if (mCategories[i].load() == iCategory) return true;
        return false;
    }

    // Writes the category prefix, optional timestamp and the formatted text as one line.
    void WriteV(unsigned int iCategory, bool iTimestamp, bool iToHandler, const char* iFormat, va_list iArguments) {
        if (!IsActive(iCategory)) return;
        Line line(iCategory);
        if (iTimestamp) line.Append("[%llu] ", static_cast<unsigned long long>(Timestamp()));
        line.AppendV(iFormat, iArguments);
        WriteLine(line, iToHandler);
    }

    void WriteLine(Line& ioLine, bool iToHandler) {
        ioLine.mText[ioLine.mUsed] = '\n';
        std::lock_guard<std::mutex> lock(mMutex);
        if (mFile < 0) return;
        // One write per line: O_APPEND makes it land whole even when processes share the file.
        if (::write(mFile, ioLine.mText, ioLine.mUsed + 1) > 0) ++mLinesWritten;
        ioLine.mText[ioLine.mUsed] = '\0';
        if (iToHandler && mHandler) mHandler(ioLine.mCategory, ioLine.mText);
    }

    uint64_t Timestamp() const {
        if (OrbiTraceClock clock = mClock.load()) return clock();
        return static_cast<uint64_t>(
            std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - mStart).count());
    }

    const char* Path() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mEnabled.load() ? mPath.c_str() : "";
    }
    uint64_t LinesWritten() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mLinesWritten;
    }
    void SetHandler(OrbiTraceHandler iHandler) {
        std::lock_guard<std::mutex> lock(mMutex);
        mHandler = iHandler;
    }
    void SetClock(OrbiTraceClock iClock) { mClock.store(iClock); }

    std::atomic<bool> mStackSymbols{false};

private:
    void CloseFile() {
        if (mFile >= 0) ::close(mFile);
        mFile = -1;
    }

    void ParseCategories(const char* iList) {
        if (iList == nullptr || *iList == '\0') {
            mCategoryCount.store(kAllCategories);
            return;
        }
        int count = 0;
        const char* cursor = iList;
        while (*cursor != '\0' && count < kMaxCategories) {
            char* end = nullptr;
            const unsigned long value = std::strtoul(cursor, &end, 16);
            if (end == cursor) break;  // not a number: ignore the rest of the list
            mCategories[count++].store(static_cast<unsigned int>(value));
            cursor = (*end == ',') ? end + 1 : end;
        }
        mCategoryCount.store(count);
    }

    std::mutex mMutex;
    std::atomic<bool> mEnabled{false};
    std::atomic<int> mCategoryCount{kAllCategories};
    std::atomic<unsigned int> mCategories[kMaxCategories] = {};
    std::atomic<OrbiTraceClock> mClock{nullptr};
    std::string mPath;
    int mFile = -1;
    uint64_t mLinesWritten = 0;
    OrbiTraceHandler mHandler = nullptr;
    const std::chrono::steady_clock::time_point mStart;
};

Tracer& TheTracer() {
    static Tracer sTracer;
    return sTracer;
}

// Writes iText as one line; callers have checked that iCategory is active.
void WriteText(unsigned int iCategory, const char* iText) {
    Line line(iCategory);
    line.Append("%s", iText);
    TheTracer().WriteLine(line, true);
}

std::string gName;  // set by OrbiTraceSetNameFunc, shown when the file is (re)opened

void Restart() {
    TheTracer().Configure();
    if (gName.empty() || !TheTracer().IsActive(0)) return;
    Line line(0);
    line.Append("started %s", gName.c_str());
    TheTracer().WriteLine(line, true);
}

}  // namespace

ORBITRACE_API int OrbiTraceIsActiveFunc(unsigned int iCategory) { return TheTracer().IsActive(iCategory) ? 1 : 0; }
ORBITRACE_API void OrbiTraceReloadConfigsFunc() { Restart(); }

ORBITRACE_API void OrbiTraceFormat(unsigned int iCategory, const char* iFormat, ...) {
    va_list arguments;
    va_start(arguments, iFormat);
    TheTracer().WriteV(iCategory, false, true, iFormat, arguments);
    va_end(arguments);
}

ORBITRACE_API void OrbiTraceFormatQuiet(unsigned int iCategory, const char* iFormat, ...) {
    va_list arguments;
    va_start(arguments, iFormat);
    TheTracer().WriteV(iCategory, false, false, iFormat, arguments);
    va_end(arguments);
}

ORBITRACE_API void OrbiTraceFormatTimestamp(unsigned int iCategory, const char* iFormat, ...) {
    va_list arguments;
    va_start(arguments, iFormat);
    TheTracer().WriteV(iCategory, true, true, iFormat, arguments);
    va_end(arguments);
}

ORBITRACE_API void OrbiTracePuts(unsigned int iCategory, const char* iText) {
    if (TheTracer().IsActive(iCategory)) WriteText(iCategory, iText ? iText : "");
}

ORBITRACE_API void OrbiTracePutsNoBreaks(unsigned int iCategory, const char* iText) {
    if (!TheTracer().IsActive(iCategory)) return;
    Line line(iCategory);
    char* const textP = line.mText + line.mUsed;
    line.Append("%s", iText ? iText : "");
    std::replace_if(textP, line.mText + line.mUsed, [](char iChar) { return iChar == '\n' || iChar == '\r'; }, ' ');
    TheTracer().WriteLine(line, true);
}

ORBITRACE_API void OrbiTraceMem(unsigned int iCategory, const void* iDataP, size_t iLength) {
    if (!TheTracer().IsActive(iCategory) || iDataP == nullptr) return;
    Line line(iCategory);
    const auto* bytes = static_cast<const unsigned char*>(iDataP);
    // Whole bytes only: the dump stops where the next one would be cut.
    for (size_t i = 0; i < iLength && line.Room() >= 3; ++i) line.Append(i ? " %02x" : "%02x", bytes[i]);
    TheTracer().WriteLine(line, true);
}

ORBITRACE_API void OrbiTraceStack(unsigned int iCategory) {
    if (TheTracer().IsActive(iCategory)) WriteText(iCategory, "(stack trace unavailable)");
}

ORBITRACE_API int OrbiTraceChangeFacilityPriorityFunc(unsigned int, int) { return 0; }
ORBITRACE_API int OrbiTraceRegisterHandlerFunc(OrbiTraceHandler iHandler) {
    TheTracer().SetHandler(iHandler);
    return 0;
}
ORBITRACE_API int OrbiTraceFacilityOnFunc(unsigned int iCategory) { return OrbiTraceIsActiveFunc(iCategory); }
ORBITRACE_API void OrbiTraceSetClockCallbackFunc(OrbiTraceClock iClock) { TheTracer().SetClock(iClock); }

ORBITRACE_API void OrbiTraceDumpWriteStatsFunc() {
    if (!TheTracer().IsActive(0)) return;
    Line line(0);
    line.Append("lines written %llu", static_cast<unsigned long long>(TheTracer().LinesWritten()));
    TheTracer().WriteLine(line, true);
}

ORBITRACE_API void OrbiTraceSetNameFunc(const char* iName) { gName = iName ? iName : ""; }

ORBITRACE_API const char* OrbiTraceOSErrToString(int iError) {
    thread_local char sText[256];
    std::snprintf(sText, sizeof sText, "%s", std::strerror(iError));
    return sText;
}

ORBITRACE_API void OrbiTraceLegacyFormat(const char* iFormat, ...) {
    va_list arguments;
    va_start(arguments, iFormat);
    TheTracer().WriteV(0, false, true, iFormat, arguments);
    va_end(arguments);
}

ORBITRACE_API const char* OrbiTraceGetTracePath() { return TheTracer().Path(); }
ORBITRACE_API unsigned int OrbiTraceRegisterFacility(const char*, unsigned int iCategory) { return iCategory; }
ORBITRACE_API void OrbiTraceRestart() { Restart(); }

ORBITRACE_API int OrbiTraceGetMachineUUID(char* oBuffer, size_t iSize) {
    if (oBuffer != nullptr && iSize > 0) oBuffer[0] = '\0';
    return 0;
}

ORBITRACE_API uint64_t OrbiTraceGetTimestamp() { return TheTracer().Timestamp(); }
ORBITRACE_API int OrbiTraceAddTraceClient(const char*) { return 0; }
ORBITRACE_API int OrbiTraceRemoveTraceClient(const char*) { return 0; }
ORBITRACE_API void OrbiTraceEnableStackTraceSymbols(int iEnable) { TheTracer().mStackSymbols.store(iEnable != 0); }
ORBITRACE_API int OrbiTraceEnabledStackTraceSymbols() { return TheTracer().mStackSymbols.load() ? 1 : 0; }
