// W2: 10^7 generated events, built beforehand in each encoder's own event value, encoded to
// wire bytes in one preallocated buffer (status OR channel, no running status), and the
// output checked byte for byte against the workload's hash. Beside the library's two paths
// (one call per event, and the message interface): the plain encoder the checksum is defined
// by and, when installed, ALSA's snd_midi_event_decode (no note-off rule, hence its own hash).
#include <benchmark/benchmark.h>

#include <vector>

#include "Figure.h"
#include "Vela_Event.h"
#include "Workloads.h"

#ifdef VELA_BENCH_HAVE_ALSA
#include <alsa/asoundlib.h>
#endif

namespace {

// ---------------------------------------------------------------- the timed loop and its check

// Runs iEncodeAll (events in, bytes written out) over the output buffer and checks the bytes.
template <class EncodeAll>
void RunW2(benchmark::State& ioState, uint64_t iExpectHash, const figure::Goal& iGoal, EncodeAll&& iEncodeAll) {
    std::vector<unsigned char> out(wl::kW2Events * wl::kW2MaxBytesPerEvent);
    size_t written = 0;
    for (auto _ : ioState) {
        written = iEncodeAll(out.data());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    if (written != wl::kW2Bytes || wl::FnvBytes(out.data(), written) != iExpectHash) {
        ioState.SkipWithError("W2 output differs from the expected bytes");
        return;
    }
    ioState.counters["MB/s"] = figure::Counter("MB/s", static_cast<double>(written) / 1e6);
    figure::Report(ioState, "events/s", static_cast<double>(wl::kW2Events), iGoal);
}

// ---------------------------------------------------------------- the library's events

struct VelaInput {
    std::vector<Vela_Event> mEvents;
    std::vector<uint8_t> mChannels;
};

Vela_Event MakeEvent(const wl::W2Event& iSource) {
    const auto d1 = static_cast<int8_t>(iSource.mData1);
    const auto d2 = static_cast<int8_t>(iSource.mData2);
    switch (iSource.mKind) {
        case wl::W2Kind::kNoteOn: return Vela_NoteOnEvent(d1, d2);
        case wl::W2Kind::kNoteOff: return Vela_NoteOffEvent(d1, d2);
        case wl::W2Kind::kController: return Vela_ControllerEvent(d1, d2);
        case wl::W2Kind::kPitchBend: return Vela_PitchBendEvent(iSource.mBend);
        case wl::W2Kind::kProgram: return Vela_ProgramEvent(d1, static_cast<int16_t>(wl::kW2BankDisabled));
        case wl::W2Kind::kChannelPressure: return Vela_MonoPressureEvent(d1);
        case wl::W2Kind::kPolyPressure: return Vela_PolyPressureEvent(d1, d2);
        case wl::W2Kind::kSysex: break;
    }
    return Vela_SysexEvent(iSource.mSysexLength, iSource.mSysex);
}

const VelaInput& Input() {
    static const VelaInput sInput = [] {
        VelaInput input;
        input.mEvents.reserve(wl::kW2Events);
        input.mChannels.reserve(wl::kW2Events);
        for (const wl::W2Event& event : wl::W2Events()) {
            input.mEvents.push_back(MakeEvent(event));
            input.mChannels.push_back(event.mChannel);
        }
        return input;
    }();
    return sInput;
}

// The one-call path: each event's whole wire form, channel included.
void W2_VelaEncode(benchmark::State& ioState) {
    const VelaInput& input = Input();
    RunW2(ioState, wl::kW2Hash, {.mTarget = 75e6, .mPeer = "W2_AlsaDecode", .mPeerRatio = 1.2}, [&](unsigned char* oOut) {
        auto* outP = reinterpret_cast<signed char*>(oOut);
        for (size_t e = 0; e < input.mEvents.size(); ++e)
            outP += input.mEvents[e].WriteMessages(outP, wl::kW2MaxBytesPerEvent, input.mChannels[e]);
        return static_cast<size_t>(outP - reinterpret_cast<signed char*>(oOut));
    });
}
BENCHMARK(W2_VelaEncode)->Iterations(1)->Repetitions(5)->Unit(benchmark::kMillisecond)->UseRealTime();

// The message-by-message path an output port takes: the message count, then each message's length and
// bytes, with the channel ORed into the status of channel messages.
void W2_VelaEncodeMessages(benchmark::State& ioState) {
    const VelaInput& input = Input();
    RunW2(ioState, wl::kW2Hash, {}, [&](unsigned char* oOut) {
        auto* outP = reinterpret_cast<signed char*>(oOut);
        for (size_t e = 0; e < input.mEvents.size(); ++e) {
            const Vela_Event& event = input.mEvents[e];
            const int messages = event.GetNumMessages();
            for (int m = 0; m < messages; ++m) {
                const int length = event.GetMessageLength(m);
                event.GetMessageData(outP, m);
                const auto status = static_cast<uint8_t>(outP[0]);
                if (status < 0xF0) outP[0] = static_cast<signed char>(status | input.mChannels[e]);
                outP += length;
            }
        }
        return static_cast<size_t>(outP - reinterpret_cast<signed char*>(oOut));
    });
}
BENCHMARK(W2_VelaEncodeMessages)->Iterations(1)->Repetitions(5)->Unit(benchmark::kMillisecond)->UseRealTime();

// ---------------------------------------------------------------- references

// The plain encoder over the workload's own 22-byte records: a switch per event.
void W2_ReferenceEncode(benchmark::State& ioState) {
    const std::vector<wl::W2Event>& events = wl::W2Events();
    RunW2(ioState, wl::kW2Hash, {}, [&](unsigned char* oOut) {
        unsigned char* outP = oOut;
        for (const wl::W2Event& event : events) outP += wl::EncodeW2Reference(event, outP);
        return static_cast<size_t>(outP - oOut);
    });
}
BENCHMARK(W2_ReferenceEncode)->Iterations(1)->Repetitions(5)->Unit(benchmark::kMillisecond)->UseRealTime();

#ifdef VELA_BENCH_HAVE_ALSA
// ALSA's sequencer events, sysex payloads framed F0 .. F7 in one shared store.
struct AlsaInput {
    std::vector<snd_seq_event_t> mEvents;
    std::vector<unsigned char> mSysexBytes;
};

// One event in ALSA's form; a sysex's framed bytes are appended to ioSysexBytes.
snd_seq_event_t AlsaEvent(const wl::W2Event& iFrom, std::vector<unsigned char>& ioSysexBytes) {
    constexpr snd_seq_event_type_t kTypes[] = {  // by wl::W2Kind
        SND_SEQ_EVENT_NOTEON,    SND_SEQ_EVENT_NOTEOFF,   SND_SEQ_EVENT_CONTROLLER, SND_SEQ_EVENT_PITCHBEND,
        SND_SEQ_EVENT_PGMCHANGE, SND_SEQ_EVENT_CHANPRESS, SND_SEQ_EVENT_KEYPRESS,   SND_SEQ_EVENT_SYSEX};
    snd_seq_event_t to{};
    to.type = kTypes[static_cast<int>(iFrom.mKind)];
    switch (iFrom.mKind) {
        case wl::W2Kind::kNoteOn:
        case wl::W2Kind::kNoteOff:
        case wl::W2Kind::kPolyPressure:
            to.data.note.channel = iFrom.mChannel;
            to.data.note.note = iFrom.mData1;
            to.data.note.velocity = iFrom.mData2;
            break;
        case wl::W2Kind::kSysex:
            to.flags = SND_SEQ_EVENT_LENGTH_VARIABLE;
            to.data.ext.len = iFrom.mSysexLength + 2u;
            to.data.ext.ptr = ioSysexBytes.data() + ioSysexBytes.size();
            ioSysexBytes.push_back(0xF0);
            ioSysexBytes.insert(ioSysexBytes.end(), iFrom.mSysex, iFrom.mSysex + iFrom.mSysexLength);
            ioSysexBytes.push_back(0xF7);
            break;
        default:  // controller number and value; the bend; the program or pressure
            to.data.control.channel = iFrom.mChannel;
            to.data.control.param = iFrom.mData1;
            to.data.control.value = iFrom.mKind == wl::W2Kind::kController  ? iFrom.mData2
                                    : iFrom.mKind == wl::W2Kind::kPitchBend ? iFrom.mBend
                                                                            : iFrom.mData1;
            break;
    }
    return to;
}

const AlsaInput& AlsaEvents() {
    static const AlsaInput sInput = [] {
        AlsaInput input;
        const std::vector<wl::W2Event>& source = wl::W2Events();
        size_t sysexBytes = 0;
        for (const wl::W2Event& event : source) sysexBytes += event.mKind == wl::W2Kind::kSysex ? event.mSysexLength + 2u : 0u;
        input.mSysexBytes.reserve(sysexBytes);  // never reallocated: the events point into it
        input.mEvents.reserve(source.size());
        for (const wl::W2Event& event : source) input.mEvents.push_back(AlsaEvent(event, input.mSysexBytes));
        return input;
    }();
    return sInput;
}

void W2_AlsaDecode(benchmark::State& ioState) {
    const AlsaInput& input = AlsaEvents();
    snd_midi_event_t* decoderP = nullptr;
    if (snd_midi_event_new(256, &decoderP) < 0) {
        ioState.SkipWithError("snd_midi_event_new failed");
        return;
    }
    snd_midi_event_no_status(decoderP, 1);  // every message carries its status, as ours do
    RunW2(ioState, wl::kW2PlainNoteOffHash, {}, [&](unsigned char* oOut) {
        unsigned char* outP = oOut;
        for (const snd_seq_event_t& event : input.mEvents) {
            const long length = snd_midi_event_decode(decoderP, outP, wl::kW2MaxBytesPerEvent, &event);
            if (length > 0) outP += length;
        }
        return static_cast<size_t>(outP - oOut);
    });
    snd_midi_event_free(decoderP);
}
BENCHMARK(W2_AlsaDecode)->Iterations(1)->Repetitions(5)->Unit(benchmark::kMillisecond)->UseRealTime();
#endif

}  // namespace
