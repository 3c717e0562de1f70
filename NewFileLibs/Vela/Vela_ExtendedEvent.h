// Extended events and display items: the values that range queries deliver to editors.
//
// Vela_ExtendedEvent is a timed event followed by a 32-bit type tag (kPlain 0, or
// kNoteWithDuration 1) and the editing properties of a note: quantize delta, the note as it
// was before editing (pitch, both velocities, duration) and the muted flag. The properties are
// stored in every extended event, zero in a plain one, and Vela_NoteWithDurationExtendedEvent
// adds only accessors: a list of extended events therefore holds notes without slicing them,
// and AsNoteWithDurationExtendedEvent() of an element tagged 1 is safe. Copying copies the event
// with its long sysex payload (one more reference).
//
// Vela_DisplayItem pairs two extended events for an editor's view: the first is the event as
// playback processes it (real-time properties applied), the second the event as stored. Its
// display time is the time of the event it displays when it is built (sMIDIDisplayPropertyEffects
// chooses which; the time is not recomputed when the switch changes later). The bool and the int
// are the flag and tag of the range query that made the item, kept for its caller unchanged.
//
// Vela_ExtendedEventIterator and Mdie_TimedEventIterator (Mdie_TimedEvent.h) are the range
// iterators' bases. Vela_IRTProperties is what playback's real-time properties offer a range
// query: a way to rewrite an event as it will be played.
//
// Threads: plain values; no locks. Real time: construction, copying and the accessors never
// allocate (a long sysex copy only counts a reference).
#pragma once

#include <cstdint>

#include "Mdie_TimedEvent.h"
#include "Time_Typed.h"
#include "Vela_Event.h"

class Vela_NoteWithDurationExtendedEvent;

class Vela_ExtendedEvent : public Mdie_TimedEvent {
public:
    enum EType : int32_t {
        kPlain = 0,
        kNoteWithDuration = 1,
    };

    // A plain extended event: tag 0, every property zero.
    Vela_ExtendedEvent() = default;
    Vela_ExtendedEvent(const Time_Typed& iTime, const Vela_Event& iEvent) : Mdie_TimedEvent(iTime, iEvent) {}
    explicit Vela_ExtendedEvent(const Mdie_TimedEvent& iTimed) : Mdie_TimedEvent(iTimed) {}

    EType GetExtendedType() const { return mExtendedType; }
    bool IsNoteWithDurationExtendedEvent() const { return mExtendedType == kNoteWithDuration; }
    // Unchecked views; test IsNoteWithDurationExtendedEvent() first.
    Vela_NoteWithDurationExtendedEvent& AsNoteWithDurationExtendedEvent();
    const Vela_NoteWithDurationExtendedEvent& AsNoteWithDurationExtendedEvent() const;

protected:
    EType mExtendedType = kPlain;
    // The properties of a note with duration, in this order after the tag.
    Time_TypedLength mQuantizeTimeDelta;
    int8_t mOrigPitch = 0;
    int8_t mOrigAttackVelocity = 0;
    int8_t mOrigReleaseVelocity = 0;
    Time_TypedLength mOrigDuration;
    bool mMuted = false;
};

class Vela_NoteWithDurationExtendedEvent : public Vela_ExtendedEvent {
public:
    // The note as stored now is also the original; the quantize delta is zero of iTime's kind.
    Vela_NoteWithDurationExtendedEvent(const Time_Typed& iTime, const Vela_NoteWithDurationEvent& iNote, bool iMuted);
    Vela_NoteWithDurationExtendedEvent(const Time_Typed& iTime, const Vela_NoteWithDurationEvent& iNote,
                                       const Time_TypedLength& iQuantizeTimeDelta,
                                       const Vela_NoteWithDurationEvent& iOrigNote, bool iMuted);

    const Vela_NoteWithDurationEvent& GetNote() const { return mEvent.AsNoteWithDuration(); }

    const Time_TypedLength& GetQuantizeTimeDelta() const { return mQuantizeTimeDelta; }
    void SetQuantizeTimeDelta(const Time_TypedLength& iDelta) { mQuantizeTimeDelta = iDelta; }
    void ResetQuantizeTimeDelta(Time_EType iType) { mQuantizeTimeDelta = Time_TypedLength(0, iType); }
    // Adds iDelta when it has the delta's time kind; another kind is reported ("!bFail") and
    // leaves the delta unchanged.
    void AdjustQuantizeTimeDelta(const Time_TypedLength& iDelta);

    // The original note as a new note event (type 3).
    Vela_NoteWithDurationEvent GetOrigEvent() const;
    void SetOrigEvent(const Vela_NoteWithDurationEvent& iOrigNote);
    bool IsMuted() const { return mMuted; }
};

static_assert(sizeof(Vela_NoteWithDurationExtendedEvent) == sizeof(Vela_ExtendedEvent),
              "the note view adds no storage, so lists of extended events never slice a note");

inline Vela_NoteWithDurationExtendedEvent& Vela_ExtendedEvent::AsNoteWithDurationExtendedEvent() {
    return static_cast<Vela_NoteWithDurationExtendedEvent&>(*this);
}
inline const Vela_NoteWithDurationExtendedEvent& Vela_ExtendedEvent::AsNoteWithDurationExtendedEvent() const {
    return static_cast<const Vela_NoteWithDurationExtendedEvent&>(*this);
}

class Vela_DisplayItem {
public:
    // Shows the processed (first) event when true, the stored (second) one when false; true at
    // load. Set by the host during set-up.
    static bool sMIDIDisplayPropertyEffects;

    Vela_DisplayItem() = default;
    Vela_DisplayItem(const Vela_ExtendedEvent& iFirst, const Vela_ExtendedEvent& iSecond, bool iFlag, int iTag);

    const Time_Typed& GetDisplayTime() const { return mDisplayTime; }
    void SetDisplayTime(const Time_Typed& iTime) { mDisplayTime = iTime; }
    const Vela_ExtendedEvent& GetFirstEvent() const { return mFirstEvent; }
    const Vela_ExtendedEvent& GetSecondEvent() const { return mSecondEvent; }
    bool GetFlag() const { return mFlag; }
    int GetTag() const { return mTag; }

    // The first event when it is a pitch-to-note (kind 22) or when property effects are shown,
    // else the second.
    const Vela_ExtendedEvent& GetDisplayedEvent() const;

    // True when iA plays before iB: display time, then the displayed events' playback
    // priority, then their kind code, then the events' own order.
    static bool PlaybackOrdering(const Vela_DisplayItem& iA, const Vela_DisplayItem& iB);

private:
    Time_Typed mDisplayTime;
    Vela_ExtendedEvent mFirstEvent;
    Vela_ExtendedEvent mSecondEvent;
    bool mFlag = false;
    int32_t mTag = 0;
};

// Base of every range iterator that yields extended events. The iterator owns its position
// only; the data it walks must not change while it is in use.
class Vela_ExtendedEventIterator {
public:
    virtual ~Vela_ExtendedEventIterator() = default;
    virtual bool IsMore() const = 0;
    virtual void operator++() = 0;
    // The current event; only while IsMore().
    virtual Vela_ExtendedEvent operator*() const = 0;
};

// Playback's real-time properties as a range query sees them. Implemented by the host; called
// on the playback thread, so implementations must not lock or allocate.
class Vela_IRTProperties {
public:
    virtual ~Vela_IRTProperties() = default;
    // Rewrites ioEvent (time, value, velocity...) as playback will send it. iScope is passed
    // through from the caller (255: every channel and port); its meaning is the implementer's.
    virtual void AdjustEvent(Vela_ExtendedEvent& ioEvent, int iScope) const = 0;
};
