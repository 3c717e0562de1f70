// Equality and ordering of Vela_Event values of one type.
//
// Both comparisons first sort the type into a comparison rule (one table, kRuleByType), then
// apply the rule. They are meant for sorting within one type and for de-duplication, not as a
// total order: events of different types are neither equal nor ordered, the payload-free types
// answer "less" even against themselves, two long sysex events are equal only when they share
// their data object, and a program change is ordered by the first enabled part of its bank and
// program only. These asymmetries are relied on by the lists that sort and de-duplicate events.
//
// Real time: both comparisons are pure, take no lock and never allocate; long sysex data is
// read in place (it never changes after creation).
#include <algorithm>
#include <cstring>

#include "Cmn_Assert.h"
#include "Mdie_SysexDataBase.h"
#include "Vela_Event.h"

namespace {

enum ECompareRule : int8_t {
    kRule_NoPayload,      // equal always; "less" always
    kRule_TwoBytes,       // byte 1, then byte 2 (signed)
    kRule_NoteBlock,      // pitch, on-velocity, off-velocity, duration count
    kRule_Word,           // the signed 16-bit value at bytes 2..3
    kRule_Program,        // enabled parts only (see ProgramLess)
    kRule_Byte1,          // byte 1, signed
    kRule_Byte1Unsigned,  // byte 1, unsigned
    kRule_InlineBytes,    // length, then the inline bytes (unsigned)
    kRule_SharedData,     // identity for equality; length, then bytes for order
    kRule_Index,          // the signed 32-bit index
    kRule_Unknown,        // not a comparable type: asserted
};

constexpr ECompareRule kRuleByType[Vela_Event::kNumTypes] = {
    kRule_NoPayload,      // 0 null
    kRule_TwoBytes,       // 1 note on
    kRule_TwoBytes,       // 2 note off
    kRule_NoteBlock,      // 3 note with duration
    kRule_Word,           // 4 pitch bend
    kRule_TwoBytes,       // 5 controller
    kRule_Program,        // 6 program
    kRule_Byte1,          // 7 mono pressure
    kRule_TwoBytes,       // 8 poly pressure
    kRule_Word,           // 9 song position
    kRule_NoPayload,      // 10 start
    kRule_NoPayload,      // 11 continue
    kRule_NoPayload,      // 12 stop
    kRule_NoPayload,      // 13 timing clock
    kRule_InlineBytes,    // 14 short sysex
    kRule_SharedData,     // 15 long sysex
    kRule_InlineBytes,    // 16 short sysex packet
    kRule_NoteBlock,      // 17 clear note in progress
    kRule_NoteBlock,      // 18 add note in progress
    kRule_Index,          // 19 release controller
    kRule_NoPayload,      // 20 all notes off
    kRule_Byte1Unsigned,  // 21 quarter frame
    kRule_Unknown,        // 22 pitch-to-MIDI note with duration
    kRule_Unknown,        // 23 clip
};

ECompareRule RuleOf(int iType) {
    if (iType < 0 || iType >= Vela_Event::kNumTypes) return kRule_Unknown;
    return kRuleByType[iType];
}

// A damaged inline length must not make a comparison read beyond the inline bytes.
int InlineLength(int8_t iStoredLength) {
    return std::clamp<int>(iStoredLength, 0, Vela_Event::kMaxShortSysex);
}

// Shorter is less; at equal length the bytes decide, compared unsigned.
bool BytesLess(int iLengthA, const unsigned char* iA, int iLengthB, const unsigned char* iB) {
    if (iLengthA != iLengthB) return iLengthA < iLengthB;
    return iLengthA > 0 && std::memcmp(iA, iB, static_cast<size_t>(iLengthA)) < 0;
}

bool BytesEqual(int iLengthA, const unsigned char* iA, int iLengthB, const unsigned char* iB) {
    return iLengthA == iLengthB && (iLengthA == 0 || std::memcmp(iA, iB, static_cast<size_t>(iLengthA)) == 0);
}

// One enabled/value pair of a program change: the bank MSB, the bank LSB or the program.
struct ProgramPart {
    bool mEnabled;
    int mValue;
};

constexpr int kProgramParts = Vela_ProgramEvent::kNumParts;

void GetProgramParts(const Vela_ProgramEvent& iEvent, ProgramPart (&oParts)[kProgramParts]) {
    for (int i = 0; i < kProgramParts; ++i) {
        const auto part = static_cast<Vela_ProgramEvent::EPart>(i);
        oParts[i] = {iEvent.IsPartEnabled(part), iEvent.GetPartValue(part)};
    }
}

// The enabled flags agree and, where enabled, the values agree; a disabled value is ignored.
bool ProgramEqual(const Vela_ProgramEvent& iA, const Vela_ProgramEvent& iB) {
    ProgramPart a[kProgramParts];
    ProgramPart b[kProgramParts];
    GetProgramParts(iA, a);
    GetProgramParts(iB, b);
    for (int i = 0; i < kProgramParts; ++i) {
        if (a[i].mEnabled != b[i].mEnabled) return false;
        if (a[i].mEnabled && a[i].mValue != b[i].mValue) return false;
    }
    return true;
}

// The first part enabled on either side decides: an enabled part is less than a disabled one,
// and when both are enabled their values decide with nothing further compared (so two banks
// with the same MSB are not ordered by LSB or program). All disabled on both sides: true.
bool ProgramLess(const Vela_ProgramEvent& iA, const Vela_ProgramEvent& iB) {
    ProgramPart a[kProgramParts];
    ProgramPart b[kProgramParts];
    GetProgramParts(iA, a);
    GetProgramParts(iB, b);
    for (int i = 0; i < kProgramParts; ++i) {
        if (a[i].mEnabled != b[i].mEnabled) return a[i].mEnabled;
        if (a[i].mEnabled) return a[i].mValue < b[i].mValue;
    }
    return true;
}

bool SharedDataLess(const Mdie_SysexDataBase* iA, const Mdie_SysexDataBase* iB) {
    if (iA == iB) return false;
    return BytesLess(iA->GetLength(), iA->GetData(), iB->GetLength(), iB->GetData());
}

}  // namespace

bool Vela_Event::operator==(const Vela_Event& iOther) const {
    if (GetType() != iOther.GetType()) return false;
    const Storage& a = mU;
    const Storage& b = iOther.mU;
    switch (RuleOf(GetType())) {
        case kRule_NoPayload:
            return true;
        case kRule_TwoBytes:
            return a.mTwo.mByte1 == b.mTwo.mByte1 && a.mTwo.mByte2 == b.mTwo.mByte2;
        case kRule_NoteBlock:
            // The duration's time-type word is deliberately not compared.
            return a.mNote.mPitch == b.mNote.mPitch && a.mNote.mOnVelocity == b.mNote.mOnVelocity &&
                   a.mNote.mOffVelocity == b.mNote.mOffVelocity && a.mNote.mDurationCount == b.mNote.mDurationCount;
        case kRule_Word:
            return a.mWord.mWord == b.mWord.mWord;
        case kRule_Program:
            return ProgramEqual(AsProgram(), iOther.AsProgram());
        case kRule_Byte1:
        case kRule_Byte1Unsigned:
            return a.mTwo.mByte1 == b.mTwo.mByte1;
        case kRule_InlineBytes:
            return a.mShortSysex.mLength == b.mShortSysex.mLength &&
                   BytesEqual(InlineLength(a.mShortSysex.mLength), a.mShortSysex.mBytes,
                              InlineLength(b.mShortSysex.mLength), b.mShortSysex.mBytes);
        case kRule_SharedData:
            return a.mLongSysex.mDataP == b.mLongSysex.mDataP;
        case kRule_Index:
            return a.mRelease.mIndex == b.mRelease.mIndex;
        case kRule_Unknown:
            break;
    }
    VELA_ASSERT(0);
    return true;
}

bool Vela_Event::operator<(const Vela_Event& iOther) const {
    if (GetType() != iOther.GetType()) return false;
    const Storage& a = mU;
    const Storage& b = iOther.mU;
    switch (RuleOf(GetType())) {
        case kRule_NoPayload:
            return true;
        case kRule_TwoBytes:
            if (a.mTwo.mByte1 != b.mTwo.mByte1) return a.mTwo.mByte1 < b.mTwo.mByte1;
            return a.mTwo.mByte2 < b.mTwo.mByte2;
        case kRule_NoteBlock:
            if (a.mNote.mPitch != b.mNote.mPitch) return a.mNote.mPitch < b.mNote.mPitch;
            if (a.mNote.mOnVelocity != b.mNote.mOnVelocity) return a.mNote.mOnVelocity < b.mNote.mOnVelocity;
            if (a.mNote.mOffVelocity != b.mNote.mOffVelocity) return a.mNote.mOffVelocity < b.mNote.mOffVelocity;
            return a.mNote.mDurationCount < b.mNote.mDurationCount;
        case kRule_Word:
            return a.mWord.mWord < b.mWord.mWord;
        case kRule_Program:
            return ProgramLess(AsProgram(), iOther.AsProgram());
        case kRule_Byte1:
            return a.mTwo.mByte1 < b.mTwo.mByte1;
        case kRule_Byte1Unsigned:
            return static_cast<uint8_t>(a.mTwo.mByte1) < static_cast<uint8_t>(b.mTwo.mByte1);
        case kRule_InlineBytes:
            return BytesLess(InlineLength(a.mShortSysex.mLength), a.mShortSysex.mBytes,
                             InlineLength(b.mShortSysex.mLength), b.mShortSysex.mBytes);
        case kRule_SharedData:
            return SharedDataLess(a.mLongSysex.mDataP, b.mLongSysex.mDataP);
        case kRule_Index:
            return a.mRelease.mIndex < b.mRelease.mIndex;
        case kRule_Unknown:
            break;
    }
    VELA_ASSERT(0);
    return true;
}
