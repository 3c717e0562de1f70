// Vela_ContinuousDataStream: the continuous data of one sub-stream in a chunk. It pairs the
// sub-stream with one owned Vela_ContinuousData and translates between them: an added event
// becomes (time, value), a range query makes events back from the segments, and a locate feeds
// the value in force to a chase tracker.
//
// Ownership and undo: the stream owns its data object (an undoable object of its own, held by
// undo id so the stream's saved state can name it) and disposes of it with NdoDelete. The stream's
// saved state is its sub-stream and the data object's id; the segments are the data object's
// own undo business. A stream whose data object could not be found on restore (or one re-created
// by the undo framework before its state is restored) has none: it then reads as empty and its
// edits do nothing.
//
// Range queries (GetMidiEventsInRange) append the events of the segments in [start, end) to an
// output, shaped by Vela_RangeOutput (Vela_ExtendedEventList.h): the placement gives the output
// times, the real-time properties adjust each event, and the flag and tag reach display items
// unchanged. With a chase tracker, each delivered event is also tracked (TrackEvent), and a
// value the tracker already holds as active at the range start is not sent again: a segment at
// or before the start whose value equals the tracker's is skipped. The chase tracker map is
// accepted for the callers' sake and not consulted (the tracker knows its own map).
//
// Persisted form, block "MdCDS" version 2: the sub-stream's "Mdss" block, then the data's
// "MdCD" block.
//
// Threads: editing thread for edits and streaming; AccumulateChaseStateAtTime,
// GetLastValueChangeBeforeTime, IsEventInRange and GetMidiEventsInRange (into an output with
// reserved room) run on the playback thread without locks or heap allocation.
#pragma once

#include <string>

#include "Mdie_SubStream.h"
#include "Ndo_Object.h"
#include "Ndo_Ptr.h"
#include "Vela_ContinuousData.h"
#include "Vela_ExtendedEventList.h"

class Mdie_ChaseTracker;
class Mdie_ChaseTrackerMap;
class Sys_TypedInStream;
class Sys_TypedOutStream;

class Vela_ContinuousDataStream : public Ndo_Object {
public:
    static constexpr const char* kStreamTag = "MdCDS";
    static constexpr short kStreamVersion = 2;

    // A stream with a new, empty data object of the same undo flag; iSnapTicks becomes the data's
    // snap flag.
    Vela_ContinuousDataStream(const Mdie_SubStream& iSubStream, EUndoFlag iUndo, bool iSnapTicks);
    // Reads an "MdCDS" block. Throws what the blocks throw; the data object made for the read is
    // released first.
    Vela_ContinuousDataStream(Sys_TypedInStream& iStream, EUndoFlag iUndo, bool iSnapTicks);
    // A new stream with a copy of the data.
    Vela_ContinuousDataStream(const Vela_ContinuousDataStream& iOther);
    // Copies the sub-stream and the segments (the data's change is announced).
    Vela_ContinuousDataStream& operator=(const Vela_ContinuousDataStream& iOther);
    ~Vela_ContinuousDataStream() override;

    // Stores the event's value at its time. The event is not checked against the sub-stream.
    void AddEvent(const Mdie_TimedEvent& iEvent);
    // Removes the segment exactly at the event's time, if any.
    void EraseEvent(const Mdie_TimedEvent& iEvent);
    void EraseRange(const Time_Typed& iStart, const Time_Typed& iEnd);
    void AddFromStream(const Vela_ContinuousDataStream& iSource, const Time_Typed& iStart, const Time_Typed& iEnd,
                       const Time_TypedLength& iOffset);
    void EraseFromStream(const Vela_ContinuousDataStream& iSource, const Time_Typed& iStart, const Time_Typed& iEnd,
                         const Time_TypedLength& iOffset);
    void ReplaceData(const Vela_ContinuousDataStream& iSource);
    // Not announced: the caller owns the undo of an offset.
    void OffsetTimes(const Time_TypedLength& iLength);
    void Clear();

    bool IsEmpty() const;
    Mdie_SubStream GetSubStream() const { return mSubStream; }
    const Vela_ContinuousData* GetData() const { return mData.Get(); }
    bool GetLastValueChangeBeforeTime(Time_Typed& oTime, int& oValue, const Time_Typed& iTime) const;
    // True when a segment lies in [iStart, iEnd).
    bool IsEventInRange(const Time_Typed& iStart, const Time_Typed& iEnd) const;

    // Hands the tracker the value in force at iTime (the last segment at or before it), placed
    // by iOffset, unless that segment lies before iRangeStart or the tracker does not chase
    // this sub-stream. The tracker keeps the latest of several offers.
    void AccumulateChaseStateAtTime(Mdie_ChaseTracker* iTrackerP, const Time_Typed& iTime, const Time_Typed& iRangeStart,
                                    const Time_TypedLength& iOffset) const;

    // Output times: stored time - iOrigin, at least iFloor, in iStart's kind.
    void GetMidiEventsInRange(Vela_EventListWrapper& oOut, const Time_Typed& iStart, const Time_Typed& iEnd,
                              const Time_Typed& iOrigin, const Time_Typed& iFloor, Mdie_ChaseTracker* iTrackerP,
                              const Mdie_ChaseTrackerMap* iMapP, const Vela_IRTProperties* iPropertiesP, bool iFlag,
                              int iTag) const;
    // Output times: stored time + iOffset, in iOutputType.
    void GetMidiEventsInRange(Vela_EventListWrapper& oOut, const Time_Typed& iStart, const Time_Typed& iEnd,
                              const Time_TypedLength& iOffset, Time_EType iOutputType, Mdie_ChaseTracker* iTrackerP,
                              const Mdie_ChaseTrackerMap* iMapP, const Vela_IRTProperties* iPropertiesP, bool iFlag,
                              int iTag) const;
    // Display items at stored time + iOffset (in iStart's kind) that lie in [iWindowStart, iWindowEnd).
    void GetMidiEventsInRange(Vela_DisplayItemList& oOut, const Time_Typed& iStart, const Time_Typed& iEnd,
                              const Time_TypedLength& iOffset, const Time_Typed& iWindowStart,
                              const Time_Typed& iWindowEnd, const Vela_IRTProperties* iPropertiesP, bool iFlag,
                              int iTag) const;

    Ndo_State* NdoGetState() override;
    void NdoRestoreState(Ndo_State* iStateP) override;

    void StreamOut(Sys_TypedOutStream& iStream) const;
    // A one-line summary for traces: kind, controller, count and segments; "" for a null sub-stream.
    std::string PrintContents() const;

private:
    friend class Vela_ContinuousDataStream_NdoState;
    struct ReCreate {};
    explicit Vela_ContinuousDataStream(ReCreate);

    void StreamIn(Sys_TypedInStream& iStream, EUndoFlag iUndo, bool iSnapTicks);
    void Output(Vela_RangeOutput& ioOut, const Time_Typed& iStart, const Time_Typed& iEnd,
                Mdie_ChaseTracker* iTrackerP) const;

    Mdie_SubStream mSubStream;
    Ndo_Ptr<Vela_ContinuousData> mData;
};

class Vela_ContinuousDataStream_NdoState : public Ndo_State {
public:
    Ndo_Object* Recreate() const override;

    Mdie_SubStream mSubStream;
    uint64_t mDataId = kNdo_NoId;
};

// The stream's segments of [start, end) as timed events.
class Vela_ContinuousDataStreamTimedEventsInRangeIter : public Vela_ContinuousDataTimedEventsInRangeIter {
public:
    Vela_ContinuousDataStreamTimedEventsInRangeIter(const Vela_ContinuousDataStream& iStream, const Time_Typed& iStart,
                                                    const Time_Typed& iEnd)
        : Vela_ContinuousDataTimedEventsInRangeIter(iStream.GetData(), iStream.GetSubStream(), iStart, iEnd) {}
};

// The stream's segments of [start, end) as plain extended events.
class Vela_ContinuousDataStreamExtendedEventsInRangeIter : public Vela_ContinuousDataExtendedEventsInRangeIter {
public:
    Vela_ContinuousDataStreamExtendedEventsInRangeIter(const Vela_ContinuousDataStream& iStream,
                                                       const Time_Typed& iStart, const Time_Typed& iEnd)
        : Vela_ContinuousDataExtendedEventsInRangeIter(iStream.GetData(), iStream.GetSubStream(), iStart, iEnd) {}
};
