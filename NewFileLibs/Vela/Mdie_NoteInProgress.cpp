#include "Mdie_NoteInProgress.h"

#include <algorithm>
#include <new>

#include "Mem2_MasterAllocator.h"
#include "Vela_Init.h"
#include "Vela_Trace.h"

namespace {
Mem2_MasterAllocator* sAllocatorP = nullptr;
}

void Mdie_NoteInProgress::SetAllocator(Mem2_MasterAllocator* iAllocatorP) { sAllocatorP = iAllocatorP; }

Mdie_NoteInProgress* Mdie_NoteInProgress::Alloc() {
    void* memoryP = sAllocatorP->Alloc(kAllocSize, &gVela_NoteInProgressTag);
    VELA_TRACE(kVela_TraceCategory, "Mdie_NoteInProgress alloc %p %d", memoryP, kAllocSize);
    if (memoryP == nullptr) return nullptr;
    return new (memoryP) Mdie_NoteInProgress;
}

void Mdie_NoteInProgress::Free() {
    VELA_TRACE(kVela_TraceCategory, "Mdie_NoteInProgress free %p", static_cast<void*>(this));
    sAllocatorP->Free(this, &gVela_NoteInProgressTag);
}

// ---------------------------------------------------------------- chord

bool Mdie_Chord::InChord(const Mdie_TimedEvent& iNote) const {
    return std::find(mNotes.begin(), mNotes.end(), iNote) != mNotes.end();
}

bool Mdie_Chord::CanAdd(const Mdie_TimedEvent& iNote) const {
    if (mNotes.empty()) return true;
    const Mdie_TimedEvent& last = mNotes.back();
    const Time_TypedLength newLength = iNote.GetDuration();
    const Time_TypedLength lastLength = last.GetDuration();
    const Time_Typed newEnd = iNote.GetTime() + newLength;
    const Time_Typed lastEnd = last.GetTime() + lastLength;
    const Time_Typed laterStart = std::max(iNote.GetTime(), last.GetTime());
    const Time_TypedLength overlap = std::min(newEnd, lastEnd) - laterStart;

    const Time_TypedLength longer = newLength < lastLength ? lastLength : newLength;
    if (overlap >= Time_TypedLength(longer.AsInt64() * 3 / 4, longer.GetType())) return true;

    const Time_TypedLength quarter(static_cast<int64_t>(static_cast<double>(lastLength.AsInt64()) * 0.25 + 0.5),
                                   lastLength.GetType());
    Time_Typed catchEnd = Time_Convert::AddLength(last.GetTime(), Time_TypedLength(kCatchSpanTicks, kTime_Ticks));
    const Time_Typed quarterEnd = last.GetTime() + quarter;
    if (catchEnd > quarterEnd) catchEnd = quarterEnd;
    return iNote.GetTime() < catchEnd;
}
