// Vela_Event to MIDI wire messages. Status bytes are for channel 0; the sender ORs its channel
// into the first byte of channel messages. Nothing here allocates: this runs on the output thread.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "Cmn_Assert.h"
#include "Vela_Event.h"

namespace {

enum class EWire : uint8_t {
    kNothing,         // legal, no wire form: 0 messages
    kSingle,          // one message of the table's length and status
    kProgram,         // bank MSB, bank LSB, program: each only when enabled
    kSysex,           // F0, payload, F7 (types 14, 15)
    kPacket,          // a raw packet is never a message: 0 messages, asserts when asked for one
    kNoteInProgress,  // internal to the track state: asserts everywhere
    kInvalid,         // codes beyond the MIDI types: asserts everywhere
};

struct WireForm {
    EWire mKind;
    int8_t mLength;
    uint8_t mStatus;
};

constexpr WireForm kWireForms[Vela_Event::kLastMIDIType + 1] = {
    {EWire::kNothing, 0, 0x00},          // kNull
    {EWire::kSingle, 3, 0x90},           // kNoteOn
    {EWire::kSingle, 3, 0x80},           // kNoteOff (90 pp 00 when the velocity is 64)
    {EWire::kNothing, 0, 0x00},          // kNoteWithDuration
    {EWire::kSingle, 3, 0xE0},           // kPitchBend
    {EWire::kSingle, 3, 0xB0},           // kController
    {EWire::kProgram, 0, 0x00},          // kProgram
    {EWire::kSingle, 2, 0xD0},           // kMonoPressure
    {EWire::kSingle, 3, 0xA0},           // kPolyPressure
    {EWire::kSingle, 3, 0xF2},           // kSongPosition
    {EWire::kSingle, 1, 0xFA},           // kStart
    {EWire::kSingle, 1, 0xFB},           // kContinue
    {EWire::kSingle, 1, 0xFC},           // kStop
    {EWire::kSingle, 1, 0xF8},           // kTimingClock
    {EWire::kSysex, 0, 0xF0},            // kSysex
    {EWire::kSysex, 0, 0xF0},            // kLongSysex
    {EWire::kPacket, 0, 0x00},           // kSysexPacket
    {EWire::kNoteInProgress, 0, 0x00},   // kClearNoteInProgress
    {EWire::kNoteInProgress, 0, 0x00},   // kAddNoteInProgress
    {EWire::kNothing, 0, 0x00},          // kReleaseController
    {EWire::kSingle, 3, 0xB0},           // kAllNotesOff
    {EWire::kSingle, 2, 0xF1},           // kQuarterFrame
};
constexpr WireForm kInvalidForm{EWire::kInvalid, 0, 0x00};
constexpr int kMaxSingleLength = 3;

constexpr unsigned char kSysexStart = 0xF0;
constexpr unsigned char kSysexEnd = 0xF7;
constexpr int kNeutralReleaseVelocity = 64;

const WireForm& FormOf(int iType) {
    return (iType >= 0 && iType <= Vela_Event::kLastMIDIType) ? kWireForms[iType] : kInvalidForm;
}

// Kinds that cannot be counted or asked for a message: report, and the caller answers 0.
bool RejectsCount(EWire iKind) {
    const bool rejected = iKind == EWire::kNoteInProgress || iKind == EWire::kInvalid;
    if (rejected) VELA_ASSERT(0);
    return rejected;
}
bool RejectsMessage(EWire iKind) {
    const bool rejected = iKind == EWire::kPacket || iKind == EWire::kNoteInProgress || iKind == EWire::kInvalid;
    if (rejected) VELA_ASSERT(0);
    return rejected;
}

// ---- program change: up to three parts, in this fixed order.
struct ProgramPart {
    int8_t mLength;
    uint8_t mStatus;
    int8_t mController;  // data byte after the status of a bank select; -1 for the program change
};
constexpr ProgramPart kProgramParts[] = {
    {3, 0xB0, 0x00},  // bank select MSB
    {3, 0xB0, 0x20},  // bank select LSB
    {2, 0xC0, -1},    // program change
};
constexpr int kNumProgramParts = sizeof(kProgramParts) / sizeof(kProgramParts[0]);
static_assert(kNumProgramParts == Vela_ProgramEvent::kNumParts);

Vela_ProgramEvent::EPart PartAt(int iPart) { return static_cast<Vela_ProgramEvent::EPart>(iPart); }

int CountProgramParts(const Vela_ProgramEvent& iEvent) {
    int count = 0;
    for (int part = 0; part < kNumProgramParts; ++part) count += iEvent.IsPartEnabled(PartAt(part)) ? 1 : 0;
    return count;
}

// The part that message index iIndex names (the index counts enabled parts only), or -1.
int FindProgramPart(const Vela_ProgramEvent& iEvent, int iIndex) {
    for (int part = 0; part < kNumProgramParts; ++part) {
        if (!iEvent.IsPartEnabled(PartAt(part))) continue;
        if (iIndex == 0) return part;
        --iIndex;
    }
    return -1;
}

int WriteProgramMessage(const Vela_ProgramEvent& iEvent, signed char* oData, int iIndex) {
    const int part = FindProgramPart(iEvent, iIndex);
    if (part < 0) return 0;
    const ProgramPart& form = kProgramParts[part];
    signed char* outP = oData;
    *outP++ = static_cast<signed char>(form.mStatus);
    if (form.mController >= 0) *outP++ = form.mController;
    *outP++ = static_cast<signed char>(iEvent.GetPartValue(PartAt(part)));
    return form.mLength;
}

// ---- single messages: the status from the table, the data bytes from the event's view.
void Write14Bits(unsigned iValue, signed char* oData) {
    oData[0] = static_cast<signed char>(iValue & 0x7F);
    oData[1] = static_cast<signed char>((iValue >> 7) & 0x7F);
}

int WriteSingleMessage(const Vela_Event& iEvent, const WireForm& iForm, signed char* oData) {
    oData[0] = static_cast<signed char>(iForm.mStatus);
    switch (iEvent.GetType()) {
        case Vela_Event::kNoteOn:
            oData[1] = iEvent.AsNoteOn().GetPitch();
            oData[2] = iEvent.AsNoteOn().GetVelocity();
            break;
        case Vela_Event::kNoteOff:
            oData[1] = iEvent.AsNoteOff().GetPitch();
            oData[2] = iEvent.AsNoteOff().GetVelocity();
            // The neutral release velocity goes out as a note-on of velocity 0.
            if (oData[2] == kNeutralReleaseVelocity) {
                oData[0] = static_cast<signed char>(kWireForms[Vela_Event::kNoteOn].mStatus);
                oData[2] = 0;
            }
            break;
        case Vela_Event::kPitchBend:
            Write14Bits(static_cast<uint16_t>(iEvent.AsPitchBend().GetBendValue() + 8192), oData + 1);
            break;
        case Vela_Event::kController:
            oData[1] = iEvent.AsController().GetControllerNumber();
            oData[2] = iEvent.AsController().GetValue();
            break;
        case Vela_Event::kMonoPressure:
            oData[1] = iEvent.AsMonoPressure().GetPressure();
            break;
        case Vela_Event::kPolyPressure:
            oData[1] = iEvent.AsPolyPressure().GetPitch();
            oData[2] = iEvent.AsPolyPressure().GetPressure();
            break;
        case Vela_Event::kSongPosition:
            Write14Bits(static_cast<uint16_t>(iEvent.AsSongPosition().GetPosition()), oData + 1);
            break;
        case Vela_Event::kAllNotesOff:
            oData[1] = 0x7B;
            oData[2] = 0x00;
            break;
        case Vela_Event::kQuarterFrame:
            oData[1] = static_cast<signed char>(iEvent.AsQuarterFrame().GetQFDataByte());
            break;
        default:  // status-only messages
            break;
    }
    return iForm.mLength;
}

// Writes message iIndex of a single-message or program event; answers its length (0: none).
int WriteFixedMessage(const Vela_Event& iEvent, const WireForm& iForm, signed char* oData, int iIndex) {
    if (iForm.mKind == EWire::kProgram) return WriteProgramMessage(iEvent.AsProgram(), oData, iIndex);
    if (iForm.mKind == EWire::kSingle && iIndex == 0) return WriteSingleMessage(iEvent, iForm, oData);
    return 0;
}

// One slice of F0, payload, F7. A slice ending on the last payload byte carries no F7; the
// next slice (offset = payload length + 1) then holds the F7 alone.
void WriteSysexSlice(const unsigned char* iPayloadP, int iPayloadLength, signed char* oData, int iOffset, int iCount) {
    if (iCount <= 0 || iOffset < 0) return;
    if (iOffset == 0) {
        *oData++ = static_cast<signed char>(kSysexStart);
        iOffset = 1;
        --iCount;
    }
    const int start = iOffset - 1;
    const int available = std::max(iPayloadLength - start, 0);
    const int copied = std::min(available, iCount);
    if (copied > 0) std::memcpy(oData, iPayloadP + start, size_t(copied));
    if (iCount - copied > 0) oData[copied] = static_cast<signed char>(kSysexEnd);
}

}  // namespace

int Vela_Event::GetNumMessages() const {
    const WireForm& form = FormOf(mU.mBase.mType);
    if (RejectsCount(form.mKind)) return 0;
    switch (form.mKind) {
        case EWire::kSingle: return 1;
        case EWire::kProgram: return CountProgramParts(AsProgram());
        case EWire::kSysex: return (mU.mBase.mType == kSysex || IsCompleteLongSysex()) ? 1 : 0;
        default: return 0;
    }
}

int Vela_Event::GetMessageLength(int iMessageIndex) const {
    const WireForm& form = FormOf(mU.mBase.mType);
    if (RejectsMessage(form.mKind)) return 0;
    switch (form.mKind) {
        case EWire::kSingle:
            return iMessageIndex == 0 ? form.mLength : 0;
        case EWire::kProgram: {
            const int part = FindProgramPart(AsProgram(), iMessageIndex);
            return part < 0 ? 0 : kProgramParts[part].mLength;
        }
        case EWire::kSysex: {
            const unsigned char* payloadP = nullptr;
            int length = 0;
            return (iMessageIndex == 0 && GetSysexPayload(payloadP, length)) ? length + 2 : 0;
        }
        default:
            return 0;
    }
}

void Vela_Event::GetMessageData(signed char* oData, int iMessageIndex) const {
    const WireForm& form = FormOf(mU.mBase.mType);
    if (RejectsMessage(form.mKind)) return;
    const unsigned char* payloadP = nullptr;
    int length = 0;
    if (form.mKind != EWire::kSysex)
        WriteFixedMessage(*this, form, oData, iMessageIndex);
    else if (iMessageIndex == 0 && GetSysexPayload(payloadP, length))
        WriteSysexSlice(payloadP, length, oData, 0, length + 2);
}

void Vela_Event::GetPartialMessageData(signed char* oData, int iMessageIndex, int iOffset, int iCount) const {
    const WireForm& form = FormOf(mU.mBase.mType);
    if (form.mKind == EWire::kSysex) {
        // Sliced straight from the stored bytes, so long messages are never copied whole.
        const unsigned char* payloadP = nullptr;
        int length = 0;
        if (iMessageIndex == 0 && GetSysexPayload(payloadP, length)) WriteSysexSlice(payloadP, length, oData, iOffset, iCount);
        return;
    }
    if (RejectsMessage(form.mKind) || iOffset < 0) return;
    signed char scratch[kMaxSingleLength];
    const int length = WriteFixedMessage(*this, form, scratch, iMessageIndex);
    const int copied = std::min(iCount, length - iOffset);
    if (copied > 0) std::memcpy(oData, scratch + iOffset, size_t(copied));
}
