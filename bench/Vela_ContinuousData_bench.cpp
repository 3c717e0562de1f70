// Controller lanes of the W4..W6 sequence data (16 lanes of 50,000 values):
// - W6 per lane: the value in force of every lane at 100,000 times, with GetValueAtTime, folded
//   as W6 (-1 before a lane's first value); beside it the same lookups in one std::map per lane.
// - Lane range output: every lane's values in each W4 window through
//   Vela_ContinuousDataStream::GetMidiEventsInRange into a reused timed list, folded as W4's
//   controllers and checked against the plain records over the same windows (the first
//   kRangeWindows).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <map>
#include <memory>
#include <vector>

#include "Figure.h"
#include "Vela_ContinuousDataStream.h"
#include "Workloads.h"

namespace {

constexpr size_t kRangeWindows = 10'000;  // a prefix of the W4 windows (the workloads allow it)

Time_Typed Tick(int64_t iCount) { return Time_Typed(iCount, kTime_Ticks); }

// One stream per lane, built untimed.
std::vector<std::unique_ptr<Vela_ContinuousDataStream>> MakeStreams() {
    std::vector<std::unique_ptr<Vela_ContinuousDataStream>> streams;
    for (const wl::ControllerLane& lane : wl::Sequence().mLanes) {
        auto stream = std::make_unique<Vela_ContinuousDataStream>(Mdie_SubStream::Controller(static_cast<int8_t>(lane.mController)),
                                                                  Ndo_Object::kNotUndoable, false);
        for (const wl::ControllerValue& value : lane.mValues)
            stream->AddEvent(Mdie_TimedEvent(Tick(value.mTime), Vela_ControllerEvent(static_cast<int8_t>(lane.mController),
                                                                                     static_cast<int8_t>(value.mValue))));
        streams.push_back(std::move(stream));
    }
    return streams;
}

template <class ValueAt>
void RunW6(benchmark::State& ioState, const figure::Goal& iGoal, ValueAt&& iValueAt) {
    const std::vector<int64_t>& times = wl::W6Times();
    uint64_t hash = 0;
    for (auto _ : ioState) {
        hash = wl::kFnvBasis;
        for (const int64_t time : times)
            for (size_t lane = 0; lane < wl::kLanes; ++lane) hash = wl::FoldW6(hash, iValueAt(lane, time));
        benchmark::DoNotOptimize(hash);
    }
    if (hash != wl::kW6Hash) {
        ioState.SkipWithError("W6 hash differs");
        return;
    }
    figure::Report(ioState, "ns/lane", static_cast<double>(times.size() * wl::kLanes), iGoal);
}

void W6_VelaGetValueAtTime(benchmark::State& ioState) {
    const auto streams = MakeStreams();
    std::vector<const Vela_ContinuousData*> lanes;
    std::vector<Time_Typed> firstTimes;
    for (const auto& stream : streams) {
        lanes.push_back(stream->GetData());
        firstTimes.push_back(stream->GetData()->GetSegments()[0].mTime);
    }
    RunW6(ioState, {63, "W6_StdMapPerLane", 1.0}, [&](size_t iLane, int64_t iTime) {
        const Time_Typed time = Tick(iTime);
        return time < firstTimes[iLane] ? -1 : lanes[iLane]->GetValueAtTime(time);
    });
}
BENCHMARK(W6_VelaGetValueAtTime)->Iterations(1)->Repetitions(5)->Unit(benchmark::kMillisecond)->UseRealTime();

void W6_StdMapPerLane(benchmark::State& ioState) {
    std::vector<std::map<int64_t, int>> lanes(wl::kLanes);
    for (size_t lane = 0; lane < wl::kLanes; ++lane)
        for (const wl::ControllerValue& value : wl::Sequence().mLanes[lane].mValues) lanes[lane][value.mTime] = value.mValue;
    RunW6(ioState, {}, [&](size_t iLane, int64_t iTime) {
        const auto after = lanes[iLane].upper_bound(iTime);
        return after == lanes[iLane].begin() ? -1 : std::prev(after)->second;
    });
}
BENCHMARK(W6_StdMapPerLane)->Iterations(1)->Repetitions(5)->Unit(benchmark::kMillisecond)->UseRealTime();

// The W4 fold of every lane's values in the first kRangeWindows windows, from the plain records.
wl::Tally RangeReference() {
    wl::Tally tally;
    const std::vector<int64_t>& windows = wl::W4Windows();
    for (size_t w = 0; w < kRangeWindows; ++w) {
        for (const wl::ControllerLane& lane : wl::Sequence().mLanes) {
            auto value = std::partition_point(lane.mValues.begin(), lane.mValues.end(),
                                              [&](const wl::ControllerValue& iValue) { return iValue.mTime < windows[w]; });
            for (; value != lane.mValues.end() && value->mTime < windows[w] + wl::kW4WindowLength; ++value)
                ++tally.mCount, tally.mSum = wl::FoldW4Controller(tally.mSum, value->mTime, lane.mController, value->mValue);
        }
    }
    return tally;
}

void W4_VelaLaneRangeOutput(benchmark::State& ioState) {
    const auto streams = MakeStreams();
    const std::vector<int64_t>& windows = wl::W4Windows();
    Mdie_TimedEventList list;
    list.Reserve(256);
    Vela_EventListWrapper out(list);
    wl::Tally tally;
    for (auto _ : ioState) {
        tally = {};
        for (size_t w = 0; w < kRangeWindows; ++w) {
            for (const auto& stream : streams) {
                list.Init();
                stream->GetMidiEventsInRange(out, Tick(windows[w]), Tick(windows[w] + wl::kW4WindowLength),
                                             Time_TypedLength(0, kTime_Ticks), kTime_Ticks, nullptr, nullptr, nullptr,
                                             false, 0);
                for (const Mdie_TimedEvent& event : list) {
                    const Vela_ControllerEvent& controller = event.GetEvent().AsController();
                    tally.mSum = wl::FoldW4Controller(tally.mSum, event.GetTime().AsInt64(),
                                                      static_cast<uint8_t>(controller.GetControllerNumber()),
                                                      static_cast<uint8_t>(controller.GetValue()));
                }
                tally.mCount += list.GetSize();
            }
        }
        benchmark::DoNotOptimize(tally);
    }
    if (!(tally == RangeReference())) {
        ioState.SkipWithError("lane range output differs from the plain records");
        return;
    }
    figure::Report(ioState, "events/s", static_cast<double>(tally.mCount));
}
BENCHMARK(W4_VelaLaneRangeOutput)->Iterations(1)->Repetitions(5)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
