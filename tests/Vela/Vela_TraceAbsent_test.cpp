// The trace client when the trace library cannot be found: tracing is silently off. The test
// set-up points VELA_ORBITRACE_PATH at a folder without the library (and still names a trace
// file); run by hand, the program does the same itself and reloads the client.
#include <gtest/gtest.h>

#include <cstdlib>

#include "AllocCounter.h"
#include "Vela_Trace.h"

namespace {

class NoTraceLibraryEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        if (std::getenv("VELA_ORBITRACE_PATH") != nullptr) return;
        setenv("VELA_ORBITRACE_PATH", "/nonexistent/orbitrace", 1);
        Vela_TraceClient::Reload();
    }
};
const auto* const kEnvironmentP = ::testing::AddGlobalTestEnvironment(new NoTraceLibraryEnvironment);

int gFormatted = 0;
int Count() { return ++gFormatted; }

}  // namespace

TEST(TraceClientWithoutLibrary, EverythingIsOffNothingIsResolvedAndResolvingAnswersLibraryMissing) {
    EXPECT_FALSE(Vela_TraceClient::IsPresent());
    for (uint32_t category : {0u, 0x10u, kVela_TraceCategory, 0xFFFFFFFFu}) EXPECT_FALSE(Vela_TraceClient::IsActive(category));
    for (int i = 0; i < Vela_TraceClient::kEntryPointCount; ++i)
        EXPECT_EQ(Vela_TraceClient::GetEntryPoint(i), nullptr) << Vela_TraceClient::kEntryPointNames[i];
    void* pointer = &gFormatted;
    EXPECT_EQ(Vela_TraceClient::ResolveEntryPoint("OrbiTraceFormat", &pointer), -1502);
    EXPECT_EQ(pointer, &gFormatted);
    EXPECT_FALSE(Vela_TraceClient::IsPresent());
}

TEST(TraceClientWithoutLibrary, TracingNeitherEvaluatesArgumentsNorAllocates) {
    AllocCounter counter;
    VELA_TRACE(kVela_TraceCategory, "never %d", Count());
    Vela_TraceClient::Format(kVela_TraceCategory, "direct call %d", 1);  // harmless without library
    EXPECT_EQ(gFormatted, 0);
    EXPECT_EQ(counter.Count(), 0u);
}
