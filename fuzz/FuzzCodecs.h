// One codec per streamed block of the library, the round-trip check every fuzz target and
// the damaged-document test run over them, and the same check for Standard MIDI Files.
//
// A codec reads its block into a new value, writes a value back, and says whether two values
// are the same where the value has an equality of its own (elsewhere the written bytes decide).
// RoundTrip is the property: any input either fails to read with the library's exception
// (Cmn_Exception: the stream exception or a localized one), or it reads, and then what it
// writes reads again to the same value, which writes the same bytes. Anything else escapes as
// a std::logic_error (or whatever the reader threw), which a fuzzer reports as a crash.
#pragma once

#include <cstdint>
#include <algorithm>
#include <memory>
#include <stdexcept>
#include <tuple>
#include <vector>

#include "Cmn_Exception.h"
#include "Mdie_SubStream.h"
#include "Mdie_TimedEvent.h"
#include "Sys_TypedStream.h"
#include "Vela_Chunk.h"
#include "Vela_ContinuousData.h"
#include "Vela_ContinuousDataStream.h"
#include "Vela_Event.h"
#include "Vela_EventStream.h"
#include "Vela_ExtendedEvent.h"
#include "Vela_NoteList.h"
#include "Vela_SmfCodec.h"

namespace VelaFuzz {

using Bytes = std::vector<uint8_t>;
constexpr Ndo_Object::EUndoFlag kNoUndo = Ndo_Object::kNotUndoable;

template <class TCodec, class TValue>
Bytes Written(const TValue& iValue) {
    Sys_MemoryOutStream out;
    TCodec::Write(iValue, out);
    return out.GetBytes();
}

// A value streamed by its own StreamIn and StreamOut, made from the given arguments before it
// reads. Same answers true: the written bytes are the comparison, unless a codec knows more.
template <class TValue, class TWritten = TValue>
struct MemberCodec {
    template <class... TArgs>
    static std::unique_ptr<TValue> ReadNew(Sys_TypedInStream& iIn, TArgs... iArgs) {
        auto value = std::make_unique<TValue>(iArgs...);
        value->StreamIn(iIn);
        return value;
    }
    static void Write(const TWritten& iValue, Sys_TypedOutStream& iOut) { iValue.StreamOut(iOut); }
    static bool Same(const TWritten&, const TWritten&) { return true; }
};

// The system-exclusive event block. A null event has no block of its own form; it is written
// the way lists write it (a null flag), which is what a list holding it reads back.
struct EventCodec : MemberCodec<Vela_Event> {
    static std::unique_ptr<Vela_Event> Read(Sys_TypedInStream& iIn) { return ReadNew(iIn); }
    static void Write(const Vela_Event& iEvent, Sys_TypedOutStream& iOut) { iEvent.StreamOutReadable(iOut); }
    // Long sysex events are equal only when they share their data; their content is compared
    // by the written bytes.
    static bool Same(const Vela_Event& iA, const Vela_Event& iB) {
        return iA.GetType() == iB.GetType() && (iA.GetType() == Vela_Event::kLongSysex || iA == iB);
    }
};

struct TimedEventListCodec : MemberCodec<Mdie_TimedEventList> {
    static std::unique_ptr<Mdie_TimedEventList> Read(Sys_TypedInStream& iIn) { return ReadNew(iIn); }
    static bool Same(const Mdie_TimedEventList& iA, const Mdie_TimedEventList& iB) {
        if (iA.GetSize() != iB.GetSize()) return false;
        for (size_t i = 0; i < iA.GetSize(); ++i) {
            const Time_Typed& a = iA[i].GetTime();
            const Time_Typed& b = iB[i].GetTime();
            if (a.AsInt64() != b.AsInt64() || a.GetType() != b.GetType()) return false;
            if (!EventCodec::Same(iA[i].GetEvent(), iB[i].GetEvent())) return false;
        }
        return true;
    }
};

struct SubStreamCodec : MemberCodec<Mdie_SubStream> {
    static std::unique_ptr<Mdie_SubStream> Read(Sys_TypedInStream& iIn) { return ReadNew(iIn); }
    static bool Same(const Mdie_SubStream& iA, const Mdie_SubStream& iB) { return iA == iB; }
};

struct ContinuousDataCodec : MemberCodec<Vela_ContinuousData> {
    static std::unique_ptr<Vela_ContinuousData> Read(Sys_TypedInStream& iIn) { return ReadNew(iIn, kNoUndo, false); }
};

struct ContinuousDataStreamCodec : MemberCodec<Vela_ContinuousDataStream> {
    static std::unique_ptr<Vela_ContinuousDataStream> Read(Sys_TypedInStream& iIn) {
        return std::make_unique<Vela_ContinuousDataStream>(iIn, kNoUndo, false);
    }
};

struct EventStreamCodec : MemberCodec<Vela_EventStream> {
    static std::unique_ptr<Vela_EventStream> Read(Sys_TypedInStream& iIn) { return ReadNew(iIn, kNoUndo, false); }
    static bool Same(const Vela_EventStream& iA, const Vela_EventStream& iB) {
        return TimedEventListCodec::Same(iA.GetEvents(), iB.GetEvents());
    }
};

struct NoteListCodec : MemberCodec<Vela_NoteList, Vela_NoteListBase> {
    static std::unique_ptr<Vela_NoteList> Read(Sys_TypedInStream& iIn) { return ReadNew(iIn, kNoUndo, false); }
    static bool Same(const Vela_NoteListBase& iA, const Vela_NoteListBase& iB) { return iA == iB; }
};

// The chunk's own equality tells chunks with continuous data apart by identity, so the bytes
// (which hold every member) decide.
struct ChunkCodec : MemberCodec<Vela_Chunk> {
    static std::unique_ptr<Vela_Chunk> Read(Sys_TypedInStream& iIn) {
        return std::unique_ptr<Vela_Chunk>(Vela_Chunk::StreamIn(iIn, kNoUndo, false));
    }
};

// A small chunk with something in every member: notes of both time kinds (one muted, one with
// on velocity 0), controller, pitch-bend and poly-pressure streams, a short and a long sysex.
inline std::unique_ptr<Vela_Chunk> SampleChunk() {
    std::unique_ptr<Vela_Chunk> chunk(Vela_Chunk::New(kNoUndo, false));
    const Time_TypedLength beat(480, kTime_Ticks);
    chunk->AddEvent(Vela_NoteWithDurationExtendedEvent(Time_Typed(0, kTime_Ticks), Vela_NoteWithDurationEvent(60, beat, 100, 64), false));
    chunk->AddEvent(Vela_NoteWithDurationExtendedEvent(Time_Typed(240, kTime_Ticks), Vela_NoteWithDurationEvent(64, beat, 0, 64), true));
    chunk->AddEvent(Vela_NoteWithDurationExtendedEvent(Time_Typed(44100, kTime_Samples),
                                                       Vela_NoteWithDurationEvent(67, Time_TypedLength(22050, kTime_Samples), 90, 40), false));
    chunk->AddEvent(Vela_ExtendedEvent(Time_Typed(0, kTime_Ticks), Vela_ControllerEvent(7, 100)));
    chunk->AddEvent(Vela_ExtendedEvent(Time_Typed(960, kTime_Ticks), Vela_ControllerEvent(7, 20)));
    chunk->AddEvent(Vela_ExtendedEvent(Time_Typed(10, kTime_Samples), Vela_PitchBendEvent(-200)));
    chunk->AddEvent(Vela_ExtendedEvent(Time_Typed(5, kTime_Ticks), Vela_PolyPressureEvent(60, 30)));
    const unsigned char shortPayload[] = {0x7E, 0x7F, 0x09, 0x01};
    unsigned char longPayload[40];  // above 14 bytes: the long form
    for (size_t i = 0; i < sizeof longPayload; ++i) longPayload[i] = static_cast<unsigned char>(i & 0x7F);
    chunk->AddEvent(Vela_ExtendedEvent(Time_Typed(1, kTime_Ticks), Vela_SysexEvent(sizeof shortPayload, shortPayload)));
    chunk->AddEvent(Vela_ExtendedEvent(Time_Typed(2, kTime_Samples), Vela_SysexEvent(sizeof longPayload, longPayload)));
    return chunk;
}

// True when the input read (and then round-tripped); false when it failed with the library's
// exception. Throws std::logic_error when the round trip breaks.
template <class TCodec>
bool RoundTrip(const uint8_t* iData, size_t iSize) {
    Sys_MemoryInStream firstIn(iData, iSize);
    decltype(TCodec::Read(firstIn)) first;
    try {
        first = TCodec::Read(firstIn);
    } catch (const Cmn_Exception&) {
        return false;
    }
    const Bytes written = Written<TCodec>(*first);
    Sys_MemoryInStream secondIn(written.data(), written.size());
    const auto second = TCodec::Read(secondIn);  // must not throw: the library wrote it
    if (secondIn.GetPos() != static_cast<int64_t>(written.size())) throw std::logic_error("round trip: second read stopped early");
    if (!TCodec::Same(*first, *second)) throw std::logic_error("round trip: the second read differs from the first");
    if (Written<TCodec>(*second) != written) throw std::logic_error("round trip: the second write differs from the first");
    return true;
}

// The Standard MIDI File reader's round trip: the input either throws Vela_SmfError or reads;
// a song read is written, read again to the same tracks (taken in file-track and channel order,
// since the order of one file track's channels follows their first events, which writing may
// reorder at one tick), and written again to the same bytes. True when the input read.
inline bool SmfRoundTrip(const uint8_t* iData, size_t iSize) {
    Vela_SmfSong first;
    try {
        first = Vela_SmfCodec::Read(iData, iSize);
    } catch (const Vela_SmfError&) {
        return false;
    }
    auto inOrder = [](std::vector<Vela_SmfTrack> iTracks) {
        std::stable_sort(iTracks.begin(), iTracks.end(), [](const Vela_SmfTrack& iA, const Vela_SmfTrack& iB) {
            return std::tie(iA.mFileTrack, iA.mChannel) < std::tie(iB.mFileTrack, iB.mChannel);
        });
        return iTracks;
    };
    const std::vector<unsigned char> written = Vela_SmfCodec::Write(first);
    const Vela_SmfSong second = Vela_SmfCodec::Read(written.data(), written.size());  // must not throw
    if (second.mDivision != first.mDivision || inOrder(second.mTracks) != inOrder(first.mTracks)) {
        throw std::logic_error("round trip: the second read differs from the first");
    }
    if (Vela_SmfCodec::Write(second) != written) throw std::logic_error("round trip: the second write differs from the first");
    return true;
}

}  // namespace VelaFuzz
