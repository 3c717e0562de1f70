#include "Mdie_TrackState.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "AllocCounter.h"
#include "AssertCapture.h"
#include "Mem2_MasterAllocator.h"
#include "Vela_Init.h"

namespace {

Time_Typed Tick(int64_t iCount) { return Time_Typed(iCount, kTime_Ticks); }

Mdie_TimedEvent Note(int64_t iStart, int iPitch, int64_t iLength, int iOn = 100, int iOff = 64, Time_EType iType = kTime_Ticks) {
    return Mdie_TimedEvent(Time_Typed(iStart, iType),
                           Vela_NoteWithDurationEvent(int8_t(iPitch), Time_TypedLength(iLength, iType), int8_t(iOn), int8_t(iOff)));
}

class BudgetAllocator : public Mem2_MasterAllocator {  // refuses once its budget is spent
public:
    void* Alloc(int iSize, Mem2_Statistics* iStatsP) override { return mBudget-- > 0 ? Mem2_MasterAllocator::Alloc(iSize, iStatsP) : nullptr; }
    int mBudget = 1 << 30;
};

class Recorder : public Mdie_EventReceiver {  // room reserved: receiving allocates nothing
public:
    Recorder() { mEvents.reserve(1024); }
    void ReceiveEvent(const Vela_Event& iEvent) override { mEvents.push_back(iEvent); }
    std::string Text() const {  // "off62 on65 dur65:50 clr60:0 add60:200"; byte 1 is the pitch of every note layout
        std::string text;
        for (const Vela_Event& e : mEvents) {
            const int type = e.GetType();
            text += std::string(text.empty() ? "" : " ") + (type == 1 ? "on" : type == 2 ? "off" : type == 3 ? "dur" : type == 17 ? "clr" : "add") +
                    std::to_string(e.AsNoteOn().GetPitch()) + (type > 2 ? ":" + std::to_string(e.AsNoteWithDuration().GetDuration().AsInt64()) : "");
        }
        return text;
    }
    std::vector<Vela_Event> mEvents;
};

using NoteTuple = std::tuple<int64_t, int, int, int>;  // release in ticks, pitch, on, off
std::vector<NoteTuple> Notes(const Mdie_TrackState& iState) {
    std::vector<NoteTuple> notes;
    for (const Mdie_NoteInProgress* n = iState.NextNoteOff(); n; n = n->mNextP)
        notes.emplace_back(Time_Convert::ToTick(n->mReleaseTime).AsInt64(), n->mPitch, n->mOnVelocity, n->mOffVelocity);
    return notes;
}

const struct : Mdie_TrackState::NoteInProgressFilter {
    bool Keep(const Mdie_NoteInProgress& n) const override { return n.mPitch % 2 == 0; }
} kEven;

class Mdie_TrackStateTest : public ::testing::Test {
protected:
    void SetUp() override { Mdie_NoteInProgress::SetAllocator(&mAllocator); }
    void TearDown() override { EXPECT_EQ(gVela_NoteInProgressTag.mBytesInUse.load(), 0) << "a note in progress leaked"; }
    static std::string Transition(Mdie_TrackState& iOld, Mdie_TrackState* iNewP, int iMode, int64_t iNow, bool iAdopt = false) {
        Recorder output;
        iOld.ComputeTransitionToNewState(iNewP, &output, {true, Mdie_TrackState::ETransitionMode(iMode), Tick(iNow)}, iAdopt);
        return output.Text();
    }
    BudgetAllocator mAllocator;
};

}  // namespace

TEST(Mdie_Chord, JoinsAtThreeQuartersOverlapOrWithinTheCatchSpan) {
    const struct { int64_t mLastLength, mStart, mLength; Time_EType mType; bool mJoins; } kCases[] = {
        {4000000, 1000000, 4000000, kTime_Ticks, true},   // overlap exactly 3/4 of equal lengths
        {4000000, 1000001, 4000000, kTime_Ticks, false},  // one tick less, and past the catch span
        {4000000, 1000000, 4000004, kTime_Ticks, false},  // the longer (new) note sets the 3/4
        {4000000, 479999, 100, kTime_Ticks, true},        // catch span: 480,000 ticks
        {4000000, 480000, 100, kTime_Ticks, false},
        {100000, 11999, 10, kTime_Samples, true},  // 480,000 ticks are 12,000 samples
        {100000, 12000, 10, kTime_Samples, false},
        {40000, 9999, 10, kTime_Samples, true},  // a quarter of the last note is less: 10,000 samples
        {40000, 10000, 10, kTime_Samples, false},
    };
    for (const auto& c : kCases) {
        Mdie_Chord chord;
        EXPECT_TRUE(chord.CanAdd(Note(c.mStart, 60, c.mLength, 1, 1, c.mType)));
        chord.Add(Note(0, 64, c.mLastLength, 1, 1, c.mType));
        EXPECT_EQ(chord.CanAdd(Note(c.mStart, 60, c.mLength, 1, 1, c.mType)), c.mJoins) << c.mLastLength << " " << c.mStart;
        EXPECT_TRUE(chord.InChord(Note(0, 64, c.mLastLength, 1, 1, c.mType)) && !chord.InChord(Note(1, 64, c.mLastLength, 1, 1, c.mType)));
    }
}

TEST_F(Mdie_TrackStateTest, TransitionsEventByEventInEachMode) {
    Mdie_TrackState before, after, empty, big;
    for (auto [start, pitch, length] : {std::tuple{0, 60, 100}, {0, 62, 200}, {0, 64, 50}}) before.ReceiveEvent(Note(start, pitch, length));
    for (auto [start, pitch, length] : {std::tuple{0, 60, 300}, {100, 65, 50}, {0, 67, 100}}) after.ReceiveEvent(Note(start, pitch, length));
    EXPECT_EQ(Transition(before, &after, 0, 100), "clr60:0 add60:200 off62 off64 dur65:50") << "67 is already due";
    EXPECT_EQ(Transition(before, &after, 1, 100), "off62 off64 on65 on67");
    EXPECT_EQ(Transition(before, &after, 7, 100), "off62 off64");
    EXPECT_EQ(Transition(after, &after, 0, 0), "clr60:300 add60:300 clr65:150 add65:150 clr67:100 add67:100");
    EXPECT_EQ(Transition(after, &after, 1, 0), "");
    // Beyond 200 notes (in release order) notes go out first, unpaired; the 201st here is pitch 120.
    for (int i = 0; i < 201; ++i) big.ReceiveEvent(Note(0, i < 200 ? i % 100 : 120, 1000 + i));
    EXPECT_EQ(Transition(big, &empty, 0, 0).substr(0, 21), "off120 off0 off0 off1");
    EXPECT_EQ(Transition(empty, &big, 2, 0), "on120") << "a note on whatever the mode";

    Recorder ignored;
    before.ComputeTransitionToNewState(&after, &ignored, {false, Mdie_TrackState::kTransitionNoteOns, Tick(0)}, true);
    EXPECT_TRUE(ignored.mEvents.empty() && Notes(before).size() == 3) << "nothing without the chase flag";
    Transition(before, &after, 1, 0, true);
    EXPECT_EQ(Notes(before), Notes(after)) << "adopting copies the new state";
    AssertCapture asserts;
    EXPECT_EQ(Transition(before, nullptr, 1, 0), "off60 off65 off67");
    EXPECT_EQ(asserts.Texts(), std::vector<std::string>{"iNewStateP@$^$@NewFileLibs/Vela/Mdie_TrackState.cpp"});
}

// Random events against a plain model (a list kept sorted by release time, the newest first
// among equals), and transitions applied to a multiset of the pitches sounding at the output.
TEST_F(Mdie_TrackStateTest, RandomEventsAndTransitionsMatchAPlainModel) {
    struct ModelNote {
        int64_t mRelease, mSerial;
        int mPitch, mOn, mOff;
    };
    std::mt19937 random(11);
    auto below = [&](int n) { return int(random() % unsigned(n)); };
    std::vector<ModelNote> model[2];
    Mdie_TrackState states[2];
    for (int step = 0; step < 12000; ++step) {
        const int s = below(2), pitch = 40 + below(8);
        std::vector<ModelNote>& m = model[s];
        Mdie_TrackState& state = states[s];
        auto erase = [&](auto iMatches) {
            if (auto it = std::find_if(m.begin(), m.end(), iMatches); it != m.end()) m.erase(it);
        };
        const bool growing = (step / 2000) % 2 == 1;  // phases of small states and of states past 200 notes
        switch (below(m.size() > 260 ? 5 : growing ? 14 : 7)) {
            case 0:  // a note off, timed or not
                below(2) ? state.ReceiveEvent(Mdie_TimedEvent(Tick(9), Vela_NoteOffEvent(int8_t(pitch), 0))) : state.ReceiveEvent(Vela_NoteOffEvent(int8_t(pitch), 0));
                erase([&](const ModelNote& n) { return n.mPitch == pitch; });
                break;
            case 1: {  // clearing a held note; a wrong velocity clears nothing
                if (m.empty()) break;
                const ModelNote n = m[size_t(below(int(m.size())))];
                const int on = n.mOn + (below(4) == 0);
                state.ReceiveEvent(Mdie_TimedEvent(Tick(n.mRelease - 5), Vela_ClearNoteInProgressEvent(int8_t(n.mPitch), {5, kTime_Ticks}, int8_t(on), int8_t(n.mOff))));
                erase([&](const ModelNote& x) { return x.mRelease == n.mRelease && x.mPitch == n.mPitch && x.mOn == on && x.mOff == n.mOff; });
                break;
            }
            case 2:
                state.PopNoteOff();
                if (!m.empty()) m.erase(m.begin());
                break;
            case 3: {  // a transition to the other state, or to an empty one
                Mdie_TrackState empty;
                const bool toEmpty = below(4) == 0;
                const int mode = below(3);
                std::multiset<int> sounding, target;
                for (const ModelNote& n : m) sounding.insert(n.mPitch);
                for (const ModelNote& n : model[1 - s]) target.insert(n.mPitch);
                Recorder output;
                state.ComputeTransitionToNewState(toEmpty ? &empty : &states[1 - s], &output, {true, Mdie_TrackState::ETransitionMode(mode), Tick(-1)}, false);
                for (const Vela_Event& e : output.mEvents) {
                    if (e.GetType() != Vela_Event::kNoteOff && e.GetType() != Vela_Event::kClearNoteInProgress) {
                        sounding.insert(e.AsNoteOn().GetPitch());
                    } else {
                        ASSERT_TRUE(sounding.count(e.AsNoteOn().GetPitch())) << "ended a pitch that was not sounding";
                        sounding.erase(sounding.find(e.AsNoteOn().GetPitch()));
                    }
                }
                if (toEmpty) target.clear();
                EXPECT_TRUE((mode == 2 && !toEmpty) || sounding == target) << step;  // mode 2 starts no new note
                break;
            }
            case 4:
                if (below(10) == 0) {  // keep even pitches, then move on by a whole sample (untimed notes are released in samples)
                    state.FilterNotesInProgress(kEven);
                    std::erase_if(m, [](const ModelNote& n) { return n.mPitch % 2 != 0; });
                    state.OffsetTimes({40, kTime_Ticks});
                    for (ModelNote& n : m) n.mRelease += 40;
                }
                break;
            default: {  // a note starts: as a note, an added note in progress, or untimed (released at sample 1, tick 40)
                const int kind = below(3), on = 1 + below(3), off = below(3);
                const int64_t start = below(100), length = below(50);
                if (kind == 0) state.ReceiveEvent(Note(start, pitch, length, on, off));
                if (kind == 1) state.ReceiveEvent(Mdie_TimedEvent(Tick(start), Vela_AddNoteInProgressEvent(int8_t(pitch), {length, kTime_Ticks}, int8_t(on), int8_t(off))));
                if (kind == 2) state.ReceiveEvent(Vela_NoteOnEvent(int8_t(pitch), int8_t(on)));
                m.push_back(kind == 2 ? ModelNote{40, step, pitch, on, 64} : ModelNote{start + length, step, pitch, on, off});
                std::sort(m.begin(), m.end(), [](const ModelNote& a, const ModelNote& b) { return std::tie(a.mRelease, b.mSerial) < std::tie(b.mRelease, a.mSerial); });
            }
        }
        std::vector<NoteTuple> expected;
        for (const ModelNote& n : m) expected.emplace_back(n.mRelease, n.mPitch, n.mOn, n.mOff);
        ASSERT_EQ(Notes(state), expected) << step;
    }
}

TEST_F(Mdie_TrackStateTest, PlaybackWorkAllocatesNothingAndARefusalDropsQuietly) {
    Mdie_TrackState state, other;
    Recorder output;
    AllocCounter counter;
    Mdie_NoteInProgress* recordP = Mdie_NoteInProgress::Alloc();
    const bool fresh = recordP->mReleaseTime == Tick(0) && recordP->mReleaseTime.GetType() == kTime_Ticks && gVela_NoteInProgressTag.mBytesInUse == 32;
    recordP->Free();
    other.ReceiveEvent(Note(0, 50, 10));
    for (int i = 0; i < 100; ++i) state.ReceiveEvent(Note(i, 60 + i % 5, 10));
    state.ReceiveEvent(Vela_NoteOnEvent(70, 90));
    state.ReceiveEvent(Vela_NoteOffEvent(70, 0));
    state.ReceiveEvent(Mdie_TimedEvent(Tick(5), Vela_NoteOffEvent(60, 0)));
    state.PopNoteOff();
    state.FilterNotesInProgress(kEven);
    state.ComputeTransitionToNewState(&other, &output, {true, Mdie_TrackState::kTransitionNotesInProgress, Tick(0)}, false);
    EXPECT_EQ(counter.Count(), 0u);
    EXPECT_TRUE(fresh) << "a record from the pool is released at tick 0 and takes 32 bytes";

    const std::vector<NoteTuple> all = Notes(state);
    mAllocator.mBudget = 3;
    other = state;  // stops at the first refused record
    EXPECT_EQ(Notes(other), std::vector<NoteTuple>(all.begin(), all.begin() + 3));
    state.ReceiveEvent(Note(0, 70, 1));  // refused: not tracked, nothing reported
    EXPECT_EQ(Notes(state), all);
}
