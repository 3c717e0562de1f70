#include "Vela_JackOutput.h"

#include <chrono>
#include <stdexcept>
#include <thread>

#if VELA_HAVE_JACK
#include <jack/jack.h>
#include <jack/midiport.h>
#endif

namespace {
[[noreturn]] void Fail(const std::string& iMessage) { throw std::runtime_error(iMessage); }
}  // namespace

#if VELA_HAVE_JACK

namespace {
// The library prints its own complaints to stderr; ours is the one line the user sees.
void Quiet(const char*) {}

jack_client_t* OpenClient(const Vela_JackOptions& iOptions) {
    jack_set_error_function(Quiet);
    jack_set_info_function(Quiet);
    jack_status_t status{};
    const int options = JackNoStartServer | (iOptions.mServer.empty() ? 0 : JackServerName);
    jack_client_t* client = jack_client_open(iOptions.mClientName.c_str(), static_cast<jack_options_t>(options), &status,
                                             iOptions.mServer.c_str());
    if (!client) {
        const std::string server = iOptions.mServer.empty() ? "default" : iOptions.mServer;
        Fail("cannot reach the JACK server '" + server + "' (is jackd running?)");
    }
    return client;
}

// A client with one MIDI port and a process callback: opened whole or not at all, closed
// (deactivated first when active) with its owner.
struct JackClient {
    JackClient(const Vela_JackOptions& iOptions, const char* iPortName, unsigned long iFlags, JackProcessCallback iProcess,
               void* iArgP)
        : mClientP(OpenClient(iOptions)) {
        mPortP = jack_port_register(mClientP, iPortName, JACK_DEFAULT_MIDI_TYPE, iFlags, 0);
        if (!mPortP) {
            jack_client_close(mClientP);
            Fail(std::string("cannot register the JACK MIDI port '") + iPortName + "'");
        }
        jack_set_process_callback(mClientP, iProcess, iArgP);
        jack_set_xrun_callback(mClientP, &JackClient::CountXrun, this);
    }
    ~JackClient() {
        Deactivate();
        jack_client_close(mClientP);
    }
    void Activate() {
        if (jack_activate(mClientP) != 0) Fail("cannot activate the JACK client");
        mActive = true;
    }
    void Deactivate() {
        if (mActive) jack_deactivate(mClientP);
        mActive = false;
    }
    static int CountXrun(void* iSelfP) {
        static_cast<JackClient*>(iSelfP)->mXruns.fetch_add(1, std::memory_order_relaxed);
        return 0;
    }
    jack_client_t* const mClientP;
    jack_port_t* mPortP = nullptr;
    bool mActive = false;
    std::atomic<uint64_t> mXruns{0};  // cycles the server reported late (data of a cycle may be lost)
};
}  // namespace

struct Vela_JackOutput::Client : JackClient {
    using JackClient::JackClient;
};

Vela_JackOutput::Vela_JackOutput(Vela_BlockPlayer& iPlayer, const Vela_JackOptions& iOptions)
    : mPlayer(iPlayer),
      mApplied(1024),
      mBlock(iOptions.mMaxMessages, iOptions.mMaxBytes),
      mTimer(iOptions.mMaxTimings),
      mCpuTimer(iOptions.mMaxTimings),
      mCycleFrameTimes(iOptions.mMaxTimings) {
    mClientP = std::make_unique<Client>(iOptions, "out", JackPortIsOutput, &Vela_JackOutput::Process, this);
}

// The client goes first: its callback reads the members destroyed after it.
Vela_JackOutput::~Vela_JackOutput() { mClientP.reset(); }

void Vela_JackOutput::Activate() { mClientP->Activate(); }

void Vela_JackOutput::Connect(const std::string& iPort) {
    jack_port_t* target = jack_port_by_name(mClientP->mClientP, iPort.c_str());
    if (!target) Fail("no JACK port named '" + iPort + "'");
    if (!(jack_port_flags(target) & JackPortIsInput)) Fail("JACK port '" + iPort + "' is not an input");
    if (jack_connect(mClientP->mClientP, jack_port_name(mClientP->mPortP), iPort.c_str()) != 0)
        Fail("cannot connect to JACK port '" + iPort + "'");
}

std::string Vela_JackOutput::GetPortName() const { return jack_port_name(mClientP->mPortP); }
uint32_t Vela_JackOutput::GetSampleRate() const { return jack_get_sample_rate(mClientP->mClientP); }
uint32_t Vela_JackOutput::GetPeriod() const { return jack_get_buffer_size(mClientP->mClientP); }

int Vela_JackOutput::Process(uint32_t iFrames, void* iSelfP) {
    static_cast<Vela_JackOutput*>(iSelfP)->RunPeriod(iFrames);
    return 0;
}

void Vela_JackOutput::RunPeriod(uint32_t iFrames) {
    const uint64_t allocsBefore = mAllocProbe ? mAllocProbe() : 0;
    const uint64_t locksBefore = mLockProbe ? mLockProbe() : 0;
    const uint64_t start = Vela_CallbackTimer::Now();
    const uint64_t cpuStart = Vela_CallbackTimer::ThreadNow();
    const int64_t frame = mFrames.load(std::memory_order_relaxed);
    const auto cycle = static_cast<size_t>(mCycles.load(std::memory_order_relaxed));
    if (cycle < mCycleFrameTimes.size()) mCycleFrameTimes[cycle] = jack_last_frame_time(mClientP->mClientP);

    mBlock.Clear();
    Vela_TransportCommand command;
    while (mQueue.Pop(command)) {
        mPlayer.Apply(command, mBlock);
        const size_t count = mAppliedCount.load(std::memory_order_relaxed);
        if (count < mApplied.size()) mApplied[count] = {frame, command};
        mAppliedCount.store(count + 1, std::memory_order_release);
    }
    mPlayer.FillBlock(frame, iFrames, mBlock);

    void* buffer = jack_port_get_buffer(mClientP->mPortP, iFrames);
    jack_midi_clear_buffer(buffer);
    for (size_t i = 0; i < mBlock.GetSize(); ++i) {
        const uint32_t offset = std::min(mBlock.GetFrame(i), iFrames - 1);
        if (jack_midi_event_write(buffer, offset, mBlock.GetBytes(i), mBlock.GetLength(i)) != 0)
            mPortDropped.fetch_add(1, std::memory_order_relaxed);
    }
    mFrames.store(frame + iFrames, std::memory_order_release);
    mCycles.store(cycle + 1, std::memory_order_release);

    mTimer.Record(Vela_CallbackTimer::Now() - start);
    mCpuTimer.Record(Vela_CallbackTimer::ThreadNow() - cpuStart);
    if (mAllocProbe) mAllocations.fetch_add(mAllocProbe() - allocsBefore, std::memory_order_relaxed);
    if (mLockProbe) mLocks.fetch_add(mLockProbe() - locksBefore, std::memory_order_relaxed);
}

void Vela_JackOutput::Finish(double iTimeoutSeconds) {
    if (!mClientP->mActive) return;
    Send({Vela_TransportCommand::eStop});
    // The stop is played once the callback has taken it and filled a block after it; two more
    // periods let a client downstream read that block in its own cycle.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(iTimeoutSeconds);
    const int64_t target = GetFrames() + 3 * static_cast<int64_t>(GetPeriod());
    while (GetFrames() < target && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    mClientP->Deactivate();
    if (GetFrames() < target) Fail("the JACK server stopped calling the client before the stop was played");
}

struct Vela_JackCapture::Client : JackClient {
    using JackClient::JackClient;
};

Vela_JackCapture::Vela_JackCapture(const Vela_JackOptions& iOptions) : mStore(iOptions.mMaxMessages, iOptions.mMaxBytes) {
    mClientP = std::make_unique<Client>(iOptions, "in", JackPortIsInput, &Vela_JackCapture::Process, this);
}

// The client goes first: its callback reads the members destroyed after it.
Vela_JackCapture::~Vela_JackCapture() { mClientP.reset(); }

void Vela_JackCapture::Activate() { mClientP->Activate(); }

void Vela_JackCapture::Deactivate() { mClientP->Deactivate(); }

std::string Vela_JackCapture::GetPortName() const { return jack_port_name(mClientP->mPortP); }

uint64_t Vela_JackCapture::GetXruns() const { return mClientP->mXruns.load(); }
uint64_t Vela_JackOutput::GetXruns() const { return mClientP->mXruns.load(); }

int Vela_JackCapture::Process(uint32_t iFrames, void* iSelfP) {
    auto& self = *static_cast<Vela_JackCapture*>(iSelfP);
    void* buffer = jack_port_get_buffer(self.mClientP->mPortP, iFrames);
    const uint32_t base = jack_last_frame_time(self.mClientP->mClientP);
    const uint32_t count = jack_midi_get_event_count(buffer);
    for (uint32_t i = 0; i < count; ++i) {
        jack_midi_event_t event;
        if (jack_midi_event_get(&event, buffer, i) == 0) self.mStore.Add(base + event.time, event.buffer, event.size);
    }
    return 0;
}

std::vector<Vela_JackCapture::Message> Vela_JackCapture::GetMessages() const {
    std::vector<Message> messages;
    for (size_t i = 0; i < mStore.GetSize(); ++i)
        messages.push_back({mStore.GetFrame(i), {mStore.GetBytes(i), mStore.GetBytes(i) + mStore.GetLength(i)}});
    return messages;
}

#else  // no JACK at build time

struct Vela_JackOutput::Client {};
struct Vela_JackCapture::Client {};

static const char* const kNoJack = "this vela was built without JACK (install libjack-jackd2-dev and rebuild)";

Vela_JackOutput::Vela_JackOutput(Vela_BlockPlayer& iPlayer, const Vela_JackOptions&)
    : mPlayer(iPlayer), mBlock(0, 0), mTimer(0), mCpuTimer(0) {
    Fail(kNoJack);
}
Vela_JackOutput::~Vela_JackOutput() = default;
void Vela_JackOutput::Activate() {}
void Vela_JackOutput::Connect(const std::string&) {}
void Vela_JackOutput::Finish(double) {}
std::string Vela_JackOutput::GetPortName() const { return {}; }
uint32_t Vela_JackOutput::GetSampleRate() const { return 0; }
uint32_t Vela_JackOutput::GetPeriod() const { return 0; }
int Vela_JackOutput::Process(uint32_t, void*) { return 0; }
void Vela_JackOutput::RunPeriod(uint32_t) {}

Vela_JackCapture::Vela_JackCapture(const Vela_JackOptions&) : mStore(0, 0) { Fail(kNoJack); }
Vela_JackCapture::~Vela_JackCapture() = default;
void Vela_JackCapture::Activate() {}
void Vela_JackCapture::Deactivate() {}
std::string Vela_JackCapture::GetPortName() const { return {}; }
uint64_t Vela_JackCapture::GetXruns() const { return 0; }
uint64_t Vela_JackOutput::GetXruns() const { return 0; }
int Vela_JackCapture::Process(uint32_t, void*) { return 0; }
std::vector<Vela_JackCapture::Message> Vela_JackCapture::GetMessages() const { return {}; }

#endif

void Vela_JackOutput::SetProbes(Probe iAllocations, Probe iLocks) {
    mAllocProbe = iAllocations;
    mLockProbe = iLocks;
}

void Vela_JackOutput::Send(const Vela_TransportCommand& iCommand) {
    if (!mQueue.Push(iCommand)) Fail("the transport queue is full");
}

std::vector<Vela_AppliedCommand> Vela_JackOutput::GetAppliedCommands() const {
    const size_t count = std::min(mAppliedCount.load(std::memory_order_acquire), mApplied.size());
    return {mApplied.begin(), mApplied.begin() + static_cast<ptrdiff_t>(count)};
}

std::string Vela_JackOutput::DescribeTimes() const {
    return Vela_CallbackTimer::Describe("callback wall time", mTimer.Summarize(), GetPeriod(), GetSampleRate()) + "\n" +
           Vela_CallbackTimer::Describe("callback CPU time", mCpuTimer.Summarize(), GetPeriod(), GetSampleRate());
}

std::vector<uint32_t> Vela_JackOutput::GetCycleFrameTimes() const {
    const auto count = std::min<size_t>(mCycles.load(std::memory_order_acquire), mCycleFrameTimes.size());
    return {mCycleFrameTimes.begin(), mCycleFrameTimes.begin() + static_cast<ptrdiff_t>(count)};
}
