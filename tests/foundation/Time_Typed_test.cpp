#include "Time_Typed.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "AllocCounter.h"
#include "AssertCapture.h"

namespace {

Time_Typed Ticks(int64_t iCount) { return Time_Typed(iCount, kTime_Ticks); }
Time_Typed Samples(int64_t iCount) { return Time_Typed(iCount, kTime_Samples); }
Time_TypedLength TickLen(int64_t iCount) { return Time_TypedLength(iCount, kTime_Ticks); }
Time_TypedLength SampleLen(int64_t iCount) { return Time_TypedLength(iCount, kTime_Samples); }

// Restores the process-wide settings a test changes.
class TimeTypedTest : public ::testing::Test {
protected:
    void TearDown() override {
        Time_Globals::SetSampleRate(48000.0);
        Time_Globals::SetTempo(120.0);
        Time_Globals::SetCoarseInternalTickGrid(9600);
        TickTimesMatter::SetActive(false);
    }
};

TEST_F(TimeTypedTest, ConversionAtTheDefaultsIsFortyTicksPerSampleRoundingHalvesUp) {
    EXPECT_EQ(Time_Convert::ToTick(Samples(3)).AsInt64(), 120);
    EXPECT_EQ(Time_Convert::ToType(Time_Sample(-5), kTime_Ticks).AsInt64(), -200);
    EXPECT_EQ(Time_Convert::ToType(Ticks(59), kTime_Samples).AsInt64(), 1);
    EXPECT_EQ(Time_Convert::ToType(Ticks(60), kTime_Samples).AsInt64(), 2);
    EXPECT_EQ(Time_Convert::ToType(Ticks(-60), kTime_Samples).AsInt64(), -1);
    EXPECT_EQ(Time_Convert::ToType(Ticks(-61), kTime_Samples).AsInt64(), -2);
    EXPECT_EQ(Time_Convert::ToType(TickLen(100), kTime_Samples).AsInt64(), 3);
}

TEST_F(TimeTypedTest, CrossKindComparisonIsExactEvenForHugeCounts) {
    EXPECT_TRUE(Samples(1) == Ticks(40));
    EXPECT_TRUE(Ticks(39) < Samples(1) && Samples(1) < Ticks(41));
    EXPECT_TRUE(Samples(1) <= Ticks(40) && Samples(1) >= Ticks(40) && Samples(1) != Ticks(39));
    EXPECT_TRUE(TickLen(79) < SampleLen(2) && SampleLen(2) == TickLen(80));
    // Scaled, 2^56 samples are past what a double holds exactly; the neighbour tick must still differ.
    const int64_t samples = int64_t(1) << 56;
    EXPECT_TRUE(Samples(samples) < Ticks(samples * 40 + 1));
    EXPECT_TRUE(Samples(samples) == Ticks(samples * 40));
    Time_Globals::SetSampleRate(44100.0);
    // At 44.1 kHz, 147 samples are exactly 6400 ticks.
    EXPECT_TRUE(Samples(147) == Ticks(6400));
    EXPECT_TRUE(Samples(147 * (int64_t(1) << 40)) > Ticks(6400 * (int64_t(1) << 40) - 1));
}

TEST_F(TimeTypedTest, ArithmeticKeepsTheLeftKindAndConvertsTheRight) {
    EXPECT_EQ((Ticks(100) + SampleLen(2)).AsInt64(), 180);
    EXPECT_EQ((Ticks(100) + SampleLen(2)).GetType(), kTime_Ticks);
    EXPECT_EQ((Samples(10) + TickLen(100)).AsInt64(), 13);  // 2.5 samples rounds up
    EXPECT_EQ((Samples(10) - TickLen(40)).AsInt64(), 9);
    Time_Typed t = Ticks(0);
    t += TickLen(5);
    t -= SampleLen(1);
    EXPECT_EQ(t.AsInt64(), -35);
    const Time_TypedLength diff = Samples(10) - Ticks(80);
    EXPECT_EQ(diff.GetType(), kTime_Samples);
    EXPECT_EQ(diff.AsInt64(), 8);
    EXPECT_EQ((TickLen(10) + SampleLen(1)).AsInt64(), 50);
    Time_TypedLength len = SampleLen(3);
    len -= TickLen(40);
    EXPECT_EQ(len.AsInt64(), 2);
    EXPECT_EQ(Time_Convert::AddLength(Samples(1), TickLen(40)).AsInt64(), 2);
}

TEST_F(TimeTypedTest, MinAndMaxTimeBoundEveryTimeOfEitherKind) {
    for (Time_EType limitKind : {kTime_Samples, kTime_Ticks}) {
        const Time_Typed minT = Time_Typed::MinTime(limitKind);
        const Time_Typed maxT = Time_Typed::MaxTime(limitKind);
        for (Time_EType kind : {kTime_Samples, kTime_Ticks}) {
            for (int64_t count : {kTime_MinCount + 1, int64_t(-1), int64_t(0), kTime_MaxCount - 1}) {
                const Time_Typed t(count, kind);
                EXPECT_TRUE(minT < t) << count << " kind " << kind;
                EXPECT_TRUE(t < maxT) << count << " kind " << kind;
            }
            EXPECT_TRUE(maxT == Time_Typed::MaxTime(kind));
            EXPECT_TRUE(minT == Time_Typed::MinTime(kind));
        }
    }
    // Counts beyond the range mean the same as its ends.
    EXPECT_TRUE(Ticks(std::numeric_limits<int64_t>::max()) == Time_Typed::MaxTime(kTime_Samples));
    EXPECT_TRUE(Samples(std::numeric_limits<int64_t>::min()) == Time_Typed::MinTime(kTime_Ticks));
    EXPECT_EQ(Time_Convert::ToTick(Time_Typed::MaxTime(kTime_Samples)), Time_Typed::MaxTime(kTime_Ticks));
    EXPECT_EQ(Time_Convert::ToType(Time_Typed::MinTime(kTime_Ticks), kTime_Samples).AsInt64(), kTime_MinCount);
}

TEST_F(TimeTypedTest, ArithmeticSaturatesAndTheEndsStayPut) {
    const Time_Typed maxT = Time_Typed::MaxTime(kTime_Ticks);
    const Time_Typed minT = Time_Typed::MinTime(kTime_Samples);
    EXPECT_EQ((maxT + TickLen(1)).AsInt64(), kTime_MaxCount);
    EXPECT_EQ((maxT - SampleLen(1000)).AsInt64(), kTime_MaxCount);
    EXPECT_EQ((minT - TickLen(1)).AsInt64(), kTime_MinCount);
    EXPECT_EQ((minT + TickLen(1)).AsInt64(), kTime_MinCount);
    EXPECT_EQ((Ticks(kTime_MaxCount - 5) + TickLen(10)).AsInt64(), kTime_MaxCount);
    EXPECT_EQ((Ticks(-10) - TickLen(std::numeric_limits<int64_t>::max())).AsInt64(), kTime_MinCount);
    EXPECT_EQ((Ticks(0) + TickLen(std::numeric_limits<int64_t>::min())).AsInt64(), kTime_MinCount);
    // Huge sample lengths saturate when converted into ticks.
    EXPECT_EQ((Ticks(0) + SampleLen(kTime_MaxCount / 2)).AsInt64(), kTime_MaxCount);
    EXPECT_EQ((maxT - Time_Typed::MinTime(kTime_Ticks)).AsInt64(), kTime_MaxCount);
    EXPECT_EQ((maxT - maxT).AsInt64(), 0);
    EXPECT_EQ((TickLen(kTime_MaxCount) + TickLen(kTime_MaxCount)).AsInt64(), kTime_MaxCount);
}

TEST_F(TimeTypedTest, RawSavedWordRoundTripsEveryCountOfBothKinds) {
    for (Time_EType kind : {kTime_Samples, kTime_Ticks}) {
        for (int64_t count : {kTime_MinCount, kTime_MinCount + 1, int64_t(-1), int64_t(0), int64_t(1),
                              int64_t(123456789), kTime_MaxCount - 1, kTime_MaxCount}) {
            int64_t back = 7;
            Time_EType backKind = kind == kTime_Ticks ? kTime_Samples : kTime_Ticks;
            Time_TypedDefs::SetFromRawSavedData(Time_TypedDefs::GetRawDataForSave(count, kind), &back, &backKind);
            EXPECT_EQ(back, count);
            EXPECT_EQ(backKind, kind);
        }
    }
    EXPECT_EQ(Time_TypedDefs::GetRawDataForSave(42, kTime_Samples), 42);
    // Counts beyond the range come back as its ends.
    int64_t back = 0;
    Time_EType kind = kTime_Samples;
    Time_TypedDefs::SetFromRawSavedData(Time_TypedDefs::GetRawDataForSave(std::numeric_limits<int64_t>::max(), kTime_Ticks), &back, &kind);
    EXPECT_EQ(back, kTime_MaxCount);
    EXPECT_EQ(kind, kTime_Ticks);
    Time_TypedDefs::SetFromRawSavedData(Time_TypedDefs::GetRawDataForSave(std::numeric_limits<int64_t>::min(), kTime_Samples), &back, &kind);
    EXPECT_EQ(back, kTime_MinCount);
    EXPECT_EQ(kind, kTime_Samples);
}

TEST_F(TimeTypedTest, TickRangeWidensToWholeSamples) {
    Time_Typed start, end;
    Time_Convert::MakeTickRangeSampleBased(Ticks(41), Ticks(79), false, start, end);
    EXPECT_EQ(start, Ticks(40));
    EXPECT_EQ(end, Ticks(80));
    EXPECT_EQ(start.GetType(), kTime_Ticks);
    Time_Convert::MakeTickRangeSampleBased(Ticks(40), Ticks(80), false, start, end);
    EXPECT_EQ(end.AsInt64(), 80);
    Time_Convert::MakeTickRangeSampleBased(Ticks(40), Ticks(80), true, start, end);
    EXPECT_EQ(end.AsInt64(), 120);
    Time_Convert::MakeTickRangeSampleBased(Ticks(-1), Ticks(-1), true, start, end);
    EXPECT_EQ(start.AsInt64(), -40);
    EXPECT_EQ(end.AsInt64(), 0);
    Time_Convert::MakeTickRangeSampleBased(Time_Typed::MinTime(kTime_Ticks), Time_Typed::MaxTime(kTime_Samples), true, start, end);
    EXPECT_EQ(start.AsInt64(), kTime_MinCount);
    EXPECT_EQ(end.AsInt64(), kTime_MaxCount);
    // At 44.1 kHz sample boundaries fall between ticks; the range must still only grow.
    Time_Globals::SetSampleRate(44100.0);
    for (int64_t tick = -1000; tick < 1000; tick += 7) {
        Time_Convert::MakeTickRangeSampleBased(Ticks(tick), Ticks(tick + 3), false, start, end);
        EXPECT_LE(start.AsInt64(), tick);
        EXPECT_GE(end.AsInt64(), tick + 3);
        EXPECT_GE(start.AsInt64(), tick - 44);
        EXPECT_LE(end.AsInt64(), tick + 3 + 44);
    }
}

TEST_F(TimeTypedTest, SnapToCoarseGridRoundsToTheNearestPoint) {
    int64_t ticks = 4799;
    Time_Convert::SnapToCoarseInternalTick(ticks);
    EXPECT_EQ(ticks, 0);
    ticks = 4800;
    Time_Convert::SnapToCoarseInternalTick(ticks);
    EXPECT_EQ(ticks, 9600);
    ticks = -4801;
    Time_Convert::SnapToCoarseInternalTick(ticks);
    EXPECT_EQ(ticks, -9600);
    EXPECT_EQ(Time_Convert::SnapToCoarseInternalTick(Ticks(14500)).AsInt64(), 19200);
    EXPECT_EQ(Time_Convert::SnapToCoarseInternalTick(Samples(14500)).AsInt64(), 14500);
    EXPECT_EQ(Time_Convert::SnapToCoarseInternalTick(Time_Typed::MaxTime(kTime_Ticks)).AsInt64(), kTime_MaxCount);
    Time_Globals::SetCoarseInternalTickGrid(100);
    EXPECT_EQ(Time_Convert::SnapToCoarseInternalTick(Ticks(149)).AsInt64(), 100);
    TickTimesMatter::SetActive(true);
    EXPECT_TRUE(TickTimesMatter::Active());
}

TEST_F(TimeTypedTest, BadSettingsAssertAndAreClamped) {
    AssertCapture capture;
    Time_Globals::SetSampleRate(0.0);
    Time_Globals::SetCoarseInternalTickGrid(0);
    EXPECT_EQ(capture.Count(), 2u);
    EXPECT_DOUBLE_EQ(Time_Globals::GetSampleRate(), 1.0);
    EXPECT_EQ(Time_Globals::GetCoarseInternalTickGrid(), 1);
}

TEST_F(TimeTypedTest, ComparisonAndArithmeticAllocateNothing) {
    AllocCounter counter;
    Time_Typed t = Samples(100);
    bool sink = false;
    for (int i = 0; i < 100; ++i) {
        t += TickLen(i);
        sink ^= t < Ticks(i * 1000);
        t = Time_Convert::ToType(t - SampleLen(1), i % 2 ? kTime_Ticks : kTime_Samples);
    }
    EXPECT_EQ(counter.Count(), 0u);
    ::testing::Test::RecordProperty("sink", sink);
}

}  // namespace
