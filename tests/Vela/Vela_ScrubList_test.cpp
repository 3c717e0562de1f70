#include "Vela_ScrubList.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <tuple>
#include <vector>

#include "AllocCounter.h"

namespace {

Mdie_TimedEvent Note(int64_t iStart, int iPitch, int64_t iLength) {
    return Mdie_TimedEvent(Time_Typed(iStart, kTime_Ticks), Vela_NoteWithDurationEvent(int8_t(iPitch), {iLength, kTime_Ticks}, 90, 30));
}
Mdie_TimedEvent Bend(int64_t iTime, int iValue) { return Mdie_TimedEvent(Time_Typed(iTime, kTime_Ticks), Vela_PitchBendEvent(int16_t(iValue))); }

using Item = std::tuple<int64_t, int, int>;  // time, kind, value

std::vector<Item> Scrub(Vela_ScrubList& ioList, int64_t iTo) {  // every event handed out until null
    std::vector<Item> items;
    while (const Vela_ScrubEvent* e = ioList.MoveTowards(Time_Typed(iTo, kTime_Ticks))) items.emplace_back(e->mTime, e->GetKind(), e->mValue);
    return items;
}

std::vector<Item> Walk(const Vela_ScrubList& iList) {
    std::vector<Item> items;
    for (const Vela_ScrubEvent* e = iList.GetHead(); e; e = e->mNextP) items.emplace_back(e->mTime, e->GetKind(), e->mValue);
    return items;
}

}  // namespace

TEST(Vela_ScrubList, ZeroLengthNotesAndStepsAtTheCursorTime) {
    Vela_ScrubList list;
    list.AddNote(Note(10, 60, 0), false);  // into an empty list: on, then off, as given
    list.AddNote(Note(20, 62, 0), false);
    list.AddNote(Note(30, 64, 0), true);
    list.AddPitchBend(Bend(20, 5), -5, true);
    const int n60 = 60 | 90 << 8, n62 = 62 | 90 << 8, n64 = 64 | 90 << 8;
    EXPECT_EQ(Walk(list), (std::vector<Item>{{10, 3, n60}, {10, 0, n60}, {20, 0, n62}, {20, 1, 0xFFFB}, {20, 2, 5}, {20, 3, n62}, {30, 0, n64}, {30, 3, n64}}));
    Scrub(list, 15);
    EXPECT_EQ(Scrub(list, 20), (std::vector<Item>{{20, 0, n62}, {20, 1, 0xFFFB}})) << "kinds 0 and 1 are passed at their time";
    EXPECT_EQ(Scrub(list, 19), (std::vector<Item>{{20, 1, 0xFFFB}, {20, 0, n62}})) << "and stepped back over in reverse";
}

// Random notes and bends, added from either end and scrubbed to random places: each scrub hands
// out exactly the events whose side of the position changed, in the direction of travel.
TEST(Vela_ScrubList, RandomScrubsReturnExactlyTheEventsPassed) {
    std::mt19937 random(35);
    auto below = [&](int n) { return int(random() % unsigned(n)); };
    auto passed = [](const Item& iItem, int64_t iTime) { return std::get<0>(iItem) < iTime || (std::get<0>(iItem) == iTime && std::get<1>(iItem) < 2); };
    auto timeAndKind = [](std::vector<Item> v) {
        for (Item& item : v) std::get<2>(item) = 0;  // equal times and kinds may come in either order
        return v;
    };
    for (int round = 0; round < 30; ++round) {
        Vela_ScrubList list;
        std::vector<Item> model;
        int64_t position = 0;
        for (int step = 0; step < 300; ++step) {
            const int64_t t = below(200), to = below(220) - 10;
            const int a = below(128), b = 1 + below(40);
            if (step % 3 == 0) {
                std::vector<Item> expected, got = Scrub(list, to);
                std::copy_if(model.begin(), model.end(), std::back_inserter(expected), [&](const Item& i) { return passed(i, position) != passed(i, to); });
                std::sort(expected.begin(), expected.end());
                if (to < position) std::reverse(expected.begin(), expected.end());
                ASSERT_EQ(timeAndKind(got), timeAndKind(expected)) << round << " " << step;
                std::sort(got.begin(), got.end());
                std::sort(expected.begin(), expected.end());
                ASSERT_EQ(got, expected);
                ASSERT_EQ(list.GetCurrentTime(), position = to);
            } else if (below(2)) {
                list.AddNote(Note(t, a, b), below(2));
                model.insert(model.end(), {{t, 3, a | 90 << 8}, {t + b, 0, a | 90 << 8}});
            } else {
                list.AddPitchBend(Bend(t, b), short(a), below(2));
                model.insert(model.end(), {{t, 1, a}, {t, 2, b}});
            }
        }
        std::vector<Item> walked = Walk(list);
        ASSERT_TRUE(std::is_sorted(walked.begin(), walked.end(), [](const Item& x, const Item& y) { return std::get<0>(x) < std::get<0>(y) || (std::get<0>(x) == std::get<0>(y) && std::get<1>(x) < std::get<1>(y)); }));
        std::sort(walked.begin(), walked.end());
        std::sort(model.begin(), model.end());
        ASSERT_EQ(walked, model);
    }
}

TEST(Vela_ScrubList, AfterWarmUpScrubbingReusesPooledEvents) {
    Vela_ScrubList list;
    auto fill = [&] {
        for (int i = 0; i < 600; ++i) list.AddNote(Note(i, 60, 5), false), list.AddPitchBend(Bend(i, 1), 0, true);
    };
    fill();  // the pool grows to hold 2,400 events
    const Vela_ScrubEvent* tailP = list.GetHead();
    while (tailP->mNextP) tailP = tailP->mNextP;
    AllocCounter counter;
    list.Clear();
    EXPECT_EQ(list.GetHead(), nullptr);
    list.AddNote(Note(0, 60, 5), false);
    EXPECT_EQ(list.GetHead(), tailP) << "the last event released is the first reused";
    list.Clear();
    fill();
    while (list.MoveTowards(Time_Typed(700, kTime_Ticks))) {
    }
    EXPECT_EQ(counter.Count(), 0u);
    list.Clear();
}
