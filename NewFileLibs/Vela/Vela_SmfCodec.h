// Vela_SmfCodec: Standard MIDI Files read into, and written from, a song made of the library's
// own event values. No third-party code: the byte format is handled here.
//
// The song (Vela_SmfSong) holds one Vela_SmfTrack per channel of each file track, because a
// chunk's events carry no channel: a format-0 file with four channels becomes four tracks of
// file track 0. A track's mEvents are what its chunk holds, in playback order at library ticks
// (Time_cTicksPerQuarter per quarter):
//   - notes (kind 3) with their duration, on- and release velocity;
//   - controllers 1..119 except 32, pitch bend, channel and key pressure (kinds 4, 5, 7, 8);
//   - programs (kind 6): bank select MSB (controller 0) and LSB (controller 32) are folded into
//     the program event of the same channel and tick, whichever comes first in the file; a bank
//     select with no program change at its tick becomes a program event whose program part is
//     disabled (it sends only the bank select). Parts never given stay disabled;
//   - complete system-exclusive messages (F0 ... F7 in one event) as kinds 14/15.
// mSide keeps what a chunk has no place for: meta events (tempo, time and key signature, names,
// texts, ...; end of track becomes mEndTick), a sysex that is split over several events, F7
// escapes, and channel messages: channel mode messages (controllers 120..127), unmatched
// note-offs, and a value of a controller, pitch bend or pressure that a later value of the same
// one replaces at the same tick (a chunk keeps one value per sub-stream and time). In time
// order; at one tick the channel messages follow the others, each group in file order.
// Metas, split sysex, escapes and complete sysex go to the first track of their file track.
//
// Reading rules:
//  - Formats 0 and 1; format 2 and time-code division are refused with a clear error.
//  - Running status is honoured, also across meta and sysex events (some writers rely on it).
//  - Note-on with velocity 0 is a note-off with the neutral release velocity 64 (the library
//    encodes a release velocity of 64 the same way, so the pair round-trips); 8n keeps its own.
//  - Notes of one channel and pitch pair first-in-first-out. A note-off with no note sounding
//    is counted in mUnmatchedNoteOffs and kept aside as bytes; notes still sounding at the end
//    of the track end there (release velocity 64).
//  - File ticks become library ticks rounded to the nearest (halves up); since a library tick
//    is at most 1/29 of a file tick for every legal division, writing back gives every file tick
//    exactly. A track without an end-of-track event ends at its last event. A track whose
//    times pass the library's time range is refused.
//  - Anything malformed (bad chunk lengths, truncated events, a variable-length number of more
//    than four bytes, a data byte with no status, a status byte not allowed in a file) throws
//    Vela_SmfError naming the byte offset; nothing is returned half-read.
// Writing: format 1, the song's division, one file track per mFileTrack (in order), channel
// messages through the library's own encoder, no running status. At one tick, track by track
// (a file track's first track first, so it is read back as the first), each track's side
// events other than channel messages, note-offs, the channel messages kept aside (after the
// note-offs, so an unmatched one stays unmatched; before the other events, so a replaced value
// is still replaced), other events in playback order, note-ons, then the offs of zero-length
// notes, so reading the file back gives every track and pairs every note as it was. That
// holds for tracks of one file track on distinct channels, as reading makes them; two tracks
// sharing a channel in one file track come back as one, and their notes of one pitch that meet
// at a tick may pair differently. A gap longer than a delta time can say (28
// bits) is bridged with empty text meta events.
//
// Not for real-time use (allocates). Reentrant: no shared state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "Mdie_TimedEvent.h"

// A malformed file; what() reads "byte <offset>: <reason>".
class Vela_SmfError : public std::runtime_error {
public:
    Vela_SmfError(size_t iOffset, const std::string& iReason);
    size_t GetOffset() const { return mOffset; }

private:
    size_t mOffset;
};

// An event kept beside a track's chunk (see the header comment).
struct Vela_SmfSideEvent {
    enum EKind : uint8_t {
        kMeta = 0,         // mData is the payload of meta event mMetaType
        kChannelMessage = 1,  // mData is the whole message, status with its channel
        kSysexPart = 2,    // an F0 event without its closing F7: mData is what follows F0
        kEscape = 3,       // an F7 event: mData is its payload
    };
    int64_t mTick = 0;  // library ticks
    EKind mKind = kMeta;
    uint8_t mMetaType = 0;
    std::string mData;
    bool operator==(const Vela_SmfSideEvent& iOther) const = default;
};

struct Vela_SmfTrack {
    int mChannel = 0;    // 0..15
    int mFileTrack = 0;  // index of the file track it belongs to
    std::vector<Mdie_TimedEvent> mEvents;
    std::vector<Vela_SmfSideEvent> mSide;
    int64_t mEndTick = 0;  // end of track, library ticks

    // The first track-name meta event, or "".
    std::string GetName() const { return NameIn(mSide); }
    static std::string NameIn(const std::vector<Vela_SmfSideEvent>& iSide);
};

struct Vela_SmfSong {
    int mFormat = 1;
    int mDivision = 960;  // file ticks per quarter note, 1..32767
    std::vector<Vela_SmfTrack> mTracks;
    int mUnmatchedNoteOffs = 0;  // note-offs that found no note on reading
};

class Vela_SmfCodec {
public:
    static Vela_SmfSong Read(const unsigned char* iData, size_t iLength);
    static std::vector<unsigned char> Write(const Vela_SmfSong& iSong);

    // Tick scaling between a file's division and the library's grid (see the header comment).
    static int64_t ToLibraryTicks(int64_t iFileTicks, int iDivision);
    static int64_t ToFileTicks(int64_t iLibraryTicks, int iDivision);

    // Puts a track's events and side events in the order reading gives them (the rules above),
    // for songs made in memory that should compare equal to what a file of them reads back as.
    static void PutInReadingOrder(Vela_SmfTrack& ioTrack);

    // Equal times and events, system-exclusive events compared by their bytes (the event's
    // own equality tells shared sysex data apart by identity).
    static bool SameContent(const Mdie_TimedEvent& iA, const Mdie_TimedEvent& iB);
};

// Track equality: channel, file track, end, side events and SameContent events in one order.
bool operator==(const Vela_SmfTrack& iA, const Vela_SmfTrack& iB);
