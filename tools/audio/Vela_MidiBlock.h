// The seam between a player and a real-time output: a player fills one block of frames at a
// time with timed MIDI messages, and the output (a JACK process callback, an offline renderer,
// a test) takes them from there. Transport commands reach the player between blocks.
//
// Vela_MidiBlock holds the messages of one block in storage fixed at construction, so filling
// it on the audio thread never allocates. Frames are offsets in the block and never go back:
// a message stamped before the previous one is moved up to it (outputs such as JACK refuse
// messages out of order, and a late message beats a lost note-off). A message that does not
// fit is dropped and counted.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

class Vela_MidiBlock {
public:
    Vela_MidiBlock(size_t iMaxMessages, size_t iMaxBytes);

    void Clear();
    // Real-time. False (and counted as dropped) when the block is full or iLength is 0.
    bool Add(uint32_t iFrame, const unsigned char* iBytes, size_t iLength);

    size_t GetSize() const { return mCount; }
    uint32_t GetFrame(size_t iIndex) const { return mMessages[iIndex].mFrame; }
    const unsigned char* GetBytes(size_t iIndex) const { return mBytes.data() + mMessages[iIndex].mOffset; }
    size_t GetLength(size_t iIndex) const { return mMessages[iIndex].mLength; }
    // Messages refused since construction (not reset by Clear).
    uint64_t GetDropped() const { return mDropped; }

private:
    struct Message {
        uint32_t mFrame;
        uint32_t mOffset;
        uint32_t mLength;
    };
    std::vector<Message> mMessages;
    std::vector<unsigned char> mBytes;
    size_t mCount = 0;
    size_t mUsedBytes = 0;
    uint64_t mDropped = 0;
};

// A transport command for a block player. Positions are in the player's own unit (library
// ticks for a song player).
struct Vela_TransportCommand {
    enum EKind : uint8_t { eStart, eStop, eLocate, eLoop };
    EKind mKind = eStart;
    int64_t mA = 0;  // eLocate: the position; eLoop: the loop start
    int64_t mB = 0;  // eLoop: the loop end (an empty range ends looping)
};

// What a real-time output drives. Both calls come from the output's one real-time thread and
// must neither allocate nor lock.
class Vela_BlockPlayer {
public:
    virtual ~Vela_BlockPlayer() = default;
    // Applies a command before the block that follows; the messages it makes at once (a stop's
    // note-offs, a locate's chase) go into ioBlock, that block, at frame 0.
    virtual void Apply(const Vela_TransportCommand& iCommand, Vela_MidiBlock& ioBlock) = 0;
    // The messages of frames [iFrame, iFrame + iFrames) of the output clock (frames since the
    // output started), at offsets below iFrames.
    virtual void FillBlock(int64_t iFrame, uint32_t iFrames, Vela_MidiBlock& ioBlock) = 0;
};

// A command at an output frame: for a schedule, applied before the block that holds that frame;
// as a real-time output reports it, the first frame of the block it was applied before.
struct Vela_AppliedCommand {
    int64_t mFrame;
    Vela_TransportCommand mCommand;
};

// Plays output frames [iFrom, iTo) in blocks of iBlockFrames as a real-time output does: before
// each block the commands from ioNext on whose frame lies before the block's end, then the
// block, handed to iOnBlock(firstFrame, frameCount, block).
template <typename OnBlock>
void Vela_PlayBlocks(Vela_BlockPlayer& ioPlayer, Vela_MidiBlock& ioBlock, const std::vector<Vela_AppliedCommand>& iCommands,
                     size_t& ioNext, int64_t iFrom, int64_t iTo, uint32_t iBlockFrames, OnBlock&& iOnBlock) {
    for (int64_t frame = iFrom; frame < iTo; frame += iBlockFrames) {
        const auto count = static_cast<uint32_t>(std::min<int64_t>(iBlockFrames, iTo - frame));
        ioBlock.Clear();
        for (; ioNext < iCommands.size() && iCommands[ioNext].mFrame < frame + count; ++ioNext)
            ioPlayer.Apply(iCommands[ioNext].mCommand, ioBlock);
        ioPlayer.FillBlock(frame, count, ioBlock);
        iOnBlock(frame, count, ioBlock);
    }
}
