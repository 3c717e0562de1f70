// Vela_SongBlockPlayer: the library's reference player behind the block-player seam, so a
// real-time output (JACK) or the renderer plays a song one period at a time. Each block of
// frames runs the player over the ticks those frames span and stamps every message with the
// frame of its output tick; transport commands map onto the player's own (positions in
// library ticks). Messages a command makes go out at the start of the block that follows.
//
// The output clock turns ticks into frames at one tempo, the song's opening tempo by default:
// the reference player's clock is in ticks and does not follow tempo changes (a song that
// changes tempo plays at its first one). Real-time safe after construction, as the reference
// player is; the note-in-progress allocator must be set first.
#pragma once

#include <cstdint>
#include <vector>

#include "Vela_MidiBlock.h"
#include "Vela_ReferencePlayer.h"

// A command at an output time in ticks (from the moment the output started).
struct Vela_ScheduledCommand {
    int64_t mTick;
    Vela_TransportCommand mCommand;
};

class Vela_SongBlockPlayer : public Vela_BlockPlayer, private Vela_PlayerOutput {
public:
    // iMicrosPerQuarter 0: the song's opening tempo.
    Vela_SongBlockPlayer(const Vela_Song& iSong, uint32_t iSampleRate, uint32_t iBlockFrames, int64_t iMicrosPerQuarter = 0);

    void SetRestrike(bool iRestrike) { mPlayer.SetRestrike(iRestrike); }
    void Apply(const Vela_TransportCommand& iCommand, Vela_MidiBlock& ioBlock) override;
    void FillBlock(int64_t iFrame, uint32_t iFrames, Vela_MidiBlock& ioBlock) override;

    // The first output frame at or after output tick iTick, and the output tick at frame iFrame
    // (rounded down).
    int64_t FrameAt(int64_t iTick) const;
    int64_t TickAt(int64_t iFrame) const;

private:
    void Send(int64_t iOutputTick, int64_t iSongTick, const unsigned char* iBytes, int iLength) override;

    int64_t mTicksNumerator;    // ticks per frame = mTicksNumerator / mTicksDenominator
    int64_t mTicksDenominator;
    Vela_ReferencePlayer mPlayer;
    Vela_MidiBlock* mBlockP = nullptr;
    int64_t mBlockFrame = 0;
};
