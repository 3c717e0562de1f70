// Continuous data segments: every edit and lookup against a std::map, with undo and redo of each
// step and the undo marks; snapping; the "MdCD" block.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <vector>

#include "AssertCapture.h"
#include "BlockBytes.h"
#include "LocalizedError.h"
#include "Ndo_Manager.h"
#include "StreamValues.h"
#include "UndoMarks.h"
#include "Vela_ContinuousData.h"

namespace {

using Oracle = std::map<int64_t, int32_t>;

Time_Typed Tick(int64_t iCount) { return Time_Typed(iCount, kTime_Ticks); }
Time_TypedLength Ticks(int64_t iCount) { return Time_TypedLength(iCount, kTime_Ticks); }

Oracle Contents(const Vela_ContinuousData& iData) {
    Oracle contents;
    for (const Vela_ContinuousData_Segment& segment : iData.GetSegments()) {
        EXPECT_TRUE(contents.empty() || contents.rbegin()->first < segment.mTime.AsInt64());
        contents[segment.mTime.AsInt64()] = segment.mValue;
    }
    return contents;
}

ByteVector MdCD(const std::vector<std::pair<Time_Typed, int32_t>>& iSegments, int32_t iCount) {
    ByteVector body;
    Append(body, iCount, 4);
    for (const auto& [time, value] : iSegments) {
        Append(body, Time_TypedDefs::GetRawDataForSave(time.AsInt64(), time.GetType()), 8);
        Append(body, value, 4);
    }
    return Block("MdCD", 1, body);
}

int MessageIdOfReading(const ByteVector& iBytes) {
    Vela_ContinuousData data(Ndo_Object::kNotUndoable, false);
    return LocalizedMessageIdOf([&] { StreamInFrom(iBytes, data); });
}

}  // namespace

TEST(ContinuousData, MixedEditsMatchAMapAndUndoRedoEachStep) {
    Ndo_gManager.Clear();
    Ndo_gManager.SetHistoryDepth(100000);
    std::mt19937 random(41);
    auto below = [&](int64_t iN) { return static_cast<int64_t>(random() % static_cast<uint64_t>(iN)); };

    Vela_ContinuousData data(Ndo_Object::kUndoable, false);
    Oracle oracle;
    std::vector<Oracle> history{oracle};  // the state after each step, [0, done] done
    size_t done = 0;

    for (int step = 0; step < 4000; ++step) {
        const int64_t start = below(220) - 10, end = start + below(60) - 5, offset = below(80) - 40;
        Vela_ContinuousData source(Ndo_Object::kNotUndoable, false);
        Oracle sourceOracle;
        for (int i = below(12); i > 0; --i) {
            const int64_t time = below(200);
            source.SetValueAtTime(Tick(time), sourceOracle[time] = static_cast<int32_t>(below(4)));
        }
        auto inRange = [&](int64_t iTime) { return iTime >= start && iTime < end; };

        Oracle expected = oracle;
        bool expectMark = false, edit = true;
        const int kind = static_cast<int>(below(9));
        if (kind < 3) {
            const int64_t time = below(200);
            const int32_t value = static_cast<int32_t>(below(4));
            expected[time] = value;
            expectMark = true;
            EXPECT_TRUE(MarkedBy(data, [&] { EXPECT_EQ(data.SetValueAtTime(Tick(time), value)->mValue, value); }));
        } else if (kind == 3) {
            for (auto i = expected.lower_bound(start); i != expected.end() && i->first < end;) expectMark = true, i = expected.erase(i);
            EXPECT_EQ(MarkedBy(data, [&] { data.EraseRange(Tick(start), Tick(end)); }), expectMark);
        } else if (kind == 4) {
            for (const auto& [time, value] : sourceOracle)
                if (inRange(time)) expected[time + offset] = value, expectMark = true;
            EXPECT_EQ(MarkedBy(data, [&] { data.AddFromData(source, Tick(start), Tick(end), Ticks(offset)); }), expectMark);
        } else if (kind == 5) {
            for (const auto& [time, value] : sourceOracle) {
                if (!inRange(time)) continue;
                expectMark = true;
                if (auto own = expected.find(time + offset); own != expected.end() && own->second == value) expected.erase(own);
            }
            EXPECT_EQ(MarkedBy(data, [&] { data.EraseFromData(source, Tick(start), Tick(end), Ticks(offset)); }), expectMark);
        } else if (kind == 6 && done > 0) {
            edit = false;
            ASSERT_TRUE(Ndo_gManager.Undo());
            expected = history[--done];
        } else if (kind == 7 && done + 1 < history.size()) {
            edit = false;
            ASSERT_TRUE(Ndo_gManager.Redo());
            expected = history[++done];
        } else {
            edit = false;
            // Lookups at and around every time.
            const int64_t time = below(220) - 10;
            Time_Typed found;
            int32_t value = -1;
            const auto after = oracle.upper_bound(time);
            if (after != oracle.begin()) {
                EXPECT_EQ(data.GetValueAtTime(Tick(time)), std::prev(after)->second);
            }
            const auto atOrAfter = oracle.lower_bound(time);
            ASSERT_EQ(data.GetLastValueChangeBeforeTime(found, value, Tick(time)), atOrAfter != oracle.begin());
            if (atOrAfter != oracle.begin()) {
                EXPECT_EQ(found.AsInt64(), std::prev(atOrAfter)->first);
            }
        }
        if (edit && expectMark) {
            history.resize(++done);
            history.push_back(expected);
        }
        oracle = expected;
        ASSERT_EQ(Contents(data), oracle) << "step " << step << " kind " << kind;
    }
    Ndo_gManager.Clear();
    Ndo_gManager.SetHistoryDepth(100);
}

TEST(ContinuousData, OffsetsSnapTickTimesOnlyWhenBothSwitchesAreOn) {
    const int64_t grid = Time_Globals::GetCoarseInternalTickGrid();
    for (auto [active, snap] : {std::pair{false, true}, {true, false}, {true, true}}) {
        TickTimesMatter::SetActive(active);
        Vela_ContinuousData source(Ndo_Object::kNotUndoable, false), data(Ndo_Object::kNotUndoable, snap);
        for (int64_t time : {int64_t(100), int64_t(200), grid + 10}) source.SetValueAtTime(Tick(time), static_cast<int32_t>(time));
        data.AddFromData(source, Tick(0), Tick(grid * 2), Ticks(50));
        data.OffsetTimes(Ticks(7));
        // Snapped, 150 and 250 both land on 0 and the earlier copy wins.
        const int32_t last = static_cast<int32_t>(grid + 10);
        const Oracle expected = active && snap ? Oracle{{0, 100}, {grid, last}} : Oracle{{157, 100}, {257, 200}, {grid + 67, last}};
        EXPECT_EQ(Contents(data), expected);
    }
    TickTimesMatter::SetActive(false);
}

TEST(ContinuousData, BlockBytesRoundTripDamageAndReports) {
    Vela_ContinuousData data(Ndo_Object::kNotUndoable, false);
    data.SetValueAtTime(Time_Typed(7, kTime_Samples), -3);
    data.SetValueAtTime(Tick(1000), 127);
    const ByteVector expected = MdCD({{Time_Typed(7, kTime_Samples), -3}, {Tick(1000), 127}}, 2);
    ASSERT_EQ(StreamedBytes(data), expected);

    // Repeated times keep one segment with the last value; going back in time or a negative
    // count is bad data (100).
    Vela_ContinuousData read(Ndo_Object::kNotUndoable, false);
    read.SetValueAtTime(Tick(1), 1);
    StreamInFrom(MdCD({{Tick(5), 1}, {Tick(5), 2}, {Tick(9), 3}, {Tick(9), 4}}, 4), read);
    EXPECT_EQ(Contents(read), (Oracle{{5, 2}, {9, 4}}));
    EXPECT_EQ(MessageIdOfReading(MdCD({{Tick(5), 1}, {Tick(4), 2}}, 2)), 100);
    EXPECT_EQ(MessageIdOfReading(MdCD({}, -1)), 100);
    EXPECT_ANY_THROW(StreamInFrom(MdCD({{Tick(5), 1}, {Tick(4), 2}}, 2), read));  // and loses nothing
    EXPECT_EQ(Contents(read), (Oracle{{5, 2}, {9, 4}}));

    // A negative time is reported on writing but still written, and reads back.
    Vela_ContinuousData negative(Ndo_Object::kNotUndoable, false);
    negative.SetValueAtTime(Tick(-20), 1);
    negative.SetValueAtTime(Tick(-10), 2);
    AssertCapture asserts;
    StreamInFrom(StreamedBytes(negative), read);
    EXPECT_EQ(Contents(read), (Oracle{{-20, 1}, {-10, 2}}));
    // Asking before the first segment, or restoring a foreign state, is reported too.
    EXPECT_EQ(read.GetValueAtTime(Tick(-21)), 0);
    read.NdoRestoreState(nullptr);
    EXPECT_EQ(read.GetSize(), 2u);
    ASSERT_EQ(asserts.Count(), 3u);
    EXPECT_EQ(asserts.Condition(0), "iter->mTime.AsInt64() >= previousTime.AsInt64()");
    EXPECT_EQ(asserts.Condition(1), "i != mSegments.begin()");
    EXPECT_EQ(asserts.Condition(2), "p != 0");
}
