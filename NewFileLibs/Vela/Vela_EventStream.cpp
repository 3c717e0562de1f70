// The event stream: placing order, range edits, undo state, range output and "MdES".
#include "Vela_EventStream.h"

#include <algorithm>
#include <vector>

#include "Cmn_Assert.h"
#include "Sys_StdStreamHeader.h"
#include "Sys_TypedStream.h"
#include "Vela_Init.h"

namespace {

bool EventBefore(const Mdie_TimedEvent& iEvent, const Time_Typed& iTime) { return iEvent.GetTime() < iTime; }
bool TimeBefore(const Time_Typed& iTime, const Mdie_TimedEvent& iEvent) { return iTime < iEvent.GetTime(); }

}  // namespace

Vela_EventStream::Vela_EventStream(EUndoFlag iUndo, bool iSnapTicks) : Ndo_Object(iUndo, iSnapTicks), mSnapTicks(iSnapTicks) {}

Vela_EventStream::Vela_EventStream(const Vela_EventStream& iOther)
    : Ndo_Object(iOther), mEvents(iOther.mEvents), mSnapTicks(iOther.mSnapTicks) {}

size_t Vela_EventStream::LowerBound(const Time_Typed& iTime) const {
    return static_cast<size_t>(std::lower_bound(mEvents.begin(), mEvents.end(), iTime, EventBefore) - mEvents.begin());
}

size_t Vela_EventStream::UpperBound(const Time_Typed& iTime) const {
    return static_cast<size_t>(std::upper_bound(mEvents.begin(), mEvents.end(), iTime, TimeBefore) - mEvents.begin());
}

void Vela_EventStream::FindRange(size_t& oFirst, size_t& oLast, const Time_Typed& iStart, const Time_Typed& iEnd) const {
    oFirst = LowerBound(iStart);
    oLast = std::max(oFirst, LowerBound(iEnd));
}

Time_Typed Vela_EventStream::Snapped(const Time_Typed& iTime) const {
    return mSnapTicks && TickTimesMatter::Active() ? Time_Convert::SnapToCoarseInternalTick(iTime) : iTime;
}

// ---------------------------------------------------------------- edits

void Vela_EventStream::AddEvent(const Mdie_TimedEvent& iEvent) {
    NdoAboutToModify();
    mEvents.Insert(LowerBound(iEvent.GetTime()), iEvent);
}

void Vela_EventStream::EraseEvent(const Mdie_TimedEvent& iEvent) {
    const size_t last = UpperBound(iEvent.GetTime());
    for (size_t i = LowerBound(iEvent.GetTime()); i < last; ++i) {
        if (mEvents[i].GetEvent() != iEvent.GetEvent()) continue;
        NdoAboutToModify();
        mEvents.Erase(i);
        return;
    }
}

void Vela_EventStream::EraseRange(const Time_Typed& iStart, const Time_Typed& iEnd) {
    const size_t first = LowerBound(iStart);
    const size_t last = UpperBound(iEnd);
    if (first >= last) return;
    NdoAboutToModify();
    mEvents.Erase(first, last);
}

void Vela_EventStream::AddFromStream(const Vela_EventStream& iSource, const Time_Typed& iStart, const Time_Typed& iEnd,
                                     const Time_TypedLength& iOffset) {
    size_t srcFirst = 0, srcLast = 0;
    if (!Vela_FindSourceRange(iSource, iStart, iEnd, srcFirst, srcLast)) return;
    NdoAboutToModify();

    // Copies first (the source may be this stream), shifted and snapped: their order holds.
    std::vector<Mdie_TimedEvent> copied(iSource.mEvents.begin() + srcFirst, iSource.mEvents.begin() + srcLast);
    for (Mdie_TimedEvent& event : copied) event.SetTime(Snapped(event.GetTime() + iOffset));
    const size_t dstFirst = LowerBound(iStart + iOffset);
    const size_t dstLast = std::max(dstFirst, UpperBound(iEnd + iOffset));

    // Stable merge with the own events of the span, copies first at equal times.
    std::vector<Mdie_TimedEvent> merged;
    merged.reserve(copied.size() + (dstLast - dstFirst));
    std::merge(copied.begin(), copied.end(), mEvents.begin() + dstFirst, mEvents.begin() + dstLast,
               std::back_inserter(merged),
               [](const Mdie_TimedEvent& iOwn, const Mdie_TimedEvent& iCopy) { return iOwn.GetTime() < iCopy.GetTime(); });
    mEvents.Erase(dstFirst, dstLast);
    mEvents.Insert(dstFirst, merged.data(), merged.data() + merged.size());
}

void Vela_EventStream::EraseFromStream(const Vela_EventStream& iSource, const Time_Typed& iStart,
                                       const Time_Typed& iEnd, const Time_TypedLength& iOffset) {
    size_t srcFirst = 0, srcLast = 0;
    if (!Vela_FindSourceRange(iSource, iStart, iEnd, srcFirst, srcLast)) return;
    NdoAboutToModify();

    // Each source event claims the first equal, unclaimed event at its shifted time.
    std::vector<bool> removed(mEvents.GetSize(), false);
    for (size_t s = srcFirst; s < srcLast; ++s) {
        const Mdie_TimedEvent& source = iSource.mEvents[s];
        const Time_Typed target = source.GetTime() + iOffset;
        const size_t last = UpperBound(target);
        for (size_t d = LowerBound(target); d < last; ++d) {
            if (removed[d] || mEvents[d].GetEvent() != source.GetEvent()) continue;
            removed[d] = true;
            break;
        }
    }
    // Close the gaps in one pass, keeping the survivors' order.
    size_t w = 0;
    for (size_t d = 0; d < mEvents.GetSize(); ++d) {
        if (removed[d]) continue;
        if (w != d) mEvents[w] = mEvents[d];
        ++w;
    }
    mEvents.Erase(w, mEvents.GetSize());
}

void Vela_EventStream::ReplaceData(const Vela_EventStream& iSource) {
    NdoAboutToModify();
    if (&iSource != this) mEvents = iSource.mEvents;
}

void Vela_EventStream::OffsetTimes(const Time_TypedLength& iLength) {
    for (Mdie_TimedEvent& event : mEvents) event.SetTime(Snapped(event.GetTime() + iLength));
}

void Vela_EventStream::Clear() {
    if (mEvents.IsEmpty()) return;
    NdoAboutToModify();
    mEvents.Init();
}

bool operator==(const Vela_EventStream& iA, const Vela_EventStream& iB) {
    const Mdie_TimedEventList& a = iA.GetEvents();
    const Mdie_TimedEventList& b = iB.GetEvents();
    return a.GetSize() == b.GetSize() && std::equal(a.begin(), a.end(), b.begin());
}

// ---------------------------------------------------------------- range output

void Vela_EventStream::Output(Vela_RangeOutput& ioOut, const Time_Typed& iStart, const Time_Typed& iEnd) const {
    size_t first = 0, last = 0;
    FindRange(first, last, iStart, iEnd);
    for (size_t i = first; i < last; ++i) ioOut.Add(mEvents[i].GetTime(), mEvents[i].GetEvent());
}

void Vela_EventStream::GetEventsInRange(Vela_EventListWrapper& oOut, const Time_Typed& iStart, const Time_Typed& iEnd,
                                        const Time_Typed& iOrigin, const Time_Typed& iFloor,
                                        const Vela_IRTProperties* iPropertiesP, bool iFlag, int iTag) const {
    Vela_RangeOutput out(oOut, Vela_OutputPlacement::FromOrigin(iOrigin, iFloor, iStart.GetType()), iPropertiesP,
                         iFlag, iTag);
    Output(out, iStart, iEnd);
}

void Vela_EventStream::GetEventsInRange(Vela_EventListWrapper& oOut, const Time_Typed& iStart, const Time_Typed& iEnd,
                                        const Time_TypedLength& iOffset, Time_EType iOutputType,
                                        const Vela_IRTProperties* iPropertiesP, bool iFlag, int iTag) const {
    Vela_RangeOutput out(oOut, Vela_OutputPlacement::FromOffset(iOffset, iOutputType), iPropertiesP, iFlag, iTag);
    Output(out, iStart, iEnd);
}

void Vela_EventStream::GetEventsInRange(Vela_DisplayItemList& oOut, const Time_Typed& iStart, const Time_Typed& iEnd,
                                        const Time_TypedLength& iOffset, const Time_Typed& iWindowStart,
                                        const Time_Typed& iWindowEnd, const Vela_IRTProperties* iPropertiesP,
                                        bool iFlag, int iTag) const {
    Vela_RangeOutput out(oOut, Vela_OutputPlacement::FromOffset(iOffset, iStart.GetType()), iWindowStart, iWindowEnd,
                         iPropertiesP, iFlag, iTag);
    Output(out, iStart, iEnd);
}

// ---------------------------------------------------------------- undo

Ndo_Object* Vela_EventStream_NdoState::Recreate() const { return new Vela_EventStream(Ndo_Object::kUndoable, true); }

Ndo_State* Vela_EventStream::NdoGetState() {
    auto* stateP = new Vela_EventStream_NdoState;
    stateP->mEvents = mEvents;
    return stateP;
}

void Vela_EventStream::NdoRestoreState(Ndo_State* iStateP) {
    const auto* p = dynamic_cast<const Vela_EventStream_NdoState*>(iStateP);
    VELA_ASSERT(p != 0);
    if (p) mEvents = p->mEvents;
}

// ---------------------------------------------------------------- persistence

void Vela_EventStream::StreamOut(Sys_TypedOutStream& iStream) const {
    Sys_StdStreamHeaderWriter header(iStream, kStreamTag, kStreamVersion);
    mEvents.StreamOut(iStream);
    header.PatchSize();
}

void Vela_EventStream::StreamIn(Sys_TypedInStream& iStream) {
    Sys_StdStreamHeaderReader header(iStream, kStreamTag);
    header.CheckVersion(kStreamVersion, kStreamVersion);
    mEvents.StreamIn(iStream);
    const auto backwards = std::adjacent_find(mEvents.begin(), mEvents.end(), [](const Mdie_TimedEvent& iA, const Mdie_TimedEvent& iB) {
        return iB.GetTime() < iA.GetTime();
    });
    if (backwards != mEvents.end()) Vela_ThrowLocalized(kVelaMsg_BadData);
    header.SkipTheRest();
}
