// Time values: positions (Time_Typed) and lengths (Time_TypedLength) counted in samples or
// ticks. A value is a signed 64-bit count plus its kind word; values of different kinds meet
// through Time_Convert, which uses the constant tempo and sample rate of Time_Globals.
// Representation: { int64 count; int32 kind; } (16 bytes with padding), copied as raw bytes.
// Threads: the values are plain data. Time_Globals are set during set-up and read anywhere.
// Real time: comparison and arithmetic never allocate and never block.
//
// Rules between kinds:
// - Counts live in [kTime_MinCount, kTime_MaxCount] (the range of a 63-bit two's complement
//   word, so every time fits the saved form below). MinTime(kind) and MaxTime(kind) are those
//   two ends. A count at or below kTime_MinCount means "before everything" and one at or above
//   kTime_MaxCount "after everything", whatever its kind: MaxTime of samples equals MaxTime of
//   ticks and is later than every other time of either kind (MinTime likewise).
// - Comparisons across kinds are exact: both sides are scaled to a common unit in 128-bit
//   integers (ticks per sample is kept as a reduced fraction), so nothing is rounded.
//   At the defaults (120 BPM, 48,000 Hz, 960,000 ticks per quarter) one sample is 40 ticks.
// - Conversions round to the nearest count, halves upwards (towards later times), so a
//   conversion commutes with shifting by whole units. Results saturate at Min/MaxTime;
//   Min/MaxTime convert to Min/MaxTime of the other kind.
// - Arithmetic keeps the left operand's kind; a right operand of the other kind is converted
//   first. Results saturate at the ends of the range instead of wrapping; a time at MinTime or
//   MaxTime stays there when a length is added or subtracted.
#pragma once

#include <cstdint>

#include "Cmn_XMLNodeFwd.h"

enum Time_EType : int32_t { kTime_Samples = 0, kTime_Ticks = 1 };

// Ticks per quarter note of the internal tick grid.
constexpr int64_t Time_cTicksPerQuarter = 960000;
constexpr int64_t Time_cDefaultOriginTick = 0;
// The range of counts every time and length is kept within (see the rules above).
constexpr int64_t kTime_MaxCount = (int64_t(1) << 62) - 1;
constexpr int64_t kTime_MinCount = -(int64_t(1) << 62);

struct Time_Tick {
    int64_t mCount = 0;
    constexpr explicit Time_Tick(int64_t iCount = 0) : mCount(iCount) {}
};
struct Time_Sample {
    int64_t mCount = 0;
    constexpr explicit Time_Sample(int64_t iCount = 0) : mCount(iCount) {}
};
struct Time_TickLength {
    int64_t mCount = 0;
    constexpr explicit Time_TickLength(int64_t iCount = 0) : mCount(iCount) {}
};
struct Time_SampleLength {
    int64_t mCount = 0;
    constexpr explicit Time_SampleLength(int64_t iCount = 0) : mCount(iCount) {}
};

// Comparison of two counts with their kinds: -1, 0 or 1. Counts of one kind compare as they
// stand (clamped to the range, so all "before/after everything" counts are equal); that case is
// inline because every search over stored times makes it. Different kinds go out of line.
namespace Time_Detail {
constexpr int64_t ClampCount(int64_t iCount) {
    return iCount < kTime_MinCount ? kTime_MinCount : (iCount > kTime_MaxCount ? kTime_MaxCount : iCount);
}
int CompareKinds(int64_t iLeft, Time_EType iLeftType, int64_t iRight, Time_EType iRightType);
inline int Compare(int64_t iLeft, Time_EType iLeftType, int64_t iRight, Time_EType iRightType) {
    if (iLeftType != iRightType) return CompareKinds(iLeft, iLeftType, iRight, iRightType);
    const int64_t left = ClampCount(iLeft), right = ClampCount(iRight);
    return (left > right) - (left < right);
}
}  // namespace Time_Detail

class Time_TypedLength {
public:
    constexpr Time_TypedLength() = default;
    constexpr Time_TypedLength(int64_t iCount, Time_EType iType) : mCount(iCount), mType(iType) {}
    constexpr explicit Time_TypedLength(Time_TickLength iLength) : mCount(iLength.mCount), mType(kTime_Ticks) {}
    constexpr explicit Time_TypedLength(Time_SampleLength iLength) : mCount(iLength.mCount), mType(kTime_Samples) {}

    constexpr int64_t AsInt64() const { return mCount; }
    constexpr Time_EType GetType() const { return mType; }

    // Comparisons are exact across kinds; arithmetic keeps the left kind and saturates.
    bool operator==(const Time_TypedLength& iOther) const { return Time_Detail::Compare(mCount, mType, iOther.mCount, iOther.mType) == 0; }
    bool operator!=(const Time_TypedLength& iOther) const { return !(*this == iOther); }
    bool operator<(const Time_TypedLength& iOther) const { return Time_Detail::Compare(mCount, mType, iOther.mCount, iOther.mType) < 0; }
    bool operator<=(const Time_TypedLength& iOther) const { return Time_Detail::Compare(mCount, mType, iOther.mCount, iOther.mType) <= 0; }
    bool operator>(const Time_TypedLength& iOther) const { return Time_Detail::Compare(mCount, mType, iOther.mCount, iOther.mType) > 0; }
    bool operator>=(const Time_TypedLength& iOther) const { return Time_Detail::Compare(mCount, mType, iOther.mCount, iOther.mType) >= 0; }
    Time_TypedLength operator+(const Time_TypedLength& iOther) const;
    Time_TypedLength operator-(const Time_TypedLength& iOther) const;
    Time_TypedLength& operator+=(const Time_TypedLength& iOther);
    Time_TypedLength& operator-=(const Time_TypedLength& iOther);

    Cmn_XMLNodePtr GetAsXML(const char* iName) const;

    int64_t mCount = 0;
    Time_EType mType = kTime_Ticks;
};

class Time_Typed {
public:
    // Default: count 0, ticks.
    constexpr Time_Typed() = default;
    constexpr Time_Typed(int64_t iCount, Time_EType iType) : mCount(iCount), mType(iType) {}
    constexpr explicit Time_Typed(Time_Tick iTick) : mCount(iTick.mCount), mType(kTime_Ticks) {}
    constexpr explicit Time_Typed(Time_Sample iSample) : mCount(iSample.mCount), mType(kTime_Samples) {}

    constexpr int64_t AsInt64() const { return mCount; }
    constexpr Time_EType GetType() const { return mType; }

    static Time_Typed MinTime(Time_EType iType);
    static Time_Typed MaxTime(Time_EType iType);

    // Comparisons across kinds convert exactly where they can (see Time_Convert).
    bool operator==(const Time_Typed& iOther) const { return Time_Detail::Compare(mCount, mType, iOther.mCount, iOther.mType) == 0; }
    bool operator!=(const Time_Typed& iOther) const { return !(*this == iOther); }
    bool operator<(const Time_Typed& iOther) const { return Time_Detail::Compare(mCount, mType, iOther.mCount, iOther.mType) < 0; }
    bool operator<=(const Time_Typed& iOther) const { return Time_Detail::Compare(mCount, mType, iOther.mCount, iOther.mType) <= 0; }
    bool operator>(const Time_Typed& iOther) const { return Time_Detail::Compare(mCount, mType, iOther.mCount, iOther.mType) > 0; }
    bool operator>=(const Time_Typed& iOther) const { return Time_Detail::Compare(mCount, mType, iOther.mCount, iOther.mType) >= 0; }

    // Arithmetic keeps this value's kind; a length of the other kind is converted first.
    // Results saturate at MinTime/MaxTime instead of wrapping.
    Time_Typed operator+(const Time_TypedLength& iLength) const;
    Time_Typed operator-(const Time_TypedLength& iLength) const;
    Time_Typed& operator+=(const Time_TypedLength& iLength);
    Time_Typed& operator-=(const Time_TypedLength& iLength);
    Time_TypedLength operator-(const Time_Typed& iOther) const;

    Cmn_XMLNodePtr GetAsXML(const char* iName) const;

    int64_t mCount = 0;
    Time_EType mType = kTime_Ticks;
};

// Constant-tempo conversion between samples and ticks.
class Time_Convert {
public:
    static Time_Typed ToType(const Time_Typed& iTime, Time_EType iType);
    static Time_Typed ToType(const Time_Sample& iTime, Time_EType iType);
    static Time_Typed ToTick(const Time_Typed& iTime);
    static Time_TypedLength ToType(const Time_TypedLength& iLength, Time_EType iType);
    // iTime plus a length of any kind, in iTime's kind.
    static Time_Typed AddLength(const Time_Typed& iTime, const Time_TypedLength& iLength);
    // Widens the tick range [iStart, iEnd) to whole samples, so that a query over it finds
    // exactly what a sample-based query would: oStart is the tick of the start of the sample
    // that contains iStart; oEnd is the tick of the first sample boundary at or after iEnd.
    // With iEndInclusive the sample that contains iEnd is covered too, so an end lying exactly
    // on a boundary moves one sample further. Both results are ticks and never narrow the
    // range; inputs given in samples are taken as their ticks; Min/MaxTime pass through.
    static void MakeTickRangeSampleBased(const Time_Typed& iStart, const Time_Typed& iEnd, bool iEndInclusive,
                                         Time_Typed& oStart, Time_Typed& oEnd);
    // Snaps a tick count to the nearest point of the coarse grid (halves upwards). The time
    // form leaves sample times and Min/MaxTime unchanged.
    static void SnapToCoarseInternalTick(int64_t& ioTicks);
    static Time_Typed SnapToCoarseInternalTick(const Time_Typed& iTime);
};

// The constant tempo and sample rate that relate ticks to samples, and the coarse tick grid.
// Defaults: 48,000 Hz, 120 BPM, a grid of 9,600 ticks (a hundredth of a quarter note). Rates
// and tempi are kept to a thousandth; the setters clamp to 1 Hz..1 MHz and 0.001..1000 BPM
// (asserting) and the grid to at least 1 tick. Set them during set-up only: readers take no lock.
class Time_Globals {
public:
    static double GetSampleRate();
    static void SetSampleRate(double iRate);
    static double GetTempo();
    static void SetTempo(double iBpm);
    static int64_t GetCoarseInternalTickGrid();
    static void SetCoarseInternalTickGrid(int64_t iTicks);
};

// Global switch, false by default: when true, objects whose quantize flag is set snap the
// tick times they compute to the coarse grid. Set during set-up only.
class TickTimesMatter {
public:
    static bool Active();
    static void SetActive(bool iActive);
};

// One 64-bit word that carries a count and its kind on disk. Bit 63 is the kind (0 samples,
// 1 ticks); bits 0..62 are the count in 63-bit two's complement. Every count in
// [kTime_MinCount, kTime_MaxCount] of either kind round-trips; counts outside it are saved as
// the nearest end of the range (they mean "before/after everything" anyway). A sample time
// that is not negative is saved as its plain count.
class Time_TypedDefs {
public:
    static int64_t GetRawDataForSave(int64_t iCount, Time_EType iType);
    static void SetFromRawSavedData(int64_t iRaw, int64_t* oCount, Time_EType* oType);
};
