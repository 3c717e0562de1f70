// Real-time MIDI output through a JACK server: a client with one MIDI output port whose
// process callback runs a Vela_BlockPlayer, one JACK period per block, writing each message at
// its frame offset. Transport commands come in through a lock-free single-producer queue
// (Send, from one control thread) and are applied at the start of the next callback, before
// that period's block is filled. Finish sends a stop, waits until the callback has played it
// (so every note is released and sustain and pitch bend are at rest) and only then
// deactivates. The callback allocates nothing and takes no lock; its time per period is
// recorded (Vela_CallbackTimer), as wall-clock time and as the thread's CPU time.
//
// Vela_JackCapture is the other end: a client with one MIDI input port that records what
// reaches it with the server's frame time, for checking an output from outside.
//
// Errors (no server, no such port, a full queue) throw std::runtime_error with a one-line
// message. Without JACK at build time (VELA_HAVE_JACK 0) constructing either throws.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Vela_CallbackTimer.h"
#include "Vela_MidiBlock.h"
#include "Vela_SpscQueue.h"

struct Vela_JackOptions {
    std::string mServer;          // empty: the default server
    std::string mClientName = "vela";
    size_t mMaxMessages = 8192;   // per period
    size_t mMaxBytes = 1 << 18;   // per period
    size_t mMaxTimings = 1 << 20; // callbacks kept for the timing percentiles
};

class Vela_JackOutput {
public:
    // A per-thread counter read at the start and end of every callback (the tests pass the
    // allocation counter); the differences are summed.
    using Probe = uint64_t (*)();

    Vela_JackOutput(Vela_BlockPlayer& iPlayer, const Vela_JackOptions& iOptions);
    ~Vela_JackOutput();
    Vela_JackOutput(const Vela_JackOutput&) = delete;
    Vela_JackOutput& operator=(const Vela_JackOutput&) = delete;

    void SetProbes(Probe iAllocations, Probe iLocks);
    void Activate();
    // Connects the output port to iPort ("client:port").
    void Connect(const std::string& iPort);
    // Control thread. Throws when the queue is full.
    void Send(const Vela_TransportCommand& iCommand);
    // Sends a stop, waits (at most iTimeoutSeconds) for the callback to play it, deactivates.
    void Finish(double iTimeoutSeconds = 5);

    std::string GetPortName() const;
    uint32_t GetSampleRate() const;
    uint32_t GetPeriod() const;
    // Output frames played so far (0 at the first callback after Activate).
    int64_t GetFrames() const { return mFrames.load(std::memory_order_acquire); }
    // The server's frame time at the start of each callback (read after Finish; the first
    // mMaxTimings callbacks). Output frames run on one period per callback; the server's clock
    // jumps where cycles were lost, so this is how server times map onto output frames.
    std::vector<uint32_t> GetCycleFrameTimes() const;
    // Commands in the order applied (read after Finish).
    std::vector<Vela_AppliedCommand> GetAppliedCommands() const;
    const Vela_CallbackTimer& GetTimer() const { return mTimer; }
    const Vela_CallbackTimer& GetCpuTimer() const { return mCpuTimer; }
    // Both timers' summaries, one line each.
    std::string DescribeTimes() const;
    uint64_t GetAllocations() const { return mAllocations.load(); }
    uint64_t GetLocks() const { return mLocks.load(); }
    // Messages the block or the port refused.
    uint64_t GetDropped() const { return mBlock.GetDropped() + mPortDropped.load(); }
    // Cycles the server reported as late to this client (what a late cycle carried may be lost).
    uint64_t GetXruns() const;

private:
    struct Client;
    static int Process(uint32_t iFrames, void* iSelfP);
    void RunPeriod(uint32_t iFrames);

    Vela_BlockPlayer& mPlayer;
    std::unique_ptr<Client> mClientP;
    Vela_SpscQueue<Vela_TransportCommand> mQueue{256};
    std::vector<Vela_AppliedCommand> mApplied;
    std::atomic<size_t> mAppliedCount{0};
    Vela_MidiBlock mBlock;
    Vela_CallbackTimer mTimer;
    Vela_CallbackTimer mCpuTimer;
    Probe mAllocProbe = nullptr;
    Probe mLockProbe = nullptr;
    std::atomic<uint64_t> mAllocations{0};
    std::atomic<uint64_t> mLocks{0};
    std::atomic<uint64_t> mPortDropped{0};
    std::atomic<int64_t> mFrames{0};
    std::atomic<uint64_t> mCycles{0};
    std::vector<uint32_t> mCycleFrameTimes;
};

class Vela_JackCapture {
public:
    Vela_JackCapture(const Vela_JackOptions& iOptions);
    ~Vela_JackCapture();
    Vela_JackCapture(const Vela_JackCapture&) = delete;
    Vela_JackCapture& operator=(const Vela_JackCapture&) = delete;

    void Activate();
    void Deactivate();
    std::string GetPortName() const;

    struct Message {
        uint32_t mFrameTime;  // the server's frame time
        std::vector<unsigned char> mBytes;
    };
    // What arrived (read after Deactivate).
    std::vector<Message> GetMessages() const;
    uint64_t GetDropped() const { return mStore.GetDropped(); }
    uint64_t GetXruns() const;  // as Vela_JackOutput::GetXruns

private:
    struct Client;
    static int Process(uint32_t iFrames, void* iSelfP);

    std::unique_ptr<Client> mClientP;
    Vela_MidiBlock mStore;  // frames are server frame times
};
