// Standard MIDI Files: random songs survive writing and reading exactly, hand-made files read
// as the rules say (running status, pairing, bank folding, channel split, side events), and
// every malformed file throws with the offset of its fault, mutated files never crash.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "RandomSong.h"
#include "Vela_SmfCodec.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes FromHex(const std::string& iHex) {
    Bytes bytes;
    for (size_t i = 0; i + 1 < iHex.size(); ++i) {
        if (iHex[i] == ' ') continue;
        bytes.push_back(static_cast<unsigned char>(std::stoi(iHex.substr(i, 2), nullptr, 16)));
        ++i;
    }
    return bytes;
}

// A format-0 file of division 96 around one track body given in hex.
Bytes OneTrack(const std::string& iBody) {
    const Bytes body = FromHex(iBody);
    Bytes file = FromHex("4D546864 00000006 0000 0001 0060 4D54726B");
    for (int shift = 24; shift >= 0; shift -= 8) file.push_back(static_cast<unsigned char>(body.size() >> shift));
    file.insert(file.end(), body.begin(), body.end());
    return file;
}

// One line per track: "ch<c>:" then its events and side events, times in file ticks.
std::string Describe(const Vela_SmfSong& iSong) {
    std::string text;
    auto ticks = [&](int64_t iTicks) { return std::to_string(Vela_SmfCodec::ToFileTicks(iTicks, iSong.mDivision)); };
    for (const Vela_SmfTrack& track : iSong.mTracks) {
        text += "ch" + std::to_string(track.mChannel) + ":";
        for (const Mdie_TimedEvent& timed : track.mEvents) {
            const Vela_Event& e = timed.GetEvent();
            text += " " + ticks(timed.GetTime().AsInt64()) + "/";
            switch (e.GetType()) {
                case Vela_Event::kNoteWithDuration:
                    text += "note" + std::to_string(e.AsNoteWithDuration().GetPitch()) + "v" +
                            std::to_string(e.AsNoteWithDuration().GetOnVelocity()) + "/" +
                            std::to_string(e.AsNoteWithDuration().GetOffVelocity()) + "len" + ticks(timed.GetDuration().AsInt64());
                    break;
                case Vela_Event::kProgram:
                    text += "prog" + std::to_string(e.AsProgram().GetFullProgram()) + "bank" + std::to_string(e.AsProgram().GetFullBank());
                    break;
                case Vela_Event::kPitchBend: text += "bend" + std::to_string(e.AsPitchBend().GetBendValue()); break;
                case Vela_Event::kController:
                    text += "cc" + std::to_string(e.AsController().GetControllerNumber()) + "=" + std::to_string(e.AsController().GetValue());
                    break;
                case Vela_Event::kSysex: text += "sysex" + std::to_string(e.AsSysex().GetLength()); break;
                default: text += "type" + std::to_string(e.GetType());
            }
        }
        for (const Vela_SmfSideEvent& side : track.mSide)
            text += " " + ticks(side.mTick) + "/side" + std::to_string(side.mKind) + ":" + std::to_string(side.mData.size());
        text += " end" + ticks(track.mEndTick) + "\n";
    }
    if (iSong.mUnmatchedNoteOffs) text += "unmatched " + std::to_string(iSong.mUnmatchedNoteOffs) + "\n";
    return text;
}

TEST(SmfCodec, RandomSongsSurviveWritingAndReadingExactly) {
    for (unsigned seed = 1; seed <= 400; ++seed) {
        std::mt19937 random(seed);
        const Vela_SmfSong song = random_song::Make(random);
        const Bytes file = Vela_SmfCodec::Write(song);
        const Vela_SmfSong back = Vela_SmfCodec::Read(file.data(), file.size());
        ASSERT_EQ(Describe(back), Describe(song)) << "seed " << seed;
        ASSERT_TRUE(back.mTracks == song.mTracks) << "seed " << seed;  // sysex payloads and bank words too
        ASSERT_EQ(Vela_SmfCodec::Write(back), file) << "seed " << seed;
    }
}

TEST(SmfCodec, TicksScaleBackExactlyForEveryDivision) {
    for (int division : {1, 7, 96, 480, 1024, 30000, 32767})
        for (int64_t tick : {int64_t(0), int64_t(1), int64_t(12345), int64_t(1) << 40})
            EXPECT_EQ(Vela_SmfCodec::ToFileTicks(Vela_SmfCodec::ToLibraryTicks(tick, division), division), tick) << division;
}

TEST(SmfCodec, ReadsFilesAsTheRulesSay) {
    const struct {
        const char* mBody;
        const char* mExpected;
    } kCases[] = {
        // Running status; note-on velocity 0 ends with release 64; 8n keeps its velocity.
        {"00 90 3C 64 10 3C 00 00 3E 50 08 80 3E 05 00 FF2F00", "ch0: 0/note60v100/64len16 16/note62v80/5len8 end24\n"},
        // Overlapping notes of one pitch pair first-in-first-out.
        {"00 90 3C 0A 05 3C 14 05 80 3C 01 0A 80 3C 02 00 FF2F00", "ch0: 0/note60v10/1len10 5/note60v20/2len15 end20\n"},
        // Bank select folds into the program of its tick in either order; alone it sends only itself.
        {"00 B0 00 01 00 C0 05 00 B0 20 02 10 B0 00 03 00 FF2F00", "ch0: 0/prog5bank130 16/prog-128bank16768 end16\n"},
        // A note still sounding ends with its track; an unmatched note-off is dropped and counted.
        {"00 80 40 40 00 90 3C 64 30 FF2F00", "ch0: 0/note60v100/64len48 end48\nunmatched 1\n"},
        // Channels split into tracks; metas and sysex stay with the first; channel mode with its channel.
        {"00 FF03 01 41 00 92 3C 64 00 B5 07 64 00 B5 7B 00 01 F0 03 7E 01 F7 01 F0 01 43 00 F7 01 F8 00 82 3C 00 00 FF2F00",
         "ch2: 0/note60v100/0len2 1/sysex2 0/side0:1 2/side2:1 2/side3:1 end2\nch5: 0/cc7=100 0/side1:3 end2\n"},
        // Pitch bend centre and ends; trailing bytes after the end of track are ignored.
        {"00 E0 00 40 01 E0 00 00 01 E0 7F 7F 00 FF2F00 00 90", "ch0: 0/bend0 1/bend-8192 2/bend8191 end2\n"},
        // No end-of-track: the track ends at its last event. An empty track still counts.
        {"05 FF 01 00", "ch0: 5/side0:0 end5\n"},
        {"00 FF2F00", "ch0: end0\n"},
    };
    for (const auto& test : kCases) {
        const Bytes file = OneTrack(test.mBody);
        EXPECT_EQ(Describe(Vela_SmfCodec::Read(file.data(), file.size())), test.mExpected) << test.mBody;
    }
}

TEST(SmfCodec, MalformedFilesNameTheirOffset) {
    const std::string kHeader = "4D546864 00000006 0001 0001 0060 ";
    const struct {
        std::string mHex;
        size_t mOffset;
        const char* mReason;
    } kCases[] = {
        {"52494646 00000006 0001 0001 0060", 0, "not a MIDI file"},
        {"4D546864 00000005 0001 0001 00", 4, "below 6"},
        {"4D546864 00000006 0002 0001 0060", 8, "format 2"},
        {"4D546864 00000006 0001 0001 E728", 12, "time-code"},
        {"4D546864 00000006 0001 0001 0000", 12, "division of 0"},
        {"4D546864 00000006 0000 0002 0060", 10, "format 0 with 2"},
        {"4D546864 00000006 00", 8, "header chunk"},
        {kHeader + "4D54726B 00000010 00 FF2F00", 22, "length 16"},
        {kHeader + "4D54726B 00000008 80808080 00 FF2F00", 22, "more than four bytes"},
        {kHeader + "4D54726B 00000003 00 90 3C", 25, "inside a channel message"},
        {kHeader + "4D54726B 00000006 00 3C 64 00 FF2F", 23, "without a status"},
        {kHeader + "4D54726B 00000005 00 90 3C 90 00", 25, "status byte 0x90 where a data byte"},
        {kHeader + "4D54726B 00000004 00 F8 00 00", 23, "0xF8 is not allowed"},
        {kHeader + "4D54726B 00000005 00 FF 03 05 41", 26, "inside a meta event"},
        {kHeader + "4D54726B 00000004 00 F0 7F 7E", 25, "inside a system-exclusive"},
        {kHeader, 14, "after 0 of 1 tracks"},
        {kHeader + "4D54726B 00000004 00FF2F00 4D54726B 00000004 00FF2F00", 26, "more track chunks"},
        {kHeader + "4D54", 14, "chunk header"},
    };
    for (const auto& test : kCases) {
        const Bytes file = FromHex(test.mHex);
        try {
            Vela_SmfCodec::Read(file.data(), file.size());
            ADD_FAILURE() << "no error for " << test.mHex;
        } catch (const Vela_SmfError& error) {
            EXPECT_EQ(error.GetOffset(), test.mOffset) << test.mHex << ": " << error.what();
            EXPECT_NE(std::string(error.what()).find(test.mReason), std::string::npos) << error.what();
            EXPECT_EQ(std::string(error.what()).rfind("byte " + std::to_string(test.mOffset) + ": ", 0), 0u) << error.what();
        }
    }
}

// Damaged files either read or throw the file error: never anything else, never out of bounds
// (the sanitizer build checks the reads).
TEST(SmfCodec, MutatedFilesReadOrThrowCleanly) {
    std::mt19937 random(7);
    for (int round = 0; round < 3000; ++round) {
        Bytes file = Vela_SmfCodec::Write(random_song::Make(random, 12));
        for (int i = random_song::Pick(random, 1, 4); i > 0 && !file.empty(); --i) {
            const size_t at = static_cast<size_t>(random_song::Pick(random, 0, int(file.size()) - 1));
            if (random_song::Pick(random, 0, 2) == 0) file.resize(at);
            else file[at] = static_cast<unsigned char>(random_song::Pick(random, 0, 255));
        }
        try {
            Vela_SmfCodec::Read(file.data(), file.size());
        } catch (const Vela_SmfError&) {
        }
    }
}

}  // namespace
