// Timed events: a Vela_Event at a Time_Typed position, the sink that receives them, and the
// list that stores and streams them.
//
// Mdie_TimedEvent is a value (time, event, source stamp). Copying follows Vela_Event: only a
// long sysex shares data (one more reference per copy). PlaybackOrdering is the sort predicate
// of every list that is played out: earlier time first, then lower playback priority; equal
// priorities answer false, so a stable sort keeps their insertion order.
// Mdie_TimedEventList is a Cmn_PolyVector of timed events with the "MdTEL" streamed form.
//
// Threads: values and lists have no locks; a list is used by one thread at a time.
// Real time: comparison, PlaybackOrdering, IsNoteWithDurationEvent and GetDuration never
// allocate. A list allocates only when it grows (and when streamed).
#pragma once

#include <cstdint>

#include "Cmn_PolyVector.h"
#include "Time_Typed.h"
#include "Vela_Event.h"

class Sys_TypedOutStream;
class Sys_TypedInStream;

// Where a recorded event came from: the input it arrived on and flags the input side attaches.
// A plain 8-byte record, copied as raw bytes; all zero (input 0, no flags) means "no source",
// which is what every event not recorded from an input carries.
struct Mdie_SourceStamp {
    int32_t mInputID = 0;
    uint32_t mFlags = 0;

    bool IsEmpty() const { return mInputID == 0 && mFlags == 0; }
    bool operator==(const Mdie_SourceStamp& iOther) const = default;
};

class Mdie_TimedEvent {
public:
    // Count 0 in ticks, the null event, an empty source stamp.
    Mdie_TimedEvent() = default;
    Mdie_TimedEvent(const Time_Typed& iTime, const Vela_Event& iEvent) : mTime(iTime), mEvent(iEvent) {}
    Mdie_TimedEvent(const Time_Typed& iTime, const Vela_Event& iEvent, const Mdie_SourceStamp& iSourceStamp)
        : mTime(iTime), mEvent(iEvent), mSourceStamp(iSourceStamp) {}

    const Time_Typed& GetTime() const { return mTime; }
    void SetTime(const Time_Typed& iTime) { mTime = iTime; }
    const Vela_Event& GetEvent() const { return mEvent; }
    Vela_Event& GetEvent() { return mEvent; }
    void SetEvent(const Vela_Event& iEvent) { mEvent = iEvent; }
    const Mdie_SourceStamp& GetSourceStamp() const { return mSourceStamp; }
    void SetSourceStamp(const Mdie_SourceStamp& iSourceStamp) { mSourceStamp = iSourceStamp; }

    // The event is a note with duration (type 3).
    bool IsNoteWithDurationEvent() const { return mEvent.GetType() == Vela_Event::kNoteWithDuration; }
    // The duration of a note-with-duration block (types 3, 17, 18, 22); a zero tick length for
    // any other type, whose bytes at the duration's position mean something else.
    Time_TypedLength GetDuration() const;

    // True when a plays before b: earlier time, or at the same time a lower playback priority.
    static bool PlaybackOrdering(const Mdie_TimedEvent& iA, const Mdie_TimedEvent& iB);

protected:
    Time_Typed mTime;
    Vela_Event mEvent;
    Mdie_SourceStamp mSourceStamp;
};

// Equal times (Time_Typed equality) and equal events (Vela_Event equality); the source stamp
// does not take part.
bool operator==(const Mdie_TimedEvent& iA, const Mdie_TimedEvent& iB);
inline bool operator!=(const Mdie_TimedEvent& iA, const Mdie_TimedEvent& iB) { return !(iA == iB); }

// Sink of timed events: the chunk writer, the track state. Implementations state their own
// real-time contract.
class Mdie_TimedEventReceiver {
public:
    virtual ~Mdie_TimedEventReceiver() = default;
    // Called once per delivered event.
    virtual void ReceiveEvent(const Mdie_TimedEvent& iEvent) = 0;
};

// Base of every range iterator that yields timed events. The iterator owns its position only;
// the data it walks must not change while it is in use.
class Mdie_TimedEventIterator {
public:
    virtual ~Mdie_TimedEventIterator() = default;
    virtual bool IsMore() const = 0;
    virtual void operator++() = 0;
    // The current event; only while IsMore().
    virtual Mdie_TimedEvent operator*() const = 0;
};

// An ordered sequence of timed events (the order is the caller's; nothing here sorts).
// The list is the library's store of timed sysex data: its streamed form keeps only
// system-exclusive events (types 14 and 15). Any other event (the null event included) is
// asserted at writing and written as an event block with the null flag 1
// (Vela_Event::StreamOutReadable), so it reads back as the null event. The bare event writer
// would leave an empty block there, which no reader accepts: a document that was loaded with a
// null event in a list and saved again could not be loaded, and everything after the event
// would be lost. Dropping such events at reading instead would change the count and positions
// the document carries; the null flag keeps every sysex block's bytes exactly and makes a
// second write equal the first.
//
// Streamed form, a block tagged "MdTEL", version 1 (little-endian, inside the block framing):
//   int32  count
//   count times:  int64  Time_TypedDefs::GetRawDataForSave(time count, time type)
//                 event  the event's own block (Vela_Event::StreamOutReadable)
class Mdie_TimedEventList : public Cmn_PolyVector<Mdie_TimedEvent> {
public:
    static constexpr const char* kStreamTag = "MdTEL";
    static constexpr short kStreamVersion = 1;

    void StreamOut(Sys_TypedOutStream& iStream) const;
    // Replaces the content. Throws Sys_StreamException for a damaged block (a wrong tag or
    // version, a truncation, a negative count or length); the list then holds the events read
    // so far. Trailing fields of a newer writer are skipped.
    void StreamIn(Sys_TypedInStream& iStream);

    // The latest end (time plus duration) of the notes with duration (type 3), in samples;
    // count 0 in samples for a list without such notes. Walks the whole list.
    Time_Typed GetLatestNoteOff() const;
};
