// Test helpers that reach into an event value: the bank word of a program event and the shared
// data a long sysex points to. One place for the layout knowledge the event tests share.
#pragma once

#include <cstdint>
#include <cstring>

#include "Mdie_SysexDataBase.h"
#include "Vela_Event.h"

// A program event's bank word with both halves enabled.
inline int16_t Bank(int iMSB, int iLSB) { return static_cast<int16_t>((iMSB << 7) | iLSB); }

// The shared data object held in bytes 8..15 of a long sysex's value.
inline Mdie_SysexDataBase* SharedSysexData(const Vela_Event& iLongSysex) {
    Mdie_SysexDataBase* dataP = nullptr;
    std::memcpy(&dataP, reinterpret_cast<const unsigned char*>(&iLongSysex) + 8, sizeof(dataP));
    return dataP;
}
