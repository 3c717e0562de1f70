// Songs: random songs keep every event through chunks and the document file; damaged documents
// throw and never crash; real files survive import and export as Debian's midicsv lists them;
// seconds and bars follow the tempo and time-signature metas.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <unistd.h>

#include "Cmn_Exception.h"
#include "RandomSong.h"
#include "StreamValues.h"
#include "Vela_Song.h"

namespace {

// Each track's events as sorted text, so that orders of equal times do not matter.
std::vector<std::vector<std::string>> Canonical(const Vela_SmfSong& iSong) {
    std::vector<std::vector<std::string>> tracks;
    for (const Vela_SmfTrack& track : iSong.mTracks) {
        std::vector<std::string> lines;
        for (const Mdie_TimedEvent& timed : track.mEvents) {
            std::string line = std::to_string(timed.GetTime().AsInt64()) + " " + std::to_string(timed.GetEvent().GetType());
            const Vela_Event& event = timed.GetEvent();
            if (timed.IsNoteWithDurationEvent()) {
                const auto& note = event.AsNoteWithDuration();
                line += " " + std::to_string(note.GetPitch()) + " " + std::to_string(note.GetOnVelocity()) + " " +
                        std::to_string(note.GetOffVelocity()) + " " + std::to_string(timed.GetDuration().AsInt64());
            }
            for (int m = 0; m < event.GetNumMessages(); ++m) {
                std::vector<signed char> bytes(static_cast<size_t>(event.GetMessageLength(m)));
                event.GetMessageData(bytes.data(), m);
                for (signed char byte : bytes) line += " " + std::to_string(static_cast<unsigned char>(byte));
            }
            lines.push_back(line);
        }
        std::sort(lines.begin(), lines.end());
        tracks.push_back(lines);
    }
    return tracks;
}

Vela_Song ReadDocument(const std::vector<uint8_t>& iBytes) {
    Sys_MemoryInStream in(iBytes.data(), iBytes.size());
    return Vela_Song::StreamIn(in);
}

TEST(Song, RandomSongsKeepEveryEventThroughChunksAndDocuments) {
    for (unsigned seed = 1; seed <= 150; ++seed) {
        std::mt19937 random(seed);
        const Vela_SmfSong smf = random_song::Make(random);
        const Vela_Song back = ReadDocument(StreamedBytes(Vela_Song::FromSmf(smf)));
        const Vela_SmfSong out = back.ToSmf();
        ASSERT_EQ(Canonical(out), Canonical(smf)) << "seed " << seed;
        ASSERT_EQ(out.mDivision, smf.mDivision);
        for (size_t t = 0; t < smf.mTracks.size(); ++t) {
            ASSERT_EQ(out.mTracks[t].mSide, smf.mTracks[t].mSide) << "seed " << seed;
            ASSERT_EQ(out.mTracks[t].mEndTick, smf.mTracks[t].mEndTick);
            ASSERT_EQ(out.mTracks[t].mChannel, smf.mTracks[t].mChannel);
            ASSERT_EQ(out.mTracks[t].mFileTrack, smf.mTracks[t].mFileTrack);
        }
    }
}

TEST(Song, DamagedDocumentsThrowTheLibrarysErrors) {
    std::mt19937 random(3);
    const std::vector<uint8_t> good = StreamedBytes(Vela_Song::FromSmf(random_song::Make(random, 12)));
    for (int round = 0; round < 2000; ++round) {
        std::vector<uint8_t> bytes = good;
        if (round % 3 == 0) bytes.resize(static_cast<size_t>(random_song::Pick(random, 0, int(bytes.size()) - 1)));
        else
            for (int i = random_song::Pick(random, 1, 3); i > 0; --i)
                bytes[static_cast<size_t>(random_song::Pick(random, 0, int(bytes.size()) - 1))] ^= static_cast<uint8_t>(random_song::Pick(random, 1, 255));
        try {
            ReadDocument(bytes);
        } catch (const Cmn_Exception&) {
        }
    }
}

TEST(Song, SecondsAndBarsFollowTheMetas) {
    Vela_SmfSong smf;
    smf.mTracks.emplace_back();
    const int64_t q = Time_cTicksPerQuarter;
    smf.mTracks[0].mSide = {{2 * q, Vela_SmfSideEvent::kMeta, 0x51, std::string("\x0F\x42\x40", 3)},  // 60 BPM from beat 2
                            {4 * q, Vela_SmfSideEvent::kMeta, 0x58, std::string("\x03\x02\x18\x08", 4)}};  // 3/4 from bar 1
    const Vela_Song song = Vela_Song::FromSmf(smf);
    EXPECT_DOUBLE_EQ(song.GetSeconds(2 * q), 1.0);
    EXPECT_DOUBLE_EQ(song.GetSeconds(5 * q), 4.0);
    EXPECT_EQ(song.GetTempoAt(2 * q - 1), Vela_Song::kDefaultTempo);  // in force, not an average
    EXPECT_EQ(song.GetTempoAt(2 * q), 1000000);
    EXPECT_DOUBLE_EQ(song.GetBars(4 * q), 1.0);
    EXPECT_DOUBLE_EQ(song.GetBars(10 * q), 3.0);
    for (int64_t tick : {int64_t(0), 3 * q, 4 * q, 10 * q + 7})
        EXPECT_EQ(song.GetTickAtBars(song.GetBars(tick)), tick);
}

// midicsv's listing as sorted "track, tick, event" lines: orders at one tick, running status and
// the two forms of a note-off of velocity 64 do not count.
std::vector<std::string> Listing(const std::string& iPath) {
    std::vector<std::string> listing;
    FILE* pipe = popen(("midicsv '" + iPath + "' 2>/dev/null").c_str(), "r");
    char line[4096];
    while (pipe && std::fgets(line, sizeof line, pipe)) {
        int track = 0, channel = 0, pitch = 0, velocity = 0, at = 0;
        long tick = 0;
        if (std::sscanf(line, "%d, %ld, %n", &track, &tick, &at) != 2 || at == 0) continue;
        std::string text(line, std::strcspn(line, "\n"));
        if (std::sscanf(line + at, "Note_on_c, %d, %d, %d", &channel, &pitch, &velocity) == 3 && velocity == 0)
            text = text.substr(0, size_t(at)) + "Note_off_c, " + std::to_string(channel) + ", " + std::to_string(pitch) + ", 64";
        if (text.compare(size_t(at), 6, "Header") == 0) text = text.substr(text.find(',', size_t(at) + 8));  // the format may differ
        listing.push_back(std::move(text));
    }
    if (pipe) pclose(pipe);
    std::sort(listing.begin(), listing.end());
    return listing;
}

std::vector<unsigned char> ReadFile(const std::string& iPath) {
    std::ifstream file(iPath, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(file), {});
}

TEST(Song, RealFilesSurviveImportAndExport) {
    const std::filesystem::path folder = "/usr/share/planetblupi/music";
    if (!std::filesystem::is_directory(folder) || std::system("midicsv -u >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "planetblupi-music-midi or midicsv is not installed (scripts/install-deps.sh installs both)";
    // One file per process: two builds' suites may run at once.
    const std::string exported = testing::TempDir() + "vela_roundtrip_" + std::to_string(getpid()) + ".mid";
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const std::vector<unsigned char> original = ReadFile(entry.path().string());
        const Vela_SmfSong smf = Vela_SmfCodec::Read(original.data(), original.size());
        const Vela_SmfSong once = Vela_Song::FromSmf(smf).ToSmf();
        const std::vector<unsigned char> bytes = Vela_SmfCodec::Write(once);
        const Vela_SmfSong twice = Vela_Song::FromSmf(Vela_SmfCodec::Read(bytes.data(), bytes.size())).ToSmf();
        EXPECT_EQ(Canonical(twice), Canonical(once)) << entry.path();
        FILE* out = std::fopen(exported.c_str(), "wb");
        ASSERT_TRUE(out);
        std::fwrite(bytes.data(), 1, bytes.size(), out);
        std::fclose(out);
        EXPECT_EQ(Listing(exported), Listing(entry.path().string())) << entry.path();
        ++files;
    }
    EXPECT_GT(files, 0);
    std::remove(exported.c_str());
}

}  // namespace
