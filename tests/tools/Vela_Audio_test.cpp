// The real-time output and the renderer, driven by a small frame-timed player: the JACK client
// against a private dummy-driver server and a capturing client, the synthesizer's output
// against the song's silences and notes, and the lock-free pieces against plain oracles.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <deque>
#include <fstream>
#include <map>
#include <mutex>
#include <random>
#include <thread>

#include "AllocCounter.h"
#include "Vela_AudioRender.h"
#include "Demo.h"
#include "Mem2_MasterAllocator.h"
#include "RandomSong.h"
#include "Vela_JackOutput.h"
#include "Vela_Init.h"
#include "Vela_SongBlockPlayer.h"

namespace {

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VELA_SANITIZED 1
#endif
#endif
#if !defined(VELA_SANITIZED) && !defined(__SANITIZE_ADDRESS__) && defined(__x86_64__) && defined(__GLIBC__)
#define VELA_COUNT_LOCKS 1
// Locks taken on this thread, counted by standing in for the C library's mutex lock, which
// stays reachable under its internal name. The sanitizers intercept that lock themselves, so
// their builds count nothing and the ordinary build does the proving.
thread_local uint64_t tLocks = 0;
extern "C" int VelaLibcMutexLock(pthread_mutex_t* iMutexP);
__asm__(".symver VelaLibcMutexLock,__pthread_mutex_lock@GLIBC_2.2.5");
uint64_t ThreadLocks() { return tLocks; }
#else
#define VELA_COUNT_LOCKS 0
uint64_t ThreadLocks() { return 0; }
#endif
uint64_t ThreadAllocations() { return AllocCounterThreadTotal(); }

using Bytes = std::vector<unsigned char>;
struct Timed {
    int64_t mFrame;
    Bytes mBytes;
    bool operator==(const Timed&) const = default;
};

// The song player's output run offline in periods, with the commands where the output applied
// them; frames count from the output's start.
std::vector<Timed> PlayOffline(const Vela_Song& iSong, const std::vector<Vela_AppliedCommand>& iCommands, int64_t iFrames,
                               uint32_t iPeriod, uint32_t iRate) {
    Vela_SongBlockPlayer player(iSong, iRate, iPeriod);
    Vela_MidiBlock block(1 << 14, 1 << 18);
    std::vector<Timed> messages;
    size_t next = 0;
    Vela_PlayBlocks(player, block, iCommands, next, 0, iFrames, iPeriod, [&](int64_t iFrame, uint32_t, const Vela_MidiBlock& iBlock) {
        for (size_t i = 0; i < iBlock.GetSize(); ++i)
            messages.push_back({iFrame + iBlock.GetFrame(i), {iBlock.GetBytes(i), iBlock.GetBytes(i) + iBlock.GetLength(i)}});
    });
    return messages;
}

// 16 tracks of notes and controllers, iEvents in all, over iQuarters quarters.
Vela_Song DenseSong(int iEvents, int iQuarters) {
    Vela_SmfSong smf;
    std::mt19937 random(5);
    for (int channel = 0; channel < 16; ++channel) {
        Vela_SmfTrack& track = smf.mTracks.emplace_back();
        track.mChannel = channel;
        track.mFileTrack = channel;
        track.mEndTick = int64_t{iQuarters} * Time_cTicksPerQuarter;
        for (int i = 0; i < iEvents / 16; ++i) {
            const Time_Typed at(int64_t(random() % uint32_t(iQuarters * 96)) * Time_cTicksPerQuarter / 96, kTime_Ticks);
            if (i % 2) track.mEvents.emplace_back(at, Vela_ControllerEvent(int8_t(1 + i % 30), int8_t(random() % 128)));
            else track.mEvents.emplace_back(at, Vela_NoteWithDurationEvent(int8_t(24 + random() % 80), Time_TypedLength(Time_cTicksPerQuarter / 4, kTime_Ticks), 90, 64));
        }
        Vela_SmfCodec::PutInReadingOrder(track);
    }
    return Vela_Song::FromSmf(smf);
}

// The note-in-progress pool the song player tracks its notes in.
struct NotePool {
    Mem2_MasterAllocator mAllocator{8u << 20};
    NotePool() { Mdie_NoteInProgress::SetAllocator(&mAllocator); }
    ~NotePool() { Mdie_NoteInProgress::SetAllocator(nullptr); }
};

// A private JACK server on the dummy driver, stopped when the test ends however it ends (the
// child dies with the test process too).
class JackServer {
public:
    explicit JackServer(uint32_t iPeriod) : mName("vela-test-" + std::to_string(getpid())) {
        if (!VELA_HAVE_JACK) return;
        setenv("JACK_NO_AUDIO_RESERVATION", "1", 1);
        const std::string period = std::to_string(iPeriod);
        mPid = fork();
        if (mPid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const int null = open("/dev/null", O_WRONLY);
            dup2(null, 1), dup2(null, 2);
            execlp("jackd", "jackd", "--no-realtime", "-n", mName.c_str(), "-d", "dummy", "-r", "48000", "-p", period.c_str(),
                   static_cast<char*>(nullptr));
            _exit(127);
        }
        for (int i = 0; i < 100 && !mUp; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            try {
                Vela_JackCapture probe({.mServer = mName, .mClientName = "probe"});
                mUp = true;
            } catch (const std::exception&) {
                if (waitpid(mPid, nullptr, WNOHANG) == mPid) mPid = -1;
                if (mPid < 0) break;
            }
        }
    }
    ~JackServer() {
        if (mPid <= 0) return;
        kill(mPid, SIGTERM);
        for (int i = 0; i < 60; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(50)))
            if (waitpid(mPid, nullptr, WNOHANG) == mPid) return;
        kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
    }
    bool IsUp() const { return mUp; }
    const std::string& GetName() const { return mName; }

private:
    std::string mName;
    pid_t mPid = -1;
    bool mUp = false;
};

#define SKIP_WITHOUT_JACK(server)                                                             \
    if (!VELA_HAVE_JACK) GTEST_SKIP() << "built without JACK";                               \
    if (!(server).IsUp()) GTEST_SKIP() << "a JACK server (jackd -d dummy) could not start here"

// What the messages leave sounding: notes per channel and pitch, sustain and pitch bend.
struct OutputState {
    std::multiset<int> mNotes;
    std::map<int, int> mSustain, mBend;
    void Take(const Bytes& iBytes) {
        const int kind = iBytes[0] & 0xF0, channel = iBytes[0] & 0x0F;
        if (kind == 0x90 && iBytes[2] > 0) mNotes.insert(channel * 128 + iBytes[1]);
        if (kind == 0x80 || (kind == 0x90 && iBytes[2] == 0)) mNotes.erase(channel * 128 + iBytes[1]);
        if (kind == 0xB0 && iBytes[1] == 64) mSustain[channel] = iBytes[2];
        if (kind == 0xE0) mBend[channel] = iBytes[1] | iBytes[2] << 7;
    }
    bool AtRest() const {
        return mNotes.empty() && std::all_of(mSustain.begin(), mSustain.end(), [](auto& s) { return s.second < 64; }) &&
               std::all_of(mBend.begin(), mBend.end(), [](auto& b) { return b.second == 8192; });
    }
};

}  // namespace

#if VELA_COUNT_LOCKS
extern "C" int pthread_mutex_lock(pthread_mutex_t* iMutexP) {
    ++tLocks;
    return VelaLibcMutexLock(iMutexP);
}
#endif

TEST(SpscQueue, ThreadsHandOverEveryValueInOrder) {
    Vela_SpscQueue<uint64_t> queue(100);
    EXPECT_EQ(queue.GetCapacity(), 128u);
    uint64_t value = 0;
    for (uint64_t i = 0; i < 128; ++i) ASSERT_TRUE(queue.Push(i));
    EXPECT_FALSE(queue.Push(128));
    for (uint64_t i = 0; i < 128; ++i) ASSERT_TRUE(queue.Pop(value) && value == i);
    EXPECT_FALSE(queue.Pop(value));

    constexpr uint64_t kCount = 100000;
    std::thread producer([&] {
        std::mt19937_64 random(7);
        for (uint64_t i = 0; i < kCount; ++i)
            for (const uint64_t next = random(); !queue.Push(next);) std::this_thread::yield();
    });
    std::mt19937_64 oracle(7);
    uint64_t mismatches = 0;
    for (uint64_t i = 0; i < kCount;) {
        if (queue.Pop(value)) mismatches += value != oracle(), ++i;
        else std::this_thread::yield();
    }
    producer.join();
    EXPECT_EQ(mismatches, 0u);
}

TEST(CallbackTimer, PercentilesAreNearestRanksOfTheKeptSamples) {
    std::mt19937 random(3);
    for (size_t count : {1, 2, 99, 100, 101, 1000}) {
        Vela_CallbackTimer timer(count);
        std::vector<uint64_t> samples(count);
        for (auto& sample : samples) timer.Record(sample = random() % 100000);
        std::sort(samples.begin(), samples.end());
        const auto summary = timer.Summarize();
        EXPECT_EQ(summary.mCount, count);
        EXPECT_EQ(summary.mMinNs, samples.front());
        EXPECT_EQ(summary.mMaxNs, samples.back());
        EXPECT_EQ(summary.mMedianNs, samples[(count + 1) / 2 - 1]) << count;
        EXPECT_EQ(summary.mP99Ns, samples[(99 * count + 99) / 100 - 1]) << count;
    }
}

TEST(MidiBlock, KeepsFramesInOrderAndCountsWhatDoesNotFit) {
    Vela_MidiBlock block(3, 5);
    const unsigned char bytes[] = {0x90, 60, 100};
    EXPECT_TRUE(block.Add(10, bytes, 3));
    EXPECT_TRUE(block.Add(4, bytes, 1));   // earlier than the previous: moved up to it
    EXPECT_FALSE(block.Add(12, bytes, 3)); // too many bytes
    EXPECT_FALSE(block.Add(12, bytes, 0));
    EXPECT_TRUE(block.Add(12, bytes, 1));
    EXPECT_FALSE(block.Add(13, bytes, 1)); // too many messages
    ASSERT_EQ(block.GetSize(), 3u);
    EXPECT_EQ(block.GetFrame(1), 10u);
    EXPECT_EQ(block.GetBytes(2)[0], 0x90);
    EXPECT_EQ(block.GetDropped(), 3u);
}

// Plays iSong through a real server from iFrom, with iScript's commands (and waits in
// milliseconds between them), and captures it with a second client.
struct JackRun {
    std::vector<Timed> mCaptured, mExpected;
    uint64_t mAllocations = 0, mLocks = 0, mDropped = 0, mXruns = 0;
    Vela_TimingSummary mTiming;
    std::string mTimingText;
};
JackRun PlayThroughJack(const JackServer& iServer, const Vela_Song& iSong, uint32_t iPeriod,
                        const std::vector<std::pair<int, Vela_TransportCommand>>& iScript) {
    JackRun run;
    Vela_SongBlockPlayer player(iSong, 48000, iPeriod);
    Vela_JackCapture capture({.mServer = iServer.GetName(), .mClientName = "capture", .mMaxMessages = 1 << 18, .mMaxBytes = 1 << 22});
    Vela_JackOutput output(player, {.mServer = iServer.GetName()});
    output.SetProbes(&ThreadAllocations, &ThreadLocks);
    capture.Activate();
    output.Activate();
    output.Connect(capture.GetPortName());
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // the connection reaches the graph a cycle or two later
    for (const auto& [waitMs, command] : iScript) {
        std::this_thread::sleep_for(std::chrono::milliseconds(waitMs));
        output.Send(command);
    }
    output.Finish();
    capture.Deactivate();
    // Server time to output frame: the output's cycle that began at or before the message.
    const auto cycles = output.GetCycleFrameTimes();
    for (auto& message : capture.GetMessages()) {
        auto cycle = std::upper_bound(cycles.begin(), cycles.end(), message.mFrameTime,
                                      [](uint32_t iTime, uint32_t iStart) { return int32_t(iTime - iStart) < 0; });
        if (cycle == cycles.begin()) continue;  // before the output's first cycle
        --cycle;
        run.mCaptured.push_back({(cycle - cycles.begin()) * int64_t{iPeriod} + (message.mFrameTime - *cycle), message.mBytes});
    }
    run.mExpected = PlayOffline(iSong, output.GetAppliedCommands(), output.GetFrames(), iPeriod, 48000);
    run.mAllocations = output.GetAllocations();
    run.mLocks = output.GetLocks();
    run.mDropped = output.GetDropped() + capture.GetDropped();
    run.mXruns = output.GetXruns() + capture.GetXruns();
    run.mTiming = output.GetTimer().Summarize();
    EXPECT_EQ(run.mTiming.mCount, uint64_t(output.GetFrames() / iPeriod));
    run.mTimingText = output.DescribeTimes();
    return run;
}

// A random song with notes, controllers, programs, pitch bend and sysex through a real server:
// the captured bytes and frames equal the same player run offline with the commands at the
// blocks where the callback applied them, after the stop all is at rest, and the callback
// neither allocated nor locked.
TEST(JackOutput, PlaysWhatTheOfflinePlayerPlaysAndEndsAtRest) {
    JackServer server(256);
    SKIP_WITHOUT_JACK(server);
    NotePool pool;
    std::mt19937 random(11);
    const Vela_Song song = Vela_Song::FromSmf(random_song::Make(random, 200));
    const int64_t length = song.GetLength();
    using C = Vela_TransportCommand;
    // A server that ran late (a loaded machine, no real-time threads here) may have lost a
    // cycle's messages between the clients: such a run is played again, up to three times.
    JackRun run;
    for (int attempt = 0; attempt < 3; ++attempt) {
        run = PlayThroughJack(server, song, 256,
                              {{0, {C::eStart}}, {250, {C::eLocate, length / 2}}, {150, {C::eLoop, length / 4, length / 4 + length / 16}},
                               {0, {C::eLocate, length / 5}}, {300, {C::eLoop}}});
        if (run.mXruns == 0 || run.mCaptured == run.mExpected) break;
    }
    if (run.mXruns > 0 && run.mCaptured != run.mExpected) GTEST_SKIP() << "the JACK server ran late in every run";
    EXPECT_GT(run.mExpected.size(), 20u);
    ASSERT_EQ(run.mCaptured.size(), run.mExpected.size());
    for (size_t i = 0; i < run.mExpected.size(); ++i) ASSERT_EQ(run.mCaptured[i], run.mExpected[i]) << "message " << i;
    OutputState state;
    for (auto& message : run.mCaptured) state.Take(message.mBytes);
    EXPECT_TRUE(state.AtRest());
    EXPECT_EQ(run.mDropped, 0u);
    if (AllocCounter::IsCounting()) {
        EXPECT_EQ(run.mAllocations, 0u);
    }
    EXPECT_EQ(run.mLocks, 0u);
    std::mutex mutex;  // the lock probe does count locks
    const uint64_t locks = ThreadLocks();
    std::lock_guard lock(mutex);
    EXPECT_EQ(ThreadLocks() - locks, VELA_COUNT_LOCKS ? 1u : 0u);
}

// The dense song (16 tracks, 100,000 events in 40 quarters) in 256-frame periods: the
// callback's times are printed against the budget (timing is reported, not asserted).
TEST(JackOutput, DenseSongCallbackTimes) {
    JackServer server(256);
    SKIP_WITHOUT_JACK(server);
    NotePool pool;
    const Vela_Song song = DenseSong(100000, 40);
    using C = Vela_TransportCommand;
    const auto run = PlayThroughJack(server, song, 256, {{0, {C::eLocate, 8 * Time_cTicksPerQuarter}}, {0, {C::eStart}}, {2000, {C::eLoop}}});
    EXPECT_GT(run.mCaptured.size(), 5000u);
    if (AllocCounter::IsCounting()) {
        EXPECT_EQ(run.mAllocations, 0u);
    }
    EXPECT_EQ(run.mLocks, 0u);
    std::printf("dense song: %zu messages\n%s\n", run.mCaptured.size(), run.mTimingText.c_str());
}

TEST(JackOutput, ErrorsAreOneClearLine) {
    NotePool pool;
    const Vela_Song song;
    Vela_SongBlockPlayer player(song, 48000, 256);
    auto message = [&](auto iAction) {
        try {
            iAction();
        } catch (const std::runtime_error& iError) {
            return std::string(iError.what());
        }
        return std::string("no error");
    };
    if (!VELA_HAVE_JACK) GTEST_SKIP() << "built without JACK";
    EXPECT_EQ(message([&] { Vela_JackOutput(player, {.mServer = "vela-no-such-server"}); }),
              "cannot reach the JACK server 'vela-no-such-server' (is jackd running?)");
    JackServer server(256);
    SKIP_WITHOUT_JACK(server);
    Vela_JackOutput output(player, {.mServer = server.GetName()});
    output.Activate();
    EXPECT_EQ(message([&] { output.Connect("nobody:in"); }), "no JACK port named 'nobody:in'");
    EXPECT_EQ(message([&] { output.Connect("system:capture_1"); }), "JACK port 'system:capture_1' is not an input");
}

// The demo song rendered with a stop and a restart: as long as what was played plus a release
// tail under two seconds, silent where the output has been silent for a while, not silent
// where notes sound.
TEST(Render, FollowsTheSongsNotesAndSilences) {
    if (!VELA_HAVE_FLUIDSYNTH) GTEST_SKIP() << "built without fluidsynth";
    if (access(Vela_DefaultSoundFont(), R_OK) != 0) GTEST_SKIP() << "no soundfont at " << Vela_DefaultSoundFont();
    NotePool pool;
    const Vela_Song song = Vela_Song::FromSmf(MakeDemoSong());
    constexpr uint32_t kRate = 22050, k10ms = kRate / 100;
    using C = Vela_TransportCommand;
    const std::vector<Vela_AppliedCommand> commands = {{0, {C::eStart}}, {2 * kRate, {C::eStop}}, {5 * kRate, {C::eStart}}};
    const int64_t frames = 7 * kRate;
    Vela_SongBlockPlayer player(song, kRate, 256);
    Vela_RenderOptions options;
    options.mSampleRate = kRate;
    const auto audio = Vela_RenderAudio(player, frames, commands, options);
    EXPECT_EQ(audio.mSongFrames, frames);
    EXPECT_LT(audio.GetFrames() - frames, 2 * int64_t{kRate});
    // Per 10 ms window: does a note sound (drums aside, they are short), and how long has
    // nothing sounded (the oracle: the same output run offline, with its stop at the end).
    auto messages = PlayOffline(song, commands, frames, 256, kRate);
    const auto envelope = Vela_Envelope(audio, k10ms);
    OutputState state;
    size_t next = 0, checkedLoud = 0, checkedQuiet = 0;
    int64_t lastSound = 0;
    for (size_t window = 0; window + 1 < std::min<size_t>(envelope.size(), frames / k10ms); ++window) {
        bool struck = false;
        for (; next < messages.size() && messages[next].mFrame < int64_t(window + 1) * k10ms; ++next) {
            state.Take(messages[next].mBytes);
            struck |= (messages[next].mBytes[0] & 0xF0) == 0x90;
        }
        const bool sounding = std::any_of(state.mNotes.begin(), state.mNotes.end(), [](int iKey) { return iKey / 128 != 9; });
        if (sounding || struck) lastSound = int64_t(window);
        if (sounding && window - lastSound == 0 && envelope[window + 1] > 0) checkedLoud += envelope[window + 1] > 0.01f;
        if (!sounding && int64_t(window) - lastSound > 150) {
            EXPECT_LT(envelope[window], 1e-3f) << "window " << window;
            ++checkedQuiet;
        }
    }
    EXPECT_GT(checkedQuiet, 50u);
    EXPECT_GT(checkedLoud, 200u);

    const std::string path = testing::TempDir() + "vela-render-" + std::to_string(getpid()) + ".wav";  // one per process
    Vela_WriteWav(path, audio);
    std::ifstream in(path, std::ios::binary);
    std::string header(44, '\0');
    in.read(header.data(), 44);
    auto word = [&](int iAt) { return uint32_t(uint8_t(header[iAt]) | uint8_t(header[iAt + 1]) << 8 | uint8_t(header[iAt + 2]) << 16 | uint8_t(header[iAt + 3]) << 24); };
    EXPECT_EQ(header.substr(0, 4) + header.substr(8, 8) + header.substr(36, 4), "RIFFWAVEfmt data");
    EXPECT_EQ(word(24), kRate);
    EXPECT_EQ(word(40), uint32_t(audio.GetFrames() * 4));
    EXPECT_EQ(word(4), word(40) + 36);
    std::remove(path.c_str());
    options.mSoundFont = "/no/such.sf2";
    try {
        Vela_RenderAudio(player, 10, {}, options);
        ADD_FAILURE() << "a missing soundfont was taken";
    } catch (const std::runtime_error& iError) {
        EXPECT_STREQ(iError.what(), "soundfont not found: /no/such.sf2");
    }
}
