// The output wrapper of range queries: which list it fills and reads, sorting of the appended
// tail, the display list's time search, and that the playback path allocates nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "AllocCounter.h"
#include "AssertCapture.h"
#include "BlockBytes.h"
#include "Vela_ExtendedEventList.h"

namespace {

Vela_ExtendedEvent At(int64_t iTime, const Vela_Event& iEvent) { return Vela_ExtendedEvent(Time_Typed(iTime, kTime_Ticks), iEvent); }

Vela_DisplayItem Item(int64_t iTime, const Vela_Event& iEvent) { return Vela_DisplayItem(At(iTime, iEvent), At(iTime, iEvent), false, 0); }

// A random event of a few kinds whose playback priorities differ and coincide.
Vela_Event RandomEvent(std::mt19937& ioRandom) {
    const int8_t value = static_cast<int8_t>(ioRandom() % 128);
    switch (ioRandom() % 4) {
        case 0: return Vela_ControllerEvent(7, value);
        case 1: return Vela_ProgramEvent(value, 0);
        case 2: return Vela_PitchBendEvent(value);
        default: return Vela_NoteWithDurationEvent(value, Time_TypedLength(10, kTime_Ticks), 90, 0);
    }
}

}  // namespace

TEST(EventListWrapper, FillsAndReadsTheFirstListItHolds) {
    Mdie_TimedEventList timed;
    Vela_ExtendedEventList extended;
    Vela_DisplayItemList display;
    Vela_EventListWrapper wrappers[] = {Vela_EventListWrapper(timed), Vela_EventListWrapper(&extended),
                                        Vela_EventListWrapper(display)};
    for (Vela_EventListWrapper& wrapper : wrappers) {
        wrapper.push_back(At(5, Vela_ControllerEvent(7, 1)));
        wrapper.push_back(Item(6, Vela_ControllerEvent(7, 2)));
    }
    EXPECT_EQ(timed.GetSize(), 1u);
    EXPECT_EQ(extended.GetSize(), 1u);
    ASSERT_EQ(display.GetSize(), 1u);
    EXPECT_EQ(display[0].GetDisplayTime(), Time_Typed(6, kTime_Ticks));
    EXPECT_EQ(wrappers[0][0].GetTime(), Time_Typed(5, kTime_Ticks));
    EXPECT_EQ(wrappers[1][0].GetTime(), Time_Typed(5, kTime_Ticks));
    EXPECT_FALSE(wrappers[0].IsExtended() || wrappers[0].IsDisplayList());
    EXPECT_TRUE(wrappers[1].IsExtended() && !wrappers[1].IsDisplayList());
    EXPECT_TRUE(wrappers[2].IsDisplayList() && !wrappers[2].IsExtended());
    EXPECT_EQ(&wrappers[2].LastDisplayItem(), &display[0]);
    for (Vela_EventListWrapper& wrapper : wrappers) EXPECT_EQ(wrapper.size(), 1u);

    AssertCapture asserts;
    EXPECT_EQ(wrappers[2][0].GetEvent().GetType(), Vela_Event::kNull);
    EXPECT_EQ(wrappers[0].GetDisplayItem(0).GetTag(), 0);
    EXPECT_EQ(wrappers[0].GetExtendedEvent(0).GetEvent().GetType(), Vela_Event::kNull);
    ASSERT_EQ(asserts.Count(), 3u);
    EXPECT_EQ(asserts.Condition(0), "mTimedListP != nullptr || mExtListP != nullptr");
    EXPECT_EQ(asserts.Condition(1), "mDisplayItemListP");
}

TEST(EventListWrapper, SortOrdersOnlyTheTailOfEachKindOfList) {
    std::mt19937 random(9);
    for (int round = 0; round < 50; ++round) {
        Mdie_TimedEventList timed;
        Vela_ExtendedEventList extended;
        Vela_DisplayItemList display;
        Vela_EventListWrapper wrappers[] = {Vela_EventListWrapper(timed), Vela_EventListWrapper(extended),
                                            Vela_EventListWrapper(display)};
        const size_t count = random() % 40;
        for (size_t i = 0; i < count; ++i) {
            const int64_t time = random() % 8;
            const Vela_Event event = RandomEvent(random);
            for (Vela_EventListWrapper& wrapper : wrappers) {
                wrapper.push_back(At(time, event));
                wrapper.push_back(Item(time, event));
            }
        }
        const size_t from = random() % (count + 2);
        const std::vector<Mdie_TimedEvent> timedBefore(timed.begin(), timed.end());
        const std::vector<Vela_DisplayItem> displayBefore(display.begin(), display.end());
        for (Vela_EventListWrapper& wrapper : wrappers) wrapper.sort(from);

        const size_t kept = std::min(from, count);
        for (size_t i = 0; i < kept; ++i) {
            EXPECT_EQ(timed[i], timedBefore[i]);
            EXPECT_EQ(static_cast<const Mdie_TimedEvent&>(extended[i]), timedBefore[i]);
            EXPECT_EQ(display[i].GetFirstEvent(), displayBefore[i].GetFirstEvent());
        }
        EXPECT_TRUE(std::is_sorted(timed.begin() + kept, timed.end(), &Mdie_TimedEvent::PlaybackOrdering));
        EXPECT_TRUE(std::is_sorted(extended.begin() + kept, extended.end(), &Mdie_TimedEvent::PlaybackOrdering));
        EXPECT_TRUE(std::is_sorted(display.begin() + kept, display.end(), &Vela_DisplayItem::PlaybackOrdering));
        EXPECT_TRUE(std::is_permutation(timed.begin(), timed.end(), timedBefore.begin()));
    }
}

TEST(DisplayItemList, FindTimeIsTheLowerBoundOfTheDisplayTime) {
    Vela_DisplayItemList display;
    for (int64_t time : {2, 4, 4, 9}) display.PushBack(Item(time, Vela_ControllerEvent(7, 1)));
    for (int64_t time = 0; time <= 10; ++time) {
        const auto expected = std::find_if(display.begin(), display.end(), [&](const Vela_DisplayItem& iItem) {
            return iItem.GetDisplayTime().AsInt64() >= time;
        });
        EXPECT_EQ(display.FindTime(Time_Typed(time, kTime_Ticks)), expected) << time;
    }
}

TEST(EventListWrapper, AppendingIntoReservedRoomAndSortingAllocateNothing) {
    const ByteVector payload = Payload(100);
    const Vela_SysexEvent longSysex(static_cast<int>(payload.size()), payload.data());
    Vela_ExtendedEventList extended;
    extended.Reserve(64);
    Vela_EventListWrapper wrapper(extended);
    AllocCounter counter;
    for (int i = 0; i < 64; ++i) wrapper.push_back(At(64 - i, i % 2 ? Vela_Event(longSysex) : Vela_ControllerEvent(7, 1)));
    wrapper.sort(0);
    EXPECT_EQ(counter.Count(), 0u);
    EXPECT_EQ(extended[0].GetTime().AsInt64(), 1);
}
