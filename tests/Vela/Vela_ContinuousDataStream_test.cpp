// Continuous data streams: events to segments and back, chase, the placing of range output,
// undo of membership, the "MdCDS" block, and the real-time paths.
#include <gtest/gtest.h>

#include "AllocCounter.h"
#include "BlockBytes.h"
#include "Cmn_Exception.h"
#include "Mdie_ChaseTracker.h"
#include "Ndo_Manager.h"
#include "Sys_TypedStream.h"
#include "Vela_ContinuousDataStream.h"

namespace {

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

std::vector<std::pair<int64_t, int>> TimesAndValues(const Mdie_TimedEventList& iList) {
    std::vector<std::pair<int64_t, int>> result;
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
    f.mStream.EraseEvent(Volume(300, 0));
    f.mStream.AddEvent(Volume(301, 1));
    f.mStream.EraseEvent(Volume(300, 0));  // only a segment exactly at the time goes
    Mdie_TimedEventList list;
    Vela_EventListWrapper out(list);
    f.mStream.GetMidiEventsInRange(out, Tick(0), Tick(1000), Tick(0), Time_Typed::MinTime(kTime_Ticks), nullptr, nullptr,
                                   nullptr, false, 0);
    EXPECT_EQ(TimesAndValues(list), (std::vector<std::pair<int64_t, int>>{{100, 10}, {200, 25}, {301, 1}}));

    struct Case {
        int64_t mStart, mEnd;
        bool mIn;
    };
    for (const Case& c : {Case{100, 101, true}, Case{101, 200, false}, Case{0, 100, false}, Case{301, 302, true}})
        EXPECT_EQ(f.mStream.IsEventInRange(Tick(c.mStart), Tick(c.mEnd)), c.mIn) << c.mStart;

    Vela_ContinuousDataStream copy(f.mStream);
    EXPECT_EQ(copy.GetData()->GetSize(), 3u);
    EXPECT_NE(copy.GetData(), f.mStream.GetData());
    EXPECT_EQ(copy.PrintContents(), "5(7,3): 100,10; 200,25; 301,1");
    EXPECT_EQ(Vela_ContinuousDataStream(Mdie_SubStream(), Ndo_Object::kNotUndoable, false).PrintContents(), "");
}

TEST(ContinuousDataStream, ChaseOffersTheValueInForceAndRangeOutputSkipsWhatChaseDelivered) {
    StreamFixture f;
    Mdie_ChaseTrackerMap map;
    Mdie_ChaseTracker tracker(&map);
    Mdie_ChaseTracker_ChasingEntry entry;

    // The value in force at 200 is the segment at 200; one before the range start is not offered.
    f.mStream.AccumulateChaseStateAtTime(&tracker, Tick(199), Tick(150), Ticks(0));
    EXPECT_FALSE(tracker.IsActive(kVolume));
    f.mStream.AccumulateChaseStateAtTime(&tracker, Tick(200), Tick(150), Ticks(5));
    ASSERT_TRUE(tracker.GetChasingEntry(entry, kVolume) && entry.mActive);
    EXPECT_EQ(entry.mValue, 20);

    // Playback from 200: the tracker already holds 20, so the segment at 200 is not sent again.
    Mdie_TimedEventList list;
    Vela_EventListWrapper out(list);
    f.mStream.GetMidiEventsInRange(out, Tick(200), Tick(400), Ticks(0), kTime_Ticks, &tracker, &map, nullptr, false, 0);
    EXPECT_EQ(TimesAndValues(list), (std::vector<std::pair<int64_t, int>>{{300, 30}}));
    ASSERT_TRUE(tracker.GetChasingEntry(entry, kVolume));
    EXPECT_EQ(entry.mValue, 30);  // delivered events are tracked
    EXPECT_TRUE(tracker.IsTracked(kVolume));

    // Holding another value, the segment at the start is sent.
    list.Init();
    f.mStream.GetMidiEventsInRange(out, Tick(200), Tick(400), Ticks(0), kTime_Ticks, &tracker, &map, nullptr, false, 0);
    EXPECT_EQ(list.GetSize(), 2u);
}

TEST(ContinuousDataStream, OutputIsPlacedAdjustedAndWindowed) {
    StreamFixture f;
    const Doubler doubler;
    Mdie_TimedEventList timed;
    Vela_EventListWrapper out(timed);
    // Placed by origin 150 with a floor at -20: 100 -> -50 is raised to -20.
    f.mStream.GetMidiEventsInRange(out, Tick(0), Tick(250), Tick(150), Tick(-20), nullptr, nullptr, nullptr, true, 9);
    EXPECT_EQ(TimesAndValues(timed), (std::vector<std::pair<int64_t, int>>{{-20, 10}, {50, 20}}));
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
    EXPECT_EQ(display[0].GetFirstEvent().GetTime(), Tick(211));
    EXPECT_EQ(display[0].GetFirstEvent().GetEvent().AsController().GetValue(), 40);
    EXPECT_EQ(display[0].GetSecondEvent().GetTime(), Tick(210));
    EXPECT_EQ(display[0].GetSecondEvent().GetEvent().AsController().GetValue(), 20);
    EXPECT_TRUE(display[1].GetFlag());
    EXPECT_EQ(display[1].GetTag(), 7);

    // A wrapper over a display list receives display items too.
    display.Init();
    Vela_EventListWrapper displayOut(display);
    f.mStream.GetMidiEventsInRange(displayOut, Tick(0), Tick(150), Tick(0), Time_Typed::MinTime(kTime_Ticks), nullptr,
                                   nullptr, nullptr, true, 3);
    ASSERT_EQ(display.GetSize(), 1u);
    EXPECT_EQ(display[0].GetTag(), 3);
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
    EXPECT_EQ(stream.GetSubStream(), Mdie_SubStream::PitchBend());
    ASSERT_TRUE(Ndo_gManager.Undo());
    EXPECT_EQ(stream.GetSubStream(), kVolume);
    EXPECT_EQ(stream.GetData()->GetValueAtTime(Tick(100)), 10);
    ASSERT_TRUE(Ndo_gManager.Redo());
    EXPECT_EQ(stream.GetData()->GetValueAtTime(Tick(5)), -100);

    // A state naming another data object takes it; one naming none (or an unknown id) leaves none.
    Vela_ContinuousDataStream_NdoState state;
    state.mSubStream = kVolume;
    state.mDataId = other.GetData()->NdoGetUndoId();
    Vela_ContinuousDataStream borrower(kVolume, Ndo_Object::kNotUndoable, false);
    const Vela_ContinuousData* ownDataP = borrower.GetData();
    borrower.NdoRestoreState(&state);
    EXPECT_EQ(borrower.GetData(), other.GetData());
    state.mDataId = kNdo_NoId;
    borrower.NdoRestoreState(&state);
    EXPECT_EQ(borrower.GetData(), nullptr);
    EXPECT_TRUE(borrower.IsEmpty());
    borrower.AddEvent(Volume(1, 1));  // without data an edit does nothing
    EXPECT_TRUE(borrower.IsEmpty());
    delete ownDataP;  // the borrower gave it up by the restores
    Ndo_gManager.Clear();
}

TEST(ContinuousDataStream, BlockRoundTripsAndDamageThrowsWithoutLeaking) {
    StreamFixture f;
    Sys_MemoryOutStream out;
    f.mStream.StreamOut(out);
    const ByteVector& bytes = out.GetBytes();
    ByteVector mdss;
    Append(mdss, 2, 1);
    Append(mdss, 7, 4);
    ByteVector mdcd;
    Append(mdcd, 3, 4);
    for (int i = 1; i <= 3; ++i) Append(mdcd, Time_TypedDefs::GetRawDataForSave(i * 100, kTime_Ticks), 8), Append(mdcd, i * 10, 4);
    ByteVector body = Block("Mdss", 1, mdss);
    Append(body, Block("MdCD", 1, mdcd));
    ASSERT_EQ(bytes, Block("MdCDS", 2, body));

    Sys_MemoryInStream in(bytes.data(), bytes.size());
    const Vela_ContinuousDataStream read(in, Ndo_Object::kUndoable, true);
    EXPECT_EQ(read.GetSubStream(), kVolume);
    EXPECT_EQ(read.PrintContents(), f.mStream.PrintContents());
    EXPECT_TRUE(read.GetData()->GetSnapTicks());

    for (size_t size = 0; size < bytes.size(); ++size) {
        Sys_MemoryInStream truncated(bytes.data(), size);
        EXPECT_ANY_THROW(Vela_ContinuousDataStream(truncated, Ndo_Object::kUndoable, false)) << size;
    }
    ByteVector badType = bytes;
    badType[31] = 9;  // the sub-stream's type code
    Sys_MemoryInStream badIn(badType.data(), badType.size());
    EXPECT_THROW(Vela_ContinuousDataStream(badIn, Ndo_Object::kNotUndoable, false), Cmn_LocalizedException);
}

TEST(ContinuousDataStream, PlaybackPathsAllocateNothing) {
    StreamFixture f;
    Mdie_ChaseTrackerMap map;
    Mdie_ChaseTracker tracker(&map);
    Mdie_TimedEventList timed;
    timed.Reserve(16);
    Vela_EventListWrapper out(timed);
    Time_Typed time;
    int value = 0;

    AllocCounter counter;
    f.mStream.AccumulateChaseStateAtTime(&tracker, Tick(250), Time_Typed::MinTime(kTime_Ticks), Ticks(0));
    EXPECT_TRUE(f.mStream.GetLastValueChangeBeforeTime(time, value, Tick(250)));
    EXPECT_EQ(f.mStream.GetData()->GetValueAtTime(Tick(250)), 20);
    f.mStream.GetMidiEventsInRange(out, Tick(0), Tick(1000), Ticks(0), kTime_Samples, &tracker, &map, nullptr, false, 0);
    EXPECT_EQ(counter.Count(), 0u);
    EXPECT_EQ(timed.GetSize(), 3u);
}
