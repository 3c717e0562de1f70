// The note list: every note of one chunk, sorted by start time, with a second list of its long
// notes so that "which notes still sound at t" need not walk from the beginning.
//
// Vela_NoteListBase holds the notes and every operation on them; Vela_NoteList is the list a
// chunk owns: at construction it creates its long-note list (a plain Vela_NoteListBase) and fixes
// the thresholds: 15,360,000 ticks, and one second of samples at the sample rate of that moment
// (later changes of the rate are not followed).
//
// Guarantees:
// - Notes are in non-decreasing start order; notes with equal starts keep their insertion order
//   (a note added later stands after every earlier note with its start).
// - A note is in the long-note list when its duration is at least the threshold of the
//   duration's own time kind. Every edit keeps that, with one deliberate exception kept from the
//   original behaviour: when ChangeNote makes a short note long, the long list receives the
//   record as it stood before the change (its old event), so a later query of the long list
//   sees the old duration until the list is regenerated (Merge, OffsetStarts, ReplaceData).
// - Every edit announces itself to the undo framework (NdoAboutToModify) before changing
//   anything; the undo state is a full copy of the notes, and the long-note list, an undoable
//   object of its own, keeps its own states.
// - Notes are identified by start, pitch and on velocity (FindNote); duration and off velocity
//   take no part, and the first match in list order wins.
// - OffsetDurations, like the other nudges, applies itself to the long-note list and never
//   rebuilds it, so a duration moved across the threshold keeps its old membership until the
//   next rebuild (kept as the original behaves).
// - Only StreamIn posts Vela_N10n_MIDIZeroOnVelocitiesFound; edits accept such notes silently.
// - The undo state re-creates no object (Ndo_State::Recreate gives null): a list lives and dies
//   with its chunk, whose own state brings it back by undo id.
//
// Threads: one editing thread at a time; the range iterators (FullNotesInRangeIter,
// FullSustainingNoteIter) may run on a playback thread while no edit runs, and allocate nothing
// and take no lock. Ownership: a list owns its long-note list.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "Cmn_ChunkyPODVector.h"
#include "Cmn_XMLNodeFwd.h"
#include "Ndo_Object.h"
#include "Ndo_Ptr.h"
#include "Time_Typed.h"
#include "Vela_Event.h"
#include "Vela_ExtendedEvent.h"
#include "Vela_NoteListBase_Note.h"

class Sys_TypedInStream;
class Sys_TypedOutStream;

// Records are moved as raw bytes; the note events inside never hold long sysex data.
template <>
struct Cmn_ChunkyRawRecord<Vela_NoteListBase_Note> : std::true_type {};

// Library-wide switch read by Vela_NoteListBase::Merge only (false at load; set by the host).
extern bool gAvoidOverlapsAndDuplicates;

class Vela_NoteListBase : public Ndo_Object {
public:
    using Note = Vela_NoteListBase_Note;
    using NoteVector = Cmn_ChunkyPODVector<Note>;

    static constexpr const char* kStreamTag = "MdNLB";
    static constexpr short kStreamVersion = 3;

    // iQuantizeContents is kept (and given to Ndo_Object): with it, while tick times matter,
    // OffsetTimes and OffsetStarts snap the starts they compute to the coarse tick grid.
    Vela_NoteListBase(EUndoFlag iUndo, bool iQuantizeContents);
    Vela_NoteListBase(const Vela_NoteListBase&) = delete;
    Vela_NoteListBase& operator=(const Vela_NoteListBase&) = delete;
    ~Vela_NoteListBase() override;

    // ---- single-note edits
    void AddNote(const Note& iNote);
    // The record of an extended note: its time, note, quantize delta, original note and muted flag.
    void AddNote(const Vela_NoteWithDurationExtendedEvent& iNote);
    bool IsNoteInList(const Mdie_TimedEvent& iEvent) const;
    void ChangeNote(Time_Typed iStart, const Vela_NoteWithDurationEvent& iOldNote,
                    const Vela_NoteWithDurationEvent& iNewNote);
    void EraseNote(const Mdie_TimedEvent& iEvent);
    void Clear();

    // ---- whole-list nudges
    void OffsetTimes(Time_TypedLength iOffset);
    // Durations change by iOffset; a note whose duration would fall below 1 keeps its duration.
    void OffsetDurations(Time_TypedLength iOffset);
    // A positive count moves every pitch one step down, zero or negative one step up (always
    // by one); nothing moves when one note would leave 0..127.
    void OffsetPitches(Time_TypedLength iOffset);
    // Moves every start by iOffset (snapped as OffsetTimes does) and keeps every end: each
    // duration becomes the old end minus the new start in the duration's kind, and never falls
    // below 1 unit (a note moved past its own end keeps a length of 1 and ends later). The list
    // is re-sorted, stably, if mixed time kinds round into another order.
    void OffsetStarts(Time_TypedLength iOffset);

    // ---- bulk operations (each keeps the order, the long-note list and undo)
    // Adds every note of iSource as AddNote would (a merged note stands after the notes of this
    // list with its start). With gAvoidOverlapsAndDuplicates set, each merged note is checked
    // against the notes this list held before the merge: it is dropped when one of them has its
    // pitch and start; otherwise every one of them with its pitch that starts before it and ends
    // after its start is shortened to end where it starts. Merged notes are not checked against
    // each other, and notes starting after a merged note's start are left as they are.
    void Merge(const Vela_NoteListBase& iSource);
    // Adds the notes of iSource that start in [iStart, iEnd), as Merge does without the switch.
    void CopyTimeRange(const Vela_NoteListBase& iSource, Time_Typed iStart, Time_Typed iEnd);
    // Removes the notes that start in [iStart, iEnd).
    void EraseTimeRange(Time_Typed iStart, Time_Typed iEnd);
    // Removes, per note of iNotes, the first note matching it as FindNote matches.
    void Erase(const Vela_NoteListBase& iNotes);
    // Makes the notes a copy of iSource's (this list keeps its own thresholds and long list).
    void ReplaceData(const Vela_NoteListBase& iSource);
    // The release event the chunk appends for note-off inclusion: among the notes starting in
    // [iStart, iEnd), the one that ends first (Earliest) or last (Last), first in list order on
    // ties. oRelease becomes a note-off of its pitch and off velocity at its end (start plus
    // duration, in the start's kind). False, leaving oRelease alone, when no note starts there.
    bool GetEarliestReleaseTimeForNotesInRange(Time_Typed iStart, Time_Typed iEnd, Mdie_TimedEvent& oRelease) const;
    bool GetLastReleaseTimeForNotesInRange(Time_Typed iStart, Time_Typed iEnd, Mdie_TimedEvent& oRelease) const;

    // ---- queries
    size_t GetNumNotes() const { return mNotes.GetSize(); }
    const Note& GetNote(size_t iIndex) const { return mNotes[iIndex]; }
    const NoteVector& GetNotes() const { return mNotes; }
    bool QuantizeContents() const { return mQuantizeContents; }
    const Vela_NoteListBase* GetLongNoteList() const { return mLongNoteListP; }
    // The threshold for durations of kind iType (zero without a long-note list).
    const Time_TypedLength& GetLongNoteThreshold(Time_EType iType) const {
        return iType == kTime_Samples ? mSampleThreshold : mTickThreshold;
    }
    bool IsLongNote(const Note& iNote) const;
    // The first index whose start is not less than (Lower) or greater than (Upper) iTime.
    size_t LowerBound(const Time_Typed& iTime) const;
    size_t UpperBound(const Time_Typed& iTime) const;

    // ---- persistence ("MdNLB", version 3), XML and undo
    void StreamOut(Sys_TypedOutStream& iStream) const;
    // Replaces the notes with those of the block. Throws the localized exception 100 for a
    // negative or inconsistent note count, Sys_StreamException for a damaged block; the list is
    // then left as it was. Posts Vela_N10n_MIDIZeroOnVelocitiesFound once per note read with an
    // on velocity of 0. Blocks of version 1 carry no quantize delta (it reads as zero of the
    // start's kind) and no original note (it reads as the current note); version 2 carries the
    // delta and the original duration, whose pitch and velocities read as the current ones.
    void StreamIn(Sys_TypedInStream& iStream);
    // "MIDI_NoteList": "nNumNotes", then one "Note" per note with "Start", "nPitch", "Duration",
    // "nOnVel", "nOffVel", "QuantizeTimeDelta", "DurationDeltaFromOriginal", "nOriginalPitch",
    // "OriginalDuration", "nOriginalOnVel", "nOriginalOffVel" and "bMuted".
    Cmn_XMLNodePtr GetAsXML() const;
    Ndo_State* NdoGetState() override;
    void NdoRestoreState(Ndo_State* iStateP) override;

    // ---- iteration
    // A position in a note vector that walks contiguous runs, so a step costs no lookup.
    class Cursor {
    public:
        Cursor() = default;
        void Seek(const NoteVector* iVecP, size_t iIndex) {
            mVecP = iVecP;
            mIndex = iIndex;
            mSize = iVecP->GetSize();
            Load();
        }
        bool AtEnd() const { return mIndex >= mSize; }
        size_t GetIndex() const { return mIndex; }
        Note& operator*() const { return *mNoteP; }
        void Next() {
            ++mIndex;
            if (--mRunLeft > 0) {
                ++mNoteP;
            } else {
                Load();
            }
        }

    private:
        void Load() {
            mRunLeft = 0;
            mNoteP = mIndex < mSize ? static_cast<Note*>(mVecP->GetImpl().GetContiguous(mIndex, &mRunLeft)) : nullptr;
        }
        const NoteVector* mVecP = nullptr;
        size_t mIndex = 0;
        size_t mSize = 0;
        Note* mNoteP = nullptr;
        size_t mRunLeft = 0;
    };

    // The notes whose start lies in [start, end). Real-time safe.
    class FullNotesInRangeIter {
    public:
        FullNotesInRangeIter() = default;
        FullNotesInRangeIter(Vela_NoteListBase* iListP, Time_Typed iStart, Time_Typed iEnd);
        // Every note.
        explicit FullNotesInRangeIter(Vela_NoteListBase* iListP);
        void SetRange(Time_Typed iStart, Time_Typed iEnd);
        bool IsMore() const { return !mCursor.AtEnd() && StartsBefore((*mCursor).start, mEnd); }
        FullNotesInRangeIter& operator++() {
            mCursor.Next();
            return *this;
        }
        Note& operator*() const { return *mCursor; }
        // Replaces the current note's event in place; the walk goes on undisturbed.
        void ChangeCurrentNote(const Vela_NoteWithDurationEvent& iNote);

    private:
        Vela_NoteListBase* mListP = nullptr;
        Cursor mCursor;
        Time_Typed mEnd;
    };

    // The notes that start before t and end after t: first the long notes starting before
    // B = t - threshold + 2 units, then every note of the main list starting in [B, t).
    // Real-time safe.
    class FullSustainingNoteIter {
    public:
        FullSustainingNoteIter() = default;
        FullSustainingNoteIter(Vela_NoteListBase* iListP, Time_Typed iT);
        bool IsMore() const { return mInLongPhase || (!mCursor.AtEnd() && StartsBefore((*mCursor).start, mPhaseEnd)); }
        FullSustainingNoteIter& operator++() {
            AdvanceToNext();
            return *this;
        }
        Note& operator*() const { return *mCursor; }

    private:
        bool CheckSustain(const Note& iNote) const;
        void EnterMainPhase();
        void AdvanceToNext();

        Vela_NoteListBase* mListP = nullptr;
        Time_Typed mT;
        Time_Typed mBound;  // B, or later where no note of the main list before it can sound
        Cursor mCursor;
        Time_Typed mPhaseEnd;
        bool mInLongPhase = false;
    };

    // FullSustainingNoteIter yielding extended notes (the record's every field).
    class SustainingNoteIter : public FullSustainingNoteIter {
    public:
        using FullSustainingNoteIter::FullSustainingNoteIter;
        Vela_NoteWithDurationExtendedEvent operator*() const { return ToExtendedEvent(FullSustainingNoteIter::operator*()); }
    };

    // The chunk's range iterator over the notes: FullNotesInRangeIter yielding extended notes.
    // While tick times do not matter, a tick range is widened to whole samples first (with the
    // offset taken out and put back), so it finds what a sample-based query would find; iFlag
    // is the end-inclusive choice of Time_Convert::MakeTickRangeSampleBased. Real-time safe.
    class NotesExtendedEventInRangeIter : public Vela_ExtendedEventIterator {
    public:
        NotesExtendedEventInRangeIter() = default;
        NotesExtendedEventInRangeIter(Vela_NoteListBase* iListP, Time_TypedLength iOffset, Time_Typed iStart,
                                      Time_Typed iEnd, bool iFlag);
        explicit NotesExtendedEventInRangeIter(Vela_NoteListBase* iListP) : mNotes(iListP) {}
        bool IsMore() const override { return mNotes.IsMore(); }
        void operator++() override { ++mNotes; }
        Vela_ExtendedEvent operator*() const override { return ToExtendedEvent(*mNotes); }
        void ChangeCurrentNote(const Vela_NoteWithDurationEvent& iNote) { mNotes.ChangeCurrentNote(iNote); }

    private:
        FullNotesInRangeIter mNotes;
    };

    static Vela_NoteWithDurationExtendedEvent ToExtendedEvent(const Note& iNote) {
        return Vela_NoteWithDurationExtendedEvent(iNote.start, NoteOf(iNote), iNote.quantizeTimeDelta,
                                                  iNote.origEvent.AsNoteWithDuration(), iNote.muted);
    }

    // Same-kind fast paths of the Time_Typed comparisons, equal to them in every case.
    static int64_t ClampCount(int64_t iCount) {
        return iCount < kTime_MinCount ? kTime_MinCount : (iCount > kTime_MaxCount ? kTime_MaxCount : iCount);
    }
    static bool StartsBefore(const Time_Typed& iA, const Time_Typed& iB) {
        return iA.mType == iB.mType ? ClampCount(iA.mCount) < ClampCount(iB.mCount) : iA < iB;
    }
    static const Vela_NoteWithDurationEvent& NoteOf(const Note& iNote) { return iNote.event.AsNoteWithDuration(); }
    static Vela_NoteWithDurationEvent& NoteOf(Note& iNote) { return iNote.event.AsNoteWithDuration(); }

protected:
    // Takes iLongList (leaving the pointer empty) in place of the current long-note list, which
    // is deleted, and stores the thresholds. Does not fill the new list.
    void SetLongNoteList(Ndo_AutoPtr<Vela_NoteListBase> iLongList, Time_TickLength iTickThreshold,
                         Time_SampleLength iSampleThreshold);

private:
    friend bool operator==(const Vela_NoteListBase& iA, const Vela_NoteListBase& iB);

    std::pair<bool, size_t> FindNote(const Time_Typed& iStart, const Vela_NoteWithDurationEvent& iNote) const;
    void ChangeNote(size_t iIndex, const Vela_NoteWithDurationEvent& iNewNote);
    // Rebuilds the long-note list and recomputes mMaxUnindexedDuration.
    void RegenerateLongNoteList();
    void NoteUnindexed(const Time_TypedLength& iDuration);
    // The earliest start from which a note of this list that the long list may not hold can sound at iT.
    Time_Typed EarliestUnindexedSounding(const Time_Typed& iT) const;
    // Replaces every note by iNotes (in order) and rebuilds the long-note list.
    void ReplaceNotes(const Note* iNotesP, size_t iCount);
    // Inserts iCount notes, sorted by start, as AddNote would one after the other.
    void InsertSorted(const Note* iNotesP, size_t iCount);
    template <class TBetter>
    bool FindRelease(Time_Typed iStart, Time_Typed iEnd, Mdie_TimedEvent& oRelease, TBetter iBetter) const;

    bool mQuantizeContents;
    NoteVector mNotes;
    Vela_NoteListBase* mLongNoteListP = nullptr;
    uint64_t mLongNoteListId = kNdo_NoId;
    Time_TypedLength mSampleThreshold;
    Time_TypedLength mTickThreshold;
    Time_TypedLength mUnusedLength;  // kept for the layout; no operation gives it a value
    // Per time kind, an upper bound of the durations of the notes the long-note list does not
    // hold up to date (every note of a list without one). A note starting before t minus that
    // bound can only sound at t if it is in the long-note list, so the sustaining walk of the
    // main list starts there instead of at B; the notes it passes over come from the long-note
    // list in the same order. Raised by each edit, recomputed by RegenerateLongNoteList.
    std::array<int64_t, 2> mMaxUnindexedDuration{};
};

// Same notes in the same order, every record field equal (times and lengths by count and kind).
bool operator==(const Vela_NoteListBase& iA, const Vela_NoteListBase& iB);
inline bool operator!=(const Vela_NoteListBase& iA, const Vela_NoteListBase& iB) { return !(iA == iB); }

// The list a chunk owns: a note list with its long-note list.
class Vela_NoteList : public Vela_NoteListBase {
public:
    static constexpr int64_t kLongNoteTicks = 15360000;

    Vela_NoteList(EUndoFlag iUndo, bool iQuantizeContents);
};

// The undo state of a note list: a full copy of its notes.
class Vela_NoteListBase_NdoState : public Ndo_State {
public:
    Vela_NoteListBase::NoteVector mNotes;
    std::array<int64_t, 2> mMaxUnindexedDuration{};
};
