// Vela_ReferencePlayer: plays a Vela_Song the way a host's engine should, as MIDI bytes with
// times, and always returns the output to rest. It lives in the library, beside the pieces it
// assembles, so that hosts can read it as the worked example of their own transport and the
// tests can hold it to its promises; the command-line tool only drives it.
//
// Per track it keeps a chase tracker on the standard map (two, to hand over on a locate) and a
// track state of the notes it started. It plays fixed blocks through the chunk's range query
// (which also feeds the tracker), sending each note's note-off from the track state when its
// release time comes, before any event of that time.
//  - Start chases at the position: the values in force there (controllers, program and bank,
//    pitch bend, channel pressure, sustain) go out through Mdie_ChaseTracker::ChaseAndRelease
//    from the tracker of what was sent before, so a value the output already holds is not sent
//    again and releasing values no longer in force go back to rest.
//  - Locate while playing does the same at the new position, and moves the notes through
//    Mdie_TrackState::ComputeTransitionToNewState: with restrike on, notes that span the new
//    position start (a pitch sounding in both keeps sounding); with it off, every sounding
//    note is released.
//  - A loop [start, end) plays up to its end, then locates to its start as above (note-offs at
//    the end, chase at the start). An empty range means no loop.
//  - Stop releases every sounding note, then releases the tracker (sustain up, pitch bend
//    centred, channel pressure 0; the tracker's release also sends its first entry's rest,
//    controller 1 = 0).
// Tracks whose chunk holds nothing are left out (they would only send rest values), and a
// chase or release message that sets a controller, program, channel pressure or pitch bend to
// the value the output already holds is not sent: the tracker's hand-over and release send
// some values again (they begin with the map's first entry, controller 1, whether it is in use
// or not). What the song itself plays always goes out, repeats included (data increments,
// parameter data entry).
// Times: song positions and the output clock are library ticks; the output clock starts at 0,
// never goes back, and advances with Run whether playing or not. Messages of one block reach
// the output in time order; at one time, in the order they were made (tracks in song order).
//
// The note-in-progress allocator (Mdie_NoteInProgress::SetAllocator) must be set first; a note
// it refuses is played but not tracked (the pool is the host's to size). Real-time safe once
// playing: each block's messages are gathered in room reserved at construction (kReserved*,
// enough for a dense block) and sorted in place; only a block that outgrows that room
// allocates, once. Construction is not real-time safe. One thread; the song must not change
// while a player uses it.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "Mdie_ChaseTracker.h"
#include "Mdie_ChaseTrackerMap.h"
#include "Mdie_TimedEvent.h"
#include "Mdie_TrackState.h"
#include "Vela_Song.h"

class Vela_PlayerOutput {
public:
    virtual ~Vela_PlayerOutput() = default;
    // One MIDI message, channel in its status, sent at output time iOutputTick for song
    // position iSongTick.
    virtual void Send(int64_t iOutputTick, int64_t iSongTick, const unsigned char* iBytes, int iLength) = 0;
};

class Vela_ReferencePlayer {
public:
    static constexpr int64_t kDefaultBlockTicks = Time_cTicksPerQuarter / 8;

    Vela_ReferencePlayer(const Vela_Song& iSong, Vela_PlayerOutput& iOutput, int64_t iBlockTicks = kDefaultBlockTicks);
    ~Vela_ReferencePlayer();
    Vela_ReferencePlayer(const Vela_ReferencePlayer&) = delete;
    Vela_ReferencePlayer& operator=(const Vela_ReferencePlayer&) = delete;

    void SetRestrike(bool iRestrike) { mRestrike = iRestrike; }
    void SetLoop(int64_t iStart, int64_t iEnd);
    void Start();
    void Stop();
    // Negative positions count as 0. While stopped only the position moves.
    void Locate(int64_t iTick);
    // Lets iTicks of output time pass, playing while started.
    void Run(int64_t iTicks);

    bool IsPlaying() const { return mPlaying; }
    int64_t GetPosition() const { return mPosition; }
    int64_t GetOutputTime() const { return mOutputTime; }

private:
    static constexpr size_t kReservedMessages = 16384;
    static constexpr size_t kReservedBytes = 1 << 18;
    struct Message {
        int64_t mOutputTick;
        int64_t mSongTick;
        uint32_t mOffset;  // in mPendingBytes
        uint32_t mLength;
        uint32_t mSequence;  // the order made, for ties
        bool mChase;         // made by a chase or release, not played from the song
    };
    struct TrackPlayer;
    class Emitter;

    void ChaseAt(int64_t iTick);
    void PlayBlock(int64_t iStart, int64_t iEnd);
    void SendNoteOffs(TrackPlayer& ioTrack, int64_t iBlockStart, int64_t iUntil, bool iInclusive);
    void Flush();
    // True when the message would set a value the output already holds; remembers the value.
    bool Repeats(const unsigned char* iBytes, size_t iLength);

    const Vela_Song& mSong;
    Vela_PlayerOutput& mOutput;
    int64_t mBlockTicks;
    Mdie_ChaseTrackerMap mMap;  // before the trackers, which read it
    std::vector<std::unique_ptr<TrackPlayer>> mTracks;
    std::unique_ptr<Emitter> mEmitterP;
    std::vector<Message> mPending;
    std::vector<unsigned char> mPendingBytes;
    Mdie_TimedEventList mBlockEvents;
    bool mPlaying = false;
    bool mRestrike = true;
    int64_t mPosition = 0;
    int64_t mOutputTime = 0;
    int64_t mLoopStart = 0;
    int64_t mLoopEnd = 0;
    static constexpr int kProgramSlot = 128, kPressureSlot = 129, kBendSlot = 130;
    std::array<std::array<int, 131>, 16> mHeld;  // per channel: controllers, program, pressure, bend; -1 unknown
};
