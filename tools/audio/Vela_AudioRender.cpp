#include "Vela_AudioRender.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <sys/stat.h>

#if VELA_HAVE_FLUIDSYNTH
#include <fluidsynth.h>
#endif

const char* Vela_DefaultSoundFont() { return "/usr/share/sounds/sf2/TimGM6mb.sf2"; }

#if VELA_HAVE_FLUIDSYNTH

namespace {
struct SynthDeleter {
    void operator()(fluid_settings_t* iP) const { delete_fluid_settings(iP); }
    void operator()(fluid_synth_t* iP) const { delete_fluid_synth(iP); }
};

// Hands one complete MIDI message to the synthesizer; messages it has no use for are ignored.
void Play(fluid_synth_t* iSynth, const unsigned char* iBytes, size_t iLength) {
    const int status = iBytes[0];
    if (status == 0xF0) {
        // The synthesizer takes sysex without its F0 and F7.
        const size_t end = iLength > 1 && iBytes[iLength - 1] == 0xF7 ? iLength - 1 : iLength;
        if (end > 1)
            fluid_synth_sysex(iSynth, reinterpret_cast<const char*>(iBytes + 1), static_cast<int>(end - 1), nullptr, nullptr,
                              nullptr, 0);
        return;
    }
    if (status < 0x80 || status >= 0xF0) return;
    const int channel = status & 0x0F;
    const int a = iLength > 1 ? iBytes[1] : 0;
    const int b = iLength > 2 ? iBytes[2] : 0;
    switch (status & 0xF0) {
        case 0x80: fluid_synth_noteoff(iSynth, channel, a); break;
        case 0x90: b ? fluid_synth_noteon(iSynth, channel, a, b) : fluid_synth_noteoff(iSynth, channel, a); break;
        case 0xA0: fluid_synth_key_pressure(iSynth, channel, a, b); break;
        case 0xB0: fluid_synth_cc(iSynth, channel, a, b); break;
        case 0xC0: fluid_synth_program_change(iSynth, channel, a); break;
        case 0xD0: fluid_synth_channel_pressure(iSynth, channel, a); break;
        case 0xE0: fluid_synth_pitch_bend(iSynth, channel, a | (b << 7)); break;
    }
}

void Render(fluid_synth_t* iSynth, Vela_Audio& ioAudio, uint32_t iFrames) {
    const size_t at = ioAudio.mSamples.size();
    ioAudio.mSamples.resize(at + 2 * size_t{iFrames});
    float* out = ioAudio.mSamples.data() + at;
    fluid_synth_write_float(iSynth, static_cast<int>(iFrames), out, 0, 2, out, 1, 2);
}

bool Silent(const Vela_Audio& iAudio, size_t iFrames) {
    const size_t count = std::min(iAudio.mSamples.size(), 2 * iFrames);
    return std::all_of(iAudio.mSamples.end() - static_cast<ptrdiff_t>(count), iAudio.mSamples.end(),
                       [](float iSample) { return std::fabs(iSample) < 1e-4f; });
}
}  // namespace

Vela_Audio Vela_RenderAudio(Vela_BlockPlayer& ioPlayer, int64_t iFrames, const std::vector<Vela_AppliedCommand>& iCommands,
                            const Vela_RenderOptions& iOptions) {
    const std::string font = iOptions.mSoundFont.empty() ? Vela_DefaultSoundFont() : iOptions.mSoundFont;
    struct stat info{};
    if (stat(font.c_str(), &info) != 0) throw std::runtime_error("soundfont not found: " + font);

    std::unique_ptr<fluid_settings_t, SynthDeleter> settings(new_fluid_settings());
    fluid_settings_setnum(settings.get(), "synth.sample-rate", iOptions.mSampleRate);
    fluid_settings_setint(settings.get(), "synth.threadsafe-api", 0);
    std::unique_ptr<fluid_synth_t, SynthDeleter> synth(new_fluid_synth(settings.get()));
    if (!synth) throw std::runtime_error("cannot start the synthesizer");
    fluid_set_log_function(FLUID_PANIC, nullptr, nullptr);
    fluid_set_log_function(FLUID_ERR, nullptr, nullptr);
    fluid_set_log_function(FLUID_WARN, nullptr, nullptr);
    if (fluid_synth_sfload(synth.get(), font.c_str(), 1) == FLUID_FAILED)
        throw std::runtime_error("not a soundfont: " + font);

    Vela_Audio audio;
    audio.mSampleRate = iOptions.mSampleRate;
    audio.mSamples.reserve(static_cast<size_t>(2 * (iFrames + iOptions.mMaxTailSeconds * iOptions.mSampleRate)));
    Vela_MidiBlock block(1 << 14, 1 << 20);
    auto render = [&](int64_t, uint32_t iCount, const Vela_MidiBlock& iBlock) {
        uint32_t done = 0;
        for (size_t i = 0; i < iBlock.GetSize(); ++i) {
            const uint32_t frame = std::min(iBlock.GetFrame(i), iCount);
            if (frame > done) Render(synth.get(), audio, frame - done);
            done = std::max(done, frame);
            Play(synth.get(), iBlock.GetBytes(i), iBlock.GetLength(i));
        }
        Render(synth.get(), audio, iCount - done);
    };
    size_t next = 0;
    Vela_PlayBlocks(ioPlayer, block, iCommands, next, 0, iFrames, iOptions.mBlockFrames, render);
    audio.mSongFrames = audio.GetFrames();

    // The tail, a tenth of a second at a time, starts with the stop's messages.
    const std::vector<Vela_AppliedCommand> stop = {{iFrames, {Vela_TransportCommand::eStop}}};
    next = 0;
    const auto tailEnd = audio.mSongFrames + static_cast<int64_t>(iOptions.mMaxTailSeconds * iOptions.mSampleRate);
    const uint32_t quiet = iOptions.mSampleRate / 10;
    for (int64_t frame = iFrames; frame < tailEnd; frame += quiet) {
        Vela_PlayBlocks(ioPlayer, block, stop, next, frame, std::min<int64_t>(frame + quiet, tailEnd), iOptions.mBlockFrames, render);
        if (Silent(audio, quiet)) break;
    }
    return audio;
}

#else

Vela_Audio Vela_RenderAudio(Vela_BlockPlayer&, int64_t, const std::vector<Vela_AppliedCommand>&, const Vela_RenderOptions&) {
    throw std::runtime_error("this vela was built without fluidsynth (install libfluidsynth-dev and rebuild)");
}

#endif

namespace {
void Put(std::ostream& ioOut, uint32_t iValue, int iBytes) {
    for (int i = 0; i < iBytes; ++i) ioOut.put(static_cast<char>((iValue >> (8 * i)) & 0xFF));
}
}  // namespace

void Vela_WriteWav(const std::string& iPath, const Vela_Audio& iAudio) {
    std::ofstream out(iPath, std::ios::binary);
    if (!out) throw std::runtime_error("cannot write " + iPath);
    const auto dataBytes = static_cast<uint32_t>(iAudio.mSamples.size() * 2);
    out.write("RIFF", 4);
    Put(out, 36 + dataBytes, 4);
    out.write("WAVEfmt ", 8);
    Put(out, 16, 4);  // format chunk size
    Put(out, 1, 2);   // PCM
    Put(out, 2, 2);   // channels
    Put(out, iAudio.mSampleRate, 4);
    Put(out, iAudio.mSampleRate * 4, 4);  // bytes per second
    Put(out, 4, 2);                       // bytes per frame
    Put(out, 16, 2);                      // bits per sample
    out.write("data", 4);
    Put(out, dataBytes, 4);
    for (float sample : iAudio.mSamples) {
        const auto value = static_cast<int16_t>(std::lround(std::clamp(sample, -1.0f, 1.0f) * 32767.0f));
        Put(out, static_cast<uint16_t>(value), 2);
    }
    if (!out.flush()) throw std::runtime_error("cannot write " + iPath);
}

std::vector<float> Vela_Envelope(const Vela_Audio& iAudio, uint32_t iWindowFrames) {
    std::vector<float> envelope;
    const size_t window = 2 * size_t{std::max<uint32_t>(iWindowFrames, 1)};
    for (size_t at = 0; at < iAudio.mSamples.size(); at += window) {
        float peak = 0;
        for (size_t i = at; i < std::min(at + window, iAudio.mSamples.size()); ++i)
            peak = std::max(peak, std::fabs(iAudio.mSamples[i]));
        envelope.push_back(peak);
    }
    return envelope;
}

std::string Vela_EnvelopeSvg(const std::vector<float>& iEnvelope, double iWindowSeconds, double iSeconds, int iWidth) {
    const int height = 120, mid = 50, axis = 100;
    const double scale = iSeconds > 0 ? iWidth / iSeconds : 0;
    std::string svg;
    char text[160];
    std::snprintf(text, sizeof text,
                  "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\">\n"
                  "<rect width=\"100%%\" height=\"100%%\" fill=\"white\"/>\n<path fill=\"#3a6ea5\" d=\"M0 %d",
                  iWidth, height, mid);
    svg += text;
    // The upper edge left to right, then the mirrored lower edge back.
    for (size_t i = 0; i < iEnvelope.size(); ++i) {
        std::snprintf(text, sizeof text, " L%.1f %.1f", i * iWindowSeconds * scale, mid - 45 * iEnvelope[i]);
        svg += text;
    }
    for (size_t i = iEnvelope.size(); i-- > 0;) {
        std::snprintf(text, sizeof text, " L%.1f %.1f", i * iWindowSeconds * scale, mid + 45 * iEnvelope[i]);
        svg += text;
    }
    svg += " Z\"/>\n";
    std::snprintf(text, sizeof text, "<line x1=\"0\" y1=\"%d\" x2=\"%d\" y2=\"%d\" stroke=\"black\"/>\n", axis, iWidth, axis);
    svg += text;
    const int step = iSeconds > 60 ? 10 : iSeconds > 10 ? 5 : 1;
    for (int second = 0; second <= iSeconds; second += step) {
        std::snprintf(text, sizeof text,
                      "<line x1=\"%.1f\" y1=\"%d\" x2=\"%.1f\" y2=\"%d\" stroke=\"black\"/>"
                      "<text x=\"%.1f\" y=\"%d\" font-size=\"10\" font-family=\"sans-serif\">%ds</text>\n",
                      second * scale, axis, second * scale, axis + 4, second * scale + 2, axis + 15, second);
        svg += text;
    }
    return svg + "</svg>\n";
}
