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
#include "Vela_JackOutput.h"

namespace {

#if !defined(VELA_ALLOC_COUNTER_OFF) && defined(__x86_64__) && defined(__GLIBC__)
#define VELA_COUNT_LOCKS 1
// Locks taken on this thread, counted by standing in for the C library's mutex lock, which
// stays reachable under its internal name (the thread sanitizer build keeps its own).
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

// A real-time player of messages timed in frames, standing in for a song player: it loops,
// locates (releasing its notes first) and on a stop releases its notes, sustain and pitch bend.
class FramePlayer : public Vela_BlockPlayer {
public:
    explicit FramePlayer(std::vector<Timed> iMessages) : mMessages(std::move(iMessages)) {}

    void Apply(const Vela_TransportCommand& iCommand) override {
        switch (iCommand.mKind) {
            case Vela_TransportCommand::eStart: mPlaying = true; break;
            case Vela_TransportCommand::eStop: mPlaying = false; mRelease = mRest = true; break;
            case Vela_TransportCommand::eLocate: mPosition = iCommand.mA; mRelease = true; break;
            case Vela_TransportCommand::eLoop: mLoopStart = iCommand.mA; mLoopEnd = iCommand.mB; break;
        }
    }

    void FillBlock(int64_t, uint32_t iFrames, Vela_MidiBlock& ioBlock) override {
        if (mRelease) ReleaseAll(0, ioBlock);
        for (uint32_t offset = 0; mPlaying && offset < iFrames;) {
            int64_t end = mPosition + (iFrames - offset);
            const bool looping = mLoopStart < mLoopEnd && mPosition < mLoopEnd;
            if (looping) end = std::min(end, mLoopEnd);
            auto it = std::lower_bound(mMessages.begin(), mMessages.end(), mPosition,
                                       [](const Timed& iM, int64_t iFrame) { return iM.mFrame < iFrame; });
            for (; it != mMessages.end() && it->mFrame < end; ++it) Send(offset + uint32_t(it->mFrame - mPosition), it->mBytes.data(), it->mBytes.size(), ioBlock);
            offset += uint32_t(end - mPosition);
            mPosition = end;
            if (looping && mPosition == mLoopEnd) {
                ReleaseAll(offset, ioBlock);
                mPosition = mLoopStart;
            }
        }
    }

private:
    void Send(uint32_t iOffset, const unsigned char* iBytes, size_t iLength, Vela_MidiBlock& ioBlock) {
        const int kind = iBytes[0] & 0xF0, channel = iBytes[0] & 0x0F;
        if (kind == 0x90 || kind == 0x80) mSounding[channel][iBytes[1]] = kind == 0x90 && iBytes[2] > 0;
        ioBlock.Add(iOffset, iBytes, iLength);
    }
    void ReleaseAll(uint32_t iOffset, Vela_MidiBlock& ioBlock) {
        for (unsigned char channel = 0; channel < 16; ++channel) {
            for (unsigned char pitch = 0; pitch < 128; ++pitch) {
                const unsigned char off[] = {uint8_t(0x80 | channel), pitch, 0};
                if (mSounding[channel][pitch]) Send(iOffset, off, 3, ioBlock);
            }
            const unsigned char rest[] = {uint8_t(0xB0 | channel), 64, 0, uint8_t(0xE0 | channel), 0, 64};
            if (mRest) Send(iOffset, rest, 3, ioBlock), Send(iOffset, rest + 3, 3, ioBlock);
        }
        mRelease = mRest = false;
    }

    std::vector<Timed> mMessages;
    bool mSounding[16][128] = {};
    bool mPlaying = false, mRelease = false, mRest = false;
    int64_t mPosition = 0, mLoopStart = 0, mLoopEnd = 0;
};

// Notes, controllers (sustain among them), programs, pitch bend and sysex on three channels.
std::vector<Timed> RandomSong(std::mt19937& ioRandom, int64_t iFrames, int iNotes) {
    std::vector<Timed> song;
    auto at = [&](int64_t iTo) { return std::uniform_int_distribution<int64_t>(0, iTo)(ioRandom); };
    auto byte = [&](int iTo) { return uint8_t(at(iTo)); };
    for (int i = 0; i < iNotes; ++i) {
        const uint8_t channel = byte(2), pitch = byte(127);
        const int64_t start = at(iFrames - 2);
        song.push_back({start, {uint8_t(0x90 | channel), pitch, uint8_t(1 + byte(126))}});
        song.push_back({start + 1 + at(std::min<int64_t>(12000, iFrames - start - 2)), {uint8_t(0x80 | channel), pitch, byte(127)}});
        song.push_back({at(iFrames - 1), {uint8_t(0xB0 | channel), i % 2 ? uint8_t(64) : byte(100), byte(127)}});
        if (i % 4 == 0) song.push_back({at(iFrames - 1), {uint8_t(0xE0 | channel), byte(127), byte(127)}});
        if (i % 8 == 0) song.push_back({at(iFrames - 1), {uint8_t(0xC0 | channel), byte(127)}});
        if (i % 16 == 0) song.push_back({at(iFrames - 1), {0xF0, 0x7D, byte(127), byte(127), 0xF7}});
    }
    std::stable_sort(song.begin(), song.end(), [](const Timed& a, const Timed& b) { return a.mFrame < b.mFrame; });
    return song;
}

// A private JACK server on the dummy driver, stopped when the test ends however it ends (the
// child dies with the test process too).
class JackServer {
public:
    explicit JackServer(uint32_t iPeriod) : mName("vela-test-" + std::to_string(getpid())) {
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

    constexpr uint64_t kCount = 200000;
    std::thread producer([&] {
        std::mt19937_64 random(7);
        for (uint64_t i = 0; i < kCount; ++i)
            for (const uint64_t next = random(); !queue.Push(next);) std::this_thread::yield();
    });
    std::mt19937_64 oracle(7);
    uint64_t mismatches = 0;
    for (uint64_t i = 0; i < kCount;) {
        if (queue.Pop(value)) mismatches += value != oracle(), ++i;
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

// The song through a real server: captured bytes and frames equal the same player run
// offline with the commands at the blocks where the callback applied them; after the stop all
// is at rest; the callback neither allocated nor locked.
TEST(JackOutput, PlaysWhatTheOfflinePlayerPlaysAndEndsAtRest) {
    constexpr uint32_t kPeriod = 256;
    JackServer server(kPeriod);
    SKIP_WITHOUT_JACK(server);
    std::mt19937 random(11);
    const auto song = RandomSong(random, 48000, 200);

    FramePlayer player(song);
    Vela_JackOptions options{.mServer = server.GetName()};
    Vela_JackCapture capture({.mServer = server.GetName(), .mClientName = "capture", .mMaxMessages = 1 << 16});
    Vela_JackOutput output(player, options);
    output.SetProbes(&ThreadAllocations, &ThreadLocks);
    capture.Activate();
    output.Activate();
    output.Connect(capture.GetPortName());
    auto wait = [](int iMs) { std::this_thread::sleep_for(std::chrono::milliseconds(iMs)); };
    wait(100);  // the connection reaches the server's graph a cycle or two later
    output.Send({Vela_TransportCommand::eStart});
    wait(250);
    output.Send({Vela_TransportCommand::eLocate, 30000});
    wait(150);
    output.Send({Vela_TransportCommand::eLoop, 5000, 9000});
    output.Send({Vela_TransportCommand::eLocate, 4000});
    wait(300);
    output.Finish();
    capture.Deactivate();

    std::vector<Timed> captured;
    for (auto& message : capture.GetMessages())
        captured.push_back({int64_t(uint32_t(message.mFrameTime - output.GetStartFrameTime())), message.mBytes});
    std::vector<Timed> expected;
    FramePlayer offline(song);
    Vela_MidiBlock block(1 << 12, 1 << 16);
    const auto commands = output.GetAppliedCommands();
    ASSERT_EQ(commands.size(), 5u);
    auto next = commands.begin();
    for (int64_t frame = 0; frame < output.GetFrames(); frame += kPeriod) {
        for (; next != commands.end() && next->mFrame == frame; ++next) offline.Apply(next->mCommand);
        block.Clear();
        offline.FillBlock(frame, kPeriod, block);
        for (size_t i = 0; i < block.GetSize(); ++i)
            expected.push_back({frame + block.GetFrame(i), {block.GetBytes(i), block.GetBytes(i) + block.GetLength(i)}});
    }
    EXPECT_GT(expected.size(), 100u);
    ASSERT_EQ(captured.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) ASSERT_EQ(captured[i], expected[i]) << "message " << i;
    OutputState state;
    for (auto& message : captured) state.Take(message.mBytes);
    EXPECT_TRUE(state.AtRest());
    EXPECT_EQ(output.GetDropped() + capture.GetDropped(), 0u);
    if (AllocCounter::IsCounting()) {
        EXPECT_EQ(output.GetAllocations(), 0u);
    }
    EXPECT_EQ(output.GetLocks(), 0u);
    std::mutex mutex;  // the lock probe does count locks
    const uint64_t locks = ThreadLocks();
    std::lock_guard lock(mutex);
    EXPECT_EQ(ThreadLocks() - locks, VELA_COUNT_LOCKS ? 1u : 0u);
    const auto timing = output.GetTimer().Summarize();
    EXPECT_EQ(timing.mCount, uint64_t(output.GetFrames() / kPeriod));
    std::printf("%s\n", Vela_CallbackTimer::Describe(timing, kPeriod, output.GetSampleRate()).c_str());
}

TEST(JackOutput, ErrorsAreOneClearLine) {
    FramePlayer player({});
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

// A rendered song is as long as the song plus a short tail, silent where nothing sounds and
// loud where notes do.
TEST(Render, FollowsTheSongsNotesAndSilences) {
    if (!VELA_HAVE_FLUIDSYNTH) GTEST_SKIP() << "built without fluidsynth";
    if (access(Vela_DefaultSoundFont(), R_OK) != 0) GTEST_SKIP() << "no soundfont at " << Vela_DefaultSoundFont();
    constexpr int64_t kRate = 22050, k10ms = kRate / 100;
    std::vector<Timed> song;
    for (int64_t start : {kRate / 5, kRate * 8 / 5})  // notes at 0.2-0.6 s and 1.6-2.0 s
        for (uint8_t pitch : {60, 64, 67})
            song.push_back({start, {0x90, pitch, 100}}), song.push_back({start + kRate * 2 / 5, {0x80, pitch, 64}});
    std::stable_sort(song.begin(), song.end(), [](const Timed& a, const Timed& b) { return a.mFrame < b.mFrame; });
    FramePlayer player(song);
    player.Apply({Vela_TransportCommand::eStart});
    Vela_RenderOptions options;
    options.mSampleRate = kRate;
    const auto audio = Vela_RenderAudio(player, kRate * 21 / 10, options);
    EXPECT_EQ(audio.mSongFrames, kRate * 21 / 10);
    EXPECT_LT(audio.GetFrames() - audio.mSongFrames, 2 * kRate);
    const auto envelope = Vela_Envelope(audio, k10ms);
    auto peak = [&](int iFrom, int iTo) { return *std::max_element(envelope.begin() + iFrom, envelope.begin() + iTo); };
    EXPECT_LT(peak(0, 19), 1e-4f);  // before the first note (10 ms windows)
    EXPECT_GT(peak(25, 55), 0.02f);
    EXPECT_LT(peak(140, 159), 0.002f);  // a second after the first chord ended
    EXPECT_GT(peak(165, 195), 0.02f);

    const std::string path = testing::TempDir() + "vela-render.wav";
    Vela_WriteWav(path, audio);
    std::ifstream in(path, std::ios::binary);
    std::string header(44, '\0');
    in.read(header.data(), 44);
    auto word = [&](int iAt) { return uint32_t(uint8_t(header[iAt]) | uint8_t(header[iAt + 1]) << 8 | uint8_t(header[iAt + 2]) << 16 | uint8_t(header[iAt + 3]) << 24); };
    EXPECT_EQ(header.substr(0, 4) + header.substr(8, 8) + header.substr(36, 4), "RIFFWAVEfmt data");
    EXPECT_EQ(word(24), uint32_t(kRate));
    EXPECT_EQ(word(40), uint32_t(audio.GetFrames() * 4));
    EXPECT_EQ(word(4), word(40) + 36);
    std::remove(path.c_str());
    options.mSoundFont = "/no/such.sf2";
    EXPECT_THROW(Vela_RenderAudio(player, 10, options), std::runtime_error);
}
