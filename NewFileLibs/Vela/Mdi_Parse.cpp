#include "Mdi_Parse.h"

#include <array>

namespace {

constexpr unsigned char kSysexStart = 0xF0;
constexpr unsigned char kSysexEnd = 0xF7;
constexpr unsigned char kFirstSystemStatus = 0xF0;
constexpr unsigned char kFirstRealTime = 0xF8;
constexpr unsigned char kFirstChannelModeController = 120;
constexpr unsigned char kNoteOffStatus = 0x80;
constexpr unsigned char kNoteOffVelocityForZeroNoteOn = 64;
constexpr int kPitchBendCentreMSB = 64;
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

inline int8_t Data1(const unsigned char* iMessage) { return static_cast<int8_t>(iMessage[1]); }
inline int8_t Data2(const unsigned char* iMessage) { return static_cast<int8_t>(iMessage[2]); }

}  // namespace

// ---------------------------------------------------------------- Mdi_Parse

Mdi_Parse::Mdi_Parse() : mRunningStatus(0), mCount(0), mConvertNoteOnZero(true), mBuffer{} {}

Mdi_Parse::~Mdi_Parse() = default;

bool Mdi_Parse::MidiStream(const unsigned char* iBytes, short iLength) {
    bool result = false;
    // The count lives in a register while bytes are appended (stores into the byte buffer
    // would otherwise force it to be reloaded); handlers see it written back.
    int count = mCount;
    const unsigned char* byteP = iBytes;
    const unsigned char* const end = iBytes + (iLength > 0 ? iLength : 0);
    while (byteP != end) {
        if (count == 0 && end - byteP >= kLongestChannelMessage) {
            const unsigned char* const nextP = ReadWholeChannelMessage(byteP);
            if (nextP != nullptr) {
                result = DispatchMessage();
                byteP = nextP;
                continue;
            }
        }
        count = ConsumeByte(byteP++, count, result);
    }
    mCount = static_cast<int16_t>(count);
    return result;
}

// Between messages, a whole channel voice message (with its status byte or under running
// status) is taken in one step with no per-byte branching; anything else (system and
// real-time bytes, a message cut by a status byte, stray data) goes byte by byte. Both paths
// leave the same state, so slicing the input never changes the result.
const unsigned char* Mdi_Parse::ReadWholeChannelMessage(const unsigned char* iByteP) {
    const unsigned first = iByteP[0];
    const bool hasStatus = first >= 0x80;
    const unsigned status = hasStatus ? first : mRunningStatus;
    if (status - 0x80u >= kFirstSystemStatus - 0x80u) return nullptr;  // none (0), system or real time
    const unsigned char* const dataP = iByteP + (hasStatus ? 1 : 0);
    // Program change and channel pressure (0xC, 0xD) carry one data byte, the others two;
    // computed rather than looked up, as it lies on the path from one message to the next.
    const bool oneDataByte = ((status >> 4) - 0xCu) < 2u;
    // The caller guarantees three readable bytes, so dataP[1] may be read even when unused.
    const unsigned data1 = dataP[0];
    const unsigned data2 = oneDataByte ? 0u : dataP[1];
    if ((data1 | data2) & 0x80) return nullptr;  // interrupted: the byte path sorts it out
    mRunningStatus = static_cast<uint8_t>(status);
    mBuffer[0] = static_cast<unsigned char>(status);
    mBuffer[1] = static_cast<unsigned char>(data1);
    mBuffer[2] = static_cast<unsigned char>(data2);
    mCount = static_cast<int16_t>(oneDataByte ? 2 : 3);
    return dataP + (oneDataByte ? 1 : 2);
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
        case 0xB:
            return message[1] >= kFirstChannelModeController ? ParseChannelMode(message) : ParseController(message);
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
    if (mConvertNoteOnZero && mBuffer[2] == 0) {
        const unsigned char noteOff[3] = {static_cast<unsigned char>((mBuffer[0] & 0x0F) | kNoteOffStatus), mBuffer[1],
                                          kNoteOffVelocityForZeroNoteOn};
        return ParseNoteOff(noteOff);
    }
    return ParseNoteOn(mBuffer);
}

void Mdi_Parse::ClearRunningStatus() {
    mRunningStatus = 0;
    mCount = 0;
}

void Mdi_Parse::Reset() { ClearRunningStatus(); }

short Mdi_Parse::GetChannel() const { return mRunningStatus == 0 ? -1 : static_cast<short>(mRunningStatus & 0x0F); }

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

bool Mdi_ParseToEventReceiver::Deliver(const Vela_Event& iEvent) {
    if (mReceiverP != nullptr) mReceiverP->ReceiveEvent(iEvent);
    return true;
}

bool Mdi_ParseToEventReceiver::ParseNoteOff(const unsigned char* iMessage) {
    return Deliver(Vela_NoteOffEvent(Data1(iMessage), Data2(iMessage)));
}

bool Mdi_ParseToEventReceiver::ParseNoteOn(const unsigned char* iMessage) {
    return Deliver(Vela_NoteOnEvent(Data1(iMessage), Data2(iMessage)));
}

bool Mdi_ParseToEventReceiver::ParsePolyphonic(const unsigned char* iMessage) {
    return Deliver(Vela_PolyPressureEvent(Data1(iMessage), Data2(iMessage)));
}

bool Mdi_ParseToEventReceiver::ParseController(const unsigned char* iMessage) {
    return Deliver(Vela_ControllerEvent(Data1(iMessage), Data2(iMessage)));
}

bool Mdi_ParseToEventReceiver::ParseProgramChange(const unsigned char* iMessage) {
    // MIDI input carries no bank with the program: both bank halves are disabled.
    constexpr int16_t kNoBank = Vela_ProgramEvent::kBankMSBDisabled | Vela_ProgramEvent::kBankLSBDisabled;
    return Deliver(Vela_ProgramEvent(Data1(iMessage), kNoBank));
}

bool Mdi_ParseToEventReceiver::ParseChannelPressure(const unsigned char* iMessage) {
    return Deliver(Vela_MonoPressureEvent(Data1(iMessage)));
}

bool Mdi_ParseToEventReceiver::ParsePitchBend(const unsigned char* iMessage) {
    const int bend = (iMessage[2] - kPitchBendCentreMSB) * 128 + iMessage[1];
    return Deliver(Vela_PitchBendEvent(static_cast<int16_t>(bend)));
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
