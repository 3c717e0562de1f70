#include "Time_Typed.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <limits>
#include <utility>

#include "AssertCapture.h"

namespace {

constexpr int64_t kInt64Max = std::numeric_limits<int64_t>::max();
constexpr int64_t kInt64Min = std::numeric_limits<int64_t>::min();
Time_Typed Ticks(int64_t iCount) { return Time_Typed(iCount, kTime_Ticks); }
Time_Typed Samples(int64_t iCount) { return Time_Typed(iCount, kTime_Samples); }
Time_TypedLength TickLen(int64_t iCount) { return Time_TypedLength(iCount, kTime_Ticks); }
Time_TypedLength SampleLen(int64_t iCount) { return Time_TypedLength(iCount, kTime_Samples); }
// Count and kind together, so one table row checks both.
template <class TTime>
std::pair<int64_t, Time_EType> CountKind(const TTime& iTime) { return {iTime.AsInt64(), iTime.GetType()}; }

// Restores the process-wide settings a test changes.
class TimeTypedTest : public ::testing::Test {
protected:
    void TearDown() override {
        Time_Globals::SetSampleRate(48000.0);
        Time_Globals::SetCoarseInternalTickGrid(9600);
    }
};

TEST_F(TimeTypedTest, ConversionAtTheDefaultsIsFortyTicksPerSampleRoundingHalvesUp) {
    const struct { Time_Typed mFrom; Time_EType mTo; int64_t mExpected; } kCases[] = {
        {Samples(3), kTime_Ticks, 120}, {Samples(-5), kTime_Ticks, -200}, {Ticks(59), kTime_Samples, 1},
        {Ticks(60), kTime_Samples, 2},  {Ticks(-60), kTime_Samples, -1},  {Ticks(-61), kTime_Samples, -2},
    };
    for (const auto& c : kCases) EXPECT_EQ(Time_Convert::ToType(c.mFrom, c.mTo).AsInt64(), c.mExpected) << c.mFrom.AsInt64();
    EXPECT_EQ(Time_Convert::ToTick(Samples(3)).AsInt64(), 120);
    EXPECT_EQ(Time_Convert::ToType(TickLen(100), kTime_Samples).AsInt64(), 3);
}

TEST_F(TimeTypedTest, CrossKindComparisonIsExactEvenForHugeCounts) {
    EXPECT_TRUE(Samples(1) == Ticks(40) && Samples(1) <= Ticks(40) && Samples(1) >= Ticks(40));
    EXPECT_TRUE(Ticks(39) < Samples(1) && Samples(1) < Ticks(41) && Samples(1) != Ticks(39));
    EXPECT_TRUE(TickLen(79) < SampleLen(2) && SampleLen(2) == TickLen(80));
    // Scaled, 2^56 samples are past what a double holds exactly; the neighbour tick must still differ.
    const int64_t samples = int64_t(1) << 56;
    EXPECT_TRUE(Samples(samples) < Ticks(samples * 40 + 1) && Samples(samples) == Ticks(samples * 40));
    Time_Globals::SetSampleRate(44100.0);  // 147 samples are exactly 6400 ticks
    EXPECT_TRUE(Samples(147) == Ticks(6400));
    EXPECT_TRUE(Samples(147 * (int64_t(1) << 40)) > Ticks(6400 * (int64_t(1) << 40) - 1));
}

TEST_F(TimeTypedTest, ArithmeticKeepsTheLeftKindAndConvertsTheRight) {
    Time_Typed t = Ticks(0);
    Time_TypedLength len = SampleLen(3);
    const std::pair<int64_t, Time_EType> kResults[][2] = {
        {CountKind(Ticks(100) + SampleLen(2)), {180, kTime_Ticks}},
        {CountKind(Samples(10) + TickLen(100)), {13, kTime_Samples}},  // 2.5 samples rounds up
        {CountKind(Samples(10) - TickLen(40)), {9, kTime_Samples}},
        {CountKind((t += TickLen(5)) -= SampleLen(1)), {-35, kTime_Ticks}},
        {CountKind(Samples(10) - Ticks(80)), {8, kTime_Samples}},
        {CountKind(TickLen(10) + SampleLen(1)), {50, kTime_Ticks}},
        {CountKind(len -= TickLen(40)), {2, kTime_Samples}},
        {CountKind(Time_Convert::AddLength(Samples(1), TickLen(40))), {2, kTime_Samples}},
    };
    for (size_t i = 0; i < std::size(kResults); ++i) EXPECT_EQ(kResults[i][0], kResults[i][1]) << "case " << i;
}

TEST_F(TimeTypedTest, MinAndMaxTimeBoundEveryTimeOfEitherKind) {
    for (Time_EType limitKind : {kTime_Samples, kTime_Ticks}) {
        const Time_Typed minT = Time_Typed::MinTime(limitKind);
        const Time_Typed maxT = Time_Typed::MaxTime(limitKind);
        for (Time_EType kind : {kTime_Samples, kTime_Ticks}) {
            for (int64_t count : {kTime_MinCount + 1, int64_t(-1), int64_t(0), kTime_MaxCount - 1}) {
                const Time_Typed t(count, kind);
                EXPECT_TRUE(minT < t && t < maxT) << count << " kind " << kind << " limit kind " << limitKind;
            }
            EXPECT_TRUE(maxT == Time_Typed::MaxTime(kind) && minT == Time_Typed::MinTime(kind));
        }
    }
    // Counts beyond the range mean the same as its ends.
    EXPECT_TRUE(Ticks(kInt64Max) == Time_Typed::MaxTime(kTime_Samples));
    EXPECT_TRUE(Samples(kInt64Min) == Time_Typed::MinTime(kTime_Ticks));
    EXPECT_TRUE(Ticks(kInt64Max) == Time_Typed::MaxTime(kTime_Ticks) && Samples(kInt64Min) < Samples(kTime_MinCount + 1));
    EXPECT_EQ(Time_Convert::ToTick(Time_Typed::MaxTime(kTime_Samples)), Time_Typed::MaxTime(kTime_Ticks));
    EXPECT_EQ(Time_Convert::ToType(Time_Typed::MinTime(kTime_Ticks), kTime_Samples).AsInt64(), kTime_MinCount);
}

TEST_F(TimeTypedTest, ArithmeticSaturatesAndTheEndsStayPut) {
    const Time_Typed maxT = Time_Typed::MaxTime(kTime_Ticks);
    const Time_Typed minT = Time_Typed::MinTime(kTime_Samples);
    const struct { Time_Typed mResult; int64_t mExpected; } kCases[] = {
        {maxT + TickLen(1), kTime_MaxCount},
        {maxT - SampleLen(1000), kTime_MaxCount},
        {minT - TickLen(1), kTime_MinCount},
        {minT + TickLen(1), kTime_MinCount},
        {Ticks(kTime_MaxCount - 5) + TickLen(10), kTime_MaxCount},
        {Ticks(-10) - TickLen(kInt64Max), kTime_MinCount},
        {Ticks(0) + TickLen(kInt64Min), kTime_MinCount},
        {Ticks(0) + SampleLen(kTime_MaxCount / 2), kTime_MaxCount},  // saturates when converted to ticks
    };
    for (size_t i = 0; i < std::size(kCases); ++i) EXPECT_EQ(kCases[i].mResult.AsInt64(), kCases[i].mExpected) << "case " << i;
    EXPECT_EQ((maxT - Time_Typed::MinTime(kTime_Ticks)).AsInt64(), kTime_MaxCount);
    EXPECT_EQ((maxT - maxT).AsInt64(), 0);
    EXPECT_EQ((TickLen(kTime_MaxCount) + TickLen(kTime_MaxCount)).AsInt64(), kTime_MaxCount);
}

TEST_F(TimeTypedTest, RawSavedWordRoundTripsEveryCountOfBothKinds) {
    // Counts beyond the range come back as its ends.
    const std::pair<int64_t, int64_t> kCases[] = {
        {kTime_MinCount, kTime_MinCount}, {kTime_MinCount + 1, kTime_MinCount + 1}, {-1, -1}, {0, 0}, {1, 1},
        {123456789, 123456789}, {kTime_MaxCount - 1, kTime_MaxCount - 1}, {kTime_MaxCount, kTime_MaxCount},
        {kInt64Max, kTime_MaxCount}, {kInt64Min, kTime_MinCount},
    };
    for (Time_EType kind : {kTime_Samples, kTime_Ticks}) {
        for (const auto& [count, expected] : kCases) {
            int64_t back = 7;
            Time_EType backKind = kind == kTime_Ticks ? kTime_Samples : kTime_Ticks;
            Time_TypedDefs::SetFromRawSavedData(Time_TypedDefs::GetRawDataForSave(count, kind), &back, &backKind);
            EXPECT_EQ(back, expected) << count << " kind " << kind;
            EXPECT_EQ(backKind, kind) << count;
        }
    }
    EXPECT_EQ(Time_TypedDefs::GetRawDataForSave(42, kTime_Samples), 42);
}

TEST_F(TimeTypedTest, TickRangeWidensToWholeSamples) {
    const struct { int64_t mStart, mEnd; bool mIncludeEnd; int64_t mWideStart, mWideEnd; } kCases[] = {
        {41, 79, false, 40, 80}, {40, 80, false, 40, 80}, {40, 80, true, 40, 120}, {-1, -1, true, -40, 0},
    };
    Time_Typed start, end;
    for (const auto& c : kCases) {
        Time_Convert::MakeTickRangeSampleBased(Ticks(c.mStart), Ticks(c.mEnd), c.mIncludeEnd, start, end);
        EXPECT_EQ(CountKind(start), std::make_pair(c.mWideStart, kTime_Ticks)) << c.mStart << ".." << c.mEnd;
        EXPECT_EQ(end.AsInt64(), c.mWideEnd) << c.mStart << ".." << c.mEnd;
    }
    Time_Convert::MakeTickRangeSampleBased(Time_Typed::MinTime(kTime_Ticks), Time_Typed::MaxTime(kTime_Samples), true, start, end);
    EXPECT_EQ(start.AsInt64(), kTime_MinCount);
    EXPECT_EQ(end.AsInt64(), kTime_MaxCount);
    // At 44.1 kHz sample boundaries fall between ticks; the range must still only grow.
    Time_Globals::SetSampleRate(44100.0);
    for (int64_t tick = -1000; tick < 1000; tick += 7) {
        Time_Convert::MakeTickRangeSampleBased(Ticks(tick), Ticks(tick + 3), false, start, end);
        EXPECT_TRUE(tick - 44 <= start.AsInt64() && start.AsInt64() <= tick) << tick;
        EXPECT_TRUE(tick + 3 <= end.AsInt64() && end.AsInt64() <= tick + 3 + 44) << tick;
    }
}

TEST_F(TimeTypedTest, SnapToCoarseGridRoundsToTheNearestPoint) {
    for (const auto& [ticks, snapped] : {std::pair<int64_t, int64_t>{4799, 0}, {4800, 9600}, {-4801, -9600}}) {
        int64_t value = ticks;
        Time_Convert::SnapToCoarseInternalTick(value);
        EXPECT_EQ(value, snapped) << ticks;
    }
    EXPECT_EQ(Time_Convert::SnapToCoarseInternalTick(Ticks(14500)).AsInt64(), 19200);
    EXPECT_EQ(Time_Convert::SnapToCoarseInternalTick(Samples(14500)).AsInt64(), 14500);
    EXPECT_EQ(Time_Convert::SnapToCoarseInternalTick(Time_Typed::MaxTime(kTime_Ticks)).AsInt64(), kTime_MaxCount);
    Time_Globals::SetCoarseInternalTickGrid(100);
    EXPECT_EQ(Time_Convert::SnapToCoarseInternalTick(Ticks(149)).AsInt64(), 100);
}

TEST_F(TimeTypedTest, BadSettingsAssertAndAreClamped) {
    AssertCapture capture;
    Time_Globals::SetSampleRate(0.0);
    Time_Globals::SetCoarseInternalTickGrid(0);
    EXPECT_EQ(capture.Count(), 2u);
    EXPECT_DOUBLE_EQ(Time_Globals::GetSampleRate(), 1.0);
    EXPECT_EQ(Time_Globals::GetCoarseInternalTickGrid(), 1);
}

}  // namespace
