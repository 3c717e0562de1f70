#include "Mdie_TrackState.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "AllocCounter.h"
#include "AssertCapture.h"
#include "Mem2_MasterAllocator.h"
#include "Vela_Init.h"

namespace {

Time_Typed Tick(int64_t iCount) { return Time_Typed(iCount, kTime_Ticks); }
Time_TypedLength Ticks(int64_t iCount) { return Time_TypedLength(iCount, kTime_Ticks); }

Mdie_TimedEvent Note(int64_t iStart, int iPitch, int64_t iLength, Time_EType iType = kTime_Ticks, int iOn = 100,
                     int iOff = 64) {
    return Mdie_TimedEvent(Time_Typed(iStart, iType),
                           Vela_NoteWithDurationEvent(int8_t(iPitch), Time_TypedLength(iLength, iType), int8_t(iOn), int8_t(iOff)));
}

// An allocator that refuses once its budget of blocks is spent.
class BudgetAllocator : public Mem2_MasterAllocator {
public:
    void* Alloc(int iSize, Mem2_Statistics* iStatsP) override {
        return mBudget-- > 0 ? Mem2_MasterAllocator::Alloc(iSize, iStatsP) : nullptr;
    }
    int mBudget = 1 << 30;
};

// Keeps what it receives in reserved room, so receiving allocates nothing.
class Recorder : public Mdie_EventReceiver {
public:
    Recorder() { mEvents.reserve(1024); }
    void ReceiveEvent(const Vela_Event& iEvent) override { mEvents.push_back(iEvent); }
    // "off62 on65 dur65:50 clr60:0 add60:200".
    std::string Text() const {
        static const char* const kNames[] = {"", "on", "off", "dur", "", "", "", "", "", "", "", "", "", "", "", "", "", "clr", "add"};
        std::string text;
        for (const Vela_Event& event : mEvents) {
            const bool timed = event.GetType() == Vela_Event::kNoteWithDuration || event.GetType() >= Vela_Event::kClearNoteInProgress;
            text += std::string(text.empty() ? "" : " ") + kNames[event.GetType()] +
                    std::to_string(timed ? event.AsNoteWithDuration().GetPitch() : event.AsNoteOn().GetPitch());
            if (timed) text += ":" + std::to_string(event.AsNoteWithDuration().GetDuration().AsInt64());
        }
        return text;
    }
    std::vector<Vela_Event> mEvents;
};

using NoteTuple = std::tuple<int64_t, int, int, int>;  // release count, pitch, on, off

std::vector<NoteTuple> Notes(const Mdie_TrackState& iState) {
    std::vector<NoteTuple> notes;
    for (const Mdie_NoteInProgress* n = iState.NextNoteOff(); n; n = n->mNextP)
        notes.emplace_back(Time_Convert::ToTick(n->mReleaseTime).AsInt64(), n->mPitch, n->mOnVelocity, n->mOffVelocity);
    return notes;
}

class Mdie_TrackStateTest : public ::testing::Test {
protected:
    void SetUp() override { Mdie_NoteInProgress::SetAllocator(&mAllocator); }
    void TearDown() override { EXPECT_EQ(gVela_NoteInProgressTag.mBytesInUse.load(), 0) << "a note in progress leaked"; }

    std::string Transition(Mdie_TrackState& iOld, Mdie_TrackState& iNew, int iMode, int64_t iNow) {
        Recorder output;
        iOld.ComputeTransitionToNewState(&iNew, &output, {true, Mdie_TrackState::ETransitionMode(iMode), Tick(iNow)}, false);
        return output.Text();
    }
    BudgetAllocator mAllocator;
};

}  // namespace

TEST_F(Mdie_TrackStateTest, RecordsAreThirtyTwoPoolBytesAndARefusalIsNull) {
    const int64_t before = gVela_NoteInProgressTag.mAllocations.load();
    AllocCounter counter;
    Mdie_NoteInProgress* noteP = Mdie_NoteInProgress::Alloc();
    ASSERT_NE(noteP, nullptr);
    EXPECT_EQ(noteP->mReleaseTime.AsInt64(), 0);
    EXPECT_EQ(noteP->mReleaseTime.GetType(), kTime_Ticks);
    EXPECT_EQ(gVela_NoteInProgressTag.mBytesInUse.load(), 32);
    noteP->Free();
    mAllocator.mBudget = 0;
    EXPECT_EQ(Mdie_NoteInProgress::Alloc(), nullptr);
    EXPECT_EQ(counter.Count(), 0u);
    EXPECT_EQ(gVela_NoteInProgressTag.mAllocations.load(), before + 1);
    EXPECT_STREQ(gVela_NoteInProgressTag.mName, "Mdie_NoteInProgress");
}

TEST(Mdie_Chord, JoinsAtThreeQuartersOverlapOrWithinTheCatchSpan) {
    struct Case {
        int64_t mLastLength, mStart, mLength;
        Time_EType mType;
        bool mJoins;
    } const kCases[] = {
        {4000000, 1000000, 4000000, kTime_Ticks, true},    // overlap exactly 3/4 of equal lengths
        {4000000, 1000001, 4000000, kTime_Ticks, false},   // one tick less, and past the catch span
        {4000000, 1000000, 4000004, kTime_Ticks, false},   // the longer (new) note sets the 3/4
        {4000000, 479999, 100, kTime_Ticks, true},         // catch span: 480,000 ticks
        {4000000, 480000, 100, kTime_Ticks, false},
        {1000000, 249999, 10, kTime_Ticks, true},          // a quarter of a short last note is less
        {1000000, 250000, 10, kTime_Ticks, false},
        {100000, 11999, 10, kTime_Samples, true},          // 480,000 ticks are 12,000 samples
        {100000, 12000, 10, kTime_Samples, false},
        {40000, 9999, 10, kTime_Samples, true},            // a quarter of 40,000 samples is less
        {40000, 10000, 10, kTime_Samples, false},
    };
    for (const Case& c : kCases) {
        Mdie_Chord chord;
        EXPECT_TRUE(chord.CanAdd(Note(c.mStart, 60, c.mLength, c.mType)));
        chord.Add(Note(0, 64, c.mLastLength, c.mType));
        EXPECT_EQ(chord.CanAdd(Note(c.mStart, 60, c.mLength, c.mType)), c.mJoins) << c.mLastLength << " " << c.mStart;
        EXPECT_TRUE(chord.InChord(Note(0, 64, c.mLastLength, c.mType)));
        EXPECT_FALSE(chord.InChord(Note(1, 64, c.mLastLength, c.mType)));
    }
}

TEST_F(Mdie_TrackStateTest, TransitionsEventByEventInEachMode) {
    Mdie_TrackState before, after;
    for (auto [start, pitch, length] : {std::tuple{0, 60, 100}, {0, 62, 200}, {0, 64, 50}}) before.ReceiveEvent(Note(start, pitch, length));
    for (auto [start, pitch, length] : {std::tuple{0, 60, 300}, {100, 65, 50}, {0, 67, 100}}) after.ReceiveEvent(Note(start, pitch, length));
    EXPECT_EQ(Transition(before, after, 0, 100), "clr60:0 add60:200 off62 off64 dur65:50");
    EXPECT_EQ(Transition(before, after, 1, 100), "off62 off64 on65 on67");
    EXPECT_EQ(Transition(before, after, 7, 100), "off62 off64");
    EXPECT_EQ(Transition(after, after, 0, 0), "clr60:300 add60:300 clr65:150 add65:150 clr67:100 add67:100");
    EXPECT_EQ(Transition(after, after, 1, 0), "");
    EXPECT_EQ(Notes(before).size(), 3u) << "a transition changes neither state";

    Recorder ignored;
    before.ComputeTransitionToNewState(&after, &ignored, {false, Mdie_TrackState::kTransitionNoteOns, Tick(0)}, true);
    EXPECT_TRUE(ignored.mEvents.empty());
    before.ComputeTransitionToNewState(&after, &ignored, {true, Mdie_TrackState::kTransitionNoteOns, Tick(0)}, true);
    EXPECT_EQ(Notes(before), Notes(after)) << "adopting copies the new state";

    AssertCapture asserts;
    before.ComputeTransitionToNewState(nullptr, &ignored, {true, Mdie_TrackState::kTransitionNoteOns, Tick(0)}, false);
    ASSERT_EQ(asserts.Count(), 1u);
    EXPECT_EQ(asserts.Texts()[0], "iNewStateP@$^$@NewFileLibs/Vela/Mdie_TrackState.cpp");
}

TEST_F(Mdie_TrackStateTest, NotesBeyondTwoHundredGoOutFirstUnpaired) {
    Mdie_TrackState big, empty;
    for (int i = 0; i < 201; ++i) big.ReceiveEvent(Note(0, i < 200 ? i % 100 : 120, 1000 + i));
    Recorder output;
    big.ComputeTransitionToNewState(&empty, &output, {true, Mdie_TrackState::kTransitionNotesInProgress, Tick(0)}, false);
    ASSERT_EQ(output.mEvents.size(), 201u);
    EXPECT_EQ(output.Text().substr(0, 21), "off120 off0 off0 off1") << "the last released note goes first";
    output.mEvents.clear();
    empty.ComputeTransitionToNewState(&big, &output, {true, Mdie_TrackState::kTransitionNoteOffsOnly, Tick(0)}, false);
    EXPECT_EQ(output.Text(), "on120") << "only the 201st new note, as a note on, whatever the mode";
}

TEST_F(Mdie_TrackStateTest, ACopyStopsAtTheFirstRefusedRecord) {
    Mdie_TrackState state;
    for (int i = 0; i < 5; ++i) state.ReceiveEvent(Note(i, 60 + i, 10));
    mAllocator.mBudget = 3;
    Mdie_TrackState copy;
    copy = state;
    const std::vector<NoteTuple> all = Notes(state);
    EXPECT_EQ(Notes(copy), std::vector<NoteTuple>(all.begin(), all.begin() + 3));
    state.ReceiveEvent(Note(0, 70, 1));  // refused: not tracked, nothing reported
    EXPECT_EQ(Notes(state), all);
}

// Random events against a plain model: a list kept sorted by (release time, newest first), and a
// multiset of the pitches a synthesizer would be sounding after each transition is applied.
TEST_F(Mdie_TrackStateTest, RandomEventsAndTransitionsMatchAPlainModel) {
    struct ModelNote {
        int64_t mRelease, mSerial;
        int mPitch, mOn, mOff;
        NoteTuple Tuple() const { return {mRelease, mPitch, mOn, mOff}; }
    };
    std::mt19937 random(11);
    auto below = [&](int n) { return int(random() % unsigned(n)); };
    std::vector<ModelNote> model[2];
    Mdie_TrackState states[2];
    int64_t serial = 0;
    std::vector<int> sounding;  // pitches sounding at the output
    for (int step = 0; step < 20000; ++step) {
        const int s = below(2);
        std::vector<ModelNote>& m = model[s];
        Mdie_TrackState& state = states[s];
        const int pitch = 40 + below(8);
        auto firstOf = [&](auto iPredicate) { return std::find_if(m.begin(), m.end(), iPredicate); };
        const bool growing = (step / 2500) % 2 == 1;  // phases of small states and of states past 200 notes
        switch (below(m.size() > 260 ? 5 : growing ? 14 : 7)) {
            case 0: {  // a timed note off, or an untimed one
                const auto it = firstOf([&](const ModelNote& n) { return n.mPitch == pitch; });
                if (below(2)) state.ReceiveEvent(Mdie_TimedEvent(Tick(below(9)), Vela_NoteOffEvent(int8_t(pitch), 0)));
                else state.ReceiveEvent(Vela_NoteOffEvent(int8_t(pitch), 0));
                if (it != m.end()) m.erase(it);
                break;
            }
            case 1: {  // clearing a held note (sometimes with a wrong velocity, which clears nothing)
                if (m.empty()) break;
                const ModelNote n = m[size_t(below(int(m.size())))];
                const int on = below(4) ? n.mOn : n.mOn + 1;
                state.ReceiveEvent(Mdie_TimedEvent(Tick(n.mRelease - 5), Vela_ClearNoteInProgressEvent(int8_t(n.mPitch), Ticks(5), int8_t(on), int8_t(n.mOff))));
                const auto it = firstOf([&](const ModelNote& x) { return x.mRelease == n.mRelease && x.mPitch == n.mPitch && x.mOn == on && x.mOff == n.mOff; });
                if (it != m.end()) m.erase(it);
                break;
            }
            case 2:
                state.PopNoteOff();
                if (!m.empty()) m.erase(m.begin());
                break;
            case 3: {  // transition to the other state (or to an empty one), applied to the output
                Mdie_TrackState empty;
                const bool toEmpty = below(4) == 0;
                const int mode = below(3);
                const int64_t now = below(2) ? -1 : 100;  // before every release, or among them
                sounding.clear();
                for (const ModelNote& n : m) sounding.push_back(n.mPitch);
                Recorder output;
                state.ComputeTransitionToNewState(toEmpty ? &empty : &states[1 - s], &output, {true, Mdie_TrackState::ETransitionMode(mode), Tick(now)}, false);
                for (const Vela_Event& e : output.mEvents) {
                    const bool ends = e.GetType() == Vela_Event::kNoteOff || e.GetType() == Vela_Event::kClearNoteInProgress;
                    const int p = e.GetType() == Vela_Event::kNoteOn || e.GetType() == Vela_Event::kNoteOff ? e.AsNoteOn().GetPitch() : e.AsNoteWithDuration().GetPitch();
                    if (!ends) { sounding.push_back(p); continue; }
                    const auto it = std::find(sounding.begin(), sounding.end(), p);
                    ASSERT_NE(it, sounding.end()) << "ended a pitch that was not sounding";
                    sounding.erase(it);
                }
                std::vector<int> expected;
                const std::vector<ModelNote>& target = model[1 - s];
                if (!toEmpty && (mode == 1 || now < 0))
                    for (const ModelNote& n : target) expected.push_back(n.mPitch);
                std::sort(sounding.begin(), sounding.end());
                std::sort(expected.begin(), expected.end());
                if (toEmpty || mode == 1 || (mode == 0 && now < 0)) {
                    EXPECT_EQ(sounding, expected) << step;
                }
                break;
            }
            case 4:
                if (below(20) == 0) {  // keep even pitches
                    struct : Mdie_TrackState::NoteInProgressFilter {
                        bool Keep(const Mdie_NoteInProgress& n) const override { return n.mPitch % 2 == 0; }
                    } even;
                    state.FilterNotesInProgress(even);
                    std::erase_if(m, [](const ModelNote& n) { return n.mPitch % 2 != 0; });
                } else if (below(20) == 0) {
                    state.OffsetTimes(Ticks(40));  // a whole sample, so sample release times stay exact
                    for (ModelNote& n : m) n.mRelease += 40;
                }
                break;
            default: {  // a note starts: timed (as a note or an add), or untimed (released at sample 1 = 40 ticks)
                const int kind = below(3);
                const int64_t start = below(100), length = below(50);
                const int on = 1 + below(3), off = below(3);
                if (kind == 0) state.ReceiveEvent(Note(start, pitch, length, kTime_Ticks, on, off));
                if (kind == 1) state.ReceiveEvent(Mdie_TimedEvent(Tick(start), Vela_AddNoteInProgressEvent(int8_t(pitch), Ticks(length), int8_t(on), int8_t(off))));
                if (kind == 2) state.ReceiveEvent(Vela_NoteOnEvent(int8_t(pitch), int8_t(on)));
                m.push_back(kind == 2 ? ModelNote{40, ++serial, pitch, on, 64} : ModelNote{start + length, ++serial, pitch, on, off});
                std::sort(m.begin(), m.end(), [](const ModelNote& a, const ModelNote& b) { return std::tie(a.mRelease, b.mSerial) < std::tie(b.mRelease, a.mSerial); });
            }
        }
        std::vector<NoteTuple> expected;
        for (const ModelNote& n : m) expected.push_back(n.Tuple());
        ASSERT_EQ(Notes(state), expected) << step;
    }
}

TEST_F(Mdie_TrackStateTest, PlaybackWorkAllocatesNothing) {
    Mdie_TrackState state, other;
    other.ReceiveEvent(Note(0, 50, 10));
    Recorder output;
    struct : Mdie_TrackState::NoteInProgressFilter {
        bool Keep(const Mdie_NoteInProgress& n) const override { return n.mPitch != 61; }
    } filter;
    AllocCounter counter;
    for (int i = 0; i < 100; ++i) state.ReceiveEvent(Note(i, 60 + i % 3, 10));
    state.ReceiveEvent(Vela_NoteOnEvent(70, 90));
    state.ReceiveEvent(Vela_NoteOffEvent(70, 0));
    state.ReceiveEvent(Mdie_TimedEvent(Tick(5), Vela_NoteOffEvent(60, 0)));
    state.PopNoteOff();
    state.FilterNotesInProgress(filter);
    state.ComputeTransitionToNewState(&other, &output, {true, Mdie_TrackState::kTransitionNotesInProgress, Tick(0)}, true);
    EXPECT_EQ(counter.Count(), 0u);
    EXPECT_EQ(Notes(state), Notes(other));
}
