// Notes in progress: one sounding note of a track (pitch, velocities, release time), kept in
// the list of its Mdie_TrackState; and Mdie_Chord, which decides whether a newly played note
// joins the chord being built.
//
// Records come from the engine's real-time allocator (Mem2_MasterAllocator), 32 bytes each,
// counted under the statistics record "Mdie_NoteInProgress". SetAllocator is called once by the
// host before playback; Alloc before it hands a null allocator on (a host error).
// Threads: no locks here; the allocator is shared by every track state and is safe for the
// engine's threads. Real time: Alloc and Free never touch the general heap; an exhausted pool
// answers null and the caller drops the note. Mdie_Chord grows on the heap (an editing aid).
#pragma once

#include <cstdint>
#include <vector>

#include "Mdie_TimedEvent.h"
#include "Time_Typed.h"

class Mem2_MasterAllocator;

// A plain record: copying copies every field, the link included.
class Mdie_NoteInProgress {
public:
    static constexpr int kAllocSize = 32;

    // Release time tick 0; the other fields are the caller's to set.
    Mdie_NoteInProgress() = default;

    static void SetAllocator(Mem2_MasterAllocator* iAllocatorP);
    // A record with release time tick 0 (pitch, velocities and link unset), or null when the
    // allocator refuses.
    static Mdie_NoteInProgress* Alloc();
    // Returns the record to the allocator; it must have come from Alloc.
    void Free();

    int8_t mPitch;
    int8_t mOnVelocity;
    int8_t mOffVelocity;
    Time_Typed mReleaseTime;  // start plus duration
    Mdie_NoteInProgress* mNextP;
};
static_assert(sizeof(Mdie_NoteInProgress) == Mdie_NoteInProgress::kAllocSize,
              "a note in progress fills one 32-byte block of the real-time allocator");

// The notes of a chord, in the order they were added.
//
// CanAdd: a note joins when it overlaps the chord's last note by at least three quarters of
// the longer of the two durations (3 * count / 4, truncated toward zero, in that duration's
// kind), or failing that when it starts within the catch span after the last note's start.
// The span is 480,000 ticks (half a quarter note) unless that reaches past a quarter of the
// last note's duration (duration * 0.25 + 0.5, truncated, in its kind), in which case the
// quarter applies: the catch span is the shorter of the two, compared from the last note's
// start with exact kind conversion. Durations are those of Mdie_TimedEvent::GetDuration.
class Mdie_Chord {
public:
    static constexpr int64_t kCatchSpanTicks = 480000;

    // True when an equal timed event (time and event) is among the chord's notes.
    bool InChord(const Mdie_TimedEvent& iNote) const;
    // Whether iNote may join the chord (see above); true for an empty chord.
    bool CanAdd(const Mdie_TimedEvent& iNote) const;

    // Appends iNote whether or not CanAdd allows it (the caller decides).
    void Add(const Mdie_TimedEvent& iNote) { mNotes.push_back(iNote); }
    void Clear() { mNotes.clear(); }
    const std::vector<Mdie_TimedEvent>& GetNotes() const { return mNotes; }

private:
    std::vector<Mdie_TimedEvent> mNotes;
};
