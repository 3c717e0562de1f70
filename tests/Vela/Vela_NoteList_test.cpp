// The note list against a plain oracle (a vector kept in insertion order per start), the
// long-note index against a rebuild, persistence byte for byte, undo of every edit.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <tuple>
#include <vector>

#include "AllocCounter.h"
#include "AssertCapture.h"
#include "BlockBytes.h"
#include "Cmn_Exception.h"
#include "Cmn_N10n.h"
#include "Cmn_XMLNode.h"
#include "LocalizedError.h"
#include "Mdie_TimedEvent.h"
#include "Ndo_Manager.h"
#include "StreamValues.h"
#include "Vela_N10n.h"
#include "Vela_NoteList.h"

namespace {

using Note = Vela_NoteListBase_Note;
using Key = std::tuple<int64_t, int, int, int, int64_t, int>;  // start, kind, pitch, on, duration, off
constexpr int64_t kLong = Vela_NoteList::kLongNoteTicks;

Note Make(int64_t iStart, int iPitch, int iOn = 100, int64_t iDuration = 960, Time_EType iKind = kTime_Ticks) {
    Note note;
    note.start = Time_Typed(iStart, iKind);
    note.event = Vela_NoteWithDurationEvent(static_cast<int8_t>(iPitch), Time_TypedLength(iDuration, iKind), static_cast<int8_t>(iOn), 64);
    note.quantizeTimeDelta = Time_TypedLength(0, iKind);
    note.origEvent = note.event;
    return note;
}
Time_Typed T(int64_t iCount) { return Time_Typed(iCount, kTime_Ticks); }
Time_TypedLength L(int64_t iCount) { return Time_TypedLength(iCount, kTime_Ticks); }
Mdie_TimedEvent Timed(const Note& iNote) { return Mdie_TimedEvent(iNote.start, iNote.event); }

Key KeyOf(const Note& iNote) {
    const auto& e = Vela_NoteListBase::NoteOf(iNote);
    return {iNote.start.mCount, iNote.start.mType, e.GetPitch(), e.GetOnVelocity(), e.GetDuration().mCount, e.GetOffVelocity()};
}
std::vector<Key> Keys(const std::vector<Note>& iNotes) {
    std::vector<Key> keys;
    for (const Note& note : iNotes) keys.push_back(KeyOf(note));
    return keys;
}
std::vector<Note> Notes(const Vela_NoteListBase& iList) { return {iList.GetNotes().begin(), iList.GetNotes().end()}; }
std::vector<Key> Keys(const Vela_NoteListBase& iList) { return Keys(Notes(iList)); }
// What the long-note list would hold if rebuilt from the main list.
std::vector<Key> RebuiltLong(const Vela_NoteListBase& iList) {
    std::vector<Note> notes = Notes(iList);
    std::erase_if(notes, [&](const Note& iNote) { return !iList.IsLongNote(iNote); });
    return Keys(notes);
}
Time_Typed EndOf(const Note& iNote) { return iNote.start + Vela_NoteListBase::NoteOf(iNote).GetDuration(); }
bool SameIdentity(const Note& iA, const Note& iB) { return iA.start == iB.start && std::get<2>(KeyOf(iA)) == std::get<2>(KeyOf(iB)) && std::get<3>(KeyOf(iA)) == std::get<3>(KeyOf(iB)); }

template <class TIter>
std::vector<int> Pitches(TIter iIt) {
    std::vector<int> pitches;
    for (; iIt.IsMore(); ++iIt) pitches.push_back(std::get<2>(KeyOf(*iIt)));
    return pitches;
}

// The oracle: AddNote's rule (after every note with the same start) on a plain vector.
void OracleAdd(std::vector<Note>& ioNotes, const Note& iNote) {
    ioNotes.insert(std::upper_bound(ioNotes.begin(), ioNotes.end(), iNote, [](const Note& iA, const Note& iB) { return iA.start < iB.start; }), iNote);
}
void OracleErase(std::vector<Note>& ioNotes, const Note& iNote) {
    const auto found = std::find_if(ioNotes.begin(), ioNotes.end(), [&](const Note& iOther) { return SameIdentity(iOther, iNote); });
    if (found != ioNotes.end()) ioNotes.erase(found);
}

void CheckQueries(Vela_NoteListBase& ioList, const std::vector<Note>& iOracle, std::mt19937_64& ioRandom, int64_t iSpan, Time_EType iKind) {
    for (int query = 0; query < 120; ++query) {
        // Times near note starts and near B = t - threshold + 2 as often as anywhere.
        Time_Typed t(static_cast<int64_t>(ioRandom() % iSpan), iKind);
        if (!iOracle.empty() && query % 3 == 0) {
            const Note& near = iOracle[ioRandom() % iOracle.size()];
            const int64_t threshold = ioList.GetLongNoteThreshold(iKind).mCount;
            t = Time_Typed(near.start.mCount + (query % 2 ? threshold - 2 : 0) + static_cast<int64_t>(ioRandom() % 3) - 1, iKind);
        }
        const Time_Typed end = t + Time_TypedLength(static_cast<int64_t>(ioRandom() % (iSpan / 8)), iKind);
        std::vector<Key> sounding, inRange, gotSounding, gotInRange;
        for (const Note& note : iOracle) {
            if (note.start < t && EndOf(note) > t) sounding.push_back(KeyOf(note));
            if (note.start >= t && note.start < end) inRange.push_back(KeyOf(note));
        }
        for (Vela_NoteListBase::FullSustainingNoteIter it(&ioList, t); it.IsMore(); ++it) gotSounding.push_back(KeyOf(*it));
        for (Vela_NoteListBase::FullNotesInRangeIter it(&ioList, t, end); it.IsMore(); ++it) gotInRange.push_back(KeyOf(*it));
        std::sort(sounding.begin(), sounding.end());
        std::sort(gotSounding.begin(), gotSounding.end());
        ASSERT_EQ(gotSounding, sounding) << "sustaining at " << t.mCount;
        ASSERT_EQ(gotInRange, inRange) << "range from " << t.mCount;
    }
}

// Random edits and bulk operations on a list and on the oracle, with queries in between.
// With iNearThreshold, short notes also come as long as the threshold allows; without, short
// notes stay short, which lets the sustaining walk skip most of the main list.
void RunAgainstOracle(Time_EType iKind, int64_t iThreshold, uint64_t iSeed, bool iNearThreshold) {
    std::mt19937_64 random(iSeed);
    const int64_t span = 8 * iThreshold;
    auto randomDuration = [&]() -> int64_t {
        const int64_t any = 1 + static_cast<int64_t>(random() % (2 * iThreshold)), pick = static_cast<int64_t>(random() % 10);
        const int64_t special[] = {iThreshold, iNearThreshold ? iThreshold - 1 : iThreshold + 1, iThreshold + 1, pick % 2, iNearThreshold ? any : iThreshold + 7};
        return pick < 5 ? special[pick] : 1 + any % (iThreshold / 50);
    };
    auto randomNote = [&] {
        const int64_t start = static_cast<int64_t>(random() % 4 ? random() % span : random() % 50 * (span / 50));  // many equal starts
        return Make(start, static_cast<int>(random() % 4), 1 + static_cast<int>(random() % 3), randomDuration(), iKind);
    };
    Vela_NoteList list(Ndo_Object::kNotUndoable, false);
    std::vector<Note> oracle;
    for (int step = 0; step < 3000; ++step) {
        const int op = static_cast<int>(random() % 22);
        if (op < 12 || oracle.empty()) {
            const Note note = randomNote();
            list.AddNote(note);
            OracleAdd(oracle, note);
        } else if (op < 15) {
            const Note& victim = oracle[random() % oracle.size()];
            Note probe = victim;  // duration and off velocity take no part in the identity
            Vela_NoteListBase::NoteOf(probe).SetDuration(Time_TypedLength(5, iKind));
            list.EraseNote(Timed(probe));
            OracleErase(oracle, victim);
        } else if (op == 15) {
            const Time_Typed from(static_cast<int64_t>(random() % span), iKind);
            const Time_Typed to = from + Time_TypedLength(static_cast<int64_t>(random() % (span / 20)), iKind);
            list.EraseTimeRange(from, to);
            std::erase_if(oracle, [&](const Note& iNote) { return iNote.start >= from && iNote.start < to; });
        } else if (op == 16 || op == 17) {  // a few notes merged, or the middle of many copied
            Vela_NoteListBase other(Ndo_Object::kNotUndoable, false);
            for (int i = 0; i < (op == 16 ? 3 : 200); ++i) other.AddNote(randomNote());
            const Time_Typed from(op == 16 ? 0 : span / 4, iKind), to(op == 16 ? 2 * span : span / 2, iKind);
            op == 16 ? list.Merge(other) : list.CopyTimeRange(other, from, to);
            for (const Note& note : Notes(other))
                if (note.start >= from && note.start < to) OracleAdd(oracle, note);
        } else if (op == 18) {
            Vela_NoteListBase victims(Ndo_Object::kNotUndoable, false);
            for (int i = 0; i < 3; ++i) victims.AddNote(oracle[random() % oracle.size()]);
            for (const Note& note : Notes(victims)) OracleErase(oracle, note);
            list.Erase(victims);
        } else if (op == 19) {
            const Time_TypedLength offset(static_cast<int64_t>(random() % 2001) - 1000, iKind);
            list.OffsetTimes(offset);
            for (Note& note : oracle) note.start += offset;
        } else {
            // A new length for the first note of an identity (not short to long: that case hands
            // the long list the old record on purpose).
            const Note& probe = oracle[random() % oracle.size()];
            Note& changed = *std::find_if(oracle.begin(), oracle.end(), [&](const Note& iNote) { return SameIdentity(iNote, probe); });
            Note wanted = changed;
            Vela_NoteListBase::NoteOf(wanted).SetDuration(Vela_NoteListBase::NoteOf(randomNote()).GetDuration());
            if (!list.IsLongNote(changed) && list.IsLongNote(wanted)) continue;
            list.ChangeNote(changed.start, Vela_NoteListBase::NoteOf(changed), Vela_NoteListBase::NoteOf(wanted));
            changed = wanted;
        }
        // Whole-list comparisons cost O(n) each: every step while the list is small, then every
        // few steps (a divergence persists, so it is still caught close to the step that made it).
        if (step >= 300 && step % 16 != 0 && op != 19) continue;
        ASSERT_EQ(Keys(list), Keys(oracle)) << "step " << step << " op " << op;
        ASSERT_EQ(Keys(*list.GetLongNoteList()), RebuiltLong(list)) << "step " << step << " op " << op;
        if (step % 496 == 0) CheckQueries(list, oracle, random, span, iKind);
    }
}

TEST(NoteList, TickAndSampleListsMatchTheOracle) {
    RunAgainstOracle(kTime_Ticks, kLong, 1, true);
    RunAgainstOracle(kTime_Ticks, kLong, 3, false);
    Vela_NoteList sampleList(Ndo_Object::kNotUndoable, false);
    const int64_t oneSecond = static_cast<int64_t>(Time_Globals::GetSampleRate());
    EXPECT_EQ(sampleList.GetLongNoteThreshold(kTime_Samples).mCount, oneSecond);
    RunAgainstOracle(kTime_Samples, oneSecond, 2, true);
}

TEST(NoteList, SustainingBoundAndThresholdsAreExact) {
    Vela_NoteList list(Ndo_Object::kNotUndoable, false);
    const int64_t t = 20000000;  // B = t - 15,360,000 + 2 = 4,640,002
    const Note beforeB = Make(4640001, 1, 100, kLong - 1);  // the longest short note before B ends at t
    const Note atB = Make(4640002, 2, 100, kLong - 1);     // one tick later it sounds past t
    const Note atBEndingAtT = Make(4640002, 3, 100, t - 4640002);
    const Note longEndingAtT = Make(0, 4, 100, t);
    const Note longEndingAfter = Make(0, 5, 100, t + 1);
    const Note exactlyLong = Make(10, 6, 100, kLong);
    for (const Note& note : {beforeB, atB, atBEndingAtT, longEndingAtT, longEndingAfter, exactlyLong, Make(20, 7, 100, kLong - 1)}) list.AddNote(note);
    EXPECT_EQ(Keys(*list.GetLongNoteList()), Keys(std::vector<Note>{longEndingAtT, longEndingAfter, exactlyLong}));
    EXPECT_EQ(Pitches(Vela_NoteListBase::FullSustainingNoteIter(&list, T(t))), (std::vector<int>{5, 2}));

    // The walk skips what short notes cannot reach: lengthening them must widen it.
    auto sounding = [](Vela_NoteListBase& ioList, int64_t iT) { return Pitches(Vela_NoteListBase::FullSustainingNoteIter(&ioList, T(iT))); };
    Vela_NoteList shortNotes(Ndo_Object::kNotUndoable, false);
    shortNotes.AddNote(Make(1000, 1, 100, 10));
    shortNotes.AddNote(Make(5000, 2, 100, 10));
    shortNotes.ChangeNote(T(1000), Vela_NoteWithDurationEvent(1, L(1), 100, 0), Vela_NoteWithDurationEvent(1, L(5001), 100, 0));
    EXPECT_EQ(sounding(shortNotes, 6000), (std::vector<int>{1}));
    shortNotes.OffsetDurations(L(1000));
    EXPECT_EQ(sounding(shortNotes, 6005), (std::vector<int>{1, 2}));

    // Short to long hands the long list the record as it was before the change, on purpose (the
    // oracle test covers the other moves).
    shortNotes.ChangeNote(T(5000), Vela_NoteWithDurationEvent(2, L(1), 100, 64), Vela_NoteWithDurationEvent(2, L(kLong), 100, 64));
    EXPECT_EQ(Keys(*shortNotes.GetLongNoteList()), Keys(std::vector<Note>{Make(5000, 2, 100, 1010)}));
    EXPECT_FALSE(shortNotes.IsNoteInList(Mdie_TimedEvent(T(5000), Vela_NoteOnEvent(2, 100))));  // not a note with duration
    // Changing through an iterator leaves the walk where it was.
    std::vector<int> pitches;
    for (Vela_NoteListBase::FullNotesInRangeIter it(&shortNotes); it.IsMore(); ++it) {
        it.ChangeCurrentNote(Vela_NoteWithDurationEvent(70, L(kLong), 1, 64));
        pitches.push_back(std::get<2>(KeyOf(*it)));
    }
    EXPECT_EQ(pitches, (std::vector<int>{70, 70}));
}

TEST(NoteList, OffsetsNeverClipAndKeepEveryNoteAudible) {
    struct Case {
        int64_t count;
        std::vector<int> in, out;
    };
    for (const Case& c : std::vector<Case>{{5, {60, 64}, {59, 63}}, {-5, {60, 64}, {61, 65}}, {0, {60, 64}, {61, 65}},
                                           {1, {0, 64}, {0, 64}}, {-1, {127, 3}, {127, 3}}, {1, {127, 3}, {126, 2}}}) {
        Vela_NoteList list(Ndo_Object::kNotUndoable, false);
        for (size_t i = 0; i < c.in.size(); ++i) list.AddNote(Make(static_cast<int64_t>(i), c.in[i], 100, kLong));
        list.OffsetPitches(L(c.count));
        EXPECT_EQ(Pitches(Vela_NoteListBase::FullNotesInRangeIter(&list)), c.out) << c.count;
        EXPECT_EQ(Keys(*list.GetLongNoteList()), RebuiltLong(list));
    }
    Vela_NoteList list(Ndo_Object::kNotUndoable, true);
    list.AddNote(Make(9600, 60, 100, 50));
    list.AddNote(Make(20000, 61, 100, 500));
    list.OffsetDurations(L(-50));  // 50 - 50 = 0: that note keeps 50
    list.OffsetStarts(L(100));     // ends stay: 9700 + 1 (at least one tick), 20100 + 350
    EXPECT_EQ(Keys(list), Keys(std::vector<Note>{Make(9700, 60, 100, 1), Make(20100, 61, 100, 350)}));
    TickTimesMatter::SetActive(true);
    list.OffsetTimes(L(3000));  // snapped to the 9,600-tick grid: 12700 -> 9600, 23100 -> 19200
    TickTimesMatter::SetActive(false);
    EXPECT_EQ(std::get<0>(KeyOf(list.GetNote(0))), 9600);
    EXPECT_EQ(std::get<0>(KeyOf(list.GetNote(1))), 19200);
}

TEST(NoteList, MergeAvoidingOverlapsDropsDuplicatesAndShortensOverlappedNotes) {
    Vela_NoteList list(Ndo_Object::kNotUndoable, false);
    for (const Note& note : {Make(0, 60, 100, kLong * 2), Make(100, 62, 100, 50), Make(300, 60, 100, 10)}) list.AddNote(note);
    Vela_NoteListBase incoming(Ndo_Object::kNotUndoable, false);
    for (const Note& note : {Make(100, 62, 7, 9), Make(200, 60, 5, 5), Make(300, 61, 100, 3)}) incoming.AddNote(note);
    gAvoidOverlapsAndDuplicates = true;
    list.Merge(incoming);
    gAvoidOverlapsAndDuplicates = false;
    EXPECT_EQ(Keys(list), Keys(std::vector<Note>{Make(0, 60, 100, 200), Make(100, 62, 100, 50), Make(200, 60, 5, 5), Make(300, 60, 100, 10), Make(300, 61, 100, 3)}));
    EXPECT_EQ(Keys(*list.GetLongNoteList()), RebuiltLong(list));

    Mdie_TimedEvent release;
    EXPECT_TRUE(list.GetEarliestReleaseTimeForNotesInRange(T(100), T(301), release));
    EXPECT_EQ(release, Mdie_TimedEvent(T(150), Vela_NoteOffEvent(62, 64)));
    EXPECT_TRUE(list.GetLastReleaseTimeForNotesInRange(T(0), T(400), release));
    EXPECT_EQ(release.GetTime(), T(310));
    EXPECT_FALSE(list.GetLastReleaseTimeForNotesInRange(T(400), T(500), release));
}

TEST(NoteList, EveryEditUndoesAndRedoes) {
    const std::vector<std::function<void(Vela_NoteListBase&, const Vela_NoteListBase&)>> edits = {
        [](auto& ioList, auto&) { ioList.AddNote(Make(50, 1, 1, kLong)); },
        [](auto& ioList, auto&) { ioList.EraseNote(Timed(Make(100, 2, 100))); },
        [](auto& ioList, auto&) { ioList.ChangeNote(T(0), Vela_NoteWithDurationEvent(1, L(1), 100, 0), Vela_NoteWithDurationEvent(1, L(3), 100, 0)); },
        [](auto& ioList, auto&) { ioList.Clear(); },
        [](auto& ioList, auto&) { ioList.OffsetTimes(L(7)); },
        [](auto& ioList, auto&) { ioList.OffsetDurations(L(7)); },
        [](auto& ioList, auto&) { ioList.OffsetPitches(L(7)); },
        [](auto& ioList, auto&) { ioList.OffsetStarts(L(7)); },
        [](auto& ioList, auto& iOther) { ioList.Merge(iOther); },
        [](auto& ioList, auto& iOther) { ioList.CopyTimeRange(iOther, T(0), T(150)); },
        [](auto& ioList, auto&) { ioList.EraseTimeRange(T(50), T(150)); },
        [](auto& ioList, auto& iOther) { ioList.Erase(iOther); },
        [](auto& ioList, auto& iOther) { ioList.ReplaceData(iOther); },
    };
    Vela_NoteListBase other(Ndo_Object::kNotUndoable, false);
    other.AddNote(Make(100, 2, 100, kLong + 5));
    other.AddNote(Make(120, 3, 100, 5));
    for (size_t i = 0; i < edits.size(); ++i) {
        Vela_NoteList list(Ndo_Object::kUndoable, false);
        for (const Note& note : {Make(0, 1, 100, kLong), Make(100, 2, 100, 20), Make(300, 3, 100, 20)}) list.AddNote(note);
        auto state = [&list] { return std::make_pair(Keys(list), Keys(*list.GetLongNoteList())); };
        const auto before = state();
        Ndo_gManager.BeginGroup();
        edits[i](list, other);
        Ndo_gManager.EndGroup();
        const auto after = state();
        EXPECT_NE(after, before) << "edit " << i;
        ASSERT_TRUE(Ndo_gManager.Undo());
        EXPECT_EQ(state(), before) << "edit " << i;
        ASSERT_TRUE(Ndo_gManager.Redo());
        EXPECT_EQ(state(), after) << "edit " << i;
        Ndo_gManager.Clear();
    }
}

TEST(NoteList, LongListMustShareTheUndoability) {
    struct Mismatched : Vela_NoteListBase {
        Mismatched() : Vela_NoteListBase(kUndoable, false) { SetLongNoteList(Ndo_AutoPtr<Vela_NoteListBase>(new Vela_NoteListBase(kNotUndoable, false)), Time_TickLength(1), Time_SampleLength(1)); }
    };
    AssertCapture asserts;
    EXPECT_NE(Mismatched().GetLongNoteList(), nullptr);  // reported, then taken all the same
    ASSERT_EQ(asserts.Count(), 1u);
    EXPECT_EQ(asserts.Texts()[0], "iLongNoteListP.Get() == nullptr || this->NdoIsUndoable() == iLongNoteListP->NdoIsUndoable()@$^$@NewFileLibs/Vela/Vela_NoteList.cpp");
}

TEST(NoteList, ExtendedNotesCarryTheWholeRecordAndTickRangesWidenToSamples) {
    Vela_NoteList list(Ndo_Object::kNotUndoable, false);
    const Vela_NoteWithDurationExtendedEvent extended(T(45), Vela_NoteWithDurationEvent(60, L(7), 90, 3), L(-4),
                                                      Vela_NoteWithDurationEvent(58, L(9), 80, 2), true);
    list.AddNote(extended);
    list.AddNote(Make(79, 61));
    list.AddNote(Make(80, 62));
    // 40 ticks a sample: [50, 60) covers the samples of ticks [40, 80), or with the offset of 10
    // taken out and put back, [50, 90); nothing is widened while tick times matter.
    for (const bool tickTimesMatter : {false, true}) {
        for (const int64_t offset : {0, 10}) {
            TickTimesMatter::SetActive(tickTimesMatter);
            std::vector<int64_t> starts;
            for (Vela_NoteListBase::NotesExtendedEventInRangeIter it(&list, L(offset), T(50), T(60), false); it.IsMore(); ++it) starts.push_back((*it).GetTime().mCount);
            TickTimesMatter::SetActive(false);
            const std::vector<int64_t> expected = tickTimesMatter ? std::vector<int64_t>{} : offset ? std::vector<int64_t>{79, 80} : std::vector<int64_t>{45, 79};
            EXPECT_EQ(starts, expected) << offset;
        }
    }
    // The record comes back whole: through the sustaining iterator into a list equal to the first.
    Vela_NoteListBase::SustainingNoteIter sustaining(&list, T(50));
    ASSERT_TRUE(sustaining.IsMore());
    Vela_NoteList copy(Ndo_Object::kNotUndoable, false);
    copy.AddNote(*sustaining);
    copy.AddNote(Make(79, 61));
    copy.AddNote(Make(80, 62));
    EXPECT_TRUE(copy == list);

    // Every range iterator walks without touching the heap.
    for (int i = 0; i < 5000; ++i) list.AddNote(Make(i * 1000, i % 128, 100, i % 50 ? 3000 : kLong * 2));
    AllocCounter counter;
    int64_t seen = 0;
    for (Vela_NoteListBase::FullNotesInRangeIter it(&list, T(1000), T(4000000)); it.IsMore(); ++it) seen += (*it).start.mCount;
    for (Vela_NoteListBase::FullSustainingNoteIter it(&list, T(4000500)); it.IsMore(); ++it) seen += (*it).start.mCount;
    for (Vela_NoteListBase::NotesExtendedEventInRangeIter it(&list, L(0), T(0), T(90000), true); it.IsMore(); ++it) seen += (*it).GetTime().mCount;
    EXPECT_EQ(counter.Count(), 0u);
    EXPECT_GT(seen, 0);
}

// ---------------------------------------------------------------- persistence

int64_t Raw(int64_t iTicks) { return Time_TypedDefs::GetRawDataForSave(iTicks, kTime_Ticks); }

// Section 1 of one note: start, pitch, duration, on, off[, quantize delta, duration delta].
ByteVector Section1(int64_t iStart, int iPitch, int64_t iDuration, int iOn, int iOff, int iVersion = 3, int64_t iDelta = 5, int64_t iDurationDelta = 480) {
    ByteVector bytes;
    Append(bytes, Raw(iStart), 8), Append(bytes, iPitch, 1), Append(bytes, Raw(iDuration), 8), Append(bytes, iOn, 1), Append(bytes, iOff, 1);
    if (iVersion >= 2) Append(bytes, Raw(iDelta), 8), Append(bytes, Raw(iDurationDelta), 8);
    return bytes;
}

ByteVector Block3(int32_t iMark, int16_t iMutedVersion) {
    ByteVector body;
    Append(body, 1, 4), Append(body, Section1(100, 60, 960, 100, 64));
    Append(body, 1, 4), Append(body, iMark, 4);
    Append(body, 62, 1), Append(body, Raw(480), 8), Append(body, 90, 1), Append(body, 40, 1);
    Append(body, 1, 4), Append(body, iMutedVersion, 2), Append(body, 1, 4), Append(body, 1, 1);
    return Block("MdNLB", 3, body);
}

std::unique_ptr<Vela_NoteList> Read(const ByteVector& iBytes) {
    auto list = std::make_unique<Vela_NoteList>(Ndo_Object::kNotUndoable, false);
    StreamInFrom(iBytes, *list);
    return list;
}

TEST(NoteListPersistence, WritesTheBlockByteForByteAndReadsItBack) {
    Vela_NoteList list(Ndo_Object::kNotUndoable, false);
    Note note = Make(100, 60, 100, 960);
    note.quantizeTimeDelta = L(5);
    note.origEvent = Vela_NoteWithDurationEvent(62, L(480), 90, 40);
    note.muted = true;
    list.AddNote(note);
    EXPECT_EQ(StreamedBytes(list), Block3(11, 1));
    EXPECT_TRUE(*Read(Block3(11, 1)) == list);
    const Cmn_XMLNodePtr xml = list.GetAsXML();
    ASSERT_EQ(xml->GetChildCount(), 2u);
    EXPECT_EQ(xml->FindChild("nNumNotes")->GetValue(), "1");
    EXPECT_EQ(xml->GetChild(1)->FindChild("nOriginalPitch")->GetValue(), "62");

    ByteVector empty;
    Append(empty, 0, 4), Append(empty, 0, 4), Append(empty, 11, 4), Append(empty, 0, 4), Append(empty, 1, 2), Append(empty, 1, 4);
    EXPECT_EQ(StreamedBytes(Vela_NoteList(Ndo_Object::kNotUndoable, false)), Block("MdNLB", 3, empty));

    // Notes read without an attack velocity are announced, one message each.
    int announced = 0;
    Cmn_Subscribable<Vela_N10n_MIDIZeroOnVelocitiesFound> subscription([&](const Vela_N10n_MIDIZeroOnVelocitiesFound&) { ++announced; });
    for (int on : {0, 5, 0}) list.AddNote(Make(on, 60, on));
    EXPECT_TRUE(*Read(StreamedBytes(list)) == list);
    EXPECT_EQ(announced, 2);
}

TEST(NoteListPersistence, ReadsOlderVersionsAndSkipsUnknownSections) {
    struct Case { ByteVector block; Key current, original; int64_t delta; bool muted; };
    ByteVector v1, v2;
    Append(v1, 1, 4), Append(v1, Section1(100, 60, 960, 100, 64, 1));
    Append(v2, 1, 4), Append(v2, Section1(100, 60, 960, 100, 64, 2));
    const Key current{100, 1, 60, 100, 960, 64};
    for (const Case& c : std::vector<Case>{{Block("MdNLB", 1, v1), current, current, 0, false},
                                           {Block("MdNLB", 2, v2), current, {100, 1, 60, 100, 480, 64}, 5, false},
                                           {Block3(12, 1), current, {100, 1, 60, 100, 480, 64}, 5, false},
                                           {Block3(11, 2), current, {100, 1, 62, 90, 480, 40}, 5, false},
                                           {Block3(11, 1), current, {100, 1, 62, 90, 480, 40}, 5, true}}) {
        const auto list = Read(c.block);
        ASSERT_EQ(list->GetNumNotes(), 1u);
        const Note& note = list->GetNote(0);
        Note original = note;
        original.event = note.origEvent;
        EXPECT_EQ(KeyOf(note), c.current);
        EXPECT_EQ(KeyOf(original), c.original);
        EXPECT_EQ(note.quantizeTimeDelta.mCount, c.delta);
        EXPECT_EQ(note.muted, c.muted);
    }
}

TEST(NoteListPersistence, DamagedBlocksThrowAndLoseNothing) {
    const ByteVector valid = Block3(11, 1);
    Vela_NoteList list(Ndo_Object::kNotUndoable, false);
    list.AddNote(Make(7, 7));
    ByteVector negative;
    Append(negative, -1, 4);
    ByteVector miscounted = valid;
    miscounted[16 + 4 + 35] = 2;  // the section-2 count, after the header, n and one note
    for (const ByteVector& bad : {Block("MdNLB", 3, negative), miscounted}) EXPECT_EQ(LocalizedMessageIdOf([&] { StreamInFrom(bad, list); }), 100);
    EXPECT_EQ(Keys(list), Keys(std::vector<Note>{Make(7, 7)}));
}

}  // namespace
