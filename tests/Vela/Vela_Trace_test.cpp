// The trace client against the shipped trace library. The test set-up points
// VELA_ORBITRACE_PATH at the built libOrbiTrace.so and ORBITRACE_FILE at a file before the
// program starts, so the client is set up at load as in a host. Run by hand, the program sets
// both itself and reloads the client.
#include "Vela_Trace.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "AllocCounter.h"
#include "Mem2_MasterAllocator.h"
#include "Vela_Event.h"

namespace {

class TraceLibraryEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        if (std::getenv("VELA_ORBITRACE_PATH") != nullptr) return;
        setenv("VELA_ORBITRACE_PATH", VELA_TEST_ORBITRACE_DIR, 1);
        setenv("ORBITRACE_FILE", VELA_TEST_ORBITRACE_FILE, 1);
        Vela_TraceClient::Reload();
    }
};
const auto* const kEnvironmentP = ::testing::AddGlobalTestEnvironment(new TraceLibraryEnvironment);

// Tests may run in parallel processes sharing the trace file: each reads back only its own lines.
std::string Marker() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    return std::string(info->name()) + "-" + std::to_string(getpid());
}

std::vector<std::string> LinesWith(const std::string& iMarker) {
    std::ifstream file(std::getenv("ORBITRACE_FILE"));
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        if (line.find(iMarker) != std::string::npos) lines.push_back(line);
    return lines;
}

template <class TFunc>
TFunc EntryPoint(const char* iName) {
    for (int i = 0; i < Vela_TraceClient::kEntryPointCount; ++i)
        if (std::string(Vela_TraceClient::kEntryPointNames[i]) == iName)
            return reinterpret_cast<TFunc>(Vela_TraceClient::GetEntryPoint(i));
    return nullptr;
}

}  // namespace

TEST(TraceClient, LoadsTheLibraryResolvesEveryEntryPointAndAnswersMissingOnes) {
    ASSERT_TRUE(Vela_TraceClient::IsPresent()) << "libOrbiTrace.so not found in " << std::getenv("VELA_ORBITRACE_PATH");
    for (int i = 0; i < Vela_TraceClient::kEntryPointCount; ++i)
        EXPECT_NE(Vela_TraceClient::GetEntryPoint(i), nullptr) << Vela_TraceClient::kEntryPointNames[i];
    EXPECT_EQ(Vela_TraceClient::GetEntryPoint(-1), nullptr);
    EXPECT_EQ(Vela_TraceClient::GetEntryPoint(Vela_TraceClient::kEntryPointCount), nullptr);

    void* pointer = nullptr;
    EXPECT_EQ(Vela_TraceClient::ResolveEntryPoint("OrbiTraceFormat", &pointer), Vela_TraceClient::kOK);
    EXPECT_EQ(pointer, Vela_TraceClient::GetEntryPoint(2));

    void* untouched = &pointer;
    EXPECT_EQ(Vela_TraceClient::ResolveEntryPoint("OrbiTraceNoSuchEntry", &untouched), -1501);
    EXPECT_EQ(untouched, &pointer);
}

TEST(TraceClient, TracedLinesReachTheFileWithTheCategoryInHexWithoutAllocatingAndOverlongOnesAreCut) {
    const std::string marker = Marker();
    int object = 0;
    ASSERT_TRUE(Vela_TraceClient::IsActive(kVela_TraceCategory));
    VELA_TRACE(kVela_TraceCategory, "Mdie_NoteInProgress alloc %p %d %s", static_cast<void*>(&object), 32, marker.c_str());
    AllocCounter counter;  // after the first line, which may open the file
    VELA_TRACE(0x10, "second %s", marker.c_str());
    EXPECT_EQ(counter.Count(), 0u);
    const std::string longText(3 * Vela_TraceClient::kMaxLineBytes, 'x');
    VELA_TRACE(kVela_TraceCategory, "%s %s", marker.c_str(), longText.c_str());

    const auto lines = LinesWith(marker);
    ASSERT_EQ(lines.size(), 3u);
    char expected[128];
    std::snprintf(expected, sizeof expected, "02000f27 Mdie_NoteInProgress alloc %p 32 ", static_cast<void*>(&object));
    EXPECT_EQ(lines[0], expected + marker);
    EXPECT_EQ(lines[1], "00000010 second " + marker);
    EXPECT_EQ(lines[2].size(), std::string("02000f27 ").size() + Vela_TraceClient::kMaxLineBytes - 1);
}

TEST(TraceClient, TheLibrarysCategoryFilterDecidesWhatIsActive) {
    const auto reload = EntryPoint<void (*)()>("OrbiTraceReloadConfigsFunc");
    ASSERT_NE(reload, nullptr);
    setenv("ORBITRACE_CATEGORIES", "10,2000F27", 1);
    reload();
    EXPECT_TRUE(Vela_TraceClient::IsActive(kVela_TraceCategory));
    EXPECT_TRUE(Vela_TraceClient::IsActive(0x10));
    EXPECT_FALSE(Vela_TraceClient::IsActive(0x11));

    setenv("ORBITRACE_CATEGORIES", "11", 1);
    reload();
    const std::string marker = Marker();
    VELA_TRACE(kVela_TraceCategory, "filtered %s", marker.c_str());
    EXPECT_TRUE(LinesWith(marker).empty());

    unsetenv("ORBITRACE_CATEGORIES");
    reload();
    EXPECT_TRUE(Vela_TraceClient::IsActive(0x11));
}

TEST(TraceClient, LibraryCodeTracesThroughTheClient) {
    // A file of this process alone, so the lines can be checked in full and in order.
    const std::string sharedFile = std::getenv("ORBITRACE_FILE");
    const std::string file = sharedFile + "." + std::to_string(getpid());
    const auto reload = EntryPoint<void (*)()>("OrbiTraceReloadConfigsFunc");
    setenv("ORBITRACE_FILE", file.c_str(), 1);
    reload();
    {
        Mem2_MasterAllocator allocator(1 << 16);
        unsigned char bytes[20] = {0xF0, 0x43, 0x10};  // too long to stay inside the event
        const Vela_SysexPacketEvent packet(sizeof bytes, bytes, &allocator);
        EXPECT_EQ(packet.GetType(), Vela_Event::kLongSysex);
    }
    setenv("ORBITRACE_FILE", sharedFile.c_str(), 1);
    reload();

    std::ifstream in(file);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    std::remove(file.c_str());
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].rfind("02000f27 Vela_SysexPacketEvent alloc ", 0), 0u) << lines[0];
    EXPECT_EQ(lines[0].substr(lines[0].size() - 3), " 20");
    EXPECT_EQ(lines[1].rfind("02000f27 Mdie_SysexDataRT::New ", 0), 0u) << lines[1];
    EXPECT_EQ(lines[2].rfind("02000f27 Mdie_SysexDataRT free ", 0), 0u) << lines[2];
}

TEST(TraceClientThreads, LinesFromSeveralThreadsStayWhole) {
    const std::string marker = Marker();
    constexpr int kThreads = 4;
    constexpr int kLines = 100;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&marker, t] {
            for (int i = 0; i < kLines; ++i) VELA_TRACE(kVela_TraceCategory, "%s thread %d line %d", marker.c_str(), t, i);
        });
    for (auto& thread : threads) thread.join();

    const auto lines = LinesWith(marker);
    EXPECT_EQ(lines.size(), static_cast<size_t>(kThreads * kLines));
    for (const auto& line : lines) EXPECT_EQ(line.rfind("02000f27 " + marker + " thread ", 0), 0u) << line;
}
