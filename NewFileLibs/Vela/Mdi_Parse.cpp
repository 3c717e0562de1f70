#include "Mdi_Parse.h"

#include <array>
#include <bit>
#include <typeinfo>

namespace {

constexpr unsigned char kSysexStart = 0xF0;
constexpr unsigned char kSysexEnd = 0xF7;
constexpr unsigned char kFirstSystemStatus = 0xF0;
constexpr unsigned char kFirstRealTime = 0xF8;
constexpr unsigned kFirstChannelModeController = 120;
constexpr unsigned kNoteOnToNoteOff = 0x10;  // 0x9n XOR this = 0x8n
constexpr unsigned kNoteOffVelocityForZeroNoteOn = 64;
constexpr unsigned kPitchBendCentreMSB = 64;
constexpr int kLongestChannelMessage = 3;

// Message lengths. A sysex (0) grows until its F7; F4, F5 and a lone F7 (kDropAtOnce) end at
// their status byte without reaching a handler.
constexpr uint8_t kSysexLength = 0;
constexpr uint8_t kDropAtOnce = 0xFF;
// Channel voice messages by high nibble, 0x8 to 0xE.
constexpr uint8_t kChannelMessageLength[7] = {3, 3, 3, 3, 2, 2, 3};
// System common messages, 0xF0 to 0xF7.
constexpr uint8_t kSystemMessageLength[8] = {kSysexLength, 2, 3, 2, kDropAtOnce, kDropAtOnce, 1, kDropAtOnce};

// The same, by status byte 0x80..0xF7 (indexed by status - 0x80), so the per-byte loop does
// one load. Real-time bytes never start a message and have no entry.
constexpr std::array<uint8_t, 0x78> MakeLengthByStatus() {
    std::array<uint8_t, 0x78> table{};
    for (int status = 0x80; status < kFirstSystemStatus; ++status) {
        table[status - 0x80] = kChannelMessageLength[(status >> 4) - 8];
    }
    for (int status = kFirstSystemStatus; status < kFirstRealTime; ++status) {
        table[status - 0x80] = kSystemMessageLength[status - kFirstSystemStatus];
    }
    return table;
}
constexpr std::array<uint8_t, 0x78> kLengthByStatus = MakeLengthByStatus();

inline int LengthOf(unsigned char iStatus) { return kLengthByStatus[iStatus - 0x80]; }

// A channel voice message taken whole; mData2 is 0 for the one-data-byte messages (0xC, 0xD).
struct Mdi_ChannelMessage {
    unsigned mStatus;
    unsigned mData1;
    unsigned mData2;
    int mLength;  // bytes of the message with its status byte: 2 or 3
};

// Frames the channel voice message starting at iByteP, with its status byte or under
// iRunningStatus, and returns the input bytes it takes; 0 when the bytes there are not a whole
// channel voice message (no running status, a system or real-time byte, a message cut by a
// status byte), which the byte-at-a-time path then sorts out. Three bytes must be readable.
// Branch-free apart from that answer: the message types of a live stream are unpredictable.
// (Masks rather than conditional expressions, which compilers tend to turn into branches.)
// Program change and channel pressure (0xC0..0xDF) carry one data byte, the others two.
inline unsigned HasOneDataByte(unsigned iStatus) { return (iStatus & 0xE0) == 0xC0; }

inline int FrameChannelMessage(const unsigned char* iByteP, unsigned iRunningStatus, Mdi_ChannelMessage& oMessage) {
    const unsigned first = iByteP[0];
    const unsigned hasStatus = first >> 7;
    const unsigned statusMask = 0u - hasStatus;
    const unsigned status = (first & statusMask) | (iRunningStatus & ~statusMask);
    if (status - 0x80u >= kFirstSystemStatus - 0x80u) return 0;
    const unsigned char* const dataP = iByteP + hasStatus;
    // The step to the next message is what one message waits for in the next: the length is
    // worked out both ways at once (the running status is known early) and then selected,
    // rather than after selecting the status.
    const unsigned oneDataByte = (HasOneDataByte(first) & statusMask) | (HasOneDataByte(iRunningStatus) & ~statusMask);
    const unsigned data1 = dataP[0];
    const unsigned data2 = dataP[1] & (oneDataByte - 1u);  // read even when unused: in bounds
    if (((data1 | data2) & 0x80) != 0) return 0;
    oMessage = {status, data1, data2, static_cast<int>(3 - oneDataByte)};
    return static_cast<int>(hasStatus + 2 - oneDataByte);
}

// With conversion on, a note-on of velocity 0 is a note-off of velocity 64; computed without a
// branch, as velocities in a live stream are unpredictable.
inline void ApplyNoteOnZeroRule(bool iConvert, unsigned& ioStatus, unsigned& ioData2) {
    const unsigned isZeroNoteOn = static_cast<unsigned>(iConvert) & ((ioStatus >> 4) == 0x9) & (ioData2 == 0);
    ioStatus ^= isZeroNoteOn * kNoteOnToNoteOff;
    ioData2 |= isZeroNoteOn * kNoteOffVelocityForZeroNoteOn;
}

// A 0xBn message with controller number 120 or more is a channel mode message.
inline bool IsChannelMode(unsigned iStatus, unsigned iData1) {
    return (iStatus >> 4) == 0xB && iData1 >= kFirstChannelModeController;
}

// How the event of each channel voice message is made, by high nibble 0x8..0xE. Byte 0 is the
// type and byte 1 the first data byte; the 16 bits at bytes 2..3 are the second data byte
// (at byte 2), the centred pitch bend, or a constant, as the masks select.
struct Mdi_ChannelEventForm {
    Vela_Event::EEventType mType;
    uint16_t mData2Mask;
    uint16_t mBendMask;
    uint16_t mConstant;
};
// MIDI input carries no bank with a program: both bank halves are disabled.
constexpr uint16_t kNoBank = static_cast<uint16_t>(Vela_ProgramEvent::kBankMSBDisabled | Vela_ProgramEvent::kBankLSBDisabled);
constexpr Mdi_ChannelEventForm kChannelEventForm[7] = {
    {Vela_Event::kNoteOff, 0xFFFF, 0, 0},       // 0x8
    {Vela_Event::kNoteOn, 0xFFFF, 0, 0},        // 0x9
    {Vela_Event::kPolyPressure, 0xFFFF, 0, 0},  // 0xA
    {Vela_Event::kController, 0xFFFF, 0, 0},    // 0xB
    {Vela_Event::kProgram, 0, 0, kNoBank},      // 0xC
    {Vela_Event::kMonoPressure, 0, 0, 0},       // 0xD
    {Vela_Event::kPitchBend, 0, 0xFFFF, 0},     // 0xE
};

// The event of a channel voice message of kind iKind (its high nibble), exactly as the typed
// views build it: Vela_NoteOffEvent(d1, d2), ..., Vela_ProgramEvent(d1, no bank),
// Vela_MonoPressureEvent(d1), Vela_PitchBendEvent((d2 - 64) * 128 + d1). Made from a table
// rather than a switch, so a stream of mixed messages costs no mispredicted branches.
class Mdi_ChannelVoiceEvent : public Vela_Event {
public:
    Mdi_ChannelVoiceEvent(unsigned iKind, unsigned iData1, unsigned iData2) {
        const Mdi_ChannelEventForm& form = kChannelEventForm[iKind - 0x8];
        const unsigned bend = (iData2 - kPitchBendCentreMSB) * 128 + iData1;
        const unsigned data2AtByte2 = std::endian::native == std::endian::little ? iData2 : iData2 << 8;
        mU.mWord.mType = form.mType;
        mU.mWord.mByte1 = static_cast<int8_t>(iData1);
        mU.mWord.mWord = static_cast<int16_t>((data2AtByte2 & form.mData2Mask) | (bend & form.mBendMask) | form.mConstant);
    }
};

inline bool DeliverTo(Mdie_EventReceiver* iReceiverP, const Vela_Event& iEvent) {
    if (iReceiverP != nullptr) iReceiverP->ReceiveEvent(iEvent);
    return true;  // every handler of the event parser answers true, delivered or not
}

}  // namespace

// ---------------------------------------------------------------- Mdi_Parse

Mdi_Parse::Mdi_Parse() : mRunningStatus(0), mCount(0), mConvertNoteOnZero(true), mBuffer{} {}

Mdi_Parse::~Mdi_Parse() = default;

bool Mdi_Parse::MidiStream(const unsigned char* iBytes, short iLength) {
    // The event parser's handlers are known when nothing overrides them: whole channel
    // messages then go straight to the receiver, without a virtual handler call.
    if (typeid(*this) == typeid(Mdi_ParseToEventReceiver)) {
        const Mdi_ParseToEventReceiver& self = static_cast<const Mdi_ParseToEventReceiver&>(*this);
        return StreamWith(iBytes, iLength, [this, &self](const Mdi_ChannelMessage& iMessage) {
            unsigned status = iMessage.mStatus;
            unsigned data2 = iMessage.mData2;
            ApplyNoteOnZeroRule(mConvertNoteOnZero, status, data2);
            if (IsChannelMode(status, iMessage.mData1)) return true;  // ignored on input
            return DeliverTo(self.GetEventReceiver(), Mdi_ChannelVoiceEvent(status >> 4, iMessage.mData1, data2));
        });
    }
    return StreamWith(iBytes, iLength, [this](const Mdi_ChannelMessage& iMessage) {
        mBuffer[0] = static_cast<unsigned char>(iMessage.mStatus);
        mBuffer[1] = static_cast<unsigned char>(iMessage.mData1);
        mBuffer[2] = static_cast<unsigned char>(iMessage.mData2);
        mCount = static_cast<int16_t>(iMessage.mLength);
        return DispatchMessage();
    });
}

// Between messages, whole channel voice messages (with their status byte or under running
// status) are taken in one step each; anything else (system and real-time bytes, a message
// cut by a status byte, stray data, the last bytes of the input) goes byte by byte. Both
// paths leave the same state, so slicing the input never changes the result. The count lives
// in a register while bytes are appended; handlers see it written back.
template <class FWholeMessage>
bool Mdi_Parse::StreamWith(const unsigned char* iBytes, short iLength, const FWholeMessage& iWholeMessage) {
    bool result = false;
    int count = mCount;
    const unsigned char* byteP = iBytes;
    const unsigned char* const end = iBytes + (iLength > 0 ? iLength : 0);
    while (byteP != end) {
        if (count == 0) {
            Mdi_ChannelMessage message;
            int used;
            unsigned runningStatus = mRunningStatus;
            while (end - byteP >= kLongestChannelMessage &&
                   (used = FrameChannelMessage(byteP, runningStatus, message)) != 0) {
                runningStatus = message.mStatus;
                mRunningStatus = static_cast<uint8_t>(runningStatus);
                byteP += used;
                result = iWholeMessage(message);
                // A handler may have changed the running status (cleared it, say). That is
                // rare, so the register copy is checked rather than reloaded, and the next
                // message need not wait for the load; when it did change, the byte path below
                // takes the next byte under the new state.
                if (mRunningStatus != runningStatus) [[unlikely]] break;
            }
            if (byteP == end) break;
        }
        count = ConsumeByte(byteP++, count, result);
    }
    mCount = static_cast<int16_t>(count);
    return result;
}

// One byte of any kind; returns the new count. Handlers see the count written back.
int Mdi_Parse::ConsumeByte(const unsigned char* iByteP, int iCount, bool& ioResult) {
    const unsigned char b = *iByteP;
    int count = iCount;
    if (b < 0x80) {
        if (count == 0) {
            if (mRunningStatus == 0) return 0;  // stray data
            mBuffer[0] = mRunningStatus;
            count = 1;
        }
        mBuffer[count++] = b;
        if (count != LengthOf(mBuffer[0])) {
            // Only a sysex grows past 3 bytes; one that no longer fits is dropped, and with
            // no running status its remaining data falls away as stray bytes.
            return count > kMaxSysexBeforeEnd ? 0 : count;
        }
    } else if (b >= kFirstRealTime) {
        // Real-time bytes leave the message being assembled untouched.
        mCount = static_cast<int16_t>(count);
        ioResult = ParseRealTime(iByteP);
        return mCount;
    } else if (b == kSysexEnd && count > 0 && mBuffer[0] == kSysexStart) {
        mBuffer[count++] = kSysexEnd;
        mCount = static_cast<int16_t>(count);
        ioResult = ParseSysEx(mBuffer, static_cast<short>(count));
        return 0;
    } else {
        // A status byte drops any partial message; system common cancels running status.
        mRunningStatus = b < kFirstSystemStatus ? b : 0;
        mBuffer[0] = b;
        const int length = LengthOf(b);
        if (length == kDropAtOnce) return 0;
        if (length != 1) return 1;
        count = 1;
    }
    mCount = static_cast<int16_t>(count);
    ioResult = DispatchMessage();
    return 0;
}

bool Mdi_Parse::DispatchMessage() {
    const unsigned char* message = mBuffer;
    switch (message[0] >> 4) {
        case 0x8: return ParseNoteOff(message);
        case 0x9: return DispatchNoteOn();
        case 0xA: return ParsePolyphonic(message);
        case 0xB: return IsChannelMode(message[0], message[1]) ? ParseChannelMode(message) : ParseController(message);
        case 0xC: return ParseProgramChange(message);
        case 0xD: return ParseChannelPressure(message);
        case 0xE: return ParsePitchBend(message);
        default: break;
    }
    switch (message[0]) {
        case 0xF1: return ParseTimecode(message);
        case 0xF2: return ParseSongPointer(message);
        case 0xF3: return ParseSongSelect(message);
        default: return ParseTuneRequest(message);  // F6: the only other message that completes
    }
}

bool Mdi_Parse::DispatchNoteOn() {
    unsigned status = mBuffer[0];
    unsigned data2 = mBuffer[2];
    ApplyNoteOnZeroRule(mConvertNoteOnZero, status, data2);
    if (status == mBuffer[0]) return ParseNoteOn(mBuffer);
    const unsigned char noteOff[3] = {static_cast<unsigned char>(status), mBuffer[1], static_cast<unsigned char>(data2)};
    return ParseNoteOff(noteOff);
}

void Mdi_Parse::ClearRunningStatus() {
    mRunningStatus = 0;
    mCount = 0;
}

void Mdi_Parse::Reset() { ClearRunningStatus(); }

bool Mdi_Parse::ParseRealTime(const unsigned char*) { return false; }
bool Mdi_Parse::ParseSysEx(const unsigned char*, short) { return false; }
bool Mdi_Parse::ParseNoteOff(const unsigned char*) { return false; }
bool Mdi_Parse::ParseNoteOn(const unsigned char*) { return false; }
bool Mdi_Parse::ParsePolyphonic(const unsigned char*) { return false; }
bool Mdi_Parse::ParseChannelMode(const unsigned char*) { return false; }
bool Mdi_Parse::ParseController(const unsigned char*) { return false; }
bool Mdi_Parse::ParseProgramChange(const unsigned char*) { return false; }
bool Mdi_Parse::ParseChannelPressure(const unsigned char*) { return false; }
bool Mdi_Parse::ParsePitchBend(const unsigned char*) { return false; }
bool Mdi_Parse::ParseTimecode(const unsigned char*) { return false; }
bool Mdi_Parse::ParseSongPointer(const unsigned char*) { return false; }
bool Mdi_Parse::ParseSongSelect(const unsigned char*) { return false; }
bool Mdi_Parse::ParseTuneRequest(const unsigned char*) { return false; }

// ---------------------------------------------------------------- Mdi_ParseToEventReceiver

Mdi_ParseToEventReceiver::Mdi_ParseToEventReceiver() : mReceiverP(nullptr) {}

// Each handler makes the event of its own message kind from the message's data bytes.
bool Mdi_ParseToEventReceiver::ParseNoteOff(const unsigned char* iMessage) { return Deliver(0x8, iMessage); }
bool Mdi_ParseToEventReceiver::ParseNoteOn(const unsigned char* iMessage) { return Deliver(0x9, iMessage); }
bool Mdi_ParseToEventReceiver::ParsePolyphonic(const unsigned char* iMessage) { return Deliver(0xA, iMessage); }
bool Mdi_ParseToEventReceiver::ParseController(const unsigned char* iMessage) { return Deliver(0xB, iMessage); }
bool Mdi_ParseToEventReceiver::ParseProgramChange(const unsigned char* iMessage) { return Deliver(0xC, iMessage); }
bool Mdi_ParseToEventReceiver::ParseChannelPressure(const unsigned char* iMessage) { return Deliver(0xD, iMessage); }
bool Mdi_ParseToEventReceiver::ParsePitchBend(const unsigned char* iMessage) { return Deliver(0xE, iMessage); }

bool Mdi_ParseToEventReceiver::Deliver(unsigned iKind, const unsigned char* iMessage) {
    // A two-byte message (program change, channel pressure) has no byte 2 to read.
    const unsigned data2 = kChannelMessageLength[iKind - 0x8] == 3 ? iMessage[2] : 0u;
    return DeliverTo(mReceiverP, Mdi_ChannelVoiceEvent(iKind, iMessage[1], data2));
}

// The input path ignores these on purpose; returning true still marks the end of a message.
bool Mdi_ParseToEventReceiver::ParseRealTime(const unsigned char*) { return true; }
bool Mdi_ParseToEventReceiver::ParseSysEx(const unsigned char*, short) { return true; }
bool Mdi_ParseToEventReceiver::ParseChannelMode(const unsigned char*) { return true; }
bool Mdi_ParseToEventReceiver::ParseTimecode(const unsigned char*) { return true; }
bool Mdi_ParseToEventReceiver::ParseSongPointer(const unsigned char*) { return true; }
bool Mdi_ParseToEventReceiver::ParseSongSelect(const unsigned char*) { return true; }
bool Mdi_ParseToEventReceiver::ParseTuneRequest(const unsigned char*) { return true; }

// ---------------------------------------------------------------- Mdi_ParseSingleEvent

namespace {

// Keeps the event a parser delivers, with the channel current at delivery.
class Mdi_SingleEventCatcher : public Mdie_EventReceiver {
public:
    Mdi_SingleEventCatcher(const Mdi_Parse& iParser, Vela_Event& oEvent, signed char& oChannel)
        : mParser(iParser), mEvent(oEvent), mChannel(oChannel) {}
    void ReceiveEvent(const Vela_Event& iEvent) override {
        mEvent = iEvent;
        mChannel = static_cast<signed char>(mParser.GetChannel());
    }

private:
    const Mdi_Parse& mParser;
    Vela_Event& mEvent;
    signed char& mChannel;
};

}  // namespace

Vela_Event Mdi_ParseSingleEvent(signed char* oChannel, int* oBytesUsed, const void* iData, int iLength) {
    Vela_Event result;
    signed char channel = -1;
    Mdi_ParseToEventReceiver parser;
    Mdi_SingleEventCatcher catcher(parser, result, channel);
    parser.SetEventReceiver(&catcher);

    const auto* bytes = static_cast<const unsigned char*>(iData);
    int used = 0;
    while (used < iLength) {
        if (parser.MidiStream(bytes + used++, 1)) break;
    }
    if (oBytesUsed != nullptr) *oBytesUsed = used;
    if (oChannel != nullptr) *oChannel = channel;
    return result;
}
