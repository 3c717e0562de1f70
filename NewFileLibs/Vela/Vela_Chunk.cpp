// The chunk aggregate: construction, routing of edits to the members, playback queries, chase
// and note state, and the legacy-playback moves.
#include "Vela_Chunk.h"

#include <algorithm>
#include <numeric>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>

#include "Cmn_Assert.h"
#include "Mdie_ChaseTracker.h"
#include "Mdie_TrackState.h"
#include "Vela_ContinuousDataStream.h"
#include "Vela_EventStream.h"
#include "Vela_ExtendedEventList.h"
#include "Vela_NoteList.h"

namespace {

bool IsNoteKind(int iKind) { return iKind == Vela_Event::kNoteWithDuration || iKind == Vela_Event::kPitchToMIDINoteWithDuration; }
bool IsContinuousKind(int iKind) { return iKind >= Vela_Event::kPitchBend && iKind <= Vela_Event::kPolyPressure; }
bool IsEventStreamKind(int iKind) { return iKind == Vela_Event::kSysex || iKind == Vela_Event::kLongSysex; }

Ndo_Object::EUndoFlag UndoFlagOf(const Ndo_Object& iObject) {
    return iObject.NdoIsUndoable() ? Ndo_Object::kUndoable : Ndo_Object::kNotUndoable;
}

// The note list takes the offset that leads from the output's time line back to the chunk's.
Time_TypedLength Negated(const Time_TypedLength& iLength) { return Time_TypedLength(-iLength.AsInt64(), iLength.GetType()); }

Time_TypedLength OneUnit(const Time_Typed& iTime) { return Time_TypedLength(1, iTime.GetType()); }
Time_TypedLength ZeroLength(Time_EType iType) { return Time_TypedLength(0, iType); }

// The note start that legacy playback uses for a note at s between the clip boundaries p <= s
// and n > s, with the offset o and the coarse grid g. Worked in 128 bits so that the missing
// boundaries (-1, the largest value) and far-away notes never wrap; division truncates toward
// zero as in 64 bits.
int64_t LegacyPlaybackStart(int64_t iS, int64_t iP, int64_t iN, int64_t iO, int64_t iG) {
    using Wide = __int128;
    const Wide s = iS, p = iP, n = iN, o = iO, g = iG;
    const bool roomAfter = n - s >= 2 * g;
    const bool roomBefore = s - p >= 2 * g;
    Wide t;
    if (roomAfter && roomBefore) {
        t = ((g / 2 - o + s) / g) * g;
    } else if (roomAfter) {
        t = ((s - o) / g + 2) * g;
    } else if (roomBefore) {
        t = ((s - o) / g - 1) * g;
    } else {
        const Wide a = ((p - o + g) / g) * g;
        const Wide b = ((n - o) / g) * g;
        t = b >= a ? a + ((b - a) / g) * g : b;
    }
    return static_cast<int64_t>(std::clamp<Wide>(t, -1, kTime_MaxCount));
}

}  // namespace

// ---------------------------------------------------------------- construction

Vela_Chunk* Vela_Chunk::New(EUndoFlag iUndo, bool iQuantizeContents) { return new Vela_Chunk(iUndo, iQuantizeContents); }

Vela_Chunk::Vela_Chunk(EUndoFlag iUndo, bool iQuantizeContents)
    : Ndo_Object(iUndo, iQuantizeContents), mUID(Sys_Umid::Create()), mQuantizeContents(iQuantizeContents) {
    std::unique_ptr<Vela_NoteListBase> noteListP(new Vela_NoteList(iUndo, iQuantizeContents));
    mEventStreamP.Set(new Vela_EventStream(iUndo, iQuantizeContents));
    mNoteListP.Set(noteListP.release());
}

// Only the undo framework builds a shell, and it must be undoable to take the saved id.
Vela_Chunk::Vela_Chunk(ReCreate) : Ndo_Object(kUndoable, false) {}

Vela_Chunk::~Vela_Chunk() {
    delete mNoteListP.Get();
    delete mEventStreamP.Get();
    for (const Ndo_Ptr<Vela_ContinuousDataStream>& entry : mContinuousList) delete entry.Get();
    DiscardSortedList();
}

void Vela_Chunk::SetUID(const Sys_Umid& iUID) {
    NdoAboutToModify();
    mUID = iUID;
}

void Vela_Chunk::SetIsLocal(bool iIsLocal) {
    NdoAboutToModify();
    mIsLocal = iIsLocal;
}

void Vela_Chunk::SetNoteList(Ndo_AutoPtr<Vela_NoteListBase> iNoteListP) {
    VELA_ASSERT(this->NdoIsUndoable() == iNoteListP->NdoIsUndoable());
    NdoAboutToModify();
    if (mNoteListP) mNoteListP->NdoDelete();
    mNoteListP.Set(iNoteListP.Release());
    DiscardSortedList();
}

void Vela_Chunk::DiscardSortedList() {
    delete mSortedEventListP;
    mSortedEventListP = nullptr;
}

// ---------------------------------------------------------------- the continuous list

size_t Vela_Chunk::LowerBound(const Mdie_SubStream& iSubStream) const {
    const auto* found = std::lower_bound(mContinuousList.begin(), mContinuousList.end(), iSubStream,
                                         [](const Ndo_Ptr<Vela_ContinuousDataStream>& iEntry, const Mdie_SubStream& iValue) {
                                             return iEntry->GetSubStream() < iValue;
                                         });
    return static_cast<size_t>(found - mContinuousList.begin());
}

Vela_ContinuousDataStream* Vela_Chunk::FindContinuousStream(const Mdie_SubStream& iSubStream) const {
    if (iSubStream.IsNull()) return nullptr;
    const size_t position = LowerBound(iSubStream);
    if (position == mContinuousList.GetSize()) return nullptr;
    Vela_ContinuousDataStream* streamP = mContinuousList[position].Get();
    return streamP->GetSubStream() == iSubStream ? streamP : nullptr;
}

Vela_ContinuousDataStream* Vela_Chunk::FindOrCreateContinuousStream(const Mdie_SubStream& iSubStream) {
    if (iSubStream.IsNull()) return nullptr;
    const size_t position = LowerBound(iSubStream);
    if (position < mContinuousList.GetSize() && mContinuousList[position]->GetSubStream() == iSubStream)
        return mContinuousList[position].Get();
    std::unique_ptr<Vela_ContinuousDataStream> streamP(
        new Vela_ContinuousDataStream(iSubStream, UndoFlagOf(*this), mQuantizeContents));
    NdoAboutToModify();
    InsertStream(position, streamP.get());
    return streamP.release();
}

void Vela_Chunk::InsertStream(size_t iPosition, Vela_ContinuousDataStream* iStreamP) {
    mContinuousList.Insert(iPosition, Ndo_Ptr<Vela_ContinuousDataStream>(iStreamP));
}

void Vela_Chunk::RemoveStream(size_t iPosition) {
    NdoAboutToModify();
    Vela_ContinuousDataStream* streamP = mContinuousList[iPosition].Get();
    mContinuousList.Erase(iPosition);
    streamP->NdoDelete();
}

void Vela_Chunk::RemoveStreamIfEmpty(size_t iPosition) {
    if (mContinuousList[iPosition]->IsEmpty()) RemoveStream(iPosition);
}

void Vela_Chunk::DeleteAllStreams() {
    if (mContinuousList.IsEmpty()) return;
    NdoAboutToModify();
    for (const Ndo_Ptr<Vela_ContinuousDataStream>& entry : mContinuousList) entry->NdoDelete();
    mContinuousList.Init();
}

// ---------------------------------------------------------------- content

void Vela_Chunk::AddEvent(const Vela_ExtendedEvent& iEvent) {
    // With tick times mattering, a quantizing chunk keeps tick times on the coarse grid.
    std::optional<Vela_ExtendedEvent> snapped;
    if (TickTimesMatter::Active() && mQuantizeContents && iEvent.GetTime().GetType() == kTime_Ticks) {
        int64_t ticks = iEvent.GetTime().AsInt64();
        Time_Convert::SnapToCoarseInternalTick(ticks);
        if (ticks != iEvent.GetTime().AsInt64()) {
            snapped.emplace(iEvent);
            snapped->SetTime(Time_Typed(ticks, kTime_Ticks));
        }
    }
    const Vela_ExtendedEvent& event = snapped ? *snapped : iEvent;
    const int kind = iEvent.GetEvent().GetType();
    if (IsNoteKind(kind)) {
        if (iEvent.IsNoteWithDurationExtendedEvent()) mNoteListP->AddNote(event.AsNoteWithDurationExtendedEvent());
    } else if (IsContinuousKind(kind)) {
        if (Vela_ContinuousDataStream* streamP = FindOrCreateContinuousStream(Mdie_SubStream(iEvent.GetEvent())))
            streamP->AddEvent(event);
    } else if (IsEventStreamKind(kind)) {
        mEventStreamP->AddEvent(event);
    }
    DiscardSortedList();
}

void Vela_Chunk::EraseEvent(const Mdie_TimedEvent& iEvent) {
    // Only kind 3 is a note here; kind 22 takes the sub-stream path and, having a null
    // sub-stream, erases nothing.
    const int kind = iEvent.GetEvent().GetType();
    if (kind == Vela_Event::kNoteWithDuration) {
        mNoteListP->EraseNote(iEvent);
    } else if (IsEventStreamKind(kind)) {
        mEventStreamP->EraseEvent(iEvent);
    } else {
        const Mdie_SubStream subStream(iEvent.GetEvent());
        if (!subStream.IsNull()) {
            const size_t position = LowerBound(subStream);
            if (position < mContinuousList.GetSize() && mContinuousList[position]->GetSubStream() == subStream) {
                mContinuousList[position]->EraseEvent(iEvent);
                RemoveStreamIfEmpty(position);
            }
        }
    }
    DiscardSortedList();
}

bool Vela_Chunk::IsEventInChunk(const Mdie_TimedEvent& iEvent) {
    const int kind = iEvent.GetEvent().GetType();
    if (IsNoteKind(kind)) return mNoteListP->IsNoteInList(iEvent);
    const Time_Typed start = iEvent.GetTime() - OneUnit(iEvent.GetTime());
    const Time_Typed end = iEvent.GetTime() + OneUnit(iEvent.GetTime());
    Mdie_TimedEventList found;
    Vela_EventListWrapper output(found);
    if (IsEventStreamKind(kind)) {
        mEventStreamP->GetEventsInRange(output, start, end, ZeroLength(start.GetType()), start.GetType(), nullptr, false, 0);
    } else {
        Vela_ContinuousDataStream* streamP = FindOrCreateContinuousStream(Mdie_SubStream(iEvent.GetEvent()));
        if (!streamP) return false;
        streamP->GetMidiEventsInRange(output, start, end, ZeroLength(start.GetType()), start.GetType(), nullptr, nullptr,
                                      nullptr, false, 0);
    }
    return std::any_of(found.begin(), found.end(), [&](const Mdie_TimedEvent& iFound) { return iFound == iEvent; });
}

void Vela_Chunk::AddEventsFromChunk(const Vela_Chunk* iSourceP, Time_Typed iStart, Time_Typed iEnd,
                                    Time_TypedLength iNudge, EMidiNudgeMode iMode) {
    std::unique_ptr<Vela_NoteListBase> notesP(new Vela_NoteListBase(kNotUndoable, mQuantizeContents));
    notesP->CopyTimeRange(*iSourceP->GetNoteList(), iStart, iEnd);
    if (iNudge.AsInt64() != 0 || (TickTimesMatter::Active() && iStart.GetType() == kTime_Ticks)) {
        switch (iMode) {
            case kMidiNudgeStarts: notesP->OffsetStarts(iNudge); break;
            case kMidiNudgeDurations: notesP->OffsetDurations(iNudge); break;
            case kMidiNudgePitches: notesP->OffsetPitches(iNudge); break;
            default: notesP->OffsetTimes(iNudge); break;
        }
    }
    mNoteListP->Merge(*notesP);
    notesP.reset();
    // Only the notes move in the modes other than 0.
    const Time_TypedLength nudge = iMode == kMidiNudgeTimes ? iNudge : ZeroLength(iNudge.GetType());
    mEventStreamP->AddFromStream(*iSourceP->GetEventStream(), iStart, iEnd, nudge);
    for (size_t i = 0; i < iSourceP->mContinuousList.GetSize(); ++i) {
        const Vela_ContinuousDataStream& source = *iSourceP->mContinuousList[i];
        if (!source.IsEventInRange(iStart, iEnd)) continue;
        if (Vela_ContinuousDataStream* streamP = FindOrCreateContinuousStream(source.GetSubStream()))
            streamP->AddFromStream(source, iStart, iEnd, nudge);
    }
    DiscardSortedList();
}

void Vela_Chunk::EraseEventsFromChunk(const Vela_Chunk* iSourceP, Time_Typed iStart, Time_Typed iEnd,
                                      Time_TypedLength iOffset) {
    std::unique_ptr<Vela_NoteListBase> notesP(new Vela_NoteListBase(kNotUndoable, mQuantizeContents));
    notesP->CopyTimeRange(*iSourceP->GetNoteList(), iStart, iEnd);
    if (iOffset.AsInt64() != 0) notesP->OffsetTimes(iOffset);
    mNoteListP->Erase(*notesP);
    notesP.reset();
    mEventStreamP->EraseFromStream(*iSourceP->GetEventStream(), iStart, iEnd, iOffset);
    // Streams emptied here stay in the list.
    for (const Ndo_Ptr<Vela_ContinuousDataStream>& source : iSourceP->mContinuousList) {
        if (!source->IsEventInRange(iStart, iEnd)) continue;
        if (Vela_ContinuousDataStream* streamP = FindContinuousStream(source->GetSubStream()))
            streamP->EraseFromStream(*source, iStart, iEnd, iOffset);
    }
    DiscardSortedList();
}

void Vela_Chunk::EraseRange(Time_Typed iStart, Time_Typed iEnd) {
    mNoteListP->EraseTimeRange(iStart, iEnd);
    mEventStreamP->EraseRange(iStart, iEnd);
    for (size_t i = mContinuousList.GetSize(); i-- > 0;) {
        mContinuousList[i]->EraseRange(iStart, iEnd);
        RemoveStreamIfEmpty(i);
    }
    DiscardSortedList();
}

void Vela_Chunk::EraseSubStream(const Mdie_SubStream& iSubStream, Time_Typed iStart, Time_Typed iEnd) {
    const size_t position = LowerBound(iSubStream);
    if (position < mContinuousList.GetSize() && mContinuousList[position]->GetSubStream() == iSubStream) {
        mContinuousList[position]->EraseRange(iStart, iEnd);
        RemoveStreamIfEmpty(position);
    }
    DiscardSortedList();
}

void Vela_Chunk::Clear() {
    mNoteListP->Clear();
    mEventStreamP->Clear();
    for (size_t i = mContinuousList.GetSize(); i-- > 0;) {
        mContinuousList[i]->Clear();
        RemoveStream(i);
    }
    DiscardSortedList();
}

void Vela_Chunk::ReplaceData(const Vela_Chunk* iSourceP) {
    // A chunk already holds its own data; deleting its streams first would lose it.
    if (iSourceP != this) {
        mNoteListP->ReplaceData(*iSourceP->GetNoteList());
        DeleteAllStreams();
        mContinuousList.Reserve(iSourceP->mContinuousList.GetSize());
        for (const Ndo_Ptr<Vela_ContinuousDataStream>& source : iSourceP->mContinuousList) {
            std::unique_ptr<Vela_ContinuousDataStream> streamP(
                new Vela_ContinuousDataStream(source->GetSubStream(), UndoFlagOf(*this), mQuantizeContents));
            streamP->ReplaceData(*source);
            NdoAboutToModify();
            InsertStream(mContinuousList.GetSize(), streamP.get());
            streamP.release();
        }
        mEventStreamP->ReplaceData(*iSourceP->GetEventStream());
    }
    DiscardSortedList();
}

void Vela_Chunk::FindMIDIControllersInUse(bool* ioControllers128) const {
    for (const Ndo_Ptr<Vela_ContinuousDataStream>& entry : mContinuousList) {
        int8_t kind = 0;
        int8_t controller = 0;
        entry->GetSubStream().GetInfo(kind, controller);
        if (kind == Vela_Event::kController && controller >= 0) ioControllers128[controller] = true;
    }
}

// ---------------------------------------------------------------- range queries

namespace {

// Appends one event the way every note of a range query goes out: adjusted by the real-time
// properties, kept only when it then lies in [iStart, iEnd) (unless iAnyTime), and delivered as
// a display item (processed and stored event) or as the processed event itself.
void AppendNoteOutput(Vela_EventListWrapper& ioOutput, const Vela_ExtendedEvent& iStored,
                      const Vela_IRTProperties* iPropertiesP, const Time_Typed& iStart, const Time_Typed& iEnd,
                      bool iAnyTime, bool iFlag, int iTag) {
    std::optional<Vela_ExtendedEvent> processed;
    if (iPropertiesP) {
        processed.emplace(iStored);
        iPropertiesP->AdjustEvent(*processed, 255);
    }
    const Vela_ExtendedEvent& event = processed ? *processed : iStored;
    if (!iAnyTime && (event.GetTime() < iStart || !(event.GetTime() < iEnd))) return;
    if (ioOutput.IsDisplayList()) {
        ioOutput.push_back(Vela_DisplayItem(event, iStored, iFlag, iTag));
    } else {
        ioOutput.push_back(event);
    }
}

// Sorts what a query appended to a timed or extended list (the elements from iFirst on) in
// playback order by small keys on the stack, then moves the elements into place along the
// cycles of the permutation: far fewer bytes move than in a sort of the elements themselves.
// Ties keep the order of appending (notes, then the streams in ascending order, then other
// events). Lists longer than kMaxKeys, or holding times of both kinds, take the wrapper's sort.
// Each member appends in time order, so the keys form a few ascending runs: their positions
// are merged run by run (linear passes) unless there are many.
constexpr size_t kMaxKeys = 2048;  // 32 KB of keys and 8 KB of positions on the stack
constexpr size_t kMaxRuns = 64;    // more runs than this are sorted instead

struct SortKey {
    int64_t mTime;
    int32_t mPriority;
    bool operator<(const SortKey& iOther) const {
        return mTime != iOther.mTime ? mTime < iOther.mTime : mPriority < iOther.mPriority;
    }
};

// Fills oOrder with the positions 0..iCount-1 in ascending key order, equal keys in position
// order (a stable sort), merging the keys' ascending runs pairwise pass by pass. iKeys is only
// read (not const: gcc would take a const pointer to the caller's stack keys as a read of
// unset memory).
void SortPositions(SortKey* iKeys, size_t iCount, uint16_t* oOrder) {
    const auto before = [iKeys](uint16_t iA, uint16_t iB) { return iKeys[iA] < iKeys[iB] || (!(iKeys[iB] < iKeys[iA]) && iA < iB); };
    std::iota(oOrder, oOrder + iCount, uint16_t{0});
    uint32_t starts[kMaxRuns + 1];
    size_t runs = 0;
    for (size_t i = 0; i < iCount; ++i) {
        if (i > 0 && !(iKeys[i] < iKeys[i - 1])) continue;
        if (runs == kMaxRuns) return std::sort(oOrder, oOrder + iCount, before);
        starts[runs++] = static_cast<uint32_t>(i);
    }
    if (runs <= 1) return;
    starts[runs] = static_cast<uint32_t>(iCount);
    uint16_t other[kMaxKeys];
    uint16_t* from = oOrder;
    uint16_t* to = other;
    while (runs > 1) {
        size_t merged = 0;
        for (size_t r = 0; r < runs; r += 2, ++merged) {
            const uint32_t begin = starts[r], middle = starts[std::min(r + 1, runs)], end = starts[std::min(r + 2, runs)];
            std::merge(from + begin, from + middle, from + middle, from + end, to + begin, before);
            starts[merged] = begin;
        }
        starts[merged] = static_cast<uint32_t>(iCount);
        runs = merged;
        std::swap(from, to);
    }
    if (from != oOrder) std::copy(from, from + iCount, oOrder);
}

template <class TList>
bool SortByKeys(TList& ioList, size_t iFirst) {
    const size_t count = ioList.GetSize() - iFirst;
    if (count > kMaxKeys) return false;
    SortKey keys[kMaxKeys];
    for (size_t i = 0; i < count; ++i) {
        const Mdie_TimedEvent& event = ioList[iFirst + i];
        if (event.GetTime().GetType() != ioList[iFirst].GetTime().GetType()) return false;
        keys[i] = SortKey{std::clamp(event.GetTime().AsInt64(), kTime_MinCount, kTime_MaxCount), event.GetEvent().GetPlaybackPriority()};
    }
    uint16_t order[kMaxKeys];  // order[i]: the position whose element goes to i
    SortPositions(keys, count, order);
    for (uint16_t start = 0; start < count; ++start) {
        if (order[start] == start) continue;
        auto held = ioList[iFirst + start];
        uint16_t to = start;
        while (order[to] != start) {
            const uint16_t from = order[to];
            ioList[iFirst + to] = ioList[iFirst + from];
            order[to] = to;
            to = from;
        }
        ioList[iFirst + to] = held;
        order[to] = to;
    }
    return true;
}

void SortAppended(Vela_EventListWrapper& ioOutput, size_t iFirst) {
    if (Mdie_TimedEventList* listP = ioOutput.GetTimedEventList()) {
        if (SortByKeys(*listP, iFirst)) return;
    } else if (Vela_ExtendedEventList* listP = ioOutput.GetExtendedEventList()) {
        if (SortByKeys(*listP, iFirst)) return;
    }
    ioOutput.sort(iFirst);
}

}  // namespace

void Vela_Chunk::GetMidiEventsInRange(Vela_EventListWrapper* ioOutputP, Time_TypedLength iOffset, Time_Typed iStart,
                                      Time_Typed iEnd, Time_Typed, Time_Typed, bool iFlag, Mdie_ChaseTracker* iTrackerP,
                                      const Mdie_ChaseTrackerMap* iMapP, const Mdie_Filter& iFilter,
                                      const Vela_IRTProperties* iPropertiesP, bool iSkipMuted, int iTag,
                                      ENoteOffInclusion iNoteOffInclusion) const {
    Vela_EventListWrapper& output = *ioOutputP;
    const size_t first = output.size();
    const Time_EType outputType = iStart.GetType();
    const Time_Typed chunkStart = iStart - iOffset;
    const Time_Typed chunkEnd = iEnd - iOffset;
    Vela_NoteListBase* notesP = mNoteListP.Get();

    if (iFilter.Get(Mdie_Filter::kNotes)) {
        // The note list widens a tick range to whole samples of the output; what then falls
        // outside the range is left out.
        for (Vela_NoteListBase::NotesExtendedEventInRangeIter it(notesP, Negated(iOffset), chunkStart, chunkEnd, iFlag); it.IsMore(); ++it) {
            Vela_ExtendedEvent event = *it;
            if (iSkipMuted && event.AsNoteWithDurationExtendedEvent().IsMuted()) continue;
            event.SetTime(event.GetTime() + iOffset);
            AppendNoteOutput(output, event, iPropertiesP, iStart, iEnd, false, iFlag, iTag);
        }
    }
    if (iNoteOffInclusion != kNoteOffNone) {
        Mdie_TimedEvent release;
        const bool found = iNoteOffInclusion == kNoteOffEarliest
                               ? notesP->GetEarliestReleaseTimeForNotesInRange(chunkStart, chunkEnd, release)
                               : notesP->GetLastReleaseTimeForNotesInRange(chunkStart, chunkEnd, release);
        // The release lies after the notes it ends, usually past the range: it goes out as it is.
        if (found)
            AppendNoteOutput(output, Vela_ExtendedEvent(release.GetTime() + iOffset, release.GetEvent()), nullptr, iStart,
                             iEnd, true, iFlag, iTag);
    }
    for (const Ndo_Ptr<Vela_ContinuousDataStream>& entry : mContinuousList) {
        if (iFilter.FilterSubStream(entry->GetSubStream()))
            entry->GetMidiEventsInRange(output, chunkStart, chunkEnd, iOffset, outputType, iTrackerP, iMapP, iPropertiesP,
                                        iFlag, iTag);
    }
    if (iFilter.Get(Mdie_Filter::kSystemExclusive))
        mEventStreamP->GetEventsInRange(output, chunkStart, chunkEnd, iOffset, outputType, iPropertiesP, iFlag, iTag);
    SortAppended(output, first);
}

void Vela_Chunk::GetMidiEventsInRange(Vela_EventListWrapper* ioOutputP, Time_TypedLength iOffset, Time_Typed iStart,
                                      Time_Typed iEnd, bool iFlag, Mdie_ChaseTracker* iTrackerP,
                                      const Mdie_ChaseTrackerMap* iMapP, ENoteOffInclusion iNoteOffInclusion) const {
    Mdie_Filter everything;
    everything.ClearAll();
    everything.SetAll();
    GetMidiEventsInRange(ioOutputP, iOffset, iStart, iEnd, Time_Typed::MinTime(iStart.GetType()),
                         Time_Typed::MaxTime(iEnd.GetType()), iFlag, iTrackerP, iMapP, everything, nullptr, false, 0,
                         iNoteOffInclusion);
}

// ---------------------------------------------------------------- chase and note state

void Vela_Chunk::GetChaseStateAtTime(Mdie_ChaseTracker* iTrackerP, Time_Typed iAt, Time_Typed iLimit) const {
    iTrackerP->Clear();
    AddChaseStateAtTime(iTrackerP, iAt, iLimit);
}

void Vela_Chunk::AddChaseStateAtTime(Mdie_ChaseTracker* iTrackerP, Time_Typed iAt, Time_Typed iLimit) const {
    const Time_TypedLength noOffset = ZeroLength(iAt.GetType());
    for (const Ndo_Ptr<Vela_ContinuousDataStream>& entry : mContinuousList)
        entry->AccumulateChaseStateAtTime(iTrackerP, iAt, iLimit, noOffset);
}

void Vela_Chunk::AddNoteStateAtTime(Mdie_TrackState* iTrackStateP, Time_Typed iAt, Time_Typed iRangeStart,
                                    Time_Typed iRangeEnd, Time_TypedLength iOffset, bool iClipAtRangeEnd) const {
    for (Vela_NoteListBase::FullSustainingNoteIter it(mNoteListP.Get(), iAt); it.IsMore(); ++it) {
        const Vela_NoteListBase_Note& note = *it;
        if (note.start < iRangeStart || !(note.start < iRangeEnd)) continue;
        Vela_NoteWithDurationEvent event = note.event.AsNoteWithDuration();
        const Time_TypedLength untilEnd = iRangeEnd - note.start;
        if (iClipAtRangeEnd && event.GetDuration() > untilEnd) event.SetDuration(untilEnd);
        iTrackStateP->ReceiveEvent(Mdie_TimedEvent(note.start + iOffset, event));
    }
}

// ---------------------------------------------------------------- legacy playback

void Vela_Chunk::AddClipBoundary(int64_t iTime) {
    if (mClipBoundaries.size() >= mClipBoundaries.max_size()) throw std::length_error("map/set too long");
    mClipBoundaries.insert(iTime);
}

void Vela_Chunk::MoveNotesForLegacyPlayback(Time_TypedLength iOffset) {
    const int64_t grid = Time_Globals::GetCoarseInternalTickGrid();
    std::unique_ptr<Vela_NoteListBase> movedP(new Vela_NoteListBase(kNotUndoable, true));
    for (Vela_NoteListBase::FullNotesInRangeIter it(mNoteListP.Get()); it.IsMore(); ++it) {
        Vela_NoteListBase_Note note = *it;
        const int64_t start = note.start.AsInt64();
        const auto next = mClipBoundaries.upper_bound(start);
        const int64_t nextBoundary = next == mClipBoundaries.end() ? std::numeric_limits<int64_t>::max() : *next;
        const int64_t previousBoundary = next == mClipBoundaries.begin() ? -1 : *std::prev(next);
        note.start = Time_Typed(LegacyPlaybackStart(start, previousBoundary, nextBoundary, iOffset.AsInt64(), grid), kTime_Ticks);
        movedP->AddNote(note);
    }
    mNoteListP->ReplaceData(*movedP);
    mClipBoundaries.clear();
}

void Vela_Chunk::QuantizeEventsForTTM(Time_TypedLength iOffset) {
    if (mQuantizedForTTM) return;
    if (!mClipBoundaries.empty()) {
        MoveNotesForLegacyPlayback(iOffset);
    } else {
        mNoteListP->OffsetTimes(iOffset);
    }
    mEventStreamP->OffsetTimes(iOffset);
    for (const Ndo_Ptr<Vela_ContinuousDataStream>& entry : mContinuousList) entry->OffsetTimes(iOffset);
    DiscardSortedList();
    mQuantizedForTTM = true;
}

// ---------------------------------------------------------------- equality

bool operator==(Vela_Chunk& iA, Vela_Chunk& iB) {
    if (!(*iA.GetNoteList() == *iB.GetNoteList())) return false;
    const Vela_Chunk::ContinuousList& listA = iA.GetContinuousList();
    const Vela_Chunk::ContinuousList& listB = iB.GetContinuousList();
    if (listA.GetSize() != listB.GetSize()) return false;
    // The slots themselves, not the streams in them: see the header.
    for (size_t i = 0; i < listA.GetSize(); ++i)
        if (&listA[i] != &listB[i]) return false;
    return *iA.GetEventStream() == *iB.GetEventStream();
}

// ---------------------------------------------------------------- range iterator

// A member's iterator and its current event, placed in the output's time line.
struct Vela_ChunkExtendedEventsInRangeIter::Child {
    std::unique_ptr<Vela_ExtendedEventIterator> mIterP;
    Vela_ExtendedEvent mCurrent;

    void Load(const Time_TypedLength& iOffset) {
        mCurrent = **mIterP;
        mCurrent.SetTime(mCurrent.GetTime() + iOffset);
    }
};

Vela_ChunkExtendedEventsInRangeIter::Vela_ChunkExtendedEventsInRangeIter() = default;

Vela_ChunkExtendedEventsInRangeIter::Vela_ChunkExtendedEventsInRangeIter(Vela_Chunk* iChunkP, Time_Typed iStart, Time_Typed iEnd,
                                                                         Time_TypedLength iOffset, bool iFlag,
                                                                         const Mdie_Filter& iFilter)
    : mChunkP(iChunkP), mStart(iStart), mEnd(iEnd), mOffset(iOffset), mFlag(iFlag), mFilter(iFilter) {
    Build();
}

Vela_ChunkExtendedEventsInRangeIter::Vela_ChunkExtendedEventsInRangeIter(const Vela_ChunkExtendedEventsInRangeIter& iOther) {
    *this = iOther;
}

Vela_ChunkExtendedEventsInRangeIter& Vela_ChunkExtendedEventsInRangeIter::operator=(const Vela_ChunkExtendedEventsInRangeIter& iOther) {
    if (this == &iOther) return *this;
    mChunkP = iOther.mChunkP;
    mStart = iOther.mStart;
    mEnd = iOther.mEnd;
    mOffset = iOther.mOffset;
    mFlag = iOther.mFlag;
    mFilter = iOther.mFilter;
    Build();
    while (mSteps < iOther.mSteps && IsMore()) ++*this;
    return *this;
}

Vela_ChunkExtendedEventsInRangeIter::~Vela_ChunkExtendedEventsInRangeIter() = default;

void Vela_ChunkExtendedEventsInRangeIter::Build() {
    mChildren.clear();
    mSteps = 0;
    if (!mChunkP) return;
    if (mFilter.Get(Mdie_Filter::kNotes))
        Add(std::make_unique<Vela_NoteListBase::NotesExtendedEventInRangeIter>(mChunkP->GetNoteList(), Negated(mOffset),
                                                                               mStart - mOffset, mEnd - mOffset, mFlag));
    Time_Typed start = mStart, end = mEnd;
    if (mStart.GetType() == kTime_Ticks) Time_Convert::MakeTickRangeSampleBased(mStart, mEnd, mFlag, start, end);
    start -= mOffset;
    end -= mOffset;
    for (const Ndo_Ptr<Vela_ContinuousDataStream>& entry : mChunkP->GetContinuousList()) {
        if (mFilter.FilterSubStream(entry->GetSubStream()))
            Add(std::make_unique<Vela_ContinuousDataStreamExtendedEventsInRangeIter>(*entry, start, end));
    }
    if (mFilter.Get(Mdie_Filter::kSystemExclusive))
        Add(std::make_unique<Vela_EventStreamExtendedEventsInRangeIter>(*mChunkP->GetEventStream(), start, end));
}

void Vela_ChunkExtendedEventsInRangeIter::Add(std::unique_ptr<Vela_ExtendedEventIterator> iIterP) {
    if (!iIterP->IsMore()) return;
    ChildList single;
    single.push_back(Child{std::move(iIterP), Vela_ExtendedEvent()});
    single.front().Load(mOffset);
    InsertSorted(single, single.begin());
}

void Vela_ChunkExtendedEventsInRangeIter::InsertSorted(ChildList& ioFrom, ChildList::iterator iChild) {
    // Ties go behind the children already there: notes, then streams in list order, then the
    // event stream, as they were added.
    auto position = std::find_if(mChildren.begin(), mChildren.end(), [&](const Child& iOther) {
        return &iOther != &*iChild && Mdie_TimedEvent::PlaybackOrdering(iChild->mCurrent, iOther.mCurrent);
    });
    mChildren.splice(position, ioFrom, iChild);
}

void Vela_ChunkExtendedEventsInRangeIter::operator++() {
    const ChildList::iterator front = mChildren.begin();
    ++*front->mIterP;
    ++mSteps;
    if (!front->mIterP->IsMore()) {
        mChildren.erase(front);
        return;
    }
    front->Load(mOffset);
    InsertSorted(mChildren, front);
}

Vela_ExtendedEvent Vela_ChunkExtendedEventsInRangeIter::operator*() const { return mChildren.front().mCurrent; }
