// Soak phases over events: parsing, long-sysex sharing, timed-list persistence.
#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "Mdi_Parse.h"
#include "Mdie_TimedEvent.h"
#include "Mem2_MasterAllocator.h"
#include "Soak.h"
#include "Sys_TypedStream.h"
#include "Vela_Event.h"

namespace {

// Data bytes for sysex payloads (all below 0x80, as on the wire).
const std::array<unsigned char, 1024>& PayloadBytes() {
    static const std::array<unsigned char, 1024> bytes = [] {
        std::array<unsigned char, 1024> filled{};
        for (size_t i = 0; i < filled.size(); ++i) filled[i] = static_cast<unsigned char>((i * 37 + 11) & 0x7F);
        return filled;
    }();
    return bytes;
}

int Uniform(std::mt19937& ioRandom, int iLow, int iHigh) {
    return std::uniform_int_distribution<int>(iLow, iHigh)(ioRandom);
}

// ---------------------------------------------------------------- parse

// What a host's recorder does with input: channel events as they come, each sysex first as
// the input thread's packet (real-time pool), then as a heap event for storage.
class Recorder : public Mdi_ParseToEventReceiver, public Mdie_EventReceiver {
public:
    explicit Recorder(Mem2_MasterAllocator& iAllocator) : mAllocator(iAllocator) { SetEventReceiver(this); }

    void ReceiveEvent(const Vela_Event& iEvent) override { Record(iEvent); }

    Mdie_TimedEventList mRecorded;
    int mSysexCount = 0;
    int64_t mSysexBytes = 0;

protected:
    bool ParseSysEx(const unsigned char* iMessage, short iLength) override {
        const Vela_SysexPacketEvent packet(iLength, iMessage, &mAllocator);
        if (!packet.IsComplete()) return true;  // the pool refused: dropped, as on the input thread
        ++mSysexCount;
        mSysexBytes += packet.GetLength();
        Record(Vela_SysexEvent(iLength - 2, iMessage + 1));
        return true;
    }

private:
    void Record(const Vela_Event& iEvent) {
        mRecorded.PushBack(Mdie_TimedEvent(Time_Typed(int64_t(mRecorded.GetSize()) * 10, kTime_Samples), iEvent));
    }

    Mem2_MasterAllocator& mAllocator;
};

class ParsePhase : public Soak_Phase {
public:
    ParsePhase() : mAllocator(1 << 20) {
        std::mt19937 random(17);
        unsigned char runningStatus = 0;
        while (mStream.size() < 16 * 1024) AppendMessage(random, runningStatus);
    }

    bool RunRound(std::mt19937& ioRandom) override {
        Recorder recorder(mAllocator);
        for (size_t at = 0; at < mStream.size();) {
            const size_t slice = std::min<size_t>(size_t(Uniform(ioRandom, 1, 512)), mStream.size() - at);
            recorder.MidiStream(mStream.data() + at, static_cast<short>(slice));
            at += slice;
        }
        return recorder.mSysexCount == mSysexCount && recorder.mSysexBytes == mSysexBytes &&
               int(recorder.mRecorded.GetSize()) == mChannelCount + mSysexCount;
    }

private:
    void AppendMessage(std::mt19937& ioRandom, unsigned char& ioRunningStatus) {
        const int kind = Uniform(ioRandom, 0, 9);
        if (kind >= 8) {
            // Short or long sysex; it ends the running status.
            const int payload = kind == 8 ? Uniform(ioRandom, 0, 14) : Uniform(ioRandom, 15, Mdi_Parse::kMaxSysexBeforeEnd - 1);
            mStream.push_back(0xF0);
            mStream.insert(mStream.end(), PayloadBytes().begin(), PayloadBytes().begin() + payload);
            mStream.push_back(0xF7);
            ++mSysexCount;
            mSysexBytes += payload + 2;
            ioRunningStatus = 0;
            return;
        }
        static constexpr unsigned char kStatusKinds[] = {0x90, 0x80, 0xB0, 0xE0};
        const auto status = static_cast<unsigned char>(kStatusKinds[kind % 4] | Uniform(ioRandom, 0, 15));
        if (status != ioRunningStatus || Uniform(ioRandom, 0, 3) == 0) mStream.push_back(status);
        ioRunningStatus = status;
        mStream.push_back(static_cast<unsigned char>(Uniform(ioRandom, 0, 119)));  // below channel-mode numbers
        if (Uniform(ioRandom, 0, 7) == 0) mStream.push_back(0xF8);                 // a clock between data bytes
        mStream.push_back(static_cast<unsigned char>(Uniform(ioRandom, 1, 127)));
        ++mChannelCount;
    }

    Mem2_MasterAllocator mAllocator;
    std::vector<unsigned char> mStream;
    int mChannelCount = 0;
    int mSysexCount = 0;
    int64_t mSysexBytes = 0;
};

// ---------------------------------------------------------------- sysex copies

class SysexCopyPhase : public Soak_Phase {
public:
    bool RunRound(std::mt19937& ioRandom) override {
        struct Held {
            int mLength;
            Vela_Event mEvent;
        };
        std::vector<Held> held;
        for (int i = 0; i < 64; ++i) {
            const int length = Uniform(ioRandom, 0, 7) == 0 ? Uniform(ioRandom, 0, 14) : Uniform(ioRandom, 15, 1000);
            const Vela_SysexEvent original(length, PayloadBytes().data());
            for (int copies = Uniform(ioRandom, 1, 4); copies > 0; --copies) held.push_back({length, original});
        }
        std::shuffle(held.begin(), held.end(), ioRandom);
        // Assigning over a held copy releases its data and shares another's.
        for (size_t i = 0; i + 1 < held.size(); i += 5) held[i] = held[i + 1];
        const bool lengthsHold = std::all_of(held.begin(), held.end(),
                                             [](const Held& iHeld) { return iHeld.mEvent.AsSysex().GetLength() == iHeld.mLength; });
        held.clear();
        return lengthsHold;
    }
};

// ---------------------------------------------------------------- timed lists

class TimedListPhase : public Soak_Phase {
public:
    bool RunRound(std::mt19937& ioRandom) override {
        Mdie_TimedEventList saved;
        int64_t time = 0;
        for (int i = 0; i < 100; ++i) {
            time += Uniform(ioRandom, 0, 960);
            const int length = Uniform(ioRandom, 0, 600);
            saved.PushBack(Mdie_TimedEvent(Time_Typed(time, i % 2 ? kTime_Ticks : kTime_Samples),
                                           Vela_SysexEvent(length, PayloadBytes().data())));
        }
        Sys_MemoryOutStream out;
        saved.StreamOut(out);
        Sys_MemoryInStream in(out.GetBytes().data(), out.GetBytes().size());
        Mdie_TimedEventList loaded;
        loaded.StreamIn(in);
        return loaded.GetSize() == saved.GetSize() && std::equal(saved.begin(), saved.end(), loaded.begin(), SameBytes);
    }

private:
    // Event equality of long sysex is identity; a loaded copy is a new object with the same bytes.
    static bool SameBytes(const Mdie_TimedEvent& iA, const Mdie_TimedEvent& iB) {
        const Vela_SysexEvent& a = iA.GetEvent().AsSysex();
        const Vela_SysexEvent& b = iB.GetEvent().AsSysex();
        const unsigned char* aP = a.GetInternalDataPtr();
        const unsigned char* bP = b.GetInternalDataPtr();
        return iA.GetTime() == iB.GetTime() && a.GetType() == b.GetType() &&
               std::equal(aP, aP + a.GetLength(), bP, bP + b.GetLength());
    }
};

// ---------------------------------------------------------------- sysex churn

class SysexChurnPhase : public Soak_Phase {
public:
    bool RunRound(std::mt19937&) override {
        int64_t total = 0;
        for (int i = 0; i < 4096; ++i) total += Vela_SysexEvent(300, PayloadBytes().data()).GetLength();
        return total == 4096 * 300;
    }
};

}  // namespace

std::unique_ptr<Soak_Phase> Soak_MakeParsePhase() { return std::make_unique<ParsePhase>(); }
std::unique_ptr<Soak_Phase> Soak_MakeSysexCopyPhase() { return std::make_unique<SysexCopyPhase>(); }
std::unique_ptr<Soak_Phase> Soak_MakeTimedListPhase() { return std::make_unique<TimedListPhase>(); }
std::unique_ptr<Soak_Phase> Soak_MakeSysexChurnPhase() { return std::make_unique<SysexChurnPhase>(); }
