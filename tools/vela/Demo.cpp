#include "Demo.h"

#include <string>

namespace {

constexpr int kDivision = 480;

struct Builder {
    Vela_SmfTrack& mTrack;
    int64_t Tick(double iQuarters) const { return Vela_SmfCodec::ToLibraryTicks(int64_t(iQuarters * kDivision + 0.5), kDivision); }
    void Note(double iAt, double iLength, int iPitch, int iVelocity) {
        const Time_TypedLength length(Tick(iAt + iLength) - Tick(iAt), kTime_Ticks);
        mTrack.mEvents.emplace_back(Time_Typed(Tick(iAt), kTime_Ticks),
                                    Vela_NoteWithDurationEvent(int8_t(iPitch), length, int8_t(iVelocity), 64));
    }
    void Event(double iAt, const Vela_Event& iEvent) { mTrack.mEvents.emplace_back(Time_Typed(Tick(iAt), kTime_Ticks), iEvent); }
    void Meta(double iAt, uint8_t iType, std::string iData) {
        mTrack.mSide.push_back({Tick(iAt), Vela_SmfSideEvent::kMeta, iType, std::move(iData)});
    }
};

Vela_SmfTrack& AddTrack(Vela_SmfSong& ioSong, int iChannel, const char* iName, int iProgram, int iVolume) {
    Vela_SmfTrack& track = ioSong.mTracks.emplace_back();
    track.mChannel = iChannel;
    track.mFileTrack = static_cast<int>(ioSong.mTracks.size()) - 1;
    track.mEndTick = Vela_SmfCodec::ToLibraryTicks(8 * 4 * kDivision, kDivision);
    Builder build{track};
    build.Meta(0, 0x03, iName);
    if (iProgram >= 0) build.Event(0, Vela_ProgramEvent(int8_t(iProgram), 0));
    if (iVolume >= 0) build.Event(0, Vela_ControllerEvent(7, int8_t(iVolume)));
    return track;
}

}  // namespace

Vela_SmfSong MakeDemoSong() {
    Vela_SmfSong song;
    song.mDivision = kDivision;
    song.mTracks.reserve(4);  // the builders hold on to their tracks
    Builder conductor{AddTrack(song, 0, "Vela demo", -1, -1)};
    conductor.Meta(0, 0x51, std::string("\x09\x27\xC0", 3));      // 100 BPM
    conductor.Meta(0, 0x58, std::string("\x04\x02\x18\x08", 4));  // 4/4

    // Eight bars over C, A minor, F and G, twice.
    const int roots[] = {48, 45, 41, 43};
    const int chords[4][3] = {{60, 64, 67}, {57, 60, 64}, {53, 57, 60}, {55, 59, 62}};
    const int melody[] = {76, 74, 72, 74, 76, 76, 76, 0, 74, 74, 74, 0, 76, 79, 79, 0};

    Builder piano{AddTrack(song, 0, "Piano", 0, 100)};
    Builder bass{AddTrack(song, 1, "Bass", 33, 110)};
    Builder drums{AddTrack(song, 9, "Drums", 0, 90)};
    for (int bar = 0; bar < 8; ++bar) {
        const double at = bar * 4.0;
        const int harmony = bar % 4;
        piano.Event(at, Vela_ControllerEvent(64, 127));  // sustain through the bar
        piano.Event(at + 3.9, Vela_ControllerEvent(64, 0));
        piano.Event(at, Vela_ControllerEvent(11, int8_t(70 + bar * 7)));
        for (int pitch : chords[harmony]) piano.Note(at, 1.0, pitch, 70);
        for (int step = 0; step < 8; ++step) {
            const int pitch = melody[(bar % 2) * 8 + step];
            if (pitch) piano.Note(at + step * 0.5, 0.45, pitch, 96 - step * 3);
        }
        for (int beat = 0; beat < 4; ++beat) {
            bass.Note(at + beat, 0.9, roots[harmony] - (beat == 3 ? 5 : 0), 100);
            drums.Note(at + beat, 0.1, beat % 2 ? 38 : 36, 110);  // kick and snare
            drums.Note(at + beat + 0.5, 0.1, 42, 70);           // closed hi-hat
        }
    }
    // A bend up into the last bar, back to the centre.
    for (int step = 0; step <= 8; ++step) bass.Event(27.0 + step * 0.125, Vela_PitchBendEvent(int16_t(step * 512)));
    bass.Event(28.0, Vela_PitchBendEvent(0));
    return song;
}
