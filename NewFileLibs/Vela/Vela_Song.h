// Vela_Song: a whole song as the library keeps it: one chunk per track (a track being one
// channel of one file track, see Vela_SmfCodec.h) with the events a chunk has no place for kept
// beside it (meta events, channel mode messages, split sysex, escapes), plus what follows from
// them: the tempo map (for seconds) and the time signatures (for bars).
//
// Conversion: FromSmf puts each track's events into a new chunk (not undoable); ToSmf reads
// every chunk back out over all time. A chunk keeps one value per sub-stream and time, so of
// several values of one controller at one tick only the last survives the trip.
//
// Persisted form (the document file): a block "VelaSong", version 1:
//   int32 division (file ticks per quarter, 1..32767), int32 track count, then per track:
//   int32 channel (0..15), int32 file track, int64 end tick, int32 side-event count, then per
//   side event: int64 tick, int8 kind (0..3), int8 meta type, int32 length, the bytes;
// followed by one "MdChun" block per track, in track order. Reading checks every count and
// range and throws the localized error 202 ("bad data encountered") or the stream exception;
// a damaged file never yields a half-read song.
//
// Threads: a song is edited and read on one thread at a time. Not for real-time use.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Vela_Chunk.h"
#include "Vela_SmfCodec.h"

struct Vela_SongTrack {
    int mChannel = 0;
    int mFileTrack = 0;
    int64_t mEndTick = 0;  // library ticks
    std::vector<Vela_SmfSideEvent> mSide;
    std::unique_ptr<Vela_Chunk> mChunkP;

    std::string GetName() const;
};

class Vela_Song {
public:
    static constexpr const char* kStreamTag = "VelaSong";
    static constexpr short kStreamVersion = 1;
    static constexpr int64_t kDefaultTempo = 500000;  // microseconds per quarter (120 BPM)

    static Vela_Song FromSmf(const Vela_SmfSong& iSmf);
    Vela_SmfSong ToSmf() const;

    void StreamOut(Sys_TypedOutStream& iStream) const;
    static Vela_Song StreamIn(Sys_TypedInStream& iStream);

    // Every event of a track's chunk, in playback order, equals ordered by their content.
    static std::vector<Mdie_TimedEvent> GetEvents(const Vela_SongTrack& iTrack);

    // The latest track end, in library ticks.
    int64_t GetLength() const;
    // Seconds from the start to iTick, through the tempo metas of every track.
    double GetSeconds(int64_t iTick) const;
    // Microseconds per quarter in force at iTick: the last tempo meta at or before it.
    int64_t GetTempoAt(int64_t iTick) const;
    // Bars from the start to iTick (0-based, fractional), through the time-signature metas
    // (4/4 until the first).
    double GetBars(int64_t iTick) const;
    // The tick at which iBars bars (0-based, fractional) have passed: GetBars' inverse.
    int64_t GetTickAtBars(double iBars) const;

    int mDivision = 960;
    std::vector<Vela_SongTrack> mTracks;
    int mUnmatchedNoteOffs = 0;  // from the file it was read from; not persisted

private:
    // (tick, value) of every meta of iType with at least iMinLength bytes, by tick.
    std::vector<std::pair<int64_t, std::string>> Metas(uint8_t iType, size_t iMinLength) const;
};
