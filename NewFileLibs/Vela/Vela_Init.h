// Library start and stop, localized errors, allocation tags and resource-failure hooks.
// Pools, tags and the trace client are set up by static initialization when the library is
// loaded. Init/Free set and clear the initialization flag and run the deferred deleter:
// heap objects released on real-time threads (long sysex data above all) are queued through
// Sys_DelayedDeletionObject, and without a thread that destroys them a host's memory would
// grow with every release. So by default Init starts the foundation's deleter thread and Free
// stops it and destroys what is still queued; a host that drains on its own housekeeping
// thread sets sRunDeleterThread to false before Init and calls
// Sys_DelayedDeletionObject::DrainDelayedDeletions itself.
// Threads: Init/Free on the host's start-up thread; the rest from any thread.
#pragma once

#include "Cmn_Exception.h"
#include "Mem2_MasterAllocator.h"

class Vela_Init {
public:
    // The deleter's period: a burst of releases on the playback thread is destroyed within
    // about this long, and an idle deleter costs only this many wake-ups.
    static constexpr int kDeleterPeriodMs = 10;

    // Sets the flag and, when sRunDeleterThread is true, starts the deleter thread. No effect
    // when the flag is already set.
    static void Init();
    // Clears the flag; when Init started the deleter thread, stops it and destroys on this
    // thread what is still queued (stop real-time work that releases objects first). A deleter
    // the host started itself is left running. No effect when the flag is clear.
    static void Free();
    static bool sIsInitialized;
    // Read by Init: true at load.
    static bool sRunDeleterThread;
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
