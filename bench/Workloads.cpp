#include "Workloads.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace wl {

void Require(bool iOk, const char* iWhat) {
    if (iOk) return;
    std::fprintf(stderr, "\n*** workload check failed: %s ***\n", iWhat);
    std::abort();
}

namespace {

// iData once iCheck has passed on it: what the cached accessors hold.
template <class T, class Check>
T Checked(T iData, Check&& iCheck, const char* iWhat) {
    Require(iCheck(iData), iWhat);
    return iData;
}

}  // namespace

uint64_t FnvBytes(const uint8_t* iBytes, size_t iLength, uint64_t iHash) {
    for (size_t i = 0; i < iLength; ++i) iHash = Fnv(iHash, iBytes[i]);
    return iHash;
}

// ---------------------------------------------------------------- W1

namespace {

// Channel message kinds by weight out of 100: note on 30, note off 20, controller 30,
// bend 12, program 4, channel pressure 4.
uint8_t DrawW1StatusKind(Random& ioRandom) {
    const uint64_t t = ioRandom.Below(100);
    return t < 30 ? 0x90 : t < 50 ? 0x80 : t < 80 ? 0xB0 : t < 92 ? 0xE0 : t < 96 ? 0xC0 : 0xD0;
}

class W1Writer {
public:
    explicit W1Writer(W1Data& ioData) : mData(ioData), mRandom(kSeedW1) {}

    // One byte; a clock comes first one time in a hundred.
    void Put(uint8_t iByte) {
        if (mRandom.Below(100) == 0) {
            mData.mBytes.push_back(0xF8);
            ++mData.mRealTime;
        }
        mData.mBytes.push_back(iByte);
    }
    uint8_t PutDrawn(uint64_t iBound) {
        const auto value = static_cast<uint8_t>(mRandom.Below(iBound));
        Put(value);
        return value;
    }
    void Sysex() {
        const uint64_t length = 4 + mRandom.Below(37);
        Put(0xF0);
        for (uint64_t i = 0; i < length; ++i) Put(static_cast<uint8_t>(mRandom.Next() & 0x7F));
        Put(0xF7);
        ++mData.mSysex;
        mRunning = 0;
    }
    void ChannelMessage() {
        const uint8_t status = mRunning != 0 && mRandom.Below(2) == 0
                                   ? mRunning
                                   : static_cast<uint8_t>(DrawW1StatusKind(mRandom) | mRandom.Below(16));
        if (status != mRunning) {
            Put(status);
            mRunning = status;
        } else {
            ++mData.mOmittedStatus;
        }
        ++mData.mChannelMessages;
        mData.mHash = Fnv(mData.mHash, Data(status & 0xF0, status & 0x0F));
    }
    Random& Draws() { return mRandom; }

private:
    uint32_t Data(uint32_t iKind, uint32_t iChannel) {
        switch (iKind) {
            case 0x90: {
                const uint8_t pitch = PutDrawn(128);
                return CanonNoteOn(iChannel, pitch, PutDrawn(128));
            }
            case 0x80: {
                const uint8_t pitch = PutDrawn(128);
                return CanonNoteOff(iChannel, pitch, PutDrawn(128));
            }
            case 0xB0: {
                const uint8_t number = PutDrawn(120);
                return CanonController(iChannel, number, PutDrawn(128));
            }
            case 0xE0: {
                const uint8_t lsb = PutDrawn(128);
                return CanonBend(iChannel, lsb | uint32_t{PutDrawn(128)} << 7);
            }
            case 0xC0: return CanonProgram(iChannel, PutDrawn(128));
            default: return CanonPressure(iChannel, PutDrawn(128));
        }
    }

    W1Data& mData;
    Random mRandom;
    uint8_t mRunning = 0;
};

}  // namespace

W1Data MakeW1() {
    W1Data data;
    data.mBytes.reserve(kW1Bytes);
    W1Writer writer(data);
    while (data.mBytes.size() < 67'108'864) {
        if (writer.Draws().Below(1000) < 5)
            writer.Sysex();
        else
            writer.ChannelMessage();
    }
    return data;
}

const W1Data& W1() {
    static const W1Data sData = Checked(
        MakeW1(),
        [](const W1Data& iData) {
            return iData.mBytes.size() == kW1Bytes && iData.mChannelMessages == kW1Events && iData.mSysex == kW1Sysex &&
                   iData.mRealTime == kW1RealTime && iData.mOmittedStatus == kW1OmittedStatus && iData.mHash == kW1Hash;
        },
        "W1 stream");
    return sData;
}

// ---------------------------------------------------------------- W2

std::vector<W2Event> MakeW2Events() {
    Random random(kSeedW2);
    std::vector<W2Event> events(kW2Events);
    auto draw = [&](uint64_t iBound) { return static_cast<uint8_t>(random.Below(iBound)); };
    for (W2Event& event : events) {
        event = W2Event{};
        const uint64_t k = random.Below(100);
        event.mChannel = draw(16);
        if (k < 25) {
            event.mKind = W2Kind::kNoteOn;
            event.mData1 = draw(128);
            event.mData2 = static_cast<uint8_t>(1 + draw(127));
        } else if (k < 45) {
            event.mKind = W2Kind::kNoteOff;
            event.mData1 = draw(128);
            event.mData2 = draw(128);
        } else if (k < 70) {
            event.mKind = W2Kind::kController;
            event.mData1 = draw(120);
            event.mData2 = draw(128);
        } else if (k < 82) {
            event.mKind = W2Kind::kPitchBend;
            event.mBend = static_cast<int16_t>(static_cast<int>(random.Below(16384)) - 8192);
        } else if (k < 87) {
            event.mKind = W2Kind::kProgram;
            event.mData1 = draw(128);
        } else if (k < 92) {
            event.mKind = W2Kind::kChannelPressure;
            event.mData1 = draw(128);
        } else if (k < 99) {
            event.mKind = W2Kind::kPolyPressure;
            event.mData1 = draw(128);
            event.mData2 = draw(128);
        } else {
            event.mKind = W2Kind::kSysex;
            event.mSysexLength = static_cast<uint8_t>(4 + draw(11));
            for (uint8_t i = 0; i < event.mSysexLength; ++i) event.mSysex[i] = static_cast<uint8_t>(random.Next() & 0x7F);
        }
    }
    return events;
}

size_t EncodeW2Reference(const W2Event& iEvent, uint8_t* oOut, bool iNoteOffRule) {
    const uint8_t channel = iEvent.mChannel;
    auto three = [&](uint8_t iStatus, uint8_t iData1, uint8_t iData2) {
        oOut[0] = static_cast<uint8_t>(iStatus | channel);
        oOut[1] = iData1;
        oOut[2] = iData2;
        return size_t{3};
    };
    auto two = [&](uint8_t iStatus) {
        oOut[0] = static_cast<uint8_t>(iStatus | channel);
        oOut[1] = iEvent.mData1;
        return size_t{2};
    };
    switch (iEvent.mKind) {
        case W2Kind::kNoteOn: return three(0x90, iEvent.mData1, iEvent.mData2);
        case W2Kind::kNoteOff:
            if (iNoteOffRule && iEvent.mData2 == kReleaseVelocity) return three(0x90, iEvent.mData1, 0);
            return three(0x80, iEvent.mData1, iEvent.mData2);
        case W2Kind::kController: return three(0xB0, iEvent.mData1, iEvent.mData2);
        case W2Kind::kPolyPressure: return three(0xA0, iEvent.mData1, iEvent.mData2);
        case W2Kind::kPitchBend: {
            const auto wire = static_cast<unsigned>(iEvent.mBend + 8192);
            return three(0xE0, wire & 0x7F, static_cast<uint8_t>(wire >> 7));
        }
        case W2Kind::kProgram: return two(0xC0);
        case W2Kind::kChannelPressure: return two(0xD0);
        case W2Kind::kSysex: break;
    }
    oOut[0] = 0xF0;
    std::copy(iEvent.mSysex, iEvent.mSysex + iEvent.mSysexLength, oOut + 1);
    oOut[iEvent.mSysexLength + 1] = 0xF7;
    return size_t{iEvent.mSysexLength} + 2;
}

const std::vector<W2Event>& W2Events() {
    static const std::vector<W2Event> sEvents = Checked(
        MakeW2Events(),
        [](const std::vector<W2Event>& iEvents) {
            uint64_t bytes = 0, hash = kFnvBasis, plainHash = kFnvBasis;
            uint8_t out[kW2MaxBytesPerEvent];
            for (const W2Event& event : iEvents) {
                const size_t length = EncodeW2Reference(event, out);
                bytes += length;
                hash = FnvBytes(out, length, hash);
                plainHash = FnvBytes(out, EncodeW2Reference(event, out, false), plainHash);
            }
            return bytes == kW2Bytes && hash == kW2Hash && plainHash == kW2PlainNoteOffHash;
        },
        "W2 events");
    return sEvents;
}

// ---------------------------------------------------------------- W3

Note DrawNote(Random& ioRandom) {
    Note note{};
    note.mStart = static_cast<int64_t>(ioRandom.Below(1'000'000'000));
    note.mPitch = static_cast<uint8_t>(ioRandom.Below(128));
    note.mVelocity = static_cast<uint8_t>(1 + ioRandom.Below(127));
    note.mDuration = static_cast<int64_t>(1 + ioRandom.Below(200'000));
    return note;
}

std::vector<Note> MakeW3Notes() {
    Random random(kSeedW3);
    std::vector<Note> notes(kW3Notes);
    for (Note& note : notes) note = DrawNote(random);
    return notes;
}

std::vector<Note> SortedByStart(std::vector<Note> iNotes) {
    std::stable_sort(iNotes.begin(), iNotes.end(), [](const Note& iA, const Note& iB) { return iA.mStart < iB.mStart; });
    return iNotes;
}

uint64_t W3Reference(const std::vector<Note>& iNotes) {
    uint64_t hash = kFnvBasis;
    for (const Note& note : SortedByStart(iNotes)) hash = FoldW3(hash, note);
    return hash;
}

const std::vector<Note>& W3Notes() {
    static const std::vector<Note> sNotes =
        Checked(MakeW3Notes(), [](const std::vector<Note>& iNotes) { return W3Reference(iNotes) == kW3Hash; }, "W3 notes");
    return sNotes;
}

const std::vector<Note>& W3AscendingNotes() {
    static const std::vector<Note> sNotes = SortedByStart(W3Notes());
    return sNotes;
}

// ---------------------------------------------------------------- sequence data

SequenceData MakeSequenceData() {
    Random random(kSeedSequence);
    SequenceData data;
    data.mShortNotes.resize(200'000);
    for (Note& note : data.mShortNotes) note = DrawNote(random);
    for (size_t lane = 0; lane < kLanes; ++lane) {
        data.mLanes[lane].mController = kLaneControllers[lane];
        std::vector<ControllerValue>& values = data.mLanes[lane].mValues;
        values.resize(50'000);
        for (size_t j = 0; j < values.size(); ++j) {
            values[j].mTime = static_cast<int64_t>(j * 20'000 + random.Below(20'000));
            values[j].mValue = static_cast<uint8_t>(random.Below(128));
        }
    }
    data.mLongNotes.resize(1'000);
    for (Note& note : data.mLongNotes) {
        note.mStart = static_cast<int64_t>(random.Below(1'000'000'000));
        note.mPitch = static_cast<uint8_t>(random.Below(128));
        note.mVelocity = static_cast<uint8_t>(1 + random.Below(127));
        note.mDuration = kLongDuration;
    }
    return data;
}

const SequenceData& Sequence() {
    static const SequenceData sData = MakeSequenceData();
    return sData;
}

namespace {

std::vector<int64_t> DrawTimes(uint64_t iSeed, size_t iCount, uint64_t iBound) {
    Random random(iSeed);
    std::vector<int64_t> times(iCount);
    for (int64_t& time : times) time = static_cast<int64_t>(random.Below(iBound));
    return times;
}

// Query times (or window starts) once the reference over the sequence data gives iExpected.
template <class Reference, class Answer>
std::vector<int64_t> CheckedQueries(std::vector<int64_t> iTimes, Reference&& iReference, const Answer& iExpected,
                                    const char* iWhat) {
    auto matches = [&](const std::vector<int64_t>& iAll) { return iReference(Sequence(), iAll, iAll.size()) == iExpected; };
    return Checked(std::move(iTimes), matches, iWhat);
}

}  // namespace

// ---------------------------------------------------------------- W4

std::vector<int64_t> MakeW4Windows() { return DrawTimes(kSeedW4, kW4Windows, 999'000'000); }

// Every event of the content by time, with running sums of its fold: a window's count and sum
// are the differences at its two ends (the fold is a sum, so the order within a window does
// not change it).
Tally W4Reference(const SequenceData& iData, const std::vector<int64_t>& iWindows, size_t iFirst) {
    std::vector<std::pair<int64_t, uint64_t>> events;  // time, its fold from 0
    for (const Note& note : iData.mShortNotes)
        events.emplace_back(note.mStart, FoldW4Note(0, note.mStart, note.mPitch, note.mVelocity));
    for (const ControllerLane& lane : iData.mLanes)
        for (const ControllerValue& value : lane.mValues)
            events.emplace_back(value.mTime, FoldW4Controller(0, value.mTime, lane.mController, value.mValue));
    std::sort(events.begin(), events.end());
    std::vector<int64_t> times(events.size());
    std::vector<uint64_t> sums(events.size() + 1, 0);
    for (size_t i = 0; i < events.size(); ++i) {
        times[i] = events[i].first;
        sums[i + 1] = sums[i] + events[i].second;
    }
    Tally tally;
    for (size_t w = 0; w < std::min(iFirst, iWindows.size()); ++w) {
        const auto from = static_cast<size_t>(std::lower_bound(times.begin(), times.end(), iWindows[w]) - times.begin());
        const auto to = static_cast<size_t>(
            std::lower_bound(times.begin(), times.end(), iWindows[w] + kW4WindowLength) - times.begin());
        tally.mCount += to - from;
        tally.mSum += sums[to] - sums[from];
    }
    return tally;
}

const std::vector<int64_t>& W4Windows() {
    static const std::vector<int64_t> sTimes = CheckedQueries(MakeW4Windows(), W4Reference, Tally{kW4Events, kW4Sum}, "W4 windows");
    return sTimes;
}

// ---------------------------------------------------------------- W5

std::vector<int64_t> MakeW5Times() { return DrawTimes(kSeedW5, kW5Times, 1'000'000'000); }

namespace {

// Notes sustaining at each time, from notes sorted by start: only those that start less than
// the longest duration before the time can reach past it.
void AddSustaining(Tally& ioTally, const std::vector<Note>& iNotes, const std::vector<int64_t>& iTimes, size_t iFirst) {
    const std::vector<Note> notes = SortedByStart(iNotes);
    int64_t longest = 0;
    for (const Note& note : notes) longest = std::max(longest, note.mDuration);
    for (size_t q = 0; q < std::min(iFirst, iTimes.size()); ++q) {
        const int64_t time = iTimes[q];
        auto it = std::lower_bound(notes.begin(), notes.end(), time - longest,
                                   [](const Note& iNote, int64_t iTime) { return iNote.mStart < iTime; });
        for (; it != notes.end() && it->mStart < time; ++it) {
            if (it->mStart + it->mDuration <= time) continue;
            ++ioTally.mCount;
            ioTally.mSum = FoldW5(ioTally.mSum, *it);
        }
    }
}

}  // namespace

Tally W5Reference(const SequenceData& iData, const std::vector<int64_t>& iTimes, size_t iFirst) {
    Tally tally;
    AddSustaining(tally, iData.mShortNotes, iTimes, iFirst);
    AddSustaining(tally, iData.mLongNotes, iTimes, iFirst);
    return tally;
}

const std::vector<int64_t>& W5Times() {
    static const std::vector<int64_t> sTimes = CheckedQueries(MakeW5Times(), W5Reference, Tally{kW5Results, kW5Sum}, "W5 times");
    return sTimes;
}

// ---------------------------------------------------------------- W6

std::vector<int64_t> MakeW6Times() { return DrawTimes(kSeedW6, kW6Times, 1'000'000'000); }

uint64_t W6Reference(const SequenceData& iData, const std::vector<int64_t>& iTimes, size_t iFirst) {
    uint64_t hash = kFnvBasis;
    for (size_t q = 0; q < std::min(iFirst, iTimes.size()); ++q) {
        for (const ControllerLane& lane : iData.mLanes) {
            const auto after = std::upper_bound(lane.mValues.begin(), lane.mValues.end(), iTimes[q],
                                                [](int64_t iTime, const ControllerValue& iValue) { return iTime < iValue.mTime; });
            hash = FoldW6(hash, after == lane.mValues.begin() ? -1 : std::prev(after)->mValue);
        }
    }
    return hash;
}

const std::vector<int64_t>& W6Times() {
    static const std::vector<int64_t> sTimes = CheckedQueries(MakeW6Times(), W6Reference, kW6Hash, "W6 times");
    return sTimes;
}

}  // namespace wl
