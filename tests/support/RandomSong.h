// Random songs in the shape the file reader produces them (so reading their file gives the same
// song back): notes of one pitch paired first-in-first-out, one program per channel and tick,
// controllers outside bank select and channel mode, sysex and metas in the first track of a file
// track, whose first channel event comes first. Times lie on the grid of a random division.
#pragma once

#include <algorithm>
#include <random>

#include "Mdie_SubStream.h"
#include "Vela_Event.h"
#include "Vela_SmfCodec.h"

namespace random_song {

inline int Pick(std::mt19937& ioRandom, int iLow, int iHigh) {
    return std::uniform_int_distribution<int>(iLow, iHigh)(ioRandom);
}

inline Vela_SmfSong Make(std::mt19937& ioRandom, int iMaxNotes = 40) {
    static const int kDivisions[] = {1, 3, 96, 120, 384, 480, 960, 1000, 1024, 32767};
    Vela_SmfSong song;
    song.mDivision = kDivisions[Pick(ioRandom, 0, 9)];
    auto tick = [&](int iFileTick) { return Vela_SmfCodec::ToLibraryTicks(iFileTick, song.mDivision); };
    auto at = [&](int iFileTick) { return Time_Typed(tick(iFileTick), kTime_Ticks); };
    const int length = Pick(ioRandom, 3, 40);  // file ticks; the grid is coarse, so ties are common
    const int fileTracks = Pick(ioRandom, 1, 3);
    for (int fileTrack = 0; fileTrack < fileTracks; ++fileTrack) {
        const bool conductor = fileTrack == 0 && Pick(ioRandom, 0, 1) == 0;
        const int channels = conductor ? 1 : Pick(ioRandom, 1, 3);
        const int firstChannel = conductor ? 0 : Pick(ioRandom, 0, 13);
        const size_t first = song.mTracks.size();
        for (int piece = 0; piece < channels; ++piece) {
            Vela_SmfTrack track;
            track.mFileTrack = fileTrack;
            track.mChannel = firstChannel + piece;
            track.mEndTick = tick(length);
            // Track k of a file track starts at tick k with an event, so the tracks are read in order.
            const int from = piece;
            // One value per sub-stream and tick (the reader keeps the ones a later value replaces aside).
            auto addValue = [&](int iWhen, const Vela_Event& iEvent) {
                const bool taken = std::any_of(track.mEvents.begin(), track.mEvents.end(), [&](const Mdie_TimedEvent& iE) {
                    return iE.GetEvent().GetType() == iEvent.GetType() && iE.GetTime() == at(iWhen) &&
                           Mdie_SubStream(iE.GetEvent()).GetIndex() == Mdie_SubStream(iEvent).GetIndex();
                });
                if (!taken) track.mEvents.emplace_back(at(iWhen), iEvent);
            };
            if (!conductor && piece == 0) track.mEvents.emplace_back(at(0), Vela_ProgramEvent(int8_t(Pick(ioRandom, 0, 127)), 0));
            if (piece > 0) addValue(piece, Vela_ControllerEvent(7, int8_t(Pick(ioRandom, 0, 127))));
            for (int i = conductor ? 0 : Pick(ioRandom, 0, 15); i > 0; --i) {
                const int when = Pick(ioRandom, from, length);
                switch (Pick(ioRandom, 0, 5)) {
                    case 0: addValue(when, Vela_ControllerEvent(int8_t(Pick(ioRandom, 0, 3) == 0 ? 64 : Pick(ioRandom, 1, 31)), int8_t(Pick(ioRandom, 0, 127)))); break;
                    case 1: addValue(when, Vela_PitchBendEvent(int16_t(Pick(ioRandom, -8192, 8191)))); break;
                    case 2: addValue(when, Vela_MonoPressureEvent(int8_t(Pick(ioRandom, 0, 127)))); break;
                    case 3: addValue(when, Vela_PolyPressureEvent(int8_t(Pick(ioRandom, 0, 127)), int8_t(Pick(ioRandom, 0, 127)))); break;
                    case 4: {  // any parts enabled but not none
                        Vela_ProgramEvent program(int8_t(Pick(ioRandom, 0, 127)), int16_t(Pick(ioRandom, 0, 0x3FFF)));
                        const int parts = Pick(ioRandom, 1, 7);
                        // A disabled part is never sent, so its value reads back as 0.
                        if (!(parts & 1)) program.SetProgram(0);
                        if (!(parts & 2)) program.SetMSBBank(0);
                        if (!(parts & 4)) program.SetLSBBank(0);
                        program.SetProgramEnable(parts & 1);
                        program.SetMSBBankEnable(parts & 2);
                        program.SetLSBBankEnable(parts & 4);
                        addValue(when, program);
                        break;
                    }
                    default:
                        track.mSide.push_back({tick(when), Vela_SmfSideEvent::kChannelMessage, 0,
                                               {char(0xB0 | track.mChannel), char(Pick(ioRandom, 120, 127)), 0}});
                }
            }
            // Notes paired as the reader pairs them: per pitch, sorted starts with sorted ends.
            const int notes = conductor ? 0 : Pick(ioRandom, 0, iMaxNotes);
            for (int pitch = 58; pitch < 64; ++pitch) {
                std::vector<int> starts, ends;
                for (int i = 0; i < notes / 6; ++i) {
                    const int start = Pick(ioRandom, from, length);
                    starts.push_back(start);
                    ends.push_back(Pick(ioRandom, start, length));
                }
                std::sort(starts.begin(), starts.end());
                std::sort(ends.begin(), ends.end());
                for (size_t i = 0; i < starts.size(); ++i)
                    track.mEvents.emplace_back(
                        at(starts[i]), Vela_NoteWithDurationEvent(int8_t(pitch), Time_TypedLength(tick(ends[i]) - tick(starts[i]), kTime_Ticks),
                                                                  int8_t(Pick(ioRandom, 1, 127)), int8_t(Pick(ioRandom, 0, 127))));
            }
            song.mTracks.push_back(std::move(track));
        }
        // Metas and sysex live in the first track of the file track.
        Vela_SmfTrack& main = song.mTracks[first];
        main.mSide.push_back({0, Vela_SmfSideEvent::kMeta, 0x03, "track " + std::to_string(fileTrack)});
        if (conductor) main.mSide.push_back({0, Vela_SmfSideEvent::kMeta, 0x51, std::string("\x07\xA1\x20", 3)});
        for (int i = Pick(ioRandom, 0, 3); i > 0; --i) {
            std::vector<unsigned char> payload(static_cast<size_t>(Pick(ioRandom, 0, 30)));
            for (unsigned char& byte : payload) byte = static_cast<unsigned char>(Pick(ioRandom, 0, 127));
            main.mEvents.emplace_back(at(Pick(ioRandom, 0, length)), Vela_SysexEvent(int(payload.size()), payload.data()));
        }
        if (Pick(ioRandom, 0, 3) == 0) main.mSide.push_back({tick(Pick(ioRandom, 0, length)), Vela_SmfSideEvent::kEscape, 0, "\xF8"});
        if (Pick(ioRandom, 0, 3) == 0) main.mSide.push_back({tick(Pick(ioRandom, 0, length)), Vela_SmfSideEvent::kSysexPart, 0, "\x43\x12"});
        for (size_t i = first; i < song.mTracks.size(); ++i) Vela_SmfCodec::PutInReadingOrder(song.mTracks[i]);
    }
    return song;
}

}  // namespace random_song
