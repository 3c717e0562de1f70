#include "Vela_Init.h"

#include <algorithm>
#include <iterator>

#include "Sys_RefCount.h"

bool Vela_Init::sIsInitialized = false;
bool Vela_Init::sRunDeleterThread = true;

namespace {
bool sStartedDeleter = false;
}

void Vela_Init::Init() {
    if (sIsInitialized) return;
    sIsInitialized = true;
    sStartedDeleter = sRunDeleterThread && !Sys_DelayedDeletionObject::IsDeleterThreadRunning();
    if (sStartedDeleter) Sys_DelayedDeletionObject::StartDeleterThread(kDeleterPeriodMs);
}

void Vela_Init::Free() {
    if (!sIsInitialized) return;
    sIsInitialized = false;
    if (sStartedDeleter) Sys_DelayedDeletionObject::StopDeleterThread();
    sStartedDeleter = false;
}

constinit Mem2_Statistics gVela_NoteInProgressTag("Mdie_NoteInProgress");
constinit Mem2_Statistics gVela_SysexDataRTTag("Mdie_SysexDataRT");

namespace {

struct StringEntry {
    int mID;
    const char* mText;
};

// The library's string table (language 1033), sorted by id. 204 to 216 belong to the host's
// step-input commands and 300 to the host side that acquires the MIDI service; the library
// only holds their texts.
constexpr StringEntry kStringTable[] = {
    {100, "bad data encountered"},
    {101, "bad data encountered: stream not unique"},
    {200, "...out of notes in progress..."},
    {201, "bad subtype encountered"},
    {202, "bad data encountered"},
    {203, "sorter full"},
    {204, "Step Input"},
    {205, "Step Input: 64th Note"},
    {206, "Step Input: 32nd Note"},
    {207, "Step Input: 16th Note"},
    {208, "Step Input: 8th Note"},
    {209, "Step Input: Quarter Note"},
    {210, "Step Input: Half Note"},
    {211, "Step Input: Whole Note"},
    {212, "Step Input: Toggle Tuplet"},
    {213, "Step Input: Toggle Dotted"},
    {214, "Step Input: Next Step"},
    {215, "Step Input: Undo Step"},
    {216, "Step Input: Redo Step"},
    {300,
     "The OrbiMIDIService could not be acquired. Please verify OrbiMIDIService is properly installed and "
     "registered (may require a complete reinstall)."},
};

static_assert(std::is_sorted(std::begin(kStringTable), std::end(kStringTable),
                             [](const StringEntry& a, const StringEntry& b) { return a.mID < b.mID; }),
              "the string table is searched by binary search");

const char* LookUp(int iMessageID) {
    const auto* entryP = std::lower_bound(std::begin(kStringTable), std::end(kStringTable), iMessageID,
                                          [](const StringEntry& e, int id) { return e.mID < id; });
    return (entryP != std::end(kStringTable) && entryP->mID == iMessageID) ? entryP->mText : nullptr;
}

constexpr I18N_ResourceModule kResourceModule = {"Vela", &LookUp};

}  // namespace

const I18N_ResourceModule& Vela_GetResourceModule() { return kResourceModule; }

const char* Vela_GetLocalizedString(int iMessageID) {
    const char* text = LookUp(iMessageID);
    return text ? text : "";
}

void Vela_ThrowLocalized(int iMessageID) {
    throw Cmn_LocalizedException(L10N_ExceptionData{iMessageID, &kResourceModule});
}
