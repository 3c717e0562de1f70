// Mdie_TraceUtil: events, timed events, timed event lists and track states as short text for
// trace output and debugging streams. The texts are compared across versions, so every format
// is fixed to the character and the same on every platform (64-bit counts print through the
// portable format macros).
//
// The Format functions write into the caller's buffer (a zero size writes nothing) and never
// overflow it: a long system-exclusive message shows its first bytes, " ..." and its last four
// bytes, within a budget of the buffer's size (when the budget runs out at the final byte, the
// ending is still added, the last four bytes again). The Print functions format through a
// 200-character stack buffer. Formatting never touches the heap, takes no lock and may run
// on any thread; the Print functions do what the stream does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>

#include "Mdie_TimedEvent.h"
#include "Time_Typed.h"
#include "Vela_Event.h"

class Mdie_TrackState;

// The host's receiver of the library's diagnostics. The library only keeps the pointer
// (Mdie_TraceUtil::sCallback); what a host reports through it is its own affair.
class Mdi_AppCallback {
public:
    virtual ~Mdi_AppCallback() = default;
    virtual void ReportDiagnostic(const char* iText) = 0;
};

class Mdie_TraceUtil {
public:
    static constexpr size_t kLineSize = 200;

    // "NoteOn(60, 100)", "Program(5, bank 130 MSB LSB)", "Sysex - f0 7e 7f 09 01 f7", ...
    static void FormatMidiEvent(char* oBuffer, size_t iSize, const Vela_Event& iEvent);
    // "<sample: 480> " and the event (the count of the time, whatever its kind).
    static void FormatTimedMidiEvent(char* oBuffer, size_t iSize, const Mdie_TimedEvent& iEvent);
    // "[s.ms.tenth-of-ms digit, sample]": the seconds' last digit, the milliseconds, the
    // hundreds of microseconds, then the sample count.
    static void FormatMidiTimestamp(char* oBuffer, size_t iSize, int64_t iMicroseconds, Time_Sample iSample);

    // Nothing when the stream has failed.
    static void PrintMidiEvent(const Vela_Event& iEvent, std::ostream& ioStream);
    // One line per event: count, "t  " or "s  ", the event. Nothing for a null or empty list.
    static void PrintTimedEventList(Mdie_TimedEventList* iListP, std::ostream& ioStream);
    // A header line, then "\t(pitch, on velocity, off velocity, release count)" per note in
    // release order (a null state prints the header alone).
    static void PrintTrackState(Mdie_TrackState* iStateP, std::ostream& ioStream);
    // Formats every event and emits nothing: the hook where a trace sink may be attached.
    static void TraceMidiEventList(Mdie_TimedEventList* iListP);

    // Keeps iCallbackP (not owned; null by default).
    static void SetCallback(Mdi_AppCallback* iCallbackP) { sCallback = iCallbackP; }
    static Mdi_AppCallback* sCallback;
};
