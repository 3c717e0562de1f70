// Time values: positions (Time_Typed) and lengths (Time_TypedLength) counted in samples or
// ticks. A value is a signed 64-bit count plus its kind word; values of different kinds meet
// through Time_Convert, which uses the constant tempo and sample rate of Time_Globals.
// Representation: { int64 count; int32 kind; } (16 bytes with padding), copied as raw bytes.
// Threads: the values are plain data. Time_Globals are set during set-up and read anywhere.
// Real time: comparison and arithmetic never allocate and never block.
#pragma once

#include <cstdint>

#include "Cmn_XMLNodeFwd.h"

enum Time_EType : int32_t { kTime_Samples = 0, kTime_Ticks = 1 };

// Ticks per quarter note of the internal tick grid.
constexpr int64_t Time_cTicksPerQuarter = 960000;
constexpr int64_t Time_cDefaultOriginTick = 0;

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

class Time_TypedLength {
public:
    constexpr Time_TypedLength() = default;
    constexpr Time_TypedLength(int64_t iCount, Time_EType iType) : mCount(iCount), mType(iType) {}
    constexpr explicit Time_TypedLength(Time_TickLength iLength) : mCount(iLength.mCount), mType(kTime_Ticks) {}
    constexpr explicit Time_TypedLength(Time_SampleLength iLength) : mCount(iLength.mCount), mType(kTime_Samples) {}

    constexpr int64_t AsInt64() const { return mCount; }
    constexpr Time_EType GetType() const { return mType; }

    // Comparisons convert the right side to the left side's kind when the kinds differ.
    bool operator==(const Time_TypedLength& iOther) const;
    bool operator!=(const Time_TypedLength& iOther) const { return !(*this == iOther); }
    bool operator<(const Time_TypedLength& iOther) const;
    bool operator<=(const Time_TypedLength& iOther) const;
    bool operator>(const Time_TypedLength& iOther) const;
    bool operator>=(const Time_TypedLength& iOther) const;
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
    bool operator==(const Time_Typed& iOther) const;
    bool operator!=(const Time_Typed& iOther) const { return !(*this == iOther); }
    bool operator<(const Time_Typed& iOther) const;
    bool operator<=(const Time_Typed& iOther) const;
    bool operator>(const Time_Typed& iOther) const;
    bool operator>=(const Time_Typed& iOther) const;

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
    // Widens the tick range [iStart, iEnd) to whole samples: the start moves down to the tick of
    // the sample that contains it, the end up to the tick of the next whole sample (unless
    // iEndInclusive, when it moves to the containing sample's tick as well).
    static void MakeTickRangeSampleBased(const Time_Typed& iStart, const Time_Typed& iEnd, bool iEndInclusive,
                                         Time_Typed& oStart, Time_Typed& oEnd);
    static void SnapToCoarseInternalTick(int64_t& ioTicks);
    static Time_Typed SnapToCoarseInternalTick(const Time_Typed& iTime);
};

class Time_Globals {
public:
    static double GetSampleRate();
    static void SetSampleRate(double iRate);
    static double GetTempo();
    static void SetTempo(double iBpm);
    static int64_t GetCoarseInternalTickGrid();
    static void SetCoarseInternalTickGrid(int64_t iTicks);
};

class TickTimesMatter {
public:
    static bool Active();
    static void SetActive(bool iActive);
};

// One 64-bit word that carries a count and its kind on disk. The encoding is documented in
// Time_Typed.cpp's header comment and round-trips every count of every kind.
class Time_TypedDefs {
public:
    static int64_t GetRawDataForSave(int64_t iCount, Time_EType iType);
    static void SetFromRawSavedData(int64_t iRaw, int64_t* oCount, Time_EType* oType);
};
