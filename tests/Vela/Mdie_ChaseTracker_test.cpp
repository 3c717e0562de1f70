#include "Mdie_ChaseTracker.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "AllocCounter.h"
#include "AssertCapture.h"

namespace {

using Texts = std::vector<std::string>;
const Mdie_SubStream kSustain = Mdie_SubStream::Controller(64);
const Mdie_SubStream kBend = Mdie_SubStream::PitchBend();
const Mdie_SubStream kProgram = Mdie_SubStream::Program();
Mdie_SubStream Cc(int iNumber) { return Mdie_SubStream::Controller(static_cast<int8_t>(iNumber)); }

// "C64", "PB", "MP", "PG".
std::string NameOf(const Mdie_SubStream& iSubStream) {
    const Vela_Event event = iSubStream.MakeEvent(0);
    switch (event.GetType()) {
        case Vela_Event::kController: return "C" + std::to_string(event.AsController().GetControllerNumber());
        case Vela_Event::kPitchBend: return "PB";
        case Vela_Event::kMonoPressure: return "MP";
        default: return "PG";
    }
}

// "C64=0", "PB=100", ...
std::string Describe(const Vela_Event& iEvent) {
    const Mdie_SubStream subStream(iEvent);
    return NameOf(subStream) + "=" + std::to_string(subStream.GetValueFromEvent(iEvent));
}

// The active entries of a tracker on the standard map, in entry order: "C7 C64 PB".
std::string Active(const Mdie_ChaseTracker& iTracker) {
    const Mdie_ChaseTrackerMap standard;
    std::string names;
    for (int32_t entry = 0; entry < standard.GetNumIndices(); ++entry) {
        if (iTracker.IsActive(standard.GetEntrySubStream(entry)))
            names += (names.empty() ? "" : " ") + NameOf(standard.GetEntrySubStream(entry));
    }
    return names;
}

// Records what it receives without allocating (capacity reserved up front).
class RecordingReceiver : public Mdie_EventReceiver {
public:
    RecordingReceiver() { mEvents.reserve(1024); }
    void ReceiveEvent(const Vela_Event& iEvent) override {
        if (mEvents.size() < mEvents.capacity()) mEvents.push_back(iEvent);
    }
    Texts TextsFrom(size_t iFirst = 0) const {
        Texts texts;
        for (size_t i = iFirst; i < mEvents.size(); ++i) texts.push_back(Describe(mEvents[i]));
        return texts;
    }
    // The last value per sub-stream: the state a synthesizer on the other end would be in.
    std::map<std::string, std::string> State() const {
        std::map<std::string, std::string> state;
        for (const std::string& text : TextsFrom()) state[text.substr(0, text.find('='))] = text.substr(text.find('='));
        return state;
    }
    std::vector<Vela_Event> mEvents;
};

void Track(Mdie_ChaseTracker& ioTracker, std::initializer_list<Vela_Event> iEvents) {
    for (const Vela_Event& event : iEvents) ioTracker.TrackEvent(event);
}

int32_t ValueOf(const Mdie_ChaseTracker& iTracker, const Mdie_SubStream& iSubStream) {
    Mdie_ChaseTracker_ChasingEntry entry;
    return iTracker.GetChasingEntry(entry, iSubStream) ? entry.mValue : -999;
}

class Mdie_ChaseTrackerTest : public ::testing::Test {
protected:
    Mdie_ChaseTrackerMap mMap;
    Mdie_ChaseTracker mTracker{&mMap};
    RecordingReceiver mReceiver;
};

TEST_F(Mdie_ChaseTrackerTest, TrackAndChaseSetValuesOfListedSubStreamsAndOnlyTrackingMarksTracked) {
    Track(mTracker, {Vela_ControllerEvent(0, 9), Vela_ControllerEvent(120, 9), Vela_ControllerEvent(127, 9),
                     Vela_PolyPressureEvent(60, 9), Vela_NoteOnEvent(60, 9)});
    EXPECT_FALSE(mTracker.IsTracking(Cc(127)));
    EXPECT_FALSE(mTracker.IsTracking(Mdie_SubStream::PolyPressure(60)));
    EXPECT_EQ(Active(mTracker), "");
    Track(mTracker, {Vela_ControllerEvent(7, 90), kProgram.MakeEvent(74565)});
    mTracker.ChaseEvent(Vela_ControllerEvent(10, 20));
    EXPECT_EQ(ValueOf(mTracker, Cc(7)), 90);
    EXPECT_EQ(ValueOf(mTracker, kProgram), 74565);
    EXPECT_EQ(Active(mTracker), "C7 C10 PG");
    EXPECT_TRUE(mTracker.IsTracked(Cc(7)));
    EXPECT_FALSE(mTracker.IsTracked(Cc(10)));

    // A releasing entry that is already active keeps its tracked state.
    mTracker.ChaseEvent(Vela_ControllerEvent(64, 127));
    mTracker.TrackEvent(Vela_ControllerEvent(64, 0));
    EXPECT_FALSE(mTracker.IsTracked(kSustain));
    EXPECT_EQ(ValueOf(mTracker, kSustain), 0);

    // Which entries chase and release is the map's (its own test); the tracker passes it on.
    int32_t releaseValue = -1;
    EXPECT_TRUE(mTracker.IsReleasing(&releaseValue, kBend) && releaseValue == 0 && !mTracker.IsReleasing(nullptr, Cc(7)));
    EXPECT_TRUE(mTracker.IsChasing(kProgram) && !mTracker.IsChasing(Cc(127)));
}

TEST(Mdie_ChaseTracker, SetActiveValueTouchesOnlyChasingEntriesAndIfLaterKeepsTheLatest) {
    Mdie_ChaseTrackerMap map;
    Mdie_ChaseTracker tracker(&map);
    tracker.SetActiveValueIfLater(Cc(7), 1, Time_Typed(100, kTime_Ticks));
    tracker.SetActiveValueIfLater(Cc(7), 2, Time_Typed(99, kTime_Ticks));
    EXPECT_EQ(ValueOf(tracker, Cc(7)), 1);
    tracker.SetActiveValueIfLater(Cc(7), 3, Time_Typed(100, kTime_Ticks));
    EXPECT_EQ(ValueOf(tracker, Cc(7)), 3);
    tracker.ClearActiveFlag(Cc(7));  // once inactive, any time is taken
    tracker.SetActiveValueIfLater(Cc(7), 4, Time_Typed(1, kTime_Ticks));
    EXPECT_EQ(ValueOf(tracker, Cc(7)), 4);
    EXPECT_TRUE(tracker.IsActive(Cc(7)));

    map.Clear();
    map.SetStandardReleasingNoChasing();  // releases bend, sustain, pressure; chases nothing
    Mdie_ChaseTracker releasing(&map);
    releasing.SetActiveValue(kBend, 100);
    releasing.SetActiveValueIfLater(kBend, 100, Time_Typed());
    EXPECT_FALSE(releasing.IsActive(kBend));
    releasing.TrackValue(kBend, 100);
    EXPECT_TRUE(releasing.IsActive(kBend));
    RecordingReceiver receiver;
    releasing.Release(receiver, Mdie_ChaseTracker::kReleaseAndDeactivate);
    // Entry 0 is an unreachable old controller 1 entry, sent untested; then the bend.
    EXPECT_EQ(receiver.TextsFrom(), (Texts{"C1=0", "PB=0"}));
    EXPECT_FALSE(releasing.IsActive(kBend));
}

// Chasing sends the active non-releasing entries, releasing entry 0 untested and then the active
// releasing ones, both in entry order; Clear deactivates all, only Prep forgets what was tracked.
TEST_F(Mdie_ChaseTrackerTest, ChaseReleaseAndClearWalkTheEntriesInOrder) {
    Track(mTracker, {kProgram.MakeEvent(74565), Vela_PitchBendEvent(100), Vela_ControllerEvent(64, 127),
                     Vela_MonoPressureEvent(3), Vela_ControllerEvent(7, 90)});
    mTracker.DoCurrentPositionChase(mReceiver);
    EXPECT_EQ(mReceiver.TextsFrom(), (Texts{"C7=90", "PG=74565"}));
    mTracker.Release(mReceiver, Mdie_ChaseTracker::kReleaseKeepActive);
    EXPECT_EQ(Active(mTracker), "C7 C64 PB MP PG");
    mTracker.Release(mReceiver, Mdie_ChaseTracker::kReleaseAndDeactivate);
    EXPECT_EQ(Active(mTracker), "C7 PG");  // not releasing: untouched
    mTracker.Release(mReceiver, Mdie_ChaseTracker::kReleaseAndDeactivate);
    EXPECT_EQ(mReceiver.TextsFrom(2), (Texts{"C1=0", "C64=0", "PB=0", "MP=0", "C1=0", "C64=0", "PB=0", "MP=0", "C1=0"}));

    mTracker.Clear();
    mTracker.Clear();
    EXPECT_EQ(Active(mTracker), "");
    EXPECT_TRUE(mTracker.IsTracked(Cc(7)));
    mTracker.Prep();
    EXPECT_FALSE(mTracker.IsTracked(Cc(7)));
    mTracker.DoCurrentPositionChase(mReceiver);
    EXPECT_EQ(mReceiver.mEvents.size(), 11u);
}

TEST_F(Mdie_ChaseTrackerTest, ChaseAndReleaseSendsOnlyWhatDiffersThenReleasesTheOther) {
    Mdie_ChaseTracker other(&mMap);
    Track(other, {Vela_ControllerEvent(7, 90), Vela_ControllerEvent(10, 10), Vela_ControllerEvent(64, 127),
                  Vela_PitchBendEvent(200), Vela_ControllerEvent(11, 30)});
    Track(mTracker, {Vela_ControllerEvent(1, 5), Vela_ControllerEvent(7, 90), Vela_ControllerEvent(10, 64),
                     Vela_PitchBendEvent(200)});
    mTracker.ChaseAndRelease(&other, mReceiver);
    // C7 and the bend are already there; the other's sustain is released, its bend was handed
    // over; its release walk starts at entry 0 (controller 1) untested.
    EXPECT_EQ(mReceiver.TextsFrom(), (Texts{"C1=5", "C10=64", "C1=0", "C64=0"}));
    EXPECT_EQ(Active(other), "C11");  // ours lacks it: stays active there

    // Entry 0 goes out even when inactive.
    Mdie_ChaseTracker fresh(&mMap);
    fresh.TrackEvent(Vela_ControllerEvent(7, 90));
    const size_t before = mReceiver.mEvents.size();
    fresh.ChaseAndRelease(nullptr, mReceiver);
    EXPECT_EQ(mReceiver.TextsFrom(before), (Texts{"C1=0", "C7=90"}));

    // Without chasing entries of its own, a tracker only releases the other.
    Mdie_ChaseTrackerMap releaseOnly;
    releaseOnly.Clear();
    Mdie_ChaseTracker empty(&releaseOnly);
    fresh.TrackEvent(Vela_PitchBendEvent(-5));
    RecordingReceiver receiver;
    empty.ChaseAndRelease(&fresh, receiver);
    EXPECT_EQ(receiver.TextsFrom(), (Texts{"C1=0", "PB=0"}));
    EXPECT_EQ(Active(fresh), "C7");
}

TEST_F(Mdie_ChaseTrackerTest, MuteReleasesAndUnmuteRestoresWhatTheReceiverWouldHold) {
    Mdie_ChaseTracker reference(&mMap);
    RecordingReceiver referenceReceiver;
    auto play = [&](std::initializer_list<Vela_Event> iEvents, bool iMuted) {
        for (const Vela_Event& event : iEvents) {
            reference.DoUnMutedUpdate(event, referenceReceiver);
            iMuted ? mTracker.DoMutedUpdate(event) : mTracker.DoUnMutedUpdate(event, mReceiver);
        }
    };
    play({Vela_ControllerEvent(7, 90), Vela_ControllerEvent(64, 127), Vela_PitchBendEvent(500), Vela_ControllerEvent(10, 3)}, false);
    const size_t before = mReceiver.mEvents.size();
    mTracker.DoMute(mReceiver);
    mTracker.DoMute(mReceiver);  // already muted: nothing more
    EXPECT_TRUE(mTracker.IsMuted());
    play({Vela_ControllerEvent(7, 80), Vela_PitchBendEvent(600), Vela_MonoPressureEvent(9)}, true);
    EXPECT_EQ(mReceiver.TextsFrom(before), (Texts{"C64=0", "PB=0"}));  // muted updates send nothing

    mTracker.DoUnMute(mReceiver);
    EXPECT_FALSE(mTracker.IsMuted());
    EXPECT_EQ(mReceiver.TextsFrom(before), (Texts{"C64=0", "PB=0", "C7=80", "C10=3", "C64=127", "PB=600", "MP=9"}));
    EXPECT_EQ(mReceiver.State(), referenceReceiver.State());
    play({Vela_ControllerEvent(7, 70)}, false);
    mTracker.DoUnMute(mReceiver);  // not muted: nothing
    EXPECT_EQ(mReceiver.TextsFrom(mReceiver.mEvents.size() - 1), (Texts{"C7=70"}));

    // Without mute output, muting only switches the state and keeps the values current.
    Mdie_ChaseTracker silent(&mMap, false);
    RecordingReceiver silentReceiver;
    silent.TrackEvent(Vela_PitchBendEvent(500));
    silent.DoMute(silentReceiver);
    silent.DoMutedUpdate(Vela_PitchBendEvent(600));
    EXPECT_TRUE(silent.IsMuted());
    silent.DoUnMute(silentReceiver);
    EXPECT_TRUE(silentReceiver.mEvents.empty());
    EXPECT_FALSE(silent.IsMuted());
    EXPECT_EQ(ValueOf(silent, kBend), 600);
}

TEST_F(Mdie_ChaseTrackerTest, AReleaseEventDeactivatesItsReleasingEntry) {
    Track(mTracker, {Vela_ControllerEvent(64, 127), Vela_PitchBendEvent(500), Vela_ControllerEvent(7, 90)});
    mTracker.HandleReleaseEvent(Vela_ReleaseControllerEvent(64));
    mTracker.HandleReleaseEvent(Vela_ReleaseControllerEvent(7));  // not releasing: ignored
    EXPECT_EQ(Active(mTracker), "C7 PB");
    mTracker.HandleReleaseEvent(Vela_ReleaseControllerEvent(Mdie_ChaseTracker::kReleaseAllIndex));
    EXPECT_EQ(Active(mTracker), "C7");
    mTracker.DoMute(mReceiver);
    EXPECT_TRUE(mReceiver.mEvents.empty());
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
    EXPECT_TRUE(receiver.mEvents.empty());
}

TEST_F(Mdie_ChaseTrackerTest, NoOperationAllocatesAfterConstruction) {
    Mdie_ChaseTracker other(&mMap);
    Mdie_ChaseTracker_ChasingEntry entry;
    Mdie_ChaseTracker_ReleasingEntry released;
    int32_t releaseValue = 0;
    AllocCounter counter;
    for (int round = 0; round < 3; ++round) {
        Track(mTracker, {Vela_ControllerEvent(7, 90), Vela_ControllerEvent(64, 127)});
        mTracker.ChaseEvent(Vela_PitchBendEvent(300));
        Track(other, {Vela_ControllerEvent(7, 90), Vela_MonoPressureEvent(5)});
        mTracker.TrackValue(kProgram, 74565);
        mTracker.SetActiveValue(Cc(10), 5);
        mTracker.SetActiveValueIfLater(Cc(11), 6, Time_Typed(10, kTime_Ticks));
        const int answers = mTracker.IsChasing(Cc(7)) + mTracker.IsReleasing(&releaseValue, kSustain) +
                            mTracker.IsActive(Cc(7)) + mTracker.IsTracking(Cc(7)) + mTracker.IsTracked(Cc(7)) +
                            mTracker.GetChasingEntry(entry, Cc(7)) + mTracker.GetChasingEntry(entry, 121);
        (void)answers;
        for (Mdie_ChaseTracker_ActiveChasingIterator chasing(mTracker); chasing.Next(entry);) {
        }
        for (Mdie_ChaseTracker_ActiveReleasingIterator releasing(mTracker); releasing.Next(released);) {
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
    EXPECT_FALSE(mReceiver.mEvents.empty());
}

}  // namespace
