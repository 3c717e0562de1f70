// Mdie_SubStream: the key of one continuous MIDI quantity of a channel (a controller, pitch
// bend, program with bank, channel pressure, or the pressure of one key), and Mdie_Filter,
// which says which kinds of events and which controllers pass.
//
// A sub-stream is a type object plus a sub-index. The six type objects are stateless and shared
// (one instance each, constant-initialized, never owned); they say how a value is read from an
// event, how an event is made from a value, and what range a value has:
//
//   type            code  global index    valid sub-index  value range    event kind
//   null              0   0              any              0..0           0 (empty)
//   pitch bend        1   0              any              -8192..8191    4
//   controller        2   controller #   1..119           0..127         5
//   program           3   121            any              0..16777215    6 (bank << 8 | program)
//   mono pressure     4   120            any              0..127         7
//   poly pressure     5   122 + key      0..127           0..127         8
//
// Global indices run 0..249 (GetNumIndices). Pitch bend shares 0 with the null type; controller
// 0 is never a sub-stream, so it cannot collide. Every operation of the null type reports the
// assertion "0" and then answers the neutral value of the table.
//
// Choices made here:
//  - The index-free factories (PitchBend, Program, MonoPressure) store index 0, so a value never
//    holds an indeterminate field; nothing reads it.
//  - Equality and ordering (for sorted stream lists): sub-streams are ordered by global index,
//    then by type code where two types share an index (null before pitch bend at index 0).
//    Two sub-streams are equal when their types are equal and, for the types keyed by it
//    (controller, poly pressure), their sub-indices are equal; all null sub-streams are equal. Neither calls the type's
//    virtual operations, so comparing null sub-streams reports nothing.
//
// Persisted form, block "Mdss" version 1 (Sys_StdStreamHeader framing):
//   int8  type code (0..5)
//   int32 sub-index (written as it stands, also for the index-free types)
// Reading throws the localized error 202 ("bad data encountered") for a code outside 0..5 and
// 201 ("bad subtype encountered") for a sub-index the type rejects; the target is unchanged.
//
// Threads and real time: values and type objects are immutable or plain data; every operation
// except streaming is real-time safe (no locks, no allocation).
#pragma once

#include <cstdint>

#include "Cmn_BitArray.h"
#include "Vela_Event.h"

class Sys_TypedInStream;
class Sys_TypedOutStream;

struct Mdie_SubStream_ValueRange {
    int32_t mMin = 0;  // inclusive
    int32_t mMax = 0;  // inclusive
};

// One row of the type table above: the facts about a type that are plain data.
struct Mdie_SubStreamType_Row {
    int8_t mTypeCode;
    int8_t mEventKind;     // Vela_Event::EEventType made and read
    int32_t mIndexBase;    // global index = base, plus the sub-index when mIndexed
    bool mIndexed;         // the sub-index is part of the key
    bool mAnySubIndex;     // every sub-index is valid
    int32_t mSubIndexMin;  // otherwise the valid sub-indices, inclusive
    int32_t mSubIndexMax;
    Mdie_SubStream_ValueRange mRange;
};

class Mdie_SubStreamType {
public:
    static constexpr int kNumTypes = 6;

    constexpr explicit Mdie_SubStreamType(const Mdie_SubStreamType_Row& iRow) : mRow(iRow) {}
    virtual ~Mdie_SubStreamType() = default;

    virtual int32_t GetIndex(int32_t iSubIndex) const = 0;
    virtual void MakeEvent(Vela_Event& oEvent, int32_t iSubIndex, int32_t iValue) const = 0;
    virtual void GetValueRange(Mdie_SubStream_ValueRange& oRange) const = 0;
    virtual int32_t GetValueFromEvent(const Vela_Event& iEvent) const = 0;
    virtual int8_t GetTypeCode() const = 0;
    virtual bool IsValidSubType(int32_t iSubIndex) const = 0;

    // Throws the localized error 201 when IsValidSubType(iSubIndex) is false.
    void CheckValidSubType(int32_t iSubIndex) const;

    // The table row, readable without the null type's assertions (used for ordering).
    const Mdie_SubStreamType_Row& GetRow() const { return mRow; }

    // The shared instance with a type code, or null for a code outside 0..5.
    static const Mdie_SubStreamType* FromTypeCode(int iTypeCode);

protected:
    Mdie_SubStreamType_Row mRow;
};

class Mdie_SubStream {
public:
    // The null sub-stream, index 0.
    Mdie_SubStream();
    // The sub-stream an event belongs to; kinds other than 4..8, and controllers outside 1..119
    // (which keep their number as index), give the null type.
    explicit Mdie_SubStream(const Vela_Event& iEvent);

    static Mdie_SubStream Controller(int8_t iNumber);  // not validated
    static Mdie_SubStream PolyPressure(int8_t iKey);   // not validated
    static Mdie_SubStream PitchBend();
    static Mdie_SubStream Program();
    static Mdie_SubStream MonoPressure();

    static int32_t GetNumIndices() { return 250; }

    // Global index 0..249 among all sub-streams.
    int32_t GetIndex() const { return mTypeP->GetIndex(mIndex); }
    int32_t GetSubIndex() const { return mIndex; }
    const Mdie_SubStreamType* GetType() const { return mTypeP; }
    Vela_Event MakeEvent(int32_t iValue) const;
    int32_t GetValueFromEvent(const Vela_Event& iEvent) const { return mTypeP->GetValueFromEvent(iEvent); }
    void GetValueRange(Mdie_SubStream_ValueRange& oRange) const { mTypeP->GetValueRange(oRange); }
    bool IsNull() const;
    // Event kind 4..8 for the types 1..5, 0 for null; oController is set for controllers only.
    void GetInfo(int8_t& oEventKind, int8_t& oController) const;

    void StreamOut(Sys_TypedOutStream& iStream) const;
    void StreamIn(Sys_TypedInStream& iStream);

    bool operator==(const Mdie_SubStream& iOther) const;
    bool operator!=(const Mdie_SubStream& iOther) const { return !(*this == iOther); }
    bool operator<(const Mdie_SubStream& iOther) const;

private:
    explicit Mdie_SubStream(const Mdie_SubStreamType* iTypeP) : mTypeP(iTypeP), mIndex(0) {}
    Mdie_SubStream(const Mdie_SubStreamType* iTypeP, int32_t iIndex) : mTypeP(iTypeP), mIndex(iIndex) {}

    const Mdie_SubStreamType* mTypeP;  // never null, never owned
    int32_t mIndex;

    friend class Mdie_ChaseTrackerMap;
};

// Which events pass: nine data-type flags and one bit per controller number.
// A plain value; every operation is real-time safe.
class Mdie_Filter {
public:
    enum EDataType : int {
        kNotes = 0,             // kinds 1, 2, 3
        kNoteOnVelocity = 1,    // keep note-on velocities
        kNoteOffVelocity = 2,   // keep note-off velocities
        kPitchBend = 3,         // kind 4
        kProgram = 4,           // kind 6
        kMonoPressure = 5,      // kind 7
        kPolyPressure = 6,      // kind 8
        kSystemExclusive = 7,   // kinds 14, 15, 16
        kOtherEvents = 8,       // kinds 9..13
    };
    static constexpr int kNumDataTypes = 9;
    static constexpr int kNumControllers = 128;
    // Velocity that replaces a dropped note-off velocity (and a dropped on-velocity of a note
    // with duration; a plain note-on gets the default velocity instead).
    static constexpr int8_t kNeutralVelocity = 64;

    Mdie_Filter() { ClearAll(); }

    Mdie_Filter& Set(EDataType iType, bool iValue);
    bool Get(EDataType iType) const { return mFlags[iType]; }
    void SetAll();
    void ClearAll();
    void InvertAll();
    // Notes, note-on velocity, pitch bend, program and every controller pass.
    void SetDefault();
    void SetControllers(const Cmn_BitArray<kNumControllers>& iControllers) { mControllers = iControllers; }
    const Cmn_BitArray<kNumControllers>& GetControllers() const { return mControllers; }

    bool operator==(const Mdie_Filter& iOther) const;
    bool operator!=(const Mdie_Filter& iOther) const { return !(*this == iOther); }

    // True when the event passes; a passing note may have a velocity rewritten in place.
    // A controller is judged by the bit of its number's low 7 bits. Kinds the filter does not
    // govern (0, 17..23, unknown codes) pass.
    bool FilterEvent(Vela_Event* ioEventP) const;
    // True when events of the sub-stream pass (judged on the event of the range's minimum).
    bool FilterSubStream(const Mdie_SubStream& iSubStream) const;

private:
    void RewriteVelocities(Vela_Event& ioEvent) const;

    bool mFlags[kNumDataTypes];
    Cmn_BitArray<kNumControllers> mControllers;
};
