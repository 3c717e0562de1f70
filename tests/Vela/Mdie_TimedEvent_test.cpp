// Timed events: equality, playback order, and the "MdTEL" list form.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <vector>

#include "AllocCounter.h"
#include "AssertCapture.h"
#include "BlockBytes.h"
#include "Cmn_Exception.h"
#include "Mdie_TimedEvent.h"
#include "StreamValues.h"

namespace {

Vela_SysexEvent Sysex(const ByteVector& iPayload) { return Vela_SysexEvent(static_cast<int>(iPayload.size()), iPayload.data()); }

Mdie_TimedEvent Note(int64_t iStart, int64_t iLength, Time_EType iType) {
    return Mdie_TimedEvent(Time_Typed(iStart, iType),
                           Vela_NoteWithDurationEvent(60, Time_TypedLength(iLength, iType), 100, 0));
}

// Two timed sysex events, a short one and a long one, and their expected "MdTEL" bytes.
struct SysexListFixture {
    ByteVector mShort = ByteVector{0x7E, 0x7F, 0x09, 0x01};
    ByteVector mLong = Payload(1500);
    Time_Typed mFirst{480, kTime_Ticks};
    Time_Typed mSecond{-20, kTime_Samples};
    Mdie_TimedEventList mList;

    SysexListFixture() {
        mList.PushBack(Mdie_TimedEvent(mFirst, Sysex(mShort)));
        mList.PushBack(Mdie_TimedEvent(mSecond, Sysex(mLong)));
    }
    ByteVector Expected() const {
        ByteVector body;
        Append(body, 2, 4);
        Append(body, Time_TypedDefs::GetRawDataForSave(mFirst.AsInt64(), mFirst.GetType()), 8);
        Append(body, SysexBlock(mShort));
        Append(body, Time_TypedDefs::GetRawDataForSave(mSecond.AsInt64(), mSecond.GetType()), 8);
        Append(body, SysexBlock(mLong));
        return Block("MdTEL", 1, body);
    }
};

}  // namespace

TEST(TimedEvent, EqualityComparesTimeAndEventButNotTheSource) {
    const Time_Typed t(100, kTime_Ticks);
    const Mdie_TimedEvent a(t, Vela_NoteOnEvent(60, 100), Mdie_SourceStamp{3, 1});
    EXPECT_TRUE(a == Mdie_TimedEvent(t, Vela_NoteOnEvent(60, 100)));
    EXPECT_FALSE(a == Mdie_TimedEvent(Time_Typed(101, kTime_Ticks), Vela_NoteOnEvent(60, 100)));
    EXPECT_FALSE(a == Mdie_TimedEvent(t, Vela_NoteOnEvent(60, 99)));
}

// Random timed events, their times half in samples and half in ticks (40 per sample at the
// default rate), sorted against a plain oracle: by instant, then by priority group, ties kept.
TEST(TimedEvent, PlaybackOrderIsTimeThenPriorityAndAStableSortKeepsTies) {
    const Time_TypedLength len(10, kTime_Ticks);
    // Priority groups in playback order: transport, song position, quarter frames and the like;
    // controller releases; programs; controllers; bend, pressure and sysex; note-offs; notes.
    const std::vector<std::vector<Vela_Event>> kByPriority = {
        {Vela_StartEvent(), Vela_SongPositionEvent(4), Vela_QuarterFrameEvent(0x21), Vela_AllNotesOffEvent()},
        {Vela_ReleaseControllerEvent(1)},
        {Vela_ProgramEvent(1, 0)},
        {Vela_ControllerEvent(7, 1)},
        {Vela_PitchBendEvent(5), Vela_MonoPressureEvent(3), Vela_PolyPressureEvent(60, 3), Sysex(Payload(2))},
        {Vela_NoteOffEvent(60, 0)},
        {Vela_NoteOnEvent(60, 100), Vela_NoteWithDurationEvent(62, len, 90, 0)},
    };
    struct Item {
        Mdie_TimedEvent mTimed;
        int64_t mSample;
        size_t mPriority;
    };
    std::mt19937 rng(5);
    std::vector<Item> oracle;
    std::vector<Mdie_TimedEvent> events;
    for (int i = 0; i < 400; ++i) {
        const int64_t sample = rng() % 4;
        const size_t priority = rng() % kByPriority.size();
        const Vela_Event& event = kByPriority[priority][rng() % kByPriority[priority].size()];
        const Time_Typed time = rng() % 2 ? Time_Typed(sample, kTime_Samples) : Time_Typed(sample * 40, kTime_Ticks);
        oracle.push_back({Mdie_TimedEvent(time, event), sample, priority});
        events.push_back(oracle.back().mTimed);
    }
    std::stable_sort(oracle.begin(), oracle.end(), [](const Item& iA, const Item& iB) {
        return std::make_pair(iA.mSample, iA.mPriority) < std::make_pair(iB.mSample, iB.mPriority);
    });
    std::vector<Mdie_TimedEvent> unstable = events;
    std::stable_sort(events.begin(), events.end(), Mdie_TimedEvent::PlaybackOrdering);
    for (size_t i = 0; i < events.size(); ++i) ASSERT_TRUE(events[i] == oracle[i].mTimed) << "position " << i << ", type " << int(oracle[i].mTimed.GetEvent().GetType());

    AllocCounter counter;  // playback sorts in place
    std::sort(unstable.begin(), unstable.end(), Mdie_TimedEvent::PlaybackOrdering);
    EXPECT_EQ(counter.Count(), 0u);
    EXPECT_TRUE(std::is_sorted(unstable.begin(), unstable.end(), Mdie_TimedEvent::PlaybackOrdering));
    EXPECT_FALSE(Mdie_TimedEvent::PlaybackOrdering(unstable[0], unstable[0]));
}

TEST(TimedEventList, StreamsAsCountThenTimeAndEventBlockPerEventAndReadsBack) {
    const SysexListFixture fixture;
    const ByteVector bytes = StreamedBytes(fixture.mList);
    EXPECT_EQ(bytes, fixture.Expected());
    Mdie_TimedEventList back;
    back.PushBack(Note(0, 1, kTime_Ticks));  // replaced, not appended to
    StreamInFrom(bytes, back);
    ASSERT_EQ(back.GetSize(), 2u);
    EXPECT_EQ(back[0].GetTime().GetType(), kTime_Ticks);
    EXPECT_EQ(back[1].GetTime().GetType(), kTime_Samples);
    EXPECT_TRUE(back[0] == fixture.mList[0]);
    EXPECT_EQ(StreamedBytes(back), bytes);  // times and the long payload came back whole

    const ByteVector empty = Block("MdTEL", 1, ByteVector(4, 0));
    EXPECT_EQ(StreamedBytes(Mdie_TimedEventList()), empty);
    StreamInFrom(empty, back);
    EXPECT_TRUE(back.IsEmpty());
}

// A document whose event block carries a non-zero null flag reads as a list holding the null
// event; saved again (with a note, which the block cannot carry either), it must load whole.
TEST(TimedEventList, EventsTheBlockCannotCarryAreAssertedAndWrittenAsNullFlags) {
    auto document = [](uint8_t iNullFlag, bool iWithNote) {
        ByteVector body;
        Append(body, iWithNote ? 3 : 2, 4);
        Append(body, 0, 8), Append(body, Block("", 1, ByteVector{iNullFlag}));
        Append(body, 0, 8), Append(body, SysexBlock({1, 2, 3}));
        if (iWithNote) Append(body, Time_TypedDefs::GetRawDataForSave(7, kTime_Ticks), 8), Append(body, Block("", 1, ByteVector{1}));
        return Block("MdTEL", 1, body);
    };
    Mdie_TimedEventList list;
    StreamInFrom(document(5, false), list);
    EXPECT_EQ(list[0].GetEvent().GetType(), Vela_Event::kNull);
    list.PushBack(Note(7, 1, kTime_Ticks));
    AssertCapture asserts;
    EXPECT_EQ(StreamedBytes(list), document(1, true));  // the sysex block kept, the others a null flag 1
    EXPECT_EQ(asserts.Count(), 2u);
    EXPECT_EQ(asserts.Condition(), "0");
    StreamInFrom(document(1, true), list);
    EXPECT_EQ(list.GetSize(), 3u);
}

// Truncations are the damaged-document test's (a chunk holds a list); impossible counts are
// refused before anything is reserved for them.
TEST(TimedEventList, ImpossibleCountsFailWithAStreamExceptionBeforeReserving) {
    for (int32_t count : {-1, 0x7FFFFFFF}) {
        ByteVector body;
        Append(body, count, 4);
        Mdie_TimedEventList list;
        EXPECT_THROW(StreamInFrom(Block("MdTEL", 1, body), list), Sys_StreamException);
        EXPECT_EQ(list.GetCapacity(), 0u);
    }
}

TEST(TimedEventList, LatestNoteOffIsTheLatestEndOfTheNotesWithDuration) {
    Mdie_TimedEventList list;
    EXPECT_EQ(list.GetLatestNoteOff(), Time_Typed(0, kTime_Samples));
    list.PushBack(Note(0, 25, kTime_Samples));
    list.PushBack(Note(5, 5, kTime_Samples));
    list.PushBack(Mdie_TimedEvent(Time_Typed(100, kTime_Samples), Vela_NoteOnEvent(60, 100)));
    const Time_Typed latest = list.GetLatestNoteOff();
    EXPECT_EQ(latest.AsInt64(), 25);
    EXPECT_EQ(latest.GetType(), kTime_Samples);
}
