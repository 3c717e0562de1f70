// Vela_Event: the one MIDI event value of the library, and its typed views.
// A fixed-size (80-byte) tagged union; byte 0 is the type code, every other field sits at a
// fixed byte position (checked below) because values are copied and imaged as raw bytes.
// Only long system-exclusive data (type 15) lives outside the value, in a shared,
// reference-counted Mdie_SysexDataBase: copying adds a reference, destruction releases one.
// Every other type may be copied as raw bytes. Views (Vela_NoteOnEvent, ...) add constructors
// and accessors only; the As...() conversions check nothing, the caller tests GetType() first.
// Threads: a value has no locks and may be copied between threads (the sysex count is atomic).
// Real time: construction, copying, accessors, encoding and comparison never allocate; only
// Vela_SysexEvent with more than 14 payload bytes takes heap memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "Time_Typed.h"

class Mdie_SysexDataBase;
class Mem2_MasterAllocator;
class Sys_TypedOutStream;
class Sys_TypedInStream;
template <class T, int kInline>
class Cmn_PolyVector;

class Vela_NoteOnEvent;
class Vela_NoteOffEvent;
class Vela_NoteWithDurationEvent;
class Vela_NoteWithDurationBase;
class Vela_PitchBendEvent;
class Vela_ControllerEvent;
class Vela_ProgramEvent;
class Vela_MonoPressureEvent;
class Vela_PolyPressureEvent;
class Vela_SongPositionEvent;
class Vela_QuarterFrameEvent;
class Vela_ReleaseControllerEvent;
class Vela_AddNoteInProgressEvent;
class Vela_ClearNoteInProgressEvent;
class Vela_PitchToMIDINoteWithDuration;
class Vela_ClipEvent;
class Vela_SysexEvent;
class Vela_SysexPacketEvent;

class Vela_Event {
public:
    enum EEventType : int8_t {
        kNull = 0,
        kNoteOn = 1,
        kNoteOff = 2,
        kNoteWithDuration = 3,
        kPitchBend = 4,
        kController = 5,
        kProgram = 6,
        kMonoPressure = 7,
        kPolyPressure = 8,
        kSongPosition = 9,
        kStart = 10,
        kContinue = 11,
        kStop = 12,
        kTimingClock = 13,
        kSysex = 14,
        kLongSysex = 15,
        kSysexPacket = 16,
        kClearNoteInProgress = 17,
        kAddNoteInProgress = 18,
        kReleaseController = 19,
        kAllNotesOff = 20,
        kQuarterFrame = 21,
        kPitchToMIDINoteWithDuration = 22,
        kClip = 23,
    };
    // Codes 0..kLastMIDIType are the MIDI codes that encoding, comparison and persistence take.
    static constexpr int kLastMIDIType = kQuarterFrame;
    static constexpr int kNumTypes = kClip + 1;

    // MIDI time code quarter-frame pieces, in their standard order.
    enum EQuarterFrameMessage : uint8_t {
        kFramesLow = 0,
        kFramesHigh = 1,
        kSecondsLow = 2,
        kSecondsHigh = 3,
        kMinutesLow = 4,
        kMinutesHigh = 5,
        kHoursLow = 6,
        kHoursHighAndRate = 7,
    };

    static constexpr int kMaxShortSysex = 14;  // payload bytes kept inline
    static constexpr int kMaxClipName = 63;    // characters of a clip name kept

    // Copying and destruction are inline: only a long sysex (type 15) has references to
    // look after, and every other event is a raw byte copy with nothing to release.
    Vela_Event() { mU.mBase.mType = kNull; }
    Vela_Event(const Vela_Event& iOther) {
        std::memcpy(&mU, &iOther.mU, sizeof(mU));
        if (mU.mBase.mType == kLongSysex) LongSysexCopyConstruct();
    }
    Vela_Event& operator=(const Vela_Event& iOther) {
        if (this == &iOther) return *this;
        if (mU.mBase.mType == kLongSysex || iOther.mU.mBase.mType == kLongSysex) {
            LongSysexAssign(iOther);
        } else {
            std::memcpy(&mU, &iOther.mU, sizeof(mU));
        }
        return *this;
    }
    ~Vela_Event() {
        if (mU.mBase.mType == kLongSysex) LongSysexDestruct();
    }

    EEventType GetType() const { return static_cast<EEventType>(mU.mBase.mType); }
    // Among events at one time the lower value plays first.
    int GetPlaybackPriority() const;
    // True for types 14 and 15 whatever the index; a packet (16) is never a sysex message.
    bool IsMessageSysex(int iMessageIndex) const;
    // A long sysex whose stored data has at least 2 bytes, F0 first and F7 last.
    bool IsCompleteLongSysex() const;

    // ---- Wire encoding (status bytes for channel 0; no running status). Allocation-free.
    // Call GetNumMessages, then per message index GetMessageLength and GetMessageData, or a run of
    // GetPartialMessageData slices. An index naming no message (not 0 for a single message; beyond
    // the enabled parts of a program) answers length 0 and writes nothing; a slice of a message
    // other than sysex is clamped to the end of the message. Types 16 (packet), 17, 18
    // and codes above 21 have no message form: they assert "0" (type 16 only once a message
    // is asked for) and write nothing.
    int GetNumMessages() const;
    int GetMessageLength(int iMessageIndex) const;
    void GetMessageData(signed char* oData, int iMessageIndex) const;
    void GetPartialMessageData(signed char* oData, int iMessageIndex, int iOffset, int iCount) const;
    // The whole wire form in one call, for senders that need no slices: every message above, back
    // to back, with iChannel (its low 4 bits) ORed into the status of each channel message. Answers
    // the total length and writes nothing when that exceeds iCapacity. Every event but sysex takes
    // at most kMaxFixedWireLength bytes, a sysex its payload + 2. Given at least
    // kMaxFixedWireLength bytes of room, bytes past the answered length may be overwritten. Where
    // GetNumMessages answers 0 this writes nothing and answers 0, asserting as it does.
    static constexpr int kMaxFixedWireLength = 8;
    int WriteMessages(signed char* oData, int iCapacity, int iChannel = 0) const;

    // ---- Ordering and equality (per type; not a total order across types).
    bool operator==(const Vela_Event& iOther) const;
    bool operator!=(const Vela_Event& iOther) const { return !(*this == iOther); }
    bool operator<(const Vela_Event& iOther) const;

    // ---- Persistence of sysex payloads, and raw images.
    // StreamOut asserts "0" for any event but a sysex and then leaves an empty block, which no
    // reader accepts. StreamOutReadable is the form for containers that must read back whatever
    // they wrote (the timed event list): a sysex is written exactly as StreamOut writes it; any
    // other event is asserted the same way but written as a block with the null flag 1, so it
    // reads back as the null event and the blocks after it stay readable.
    void StreamOut(Sys_TypedOutStream& iStream) const;
    void StreamOutReadable(Sys_TypedOutStream& iStream) const;
    void StreamIn(Sys_TypedInStream& iStream);
    void PrepareToImageOut() const;
    void PrepareToImageIn();

    // ---- Views (unchecked).
    Vela_NoteOnEvent& AsNoteOn();
    const Vela_NoteOnEvent& AsNoteOn() const;
    Vela_NoteOffEvent& AsNoteOff();
    const Vela_NoteOffEvent& AsNoteOff() const;
    Vela_NoteWithDurationEvent& AsNoteWithDuration();
    const Vela_NoteWithDurationEvent& AsNoteWithDuration() const;
    Vela_PitchBendEvent& AsPitchBend();
    const Vela_PitchBendEvent& AsPitchBend() const;
    Vela_ControllerEvent& AsController();
    const Vela_ControllerEvent& AsController() const;
    Vela_ProgramEvent& AsProgram();
    const Vela_ProgramEvent& AsProgram() const;
    Vela_MonoPressureEvent& AsMonoPressure();
    const Vela_MonoPressureEvent& AsMonoPressure() const;
    Vela_PolyPressureEvent& AsPolyPressure();
    const Vela_PolyPressureEvent& AsPolyPressure() const;
    Vela_SongPositionEvent& AsSongPosition();
    const Vela_SongPositionEvent& AsSongPosition() const;
    Vela_QuarterFrameEvent& AsQuarterFrame();
    const Vela_QuarterFrameEvent& AsQuarterFrame() const;
    Vela_ReleaseControllerEvent& AsReleaseController();
    const Vela_ReleaseControllerEvent& AsReleaseController() const;
    Vela_AddNoteInProgressEvent& AsAddNoteInProgress();
    const Vela_AddNoteInProgressEvent& AsAddNoteInProgress() const;
    Vela_ClearNoteInProgressEvent& AsClearNoteInProgress();
    const Vela_ClearNoteInProgressEvent& AsClearNoteInProgress() const;
    Vela_PitchToMIDINoteWithDuration& AsPitchToMIDINoteWithDuration();
    const Vela_PitchToMIDINoteWithDuration& AsPitchToMIDINoteWithDuration() const;
    Vela_ClipEvent& AsClipEvent();
    const Vela_ClipEvent& AsClipEvent() const;
    Vela_SysexEvent& AsSysex();
    const Vela_SysexEvent& AsSysex() const;
    Vela_SysexPacketEvent& AsSysexPacket();
    const Vela_SysexPacketEvent& AsSysexPacket() const;

protected:
    // Members of the union, one per layout. Byte positions are fixed (see the asserts).
    struct Base {
        int8_t mType;
    };
    struct TwoBytes {  // note on/off, controller, poly pressure (byte 1, byte 2); mono pressure (byte 1)
        int8_t mType;
        int8_t mByte1;
        int8_t mByte2;
    };
    struct NoteWithDuration {  // types 3, 17, 18, 22
        int8_t mType;
        int8_t mPitch;
        int8_t mOnVelocity;
        int8_t mOffVelocity;
        int8_t mUnused4[4];
        int64_t mDurationCount;  // bytes 8..15
        int32_t mDurationType;   // bytes 16..19
        int8_t mUnused20[4];
        float mFractionalPitch;  // bytes 24..27, type 22 only
    };
    struct Word16 {  // pitch bend, song position (bytes 2..3); program (byte 1, bytes 2..3)
        int8_t mType;
        int8_t mByte1;
        int16_t mWord;
    };
    struct ShortSysex {  // types 14 and 16
        int8_t mType;
        int8_t mLength;
        uint8_t mBytes[kMaxShortSysex];
    };
    struct LongSysex {  // type 15
        int8_t mType;
        int8_t mUnused1[7];
        Mdie_SysexDataBase* mDataP;  // bytes 8..15
    };
    struct ReleaseController {  // type 19
        int8_t mType;
        int8_t mUnused1[3];
        int32_t mIndex;  // bytes 4..7
    };
    struct Clip {  // type 23
        int8_t mType;
        char mName[kMaxClipName + 1];  // bytes 1..64, NUL-terminated
        int8_t mUnused65[7];
        uint64_t mDuration;  // bytes 72..79
    };
    union Storage {
        Base mBase;
        TwoBytes mTwo;
        NoteWithDuration mNote;
        Word16 mWord;
        ShortSysex mShortSysex;
        LongSysex mLongSysex;
        ReleaseController mRelease;
        Clip mClip;
    };

    // Reference rules of type 15 (no-ops for every other type).
    void LongSysexCopyConstruct();             // add the reference a copy holds
    void LongSysexAssign(const Vela_Event& iOther);  // release ours, copy, add theirs
    void LongSysexDestruct();                  // release ours
    // Type, byte 1 and byte 2 of a fresh value (the channel voice views).
    void SetTwoBytes(EEventType iType, int8_t iByte1, int8_t iByte2) {
        mU.mTwo.mType = iType;
        mU.mTwo.mByte1 = iByte1;
        mU.mTwo.mByte2 = iByte2;
    }
    // Releases a long sysex held and leaves the null event.
    void MakeNull();
    // Payload of a sysex message (types 14, 15): the stored bytes between F0 and F7, as the
    // wire message carries them (type 15: the stored length - 2 bytes after the first stored
    // byte). False, with an empty payload, for every other type and for a long sysex of fewer
    // than 2 stored bytes (nothing to frame).
    bool GetSysexPayload(const unsigned char*& oDataP, int& oLength) const;
    // The event block; a non-sysex event is asserted, then written as a null flag when
    // iOthersAsNull, as an empty block otherwise.
    void StreamOutBlock(Sys_TypedOutStream& iStream, bool iOthersAsNull) const;

    Storage mU;

    friend class Vela_SysexEvent;
    friend class Vela_SysexPacketEvent;
    template <class T>
    friend struct Vela_EventLayout;
};

// Byte positions of the layout, checked at compile time.
template <class T = void>
struct Vela_EventLayout {
    using E = Vela_Event;
    static_assert(sizeof(E) == 80, "Vela_Event is an 80-byte value");
    static_assert(offsetof(E::TwoBytes, mByte1) == 1 && offsetof(E::TwoBytes, mByte2) == 2);
    static_assert(offsetof(E::NoteWithDuration, mPitch) == 1);
    static_assert(offsetof(E::NoteWithDuration, mOnVelocity) == 2);
    static_assert(offsetof(E::NoteWithDuration, mOffVelocity) == 3);
    static_assert(offsetof(E::NoteWithDuration, mDurationCount) == 8);
    static_assert(offsetof(E::NoteWithDuration, mDurationType) == 16);
    static_assert(offsetof(E::NoteWithDuration, mFractionalPitch) == 24);
    static_assert(offsetof(E::Word16, mByte1) == 1 && offsetof(E::Word16, mWord) == 2);
    static_assert(offsetof(E::ShortSysex, mLength) == 1 && offsetof(E::ShortSysex, mBytes) == 2);
    static_assert(offsetof(E::LongSysex, mDataP) == 8);
    static_assert(offsetof(E::ReleaseController, mIndex) == 4);
    static_assert(offsetof(E::Clip, mName) == 1 && offsetof(E::Clip, mDuration) == 72);
    static constexpr bool kChecked = true;
};
static_assert(Vela_EventLayout<>::kChecked);

// ---------------------------------------------------------------- channel voice views

class Vela_NoteOnEvent : public Vela_Event {
public:
    Vela_NoteOnEvent(int8_t iPitch, int8_t iVelocity) { SetTwoBytes(kNoteOn, iPitch, iVelocity); }
    // Velocity = the library-wide default velocity (80 at load).
    explicit Vela_NoteOnEvent(int8_t iPitch);
    int8_t GetPitch() const { return mU.mTwo.mByte1; }
    void SetPitch(int8_t iPitch) { mU.mTwo.mByte1 = iPitch; }
    int8_t GetVelocity() const { return mU.mTwo.mByte2; }
    void SetVelocity(int8_t iVelocity) { mU.mTwo.mByte2 = iVelocity; }
    static int8_t GetDefaultVelocity();
    static void SetDefaultVelocity(int8_t iVelocity);
};

class Vela_NoteOffEvent : public Vela_Event {
public:
    Vela_NoteOffEvent(int8_t iPitch, int8_t iVelocity) { SetTwoBytes(kNoteOff, iPitch, iVelocity); }
    int8_t GetPitch() const { return mU.mTwo.mByte1; }
    void SetPitch(int8_t iPitch) { mU.mTwo.mByte1 = iPitch; }
    int8_t GetVelocity() const { return mU.mTwo.mByte2; }
    void SetVelocity(int8_t iVelocity) { mU.mTwo.mByte2 = iVelocity; }
};

class Vela_NoteWithDurationBase : public Vela_Event {
public:
    int8_t GetPitch() const { return mU.mNote.mPitch; }
    void SetPitch(int8_t iPitch) { mU.mNote.mPitch = iPitch; }
    int8_t GetOnVelocity() const { return mU.mNote.mOnVelocity; }
    void SetOnVelocity(int8_t iVelocity) { mU.mNote.mOnVelocity = iVelocity; }
    int8_t GetOffVelocity() const { return mU.mNote.mOffVelocity; }
    void SetOffVelocity(int8_t iVelocity) { mU.mNote.mOffVelocity = iVelocity; }
    Time_TypedLength GetDuration() const {
        return Time_TypedLength(mU.mNote.mDurationCount, static_cast<Time_EType>(mU.mNote.mDurationType));
    }
    void SetDuration(const Time_TypedLength& iDuration) {
        mU.mNote.mDurationCount = iDuration.AsInt64();
        mU.mNote.mDurationType = iDuration.GetType();
    }
    // An on-velocity of 0 marks a note that is to be removed.
    void MarkForDeletion() { mU.mNote.mOnVelocity = 0; }

protected:
    explicit Vela_NoteWithDurationBase(EEventType iType);
    Vela_NoteWithDurationBase(int8_t iPitch, const Time_TypedLength& iDuration, int8_t iOnVelocity,
                              int8_t iOffVelocity, EEventType iType);
};

class Vela_NoteWithDurationEvent : public Vela_NoteWithDurationBase {
public:
    Vela_NoteWithDurationEvent();
    Vela_NoteWithDurationEvent(int8_t iPitch, const Time_TypedLength& iDuration, int8_t iOnVelocity,
                               int8_t iOffVelocity);
};

class Vela_ClearNoteInProgressEvent : public Vela_NoteWithDurationBase {
public:
    Vela_ClearNoteInProgressEvent(int8_t iPitch, const Time_TypedLength& iDuration, int8_t iOnVelocity,
                                  int8_t iOffVelocity);
};

class Vela_AddNoteInProgressEvent : public Vela_NoteWithDurationBase {
public:
    Vela_AddNoteInProgressEvent(int8_t iPitch, const Time_TypedLength& iDuration, int8_t iOnVelocity,
                                int8_t iOffVelocity);
};

class Vela_PitchToMIDINoteWithDuration : public Vela_NoteWithDurationBase {
public:
    Vela_PitchToMIDINoteWithDuration(int8_t iPitch, const Time_TypedLength& iDuration, int8_t iOnVelocity,
                                     int8_t iOffVelocity, float iFractionalPitch);
    float GetFractionalPitch() const { return mU.mNote.mFractionalPitch; }
    void SetFractionalPitch(float iPitch) { mU.mNote.mFractionalPitch = iPitch; }
};

class Vela_PitchBendEvent : public Vela_Event {
public:
    // Centred on 0: -8192..8191 for a standard 14-bit bend.
    explicit Vela_PitchBendEvent(int16_t iBend) {
        mU.mBase.mType = kPitchBend;
        mU.mWord.mWord = iBend;
    }
    int16_t GetBendValue() const { return mU.mWord.mWord; }
    void SetBendValue(int16_t iBend) { mU.mWord.mWord = iBend; }
};

class Vela_ControllerEvent : public Vela_Event {
public:
    Vela_ControllerEvent(int8_t iNumber, int8_t iValue) { SetTwoBytes(kController, iNumber, iValue); }
    int8_t GetControllerNumber() const { return mU.mTwo.mByte1; }
    void SetControllerNumber(int8_t iNumber) { mU.mTwo.mByte1 = iNumber; }
    int8_t GetValue() const { return mU.mTwo.mByte2; }
    void SetValue(int8_t iValue) { mU.mTwo.mByte2 = iValue; }
};

// Program byte: bits 0..6 program, bit 7 set = program disabled.
// Bank word: bits 0..6 LSB, bits 7..13 MSB, bit 14 set = LSB disabled, bit 15 set = MSB
// disabled (inverted on purpose: a zero word is bank 0 with both halves enabled).
class Vela_ProgramEvent : public Vela_Event {
public:
    Vela_ProgramEvent(int8_t iProgramByte, int16_t iBankWord) {
        mU.mBase.mType = kProgram;
        mU.mWord.mByte1 = iProgramByte;
        mU.mWord.mWord = iBankWord;
    }

    int8_t GetProgram() const { return static_cast<int8_t>(mU.mWord.mByte1 & 0x7F); }
    void SetProgram(int8_t iProgram);
    int8_t GetFullProgram() const { return mU.mWord.mByte1; }
    void SetFullProgram(int8_t iProgramByte) { mU.mWord.mByte1 = iProgramByte; }
    bool IsProgramEnabled() const { return (mU.mWord.mByte1 & static_cast<int8_t>(kProgramDisabled)) == 0; }
    void SetProgramEnable(bool iEnable);

    int16_t GetBank() const;
    void SetBank(int16_t iBank);
    int16_t GetFullBank() const { return mU.mWord.mWord; }
    void SetFullBank(int16_t iBankWord) { mU.mWord.mWord = iBankWord; }
    int8_t GetMSBBank() const;
    void SetMSBBank(int8_t iMSB);
    int8_t GetLSBBank() const;
    void SetLSBBank(int8_t iLSB);
    bool IsMSBBankEnabled() const;
    bool IsLSBBankEnabled() const;
    void SetMSBBankEnable(bool iEnable);
    void SetLSBBankEnable(bool iEnable);

    // 0xFF000000 | enabled MSB << 16 | enabled LSB << 8 | the program byte sign-extended.
    uint32_t GetOMSPatchNum() const;

    // The three parts of a program change, in the order they are sent and compared.
    enum EPart : int { kBankMSBPart = 0, kBankLSBPart = 1, kProgramPart = 2 };
    static constexpr int kNumParts = 3;
    bool IsPartEnabled(EPart iPart) const;
    int GetPartValue(EPart iPart) const;  // 0..127

    static constexpr int16_t kBankMSBDisabled = static_cast<int16_t>(0x8000);
    static constexpr int16_t kBankLSBDisabled = 0x4000;
    static constexpr int8_t kProgramDisabled = static_cast<int8_t>(0x80);
};

class Vela_MonoPressureEvent : public Vela_Event {
public:
    explicit Vela_MonoPressureEvent(int8_t iPressure) {
        mU.mBase.mType = kMonoPressure;
        mU.mTwo.mByte1 = iPressure;
    }
    int8_t GetPressure() const { return mU.mTwo.mByte1; }
    void SetPressure(int8_t iPressure) { mU.mTwo.mByte1 = iPressure; }
};

class Vela_PolyPressureEvent : public Vela_Event {
public:
    Vela_PolyPressureEvent(int8_t iPitch, int8_t iPressure) { SetTwoBytes(kPolyPressure, iPitch, iPressure); }
    int8_t GetPitch() const { return mU.mTwo.mByte1; }
    void SetPitch(int8_t iPitch) { mU.mTwo.mByte1 = iPitch; }
    int8_t GetPressure() const { return mU.mTwo.mByte2; }
    void SetPressure(int8_t iPressure) { mU.mTwo.mByte2 = iPressure; }
};

// ---------------------------------------------------------------- system and internal views

class Vela_SongPositionEvent : public Vela_Event {
public:
    // Keeps the low 16 bits of the position (in MIDI beats).
    explicit Vela_SongPositionEvent(int iPosition);
    int GetPosition() const { return mU.mWord.mWord; }
    void SetPosition(int iPosition) { mU.mWord.mWord = static_cast<int16_t>(iPosition); }
};

class Vela_StartEvent : public Vela_Event {
public:
    Vela_StartEvent();
};
class Vela_ContinueEvent : public Vela_Event {
public:
    Vela_ContinueEvent();
};
class Vela_StopEvent : public Vela_Event {
public:
    Vela_StopEvent();
};
class Vela_TimingClockEvent : public Vela_Event {
public:
    Vela_TimingClockEvent();
};
class Vela_AllNotesOffEvent : public Vela_Event {
public:
    Vela_AllNotesOffEvent();
};

class Vela_ReleaseControllerEvent : public Vela_Event {
public:
    explicit Vela_ReleaseControllerEvent(int iIndex);
    int32_t GetIndex() const { return mU.mRelease.mIndex; }
    void SetIndex(int32_t iIndex) { mU.mRelease.mIndex = iIndex; }
};

class Vela_QuarterFrameEvent : public Vela_Event {
public:
    explicit Vela_QuarterFrameEvent(uint8_t iDataByte);
    // Data byte = (message << 4) | nibble, unmasked.
    Vela_QuarterFrameEvent(EQuarterFrameMessage iMessage, uint8_t iNibble);
    uint8_t GetQFDataByte() const { return static_cast<uint8_t>(mU.mTwo.mByte1); }
    EQuarterFrameMessage GetQFMessage() const { return static_cast<EQuarterFrameMessage>((GetQFDataByte() >> 4) & 0x07); }
    uint8_t GetQFNibble() const { return GetQFDataByte() & 0x0F; }

private:
    void Init(uint8_t iDataByte);
};

class Vela_ClipEvent : public Vela_Event {
public:
    // Keeps at most the first 63 characters of the name and the duration's count.
    Vela_ClipEvent(const std::string& iRegionName, const Time_TypedLength& iDuration);
    std::string GetRegionName() const { return std::string(mU.mClip.mName); }
    uint64_t GetDuration() const { return mU.mClip.mDuration; }
};

// ---------------------------------------------------------------- system exclusive

// A complete system-exclusive message. Payload excludes F0 and F7. Up to 14 payload bytes are
// kept inline (type 14); more go to a heap Mdie_SysexData holding F0, payload, F7 (type 15).
class Vela_SysexEvent : public Vela_Event {
public:
    Vela_SysexEvent(int iLength, const unsigned char* iPayload);
    explicit Vela_SysexEvent(Cmn_PolyVector<unsigned char, 0>* iPayload);
    void SetData(int iLength, const unsigned char* iPayload);

    int GetLength() const;
    // Copies payload bytes [iStart, iEnd).
    void GetData(unsigned char* oData, int iStart, int iEnd) const;
    const unsigned char* GetDirectDataPtr() const;
    const unsigned char* GetInternalDataPtr() const;
};

// One packet of system-exclusive input as received: a whole message, its beginning, middle or
// end. Long packets (more than 14 bytes) take both object and buffer from the real-time
// allocator passed in; a refusal leaves the null event. Never touches the heap.
class Vela_SysexPacketEvent : public Vela_Event {
public:
    struct InitWithBlock {};

    Vela_SysexPacketEvent(int iLength, const unsigned char* iBytes, Mem2_MasterAllocator* iAllocatorP);
    // Adopts iBlock (taken from iAllocatorP) without copying.
    Vela_SysexPacketEvent(InitWithBlock, unsigned char* iBlock, int iLength, Mem2_MasterAllocator* iAllocatorP);

    int GetLength() const;
    // Copies bytes [iStart, iEnd) of the packet as sent.
    void GetData(unsigned char* oData, int iStart, int iEnd) const;
    const unsigned char* GetDirectDataPtr() const;
    bool IsBeginningPacket() const;
    bool IsEndingPacket() const;
    bool IsComplete() const;

private:
    // The bytes kept raw (type 15: the shared buffer; type 16: inline); empty for other types.
    void GetRawBytes(const unsigned char*& oDataP, int& oLength) const;
};

// ---------------------------------------------------------------- view conversions

#define VELA_EVENT_VIEW(Name, View)                                                   \
    inline View& Vela_Event::Name() { return static_cast<View&>(*this); }             \
    inline const View& Vela_Event::Name() const { return static_cast<const View&>(*this); }
VELA_EVENT_VIEW(AsNoteOn, Vela_NoteOnEvent)
VELA_EVENT_VIEW(AsNoteOff, Vela_NoteOffEvent)
VELA_EVENT_VIEW(AsNoteWithDuration, Vela_NoteWithDurationEvent)
VELA_EVENT_VIEW(AsPitchBend, Vela_PitchBendEvent)
VELA_EVENT_VIEW(AsController, Vela_ControllerEvent)
VELA_EVENT_VIEW(AsProgram, Vela_ProgramEvent)
VELA_EVENT_VIEW(AsMonoPressure, Vela_MonoPressureEvent)
VELA_EVENT_VIEW(AsPolyPressure, Vela_PolyPressureEvent)
VELA_EVENT_VIEW(AsSongPosition, Vela_SongPositionEvent)
VELA_EVENT_VIEW(AsQuarterFrame, Vela_QuarterFrameEvent)
VELA_EVENT_VIEW(AsReleaseController, Vela_ReleaseControllerEvent)
VELA_EVENT_VIEW(AsAddNoteInProgress, Vela_AddNoteInProgressEvent)
VELA_EVENT_VIEW(AsClearNoteInProgress, Vela_ClearNoteInProgressEvent)
VELA_EVENT_VIEW(AsPitchToMIDINoteWithDuration, Vela_PitchToMIDINoteWithDuration)
VELA_EVENT_VIEW(AsClipEvent, Vela_ClipEvent)
VELA_EVENT_VIEW(AsSysex, Vela_SysexEvent)
VELA_EVENT_VIEW(AsSysexPacket, Vela_SysexPacketEvent)
#undef VELA_EVENT_VIEW
