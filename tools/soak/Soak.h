// The soak program's phases: kinds of work that a long-running host repeats for hours.
// A phase keeps what it needs between rounds (a prepared byte stream, a real-time pool); a
// round is a few milliseconds of work that drops everything it made and answers false when
// one of its own checks fails. Memory that a round leaves behind shows up in the soak's
// resident-memory figures.
//
// Adding a phase: derive from Soak_Phase, give it a factory, and add a row to kPhases in
// main.cpp.
#pragma once

#include <memory>
#include <random>

class Soak_Phase {
public:
    virtual ~Soak_Phase() = default;
    virtual bool RunRound(std::mt19937& ioRandom) = 0;
};

// MIDI input in random slices, with running status, clocks between data bytes and short and
// long sysex; channel events and sysex are recorded into a timed list as a host records.
std::unique_ptr<Soak_Phase> Soak_MakeParsePhase();
// Long-sysex events made, copied, assigned over each other and dropped in random order.
std::unique_ptr<Soak_Phase> Soak_MakeSysexCopyPhase();
// Timed lists of short and long sysex saved to a memory stream, loaded back and compared.
std::unique_ptr<Soak_Phase> Soak_MakeTimedListPhase();
// 300-byte sysex events made and dropped at once in a tight loop: the hardest case for the
// deferred deleter.
std::unique_ptr<Soak_Phase> Soak_MakeSysexChurnPhase();
