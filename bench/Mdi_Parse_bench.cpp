// W1: a 64 MiB MIDI input stream fed in 4096-byte slices to one parser that keeps its state
// across slices. Every channel voice event is folded into the workload's canonical hash, so
// each implementation is checked to do exactly the same work. Beside the library's parser:
// ALSA's byte encoder (when installed) and two reference passes (classify bytes, memcpy).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "Figure.h"
#include "Mdi_Parse.h"
#include "Workloads.h"

#ifdef VELA_BENCH_HAVE_ALSA
#include <alsa/asoundlib.h>
#endif

namespace {

const std::vector<uint8_t>& W1Stream() { return wl::W1().mBytes; }

// The figures over the measured time, once the sink matches the workload's events.
void Finish(benchmark::State& ioState, const wl::CanonicalHash& iSink, const figure::Goal& iGoal = {}) {
    if (!iSink.MatchesW1()) {
        ioState.SkipWithError("W1 checksum mismatch");
        return;
    }
    ioState.counters["msgs/s"] = figure::Counter("msgs/s", static_cast<double>(wl::kW1Events));
    figure::Report(ioState, "MB/s", static_cast<double>(wl::kW1Bytes) / 1e6, iGoal);
}

template <class FeedSlice>
void ForEachSlice(const std::vector<uint8_t>& iStream, FeedSlice&& iFeed) {
    for (size_t at = 0; at < iStream.size(); at += wl::kW1Slice) {
        iFeed(iStream.data() + at, std::min(wl::kW1Slice, iStream.size() - at));
    }
}

// ---------------------------------------------------------------- the library's parser

void FeedW1(Mdi_Parse& ioParser) {
    ForEachSlice(W1Stream(), [&](const uint8_t* iBytes, size_t iLength) {
        ioParser.MidiStream(iBytes, static_cast<short>(iLength));
    });
}

class HashingReceiver : public Mdie_EventReceiver {
public:
    explicit HashingReceiver(const Mdi_Parse& iParser) : mParser(iParser) {}
    void ReceiveEvent(const Vela_Event& iEvent) override {
        const unsigned ch = static_cast<unsigned>(mParser.GetChannel());
        switch (iEvent.GetType()) {
            case Vela_Event::kNoteOn:
                mSink.Put(wl::CanonNoteOn(ch, U(iEvent.AsNoteOn().GetPitch()), U(iEvent.AsNoteOn().GetVelocity())));
                break;
            case Vela_Event::kNoteOff:
                mSink.Put(wl::CanonNoteOff(ch, U(iEvent.AsNoteOff().GetPitch()), U(iEvent.AsNoteOff().GetVelocity())));
                break;
            case Vela_Event::kController:
                mSink.Put(wl::CanonController(ch, U(iEvent.AsController().GetControllerNumber()), U(iEvent.AsController().GetValue())));
                break;
            case Vela_Event::kProgram: mSink.Put(wl::CanonProgram(ch, U(iEvent.AsProgram().GetProgram()))); break;
            case Vela_Event::kMonoPressure: mSink.Put(wl::CanonPressure(ch, U(iEvent.AsMonoPressure().GetPressure()))); break;
            case Vela_Event::kPitchBend:
                mSink.Put(wl::CanonBend(ch, static_cast<unsigned>(iEvent.AsPitchBend().GetBendValue() + 8192)));
                break;
            default: mSink.Put(0); break;  // not produced by W1; counted so a stray one fails the check
        }
    }
    wl::CanonicalHash mSink;

private:
    static unsigned U(int8_t iByte) { return static_cast<uint8_t>(iByte); }
    const Mdi_Parse& mParser;
};

void W1_VelaParse(benchmark::State& ioState) {
    wl::CanonicalHash last;
    for (auto _ : ioState) {
        Mdi_ParseToEventReceiver parser;
        HashingReceiver receiver(parser);
        parser.SetEventReceiver(&receiver);
        FeedW1(parser);
        last = receiver.mSink;
    }
    Finish(ioState, last, {.mPeer = "W1_AlsaEncodeByte", .mPeerRatio = 3});
}
BENCHMARK(W1_VelaParse)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5)->UseRealTime();

// The parser alone: events are built and handed to a receiver that only counts them, to tell
// the parser's share of W1_VelaParse from the hashing sink's.
class CountingReceiver : public Mdie_EventReceiver {
public:
    void ReceiveEvent(const Vela_Event&) override { ++mCount; }
    uint64_t mCount = 0;
};

void W1_VelaParseOnly(benchmark::State& ioState) {
    uint64_t count = 0;
    for (auto _ : ioState) {
        Mdi_ParseToEventReceiver parser;
        CountingReceiver receiver;
        parser.SetEventReceiver(&receiver);
        FeedW1(parser);
        count = receiver.mCount;
    }
    if (count != wl::kW1Events) ioState.SkipWithError("W1 event count mismatch");
    figure::Report(ioState, "MB/s", static_cast<double>(wl::kW1Bytes) / 1e6);
}
BENCHMARK(W1_VelaParseOnly)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5)->UseRealTime();

// ---------------------------------------------------------------- ALSA's byte encoder

#ifdef VELA_BENCH_HAVE_ALSA
void HashAlsaEvent(wl::CanonicalHash& ioSink, const snd_seq_event_t& iEvent) {
    const snd_seq_ev_note_t& note = iEvent.data.note;
    const snd_seq_ev_ctrl_t& control = iEvent.data.control;
    switch (iEvent.type) {
        case SND_SEQ_EVENT_NOTEON: ioSink.Put(wl::CanonNoteOn(note.channel, note.note, note.velocity)); break;
        case SND_SEQ_EVENT_NOTEOFF: ioSink.Put(wl::CanonNoteOff(note.channel, note.note, note.velocity)); break;
        case SND_SEQ_EVENT_CONTROLLER:
            ioSink.Put(wl::CanonController(control.channel, control.param, static_cast<unsigned>(control.value)));
            break;
        case SND_SEQ_EVENT_PGMCHANGE: ioSink.Put(wl::CanonProgram(control.channel, static_cast<unsigned>(control.value))); break;
        case SND_SEQ_EVENT_CHANPRESS:
            ioSink.Put(wl::CanonPressure(control.channel, static_cast<unsigned>(control.value)));
            break;
        case SND_SEQ_EVENT_PITCHBEND:
            ioSink.Put(wl::CanonBend(control.channel, static_cast<unsigned>(control.value + 8192)));
            break;
        case SND_SEQ_EVENT_CLOCK:
        case SND_SEQ_EVENT_SYSEX: break;  // recognised, not hashed
        default: ioSink.Put(0); break;
    }
}

void W1_AlsaEncodeByte(benchmark::State& ioState) {
    const std::vector<uint8_t>& stream = W1Stream();
    wl::CanonicalHash last;
    for (auto _ : ioState) {
        snd_midi_event_t* encoderP = nullptr;
        if (snd_midi_event_new(256, &encoderP) < 0) {
            ioState.SkipWithError("snd_midi_event_new failed");
            return;
        }
        wl::CanonicalHash sink;
        snd_seq_event_t event;
        ForEachSlice(stream, [&](const uint8_t* iBytes, size_t iLength) {
            for (size_t i = 0; i < iLength; ++i) {
                if (snd_midi_event_encode_byte(encoderP, iBytes[i], &event) > 0) HashAlsaEvent(sink, event);
            }
        });
        snd_midi_event_free(encoderP);
        last = sink;
    }
    Finish(ioState, last);
}
BENCHMARK(W1_AlsaEncodeByte)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5)->UseRealTime();

// The hashing sink alone, over events encoded beforehand: the part of every W1 figure above
// that no parser can remove (one data-dependent switch per event).
void W1_ReferenceSinkOnly(benchmark::State& ioState) {
    std::vector<snd_seq_event_t> events;
    snd_midi_event_t* encoderP = nullptr;
    if (snd_midi_event_new(256, &encoderP) < 0) {
        ioState.SkipWithError("snd_midi_event_new failed");
        return;
    }
    snd_seq_event_t event;
    for (uint8_t b : W1Stream()) {
        if (snd_midi_event_encode_byte(encoderP, b, &event) > 0) events.push_back(event);
    }
    snd_midi_event_free(encoderP);
    wl::CanonicalHash last;
    for (auto _ : ioState) {
        wl::CanonicalHash sink;
        for (const snd_seq_event_t& each : events) HashAlsaEvent(sink, each);
        last = sink;
    }
    Finish(ioState, last);
}
BENCHMARK(W1_ReferenceSinkOnly)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5)->UseRealTime();
#endif

// ---------------------------------------------------------------- reference passes

// Classifies every byte (status? real time?) and nothing more: the floor for any parser.
void W1_ReferenceClassify(benchmark::State& ioState) {
    const std::vector<uint8_t>& stream = W1Stream();
    for (auto _ : ioState) {
        uint64_t status = 0, realTime = 0;
        ForEachSlice(stream, [&](const uint8_t* iBytes, size_t iLength) {
            for (size_t i = 0; i < iLength; ++i) {
                status += iBytes[i] >= 0x80;
                realTime += iBytes[i] >= 0xF8;
            }
        });
        benchmark::DoNotOptimize(status);
        benchmark::DoNotOptimize(realTime);
    }
    figure::Report(ioState, "MB/s", static_cast<double>(stream.size()) / 1e6);
}
BENCHMARK(W1_ReferenceClassify)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5)->UseRealTime();

void W1_ReferenceMemcpy(benchmark::State& ioState) {
    const std::vector<uint8_t>& stream = W1Stream();
    std::vector<uint8_t> copy(stream.size());
    for (auto _ : ioState) {
        std::memcpy(copy.data(), stream.data(), stream.size());
        benchmark::DoNotOptimize(copy[copy.size() / 2]);
    }
    figure::Report(ioState, "MB/s", static_cast<double>(stream.size()) / 1e6);
}
BENCHMARK(W1_ReferenceMemcpy)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5)->UseRealTime();

}  // namespace
