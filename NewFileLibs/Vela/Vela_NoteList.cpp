#include "Vela_NoteList.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <vector>

#include "Cmn_Assert.h"
#include "Mdie_TimedEvent.h"

bool gAvoidOverlapsAndDuplicates = false;

namespace {

using Note = Vela_NoteListBase_Note;
using NoteVector = Vela_NoteListBase::NoteVector;

// The chunked vector searches by a record's leading bytes: the start.
static_assert(offsetof(Note, start) == 0 && sizeof(Time_Typed) <= Cmn_ChunkyVecImpl::kKeyBytes);

// The first index whose start is not "before" (iBefore is true on a prefix of the starts).
template <class TBefore>
size_t PartitionPoint(const NoteVector& iNotes, TBefore iBefore) {
    return iNotes.PartitionPointByKey<Time_Typed>(iBefore);
}

const Note& LastNote(const NoteVector& iNotes) { return iNotes[iNotes.GetSize() - 1]; }

std::vector<Note> CopyNotes(const NoteVector& iNotes, size_t iFirst, size_t iLast) {
    std::vector<Note> copy;
    copy.reserve(iLast - iFirst);
    for (size_t index = iFirst; index < iLast;) {
        size_t run = 0;
        const Note* noteP = static_cast<const Note*>(iNotes.GetImpl().GetContiguous(index, &run));
        run = std::min(run, iLast - index);
        copy.insert(copy.end(), noteP, noteP + run);
        index += run;
    }
    return copy;
}

bool SameTime(const Time_Typed& iA, const Time_Typed& iB) { return iA.mCount == iB.mCount && iA.mType == iB.mType; }
bool SameLength(const Time_TypedLength& iA, const Time_TypedLength& iB) {
    return iA.mCount == iB.mCount && iA.mType == iB.mType;
}
bool SameNote(const Vela_Event& iA, const Vela_Event& iB) {
    const auto& a = iA.AsNoteWithDuration();
    const auto& b = iB.AsNoteWithDuration();
    return iA.GetType() == iB.GetType() && a.GetPitch() == b.GetPitch() && a.GetOnVelocity() == b.GetOnVelocity() &&
           a.GetOffVelocity() == b.GetOffVelocity() && SameLength(a.GetDuration(), b.GetDuration());
}
bool SameRecord(const Note& iA, const Note& iB) {
    return SameTime(iA.start, iB.start) && SameNote(iA.event, iB.event) &&
           SameLength(iA.quantizeTimeDelta, iB.quantizeTimeDelta) && SameNote(iA.origEvent, iB.origEvent) &&
           iA.muted == iB.muted;
}

Time_Typed EndOf(const Note& iNote) { return iNote.start + Vela_NoteListBase::NoteOf(iNote).GetDuration(); }

// A length of iKind no shorter than one unit: what a note keeps when an edit would leave it none.
Time_TypedLength AtLeastOneUnit(const Time_TypedLength& iLength, Time_EType iKind) {
    const Time_TypedLength length = Time_Convert::ToType(iLength, iKind);
    return length.AsInt64() >= 1 ? length : Time_TypedLength(1, iKind);
}

bool ShouldSnap(bool iQuantizeContents) { return iQuantizeContents && TickTimesMatter::Active(); }

Time_Typed MovedStart(const Time_Typed& iStart, const Time_TypedLength& iOffset, bool iSnap) {
    const Time_Typed moved = Time_Convert::AddLength(iStart, iOffset);
    return iSnap ? Time_Convert::SnapToCoarseInternalTick(moved) : moved;
}

}  // namespace

// ---------------------------------------------------------------- construction

Vela_NoteListBase::Vela_NoteListBase(EUndoFlag iUndo, bool iQuantizeContents)
    : Ndo_Object(iUndo, iQuantizeContents), mQuantizeContents(iQuantizeContents) {}

Vela_NoteListBase::~Vela_NoteListBase() { delete mLongNoteListP; }

void Vela_NoteListBase::SetLongNoteList(Ndo_AutoPtr<Vela_NoteListBase> iLongNoteListP, Time_TickLength iTickThreshold,
                                        Time_SampleLength iSampleThreshold) {
    VELA_ASSERT(iLongNoteListP.Get() == nullptr || this->NdoIsUndoable() == iLongNoteListP->NdoIsUndoable());
    delete mLongNoteListP;
    mLongNoteListP = iLongNoteListP.Release();
    mLongNoteListId = mLongNoteListP ? mLongNoteListP->NdoGetUndoId() : kNdo_NoId;
    mTickThreshold = Time_TypedLength(iTickThreshold);
    mSampleThreshold = Time_TypedLength(iSampleThreshold);
}

Vela_NoteList::Vela_NoteList(EUndoFlag iUndo, bool iQuantizeContents) : Vela_NoteListBase(iUndo, iQuantizeContents) {
    // One second of audio at the rate of this moment, truncated to whole samples.
    const auto oneSecond = static_cast<int64_t>(Time_Globals::GetSampleRate());
    SetLongNoteList(Ndo_AutoPtr<Vela_NoteListBase>(new Vela_NoteListBase(iUndo, iQuantizeContents)),
                    Time_TickLength(kLongNoteTicks), Time_SampleLength(oneSecond));
}

// ---------------------------------------------------------------- lookups

bool Vela_NoteListBase::IsLongNote(const Note& iNote) const {
    const Time_TypedLength duration = NoteOf(iNote).GetDuration();
    return duration >= GetLongNoteThreshold(duration.GetType());
}

size_t Vela_NoteListBase::LowerBound(const Time_Typed& iTime) const {
    return PartitionPoint(mNotes, [&iTime](const Time_Typed& iStart) { return StartsBefore(iStart, iTime); });
}

size_t Vela_NoteListBase::UpperBound(const Time_Typed& iTime) const {
    return PartitionPoint(mNotes, [&iTime](const Time_Typed& iStart) { return !StartsBefore(iTime, iStart); });
}

std::pair<bool, size_t> Vela_NoteListBase::FindNote(const Time_Typed& iStart, const Vela_NoteWithDurationEvent& iNote) const {
    Cursor cursor;
    // From the lower bound every start is >= iStart, so "not after iStart" means equal.
    for (cursor.Seek(&mNotes, LowerBound(iStart)); !cursor.AtEnd() && !StartsBefore(iStart, (*cursor).start); cursor.Next()) {
        const Vela_NoteWithDurationEvent& note = NoteOf(*cursor);
        if (note.GetPitch() == iNote.GetPitch() && note.GetOnVelocity() == iNote.GetOnVelocity()) return {true, cursor.GetIndex()};
    }
    return {false, cursor.GetIndex()};
}

bool Vela_NoteListBase::IsNoteInList(const Mdie_TimedEvent& iEvent) const {
    if (!iEvent.IsNoteWithDurationEvent()) return false;
    return FindNote(iEvent.GetTime(), iEvent.GetEvent().AsNoteWithDuration()).first;
}

// ---------------------------------------------------------------- single-note edits

void Vela_NoteListBase::AddNote(const Note& iNote) {
    NdoAboutToModify();
    if (mNotes.IsEmpty() || !StartsBefore(iNote.start, LastNote(mNotes).start)) {
        mNotes.PushBack(iNote);
    } else {
        mNotes.Insert(UpperBound(iNote.start), 1, &iNote);
    }
    if (mLongNoteListP && IsLongNote(iNote)) {
        mLongNoteListP->AddNote(iNote);
    } else {
        NoteUnindexed(NoteOf(iNote).GetDuration());
    }
}

void Vela_NoteListBase::AddNote(const Vela_NoteWithDurationExtendedEvent& iNote) {
    Note note;
    note.start = iNote.GetTime();
    note.event = iNote.GetEvent();
    note.quantizeTimeDelta = iNote.GetQuantizeTimeDelta();
    note.origEvent = iNote.GetOrigEvent();
    note.muted = iNote.IsMuted();
    AddNote(note);
}

void Vela_NoteListBase::ChangeNote(Time_Typed iStart, const Vela_NoteWithDurationEvent& iOldNote,
                                   const Vela_NoteWithDurationEvent& iNewNote) {
    const auto [found, index] = FindNote(iStart, iOldNote);
    if (found) ChangeNote(index, iNewNote);
}

void Vela_NoteListBase::ChangeNote(size_t iIndex, const Vela_NoteWithDurationEvent& iNewNote) {
    if (mLongNoteListP) {
        const Note& old = mNotes[iIndex];
        const Time_TypedLength newDuration = iNewNote.GetDuration();
        const bool wasLong = IsLongNote(old);
        const bool isLong = newDuration >= GetLongNoteThreshold(newDuration.GetType());
        bool indexed = false;
        if (wasLong && isLong) {
            const auto [found, longIndex] = mLongNoteListP->FindNote(old.start, NoteOf(old));
            if (found) mLongNoteListP->ChangeNote(longIndex, iNewNote);
            indexed = found;
        } else if (isLong) {
            mLongNoteListP->AddNote(old);  // the record as it stands before the change, on purpose
        } else if (wasLong) {
            mLongNoteListP->EraseNote(Mdie_TimedEvent(old.start, old.event));
        }
        if (!indexed) NoteUnindexed(iNewNote.GetDuration());
    } else {
        NoteUnindexed(iNewNote.GetDuration());
    }
    NdoAboutToModify();
    mNotes[iIndex].event = iNewNote;
}

void Vela_NoteListBase::EraseNote(const Mdie_TimedEvent& iEvent) {
    const auto [found, index] = FindNote(iEvent.GetTime(), iEvent.GetEvent().AsNoteWithDuration());
    if (!found) return;
    if (mLongNoteListP && IsLongNote(mNotes[index])) mLongNoteListP->EraseNote(iEvent);
    NdoAboutToModify();
    mNotes.Erase(mNotes.begin() + static_cast<ptrdiff_t>(index));
}

void Vela_NoteListBase::Clear() {
    NdoAboutToModify();
    mNotes.Destruct();
    mMaxUnindexedDuration = {};
    if (mLongNoteListP) mLongNoteListP->Clear();
}

void Vela_NoteListBase::RegenerateLongNoteList() {
    mMaxUnindexedDuration = {};
    if (mLongNoteListP) mLongNoteListP->Clear();
    mNotes.ForEach([this](const Note& iNote) {
        if (mLongNoteListP && IsLongNote(iNote)) {
            mLongNoteListP->AddNote(iNote);
        } else {
            NoteUnindexed(NoteOf(iNote).GetDuration());
        }
    });
}

void Vela_NoteListBase::NoteUnindexed(const Time_TypedLength& iDuration) {
    int64_t& bound = mMaxUnindexedDuration[iDuration.GetType() == kTime_Samples ? 0 : 1];
    bound = std::max(bound, ClampCount(iDuration.AsInt64()));
}

Time_Typed Vela_NoteListBase::EarliestUnindexedSounding(const Time_Typed& iT) const {
    // A unit of t's kind more than the longest duration of either kind, for the rounding of
    // the conversion between kinds.
    const Time_TypedLength unit(1, iT.GetType());
    const Time_Typed bySamples = iT - Time_TypedLength(mMaxUnindexedDuration[0] + 1, kTime_Samples) - unit;
    const Time_Typed byTicks = iT - Time_TypedLength(mMaxUnindexedDuration[1] + 1, kTime_Ticks) - unit;
    return StartsBefore(bySamples, byTicks) ? bySamples : byTicks;
}

// ---------------------------------------------------------------- whole-list nudges

void Vela_NoteListBase::OffsetTimes(Time_TypedLength iOffset) {
    NdoAboutToModify();
    const bool snap = ShouldSnap(mQuantizeContents);
    // Every start moves by the same amount, so the order holds without a sort.
    mNotes.ForEach([&](Note& ioNote) { ioNote.start = MovedStart(ioNote.start, iOffset, snap); });
    mNotes.GetImpl().RefreshKeys();
    if (mLongNoteListP) mLongNoteListP->OffsetTimes(iOffset);
}

void Vela_NoteListBase::OffsetDurations(Time_TypedLength iOffset) {
    NdoAboutToModify();
    mNotes.ForEach([&](Note& ioNote) {
        // The offset in the note's own kind; it carries on to the following notes converted.
        iOffset = Time_Convert::AddLength(ioNote.start, iOffset) - ioNote.start;
        Vela_NoteWithDurationEvent& note = NoteOf(ioNote);
        const Time_TypedLength duration = note.GetDuration() + iOffset;
        if (duration.AsInt64() >= 1) note.SetDuration(duration);
        NoteUnindexed(note.GetDuration());  // the long-note list is not rebuilt: count every note
    });
    if (mLongNoteListP) mLongNoteListP->OffsetDurations(iOffset);
}

void Vela_NoteListBase::OffsetPitches(Time_TypedLength iOffset) {
    const int64_t direction = iOffset.AsInt64();
    int8_t highest = 0;
    int8_t lowest = 127;
    mNotes.ForEach([&](const Note& iNote) {
        highest = std::max(highest, NoteOf(iNote).GetPitch());
        lowest = std::min(lowest, NoteOf(iNote).GetPitch());
    });
    // No note is ever clipped: all move or none. A positive count moves down, on purpose.
    if (direction <= 0 && highest >= 127) return;
    if (direction > 0 && lowest <= 0) return;
    NdoAboutToModify();
    const int step = direction > 0 ? -1 : 1;
    mNotes.ForEach([step](Note& ioNote) {
        Vela_NoteWithDurationEvent& note = NoteOf(ioNote);
        note.SetPitch(static_cast<int8_t>(note.GetPitch() + step));
    });
    if (mLongNoteListP) mLongNoteListP->OffsetPitches(iOffset);
}

void Vela_NoteListBase::OffsetStarts(Time_TypedLength iOffset) {
    NdoAboutToModify();
    const bool snap = ShouldSnap(mQuantizeContents);
    bool sorted = true;
    const Note* previousP = nullptr;
    mNotes.ForEach([&](Note& ioNote) {
        Vela_NoteWithDurationEvent& note = NoteOf(ioNote);
        const Time_Typed end = EndOf(ioNote);
        ioNote.start = MovedStart(ioNote.start, iOffset, snap);
        note.SetDuration(AtLeastOneUnit(end - ioNote.start, note.GetDuration().GetType()));
        if (previousP && StartsBefore(ioNote.start, previousP->start)) sorted = false;
        previousP = &ioNote;
    });
    if (sorted) {
        mNotes.GetImpl().RefreshKeys();
        RegenerateLongNoteList();
        return;
    }
    std::vector<Note> notes = CopyNotes(mNotes, 0, mNotes.GetSize());
    std::stable_sort(notes.begin(), notes.end(), [](const Note& iA, const Note& iB) { return StartsBefore(iA.start, iB.start); });
    ReplaceNotes(notes.data(), notes.size());
}

// ---------------------------------------------------------------- bulk operations

void Vela_NoteListBase::ReplaceNotes(const Note* iNotesP, size_t iCount) {
    NdoAboutToModify();
    mNotes.Destruct();
    mNotes.Insert(0, iCount, iNotesP);
    RegenerateLongNoteList();
}

void Vela_NoteListBase::InsertSorted(const Note* iNotesP, size_t iCount) {
    // A few notes go in one by one; many are merged in one pass that rebuilds the list.
    if (iCount * 8 < mNotes.GetSize()) {
        for (size_t i = 0; i < iCount; ++i) AddNote(iNotesP[i]);
        return;
    }
    std::vector<Note> existing = CopyNotes(mNotes, 0, mNotes.GetSize());
    std::vector<Note> merged;
    merged.reserve(existing.size() + iCount);
    // At equal starts the notes already here come first, as AddNote would place them.
    std::merge(existing.begin(), existing.end(), iNotesP, iNotesP + iCount, std::back_inserter(merged),
               [](const Note& iNew, const Note& iOld) { return StartsBefore(iNew.start, iOld.start); });
    ReplaceNotes(merged.data(), merged.size());
}

void Vela_NoteListBase::Merge(const Vela_NoteListBase& iSource) {
    if (iSource.mNotes.IsEmpty()) return;
    const std::vector<Note> incoming = CopyNotes(iSource.mNotes, 0, iSource.mNotes.GetSize());
    if (!gAvoidOverlapsAndDuplicates) {
        NdoAboutToModify();
        InsertSorted(incoming.data(), incoming.size());
        return;
    }
    std::vector<Note> merged;
    merged.reserve(mNotes.GetSize() + incoming.size());
    // Per pitch, the positions in "merged" of notes of this list that may still sound.
    std::array<std::vector<size_t>, 256> open;
    Cursor cursor;
    cursor.Seek(&mNotes, 0);
    for (const Note& note : incoming) {
        for (; !cursor.AtEnd() && !StartsBefore(note.start, (*cursor).start); cursor.Next()) {
            merged.push_back(*cursor);
            open[static_cast<uint8_t>(NoteOf(*cursor).GetPitch())].push_back(merged.size() - 1);
        }
        std::vector<size_t>& samePitch = open[static_cast<uint8_t>(NoteOf(note).GetPitch())];
        // Notes that ended by this start can touch no later merged note.
        std::erase_if(samePitch, [&](size_t iIndex) {
            return StartsBefore(merged[iIndex].start, note.start) && !StartsBefore(note.start, EndOf(merged[iIndex]));
        });
        const bool duplicate = std::any_of(samePitch.begin(), samePitch.end(), [&](size_t iIndex) {
            return !StartsBefore(merged[iIndex].start, note.start);  // open notes start at or before it
        });
        if (duplicate) continue;
        for (size_t index : samePitch) {
            Vela_NoteWithDurationEvent& overlapped = NoteOf(merged[index]);
            overlapped.SetDuration(AtLeastOneUnit(note.start - merged[index].start, overlapped.GetDuration().GetType()));
        }
        merged.push_back(note);
    }
    for (; !cursor.AtEnd(); cursor.Next()) merged.push_back(*cursor);
    ReplaceNotes(merged.data(), merged.size());
}

void Vela_NoteListBase::CopyTimeRange(const Vela_NoteListBase& iSource, Time_Typed iStart, Time_Typed iEnd) {
    const size_t first = iSource.LowerBound(iStart);
    const size_t last = std::max(first, iSource.LowerBound(iEnd));
    if (first == last) return;
    const std::vector<Note> notes = CopyNotes(iSource.mNotes, first, last);
    NdoAboutToModify();
    InsertSorted(notes.data(), notes.size());
}

void Vela_NoteListBase::EraseTimeRange(Time_Typed iStart, Time_Typed iEnd) {
    const size_t first = LowerBound(iStart);
    const size_t last = std::max(first, LowerBound(iEnd));
    if (first == last) return;
    NdoAboutToModify();
    mNotes.Erase(mNotes.begin() + static_cast<ptrdiff_t>(first), mNotes.begin() + static_cast<ptrdiff_t>(last));
    if (mLongNoteListP) mLongNoteListP->EraseTimeRange(iStart, iEnd);
}

void Vela_NoteListBase::Erase(const Vela_NoteListBase& iNotes) {
    const std::vector<Note> notes = CopyNotes(iNotes.mNotes, 0, iNotes.mNotes.GetSize());
    for (const Note& note : notes) EraseNote(Mdie_TimedEvent(note.start, note.event));
}

void Vela_NoteListBase::ReplaceData(const Vela_NoteListBase& iSource) {
    if (&iSource == this) return;
    NdoAboutToModify();
    mNotes.Assign(iSource.mNotes);
    RegenerateLongNoteList();
}

template <class TBetter>
bool Vela_NoteListBase::FindRelease(Time_Typed iStart, Time_Typed iEnd, Mdie_TimedEvent& oRelease, TBetter iBetter) const {
    const Note* bestP = nullptr;
    Time_Typed bestEnd;
    Cursor cursor;
    for (cursor.Seek(&mNotes, LowerBound(iStart)); !cursor.AtEnd() && StartsBefore((*cursor).start, iEnd); cursor.Next()) {
        const Time_Typed end = EndOf(*cursor);
        if (!bestP || iBetter(end, bestEnd)) {
            bestP = &*cursor;
            bestEnd = end;
        }
    }
    if (!bestP) return false;
    oRelease = Mdie_TimedEvent(bestEnd, Vela_NoteOffEvent(NoteOf(*bestP).GetPitch(), NoteOf(*bestP).GetOffVelocity()));
    return true;
}

bool Vela_NoteListBase::GetEarliestReleaseTimeForNotesInRange(Time_Typed iStart, Time_Typed iEnd, Mdie_TimedEvent& oRelease) const {
    return FindRelease(iStart, iEnd, oRelease, [](const Time_Typed& iA, const Time_Typed& iB) { return iA < iB; });
}

bool Vela_NoteListBase::GetLastReleaseTimeForNotesInRange(Time_Typed iStart, Time_Typed iEnd, Mdie_TimedEvent& oRelease) const {
    return FindRelease(iStart, iEnd, oRelease, [](const Time_Typed& iA, const Time_Typed& iB) { return iA > iB; });
}

bool operator==(const Vela_NoteListBase& iA, const Vela_NoteListBase& iB) {
    if (iA.mNotes.GetSize() != iB.mNotes.GetSize()) return false;
    Vela_NoteListBase::Cursor a;
    Vela_NoteListBase::Cursor b;
    for (a.Seek(&iA.mNotes, 0), b.Seek(&iB.mNotes, 0); !a.AtEnd(); a.Next(), b.Next())
        if (!SameRecord(*a, *b)) return false;
    return true;
}

// ---------------------------------------------------------------- iterators

Vela_NoteListBase::FullNotesInRangeIter::FullNotesInRangeIter(Vela_NoteListBase* iListP, Time_Typed iStart, Time_Typed iEnd)
    : mListP(iListP) {
    SetRange(iStart, iEnd);
}

Vela_NoteListBase::FullNotesInRangeIter::FullNotesInRangeIter(Vela_NoteListBase* iListP) : mListP(iListP) {
    mCursor.Seek(&iListP->mNotes, 0);
    if (!iListP->mNotes.IsEmpty()) {
        const Time_Typed& last = LastNote(iListP->mNotes).start;
        mEnd = last + Time_TypedLength(1, last.GetType());
    }
}

void Vela_NoteListBase::FullNotesInRangeIter::SetRange(Time_Typed iStart, Time_Typed iEnd) {
    mCursor.Seek(&mListP->mNotes, mListP->LowerBound(iStart));
    mEnd = iEnd;
}

void Vela_NoteListBase::FullNotesInRangeIter::ChangeCurrentNote(const Vela_NoteWithDurationEvent& iNote) {
    mListP->ChangeNote(mCursor.GetIndex(), iNote);
}

Vela_NoteListBase::NotesExtendedEventInRangeIter::NotesExtendedEventInRangeIter(Vela_NoteListBase* iListP, Time_TypedLength iOffset,
                                                                             Time_Typed iStart, Time_Typed iEnd, bool iFlag)
    : mNotes(iListP, iStart, iEnd) {
    if (TickTimesMatter::Active() || iStart.GetType() == kTime_Samples || iStart == Time_Typed::MinTime(kTime_Ticks)) return;
    Time_Typed start;
    Time_Typed end;
    Time_Convert::MakeTickRangeSampleBased(iStart - iOffset, iEnd - iOffset, iFlag, start, end);
    mNotes.SetRange(start + iOffset, end + iOffset);
}

Vela_NoteListBase::FullSustainingNoteIter::FullSustainingNoteIter(Vela_NoteListBase* iListP, Time_Typed iT)
    : mListP(iListP), mT(iT) {
    // Notes before this bound can only sound at t if the long-note list holds them.
    mBound = iListP->EarliestUnindexedSounding(iT);
    if (const Vela_NoteListBase* longP = iListP->mLongNoteListP) {
        // A shorter note can only sound past t if it starts at or after B; the 2 is exact.
        const Time_Typed b = iT - iListP->GetLongNoteThreshold(iT.GetType()) + Time_TypedLength(2, iT.GetType());
        if (StartsBefore(mBound, b)) mBound = b;
        // The long-note walk skips what ended before t as a whole, and goes on past B up to the
        // bound: those notes are the ones of the main list there that can sound.
        mCursor.Seek(&longP->mNotes, longP->LowerBound(longP->EarliestUnindexedSounding(iT)));
        mPhaseEnd = mBound;
        mInLongPhase = !mCursor.AtEnd() && StartsBefore((*mCursor).start, mBound);
    }
    if (!mInLongPhase) EnterMainPhase();
    if (!mCursor.AtEnd() && !CheckSustain(*mCursor)) AdvanceToNext();
}

bool Vela_NoteListBase::FullSustainingNoteIter::CheckSustain(const Note& iNote) const {
    const Time_TypedLength duration = NoteOf(iNote).GetDuration();
    if (iNote.start.mType == mT.mType && duration.mType == mT.mType) {
        // start + duration > t, saturating as Time_Typed does, without the general conversion.
        const int64_t start = iNote.start.mCount;
        const int64_t end = start <= kTime_MinCount   ? kTime_MinCount
                            : start >= kTime_MaxCount ? kTime_MaxCount
                                                      : ClampCount(start + ClampCount(duration.mCount));
        return end > ClampCount(mT.mCount);
    }
    return iNote.start + duration > mT;
}

void Vela_NoteListBase::FullSustainingNoteIter::EnterMainPhase() {
    mInLongPhase = false;
    mCursor.Seek(&mListP->mNotes, mListP->LowerBound(mBound));
    mPhaseEnd = mT;
}

void Vela_NoteListBase::FullSustainingNoteIter::AdvanceToNext() {
    for (;;) {
        mCursor.Next();
        const bool phaseOver = mCursor.AtEnd() || !StartsBefore((*mCursor).start, mPhaseEnd);
        if (phaseOver && !mInLongPhase) return;
        if (phaseOver) {
            EnterMainPhase();
            if (mCursor.AtEnd() || !StartsBefore((*mCursor).start, mPhaseEnd)) return;
        }
        if (CheckSustain(*mCursor)) return;
    }
}
