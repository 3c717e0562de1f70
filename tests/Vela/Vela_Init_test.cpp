#include "Vela_Init.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Cmn_Assert.h"
#include "Sys_RefCount.h"
#include "Vela_Event.h"

namespace {
using Clock = std::chrono::steady_clock;

// Waits up to iLimit for the deferred-deletion queue to empty; answers how long it took.
Clock::duration WaitForEmptyQueue(Clock::duration iLimit) {
    const auto start = Clock::now();
    while (Sys_DelayedDeletionObject::GetPendingCount() != 0 && Clock::now() - start < iLimit)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return Clock::now() - start;
}

// A burst as a playback thread makes one: many long-sysex copies dropped at once.
void ReleaseBurstOnAnotherThread(int iCount) {
    std::thread playback([iCount] {
        const std::vector<unsigned char> payload(300, 0x55);
        std::vector<Vela_Event> held;
        for (int i = 0; i < iCount; ++i) held.push_back(Vela_SysexEvent(300, payload.data()));
        held.clear();
    });
    playback.join();
}
}  // namespace

// The default set-up runs the deleter by itself: no drain call by the host anywhere here.
TEST(VelaInitThreads, InitRunsTheDeleterThatEmptiesTheQueueAfterABurstAndFreeStopsIt) {
    EXPECT_FALSE(Vela_Init::sIsInitialized);
    Vela_Init::Init();
    Vela_Init::Init();
    EXPECT_TRUE(Vela_Init::sIsInitialized);
    EXPECT_TRUE(Sys_DelayedDeletionObject::IsDeleterThreadRunning());

    for (int burst = 0; burst < 3; ++burst) {
        ReleaseBurstOnAnotherThread(20000);
        const auto took = WaitForEmptyQueue(std::chrono::seconds(2));
        EXPECT_EQ(Sys_DelayedDeletionObject::GetPendingCount(), 0u) << "burst " << burst;
        EXPECT_LT(took, std::chrono::milliseconds(500)) << "burst " << burst;
    }

    // Free stops the deleter and destroys what was queued just before it.
    ReleaseBurstOnAnotherThread(1000);
    Vela_Init::Free();
    EXPECT_FALSE(Vela_Init::sIsInitialized);
    EXPECT_FALSE(Sys_DelayedDeletionObject::IsDeleterThreadRunning());
    EXPECT_EQ(Sys_DelayedDeletionObject::GetPendingCount(), 0u);
    Vela_Init::Free();
    EXPECT_FALSE(Vela_Init::sIsInitialized);
}

TEST(VelaInitThreads, AHostThatOptsOutOrRunsItsOwnDeleterKeepsControlOfIt) {
    Vela_Init::sRunDeleterThread = false;
    Vela_Init::Init();
    EXPECT_FALSE(Sys_DelayedDeletionObject::IsDeleterThreadRunning());
    ReleaseBurstOnAnotherThread(10);
    std::this_thread::sleep_for(std::chrono::milliseconds(3 * Vela_Init::kDeleterPeriodMs));
    Vela_Init::Free();
    EXPECT_EQ(Sys_DelayedDeletionObject::GetPendingCount(), 10u);  // the host drains
    EXPECT_EQ(Sys_DelayedDeletionObject::DrainDelayedDeletions(), 10u);
    Vela_Init::sRunDeleterThread = true;

    // A deleter the host started itself outlives Free.
    Sys_DelayedDeletionObject::StartDeleterThread(5);
    Vela_Init::Init();
    Vela_Init::Free();
    EXPECT_TRUE(Sys_DelayedDeletionObject::IsDeleterThreadRunning());
    Sys_DelayedDeletionObject::StopDeleterThread();
}

TEST(VelaInit, StringTableHoldsEveryTextExactlyAndNothingElse) {
    const struct {
        int mID;
        const char* mText;
    } kExpected[] = {
        {100, "bad data encountered"},
        {101, "bad data encountered: stream not unique"},
        {200, "...out of notes in progress..."},
        {201, "bad subtype encountered"},
        {202, "bad data encountered"},
        {203, "sorter full"},
        {204, "Step Input"},
        {205, "Step Input: 64th Note"},
        {206, "Step Input: 32nd Note"},
        {207, "Step Input: 16th Note"},
        {208, "Step Input: 8th Note"},
        {209, "Step Input: Quarter Note"},
        {210, "Step Input: Half Note"},
        {211, "Step Input: Whole Note"},
        {212, "Step Input: Toggle Tuplet"},
        {213, "Step Input: Toggle Dotted"},
        {214, "Step Input: Next Step"},
        {215, "Step Input: Undo Step"},
        {216, "Step Input: Redo Step"},
        {300, "The OrbiMIDIService could not be acquired. Please verify OrbiMIDIService is properly installed and "
              "registered (may require a complete reinstall)."},
    };
    for (const auto& entry : kExpected) {
        EXPECT_STREQ(Vela_GetLocalizedString(entry.mID), entry.mText) << "id " << entry.mID;
        EXPECT_STREQ(Vela_GetResourceModule().mLookup(entry.mID), entry.mText) << "id " << entry.mID;
    }
    // Unknown ids answer an empty text; the module answers null.
    for (int id : {-1, 0, 99, 102, 199, 217, 299, 301, 1000}) {
        EXPECT_STREQ(Vela_GetLocalizedString(id), "") << "id " << id;
        EXPECT_EQ(Vela_GetResourceModule().mLookup(id), nullptr) << "id " << id;
    }
}

// Caught as the foundation's root exception it still gives the text; an id outside the table
// throws with an empty text rather than crashing.
TEST(VelaInit, ThrowLocalizedCarriesIdModuleAndText) {
    for (const auto& [id, text] : {std::pair{int(kVelaMsg_StreamNotUnique), "bad data encountered: stream not unique"}, {203, "sorter full"}, {42, ""}}) {
        try {
            Vela_ThrowLocalized(id);
            ADD_FAILURE() << "no exception for " << id;
        } catch (const Cmn_Exception& e) {
            EXPECT_STREQ(e.what(), text);
            const auto* localized = dynamic_cast<const Cmn_LocalizedException*>(&e);
            ASSERT_NE(localized, nullptr);
            EXPECT_EQ(localized->GetMessageID(), id);
            EXPECT_EQ(localized->GetData().mModuleP, &Vela_GetResourceModule());
        }
    }
}

TEST(VelaInit, AssertionReportsConditionMarkerRepositoryPathAndLineAndExecutionGoesOn) {
    std::vector<std::pair<std::string, int>> reports;
    auto previous = Cmn_Assert::SetHandler([&](const char* iText, int iLine) { reports.emplace_back(iText, iLine); });
    int fallback = 0;
    const int line = __LINE__ + 1;
    VELA_ASSERT(fallback == 1);
    fallback = 2;
    VELA_ASSERT(fallback == 2);  // a holding condition reports nothing
    Cmn_Assert::SetHandler(std::move(previous));

    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].first, "fallback == 1@$^$@tests/Vela/Vela_Init_test.cpp");
    EXPECT_EQ(reports[0].second, line);
    EXPECT_EQ(fallback, 2);
}
