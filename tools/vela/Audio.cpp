#include "Audio.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "Vela_AudioRender.h"
#include "Vela_JackOutput.h"

namespace {
volatile std::sig_atomic_t gInterrupted = 0;
extern "C" void OnInterrupt(int) { gInterrupted = 1; }

// Ctrl-C (or a termination request) while playing ends the plan early but still stops the
// transport, so no note is left hanging on the receiving end. The previous handlers come back
// when the scope ends.
class InterruptScope {
public:
    InterruptScope() : mOldInt(std::signal(SIGINT, OnInterrupt)), mOldTerm(std::signal(SIGTERM, OnInterrupt)) { gInterrupted = 0; }
    ~InterruptScope() {
        std::signal(SIGINT, mOldInt);
        std::signal(SIGTERM, mOldTerm);
    }
    bool Interrupted() const { return gInterrupted != 0; }

private:
    void (*mOldInt)(int);
    void (*mOldTerm)(int);
};
}  // namespace

int PlayJack(const Vela_Song& iSong, const AudioPlan& iPlan, const std::string& iServer, const std::string& iConnect) {
    Vela_JackOptions options;
    options.mServer = iServer;
    // The player needs the server's rate and period, so a probe client asks first.
    uint32_t rate = 0, period = 0;
    {
        struct Silent : Vela_BlockPlayer {
            void Apply(const Vela_TransportCommand&, Vela_MidiBlock&) override {}
            void FillBlock(int64_t, uint32_t, Vela_MidiBlock&) override {}
        } silent;
        options.mClientName = "vela-probe";
        Vela_JackOutput probe(silent, options);
        rate = probe.GetSampleRate();
        period = probe.GetPeriod();
    }
    options.mClientName = "vela";
    Vela_SongBlockPlayer player(iSong, rate, period);
    player.SetRestrike(iPlan.mRestrike);
    Vela_JackOutput output(player, options);
    output.Activate();
    if (!iConnect.empty()) output.Connect(iConnect);
    std::printf("playing on %s%s%s at %u Hz, %u frames per period\n", output.GetPortName().c_str(),
                iConnect.empty() ? "" : " -> ", iConnect.c_str(), rate, period);
    std::fflush(stdout);  // seen at once also when the output goes to a file or pipe
    // Each command goes out a period ahead, so the callback applies it before the block that
    // holds its time.
    const InterruptScope interrupt;
    auto waitFor = [&](int64_t iTick) {
        const int64_t frame = player.FrameAt(iTick) - period;
        while (output.GetFrames() < frame && !interrupt.Interrupted()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return !interrupt.Interrupted();
    };
    for (const Vela_ScheduledCommand& command : iPlan.mCommands) {
        if (!waitFor(command.mTick)) break;
        output.Send(command.mCommand);
    }
    waitFor(iPlan.mEndTick);
    output.Finish();
    if (interrupt.Interrupted()) std::printf("interrupted: ");
    std::printf("stopped: every note released, sustain and pitch bend at rest\n%s\n", output.DescribeTimes().c_str());
    if (output.GetDropped() > 0) std::printf("warning: %llu messages did not fit a period\n", static_cast<unsigned long long>(output.GetDropped()));
    return interrupt.Interrupted() ? 130 : 0;  // the shell's status for a run ended by Ctrl-C
}

int RenderSong(const Vela_Song& iSong, const AudioPlan& iPlan, const std::string& iWav, const std::string& iSoundFont,
               const std::string& iPicture) {
    Vela_RenderOptions options;
    options.mSoundFont = iSoundFont;
    Vela_SongBlockPlayer player(iSong, options.mSampleRate, options.mBlockFrames);
    player.SetRestrike(iPlan.mRestrike);
    std::vector<Vela_AppliedCommand> commands;
    for (const Vela_ScheduledCommand& command : iPlan.mCommands) commands.push_back({player.FrameAt(command.mTick), command.mCommand});
    const Vela_Audio audio = Vela_RenderAudio(player, player.FrameAt(iPlan.mEndTick), commands, options);
    Vela_WriteWav(iWav, audio);
    const double seconds = double(audio.GetFrames()) / audio.mSampleRate;
    std::printf("wrote %s: %.2f s (%.2f s of song, %.2f s of release tail)\n", iWav.c_str(), seconds,
                double(audio.mSongFrames) / audio.mSampleRate, double(audio.GetFrames() - audio.mSongFrames) / audio.mSampleRate);
    if (!iPicture.empty()) {
        const uint32_t window = audio.mSampleRate / 100;
        const std::string svg = Vela_EnvelopeSvg(Vela_Envelope(audio, window), 0.01, seconds, std::max(200, int(seconds * 40)));
        std::ofstream out(iPicture, std::ios::binary);
        if (!(out << svg) || !out.flush()) throw std::runtime_error("cannot write " + iPicture);
        std::printf("wrote %s\n", iPicture.c_str());
    }
    return 0;
}
