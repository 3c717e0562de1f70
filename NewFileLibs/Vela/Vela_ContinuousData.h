// Vela_ContinuousData: the values of one continuous quantity (a controller, pitch bend, program,
// a pressure) as time-ordered segments. A segment says "from this time on the value is this";
// the value in force at t is that of the last segment at or before t. The object knows nothing
// of MIDI: its owning stream (Vela_ContinuousDataStream) gives it a sub-stream, and only the
// range iterators below make events, through that sub-stream.
//
// Invariant: segments ascend strictly by time (no two at one time). Every edit keeps it, stream
// input enforces it, stream output reports a breach. Ranges are half-open [start, end). Lookups
// are binary searches on time alone; bulk copy and erase work in one pass.
//
// Undo: edits announce themselves (NdoAboutToModify) only when they change something, except
// SetValueAtTime, which always does. OffsetTimes never does: whoever offsets a whole lane owns
// the undo of it. The saved state is the snap flag and a full copy of the segments.
//
// Snapping: when constructed with iSnapTicks and TickTimesMatter::Active(), the tick times this
// object computes by offsetting (AddFromData, OffsetTimes) are snapped to the coarse tick grid.
// Snapping may make neighbours equal; OffsetTimes tolerates that, AddFromData keeps the first.
//
// Persisted form, block "MdCD" version 1:
//   int32  segment count (negative: localized error 100)
//   count times:  int64  Time_TypedDefs::GetRawDataForSave(time count, time type)
//                 int32  value
// Writing reports a segment whose time count is below the previous one's, starting from 0 (so
// also a negative time) but writes it anyway. Reading collapses repeated times (the last value
// read wins) and rejects a time earlier than the one before it with error 100. The reader
// compares real time order, starting before everything: every lane this class writes,
// negative or mixed sample/tick times included, reads back as it was, while a count-only check
// from 0 would refuse lanes the writer produced. On an error the list keeps what was read.
//
// Threads: editing thread for edits; GetValueAtTime, GetLastValueChangeBeforeTime,
// ForEachInRange and the iterators read without locks or allocation (playback may call them
// while no edit runs on the same object).
#pragma once

#include <cstddef>
#include <cstdint>

#include "Cmn_ChunkyPODVector.h"
#include "Mdie_SubStream.h"
#include "Mdie_TimedEvent.h"
#include "Ndo_Object.h"
#include "Time_Typed.h"
#include "Vela_ExtendedEvent.h"

class Sys_TypedInStream;
class Sys_TypedOutStream;

struct Vela_ContinuousData_Segment {
    Time_Typed mTime;
    int32_t mValue = 0;
};

// Receives (time, value) pairs from ForEachInRange.
class Vela_ContinuousData_OutputIter {
public:
    virtual ~Vela_ContinuousData_OutputIter() = default;
    virtual void Output(const Time_Typed& iTime, int32_t iValue) = 0;
};

class Vela_ContinuousData : public Ndo_Object {
public:
    using SegmentVector = Cmn_ChunkyPODVector<Vela_ContinuousData_Segment>;

    static constexpr const char* kStreamTag = "MdCD";
    static constexpr short kStreamVersion = 1;

    Vela_ContinuousData(EUndoFlag iUndo, bool iSnapTicks);
    // A new object (its own undo id when the original has one) with a copy of the segments.
    Vela_ContinuousData(const Vela_ContinuousData& iOther);
    Vela_ContinuousData& operator=(const Vela_ContinuousData&) = delete;

    // Overwrites the value of a segment at exactly iTime or inserts one (a value equal to the one
    // in force still inserts). Returns the stored segment, valid until the next edit.
    Vela_ContinuousData_Segment* SetValueAtTime(const Time_Typed& iTime, int32_t iValue);
    // The value of the last segment at or before iTime. Callers ask only where one exists;
    // otherwise "i != mSegments.begin()" is reported and 0 answered.
    int32_t GetValueAtTime(const Time_Typed& iTime) const;
    // The last segment strictly before iTime; false (outputs untouched) when there is none.
    bool GetLastValueChangeBeforeTime(Time_Typed& oTime, int32_t& oValue, const Time_Typed& iTime) const;
    void EraseRange(const Time_Typed& iStart, const Time_Typed& iEnd);
    void Clear();
    // Copies iSource's segments of [iStart, iEnd), shifted by iOffset. A copied segment replaces
    // one of this list at the same time; this list's other segments stay.
    void AddFromData(const Vela_ContinuousData& iSource, const Time_Typed& iStart, const Time_Typed& iEnd,
                     const Time_TypedLength& iOffset);
    // Removes the segments equal in time and value to iSource's of [iStart, iEnd) shifted by
    // iOffset. A segment at a matching time with another value stays.
    void EraseFromData(const Vela_ContinuousData& iSource, const Time_Typed& iStart, const Time_Typed& iEnd,
                       const Time_TypedLength& iOffset);
    // Makes the segments a copy of iSource's (announced).
    void ReplaceData(const Vela_ContinuousData& iSource);
    void OffsetTimes(const Time_TypedLength& iLength);
    void ForEachInRange(Vela_ContinuousData_OutputIter& iVisitor, const Time_Typed& iStart, const Time_Typed& iEnd) const;

    // Tail access for readers that build a list in order; not announced.
    void PushBack(const Vela_ContinuousData_Segment& iSegment) { mSegments.PushBack(iSegment); }
    // The last segment; only when not empty.
    const Vela_ContinuousData_Segment& Back() const { return mSegments[mSegments.GetSize() - 1]; }

    size_t GetSize() const { return mSegments.GetSize(); }
    bool IsEmpty() const { return mSegments.IsEmpty(); }
    const SegmentVector& GetSegments() const { return mSegments; }
    bool GetSnapTicks() const { return mSnapTicks; }

    Ndo_State* NdoGetState() override;
    void NdoRestoreState(Ndo_State* iStateP) override;

    void StreamOut(Sys_TypedOutStream& iStream) const;
    // Throws the localized error 100 for bad data, Sys_StreamException for a damaged block; then
    // the segments stay as they were.
    void StreamIn(Sys_TypedInStream& iStream);

    // Positions [first, last) of the segments in [iStart, iEnd).
    void FindRange(size_t& oFirst, size_t& oLast, const Time_Typed& iStart, const Time_Typed& iEnd) const;

private:
    using ConstIter = SegmentVector::const_iterator;
    ConstIter LowerBound(const Time_Typed& iTime) const;
    ConstIter UpperBound(const Time_Typed& iTime) const;
    Time_Typed Snapped(const Time_Typed& iTime) const;

    bool mSnapTicks;
    SegmentVector mSegments;
};

class Vela_ContinuousData_NdoState : public Ndo_State {
public:
    Ndo_Object* Recreate() const override;

    bool mSnapTicks = false;
    Vela_ContinuousData::SegmentVector mSegments;
};

// Walks the segments of [start, end) of one data object as events of a sub-stream: each event
// is the sub-stream's event for the segment's value, at the segment's time. A null data object
// walks nothing. Reading only: no locks, no allocation.
class Vela_ContinuousData_RangeWalk {
public:
    Vela_ContinuousData_RangeWalk(const Vela_ContinuousData* iDataP, const Mdie_SubStream& iSubStream,
                                  const Time_Typed& iStart, const Time_Typed& iEnd);

    bool More() const { return mPosition < mEnd; }
    void Step() { ++mPosition; }
    Mdie_TimedEvent Current() const;

private:
    const Vela_ContinuousData* mDataP;
    Mdie_SubStream mSubStream;
    size_t mPosition = 0;
    size_t mEnd = 0;
};

class Vela_ContinuousDataTimedEventsInRangeIter : public Mdie_TimedEventIterator {
public:
    Vela_ContinuousDataTimedEventsInRangeIter(const Vela_ContinuousData* iDataP, const Mdie_SubStream& iSubStream,
                                              const Time_Typed& iStart, const Time_Typed& iEnd)
        : mWalk(iDataP, iSubStream, iStart, iEnd) {}
    bool IsMore() const override { return mWalk.More(); }
    void operator++() override { mWalk.Step(); }
    Mdie_TimedEvent operator*() const override { return mWalk.Current(); }

private:
    Vela_ContinuousData_RangeWalk mWalk;
};

// As above, yielding plain extended events (no note properties).
class Vela_ContinuousDataExtendedEventsInRangeIter : public Vela_ExtendedEventIterator {
public:
    Vela_ContinuousDataExtendedEventsInRangeIter(const Vela_ContinuousData* iDataP, const Mdie_SubStream& iSubStream,
                                                 const Time_Typed& iStart, const Time_Typed& iEnd)
        : mWalk(iDataP, iSubStream, iStart, iEnd) {}
    bool IsMore() const override { return mWalk.More(); }
    void operator++() override { mWalk.Step(); }
    Vela_ExtendedEvent operator*() const override { return Vela_ExtendedEvent(mWalk.Current()); }

private:
    Vela_ContinuousData_RangeWalk mWalk;
};
