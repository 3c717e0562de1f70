// Offline rendering of a block player's output to audio through a software synthesizer
// (fluidsynth with a General MIDI soundfont), a 16-bit stereo WAV writer, and the waveform
// envelope (peak per window) with its picture.
//
// Vela_RenderAudio plays iFrames frames of the player in blocks of mBlockFrames (applying
// iCommands as Vela_PlayBlocks does), giving each message to the synthesizer at its frame,
// then applies a stop and renders the release tail
// until the output has been silent for a tenth of a second, at most mMaxTailSeconds. Without
// fluidsynth at build time it throws. Errors (a soundfont that is missing or not a soundfont)
// throw std::runtime_error with a one-line message. Not real-time: runs on the caller's thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Vela_MidiBlock.h"

struct Vela_RenderOptions {
    std::string mSoundFont;  // empty: Vela_DefaultSoundFont()
    uint32_t mSampleRate = 44100;
    uint32_t mBlockFrames = 256;
    double mMaxTailSeconds = 2;
};

struct Vela_Audio {
    uint32_t mSampleRate = 0;
    std::vector<float> mSamples;  // interleaved stereo, -1..1
    int64_t mSongFrames = 0;      // frames before the tail

    int64_t GetFrames() const { return static_cast<int64_t>(mSamples.size() / 2); }
};

// The General MIDI soundfont of the timgm6mb-soundfont package.
const char* Vela_DefaultSoundFont();

Vela_Audio Vela_RenderAudio(Vela_BlockPlayer& ioPlayer, int64_t iFrames, const std::vector<Vela_AppliedCommand>& iCommands,
                            const Vela_RenderOptions& iOptions);

void Vela_WriteWav(const std::string& iPath, const Vela_Audio& iAudio);

// The largest absolute sample of each window of iWindowFrames frames (both channels).
std::vector<float> Vela_Envelope(const Vela_Audio& iAudio, uint32_t iWindowFrames);

// An SVG of the envelope over a time axis in seconds, iWidth pixels for iSeconds.
std::string Vela_EnvelopeSvg(const std::vector<float>& iEnvelope, double iWindowSeconds, double iSeconds, int iWidth);
