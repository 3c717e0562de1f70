// Vela_Event: construction, copying with the long-sysex reference rules, playback priority,
// and the typed views' constructors and bit-level accessors.
#include "Vela_Event.h"

#include <atomic>
#include <cstring>

#include "Mdie_SysexDataBase.h"

namespace {

// Playback priority by type code: among events at one time the lower value plays first.
constexpr int kPlaybackPriority[Vela_Event::kNumTypes] = {
    0,    // kNull
    100,  // kNoteOn
    90,   // kNoteOff
    100,  // kNoteWithDuration
    50,   // kPitchBend
    30,   // kController
    20,   // kProgram
    50,   // kMonoPressure
    50,   // kPolyPressure
    0,    // kSongPosition
    0,    // kStart
    0,    // kContinue
    0,    // kStop
    0,    // kTimingClock
    50,   // kSysex
    50,   // kLongSysex
    50,   // kSysexPacket
    0,    // kClearNoteInProgress
    0,    // kAddNoteInProgress
    10,   // kReleaseController
    0,    // kAllNotesOff
    0,    // kQuarterFrame
    100,  // kPitchToMIDINoteWithDuration
    0,    // kClip
};

// Set by the host once and read on any thread. Relaxed atomic: a plain byte load and store,
// without the formal data race.
std::atomic<int8_t> sDefaultVelocity{80};

constexpr int kProgramEnableBit = 0x80;
constexpr int kBankMSBEnableBit = 0x8000;
constexpr int kBankLSBEnableBit = 0x4000;

}  // namespace

// ---------------------------------------------------------------- value and references

void Vela_Event::LongSysexCopyConstruct() {
    if (mU.mBase.mType == kLongSysex && mU.mLongSysex.mDataP != nullptr) mU.mLongSysex.mDataP->AddReference();
}

void Vela_Event::LongSysexAssign(const Vela_Event& iOther) {
    // Take the new reference before dropping the old one: both may name the same data.
    if (iOther.mU.mBase.mType == kLongSysex && iOther.mU.mLongSysex.mDataP != nullptr)
        iOther.mU.mLongSysex.mDataP->AddReference();
    LongSysexDestruct();
    std::memcpy(&mU, &iOther.mU, sizeof(mU));
}

void Vela_Event::LongSysexDestruct() {
    if (mU.mBase.mType == kLongSysex && mU.mLongSysex.mDataP != nullptr) mU.mLongSysex.mDataP->RemoveReference();
}

void Vela_Event::MakeNull() {
    LongSysexDestruct();
    mU.mBase.mType = kNull;
}

int Vela_Event::GetPlaybackPriority() const {
    const int type = mU.mBase.mType;
    return (type >= 0 && type < kNumTypes) ? kPlaybackPriority[type] : 0;
}

bool Vela_Event::IsMessageSysex(int /*iMessageIndex*/) const {
    return mU.mBase.mType == kSysex || mU.mBase.mType == kLongSysex;
}

// ---------------------------------------------------------------- channel voice views

Vela_NoteOnEvent::Vela_NoteOnEvent(int8_t iPitch) : Vela_NoteOnEvent(iPitch, GetDefaultVelocity()) {}

int8_t Vela_NoteOnEvent::GetDefaultVelocity() { return sDefaultVelocity.load(std::memory_order_relaxed); }

void Vela_NoteOnEvent::SetDefaultVelocity(int8_t iVelocity) {
    sDefaultVelocity.store(iVelocity, std::memory_order_relaxed);
}

Vela_NoteWithDurationBase::Vela_NoteWithDurationBase(EEventType iType) { mU.mBase.mType = iType; }

Vela_NoteWithDurationBase::Vela_NoteWithDurationBase(int8_t iPitch, const Time_TypedLength& iDuration,
                                                     int8_t iOnVelocity, int8_t iOffVelocity, EEventType iType) {
    mU.mBase.mType = iType;
    mU.mNote.mPitch = iPitch;
    mU.mNote.mOnVelocity = iOnVelocity;
    mU.mNote.mOffVelocity = iOffVelocity;
    SetDuration(iDuration);
}

Vela_NoteWithDurationEvent::Vela_NoteWithDurationEvent() : Vela_NoteWithDurationBase(kNoteWithDuration) {}

Vela_NoteWithDurationEvent::Vela_NoteWithDurationEvent(int8_t iPitch, const Time_TypedLength& iDuration,
                                                       int8_t iOnVelocity, int8_t iOffVelocity)
    : Vela_NoteWithDurationBase(iPitch, iDuration, iOnVelocity, iOffVelocity, kNoteWithDuration) {}

Vela_ClearNoteInProgressEvent::Vela_ClearNoteInProgressEvent(int8_t iPitch, const Time_TypedLength& iDuration,
                                                             int8_t iOnVelocity, int8_t iOffVelocity)
    : Vela_NoteWithDurationBase(iPitch, iDuration, iOnVelocity, iOffVelocity, kClearNoteInProgress) {}

Vela_AddNoteInProgressEvent::Vela_AddNoteInProgressEvent(int8_t iPitch, const Time_TypedLength& iDuration,
                                                         int8_t iOnVelocity, int8_t iOffVelocity)
    : Vela_NoteWithDurationBase(iPitch, iDuration, iOnVelocity, iOffVelocity, kAddNoteInProgress) {}

Vela_PitchToMIDINoteWithDuration::Vela_PitchToMIDINoteWithDuration(int8_t iPitch, const Time_TypedLength& iDuration,
                                                                   int8_t iOnVelocity, int8_t iOffVelocity,
                                                                   float iFractionalPitch)
    : Vela_NoteWithDurationBase(iPitch, iDuration, iOnVelocity, iOffVelocity, kPitchToMIDINoteWithDuration) {
    mU.mNote.mFractionalPitch = iFractionalPitch;
}

// ---------------------------------------------------------------- program and bank bits

void Vela_ProgramEvent::SetProgram(int8_t iProgram) {
    mU.mWord.mByte1 = static_cast<int8_t>((mU.mWord.mByte1 & kProgramEnableBit) | iProgram);
}

void Vela_ProgramEvent::SetProgramEnable(bool iEnable) {
    int byte = mU.mWord.mByte1 & ~kProgramEnableBit;
    if (!iEnable) byte |= kProgramEnableBit;
    mU.mWord.mByte1 = static_cast<int8_t>(byte);
}

int16_t Vela_ProgramEvent::GetBank() const { return static_cast<int16_t>(mU.mWord.mWord & 0x3FFF); }

void Vela_ProgramEvent::SetBank(int16_t iBank) {
    mU.mWord.mWord = static_cast<int16_t>((mU.mWord.mWord & 0xC000) | iBank);
}

int8_t Vela_ProgramEvent::GetMSBBank() const { return static_cast<int8_t>((mU.mWord.mWord >> 7) & 0x7F); }

void Vela_ProgramEvent::SetMSBBank(int8_t iMSB) {
    mU.mWord.mWord = static_cast<int16_t>((mU.mWord.mWord & 0xC07F) | (static_cast<int>(iMSB) * 128));
}

int8_t Vela_ProgramEvent::GetLSBBank() const { return static_cast<int8_t>(mU.mWord.mWord & 0x7F); }

void Vela_ProgramEvent::SetLSBBank(int8_t iLSB) {
    mU.mWord.mWord = static_cast<int16_t>((mU.mWord.mWord & 0xFF80) | static_cast<int>(iLSB));
}

bool Vela_ProgramEvent::IsMSBBankEnabled() const { return (mU.mWord.mWord & kBankMSBEnableBit) == 0; }

bool Vela_ProgramEvent::IsLSBBankEnabled() const { return (mU.mWord.mWord & kBankLSBEnableBit) == 0; }

void Vela_ProgramEvent::SetMSBBankEnable(bool iEnable) {
    int word = mU.mWord.mWord & ~kBankMSBEnableBit;
    if (!iEnable) word |= kBankMSBEnableBit;
    mU.mWord.mWord = static_cast<int16_t>(word);
}

void Vela_ProgramEvent::SetLSBBankEnable(bool iEnable) {
    int word = mU.mWord.mWord & ~kBankLSBEnableBit;
    if (!iEnable) word |= kBankLSBEnableBit;
    mU.mWord.mWord = static_cast<int16_t>(word);
}

bool Vela_ProgramEvent::IsPartEnabled(EPart iPart) const {
    switch (iPart) {
        case kBankMSBPart: return IsMSBBankEnabled();
        case kBankLSBPart: return IsLSBBankEnabled();
        default: return IsProgramEnabled();
    }
}

int Vela_ProgramEvent::GetPartValue(EPart iPart) const {
    switch (iPart) {
        case kBankMSBPart: return GetMSBBank();
        case kBankLSBPart: return GetLSBBank();
        default: return GetProgram();
    }
}

uint32_t Vela_ProgramEvent::GetOMSPatchNum() const {
    uint32_t patch = 0xFF000000u;
    if (IsMSBBankEnabled()) patch |= static_cast<uint32_t>(static_cast<uint8_t>(GetMSBBank())) << 16;
    if (IsLSBBankEnabled()) patch |= static_cast<uint32_t>(static_cast<uint8_t>(GetLSBBank())) << 8;
    // The program byte goes in whole and sign-extended: a disabled program fills bits 8..31.
    return patch | static_cast<uint32_t>(static_cast<int32_t>(mU.mWord.mByte1));
}

// ---------------------------------------------------------------- system and internal views

Vela_SongPositionEvent::Vela_SongPositionEvent(int iPosition) {
    mU.mBase.mType = kSongPosition;
    SetPosition(iPosition);
}

Vela_StartEvent::Vela_StartEvent() { mU.mBase.mType = kStart; }
Vela_ContinueEvent::Vela_ContinueEvent() { mU.mBase.mType = kContinue; }
Vela_StopEvent::Vela_StopEvent() { mU.mBase.mType = kStop; }
Vela_TimingClockEvent::Vela_TimingClockEvent() { mU.mBase.mType = kTimingClock; }
Vela_AllNotesOffEvent::Vela_AllNotesOffEvent() { mU.mBase.mType = kAllNotesOff; }

Vela_ReleaseControllerEvent::Vela_ReleaseControllerEvent(int iIndex) {
    mU.mBase.mType = kReleaseController;
    mU.mRelease.mIndex = iIndex;
}

Vela_QuarterFrameEvent::Vela_QuarterFrameEvent(uint8_t iDataByte) { Init(iDataByte); }

Vela_QuarterFrameEvent::Vela_QuarterFrameEvent(EQuarterFrameMessage iMessage, uint8_t iNibble) {
    Init(static_cast<uint8_t>((iMessage << 4) | iNibble));
}

void Vela_QuarterFrameEvent::Init(uint8_t iDataByte) {
    mU.mBase.mType = kQuarterFrame;
    mU.mTwo.mByte1 = static_cast<int8_t>(iDataByte);
}

Vela_ClipEvent::Vela_ClipEvent(const std::string& iRegionName, const Time_TypedLength& iDuration) {
    mU.mBase.mType = kClip;
    const size_t kept = iRegionName.size() < size_t(kMaxClipName) ? iRegionName.size() : size_t(kMaxClipName);
    std::memcpy(mU.mClip.mName, iRegionName.data(), kept);
    mU.mClip.mName[kept] = '\0';
    mU.mClip.mDuration = static_cast<uint64_t>(iDuration.AsInt64());
}
