// A byte parser whose every handler reports to one function, with the handler's short name and
// its message's length, so tests and the fuzz target record the calls without overriding each
// handler themselves.
#pragma once

#include "Mdi_Parse.h"

class HandlerRecorder : public Mdi_Parse {
protected:
    // Returns what the handler returns.
    virtual bool Record(const char* iHandler, const unsigned char* iMessage, int iLength) = 0;

    bool ParseRealTime(const unsigned char* m) override { return Record("RT", m, 1); }
    bool ParseSysEx(const unsigned char* m, short n) override { return Record("SX", m, n); }
    bool ParseNoteOff(const unsigned char* m) override { return Record("Off", m, 3); }
    bool ParseNoteOn(const unsigned char* m) override { return Record("On", m, 3); }
    bool ParsePolyphonic(const unsigned char* m) override { return Record("PP", m, 3); }
    bool ParseChannelMode(const unsigned char* m) override { return Record("CM", m, 3); }
    bool ParseController(const unsigned char* m) override { return Record("CC", m, 3); }
    bool ParseProgramChange(const unsigned char* m) override { return Record("PC", m, 2); }
    bool ParseChannelPressure(const unsigned char* m) override { return Record("CP", m, 2); }
    bool ParsePitchBend(const unsigned char* m) override { return Record("PB", m, 3); }
    bool ParseTimecode(const unsigned char* m) override { return Record("TC", m, 2); }
    bool ParseSongPointer(const unsigned char* m) override { return Record("SP", m, 3); }
    bool ParseSongSelect(const unsigned char* m) override { return Record("SS", m, 2); }
    bool ParseTuneRequest(const unsigned char* m) override { return Record("TR", m, 1); }
};
