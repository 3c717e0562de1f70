// The return-to-rest auditor: random songs played by random transport scripts (start, run,
// locate both ways, loops, stop, restart), judged only by the bytes on the wire against a plain
// model of the song: after a stop nothing sounds and sustain and pitch bend are at rest; after
// a start or locate the chased values on the wire are those in force in the song there and the
// sounding notes are exactly those that span the position (none without restrike); no note-off
// ever ends a note that is not sounding; output times never go back.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

#include "Mem2_MasterAllocator.h"
#include "RandomSong.h"
#include "Vela_ReferencePlayer.h"

namespace {

constexpr int kUnknown = -1;

// What a receiving instrument holds, per channel, from the bytes alone.
struct Wire : Vela_PlayerOutput {
    std::multiset<int> mSounding[16];
    std::map<int, int> mControllers[16];
    std::map<int, int> mBend, mPressure, mProgram;  // by channel; absent while unknown
    int64_t mLastTime = 0;
    std::string mFault;
    std::string mLog;  // the script and the bytes, shown on failure

    void Send(int64_t iOutputTick, int64_t iSongTick, const unsigned char* iBytes, int iLength) override {
        if (iOutputTick < mLastTime) mFault += "time went back; ";
        char text[64];
        std::snprintf(text, sizeof text, " %lld:%02X.%02X.%02X", (long long)iSongTick, iBytes[0], iLength > 1 ? iBytes[1] : 0, iLength > 2 ? iBytes[2] : 0);
        mLog += text;
        mLastTime = iOutputTick;
        const int kind = iBytes[0] >> 4, channel = iBytes[0] & 0x0F;
        if (kind == 0x9 && iLength == 3 && iBytes[2] != 0) {
            mSounding[channel].insert(iBytes[1]);
        } else if (kind == 0x8 || kind == 0x9) {
            const auto found = mSounding[channel].find(iBytes[1]);
            if (found == mSounding[channel].end()) mFault += "note-off of a silent note; ";
            else mSounding[channel].erase(found);
        } else if (kind == 0xB) {
            mControllers[channel][iBytes[1]] = iBytes[2];
        } else if (kind == 0xE) {
            mBend[channel] = iBytes[1] | (iBytes[2] << 7);
        } else if (kind == 0xD) {
            mPressure[channel] = iBytes[1];
        } else if (kind == 0xC) {
            mProgram[channel] = iBytes[1];
        }
    }
};

// Compares the wire with the song at a position; "" when they agree.
std::string Audit(const Vela_SmfSong& iSong, const Wire& iWire, int64_t iAt, bool iNotes) {
    std::string fault;
    for (const Vela_SmfTrack& track : iSong.mTracks) {
        const int channel = track.mChannel;
        std::map<int, int> controllers;
        int bend = kUnknown, pressure = kUnknown;
        const Vela_Event* program = nullptr;
        std::multiset<int> sounding;
        for (const Mdie_TimedEvent& timed : track.mEvents) {
            const int64_t time = timed.GetTime().AsInt64();
            const Vela_Event& event = timed.GetEvent();
            if (event.GetType() == Vela_Event::kNoteWithDuration) {
                if (time < iAt && (timed.GetTime() + timed.GetDuration()).AsInt64() > iAt) sounding.insert(event.AsNoteWithDuration().GetPitch());
                continue;
            }
            if (time > iAt) continue;
            switch (event.GetType()) {
                case Vela_Event::kController: controllers[event.AsController().GetControllerNumber()] = event.AsController().GetValue(); break;
                case Vela_Event::kPitchBend: bend = event.AsPitchBend().GetBendValue() + 8192; break;
                case Vela_Event::kMonoPressure: pressure = event.AsMonoPressure().GetPressure(); break;
                case Vela_Event::kProgram: program = &event; break;
                default: break;
            }
        }
        const std::string where = " on channel " + std::to_string(channel) + "; ";
        for (const auto& [number, value] : controllers) {
            const auto found = iWire.mControllers[channel].find(number);
            if (found == iWire.mControllers[channel].end() || found->second != value)
                fault += "controller " + std::to_string(number) + " not " + std::to_string(value) + where;
        }
        auto held = [&](const std::map<int, int>& iValues) { return iValues.count(channel) ? iValues.at(channel) : kUnknown; };
        if (bend != kUnknown && held(iWire.mBend) != bend) fault += "pitch bend" + where;
        if (pressure != kUnknown && held(iWire.mPressure) != pressure) fault += "pressure" + where;
        if (program && program->AsProgram().IsProgramEnabled() && held(iWire.mProgram) != program->AsProgram().GetProgram())
            fault += "program" + where;
        if (program && program->AsProgram().IsMSBBankEnabled() &&
            iWire.mControllers[channel].count(0) && iWire.mControllers[channel].at(0) != program->AsProgram().GetMSBBank())
            fault += "bank" + where;
        if (iNotes && iWire.mSounding[channel] != sounding) fault += "sounding notes" + where;
    }
    return fault;
}

std::string AuditRest(const Wire& iWire) {
    std::string fault;
    for (int channel = 0; channel < 16; ++channel) {
        if (!iWire.mSounding[channel].empty()) fault += "notes left sounding; ";
        const auto sustain = iWire.mControllers[channel].find(64);
        if (sustain != iWire.mControllers[channel].end() && sustain->second != 0) fault += "sustain left down; ";
        if (iWire.mBend.count(channel) && iWire.mBend.at(channel) != 8192) fault += "pitch bend not centred; ";
    }
    return fault;
}

TEST(ReferencePlayer, EveryScriptReturnsToRest) {
    Mem2_MasterAllocator allocator;
    Mdie_NoteInProgress::SetAllocator(&allocator);
    int locates = 0, stops = 0;
    for (unsigned seed = 1; seed <= 2500; ++seed) {
        std::mt19937 random(seed);
        Vela_SmfSong smf = random_song::Make(random, 18);
        for (size_t i = 0; i < smf.mTracks.size(); ++i) smf.mTracks[i].mChannel = int(i);  // one track per channel
        const Vela_Song song = Vela_Song::FromSmf(smf);
        const int64_t length = std::max<int64_t>(song.GetLength(), 1);
        auto position = [&] { return std::uniform_int_distribution<int64_t>(0, length + length / 8)(random); };
        Wire wire;
        Vela_ReferencePlayer player(song, wire, random_song::Pick(random, 0, 1) ? length / 16 + 1 : Vela_ReferencePlayer::kDefaultBlockTicks);
        const bool restrike = random_song::Pick(random, 0, 1);
        player.SetRestrike(restrike);
        for (int step = 0; step < 25; ++step) {
            std::string fault;
            const int op = random_song::Pick(random, 0, 9);
            wire.mLog += "\n[step " + std::to_string(step) + " at " + std::to_string(player.GetPosition()) + "] op" + std::to_string(op);
            if (op < 2 && !player.IsPlaying()) {
                player.Start();
                fault = Audit(smf, wire, player.GetPosition(), restrike);
            } else if (op == 2) {
                player.Stop();
                fault = AuditRest(wire);
                ++stops;
            } else if (op == 3 || op == 4) {
                const bool playing = player.IsPlaying();
                player.Locate(position());
                if (playing) fault = Audit(smf, wire, player.GetPosition(), restrike);
                ++locates;
            } else if (op == 5) {
                const int64_t a = position(), b = position();
                player.SetLoop(std::min(a, b), std::max(a, b));
            } else if (op > 5) {
                player.Run(std::uniform_int_distribution<int64_t>(1, length / 3 + 1)(random));
            }
            ASSERT_EQ(fault + wire.mFault, "") << "seed " << seed << " step " << step << wire.mLog;
        }
        player.Stop();
        ASSERT_EQ(AuditRest(wire) + wire.mFault, "") << "seed " << seed;
    }
    EXPECT_GT(locates, 5000);
    EXPECT_GT(stops, 2500);
    Mdie_NoteInProgress::SetAllocator(nullptr);
}

}  // namespace

// What the song plays goes out even when it repeats the value the output holds (a data
// increment, say); only chase and release output leaves repeats out. (Times inside a block: a
// range query itself leaves out a value at its start that the tracker holds.)
TEST(ReferencePlayer, TheSongsOwnRepeatsAreSent) {
    Mem2_MasterAllocator allocator;
    Mdie_NoteInProgress::SetAllocator(&allocator);
    const int64_t q = Time_cTicksPerQuarter;
    Vela_SmfSong smf;
    smf.mTracks.emplace_back().mEndTick = 4 * q;
    for (int64_t at : {int64_t(0), q + 7, 2 * q + 7}) smf.mTracks[0].mEvents.emplace_back(Time_Typed(at, kTime_Ticks), Vela_ControllerEvent(96, 0));
    const Vela_Song song = Vela_Song::FromSmf(smf);
    Wire wire;
    Vela_ReferencePlayer player(song, wire);
    player.Start();
    player.Run(3 * q);
    EXPECT_EQ(wire.mLog, " 0:B0.01.00 0:B0.60.00 " + std::to_string(q + 7) + ":B0.60.00 " + std::to_string(2 * q + 7) + ":B0.60.00");
    Mdie_NoteInProgress::SetAllocator(nullptr);
}
