// Continuous data streams: event translation, chase, range output, undo state and "MdCDS".
#include "Vela_ContinuousDataStream.h"

#include "Cmn_Assert.h"
#include "Mdie_ChaseTracker.h"
#include "Sys_StdStreamHeader.h"
#include "Sys_TypedStream.h"

namespace {

Time_TypedLength OneUnit(const Time_Typed& iTime) { return Time_TypedLength(1, iTime.GetType()); }

// Files each (time, value) of a walk as the sub-stream's event, and tracks what it delivered.
class EventFiler : public Vela_ContinuousData_OutputIter {
public:
    EventFiler(Vela_RangeOutput& ioOut, const Mdie_SubStream& iSubStream, Mdie_ChaseTracker* iTrackerP)
        : mOut(ioOut), mSubStream(iSubStream), mTrackerP(iTrackerP) {}

    void Output(const Time_Typed& iTime, int32_t iValue) override {
        const Vela_Event event = mSubStream.MakeEvent(iValue);
        if (mOut.Add(iTime, event) && mTrackerP) mTrackerP->TrackEvent(event);
    }

private:
    Vela_RangeOutput& mOut;
    const Mdie_SubStream& mSubStream;
    Mdie_ChaseTracker* mTrackerP;
};

}  // namespace

// ---------------------------------------------------------------- construction

Vela_ContinuousDataStream::Vela_ContinuousDataStream(const Mdie_SubStream& iSubStream, EUndoFlag iUndo, bool iSnapTicks)
    : Ndo_Object(iUndo, iSnapTicks), mSubStream(iSubStream), mData(new Vela_ContinuousData(iUndo, iSnapTicks)) {}

Vela_ContinuousDataStream::Vela_ContinuousDataStream(Sys_TypedInStream& iStream, EUndoFlag iUndo, bool iSnapTicks)
    : Ndo_Object(iUndo, iSnapTicks) {
    StreamIn(iStream, iUndo, iSnapTicks);
}

Vela_ContinuousDataStream::Vela_ContinuousDataStream(ReCreate) : Ndo_Object(kUndoable, true) {}

Vela_ContinuousDataStream::Vela_ContinuousDataStream(const Vela_ContinuousDataStream& iOther)
    : Ndo_Object(iOther), mSubStream(iOther.mSubStream) {
    if (iOther.mData) mData.Set(new Vela_ContinuousData(*iOther.mData));
}

Vela_ContinuousDataStream& Vela_ContinuousDataStream::operator=(const Vela_ContinuousDataStream& iOther) {
    if (this == &iOther) return *this;
    NdoAboutToModify();
    mSubStream = iOther.mSubStream;
    if (mData && iOther.mData) mData->ReplaceData(*iOther.mData);
    return *this;
}

Vela_ContinuousDataStream::~Vela_ContinuousDataStream() {
    if (mData) mData->NdoDelete();
}

// ---------------------------------------------------------------- edits

void Vela_ContinuousDataStream::AddEvent(const Mdie_TimedEvent& iEvent) {
    if (mData) mData->SetValueAtTime(iEvent.GetTime(), mSubStream.GetValueFromEvent(iEvent.GetEvent()));
}

void Vela_ContinuousDataStream::EraseEvent(const Mdie_TimedEvent& iEvent) {
    const Time_Typed& time = iEvent.GetTime();
    EraseRange(time, time + OneUnit(time));
}

void Vela_ContinuousDataStream::EraseRange(const Time_Typed& iStart, const Time_Typed& iEnd) {
    if (mData) mData->EraseRange(iStart, iEnd);
}

void Vela_ContinuousDataStream::AddFromStream(const Vela_ContinuousDataStream& iSource, const Time_Typed& iStart,
                                              const Time_Typed& iEnd, const Time_TypedLength& iOffset) {
    if (mData && iSource.mData) mData->AddFromData(*iSource.mData, iStart, iEnd, iOffset);
}

void Vela_ContinuousDataStream::EraseFromStream(const Vela_ContinuousDataStream& iSource, const Time_Typed& iStart,
                                                const Time_Typed& iEnd, const Time_TypedLength& iOffset) {
    if (mData && iSource.mData) mData->EraseFromData(*iSource.mData, iStart, iEnd, iOffset);
}

void Vela_ContinuousDataStream::ReplaceData(const Vela_ContinuousDataStream& iSource) {
    if (mData && iSource.mData) mData->ReplaceData(*iSource.mData);
}

void Vela_ContinuousDataStream::OffsetTimes(const Time_TypedLength& iLength) {
    if (mData) mData->OffsetTimes(iLength);
}

void Vela_ContinuousDataStream::Clear() {
    if (mData) mData->Clear();
}

// ---------------------------------------------------------------- queries

bool Vela_ContinuousDataStream::IsEmpty() const { return !mData || mData->IsEmpty(); }

bool Vela_ContinuousDataStream::GetLastValueChangeBeforeTime(Time_Typed& oTime, int& oValue,
                                                             const Time_Typed& iTime) const {
    int32_t value = 0;
    if (!mData || !mData->GetLastValueChangeBeforeTime(oTime, value, iTime)) return false;
    oValue = value;
    return true;
}

bool Vela_ContinuousDataStream::IsEventInRange(const Time_Typed& iStart, const Time_Typed& iEnd) const {
    Time_Typed time;
    int value = 0;
    return GetLastValueChangeBeforeTime(time, value, iEnd) && time >= iStart;
}

void Vela_ContinuousDataStream::AccumulateChaseStateAtTime(Mdie_ChaseTracker* iTrackerP, const Time_Typed& iTime,
                                                           const Time_Typed& iRangeStart,
                                                           const Time_TypedLength& iOffset) const {
    if (!iTrackerP || !iTrackerP->IsChasing(mSubStream)) return;
    Time_Typed time;
    int value = 0;
    if (GetLastValueChangeBeforeTime(time, value, iTime + OneUnit(iTime)) && time >= iRangeStart)
        iTrackerP->SetActiveValueIfLater(mSubStream, value, time + iOffset);
}

// ---------------------------------------------------------------- range output

void Vela_ContinuousDataStream::Output(Vela_RangeOutput& ioOut, const Time_Typed& iStart, const Time_Typed& iEnd,
                                       Mdie_ChaseTracker* iTrackerP) const {
    if (!mData) return;
    Time_Typed start = iStart;
    Mdie_ChaseTracker_ChasingEntry entry;
    if (iTrackerP && iTrackerP->IsChasing(mSubStream) && iTrackerP->GetChasingEntry(entry, mSubStream) &&
        entry.mActive) {
        // A value chasing has already delivered at the start is not sent a second time.
        Time_Typed time;
        int value = 0;
        if (GetLastValueChangeBeforeTime(time, value, iStart + OneUnit(iStart)) && value == entry.mValue)
            start += OneUnit(iStart);
    }
    EventFiler filer(ioOut, mSubStream, iTrackerP);
    mData->ForEachInRange(filer, start, iEnd);
}

void Vela_ContinuousDataStream::GetMidiEventsInRange(Vela_EventListWrapper& oOut, const Time_Typed& iStart,
                                                     const Time_Typed& iEnd, const Time_Typed& iOrigin,
                                                     const Time_Typed& iFloor, Mdie_ChaseTracker* iTrackerP,
                                                     const Mdie_ChaseTrackerMap*,
                                                     const Vela_IRTProperties* iPropertiesP, bool iFlag,
                                                     int iTag) const {
    Vela_RangeOutput out(oOut, Vela_OutputPlacement::FromOrigin(iOrigin, iFloor, iStart.GetType()), iPropertiesP,
                         iFlag, iTag);
    Output(out, iStart, iEnd, iTrackerP);
}

void Vela_ContinuousDataStream::GetMidiEventsInRange(Vela_EventListWrapper& oOut, const Time_Typed& iStart,
                                                     const Time_Typed& iEnd, const Time_TypedLength& iOffset,
                                                     Time_EType iOutputType, Mdie_ChaseTracker* iTrackerP,
                                                     const Mdie_ChaseTrackerMap*,
                                                     const Vela_IRTProperties* iPropertiesP, bool iFlag,
                                                     int iTag) const {
    Vela_RangeOutput out(oOut, Vela_OutputPlacement::FromOffset(iOffset, iOutputType), iPropertiesP, iFlag, iTag);
    Output(out, iStart, iEnd, iTrackerP);
}

void Vela_ContinuousDataStream::GetMidiEventsInRange(Vela_DisplayItemList& oOut, const Time_Typed& iStart,
                                                     const Time_Typed& iEnd, const Time_TypedLength& iOffset,
                                                     const Time_Typed& iWindowStart, const Time_Typed& iWindowEnd,
                                                     const Vela_IRTProperties* iPropertiesP, bool iFlag,
                                                     int iTag) const {
    Vela_RangeOutput out(oOut, Vela_OutputPlacement::FromOffset(iOffset, iStart.GetType()), iWindowStart, iWindowEnd,
                         iPropertiesP, iFlag, iTag);
    Output(out, iStart, iEnd, nullptr);
}

// ---------------------------------------------------------------- undo

Ndo_Object* Vela_ContinuousDataStream_NdoState::Recreate() const {
    return new Vela_ContinuousDataStream(Vela_ContinuousDataStream::ReCreate{});
}

Ndo_State* Vela_ContinuousDataStream::NdoGetState() {
    auto* stateP = new Vela_ContinuousDataStream_NdoState;
    stateP->mSubStream = mSubStream;
    stateP->mDataId = mData.GetUndoId();
    return stateP;
}

void Vela_ContinuousDataStream::NdoRestoreState(Ndo_State* iStateP) {
    const auto* stateP = dynamic_cast<const Vela_ContinuousDataStream_NdoState*>(iStateP);
    if (!stateP) return;
    mSubStream = stateP->mSubStream;
    if (stateP->mDataId == kNdo_NoId)
        mData.Set(nullptr);
    else
        mData.SetFromUndoId(stateP->mDataId);
}

// ---------------------------------------------------------------- persistence and printing

void Vela_ContinuousDataStream::StreamOut(Sys_TypedOutStream& iStream) const {
    Sys_StdStreamHeaderWriter header(iStream, kStreamTag, kStreamVersion);
    mSubStream.StreamOut(iStream);
    if (mData) {
        mData->StreamOut(iStream);
    } else {
        Vela_ContinuousData(kNotUndoable, false).StreamOut(iStream);
    }
    header.PatchSize();
}

void Vela_ContinuousDataStream::StreamIn(Sys_TypedInStream& iStream, EUndoFlag iUndo, bool iSnapTicks) {
    Sys_StdStreamHeaderReader header(iStream, kStreamTag);
    header.CheckVersion(kStreamVersion, kStreamVersion);
    mSubStream.StreamIn(iStream);
    Ndo_AutoPtr<Vela_ContinuousData> data(new Vela_ContinuousData(iUndo, iSnapTicks));
    data->StreamIn(iStream);
    header.SkipTheRest();
    mData.Set(data.Release());
}

std::string Vela_ContinuousDataStream::PrintContents() const {
    if (mSubStream.IsNull()) return std::string();
    int8_t kind = 0, controller = 0;
    mSubStream.GetInfo(kind, controller);
    const size_t count = mData ? mData->GetSize() : 0;
    std::string text = std::to_string(kind) + "(" + std::to_string(controller) + "," + std::to_string(count) + "): ";
    for (size_t i = 0; i < count; ++i) {
        const Vela_ContinuousData_Segment& segment = mData->GetSegments()[i];
        if (i) text += "; ";
        text += std::to_string(segment.mTime.AsInt64()) + "," + std::to_string(segment.mValue);
    }
    return text;
}
