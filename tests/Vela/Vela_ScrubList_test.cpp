#include "Vela_ScrubList.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "AllocCounter.h"

namespace {

Mdie_TimedEvent Note(int64_t iStart, int iPitch, int64_t iLength) {
    return Mdie_TimedEvent(Time_Typed(iStart, kTime_Ticks),
                           Vela_NoteWithDurationEvent(int8_t(iPitch), Time_TypedLength(iLength, kTime_Ticks), 90, 30));
}
Mdie_TimedEvent Bend(int64_t iTime, int iValue) {
    return Mdie_TimedEvent(Time_Typed(iTime, kTime_Ticks), Vela_PitchBendEvent(int16_t(iValue)));
}

using Item = std::tuple<int64_t, int, int>;  // time, kind, value

// Every event MoveTowards hands out until it answers null.
std::vector<Item> Scrub(Vela_ScrubList& ioList, int64_t iTo) {
    std::vector<Item> items;
    while (const Vela_ScrubEvent* e = ioList.MoveTowards(Time_Typed(iTo, kTime_Ticks))) items.emplace_back(e->mTime, e->GetKind(), e->mValue);
    return items;
}

std::vector<Item> Walk(const Vela_ScrubList& iList) {
    std::vector<Item> items;
    for (const Vela_ScrubEvent* e = iList.GetHead(); e; e = e->mNextP) items.emplace_back(e->mTime, e->GetKind(), e->mValue);
    return items;
}

bool Passed(const Item& iItem, int64_t iTime) {
    return std::get<0>(iItem) < iTime || (std::get<0>(iItem) == iTime && std::get<1>(iItem) < 2);
}

}  // namespace

TEST(Vela_ScrubList, ZeroLengthNotesAndStepsAtTheCursorTime) {
    Vela_ScrubList list;
    list.AddNote(Note(10, 60, 0), false);  // into an empty list: on, then off, as given
    list.AddNote(Note(20, 62, 0), false);
    list.AddNote(Note(30, 64, 0), true);
    list.AddPitchBend(Bend(20, 5), -5, true);
    const int n60 = 60 | 90 << 8, n62 = 62 | 90 << 8, n64 = 64 | 90 << 8;
    EXPECT_EQ(Walk(list), (std::vector<Item>{{10, 3, n60}, {10, 0, n60}, {20, 0, n62}, {20, 1, 0xFFFB}, {20, 2, 5},
                                              {20, 3, n62}, {30, 0, n64}, {30, 3, n64}}));
    Scrub(list, 15);
    EXPECT_EQ(Scrub(list, 20), (std::vector<Item>{{20, 0, n62}, {20, 1, 0xFFFB}})) << "kinds 0 and 1 are passed at their time";
    EXPECT_EQ(Scrub(list, 25), (std::vector<Item>{{20, 2, 5}, {20, 3, n62}}));
    EXPECT_EQ(Scrub(list, 19), (std::vector<Item>{{20, 3, n62}, {20, 2, 5}, {20, 1, 0xFFFB}, {20, 0, n62}}));
    EXPECT_EQ(list.GetCurrentTime(), 19);
}

// Random notes and bends, added from either end and scrubbed to random places: each scrub must
// hand out exactly the events whose side of the position changed, in the direction of travel.
TEST(Vela_ScrubList, RandomScrubsReturnExactlyTheEventsPassed) {
    std::mt19937 random(35);
    auto below = [&](int n) { return int(random() % unsigned(n)); };
    for (int round = 0; round < 30; ++round) {
        Vela_ScrubList list;
        std::vector<Item> model;
        int64_t position = 0;
        for (int step = 0; step < 300; ++step) {
            const int64_t t = below(200);
            if (below(3) == 0) {
                const int64_t to = below(220) - 10;
                std::vector<Item> expected;
                for (const Item& item : model)
                    if (Passed(item, position) != Passed(item, to)) expected.push_back(item);
                std::sort(expected.begin(), expected.end());
                if (to < position) std::reverse(expected.begin(), expected.end());
                std::vector<Item> got = Scrub(list, to);
                auto timeAndKind = [](std::vector<Item> v) {
                    for (Item& item : v) std::get<2>(item) = 0;
                    return v;
                };
                ASSERT_EQ(timeAndKind(got), timeAndKind(expected)) << round << " " << step;
                std::sort(got.begin(), got.end());
                std::sort(expected.begin(), expected.end());
                ASSERT_EQ(got, expected);
                position = to;
                ASSERT_EQ(list.GetCurrentTime(), to);
            } else if (below(2)) {
                const int pitch = below(128), length = 1 + below(40);
                list.AddNote(Note(t, pitch, length), below(2));
                model.emplace_back(t, 3, pitch | 90 << 8);
                model.emplace_back(t + length, 0, pitch | 90 << 8);
            } else {
                const int before = below(100), after = below(100);
                list.AddPitchBend(Bend(t, after), short(before), below(2));
                model.emplace_back(t, 1, before);
                model.emplace_back(t, 2, after);
            }
        }
        std::vector<Item> walked = Walk(list);
        ASSERT_TRUE(std::is_sorted(walked.begin(), walked.end(), [](const Item& a, const Item& b) {
            return std::tie(std::get<0>(a), std::get<1>(a)) < std::tie(std::get<0>(b), std::get<1>(b));
        }));
        std::sort(walked.begin(), walked.end());
        std::sort(model.begin(), model.end());
        ASSERT_EQ(walked, model);
    }
}

TEST(Vela_ScrubList, AfterWarmUpScrubbingReusesPooledEvents) {
    Vela_ScrubList list;
    auto fill = [&] {
        for (int i = 0; i < 600; ++i) {
            list.AddNote(Note(i, 60, 5), false);
            list.AddPitchBend(Bend(i, 1), 0, true);
        }
    };
    fill();  // warm-up: the pool grows to hold 2,400 events
    std::set<const Vela_ScrubEvent*> used;
    for (const Vela_ScrubEvent* e = list.GetHead(); e; e = e->mNextP) used.insert(e);
    AllocCounter counter;
    list.Clear();
    EXPECT_EQ(list.GetHead(), nullptr);
    fill();
    EXPECT_TRUE(used.count(list.GetHead()) == 1) << "released events come back first";
    while (list.MoveTowards(Time_Typed(700, kTime_Ticks))) {
    }
    list.Clear();
    EXPECT_EQ(counter.Count(), 0u);
}
