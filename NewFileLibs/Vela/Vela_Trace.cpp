#include "Vela_Trace.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

const char* const Vela_TraceClient::kEntryPointNames[kEntryPointCount] = {
    "OrbiTraceIsActiveFunc",
    "OrbiTraceReloadConfigsFunc",
    "OrbiTraceFormat",
    "OrbiTraceFormatQuiet",
    "OrbiTraceFormatTimestamp",
    "OrbiTracePuts",
    "OrbiTracePutsNoBreaks",
    "OrbiTraceMem",
    "OrbiTraceStack",
    "OrbiTraceChangeFacilityPriorityFunc",
    "OrbiTraceRegisterHandlerFunc",
    "OrbiTraceFacilityOnFunc",
    "OrbiTraceSetClockCallbackFunc",
    "OrbiTraceDumpWriteStatsFunc",
    "OrbiTraceSetNameFunc",
    "OrbiTraceOSErrToString",
    "OrbiTraceLegacyFormat",
    "OrbiTraceGetTracePath",
    "OrbiTraceRegisterFacility",
    "OrbiTraceRestart",
    "OrbiTraceGetMachineUUID",
    "OrbiTraceGetTimestamp",
    "OrbiTraceAddTraceClient",
    "OrbiTraceRemoveTraceClient",
    "OrbiTraceEnableStackTraceSymbols",
    "OrbiTraceEnabledStackTraceSymbols",
};

namespace {

// The two entry points the library calls itself, by their index in kEntryPointNames.
constexpr int kIsActiveIndex = 0;
constexpr int kFormatIndex = 2;
using IsActiveFunc = int (*)(unsigned int iCategory);
using FormatFunc = void (*)(unsigned int iCategory, const char* iFormat, ...);

// ---------------------------------------------------------------- platform

#if defined(_WIN32)
using ModuleHandle = HMODULE;

ModuleHandle LoadTraceModule() {
    // The trace library sits under Common Files on the drive that holds the system directory.
    char systemDirectory[260];
    const UINT length = GetSystemDirectoryA(systemDirectory, 260);
    if (length < 3 || length >= 260) return nullptr;
    std::string path(systemDirectory, 3);
    path += "Program Files\\Common Files\\Halvard\\Tonewright\\";
    path += "OrbiTrace.dll";
    wchar_t widePath[520];
    if (MultiByteToWideChar(CP_ACP, 0, path.c_str(), -1, widePath, 520) == 0) return nullptr;
    return LoadLibraryW(widePath);
}
void* FindSymbol(ModuleHandle iModule, const char* iName) {
    return reinterpret_cast<void*>(GetProcAddress(iModule, iName));
}
void UnloadModule(ModuleHandle iModule) { FreeLibrary(iModule); }
#else
using ModuleHandle = void*;

ModuleHandle LoadTraceModule() {
    const char* directory = std::getenv("VELA_ORBITRACE_PATH");
    if (directory == nullptr || *directory == '\0') directory = kVela_TraceDefaultDirectory;
    const std::string path = std::string(directory) + "/libOrbiTrace.so";
    return dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
}
void* FindSymbol(ModuleHandle iModule, const char* iName) { return dlsym(iModule, iName); }
void UnloadModule(ModuleHandle iModule) { dlclose(iModule); }
#endif

// ---------------------------------------------------------------- client state

// Pointers and flag are atomics so that a reader on a playback thread never races the
// one-time set-up; the loads are plain reads on the platforms we run on.
struct TraceState {
    ModuleHandle mModule = nullptr;
    std::atomic<bool> mIsPresent{false};
    std::atomic<void*> mEntryPoints[Vela_TraceClient::kEntryPointCount] = {};

    TraceState() { SetUp(); }

    int Resolve(const char* iName, void** oPointerP) {
        if (mModule == nullptr) mModule = LoadTraceModule();
        if (mModule == nullptr) return Vela_TraceClient::kLibraryMissing;
        void* pointer = FindSymbol(mModule, iName);
        if (pointer == nullptr) return Vela_TraceClient::kEntryMissing;
        *oPointerP = pointer;
        return Vela_TraceClient::kOK;
    }

    void SetUp() {
        for (int i = 0; i < Vela_TraceClient::kEntryPointCount; ++i) {
            void* pointer = nullptr;
            // A missing library or entry point leaves the pointer null: tracing is optional.
            if (Resolve(Vela_TraceClient::kEntryPointNames[i], &pointer) != Vela_TraceClient::kOK) pointer = nullptr;
            mEntryPoints[i].store(pointer, std::memory_order_release);
        }
        mIsPresent.store(mModule != nullptr, std::memory_order_release);
    }

    void TearDown() {
        mIsPresent.store(false, std::memory_order_release);
        for (auto& entryPoint : mEntryPoints) entryPoint.store(nullptr, std::memory_order_release);
        if (mModule != nullptr) UnloadModule(mModule);
        mModule = nullptr;
    }

    void* EntryPoint(int iIndex) const { return mEntryPoints[iIndex].load(std::memory_order_acquire); }
};

// A function-local static, so code that traces during another file's static initialization
// still finds the client set up.
TraceState& State() {
    static TraceState sState;
    return sState;
}

// Set the client up at load, not at the first trace: loading a library is no job for a
// playback thread.
[[maybe_unused]] const bool kSetUpAtLoad = (State(), true);

}  // namespace

bool Vela_TraceClient::IsPresent() { return State().mIsPresent.load(std::memory_order_acquire); }

bool Vela_TraceClient::IsActive(uint32_t iCategory) {
    TraceState& state = State();
    if (!state.mIsPresent.load(std::memory_order_acquire)) return false;
    const auto isActive = reinterpret_cast<IsActiveFunc>(state.EntryPoint(kIsActiveIndex));
    return isActive != nullptr && isActive(iCategory) != 0;
}

void Vela_TraceClient::Format(uint32_t iCategory, const char* iFormat, ...) {
    const auto format = reinterpret_cast<FormatFunc>(State().EntryPoint(kFormatIndex));
    if (format == nullptr) return;
    // The arguments are rendered here because a va_list cannot be handed on to a variadic
    // entry point; a stack buffer keeps the call free of heap allocation.
    char line[kMaxLineBytes];
    va_list arguments;
    va_start(arguments, iFormat);
    std::vsnprintf(line, sizeof line, iFormat, arguments);
    va_end(arguments);
    format(iCategory, "%s", line);
}

void* Vela_TraceClient::GetEntryPoint(int iIndex) {
    if (iIndex < 0 || iIndex >= kEntryPointCount) return nullptr;
    return State().EntryPoint(iIndex);
}

int Vela_TraceClient::ResolveEntryPoint(const char* iName, void** oPointerP) { return State().Resolve(iName, oPointerP); }

void Vela_TraceClient::Reload() {
    TraceState& state = State();
    state.TearDown();
    state.SetUp();
}
