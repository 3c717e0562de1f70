// Continuous data streams: events to segments and back, chase and its skip rule, the placing of
// range output, undo through data ids, the "MdCDS" block, and the real-time paths.
#include <gtest/gtest.h>

#include "AllocCounter.h"
#include "BlockBytes.h"
#include "Cmn_Exception.h"
#include "Mdie_ChaseTracker.h"
#include "Ndo_Manager.h"
#include "StreamValues.h"
#include "Vela_ContinuousDataStream.h"

namespace {

using Pairs = std::vector<std::pair<int64_t, int>>;

Time_Typed Tick(int64_t iCount) { return Time_Typed(iCount, kTime_Ticks); }
Time_TypedLength Ticks(int64_t iCount) { return Time_TypedLength(iCount, kTime_Ticks); }
const Mdie_SubStream kVolume = Mdie_SubStream::Controller(7);
Mdie_TimedEvent Volume(int64_t iTime, int8_t iValue) { return Mdie_TimedEvent(Tick(iTime), Vela_ControllerEvent(7, iValue)); }

// A volume stream with values 10, 20, 30 at ticks 100, 200, 300.
struct StreamFixture {
    Vela_ContinuousDataStream mStream{kVolume, Ndo_Object::kNotUndoable, false};
    StreamFixture() {
        for (int i = 1; i <= 3; ++i) mStream.AddEvent(Volume(i * 100, static_cast<int8_t>(i * 10)));
    }
};

Pairs TimesAndValues(const Mdie_TimedEventList& iList) {
    Pairs result;
    for (const Mdie_TimedEvent& event : iList) result.emplace_back(event.GetTime().AsInt64(), event.GetEvent().AsController().GetValue());
    return result;
}

// Doubles every controller value and moves it 1 tick later.
class Doubler : public Vela_IRTProperties {
public:
    void AdjustEvent(Vela_ExtendedEvent& ioEvent, int iScope) const override {
        EXPECT_EQ(iScope, 255);
        Vela_ControllerEvent& controller = ioEvent.GetEvent().AsController();
        controller.SetValue(static_cast<int8_t>(controller.GetValue() * 2));
        ioEvent.SetTime(ioEvent.GetTime() + Ticks(1));
    }
};

}  // namespace

TEST(ContinuousDataStream, EventsBecomeSegmentsAndRangeBoundsAreHalfOpen) {
    StreamFixture f;
    f.mStream.AddEvent(Volume(200, 25));  // the same time again keeps the second value
    f.mStream.AddEvent(Volume(301, 1));
    f.mStream.EraseEvent(Volume(300, 0));  // only a segment exactly at the time goes
    EXPECT_EQ(f.mStream.PrintContents(), "5(7,3): 100,10; 200,25; 301,1");
    EXPECT_EQ(Vela_ContinuousDataStream(Mdie_SubStream(), Ndo_Object::kNotUndoable, false).PrintContents(), "");
    for (auto [start, end, in] : {std::tuple{100, 101, true}, {101, 200, false}, {0, 100, false}, {301, 302, true}})
        EXPECT_EQ(f.mStream.IsEventInRange(Tick(start), Tick(end)), in) << start;
}

TEST(ContinuousDataStream, ChaseOffersTheValueInForceAndOutputSkipsWhatChaseDeliveredWithoutAllocating) {
    StreamFixture f;
    Mdie_ChaseTrackerMap map;
    Mdie_ChaseTracker tracker(&map);
    Mdie_ChaseTracker_ChasingEntry entry;
    Mdie_TimedEventList list;
    list.Reserve(16);
    Vela_EventListWrapper out(list);
    auto realTime = [](auto iCall) {  // the playback-thread calls allocate nothing
        AllocCounter counter;
        iCall();
        EXPECT_EQ(counter.Count(), 0u);
    };

    // The value in force at 200 is the segment at 200; one before the range start is not offered.
    realTime([&] { f.mStream.AccumulateChaseStateAtTime(&tracker, Tick(199), Tick(150), Ticks(0)); });
    EXPECT_FALSE(tracker.IsActive(kVolume));
    realTime([&] { f.mStream.AccumulateChaseStateAtTime(&tracker, Tick(200), Tick(150), Ticks(5)); });
    EXPECT_TRUE(tracker.GetChasingEntry(entry, kVolume) && entry.mActive && entry.mValue == 20);
    // Playback from 200: the tracker holds 20, so the segment at 200 is not sent again.
    auto play = [&] {
        list.Init();
        f.mStream.GetMidiEventsInRange(out, Tick(200), Tick(400), Ticks(0), kTime_Ticks, &tracker, &map, nullptr, false, 0);
    };
    realTime(play);
    EXPECT_EQ(TimesAndValues(list), (Pairs{{300, 30}}));
    EXPECT_TRUE(tracker.GetChasingEntry(entry, kVolume) && entry.mValue == 30 && tracker.IsTracked(kVolume));
    // Holding another value, the segment at the start is sent.
    realTime(play);
    EXPECT_EQ(list.GetSize(), 2u);
    realTime([&] { EXPECT_EQ(f.mStream.GetData()->GetValueAtTime(Tick(250)), 20); });
}

TEST(ContinuousDataStream, OutputIsPlacedAdjustedAndWindowed) {
    StreamFixture f;
    const Doubler doubler;
    Mdie_TimedEventList timed;
    Vela_EventListWrapper out(timed);
    // Placed by origin 150 with a floor at -20: 100 -> -50 is raised to -20.
    f.mStream.GetMidiEventsInRange(out, Tick(0), Tick(250), Tick(150), Tick(-20), nullptr, nullptr, nullptr, true, 9);
    EXPECT_EQ(TimesAndValues(timed), (Pairs{{-20, 10}, {50, 20}}));
    // By an offset, in samples (40 ticks each), with the properties applied.
    timed.Init();
    f.mStream.GetMidiEventsInRange(out, Tick(0), Tick(250), Ticks(100), kTime_Samples, nullptr, nullptr, &doubler, false, 0);
    ASSERT_EQ(timed.GetSize(), 2u);
    EXPECT_EQ(timed[0].GetTime(), Time_Typed(5, kTime_Samples) + Ticks(1));
    EXPECT_EQ(timed[1].GetEvent().AsController().GetValue(), 40);

    // Display items: processed first, stored second, flag and tag kept, only inside the window.
    Vela_DisplayItemList display;
    f.mStream.GetMidiEventsInRange(display, Tick(0), Tick(1000), Ticks(10), Tick(111), Tick(320), &doubler, true, 7);
    ASSERT_EQ(display.GetSize(), 2u);
    EXPECT_EQ(display[0].GetFirstEvent(), Vela_ExtendedEvent(Tick(211), Vela_ControllerEvent(7, 40)));
    EXPECT_EQ(display[0].GetSecondEvent(), Vela_ExtendedEvent(Tick(210), Vela_ControllerEvent(7, 20)));
    EXPECT_TRUE(display[1].GetFlag());
    EXPECT_EQ(display[1].GetTag(), 7);
}

TEST(ContinuousDataStream, UndoRestoresSubStreamAndFindsTheDataByUndoId) {
    Ndo_gManager.Clear();
    Vela_ContinuousDataStream stream(kVolume, Ndo_Object::kUndoable, false);
    Vela_ContinuousDataStream other(Mdie_SubStream::PitchBend(), Ndo_Object::kUndoable, false);
    stream.AddEvent(Volume(100, 10));
    other.AddEvent(Mdie_TimedEvent(Tick(5), Vela_PitchBendEvent(-100)));
    Ndo_gManager.BeginGroup();
    stream = other;
    Ndo_gManager.EndGroup();
    ASSERT_TRUE(Ndo_gManager.Undo());
    EXPECT_EQ(stream.GetSubStream(), kVolume);
    EXPECT_EQ(stream.GetData()->GetValueAtTime(Tick(100)), 10);
    ASSERT_TRUE(Ndo_gManager.Redo());
    EXPECT_EQ(stream.GetSubStream(), Mdie_SubStream::PitchBend());
    EXPECT_EQ(stream.GetData()->GetValueAtTime(Tick(5)), -100);

    // A state naming no data object leaves the stream without one: it reads empty, edits nothing.
    Vela_ContinuousDataStream orphan(kVolume, Ndo_Object::kNotUndoable, false);
    const Vela_ContinuousData* givenUpP = orphan.GetData();
    Vela_ContinuousDataStream_NdoState none;
    orphan.NdoRestoreState(&none);
    orphan.AddEvent(Volume(1, 1));
    EXPECT_TRUE(orphan.GetData() == nullptr && orphan.IsEmpty());
    delete givenUpP;
    Ndo_gManager.Clear();
}

TEST(ContinuousDataStream, BlockRoundTripsAndDamageThrowsWithoutLeaking) {
    StreamFixture f;
    const ByteVector bytes = StreamedBytes(f.mStream);
    ByteVector mdss, mdcd;
    Append(mdss, 2, 1), Append(mdss, 7, 4);
    Append(mdcd, 3, 4);
    for (int i = 1; i <= 3; ++i) Append(mdcd, Time_TypedDefs::GetRawDataForSave(i * 100, kTime_Ticks), 8), Append(mdcd, i * 10, 4);
    ByteVector body = Block("Mdss", 1, mdss);
    Append(body, Block("MdCD", 1, mdcd));
    ASSERT_EQ(bytes, Block("MdCDS", 2, body));

    Sys_MemoryInStream in(bytes.data(), bytes.size());
    const Vela_ContinuousDataStream read(in, Ndo_Object::kUndoable, true);
    EXPECT_EQ(read.PrintContents(), f.mStream.PrintContents());
    EXPECT_TRUE(read.GetData()->GetSnapTicks());
    ByteVector badType = bytes;
    badType[31] = 9;  // the sub-stream's type code
    Sys_MemoryInStream badIn(badType.data(), badType.size());
    EXPECT_THROW(Vela_ContinuousDataStream(badIn, Ndo_Object::kNotUndoable, false), Cmn_LocalizedException);
}
