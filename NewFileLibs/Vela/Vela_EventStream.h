// Vela_EventStream: a chunk's events that are neither notes nor continuous data (system
// exclusive and the like), whole events in time order in one contiguous list. Several events may
// share a time; among them the order is the order of placing: AddEvent puts a new event ahead of
// those already at its time, AddFromStream puts copied events ahead of the own ones at a time.
//
// Range bounds differ on purpose: EraseRange removes the closed range [start, end] (an event
// exactly at end goes), while AddFromStream, EraseFromStream and the range outputs take the
// source's half-open [start, end).
//
// Undo: edits announce themselves only when they change something (AddEvent, ReplaceData and
// EraseFromStream with source events in range always do); OffsetTimes never does. The saved
// state is a full copy of the list.
//
// Range outputs (GetEventsInRange) are shaped by Vela_RangeOutput (Vela_ExtendedEventList.h),
// exactly as the continuous streams' are.
//
// Persisted form, block "MdES" version 1: the list's "MdTEL" block. Reading also rejects times
// that go backwards with the localized error 100 (the writer never produces them), so a damaged
// block cannot leave an unsorted list behind; the list then keeps the events read.
//
// Threads: editing thread for edits and streaming; GetEventsInRange (into an output with
// reserved room, sysex events stored short or real-time) and the iterators read without locks
// or heap allocation.
#pragma once

#include <cstddef>

#include "Mdie_TimedEvent.h"
#include "Ndo_Object.h"
#include "Vela_ExtendedEvent.h"
#include "Vela_ExtendedEventList.h"

class Sys_TypedInStream;
class Sys_TypedOutStream;

class Vela_EventStream : public Ndo_Object {
public:
    static constexpr const char* kStreamTag = "MdES";
    static constexpr short kStreamVersion = 1;

    Vela_EventStream(EUndoFlag iUndo, bool iSnapTicks);
    // A new object (its own undo id when the original has one) with a copy of the events.
    Vela_EventStream(const Vela_EventStream& iOther);
    Vela_EventStream& operator=(const Vela_EventStream&) = delete;

    // Inserts the event ahead of the events already at its time.
    void AddEvent(const Mdie_TimedEvent& iEvent);
    // Erases the first event at exactly the event's time that equals it, if any.
    void EraseEvent(const Mdie_TimedEvent& iEvent);
    // Erases every event with iStart <= time <= iEnd.
    void EraseRange(const Time_Typed& iStart, const Time_Typed& iEnd);
    // Merges in copies of iSource's events of [iStart, iEnd), shifted by iOffset; nothing is
    // removed, so equal events may then stand twice.
    void AddFromStream(const Vela_EventStream& iSource, const Time_Typed& iStart, const Time_Typed& iEnd,
                       const Time_TypedLength& iOffset);
    // For each of iSource's events of [iStart, iEnd), removes at most one equal event at its
    // time shifted by iOffset.
    void EraseFromStream(const Vela_EventStream& iSource, const Time_Typed& iStart, const Time_Typed& iEnd,
                         const Time_TypedLength& iOffset);
    void ReplaceData(const Vela_EventStream& iSource);
    void OffsetTimes(const Time_TypedLength& iLength);
    void Clear();

    size_t Size() const { return mEvents.GetSize(); }
    const Mdie_TimedEventList& GetEvents() const { return mEvents; }
    bool GetSnapTicks() const { return mSnapTicks; }
    // Positions [first, last) of the events in [iStart, iEnd).
    void FindRange(size_t& oFirst, size_t& oLast, const Time_Typed& iStart, const Time_Typed& iEnd) const;

    // Output times: stored time - iOrigin, at least iFloor, in iStart's kind.
    void GetEventsInRange(Vela_EventListWrapper& oOut, const Time_Typed& iStart, const Time_Typed& iEnd,
                          const Time_Typed& iOrigin, const Time_Typed& iFloor, const Vela_IRTProperties* iPropertiesP,
                          bool iFlag, int iTag) const;
    // Output times: stored time + iOffset, in iOutputType.
    void GetEventsInRange(Vela_EventListWrapper& oOut, const Time_Typed& iStart, const Time_Typed& iEnd,
                          const Time_TypedLength& iOffset, Time_EType iOutputType,
                          const Vela_IRTProperties* iPropertiesP, bool iFlag, int iTag) const;
    // Display items at stored time + iOffset (in iStart's kind) that lie in [iWindowStart, iWindowEnd).
    void GetEventsInRange(Vela_DisplayItemList& oOut, const Time_Typed& iStart, const Time_Typed& iEnd,
                          const Time_TypedLength& iOffset, const Time_Typed& iWindowStart, const Time_Typed& iWindowEnd,
                          const Vela_IRTProperties* iPropertiesP, bool iFlag, int iTag) const;

    Ndo_State* NdoGetState() override;
    void NdoRestoreState(Ndo_State* iStateP) override;

    void StreamOut(Sys_TypedOutStream& iStream) const;
    // Throws Sys_StreamException for a damaged block, the localized error 100 for times that
    // go backwards.
    void StreamIn(Sys_TypedInStream& iStream);

private:
    size_t LowerBound(const Time_Typed& iTime) const;
    size_t UpperBound(const Time_Typed& iTime) const;
    Time_Typed Snapped(const Time_Typed& iTime) const;
    void Output(Vela_RangeOutput& ioOut, const Time_Typed& iStart, const Time_Typed& iEnd) const;

    Mdie_TimedEventList mEvents;
    bool mSnapTicks;
};

// Equal when both hold equal events (time and event) in the same order.
bool operator==(const Vela_EventStream& iA, const Vela_EventStream& iB);

class Vela_EventStream_NdoState : public Ndo_State {
public:
    Ndo_Object* Recreate() const override;

    Mdie_TimedEventList mEvents;
};

// Positions [first, last) of a stream's list; the stream must not change while in use.
class Vela_EventStream_RangeWalk {
public:
    Vela_EventStream_RangeWalk(const Vela_EventStream& iStream, const Time_Typed& iStart, const Time_Typed& iEnd)
        : mEventsP(&iStream.GetEvents()) {
        iStream.FindRange(mPosition, mEnd, iStart, iEnd);
    }
    explicit Vela_EventStream_RangeWalk(const Vela_EventStream& iStream)
        : mEventsP(&iStream.GetEvents()), mEnd(iStream.Size()) {}

    bool More() const { return mPosition < mEnd; }
    void Step() { ++mPosition; }
    const Mdie_TimedEvent& Current() const { return (*mEventsP)[mPosition]; }

private:
    const Mdie_TimedEventList* mEventsP;
    size_t mPosition = 0;
    size_t mEnd = 0;
};

// The stream's events, all of them or those of [start, end).
class Vela_EventStreamTimedEventsInRangeIter : public Mdie_TimedEventIterator {
public:
    explicit Vela_EventStreamTimedEventsInRangeIter(const Vela_EventStream& iStream) : mWalk(iStream) {}
    Vela_EventStreamTimedEventsInRangeIter(const Vela_EventStream& iStream, const Time_Typed& iStart,
                                           const Time_Typed& iEnd)
        : mWalk(iStream, iStart, iEnd) {}
    bool IsMore() const override { return mWalk.More(); }
    void operator++() override { mWalk.Step(); }
    Mdie_TimedEvent operator*() const override { return mWalk.Current(); }

private:
    Vela_EventStream_RangeWalk mWalk;
};

// The stream's events of [start, end) as plain extended events.
class Vela_EventStreamExtendedEventsInRangeIter : public Vela_ExtendedEventIterator {
public:
    Vela_EventStreamExtendedEventsInRangeIter(const Vela_EventStream& iStream, const Time_Typed& iStart,
                                              const Time_Typed& iEnd)
        : mWalk(iStream, iStart, iEnd) {}
    bool IsMore() const override { return mWalk.More(); }
    void operator++() override { mWalk.Step(); }
    Vela_ExtendedEvent operator*() const override { return Vela_ExtendedEvent(mWalk.Current()); }

private:
    Vela_EventStream_RangeWalk mWalk;
};
