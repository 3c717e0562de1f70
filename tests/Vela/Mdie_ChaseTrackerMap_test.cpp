#include "Mdie_ChaseTrackerMap.h"

#include <gtest/gtest.h>

#include "AssertCapture.h"

namespace {

int32_t EntryOf(const Mdie_ChaseTrackerMap& iMap, const Mdie_SubStream& iSubStream) {
    int32_t entry = -99;
    return iMap.GetIndexForSubStream(entry, iSubStream) ? entry : -1;
}

TEST(Mdie_ChaseTrackerMap, StandardMapNumbersEveryEntry) {
    const Mdie_ChaseTrackerMap map;
    ASSERT_EQ(map.GetNumIndices(), 122);
    EXPECT_EQ(map.GetNumChasingIndices(), 122);
    for (int number = 1; number <= 119; ++number) {
        const int32_t entry = EntryOf(map, Mdie_SubStream::Controller(static_cast<int8_t>(number)));
        EXPECT_EQ(entry, number - 1) << number;
        EXPECT_EQ(map.GetEntrySubStream(entry), Mdie_SubStream::Controller(static_cast<int8_t>(number)));
        EXPECT_EQ(map.GetEntryIsReleasing(entry), number == 64) << number;
        EXPECT_TRUE(map.GetEntryIsChasing(entry));
    }
    EXPECT_EQ(EntryOf(map, Mdie_SubStream::PitchBend()), 119);
    EXPECT_EQ(EntryOf(map, Mdie_SubStream::MonoPressure()), 120);
    EXPECT_EQ(EntryOf(map, Mdie_SubStream::Program()), 121);
    for (int32_t entry : {63, 119, 120}) {
        EXPECT_TRUE(map.GetEntryIsReleasing(entry));
        EXPECT_EQ(map.GetEntryReleaseValue(entry), 0);
    }
    EXPECT_FALSE(map.GetEntryIsReleasing(121));
    EXPECT_FALSE(map.GetEntryIsChasing(122));
}

// The lookup goes by global index alone: sub-streams that are never valid share an index with a
// real one and find its entry; unlisted ones and indices out of range are not found.
TEST(Mdie_ChaseTrackerMap, LookupGoesByTheGlobalIndexAlone) {
    const Mdie_ChaseTrackerMap map;
    const std::pair<Mdie_SubStream, int32_t> kCases[] = {
        {Mdie_SubStream::Controller(127), -1},    {Mdie_SubStream::PolyPressure(60), -1},
        {Mdie_SubStream::PolyPressure(-128), -1},  // below index 0
        {Mdie_SubStream::Controller(0), 119},     // pitch bend's index 0
        {Mdie_SubStream::Controller(120), 120},   // channel pressure's index
        {Mdie_SubStream::PolyPressure(-5), 116},  // controller 117
    };
    for (const auto& [subStream, expected] : kCases) EXPECT_EQ(EntryOf(map, subStream), expected) << subStream.GetIndex();
    int32_t entry = 55;
    EXPECT_FALSE(map.GetIndexForSubStreamIndex(entry, -1));
    EXPECT_FALSE(map.GetIndexForSubStreamIndex(entry, 250));
    EXPECT_EQ(entry, 55);  // untouched when not found
    AssertCapture asserts;
    EXPECT_EQ(EntryOf(map, Mdie_SubStream(Vela_ControllerEvent(0, 1))), 119);  // null: index 0
    ASSERT_EQ(asserts.Count(), 1u);
    EXPECT_EQ(asserts.Condition(), "0");
}

TEST(Mdie_ChaseTrackerMap, AppendingASubStreamTwiceIsReportedAndIgnored) {
    Mdie_ChaseTrackerMap map;
    AssertCapture asserts;
    map.AppendEntry(Mdie_SubStream::Controller(64));
    ASSERT_EQ(asserts.Count(), 1u);
    EXPECT_EQ(asserts.Texts()[0], "mapRef == kNullIndex@$^$@NewFileLibs/Vela/Mdie_ChaseTrackerMap.cpp");
    EXPECT_EQ(map.GetNumIndices(), 122);
    EXPECT_EQ(EntryOf(map, Mdie_SubStream::Controller(64)), 63);
    EXPECT_TRUE(map.GetEntryIsReleasing(63));
}

TEST(Mdie_ChaseTrackerMap, ClearUnlinksButKeepsCountingEntries) {
    Mdie_ChaseTrackerMap map;
    map.Clear();
    EXPECT_EQ(map.GetNumIndices(), 122);
    EXPECT_EQ(map.GetNumChasingIndices(), 0);
    for (int32_t index = 0; index < Mdie_SubStream::GetNumIndices(); ++index) {
        int32_t entry = 0;
        EXPECT_FALSE(map.GetIndexForSubStreamIndex(entry, index)) << index;
    }
    // Appends after Clear take the next numbers; only those before DoneAdding... are chased.
    map.AppendEntry(Mdie_SubStream::Controller(7));
    map.DoneAddingChasingEntries();
    map.AppendReleasingEntry(Mdie_SubStream::PolyPressure(60), 5);
    EXPECT_EQ(EntryOf(map, Mdie_SubStream::Controller(7)), 122);
    EXPECT_EQ(EntryOf(map, Mdie_SubStream::PolyPressure(60)), 123);
    EXPECT_TRUE(map.GetEntryIsChasing(122));
    EXPECT_FALSE(map.GetEntryIsChasing(123));
    EXPECT_EQ(map.GetEntryReleaseValue(123), 5);
    EXPECT_FALSE(map.GetEntryIsReleasing(122));
}

TEST(Mdie_ChaseTrackerMap, StandardReleasingNoChasingReleasesThreeAndChasesNone) {
    Mdie_ChaseTrackerMap map;
    map.Clear();
    map.SetStandardReleasingNoChasing();
    EXPECT_EQ(map.GetNumIndices(), 125);
    EXPECT_EQ(map.GetNumChasingIndices(), 122);  // the unreachable old entries
    const Mdie_SubStream released[] = {Mdie_SubStream::PitchBend(), Mdie_SubStream::Controller(64),
                                       Mdie_SubStream::MonoPressure()};
    for (int i = 0; i < 3; ++i) {
        const int32_t entry = EntryOf(map, released[i]);
        EXPECT_EQ(entry, 122 + i);
        EXPECT_FALSE(map.GetEntryIsChasing(entry));
        EXPECT_TRUE(map.GetEntryIsReleasing(entry));
        EXPECT_EQ(map.GetEntryReleaseValue(entry), 0);
    }
    EXPECT_EQ(EntryOf(map, Mdie_SubStream::Controller(1)), -1);
    EXPECT_EQ(EntryOf(map, Mdie_SubStream::Program()), -1);
}

}  // namespace
