#include "Vela_SongBlockPlayer.h"

#include <algorithm>

namespace {
int64_t OpeningTempo(const Vela_Song& iSong) { return std::max<int64_t>(1, iSong.GetTempoAt(0)); }
}  // namespace

Vela_SongBlockPlayer::Vela_SongBlockPlayer(const Vela_Song& iSong, uint32_t iSampleRate, uint32_t iBlockFrames,
                                           int64_t iMicrosPerQuarter)
    : mTicksNumerator(Time_cTicksPerQuarter * 1000000),
      mTicksDenominator((iMicrosPerQuarter > 0 ? iMicrosPerQuarter : OpeningTempo(iSong)) * int64_t{iSampleRate}),
      // One player block per period (plus one tick for the rounding of the period's ticks).
      mPlayer(iSong, *this, TickAt(iBlockFrames) + 1) {}

int64_t Vela_SongBlockPlayer::TickAt(int64_t iFrame) const {
    return static_cast<int64_t>(static_cast<__int128>(iFrame) * mTicksNumerator / mTicksDenominator);
}

int64_t Vela_SongBlockPlayer::FrameAt(int64_t iTick) const {
    return static_cast<int64_t>((static_cast<__int128>(iTick) * mTicksDenominator + mTicksNumerator - 1) / mTicksNumerator);
}

void Vela_SongBlockPlayer::Apply(const Vela_TransportCommand& iCommand, Vela_MidiBlock& ioBlock) {
    mBlockP = &ioBlock;
    mBlockFrame = FrameAt(mPlayer.GetOutputTime());
    switch (iCommand.mKind) {
        case Vela_TransportCommand::eStart: mPlayer.Start(); break;
        case Vela_TransportCommand::eStop: mPlayer.Stop(); break;
        case Vela_TransportCommand::eLocate: mPlayer.Locate(iCommand.mA); break;
        case Vela_TransportCommand::eLoop: mPlayer.SetLoop(iCommand.mA, iCommand.mB); break;
    }
}

void Vela_SongBlockPlayer::FillBlock(int64_t iFrame, uint32_t iFrames, Vela_MidiBlock& ioBlock) {
    mBlockP = &ioBlock;
    mBlockFrame = iFrame;
    mPlayer.Run(TickAt(iFrame + iFrames) - mPlayer.GetOutputTime());
}

void Vela_SongBlockPlayer::Send(int64_t iOutputTick, int64_t, const unsigned char* iBytes, int iLength) {
    // A tick that falls inside the block's first frame belongs to it.
    const int64_t offset = std::max<int64_t>(FrameAt(iOutputTick) - mBlockFrame, 0);
    mBlockP->Add(static_cast<uint32_t>(offset), iBytes, static_cast<size_t>(iLength));
}
