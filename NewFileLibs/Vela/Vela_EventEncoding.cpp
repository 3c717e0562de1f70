// Vela_Event to MIDI wire messages. The message interface writes status bytes for channel 0 and
// the sender ORs its channel in; WriteMessages writes everything at once with the channel in.
// Both take each type's bytes from one table, so the one-call path is a table lookup and a few
// masks for every single message. Nothing here allocates: this runs on the output thread.
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

// Where the data bytes of a single message come from.
enum class EData : uint8_t {
    kBytes,        // bytes 1 and 2 of the event, as stored (unused ones are never sent)
    kNoteOff,      // bytes 1 and 2, but a release velocity of 64 goes out as 9n pp 00
    kBend,         // the word at bytes 2..3 plus 8192, as two 7-bit halves
    kWord,         // the word at bytes 2..3 as it is, as two 7-bit halves
    kAllNotesOff,  // controller 7B, value 00
};

struct WireForm {
    EWire mKind;
    int8_t mLength;
    uint8_t mStatus;
    EData mData;
};

constexpr WireForm kWireForms[Vela_Event::kLastMIDIType + 1] = {
    {EWire::kNothing, 0, 0x00, EData::kBytes},          // kNull
    {EWire::kSingle, 3, 0x90, EData::kBytes},           // kNoteOn
    {EWire::kSingle, 3, 0x80, EData::kNoteOff},         // kNoteOff
    {EWire::kNothing, 0, 0x00, EData::kBytes},          // kNoteWithDuration
    {EWire::kSingle, 3, 0xE0, EData::kBend},            // kPitchBend
    {EWire::kSingle, 3, 0xB0, EData::kBytes},           // kController
    {EWire::kProgram, 0, 0x00, EData::kBytes},          // kProgram
    {EWire::kSingle, 2, 0xD0, EData::kBytes},           // kMonoPressure
    {EWire::kSingle, 3, 0xA0, EData::kBytes},           // kPolyPressure
    {EWire::kSingle, 3, 0xF2, EData::kWord},            // kSongPosition
    {EWire::kSingle, 1, 0xFA, EData::kBytes},           // kStart
    {EWire::kSingle, 1, 0xFB, EData::kBytes},           // kContinue
    {EWire::kSingle, 1, 0xFC, EData::kBytes},           // kStop
    {EWire::kSingle, 1, 0xF8, EData::kBytes},           // kTimingClock
    {EWire::kSysex, 0, 0xF0, EData::kBytes},            // kSysex
    {EWire::kSysex, 0, 0xF0, EData::kBytes},            // kLongSysex
    {EWire::kPacket, 0, 0x00, EData::kBytes},           // kSysexPacket
    {EWire::kNoteInProgress, 0, 0x00, EData::kBytes},   // kClearNoteInProgress
    {EWire::kNoteInProgress, 0, 0x00, EData::kBytes},   // kAddNoteInProgress
    {EWire::kNothing, 0, 0x00, EData::kBytes},          // kReleaseController
    {EWire::kSingle, 3, 0xB0, EData::kAllNotesOff},     // kAllNotesOff
    {EWire::kSingle, 2, 0xF1, EData::kBytes},           // kQuarterFrame
};
constexpr WireForm kInvalidForm{EWire::kInvalid, 0, 0x00, EData::kBytes};
constexpr int kMaxSingleLength = 3;

constexpr unsigned char kSysexStart = 0xF0;
constexpr unsigned char kSysexEnd = 0xF7;
constexpr int kNeutralReleaseVelocity = 64;
constexpr uint8_t kNoteOnFromNoteOff = 0x80 ^ 0x90;

// The table above flattened for the encoder: one entry for every value of the type byte (so no
// range check), each data rule turned into masks and a shift that apply it without branches.
// The source is bytes 1 and 2 as one value (byte 1 low) or the word at bytes 2..3 plus
// mWordBias, chosen by masks; data byte 1 = (source AND mKeep1) OR mSet1, data byte 2 =
// ((source >> mShift2) AND mKeep2) OR mSet2.
struct FastForm {
    EWire mKind;
    int8_t mLength;
    uint8_t mStatus;
    uint8_t mChannelMask;  // 0x0F for channel messages, 0 for system messages
    uint16_t mBytesMask;   // 0xFFFF when the source is bytes 1 and 2, else 0
    uint16_t mWordMask;    // 0xFFFF when the source is the word, else 0
    uint16_t mWordBias;
    uint8_t mShift2;
    uint8_t mKeep1, mSet1, mKeep2, mSet2;
    uint8_t mNoteOffRule;  // 1: a data byte 2 of 64 turns 8n pp 40 into 9n pp 00
};

constexpr FastForm Flatten(const WireForm& iForm) {
    const bool fromWord = iForm.mData == EData::kBend || iForm.mData == EData::kWord;
    const bool fixed = iForm.mData == EData::kAllNotesOff;
    FastForm fast{};
    fast.mKind = iForm.mKind;
    fast.mLength = iForm.mLength;
    fast.mStatus = iForm.mStatus;
    fast.mChannelMask = iForm.mStatus < 0xF0 ? 0x0F : 0x00;
    fast.mBytesMask = fromWord ? 0 : 0xFFFF;
    fast.mWordMask = fromWord ? 0xFFFF : 0;
    fast.mWordBias = iForm.mData == EData::kBend ? 8192 : 0;
    fast.mShift2 = fromWord ? 7 : 8;
    fast.mKeep1 = fast.mKeep2 = fixed ? 0x00 : fromWord ? 0x7F : 0xFF;
    fast.mSet1 = fixed ? 0x7B : 0x00;
    fast.mNoteOffRule = iForm.mData == EData::kNoteOff ? 1 : 0;
    return fast;
}

struct FastForms {
    FastForm mByType[256];
};

constexpr FastForms MakeFastForms() {
    FastForms forms{};
    for (int code = 0; code < 256; ++code) {
        const auto type = static_cast<int8_t>(code);
        forms.mByType[code] = Flatten(type >= 0 && type <= Vela_Event::kLastMIDIType ? kWireForms[type] : kInvalidForm);
    }
    return forms;
}
constexpr FastForms kFastForms = MakeFastForms();

const FastForm& FastFormOf(int8_t iType) { return kFastForms.mByType[static_cast<uint8_t>(iType)]; }

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

// ---- single messages: three bytes from the event's first word, whatever the type (only the
// form's length of them are sent). Channel voice events keep their data in bytes 1 and 2, or
// a 14-bit word in bytes 2..3.
void WriteSingle(const Vela_Event& iEvent, const FastForm& iForm, unsigned iChannel, signed char* oData) {
    const unsigned bytes = static_cast<uint8_t>(iEvent.AsNoteOn().GetPitch()) |
                           static_cast<unsigned>(static_cast<uint8_t>(iEvent.AsNoteOn().GetVelocity())) << 8;
    const unsigned word = static_cast<uint16_t>(iEvent.AsPitchBend().GetBendValue() + iForm.mWordBias);
    const unsigned source = (bytes & iForm.mBytesMask) | (word & iForm.mWordMask);
    const unsigned data1 = (source & iForm.mKeep1) | iForm.mSet1;
    const unsigned data2 = ((source >> iForm.mShift2) & iForm.mKeep2) | iForm.mSet2;
    const unsigned neutral = iForm.mNoteOffRule & static_cast<unsigned>(data2 == kNeutralReleaseVelocity);
    oData[0] = static_cast<signed char>((iForm.mStatus ^ (neutral * kNoteOnFromNoteOff)) | (iChannel & iForm.mChannelMask));
    oData[1] = static_cast<signed char>(data1);
    oData[2] = static_cast<signed char>(data2 & (neutral - 1u));  // 0 for the neutral note-off
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
// Every part written back to back: the most any event but sysex takes.
static_assert(kProgramParts[0].mLength + kProgramParts[1].mLength + kProgramParts[2].mLength <= Vela_Event::kMaxFixedWireLength);

Vela_ProgramEvent::EPart PartAt(int iPart) { return static_cast<Vela_ProgramEvent::EPart>(iPart); }

// Writes a part whole (a program change's value lands on the controller's place); its length.
int WriteProgramPart(const Vela_ProgramEvent& iEvent, int iPart, unsigned iChannel, signed char* oData) {
    const ProgramPart& form = kProgramParts[iPart];
    oData[0] = static_cast<signed char>(form.mStatus | (iChannel & 0x0F));
    oData[1] = form.mController;
    oData[form.mLength - 1] = static_cast<signed char>(iEvent.GetPartValue(PartAt(iPart)));
    return form.mLength;
}

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
    return part < 0 ? 0 : WriteProgramPart(iEvent, part, 0, oData);
}

// Every enabled part, back to back: each part is written, and kept only when enabled (needs
// kMaxFixedWireLength bytes of room).
int WriteProgramMessages(const Vela_ProgramEvent& iEvent, unsigned iChannel, signed char* oData) {
    int length = 0;
    for (int part = 0; part < kNumProgramParts; ++part) {
        const int written = WriteProgramPart(iEvent, part, iChannel, oData + length);
        length += iEvent.IsPartEnabled(PartAt(part)) ? written : 0;
    }
    return length;
}

// Writes message iIndex of a single-message or program event; answers its length (0: none).
int WriteFixedMessage(const Vela_Event& iEvent, const FastForm& iForm, signed char* oData, int iIndex) {
    if (iForm.mKind == EWire::kProgram) return WriteProgramMessage(iEvent.AsProgram(), oData, iIndex);
    if (iForm.mKind != EWire::kSingle || iIndex != 0) return 0;
    signed char bytes[kMaxSingleLength];
    WriteSingle(iEvent, iForm, 0, bytes);
    std::memcpy(oData, bytes, size_t(iForm.mLength));
    return iForm.mLength;
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

// WriteMessages for all but a single message with room: kept out of line so the common case
// stays a few instructions.
[[gnu::noinline]] int WriteOtherMessages(const Vela_Event& iEvent, const FastForm& iForm, signed char* oData, int iCapacity,
                                         unsigned iChannel) {
    if (iForm.mKind == EWire::kSingle || iForm.mKind == EWire::kProgram) {
        // Written whole, in place when there is room for the most any of them takes.
        signed char scratch[Vela_Event::kMaxFixedWireLength];
        signed char* outP = iCapacity >= Vela_Event::kMaxFixedWireLength ? oData : scratch;
        int length = iForm.mLength;
        if (iForm.mKind == EWire::kSingle)
            WriteSingle(iEvent, iForm, iChannel, outP);
        else
            length = WriteProgramMessages(iEvent.AsProgram(), iChannel, outP);
        if (outP == scratch && length <= iCapacity) std::memcpy(oData, scratch, size_t(length));
        return length;
    }
    if (iForm.mKind == EWire::kSysex) {
        if (iEvent.GetNumMessages() == 0) return 0;  // an incomplete long sysex is never sent
        const int length = iEvent.GetMessageLength(0);
        if (length <= iCapacity) iEvent.GetMessageData(oData, 0);
        return length;
    }
    RejectsCount(iForm.mKind);
    return 0;
}

}  // namespace

int Vela_Event::GetNumMessages() const {
    const FastForm& form = FastFormOf(mU.mBase.mType);
    if (RejectsCount(form.mKind)) return 0;
    switch (form.mKind) {
        case EWire::kSingle: return 1;
        case EWire::kProgram: return CountProgramParts(AsProgram());
        case EWire::kSysex: return (mU.mBase.mType == kSysex || IsCompleteLongSysex()) ? 1 : 0;
        default: return 0;
    }
}

int Vela_Event::GetMessageLength(int iMessageIndex) const {
    const FastForm& form = FastFormOf(mU.mBase.mType);
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
    const FastForm& form = FastFormOf(mU.mBase.mType);
    if (RejectsMessage(form.mKind)) return;
    const unsigned char* payloadP = nullptr;
    int length = 0;
    if (form.mKind != EWire::kSysex)
        WriteFixedMessage(*this, form, oData, iMessageIndex);
    else if (iMessageIndex == 0 && GetSysexPayload(payloadP, length))
        WriteSysexSlice(payloadP, length, oData, 0, length + 2);
}

void Vela_Event::GetPartialMessageData(signed char* oData, int iMessageIndex, int iOffset, int iCount) const {
    const FastForm& form = FastFormOf(mU.mBase.mType);
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

int Vela_Event::WriteMessages(signed char* oData, int iCapacity, int iChannel) const {
    const FastForm& form = FastFormOf(mU.mBase.mType);
    if (form.mKind == EWire::kSingle && iCapacity >= kMaxFixedWireLength) [[likely]] {
        WriteSingle(*this, form, static_cast<unsigned>(iChannel), oData);
        return form.mLength;
    }
    return WriteOtherMessages(*this, form, oData, iCapacity, static_cast<unsigned>(iChannel));
}
