// Short builders for the events the chunk tests put into chunks (tick times throughout).
#pragma once

#include <cstdint>

#include "Vela_Chunk.h"
#include "Vela_ExtendedEvent.h"

inline Time_Typed Ticks(int64_t iCount) { return Time_Typed(iCount, kTime_Ticks); }
inline Time_TypedLength TickLength(int64_t iCount) { return Time_TypedLength(iCount, kTime_Ticks); }

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
