// Mdie_TrackState: the notes sounding on one track, each with its release time, and the
// events that take the output from one such set of notes to another when playback jumps.
//
// The notes form a singly linked list in non-decreasing release time; a new note goes before
// every note released at the same time or later, so of two notes released together the one
// added last is released first. The state owns its records (Mdie_NoteInProgress::Alloc) and
// frees each one as it leaves the list. An exhausted pool drops a note silently (it is then
// not tracked) and ends a copy early.
//
// Threads: a state is used by one thread at a time and takes no locks. Real time: receiving
// events, popping, offsetting, filtering and computing transitions never touch the general
// heap (transitions work in two fixed arrays of kMaxPairedNotes notes on the stack; further
// notes are not paired: their note off, or note on, goes out first, in list order).
// Trace lines go to category kVela_TraceCategory when tracing is on.
#pragma once

#include <cstdint>

#include "Mdie_EventReceiver.h"
#include "Mdie_NoteInProgress.h"
#include "Mdie_TimedEvent.h"
#include "Time_Typed.h"

struct Mdie_ChaseSpec;

// Picks the note in progress that an event ends.
class Mdie_TrackState_Matcher {
public:
    virtual ~Mdie_TrackState_Matcher() = default;
    virtual bool Matches(const Mdie_NoteInProgress& iNote) const = 0;
};

class Mdie_TrackState : public Mdie_EventReceiver, public Mdie_TimedEventReceiver {
public:
    static constexpr int kMaxPairedNotes = 200;

    enum ETransitionMode : int32_t {
        // Old notes of a pitch the new state lacks get a note off; new notes still sounding at
        // the chase time start as notes with the rest of their duration; a pitch held in both
        // states is handed over with a clear note in progress then an add note in progress.
        kTransitionNotesInProgress = 0,
        // Note offs for old pitches, note ons for new ones; a pitch held in both keeps sounding.
        kTransitionNoteOns = 1,
        // Any other value: only note offs for old pitches (and note ons beyond the paired ones).
        kTransitionNoteOffsOnly = 2,
    };

    // Decides which notes FilterNotesInProgress keeps.
    class NoteInProgressFilter {
    public:
        virtual ~NoteInProgressFilter() = default;
        virtual bool Keep(const Mdie_NoteInProgress& iNote) const = 0;
    };

    Mdie_TrackState() = default;
    // A copy holds its own records; like assignment it stops at the first refused allocation.
    Mdie_TrackState(const Mdie_TrackState& iOther) { *this = iOther; }
    Mdie_TrackState& operator=(const Mdie_TrackState& iOther);
    ~Mdie_TrackState() override { DeleteNotesInProgress(); }

    void Clear() { DeleteNotesInProgress(); }
    void DeleteNotesInProgress();

    // Untimed: a note on is tracked as released at sample 1 (already due: the untimed path
    // only records that the pitch sounds) with off velocity 64; a note off ends the earliest
    // released note of its pitch. Other types are ignored.
    void ReceiveEvent(const Vela_Event& iEvent) override;
    // Timed: a note with duration or an add note in progress starts a note released at its
    // time plus its length; a note off ends the earliest released note of its pitch; a clear
    // note in progress ends the earliest note equal to it in release time, pitch and both
    // velocities. Other types are ignored.
    void ReceiveEvent(const Mdie_TimedEvent& iEvent) override;

    // The note released first, or null.
    const Mdie_NoteInProgress* NextNoteOff() const { return mHeadP; }
    void PopNoteOff();
    void OffsetTimes(const Time_TypedLength& iLength);
    void FilterNotesInProgress(const NoteInProgressFilter& iFilter);

    // When iChase asks for notes to be chased and iOutputP is not null, emits the events that
    // take this state's notes to iNewStateP's (see ETransitionMode) as seen at the chase time;
    // then, when iAdoptNewState is true and notes are chased, this state becomes a copy of the
    // new one. Notes are paired by pitch (ascending); of several notes of one pitch in a state,
    // which pairs with which is not specified. A null new state is asserted and counts as empty
    // (nothing is adopted).
    void ComputeTransitionToNewState(Mdie_TrackState* iNewStateP, Mdie_EventReceiver* iOutputP,
                                     const Mdie_ChaseSpec& iChase, bool iAdoptNewState);

private:
    void AddNoteInProgress(Time_Typed iStart, const Vela_NoteWithDurationBase& iNote);
    void RemoveMatchingNoteInProgress(const Mdie_TrackState_Matcher& iMatcher);
    // A null output or new state is asserted; then a null output makes it emit nothing and a
    // null new state counts as an empty one.
    void ComputeNoteTransitions(Mdie_TrackState* iNewStateP, Mdie_EventReceiver* iOutputP, ETransitionMode iMode,
                                Time_Typed iNow);

    Mdie_NoteInProgress* mHeadP = nullptr;
};

// What the host asks of a transition. The fields are read in this order.
struct Mdie_ChaseSpec {
    bool mChaseNotes = false;  // compute note transitions at all
    Mdie_TrackState::ETransitionMode mTransitionMode = Mdie_TrackState::kTransitionNotesInProgress;
    Time_Typed mChaseTime;  // the position the output is brought to ("now")
};
