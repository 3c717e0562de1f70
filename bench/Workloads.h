// The fixed workloads W1..W7 that every benchmark here runs, generated from seeded xorshift64
// draws so that this library and the peer programs measured beside it do exactly the same
// work, and the checksums each benchmark must reproduce.
//
// Everything here is plain data: byte vectors, records of notes, controller values, events,
// query times and windows. Nothing depends on the library, so a benchmark converts the records
// into the library's own classes before it starts timing. Where a checksum is defined by a
// computation over the data alone, a brute-force reference function computes it, and the
// cached accessors (W1(), W2Events(), ...) check their data against the expected constants the
// first time they are called: a generator that drifted aborts the benchmark program with a
// message instead of producing figures for other work.
//
// Conventions shared by all workloads:
// - Draws: xorshift64 (`Random`), `Below(n) = Next() % n`, one Next() per draw in the order
//   each generator documents.
// - Checksums: FNV-style steps `Fnv(h, v) = (h ^ v) * kFnvPrime` from kFnvBasis, and sums of
//   `time * kGolden + code`, all modulo 2^64.
// - Times are ticks. A benchmark that is too slow for all queries of W4..W6 may run the first
//   Q of them and compare with the reference function run over the same Q.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace wl {

// ---------------------------------------------------------------- draws and checksum steps

class Random {
public:
    explicit constexpr Random(uint64_t iSeed) : mState(iSeed) {}
    constexpr uint64_t Next() {
        mState ^= mState << 13;
        mState ^= mState >> 7;
        mState ^= mState << 17;
        return mState;
    }
    constexpr uint64_t Below(uint64_t iBound) { return Next() % iBound; }

private:
    uint64_t mState;
};

constexpr uint64_t kFnvBasis = 1469598103934665603ull;
constexpr uint64_t kFnvPrime = 1099511628211ull;
constexpr uint64_t kGolden = 0x9E3779B97F4A7C15ull;

constexpr uint64_t Fnv(uint64_t iHash, uint64_t iValue) { return (iHash ^ iValue) * kFnvPrime; }
uint64_t FnvBytes(const uint8_t* iBytes, size_t iLength, uint64_t iHash = kFnvBasis);

constexpr uint64_t kSeedW1 = 0x243F6A8885A308D3ull;
constexpr uint64_t kSeedW2 = 0x13198A2E03707344ull;
constexpr uint64_t kSeedW3 = 0xA4093822299F31D0ull;
constexpr uint64_t kSeedSequence = 0x082EFA98EC4E6C89ull;  // W4, W5, W6 and W7 data
constexpr uint64_t kSeedW4 = 0x452821E638D01377ull;
constexpr uint64_t kSeedW5 = 0xBE5466CF34E90C6Cull;
constexpr uint64_t kSeedW6 = 0xC0AC29B7C97C50DDull;

// ---------------------------------------------------------------- W1: parse a raw byte stream
//
// About 64 MiB of channel messages (note on/off, controllers 0..119, bends, programs, channel
// pressure) with running status, 0.5% short sysex and 1% timing clocks (F8) falling anywhere,
// inside messages and sysex too. A parser is fed kW1Slice bytes at a time (the last slice is
// shorter) and keeps its state across slices. Every channel message goes into a
// `CanonicalHash` in stream order, as the canonical 32-bit value below; clocks and sysex are
// recognised but not hashed.

constexpr size_t kW1Slice = 4096;
constexpr uint64_t kW1Bytes = 67'108'866;
constexpr uint64_t kW1Events = 26'209'403;  // channel messages = hashed events
constexpr uint64_t kW1Sysex = 131'468;
constexpr uint64_t kW1RealTime = 664'795;
constexpr uint64_t kW1OmittedStatus = 13'233'717;  // status bytes left out by running status
constexpr uint64_t kW1Hash = 0x28a4bb74af752ee7ull;

struct W1Data {
    std::vector<uint8_t> mBytes;
    uint64_t mChannelMessages = 0;
    uint64_t mSysex = 0;
    uint64_t mRealTime = 0;
    uint64_t mOmittedStatus = 0;
    uint64_t mHash = kFnvBasis;  // the canonical hash of the messages as generated
};

// Canonical values: type<<24 | channel<<16 | d1<<8 | d2. A note on with velocity 0 is a
// note off with velocity 64; a program has d2 = 0, channel pressure has its value in d1, and a
// bend carries its 14-bit wire value (bend + 8192) in the low 16 bits.
constexpr uint32_t Canonical(uint32_t iType, uint32_t iChannel, uint32_t iLow16) {
    return iType << 24 | iChannel << 16 | iLow16;
}
constexpr uint32_t CanonNoteOn(uint32_t iChannel, uint32_t iPitch, uint32_t iVelocity) {
    return iVelocity == 0 ? Canonical(2, iChannel, iPitch << 8 | 64) : Canonical(1, iChannel, iPitch << 8 | iVelocity);
}
constexpr uint32_t CanonNoteOff(uint32_t iChannel, uint32_t iPitch, uint32_t iVelocity) {
    return Canonical(2, iChannel, iPitch << 8 | iVelocity);
}
constexpr uint32_t CanonBend(uint32_t iChannel, uint32_t iWire14) { return Canonical(4, iChannel, iWire14); }
constexpr uint32_t CanonController(uint32_t iChannel, uint32_t iNumber, uint32_t iValue) {
    return Canonical(5, iChannel, iNumber << 8 | iValue);
}
constexpr uint32_t CanonProgram(uint32_t iChannel, uint32_t iProgram) { return Canonical(6, iChannel, iProgram << 8); }
constexpr uint32_t CanonPressure(uint32_t iChannel, uint32_t iPressure) { return Canonical(7, iChannel, iPressure << 8); }

// The W1 sink: the number of events and the FNV fold of their canonical values.
struct CanonicalHash {
    uint64_t mCount = 0;
    uint64_t mHash = kFnvBasis;
    void Put(uint32_t iCanonical) {
        ++mCount;
        mHash = Fnv(mHash, iCanonical);
    }
    bool MatchesW1() const { return mCount == kW1Events && mHash == kW1Hash; }
};

W1Data MakeW1();
const W1Data& W1();  // made once and checked against the constants above

// ---------------------------------------------------------------- W2: encode events to wire bytes
//
// 10^7 events of every channel-voice kind plus short sysex, on random channels. Each is written
// as its wire messages into one preallocated buffer (kW2MaxBytesPerEvent per event is enough),
// status OR channel, no running status; sysex as F0, payload, F7. A program carries the bank
// word kW2BankDisabled and so is the one message Cn pp. A note off with release velocity
// exactly 64 is written `9n pp 00` (kW2Hash), or `8n pp vv` like every other note off
// (kW2PlainNoteOffHash, what encoders without that rule produce). Both hashes are FnvBytes of
// the whole output.

enum class W2Kind : uint8_t { kNoteOn, kNoteOff, kController, kPitchBend, kProgram, kChannelPressure, kPolyPressure, kSysex };

struct W2Event {
    W2Kind mKind;
    uint8_t mChannel;  // 0..15
    uint8_t mData1;    // pitch, controller number, program or channel pressure
    uint8_t mData2;    // velocity, controller value or poly pressure
    int16_t mBend;     // -8192..8191, pitch bends only
    uint8_t mSysexLength;  // 4..14 payload bytes, sysex only
    uint8_t mSysex[14];
};

constexpr uint64_t kW2Events = 10'000'000;
constexpr size_t kW2MaxBytesPerEvent = 16;
constexpr uint16_t kW2BankDisabled = 0xC000;
constexpr uint64_t kW2Bytes = 29'798'626;
constexpr uint64_t kW2Hash = 0xf68f96534764da7full;
constexpr uint64_t kW2PlainNoteOffHash = 0xe547ec50d2225baful;

std::vector<W2Event> MakeW2Events();
const std::vector<W2Event>& W2Events();  // made once, reference output checked
// The plain encoder the hashes are defined by: writes one event, returns its byte count.
size_t EncodeW2Reference(const W2Event& iEvent, uint8_t* oOut, bool iNoteOffRule = true);

// ---------------------------------------------------------------- notes (W3, W4, W5, W7)

struct Note {
    int64_t mStart;
    int64_t mDuration;
    uint8_t mPitch;
    uint8_t mVelocity;  // on velocity 1..127; the release velocity is always 64
};
constexpr uint8_t kReleaseVelocity = 64;

// One note drawn the common way: start below 10^9, pitch, velocity, then duration 1..200,000.
Note DrawNote(Random& ioRandom);

// ---------------------------------------------------------------- W3: insert 10^6 notes
//
// The notes in generation order (the "random order") and stably sorted by start (the
// "ascending order", ties in generation order) are inserted one call each into an empty note
// container that keeps equal starts in insertion order; both give the same content. Fold the
// container in its order with FoldW3.

constexpr uint64_t kW3Notes = 1'000'000;
constexpr uint64_t kW3Hash = 0x8c46d92a7e8e7788ull;

constexpr uint64_t FoldW3(uint64_t iHash, const Note& iNote) {
    const uint64_t hash = Fnv(iHash, static_cast<uint64_t>(iNote.mStart));
    return Fnv(hash, iNote.mPitch | uint64_t{iNote.mVelocity} << 8 | static_cast<uint64_t>(iNote.mDuration) << 16);
}

std::vector<Note> MakeW3Notes();  // random order
std::vector<Note> SortedByStart(std::vector<Note> iNotes);  // stable: the ascending order
const std::vector<Note>& W3Notes();  // random order, made once and checked
const std::vector<Note>& W3AscendingNotes();  // SortedByStart(W3Notes()), made once
uint64_t W3Reference(const std::vector<Note>& iNotes);  // the fold of SortedByStart(iNotes)

// ---------------------------------------------------------------- sequence data (W4..W7)
//
// 200,000 short notes, 16 controller lanes of 50,000 values each (one value in every stretch of
// 20,000 ticks, so times rise strictly within a lane), and 1,000 long notes of kLongDuration
// that only W5 adds. All on channel 0. The long-note threshold of the container that holds
// them is kLongNoteThreshold ticks.

constexpr size_t kLanes = 16;
constexpr std::array<uint8_t, kLanes> kLaneControllers = {1, 2, 4, 5, 7, 8, 10, 11, 12, 13, 16, 17, 71, 72, 73, 74};
constexpr int64_t kLongDuration = 50'000'000;
constexpr int64_t kLongNoteThreshold = 15'360'000;

struct ControllerValue {
    int64_t mTime;
    uint8_t mValue;
};

struct ControllerLane {
    uint8_t mController;
    std::vector<ControllerValue> mValues;  // by rising time
};

struct SequenceData {
    std::vector<Note> mShortNotes;  // generation order
    std::array<ControllerLane, kLanes> mLanes;
    std::vector<Note> mLongNotes;  // generation order
};

SequenceData MakeSequenceData();
const SequenceData& Sequence();  // made once

// ---------------------------------------------------------------- W4: range queries
//
// 100,000 windows [a, a + kW4WindowLength). Per window, every short note starting in it (one
// note-with-duration event) and every controller value in it, merged in playback order (time,
// then controller before note). Fold each with FoldW4Note / FoldW4Controller and check times
// never decrease.

constexpr size_t kW4Windows = 100'000;
constexpr int64_t kW4WindowLength = 1'000'000;
constexpr uint64_t kW4Events = 100'003'826;
constexpr uint64_t kW4Sum = 0x2b33e259bfda6b50ull;

constexpr uint64_t FoldW4Note(uint64_t iSum, int64_t iTime, uint8_t iPitch, uint8_t iVelocity) {
    return iSum + static_cast<uint64_t>(iTime) * kGolden + (3u << 16 | uint32_t{iPitch} << 8 | iVelocity);
}
constexpr uint64_t FoldW4Controller(uint64_t iSum, int64_t iTime, uint8_t iController, uint8_t iValue) {
    return iSum + static_cast<uint64_t>(iTime) * kGolden + (5u << 16 | uint32_t{iController} << 8 | iValue);
}

struct Tally {
    uint64_t mCount = 0;
    uint64_t mSum = 0;  // or the hash, for W6
    bool operator==(const Tally&) const = default;
};

std::vector<int64_t> MakeW4Windows();  // window starts
const std::vector<int64_t>& W4Windows();  // made once, reference checked
Tally W4Reference(const SequenceData& iData, const std::vector<int64_t>& iWindows, size_t iFirst = kW4Windows);

// ---------------------------------------------------------------- W5: sustaining notes
//
// The short and the long notes together. Per time t, every note with start < t and
// start + duration > t, folded with FoldW5.

constexpr size_t kW5Times = 100'000;
constexpr uint64_t kW5Results = 6'895'219;
constexpr uint64_t kW5Sum = 0xed248bda4d3fdc27ull;

constexpr uint64_t FoldW5(uint64_t iSum, const Note& iNote) {
    return iSum + static_cast<uint64_t>(iNote.mStart) * kGolden + (uint32_t{iNote.mPitch} << 8 | iNote.mVelocity);
}

std::vector<int64_t> MakeW5Times();
const std::vector<int64_t>& W5Times();  // made once, reference checked
Tally W5Reference(const SequenceData& iData, const std::vector<int64_t>& iTimes, size_t iFirst = kW5Times);

// ---------------------------------------------------------------- W6: chase 16 lanes
//
// Per time t, the value in force of every lane: that of its last value with time <= t, or -1
// when there is none. Fold the lanes in lane order with FoldW6, starting from kFnvBasis.

constexpr size_t kW6Times = 100'000;
constexpr uint64_t kW6Hash = 0xfcc57e77debcb06cull;

constexpr uint64_t FoldW6(uint64_t iHash, int iValueOrMinusOne) {
    return Fnv(iHash, static_cast<uint64_t>(iValueOrMinusOne + 1));
}

std::vector<int64_t> MakeW6Times();
const std::vector<int64_t>& W6Times();  // made once, reference checked
uint64_t W6Reference(const SequenceData& iData, const std::vector<int64_t>& iTimes, size_t iFirst = kW6Times);

// ---------------------------------------------------------------- W7: persistence
//
// The W4 content (the short notes and the 16 lanes of Sequence()) written as one document to a
// memory stream and read back into a new container, each way timed on its own; the container
// read back must equal the one written. MB/s = document bytes / seconds. There is no fixed
// checksum: the document's size depends on the library's format.

// Aborts the program with a message naming the workload when iOk is false.
void Require(bool iOk, const char* iWhat);

}  // namespace wl
