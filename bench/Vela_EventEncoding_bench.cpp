// W2: 10^7 generated events, built beforehand as Vela_Event values, encoded to wire bytes in
// one preallocated buffer the way an output port does it: the message count, then each
// message's length and bytes, with the channel ORed into the status of channel messages.
#include <benchmark/benchmark.h>

#include <vector>

#include "Vela_Event.h"
#include "Workloads.h"

namespace {

struct W2Input {
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

const W2Input& Input() {
    static const W2Input sInput = [] {
        const std::vector<wl::W2Event>& source = wl::W2Events();
        W2Input input;
        input.mEvents.reserve(source.size());
        input.mChannels.reserve(source.size());
        for (const wl::W2Event& event : source) {
            input.mEvents.push_back(MakeEvent(event));
            input.mChannels.push_back(event.mChannel);
        }
        return input;
    }();
    return sInput;
}

size_t EncodeAll(const W2Input& iInput, signed char* oOut) {
    signed char* outP = oOut;
    const size_t count = iInput.mEvents.size();
    for (size_t e = 0; e < count; ++e) {
        const Vela_Event& event = iInput.mEvents[e];
        const int messages = event.GetNumMessages();
        for (int m = 0; m < messages; ++m) {
            const int length = event.GetMessageLength(m);
            event.GetMessageData(outP, m);
            const auto status = static_cast<uint8_t>(outP[0]);
            if (status < 0xF0) outP[0] = static_cast<signed char>(status | iInput.mChannels[e]);
            outP += length;
        }
    }
    return static_cast<size_t>(outP - oOut);
}

void BM_W2_Encode(benchmark::State& ioState) {
    const W2Input& input = Input();
    std::vector<signed char> out(input.mEvents.size() * wl::kW2MaxBytesPerEvent);
    size_t written = 0;
    for (auto _ : ioState) {
        written = EncodeAll(input, out.data());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    const uint64_t hash = wl::FnvBytes(reinterpret_cast<const uint8_t*>(out.data()), written);
    if (written != wl::kW2Bytes || hash != wl::kW2Hash) {
        ioState.SkipWithError("W2 output differs from the expected bytes");
        return;
    }
    const double iterations = static_cast<double>(ioState.iterations());
    ioState.counters["events/s"] =
        benchmark::Counter(static_cast<double>(input.mEvents.size()) * iterations, benchmark::Counter::kIsRate);
    ioState.counters["MB/s"] = benchmark::Counter(static_cast<double>(written) * iterations / 1e6, benchmark::Counter::kIsRate);
}

}  // namespace

BENCHMARK(BM_W2_Encode)->Name("W2/encode/vela")->Iterations(1)->Repetitions(5)->Unit(benchmark::kMillisecond)->UseRealTime();
