#include "Time_Typed.h"

#include <cmath>
#include <numeric>

#include "Cmn_Assert.h"

namespace {

using Wide = __int128;

constexpr double kDefaultRate = 48000.0, kMinRate = 1.0, kMaxRate = 1.0e6;
constexpr double kDefaultTempo = 120.0, kMinTempo = 0.001, kMaxTempo = 1000.0;

// Ticks per sample as the reduced fraction mTicks / mSamples, so cross-kind comparison is an
// exact cross multiplication. Tempo and rate are kept in thousandths, which bounds mTicks by
// 16000 * 1e6 (34 bits) and mSamples by 1e9: a count times either fits 128 bits with room.
struct TimeScale {
    double mSampleRate = kDefaultRate;
    double mTempo = kDefaultTempo;
    int64_t mTicks = 40;
    int64_t mSamples = 1;
    int64_t mCoarseGrid = 9600;
    bool mTickTimesMatter = false;
};
TimeScale sScale;

// A setting held within [iMin, iMax]; NaN, which is in no range, falls back to iDefault.
double ClampSetting(double iValue, double iMin, double iMax, double iDefault) {
    return std::isnan(iValue) ? iDefault : std::fmin(std::fmax(iValue, iMin), iMax);
}

void RecomputeFraction() {
    // ticks per sample = ticksPerQuarter * bpm / (60 * rate); with milli-units that is
    // (ticksPerQuarter / 60) * bpmMilli / rateMilli.
    const int64_t tempoMilli = std::llround(sScale.mTempo * 1000.0);
    const int64_t rateMilli = std::llround(sScale.mSampleRate * 1000.0);
    const int64_t ticks = (Time_cTicksPerQuarter / 60) * tempoMilli;
    const int64_t divisor = std::gcd(ticks, rateMilli);
    sScale.mTicks = ticks / divisor;
    sScale.mSamples = rateMilli / divisor;
}

constexpr bool IsBeforeAll(int64_t iCount) { return iCount <= kTime_MinCount; }
constexpr bool IsAfterAll(int64_t iCount) { return iCount >= kTime_MaxCount; }

constexpr int64_t Clamp(Wide iCount) {
    if (iCount < kTime_MinCount) return kTime_MinCount;
    if (iCount > kTime_MaxCount) return kTime_MaxCount;
    return static_cast<int64_t>(iCount);
}

// Floor division for a positive divisor.
Wide FloorDiv(Wide iNum, Wide iDen) {
    Wide q = iNum / iDen;
    if (iNum % iDen != 0 && iNum < 0) --q;
    return q;
}

enum class ERound { kNearest, kFloor, kCeil };

Wide DivideRounded(Wide iNum, Wide iDen, ERound iRound) {
    switch (iRound) {
        case ERound::kFloor: return FloorDiv(iNum, iDen);
        case ERound::kCeil: return -FloorDiv(-iNum, iDen);
        case ERound::kNearest: break;
    }
    return FloorDiv(2 * iNum + iDen, 2 * iDen);
}

// Converts a count between kinds. The ends of the range map to the ends of the range.
int64_t ConvertCount(int64_t iCount, Time_EType iFrom, Time_EType iTo, ERound iRound = ERound::kNearest) {
    if (iFrom == iTo) return Clamp(iCount);
    if (IsBeforeAll(iCount)) return kTime_MinCount;
    if (IsAfterAll(iCount)) return kTime_MaxCount;
    if (iTo == kTime_Ticks) return Clamp(DivideRounded(Wide(iCount) * sScale.mTicks, sScale.mSamples, iRound));
    return Clamp(DivideRounded(Wide(iCount) * sScale.mSamples, sScale.mTicks, iRound));
}

// The position of a count on a scale common to both kinds (samples * ticks-per-sample
// numerator == ticks * denominator), with the ends of the range outside every finite value.
Wide CommonUnits(int64_t iCount, Time_EType iType) {
    constexpr Wide kBeyond = Wide(1) << 120;
    if (IsBeforeAll(iCount)) return -kBeyond;
    if (IsAfterAll(iCount)) return kBeyond;
    return Wide(iCount) * (iType == kTime_Samples ? sScale.mTicks : sScale.mSamples);
}

}  // namespace

int Time_Detail::CompareKinds(int64_t iLeft, Time_EType iLeftType, int64_t iRight, Time_EType iRightType) {
    const Wide left = CommonUnits(iLeft, iLeftType);
    const Wide right = CommonUnits(iRight, iRightType);
    return left < right ? -1 : (left > right ? 1 : 0);
}

namespace {

// A time plus a signed length count already in the time's kind; Min/MaxTime stay put.
int64_t Offset(int64_t iCount, int64_t iDelta) {
    if (IsBeforeAll(iCount)) return kTime_MinCount;
    if (IsAfterAll(iCount)) return kTime_MaxCount;
    return Clamp(Wide(iCount) + Clamp(iDelta));
}

}  // namespace

// ---------------------------------------------------------------- Time_TypedLength

Time_TypedLength Time_TypedLength::operator+(const Time_TypedLength& iOther) const {
    Time_TypedLength result(*this);
    return result += iOther;
}

Time_TypedLength Time_TypedLength::operator-(const Time_TypedLength& iOther) const {
    Time_TypedLength result(*this);
    return result -= iOther;
}

Time_TypedLength& Time_TypedLength::operator+=(const Time_TypedLength& iOther) {
    mCount = Clamp(Wide(Clamp(mCount)) + ConvertCount(iOther.mCount, iOther.mType, mType));
    return *this;
}

Time_TypedLength& Time_TypedLength::operator-=(const Time_TypedLength& iOther) {
    mCount = Clamp(Wide(Clamp(mCount)) - ConvertCount(iOther.mCount, iOther.mType, mType));
    return *this;
}

// ---------------------------------------------------------------- Time_Typed

Time_Typed Time_Typed::MinTime(Time_EType iType) { return Time_Typed(kTime_MinCount, iType); }
Time_Typed Time_Typed::MaxTime(Time_EType iType) { return Time_Typed(kTime_MaxCount, iType); }

Time_Typed Time_Typed::operator+(const Time_TypedLength& iLength) const {
    Time_Typed result(*this);
    return result += iLength;
}

Time_Typed Time_Typed::operator-(const Time_TypedLength& iLength) const {
    Time_Typed result(*this);
    return result -= iLength;
}

Time_Typed& Time_Typed::operator+=(const Time_TypedLength& iLength) {
    mCount = Offset(mCount, ConvertCount(iLength.mCount, iLength.mType, mType));
    return *this;
}

Time_Typed& Time_Typed::operator-=(const Time_TypedLength& iLength) {
    // The negated count still fits: the range is a 63-bit one.
    mCount = Offset(mCount, -ConvertCount(iLength.mCount, iLength.mType, mType));
    return *this;
}

Time_TypedLength Time_Typed::operator-(const Time_Typed& iOther) const {
    const int64_t other = ConvertCount(iOther.mCount, iOther.mType, mType);
    return Time_TypedLength(Clamp(Wide(Clamp(mCount)) - other), mType);
}

// ---------------------------------------------------------------- Time_Convert

Time_Typed Time_Convert::ToType(const Time_Typed& iTime, Time_EType iType) {
    return Time_Typed(ConvertCount(iTime.mCount, iTime.mType, iType), iType);
}

Time_Typed Time_Convert::ToType(const Time_Sample& iTime, Time_EType iType) { return ToType(Time_Typed(iTime), iType); }

Time_Typed Time_Convert::ToTick(const Time_Typed& iTime) { return ToType(iTime, kTime_Ticks); }

Time_TypedLength Time_Convert::ToType(const Time_TypedLength& iLength, Time_EType iType) {
    return Time_TypedLength(ConvertCount(iLength.mCount, iLength.mType, iType), iType);
}

Time_Typed Time_Convert::AddLength(const Time_Typed& iTime, const Time_TypedLength& iLength) { return iTime + iLength; }

void Time_Convert::MakeTickRangeSampleBased(const Time_Typed& iStart, const Time_Typed& iEnd, bool iEndInclusive,
                                            Time_Typed& oStart, Time_Typed& oEnd) {
    const Time_Typed start = ToTick(iStart);
    const Time_Typed end = ToTick(iEnd);
    const int64_t startSample = ConvertCount(start.mCount, kTime_Ticks, kTime_Samples, ERound::kFloor);
    int64_t endSample = ConvertCount(end.mCount, kTime_Ticks, kTime_Samples, iEndInclusive ? ERound::kFloor : ERound::kCeil);
    if (iEndInclusive) endSample = Offset(endSample, 1);
    // A sample boundary lies at a fraction of a tick when ticks per sample is not whole; the
    // start's boundary rounds down and the end's up, so the range never narrows.
    oStart = Time_Typed(ConvertCount(startSample, kTime_Samples, kTime_Ticks, ERound::kFloor), kTime_Ticks);
    oEnd = Time_Typed(ConvertCount(endSample, kTime_Samples, kTime_Ticks, ERound::kCeil), kTime_Ticks);
}

void Time_Convert::SnapToCoarseInternalTick(int64_t& ioTicks) {
    if (IsBeforeAll(ioTicks) || IsAfterAll(ioTicks)) return;
    const int64_t grid = sScale.mCoarseGrid;
    ioTicks = Clamp(DivideRounded(ioTicks, grid, ERound::kNearest) * grid);
}

Time_Typed Time_Convert::SnapToCoarseInternalTick(const Time_Typed& iTime) {
    if (iTime.mType != kTime_Ticks) return iTime;
    Time_Typed result(iTime);
    SnapToCoarseInternalTick(result.mCount);
    return result;
}

// ---------------------------------------------------------------- Time_Globals

double Time_Globals::GetSampleRate() { return sScale.mSampleRate; }

void Time_Globals::SetSampleRate(double iRate) {
    VELA_ASSERT(iRate >= kMinRate && iRate <= kMaxRate);
    sScale.mSampleRate = ClampSetting(iRate, kMinRate, kMaxRate, kDefaultRate);
    RecomputeFraction();
}

double Time_Globals::GetTempo() { return sScale.mTempo; }

void Time_Globals::SetTempo(double iBpm) {
    VELA_ASSERT(iBpm >= kMinTempo && iBpm <= kMaxTempo);
    sScale.mTempo = ClampSetting(iBpm, kMinTempo, kMaxTempo, kDefaultTempo);
    RecomputeFraction();
}

int64_t Time_Globals::GetCoarseInternalTickGrid() { return sScale.mCoarseGrid; }

void Time_Globals::SetCoarseInternalTickGrid(int64_t iTicks) {
    VELA_ASSERT(iTicks >= 1);
    sScale.mCoarseGrid = iTicks >= 1 ? iTicks : 1;
}

bool TickTimesMatter::Active() { return sScale.mTickTimesMatter; }
void TickTimesMatter::SetActive(bool iActive) { sScale.mTickTimesMatter = iActive; }

// ---------------------------------------------------------------- Time_TypedDefs

namespace {
constexpr uint64_t kRawKindBit = uint64_t(1) << 63;
}

int64_t Time_TypedDefs::GetRawDataForSave(int64_t iCount, Time_EType iType) {
    const uint64_t count = static_cast<uint64_t>(Clamp(iCount)) & ~kRawKindBit;
    return static_cast<int64_t>(count | (iType == kTime_Samples ? 0 : kRawKindBit));
}

void Time_TypedDefs::SetFromRawSavedData(int64_t iRaw, int64_t* oCount, Time_EType* oType) {
    const uint64_t raw = static_cast<uint64_t>(iRaw);
    // Shift the 63-bit count up to the sign bit and back down arithmetically to sign-extend it.
    const int64_t count = static_cast<int64_t>(raw << 1) >> 1;
    if (oCount) *oCount = count;
    if (oType) *oType = (raw & kRawKindBit) ? kTime_Ticks : kTime_Samples;
}
