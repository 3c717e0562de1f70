// Vela_NoteListBase_Note: one stored note of a note list, copied by value.
// The current note and the note as it was before quantise or edit are both
// Vela_NoteWithDurationEvent values; quantizeTimeDelta is how far quantising moved the start
// away from the original. Lists move records as raw bytes and honour the event's own copy and
// destruction (needed only for long system-exclusive data, which a note never holds).
#pragma once

#include "Time_Typed.h"
#include "Vela_Event.h"

struct Vela_NoteListBase_Note {
    Time_Typed start;                    // attack time (sample- or tick-based)
    Vela_Event event;                    // the current note (a Vela_NoteWithDurationEvent)
    Time_TypedLength quantizeTimeDelta;  // how far quantising moved the start
    Vela_Event origEvent;                // the note before quantise/edit
    bool muted = false;
};
