// Library start and stop, localized errors, allocation tags and resource-failure hooks.
// Init/Free only set and clear the initialization flag: pools, tags and the trace client are
// set up by static initialization when the library is loaded.
// Threads: Init/Free on the host's start-up thread; the rest from any thread.
#pragma once

#include "Cmn_Exception.h"
#include "Mem2_MasterAllocator.h"

class Vela_Init {
public:
    static void Init();
    static void Free();
    static bool sIsInitialized;
};

// Message ids of the library's string table.
enum Vela_EMessageID : int {
    kVelaMsg_BadData = 100,
    kVelaMsg_StreamNotUnique = 101,
    kVelaMsg_OutOfNotesInProgress = 200,
    kVelaMsg_BadSubtype = 201,
    kVelaMsg_BadData2 = 202,
    kVelaMsg_SorterFull = 203,
    kVelaMsg_StepInput = 204,
    kVelaMsg_MIDIServiceMissing = 300,
};

// The library's resource module: the string table behind its localized exceptions.
const I18N_ResourceModule& Vela_GetResourceModule();
// UTF-8 text of a message id; empty for an id the table lacks.
const char* Vela_GetLocalizedString(int iMessageID);
// Throws the localized exception carrying iMessageID and the library's module.
[[noreturn]] void Vela_ThrowLocalized(int iMessageID);

// Allocation tags registered with the real-time allocator, one per client.
extern Mem2_Statistics gVela_NoteInProgressTag;  // "Mdie_NoteInProgress"
extern Mem2_Statistics gVela_SysexDataRTTag;     // "Mdie_SysexDataRT"

// Hooks for code that reports an exhausted pool; they do nothing in this library.
class Mdie_ResourceFailure {
public:
    static void SignalFailure() {}
    static void SignalMainMemoryFailure() {}
    static void SignalRealTimeMemoryFailure() {}
};
