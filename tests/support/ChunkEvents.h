// Short builders for the events the chunk tests put into chunks (tick times throughout), and
// what they read back out of a chunk.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Vela_Chunk.h"
#include "Vela_ContinuousDataStream.h"
#include "Vela_ExtendedEvent.h"
#include "Vela_ExtendedEventList.h"

using ChunkPtr = std::unique_ptr<Vela_Chunk>;

inline Time_Typed Ticks(int64_t iCount) { return Time_Typed(iCount, kTime_Ticks); }
inline Time_TypedLength TickLength(int64_t iCount) { return Time_TypedLength(iCount, kTime_Ticks); }
inline ChunkPtr NewChunk(Ndo_Object::EUndoFlag iUndo = Ndo_Object::kNotUndoable) { return ChunkPtr(Vela_Chunk::New(iUndo, false)); }

inline Vela_NoteWithDurationExtendedEvent NoteAt(int64_t iStart, int iPitch, int iVelocity = 100, int64_t iDuration = 480) {
    const Vela_NoteWithDurationEvent note(static_cast<int8_t>(iPitch), TickLength(iDuration), static_cast<int8_t>(iVelocity), 64);
    return Vela_NoteWithDurationExtendedEvent(Ticks(iStart), note, false);
}
inline Vela_ExtendedEvent EventAt(int64_t iTime, const Vela_Event& iEvent) { return Vela_ExtendedEvent(Ticks(iTime), iEvent); }
inline Vela_ExtendedEvent ControllerAt(int64_t iTime, int iNumber, int iValue) {
    return EventAt(iTime, Vela_ControllerEvent(static_cast<int8_t>(iNumber), static_cast<int8_t>(iValue)));
}
inline Vela_ExtendedEvent SysexAt(int64_t iTime, uint8_t iByte) {
    const unsigned char payload[] = {0x43, iByte, 0x01};
    return EventAt(iTime, Vela_SysexEvent(3, payload));
}

inline std::vector<Mdie_SubStream> SubStreams(const Vela_Chunk& iChunk) {
    std::vector<Mdie_SubStream> result;
    for (const auto& entry : iChunk.GetContinuousList()) result.push_back(entry->GetSubStream());
    return result;
}

// Every event of the chunk in playback order (the short range query over all time).
inline Mdie_TimedEventList AllEvents(const Vela_Chunk& iChunk) {
    Mdie_TimedEventList list;
    Vela_EventListWrapper output(list);
    iChunk.GetMidiEventsInRange(&output, TickLength(0), Time_Typed::MinTime(kTime_Ticks), Time_Typed::MaxTime(kTime_Ticks), false,
                                nullptr, nullptr, kNoteOffNone);
    return list;
}
