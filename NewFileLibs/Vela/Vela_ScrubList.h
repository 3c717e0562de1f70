// Scrubbing: the notes and pitch-bend values under a play position that the user drags back
// and forth. Vela_ScrubList is a time-ordered, doubly linked list of small events with a
// cursor at the current time; each MoveTowards steps the cursor over one event towards the new
// position and returns it, for the caller to play forward (note on for kind 3, note off for
// kind 0, the bend of kind 2) or in reverse (the opposite for notes, the bend of kind 1).
//
// Order: earlier time first; at one time note offs (0), bend values before the change (1),
// bend values after it (2), then note ons (3). A new event goes before those equal to it.
// At the cursor's time, kinds 0 and 1 count as passed and kinds 2 and 3 as still ahead.
// Times are raw counts: a note's off event is its start count plus its duration count,
// without conversion, so a list should hold one kind of time.
//
// Events come from Vela_ScrubEventPool, a process-wide free list refilled in blocks of 1024
// and returned to the heap only by Free at library shutdown: after warm-up adding, moving and
// clearing never allocate. Nothing here is locked: scrubbing runs on one thread.
//
// The first note added to an empty list is linked on event first, off event last, even for a
// zero length (later notes of zero length put the off event first). A list returns its events
// to the pool when destroyed and cannot be copied.
#pragma once

#include <cstdint>

#include "Mdie_TimedEvent.h"
#include "Time_Typed.h"

class Vela_ScrubEvent {
public:
    enum EKind : int32_t { kNoteOff = 0, kBendBefore = 1, kBendAfter = 2, kNoteOn = 3 };

    // The kind as it is compared: the low byte, signed.
    int GetKind() const { return static_cast<int8_t>(mKind); }
    bool GoesBefore(const Vela_ScrubEvent& iOther) const {
        return mTime < iOther.mTime || (mTime == iOther.mTime && GetKind() < iOther.GetKind());
    }
    // Notes carry the pitch in the value's low byte and the on velocity in its high byte.
    int8_t GetPitch() const { return static_cast<int8_t>(mValue & 0xFF); }
    // Bends carry the bend value.
    int16_t GetBendValue() const { return static_cast<int16_t>(mValue); }

    int64_t mTime;
    uint16_t mValue;
    int32_t mKind;
    uint8_t mOnVelocity;
    uint8_t mOffVelocity;
    Vela_ScrubEvent* mPrevP;
    Vela_ScrubEvent* mNextP;  // in the pool: the next free event
};

class Vela_ScrubEventPool {
public:
    static constexpr int kEventsPerBlock = 1024;

    // Links a new block in front of sFirstPool and its events in front of the free list.
    Vela_ScrubEventPool();

    // The head of the free list (a new block when it is empty); fields are not cleared.
    static Vela_ScrubEvent* GetEvent();
    // Pushes iEventP onto the free list and answers its former next, so a walk can go on.
    static Vela_ScrubEvent* ReleaseEvent(Vela_ScrubEvent* iEventP);
    // Deletes every block (library shutdown). sFirstEvent is deliberately left as it is: no
    // event may be requested afterwards.
    static void Free();

    static Vela_ScrubEventPool* sFirstPool;
    static Vela_ScrubEvent* sFirstEvent;

private:
    Vela_ScrubEvent mEvents[kEventsPerBlock];
    Vela_ScrubEventPool* mNextP;
};
static_assert(sizeof(Vela_ScrubEvent) == 40 && sizeof(Vela_ScrubEventPool) == 40968,
              "a block is 1024 events of 40 bytes and a link");

class Vela_ScrubList {
public:
    Vela_ScrubList() = default;
    ~Vela_ScrubList() { Clear(); }
    Vela_ScrubList(const Vela_ScrubList&) = delete;
    Vela_ScrubList& operator=(const Vela_ScrubList&) = delete;

    // A note with duration becomes an on event at its start and an off event at its end.
    // iFromEnd searches from the tail (for notes arriving in time order).
    void AddNote(const Mdie_TimedEvent& iNote, bool iFromEnd);
    // A bend becomes the value before the change (iValueBefore) and the value after it.
    void AddPitchBend(const Mdie_TimedEvent& iBend, short iValueBefore, bool iFromEnd);
    // The next event between the current time and iTime (raw count), in the direction of
    // iTime, or null when none is left; call until it answers null.
    Vela_ScrubEvent* MoveTowards(Time_Typed iTime);
    // Returns every event to the pool; the current time is kept.
    void Clear();

    const Vela_ScrubEvent* GetHead() const { return mHeadP; }
    const Vela_ScrubEvent* GetCurrent() const { return mCurrentP; }
    int64_t GetCurrentTime() const { return mCurrentTime; }

private:
    static bool EventIsAfterTime(const Vela_ScrubEvent& iEvent, int64_t iTime);
    // An event and its partner (on and off, or bend before and after), fields set.
    void AddPair(Vela_ScrubEvent* iFirstP, Vela_ScrubEvent* iSecondP, bool iFromEnd);
    // Inserts before the first event from ioPositionP onward that iEventP does not go after.
    void InsertAfter(Vela_ScrubEvent* iEventP, Vela_ScrubEvent*& ioPositionP);
    // Inserts after the last event from ioPositionP backward that iEventP goes after.
    void InsertBefore(Vela_ScrubEvent* iEventP, Vela_ScrubEvent*& ioPositionP);
    // Links iEventP between iPrevP and iNextP (either may be null) and updates the cursor.
    void Link(Vela_ScrubEvent* iEventP, Vela_ScrubEvent* iPrevP, Vela_ScrubEvent* iNextP);

    Vela_ScrubEvent* mHeadP = nullptr;
    Vela_ScrubEvent* mTailP = nullptr;
    Vela_ScrubEvent* mCurrentP = nullptr;
    int64_t mCurrentTime = 0;
};
