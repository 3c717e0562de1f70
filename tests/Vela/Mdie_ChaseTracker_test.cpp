#include "Mdie_ChaseTracker.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "AllocCounter.h"
#include "AssertCapture.h"

namespace {

const Mdie_SubStream kSustain = Mdie_SubStream::Controller(64);
const Mdie_SubStream kBend = Mdie_SubStream::PitchBend();
const Mdie_SubStream kPressure = Mdie_SubStream::MonoPressure();
const Mdie_SubStream kProgram = Mdie_SubStream::Program();
Mdie_SubStream Cc(int iNumber) { return Mdie_SubStream::Controller(static_cast<int8_t>(iNumber)); }

// Records what it receives without allocating (capacity reserved up front), and keeps the
// last value per sub-stream: the state a synthesizer on the other end would be in.
class RecordingReceiver : public Mdie_EventReceiver {
public:
    RecordingReceiver() { mEvents.reserve(1024); }
    void ReceiveEvent(const Vela_Event& iEvent) override {
        if (mEvents.size() < mEvents.capacity()) mEvents.push_back(iEvent);
    }
    // "C64=0", "PB=100", "MP=3", "PG=74565", one per event, in order.
    std::vector<std::string> Texts() const {
        std::vector<std::string> texts;
        for (const Vela_Event& event : mEvents) texts.push_back(Describe(event));
        return texts;
    }
    std::map<std::string, int32_t> State() const {
        std::map<std::string, int32_t> state;
        for (const Vela_Event& event : mEvents) {
            const std::string text = Describe(event);
            state[text.substr(0, text.find('='))] = Mdie_SubStream(event).GetValueFromEvent(event);
        }
        return state;
    }
    void Clear() { mEvents.clear(); }
    size_t Count() const { return mEvents.size(); }

private:
    static std::string Describe(const Vela_Event& iEvent) {
        const Mdie_SubStream subStream(iEvent);
        const std::string value = "=" + std::to_string(subStream.GetValueFromEvent(iEvent));
        switch (iEvent.GetType()) {
            case Vela_Event::kController:
                return "C" + std::to_string(iEvent.AsController().GetControllerNumber()) + value;
            case Vela_Event::kPitchBend:
                return "PB" + value;
            case Vela_Event::kMonoPressure:
                return "MP" + value;
            case Vela_Event::kProgram:
                return "PG" + value;
            default:
                return "?";
        }
    }
    std::vector<Vela_Event> mEvents;
};

using Texts = std::vector<std::string>;

class Mdie_ChaseTrackerTest : public ::testing::Test {
protected:
    Mdie_ChaseTrackerMap mMap;
    Mdie_ChaseTracker mTracker{&mMap};
    RecordingReceiver mReceiver;
};

TEST_F(Mdie_ChaseTrackerTest, TrackingIgnoresSubStreamsTheMapLacks) {
    for (int number : {0, 120, 127}) mTracker.TrackEvent(Vela_ControllerEvent(static_cast<int8_t>(number), 9));
    mTracker.TrackEvent(Vela_PolyPressureEvent(60, 9));
    mTracker.TrackEvent(Vela_NoteOnEvent(60, 9));
    EXPECT_FALSE(mTracker.IsTracking(Cc(127)));
    EXPECT_FALSE(mTracker.IsTracking(Mdie_SubStream::PolyPressure(60)));
    mTracker.DoCurrentPositionChase(mReceiver);
    EXPECT_EQ(mReceiver.Count(), 0u);
}

TEST_F(Mdie_ChaseTrackerTest, TrackAndChaseSetValuesAndOnlyTrackingMarksTracked) {
    mTracker.TrackEvent(Vela_ControllerEvent(7, 90));
    mTracker.ChaseEvent(Vela_ControllerEvent(10, 20));
    mTracker.TrackEvent(Mdie_SubStream::Program().MakeEvent(74565));
    Mdie_ChaseTracker_ChasingEntry entry;
    ASSERT_TRUE(mTracker.GetChasingEntry(entry, Cc(7)));
    EXPECT_TRUE(entry.mActive);
    EXPECT_EQ(entry.mValue, 90);
    EXPECT_EQ(entry.mSubStream, Cc(7));
    ASSERT_TRUE(mTracker.GetChasingEntry(entry, kProgram));
    EXPECT_EQ(entry.mValue, 74565);
    EXPECT_TRUE(mTracker.IsTracked(Cc(7)));
    EXPECT_TRUE(mTracker.IsActive(Cc(10)));
    EXPECT_FALSE(mTracker.IsTracked(Cc(10)));

    // A releasing entry that is already active keeps its tracked state.
    mTracker.ChaseEvent(Vela_ControllerEvent(64, 127));
    mTracker.TrackEvent(Vela_ControllerEvent(64, 0));
    EXPECT_FALSE(mTracker.IsTracked(kSustain));
    ASSERT_TRUE(mTracker.GetChasingEntry(entry, kSustain));
    EXPECT_EQ(entry.mValue, 0);

    int32_t releaseValue = -1;
    EXPECT_TRUE(mTracker.IsReleasing(&releaseValue, kBend));
    EXPECT_EQ(releaseValue, 0);
    EXPECT_TRUE(mTracker.IsReleasing(nullptr, kSustain));
    EXPECT_FALSE(mTracker.IsReleasing(&releaseValue, Cc(7)));
    EXPECT_TRUE(mTracker.IsChasing(kProgram));
    EXPECT_FALSE(mTracker.IsChasing(Cc(127)));
}

TEST_F(Mdie_ChaseTrackerTest, SetActiveValueIfLaterKeepsTheLatestValue) {
    const Time_Typed t100(100, kTime_Ticks);
    mTracker.SetActiveValueIfLater(Cc(7), 1, t100);
    mTracker.SetActiveValueIfLater(Cc(7), 2, Time_Typed(99, kTime_Ticks));
    Mdie_ChaseTracker_ChasingEntry entry;
    mTracker.GetChasingEntry(entry, Cc(7));
    EXPECT_EQ(entry.mValue, 1);
    mTracker.SetActiveValueIfLater(Cc(7), 3, t100);
    mTracker.GetChasingEntry(entry, Cc(7));
    EXPECT_EQ(entry.mValue, 3);
    // Once inactive, any time is taken.
    mTracker.ClearActiveFlag(Cc(7));
    mTracker.SetActiveValueIfLater(Cc(7), 4, Time_Typed(1, kTime_Ticks));
    mTracker.GetChasingEntry(entry, Cc(7));
    EXPECT_EQ(entry.mValue, 4);
    EXPECT_TRUE(entry.mActive);
}

TEST(Mdie_ChaseTracker, SetActiveValueTouchesOnlyChasingEntries) {
    Mdie_ChaseTrackerMap map;
    map.Clear();
    map.SetStandardReleasingNoChasing();  // releases bend, sustain, pressure; chases nothing
    Mdie_ChaseTracker tracker(&map);
    tracker.SetActiveValue(kBend, 100);
    tracker.SetActiveValueIfLater(kBend, 100, Time_Typed());
    EXPECT_FALSE(tracker.IsActive(kBend));
    tracker.TrackValue(kBend, 100);
    EXPECT_TRUE(tracker.IsActive(kBend));
    RecordingReceiver receiver;
    tracker.Release(receiver, Mdie_ChaseTracker::kReleaseAndDeactivate);
    // Entry 0 is an unreachable old controller 1 entry, sent untested; then the bend.
    EXPECT_EQ(receiver.Texts(), (Texts{"C1=0", "PB=0"}));
    EXPECT_FALSE(tracker.IsActive(kBend));
}

TEST_F(Mdie_ChaseTrackerTest, ClearDeactivatesEverything) {
    mTracker.TrackEvent(Vela_ControllerEvent(7, 90));
    mTracker.TrackEvent(Vela_PitchBendEvent(100));
    mTracker.Clear();
    mTracker.Clear();
    EXPECT_FALSE(mTracker.IsActive(Cc(7)));
    EXPECT_FALSE(mTracker.IsActive(kBend));
    EXPECT_TRUE(mTracker.IsTracked(Cc(7)));  // Clear keeps the tracked flags; Prep forgets them
    mTracker.Prep();
    EXPECT_FALSE(mTracker.IsTracked(Cc(7)));
    mTracker.DoCurrentPositionChase(mReceiver);
    EXPECT_EQ(mReceiver.Count(), 0u);
}

TEST_F(Mdie_ChaseTrackerTest, CurrentPositionChaseSendsActiveNonReleasingEntriesInEntryOrder) {
    mTracker.TrackEvent(Mdie_SubStream::Program().MakeEvent(74565));
    mTracker.TrackEvent(Vela_PitchBendEvent(100));
    mTracker.TrackEvent(Vela_ControllerEvent(64, 127));
    mTracker.TrackEvent(Vela_MonoPressureEvent(3));
    mTracker.TrackEvent(Vela_ControllerEvent(7, 90));
    mTracker.TrackEvent(Vela_ControllerEvent(1, 5));
    mTracker.DoCurrentPositionChase(mReceiver);
    EXPECT_EQ(mReceiver.Texts(), (Texts{"C1=5", "C7=90", "PG=74565"}));
}

TEST_F(Mdie_ChaseTrackerTest, ReleaseStartsAtEntryZeroThenActiveReleasingEntries) {
    mTracker.TrackEvent(Vela_ControllerEvent(64, 127));
    mTracker.TrackEvent(Vela_MonoPressureEvent(3));
    mTracker.TrackEvent(Vela_ControllerEvent(7, 90));
    mTracker.Release(mReceiver, Mdie_ChaseTracker::kReleaseKeepActive);
    EXPECT_EQ(mReceiver.Texts(), (Texts{"C1=0", "C64=0", "MP=0"}));
    EXPECT_TRUE(mTracker.IsActive(kSustain));

    mReceiver.Clear();
    mTracker.Release(mReceiver, Mdie_ChaseTracker::kReleaseAndDeactivate);
    EXPECT_EQ(mReceiver.Texts(), (Texts{"C1=0", "C64=0", "MP=0"}));
    EXPECT_FALSE(mTracker.IsActive(kSustain));
    EXPECT_FALSE(mTracker.IsActive(kPressure));
    EXPECT_TRUE(mTracker.IsActive(Cc(7)));  // not releasing: untouched

    mReceiver.Clear();
    mTracker.Release(mReceiver, Mdie_ChaseTracker::kReleaseAndDeactivate);
    EXPECT_EQ(mReceiver.Texts(), (Texts{"C1=0"}));
}

TEST_F(Mdie_ChaseTrackerTest, ChaseAndReleaseSendsOnlyWhatDiffersThenReleasesTheOther) {
    Mdie_ChaseTracker other(&mMap);
    other.TrackEvent(Vela_ControllerEvent(7, 90));
    other.TrackEvent(Vela_ControllerEvent(10, 10));
    other.TrackEvent(Vela_ControllerEvent(64, 127));
    other.TrackEvent(Vela_PitchBendEvent(200));
    other.TrackEvent(Vela_ControllerEvent(11, 30));  // ours lacks it: stays active there

    mTracker.TrackEvent(Vela_ControllerEvent(1, 5));
    mTracker.TrackEvent(Vela_ControllerEvent(7, 90));
    mTracker.TrackEvent(Vela_ControllerEvent(10, 64));
    mTracker.TrackEvent(Vela_PitchBendEvent(200));
    mTracker.ChaseAndRelease(&other, mReceiver);
    // C7 and the bend are already there; the other's sustain is released, its bend was handed
    // over; its release walk starts at entry 0 (controller 1) untested.
    EXPECT_EQ(mReceiver.Texts(), (Texts{"C1=5", "C10=64", "C1=0", "C64=0"}));
    EXPECT_FALSE(other.IsActive(Cc(7)));
    EXPECT_FALSE(other.IsActive(kSustain));
    EXPECT_TRUE(other.IsActive(Cc(11)));
}

TEST_F(Mdie_ChaseTrackerTest, ChaseAndReleaseSendsEntryZeroEvenWhenInactive) {
    mTracker.TrackEvent(Vela_ControllerEvent(7, 90));
    mTracker.ChaseAndRelease(nullptr, mReceiver);
    EXPECT_EQ(mReceiver.Texts(), (Texts{"C1=0", "C7=90"}));
}

TEST(Mdie_ChaseTracker, ChaseAndReleaseWithoutChasingEntriesOnlyReleasesTheOther) {
    Mdie_ChaseTrackerMap fullMap;
    Mdie_ChaseTrackerMap releaseOnly;
    releaseOnly.Clear();  // chasing count 0
    Mdie_ChaseTracker other(&fullMap);
    other.TrackEvent(Vela_PitchBendEvent(-5));
    Mdie_ChaseTracker empty(&releaseOnly);
    RecordingReceiver receiver;
    empty.ChaseAndRelease(&other, receiver);
    EXPECT_EQ(receiver.Texts(), (Texts{"C1=0", "PB=0"}));
    EXPECT_FALSE(other.IsActive(kBend));
}

TEST_F(Mdie_ChaseTrackerTest, MuteReleasesAndUnmuteRestoresWhatTheReceiverWouldHold) {
    Mdie_ChaseTracker reference(&mMap);
    RecordingReceiver referenceReceiver;
    auto play = [&](const Vela_Event& iEvent, bool iMuted) {
        reference.DoUnMutedUpdate(iEvent, referenceReceiver);
        if (iMuted)
            mTracker.DoMutedUpdate(iEvent);
        else
            mTracker.DoUnMutedUpdate(iEvent, mReceiver);
    };
    play(Vela_ControllerEvent(7, 90), false);
    play(Vela_ControllerEvent(64, 127), false);
    play(Vela_PitchBendEvent(500), false);
    play(Vela_ControllerEvent(10, 3), false);

    const size_t before = mReceiver.Count();
    auto sinceMute = [&] {
        const Texts all = mReceiver.Texts();
        return Texts(all.begin() + static_cast<long>(before), all.end());
    };
    mTracker.DoMute(mReceiver);
    EXPECT_TRUE(mTracker.IsMuted());
    EXPECT_EQ(sinceMute(), (Texts{"C64=0", "PB=0"}));
    mTracker.DoMute(mReceiver);
    EXPECT_EQ(sinceMute().size(), 2u);

    play(Vela_ControllerEvent(7, 80), true);
    play(Vela_PitchBendEvent(600), true);
    play(Vela_MonoPressureEvent(9), true);
    EXPECT_EQ(sinceMute().size(), 2u);  // muted updates send nothing

    mTracker.DoUnMute(mReceiver);
    EXPECT_FALSE(mTracker.IsMuted());
    EXPECT_EQ(sinceMute(), (Texts{"C64=0", "PB=0", "C7=80", "C10=3", "C64=127", "PB=600", "MP=9"}));
    EXPECT_EQ(mReceiver.State(), referenceReceiver.State());

    play(Vela_ControllerEvent(7, 70), false);
    EXPECT_EQ(mReceiver.Texts().back(), "C7=70");
    mTracker.DoUnMute(mReceiver);  // not muted: nothing
    EXPECT_EQ(mReceiver.Texts().back(), "C7=70");
}

TEST(Mdie_ChaseTracker, WithoutMuteOutputMutingOnlySwitchesTheState) {
    Mdie_ChaseTrackerMap map;
    Mdie_ChaseTracker tracker(&map, false);
    RecordingReceiver receiver;
    tracker.TrackEvent(Vela_PitchBendEvent(500));
    tracker.DoMute(receiver);
    tracker.DoMutedUpdate(Vela_PitchBendEvent(600));
    tracker.DoUnMute(receiver);
    EXPECT_EQ(receiver.Count(), 0u);
    EXPECT_FALSE(tracker.IsMuted());
    Mdie_ChaseTracker_ChasingEntry entry;
    tracker.GetChasingEntry(entry, kBend);
    EXPECT_EQ(entry.mValue, 600);
}

TEST_F(Mdie_ChaseTrackerTest, AReleaseEventDeactivatesItsReleasingEntry) {
    mTracker.TrackEvent(Vela_ControllerEvent(64, 127));
    mTracker.TrackEvent(Vela_PitchBendEvent(500));
    mTracker.TrackEvent(Vela_ControllerEvent(7, 90));
    mTracker.HandleReleaseEvent(Vela_ReleaseControllerEvent(64));
    mTracker.HandleReleaseEvent(Vela_ReleaseControllerEvent(7));  // not releasing: ignored
    EXPECT_FALSE(mTracker.IsActive(kSustain));
    EXPECT_TRUE(mTracker.IsActive(kBend));
    EXPECT_TRUE(mTracker.IsActive(Cc(7)));
    mTracker.HandleReleaseEvent(Vela_ReleaseControllerEvent(Mdie_ChaseTracker::kReleaseAllIndex));
    EXPECT_FALSE(mTracker.IsActive(kBend));
    mTracker.DoMute(mReceiver);
    EXPECT_EQ(mReceiver.Count(), 0u);
}

TEST(Mdie_ChaseTracker, ANullMapIsReportedAndTheTrackerFollowsNothing) {
    AssertCapture asserts;
    Mdie_ChaseTracker tracker(nullptr);
    ASSERT_EQ(asserts.Count(), 1u);
    EXPECT_EQ(asserts.Texts()[0], "iMapP != 0@$^$@NewFileLibs/Vela/Mdie_ChaseTracker.cpp");
    RecordingReceiver receiver;
    tracker.TrackEvent(Vela_ControllerEvent(7, 1));
    tracker.HandleReleaseEvent(Vela_ReleaseControllerEvent(-1));
    tracker.Release(receiver, Mdie_ChaseTracker::kReleaseAndDeactivate);
    tracker.ChaseAndRelease(nullptr, receiver);
    EXPECT_FALSE(tracker.IsTracking(Cc(7)));
    EXPECT_EQ(receiver.Count(), 0u);
}

TEST_F(Mdie_ChaseTrackerTest, NoOperationAllocatesAfterConstruction) {
    Mdie_ChaseTracker other(&mMap);
    Mdie_ChaseTracker_ChasingEntry entry;
    Mdie_ChaseTracker_ReleasingEntry released;
    int32_t releaseValue = 0;
    AllocCounter counter;
    for (int round = 0; round < 3; ++round) {
        mTracker.TrackEvent(Vela_ControllerEvent(7, 90));
        mTracker.TrackEvent(Vela_ControllerEvent(64, 127));
        mTracker.ChaseEvent(Vela_PitchBendEvent(300));
        other.TrackEvent(Vela_ControllerEvent(7, 90));
        other.TrackEvent(Vela_MonoPressureEvent(5));
        mTracker.TrackValue(kProgram, 74565);
        mTracker.SetActiveValue(Cc(10), 5);
        mTracker.SetActiveValueIfLater(Cc(11), 6, Time_Typed(10, kTime_Ticks));
        (void)mTracker.IsChasing(Cc(7));
        (void)mTracker.IsReleasing(&releaseValue, kSustain);
        (void)mTracker.IsActive(Cc(7));
        (void)mTracker.IsTracking(Cc(7));
        (void)mTracker.IsTracked(Cc(7));
        (void)mTracker.GetChasingEntry(entry, Cc(7));
        (void)mTracker.GetChasingEntry(entry, 121);
        Mdie_ChaseTracker_ActiveChasingIterator chasing(mTracker);
        while (chasing.Next(entry)) {
        }
        Mdie_ChaseTracker_ActiveReleasingIterator releasing(mTracker);
        while (releasing.Next(released)) {
        }
        mTracker.DoCurrentPositionChase(mReceiver);
        mTracker.DoMute(mReceiver);
        mTracker.DoMutedUpdate(Vela_ControllerEvent(7, 80));
        mTracker.DoUnMute(mReceiver);
        mTracker.DoUnMutedUpdate(Vela_ControllerEvent(7, 70), mReceiver);
        mTracker.HandleReleaseEvent(Vela_ReleaseControllerEvent(64));
        mTracker.ChaseAndRelease(&other, mReceiver);
        mTracker.Release(mReceiver, Mdie_ChaseTracker::kReleaseKeepActive);
        mTracker.Release(mReceiver, Mdie_ChaseTracker::kReleaseAndDeactivate);
        mTracker.ClearActiveFlag(Cc(7));
        mTracker.Clear();
        mTracker.Prep();
    }
    EXPECT_EQ(counter.Count(), 0u);
    EXPECT_GT(mReceiver.Count(), 0u);
}

}  // namespace
