#include "Mdie_SubStream.h"

#include "Cmn_Assert.h"
#include "Sys_StdStreamHeader.h"
#include "Sys_TypedStream.h"
#include "Vela_Init.h"

namespace {

constexpr const char* kStreamTag = "Mdss";
constexpr short kStreamVersion = 1;

constexpr int32_t kAnyMin = INT32_MIN;
constexpr int32_t kAnyMax = INT32_MAX;

// The type table of the header, one row per type code.
constexpr Mdie_SubStreamType_Row kNullRow{0, Vela_Event::kNull, 0, false, true, kAnyMin, kAnyMax, {0, 0}};
constexpr Mdie_SubStreamType_Row kPitchBendRow{1, Vela_Event::kPitchBend, 0, false, true, kAnyMin, kAnyMax, {-8192, 8191}};
constexpr Mdie_SubStreamType_Row kControllerRow{2, Vela_Event::kController, 0, true, false, 1, 119, {0, 127}};
constexpr Mdie_SubStreamType_Row kProgramRow{3, Vela_Event::kProgram, 121, false, true, kAnyMin, kAnyMax, {0, 0xFFFFFF}};
constexpr Mdie_SubStreamType_Row kMonoPressureRow{4, Vela_Event::kMonoPressure, 120, false, true, kAnyMin, kAnyMax, {0, 127}};
constexpr Mdie_SubStreamType_Row kPolyPressureRow{5, Vela_Event::kPolyPressure, 122, true, false, 0, 127, {0, 127}};

// The global index a row gives a sub-index (wide, so no sub-index can overflow it).
int64_t RowIndex(const Mdie_SubStreamType_Row& iRow, int32_t iSubIndex) {
    return iRow.mIndexed ? int64_t(iRow.mIndexBase) + iSubIndex : iRow.mIndexBase;
}

// The operations every real type answers from its row.
class TableType : public Mdie_SubStreamType {
public:
    using Mdie_SubStreamType::Mdie_SubStreamType;
    int32_t GetIndex(int32_t iSubIndex) const override { return static_cast<int32_t>(RowIndex(mRow, iSubIndex)); }
    void GetValueRange(Mdie_SubStream_ValueRange& oRange) const override { oRange = mRow.mRange; }
    int8_t GetTypeCode() const override { return mRow.mTypeCode; }
    bool IsValidSubType(int32_t iSubIndex) const override {
        return mRow.mAnySubIndex || (iSubIndex >= mRow.mSubIndexMin && iSubIndex <= mRow.mSubIndexMax);
    }
};

class NullType final : public Mdie_SubStreamType {
public:
    constexpr NullType() : Mdie_SubStreamType(kNullRow) {}
    int32_t GetIndex(int32_t) const override { return Fail(0); }
    void MakeEvent(Vela_Event& oEvent, int32_t, int32_t) const override { oEvent = Fail(Vela_Event()); }
    void GetValueRange(Mdie_SubStream_ValueRange& oRange) const override { oRange = Fail(mRow.mRange); }
    int32_t GetValueFromEvent(const Vela_Event&) const override { return Fail(0); }
    int8_t GetTypeCode() const override { return Fail(mRow.mTypeCode); }
    bool IsValidSubType(int32_t) const override { return Fail(true); }

private:
    // Every operation on the null type is a caller's mistake: report it, answer the neutral value.
    template <class T>
    static T Fail(T iNeutral) {
        VELA_ASSERT(0);
        return iNeutral;
    }
};

class PitchBendType final : public TableType {
public:
    constexpr PitchBendType() : TableType(kPitchBendRow) {}
    void MakeEvent(Vela_Event& oEvent, int32_t, int32_t iValue) const override {
        oEvent = Vela_PitchBendEvent(static_cast<int16_t>(iValue));
    }
    int32_t GetValueFromEvent(const Vela_Event& iEvent) const override { return iEvent.AsPitchBend().GetBendValue(); }
};

class ControllerType final : public TableType {
public:
    constexpr ControllerType() : TableType(kControllerRow) {}
    void MakeEvent(Vela_Event& oEvent, int32_t iSubIndex, int32_t iValue) const override {
        oEvent = Vela_ControllerEvent(static_cast<int8_t>(iSubIndex), static_cast<int8_t>(iValue));
    }
    int32_t GetValueFromEvent(const Vela_Event& iEvent) const override { return iEvent.AsController().GetValue(); }
};

// The value packs the bank word above the program byte: bank << 8 | program, 24 bits.
class ProgramType final : public TableType {
public:
    constexpr ProgramType() : TableType(kProgramRow) {}
    void MakeEvent(Vela_Event& oEvent, int32_t, int32_t iValue) const override {
        oEvent = Vela_ProgramEvent(static_cast<int8_t>(iValue & 0xFF), static_cast<int16_t>(iValue >> 8));
    }
    int32_t GetValueFromEvent(const Vela_Event& iEvent) const override {
        const Vela_ProgramEvent& program = iEvent.AsProgram();
        const uint32_t bank = static_cast<uint16_t>(program.GetFullBank());
        const uint32_t programByte = static_cast<uint8_t>(program.GetFullProgram());
        return static_cast<int32_t>(((bank << 8) + programByte) & 0xFFFFFFu);
    }
};

class MonoPressureType final : public TableType {
public:
    constexpr MonoPressureType() : TableType(kMonoPressureRow) {}
    void MakeEvent(Vela_Event& oEvent, int32_t, int32_t iValue) const override {
        oEvent = Vela_MonoPressureEvent(static_cast<int8_t>(iValue));
    }
    int32_t GetValueFromEvent(const Vela_Event& iEvent) const override { return iEvent.AsMonoPressure().GetPressure(); }
};

class PolyPressureType final : public TableType {
public:
    constexpr PolyPressureType() : TableType(kPolyPressureRow) {}
    void MakeEvent(Vela_Event& oEvent, int32_t iSubIndex, int32_t iValue) const override {
        oEvent = Vela_PolyPressureEvent(static_cast<int8_t>(iSubIndex), static_cast<int8_t>(iValue));
    }
    int32_t GetValueFromEvent(const Vela_Event& iEvent) const override { return iEvent.AsPolyPressure().GetPressure(); }
};

// Constant-initialized, so they are usable from any other static initializer.
constinit const NullType sNullType;
constinit const PitchBendType sPitchBendType;
constinit const ControllerType sControllerType;
constinit const ProgramType sProgramType;
constinit const MonoPressureType sMonoPressureType;
constinit const PolyPressureType sPolyPressureType;

// Indexed by type code.
constexpr const Mdie_SubStreamType* kTypesByCode[Mdie_SubStreamType::kNumTypes] = {
    &sNullType, &sPitchBendType, &sControllerType, &sProgramType, &sMonoPressureType, &sPolyPressureType};

bool IsContinuousController(int iNumber) {
    return sControllerType.GetRow().mSubIndexMin <= iNumber && iNumber <= sControllerType.GetRow().mSubIndexMax;
}

}  // namespace

// ---------------------------------------------------------------- Mdie_SubStreamType

void Mdie_SubStreamType::CheckValidSubType(int32_t iSubIndex) const {
    if (!IsValidSubType(iSubIndex)) Vela_ThrowLocalized(kVelaMsg_BadSubtype);
}

const Mdie_SubStreamType* Mdie_SubStreamType::FromTypeCode(int iTypeCode) {
    if (iTypeCode < 0 || iTypeCode >= kNumTypes) return nullptr;
    return kTypesByCode[iTypeCode];
}

// ---------------------------------------------------------------- Mdie_SubStream

Mdie_SubStream::Mdie_SubStream() : mTypeP(&sNullType), mIndex(0) {}

Mdie_SubStream::Mdie_SubStream(const Vela_Event& iEvent) : mTypeP(&sNullType), mIndex(0) {
    switch (iEvent.GetType()) {
        case Vela_Event::kPitchBend:
            mTypeP = &sPitchBendType;
            break;
        case Vela_Event::kController:
            mIndex = iEvent.AsController().GetControllerNumber();
            if (IsContinuousController(mIndex)) mTypeP = &sControllerType;
            break;
        case Vela_Event::kProgram:
            mTypeP = &sProgramType;
            break;
        case Vela_Event::kMonoPressure:
            mTypeP = &sMonoPressureType;
            break;
        case Vela_Event::kPolyPressure:
            mTypeP = &sPolyPressureType;
            mIndex = iEvent.AsPolyPressure().GetPitch();
            break;
        default:
            break;
    }
}

Mdie_SubStream Mdie_SubStream::Controller(int8_t iNumber) { return Mdie_SubStream(&sControllerType, iNumber); }
Mdie_SubStream Mdie_SubStream::PolyPressure(int8_t iKey) { return Mdie_SubStream(&sPolyPressureType, iKey); }
Mdie_SubStream Mdie_SubStream::PitchBend() { return Mdie_SubStream(&sPitchBendType); }
Mdie_SubStream Mdie_SubStream::Program() { return Mdie_SubStream(&sProgramType); }
Mdie_SubStream Mdie_SubStream::MonoPressure() { return Mdie_SubStream(&sMonoPressureType); }

Vela_Event Mdie_SubStream::MakeEvent(int32_t iValue) const {
    Vela_Event event;
    mTypeP->MakeEvent(event, mIndex, iValue);
    return event;
}

bool Mdie_SubStream::IsNull() const { return mTypeP == &sNullType; }

void Mdie_SubStream::GetInfo(int8_t& oEventKind, int8_t& oController) const {
    oEventKind = mTypeP->GetRow().mEventKind;
    if (mTypeP == &sControllerType) oController = static_cast<int8_t>(mIndex);
}

void Mdie_SubStream::StreamOut(Sys_TypedOutStream& iStream) const {
    Sys_StdStreamHeaderWriter header(iStream, kStreamTag, kStreamVersion);
    iStream.Write(mTypeP->GetTypeCode());
    iStream.Write(mIndex);
}

void Mdie_SubStream::StreamIn(Sys_TypedInStream& iStream) {
    Sys_StdStreamHeaderReader header(iStream, kStreamTag);
    header.CheckVersion(kStreamVersion, kStreamVersion);
    int8_t code = 0;
    int32_t index = 0;
    iStream.Read(code);
    iStream.Read(index);
    const Mdie_SubStreamType* typeP = Mdie_SubStreamType::FromTypeCode(static_cast<uint8_t>(code));
    if (typeP == nullptr) Vela_ThrowLocalized(kVelaMsg_BadData2);
    typeP->CheckValidSubType(index);
    header.SkipTheRest();
    mTypeP = typeP;
    mIndex = index;
}

bool Mdie_SubStream::operator==(const Mdie_SubStream& iOther) const {
    return mTypeP == iOther.mTypeP && (!mTypeP->GetRow().mIndexed || mIndex == iOther.mIndex);
}

bool Mdie_SubStream::operator<(const Mdie_SubStream& iOther) const {
    const Mdie_SubStreamType_Row& mine = mTypeP->GetRow();
    const Mdie_SubStreamType_Row& theirs = iOther.mTypeP->GetRow();
    // Read from the rows, so sorting never calls the null type's asserting operations.
    const int64_t myIndex = RowIndex(mine, mIndex);
    const int64_t theirIndex = RowIndex(theirs, iOther.mIndex);
    if (myIndex != theirIndex) return myIndex < theirIndex;
    return mine.mTypeCode < theirs.mTypeCode;
}

// ---------------------------------------------------------------- Mdie_Filter

namespace {

// What governs each event kind: a data-type flag, the controller bits, or nothing (passes).
constexpr int kControllerBits = -1;
constexpr int kAlwaysPasses = -2;
constexpr int kFilterRuleByKind[Vela_Event::kNumTypes] = {
    kAlwaysPasses,                  // 0 null
    Mdie_Filter::kNotes,            // 1 note on
    Mdie_Filter::kNotes,            // 2 note off
    Mdie_Filter::kNotes,            // 3 note with duration
    Mdie_Filter::kPitchBend,        // 4
    kControllerBits,                // 5
    Mdie_Filter::kProgram,          // 6
    Mdie_Filter::kMonoPressure,     // 7
    Mdie_Filter::kPolyPressure,     // 8
    Mdie_Filter::kOtherEvents,      // 9 song position
    Mdie_Filter::kOtherEvents,      // 10 start
    Mdie_Filter::kOtherEvents,      // 11 continue
    Mdie_Filter::kOtherEvents,      // 12 stop
    Mdie_Filter::kOtherEvents,      // 13 timing clock
    Mdie_Filter::kSystemExclusive,  // 14 sysex
    Mdie_Filter::kSystemExclusive,  // 15 long sysex
    Mdie_Filter::kSystemExclusive,  // 16 sysex packet
    kAlwaysPasses,                  // 17 clear note in progress
    kAlwaysPasses,                  // 18 add note in progress
    kAlwaysPasses,                  // 19 release controller
    kAlwaysPasses,                  // 20 all notes off
    kAlwaysPasses,                  // 21 quarter frame
    kAlwaysPasses,                  // 22 pitch to note with duration
    kAlwaysPasses,                  // 23 clip
};

}  // namespace

Mdie_Filter& Mdie_Filter::Set(EDataType iType, bool iValue) {
    mFlags[iType] = iValue;
    return *this;
}

void Mdie_Filter::SetAll() {
    for (bool& flag : mFlags) flag = true;
    mControllers.SetAll();
}

void Mdie_Filter::ClearAll() {
    for (bool& flag : mFlags) flag = false;
    mControllers.ClearAll();
}

void Mdie_Filter::InvertAll() {
    for (bool& flag : mFlags) flag = !flag;
    mControllers.InvertAll();
}

void Mdie_Filter::SetDefault() {
    ClearAll();
    Set(kNotes, true).Set(kNoteOnVelocity, true).Set(kPitchBend, true).Set(kProgram, true);
    mControllers.SetAll();
}

bool Mdie_Filter::operator==(const Mdie_Filter& iOther) const {
    for (int i = 0; i < kNumDataTypes; ++i)
        if (mFlags[i] != iOther.mFlags[i]) return false;
    return mControllers == iOther.mControllers;
}

bool Mdie_Filter::FilterEvent(Vela_Event* ioEventP) const {
    const int kind = ioEventP->GetType();
    if (kind < 0 || kind >= Vela_Event::kNumTypes) return true;
    const int rule = kFilterRuleByKind[kind];
    if (rule == kAlwaysPasses) return true;
    if (rule == kControllerBits) return mControllers.Get(ioEventP->AsController().GetControllerNumber() & 0x7F);
    if (!mFlags[rule]) return false;
    if (rule == kNotes) RewriteVelocities(*ioEventP);
    return true;
}

// Dropped velocities: a note-on gets the default velocity, everything else the neutral 64
// (a note with duration treats its dropped on-velocity differently from a plain note-on).
void Mdie_Filter::RewriteVelocities(Vela_Event& ioEvent) const {
    switch (ioEvent.GetType()) {
        case Vela_Event::kNoteOn:
            if (!mFlags[kNoteOnVelocity]) ioEvent.AsNoteOn().SetVelocity(Vela_NoteOnEvent::GetDefaultVelocity());
            break;
        case Vela_Event::kNoteOff:
            if (!mFlags[kNoteOffVelocity]) ioEvent.AsNoteOff().SetVelocity(kNeutralVelocity);
            break;
        default:  // note with duration
            if (!mFlags[kNoteOnVelocity]) ioEvent.AsNoteWithDuration().SetOnVelocity(kNeutralVelocity);
            if (!mFlags[kNoteOffVelocity]) ioEvent.AsNoteWithDuration().SetOffVelocity(kNeutralVelocity);
            break;
    }
}

bool Mdie_Filter::FilterSubStream(const Mdie_SubStream& iSubStream) const {
    Mdie_SubStream_ValueRange range;
    iSubStream.GetValueRange(range);
    Vela_Event event = iSubStream.MakeEvent(range.mMin);
    return FilterEvent(&event);
}
