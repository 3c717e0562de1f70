// The event value: byte layout, view bit rules, and the reference rules of shared sysex data.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "AllocCounter.h"
#include "BlockBytes.h"
#include "EventBytes.h"
#include "Mdie_SysexDataBase.h"
#include "Sys_RefCount.h"
#include "Vela_Event.h"
#include "Vela_Init.h"

namespace {

using Raw = std::array<unsigned char, sizeof(Vela_Event)>;

Raw RawBytes(const Vela_Event& iEvent) {
    Raw raw;
    std::memcpy(raw.data(), static_cast<const void*>(&iEvent), raw.size());
    return raw;
}

// The iSize bytes at iOffset of the event, read as a little-endian number.
uint64_t FieldAt(const Raw& iRaw, size_t iOffset, size_t iSize) {
    uint64_t value = 0;
    std::memcpy(&value, iRaw.data() + iOffset, iSize);
    return value;
}

}  // namespace

TEST(EventLayout, FieldsSitAtTheirFixedBytePositions) {
    const float quarter = 0.25f;
    uint32_t quarterBits;
    std::memcpy(&quarterBits, &quarter, 4);
    const Vela_Event pitchToNote = Vela_PitchToMIDINoteWithDuration(64, Time_TypedLength(1234567890123, kTime_Samples), 90, 40, quarter);
    const struct { Vela_Event mEvent; size_t mOffset, mSize; uint64_t mValue; } kFields[] = {
        {Vela_NoteOnEvent(60, 99), 0, 3, Vela_Event::kNoteOn | 60 << 8 | 99 << 16},
        {Vela_ProgramEvent(7, static_cast<int16_t>(0x8123)), 1, 3, 7 | 0x8123 << 8},
        {pitchToNote, 0, 4, Vela_Event::kPitchToMIDINoteWithDuration | 64 << 8 | 90 << 16 | 40u << 24},
        {pitchToNote, 8, 8, 1234567890123}, {pitchToNote, 16, 4, kTime_Samples}, {pitchToNote, 24, 4, quarterBits},
        {Vela_ReleaseControllerEvent(-70000), 4, 4, uint32_t(-70000)},
        {Vela_PitchBendEvent(-8192), 2, 2, uint16_t(-8192)},
        {Vela_ClipEvent("verse", Time_TypedLength(4800, kTime_Ticks)), 72, 8, 4800},
    };
    for (const auto& c : kFields) EXPECT_EQ(FieldAt(RawBytes(c.mEvent), c.mOffset, c.mSize), c.mValue) << int(c.mEvent.GetType()) << " at " << c.mOffset;
}

TEST(ProgramEvent, PatchNumberPacksEnabledPartsAndSignExtendsADisabledProgram) {
    const struct { int mProgram, mBank; uint32_t mPatch; } kCases[] = {
        {5, 0, 0xFF000005u},
        {7, (1 << 7) | 2, 0xFF010207u},
        {5, 0x8000 | (3 << 7) | 9, 0xFF000905u},  // MSB disabled: reads 0xFF
        {0x80 | 5, (1 << 7) | 2, 0xFFFFFF85u},    // program disabled: the flag sign-extends
    };
    for (const auto& c : kCases) {
        EXPECT_EQ(Vela_ProgramEvent(static_cast<int8_t>(c.mProgram), static_cast<int16_t>(c.mBank)).GetOMSPatchNum(), c.mPatch)
            << std::hex << c.mProgram << " " << c.mBank;
    }
}

// Enable flags live in the top bits of the program byte and bank word: values never leak into
// them and setting a value never clears them.
TEST(ProgramEvent, EnableFlagsAreSeparateFromTheValues) {
    Vela_ProgramEvent program(5, static_cast<int16_t>((3 << 7) | 9));
    EXPECT_TRUE(program.IsProgramEnabled() && program.IsMSBBankEnabled() && program.IsLSBBankEnabled());
    program.SetMSBBankEnable(false);
    EXPECT_EQ(std::make_pair(program.GetFullBank(), program.GetBank()), std::make_pair(int16_t(0x8000 | (3 << 7) | 9), int16_t((3 << 7) | 9)));
    EXPECT_EQ(program.GetMSBBank(), 3);
    program.SetLSBBankEnable(false);
    program.SetMSBBank(100);
    program.SetLSBBank(50);
    EXPECT_FALSE(program.IsMSBBankEnabled() || program.IsLSBBankEnabled());
    EXPECT_EQ(std::make_pair(program.GetMSBBank(), program.GetLSBBank()), std::make_pair(int8_t(100), int8_t(50)));
    program.SetMSBBankEnable(true);
    EXPECT_EQ(program.GetFullBank(), static_cast<int16_t>(0x4000 | (100 << 7) | 50));
    program.SetProgramEnable(false);
    program.SetProgram(9);
    EXPECT_EQ(std::make_pair(program.GetFullProgram(), program.GetProgram()), std::make_pair(int8_t(0x89), int8_t(9)));
    program.SetBank(0x1234);
    EXPECT_EQ(program.GetFullBank(), static_cast<int16_t>(0x4000 | 0x1234));
}

TEST(EventViews, SmallFieldsKeepExactlyWhatWasStored) {
    const Vela_QuarterFrameEvent frame(Vela_Event::kSecondsHigh, 9);
    EXPECT_EQ(frame.GetQFDataByte(), 0x39);
    EXPECT_EQ(frame.GetQFMessage(), Vela_Event::kSecondsHigh);
    EXPECT_EQ(frame.GetQFNibble(), 9);
    EXPECT_EQ(Vela_QuarterFrameEvent(0x7F).GetQFMessage(), Vela_Event::kHoursHighAndRate);
    Vela_SongPositionEvent position(0x12345);
    EXPECT_EQ(position.GetPosition(), 0x2345);
    position.SetPosition(0xFFFF);
    EXPECT_EQ(position.GetPosition(), -1);
    Vela_NoteWithDurationEvent note(61, Time_TypedLength(960, kTime_Ticks), 100, 30);
    note.MarkForDeletion();
    EXPECT_EQ(std::make_pair(note.GetOnVelocity(), note.GetOffVelocity()), std::make_pair(int8_t(0), int8_t(30)));
    EXPECT_EQ(Vela_ClipEvent(std::string(100, 'x'), Time_TypedLength()).GetRegionName(), std::string(63, 'x'));
    EXPECT_EQ(Vela_ClipEvent(std::string(63, 'y'), Time_TypedLength()).GetRegionName(), std::string(63, 'y'));
}

TEST(EventSharing, CopiesAndAssignmentsCountReferences) {
    const ByteVector payload = Payload(15);
    const size_t pendingBefore = Sys_DelayedDeletionObject::GetPendingCount();
    {
        const Vela_SysexEvent original(15, payload.data());
        Mdie_SysexDataBase* dataP = SharedSysexData(original);
        ASSERT_NE(dataP, nullptr);
        EXPECT_EQ(dataP->GetLength(), 17);
        EXPECT_EQ(dataP->GetRefCount(), 1);
        Vela_Event copy1(original);
        const Vela_Event copy2(original);
        EXPECT_EQ(dataP->GetRefCount(), 3);

        Vela_Event other = Vela_SysexEvent(20, Payload(20).data());
        other = copy1;  // releases the 20-byte message, shares ours
        EXPECT_EQ(dataP->GetRefCount(), 4);
        const Vela_Event& alias = other;
        other = alias;
        EXPECT_EQ(dataP->GetRefCount(), 4);
        EXPECT_EQ(Sys_DelayedDeletionObject::GetPendingCount(), pendingBefore + 1);

        copy1 = Vela_NoteOnEvent(60, 1);
        EXPECT_EQ(dataP->GetRefCount(), 3);
        Vela_Event moved(std::move(other));  // moves behave as copies
        EXPECT_EQ(dataP->GetRefCount(), 4);
    }
    // Released on this thread, but deleted only when the deferred deleter runs.
    EXPECT_EQ(Sys_DelayedDeletionObject::GetPendingCount(), pendingBefore + 2);
    Sys_DelayedDeletionObject::DrainDelayedDeletions();
    EXPECT_EQ(Sys_DelayedDeletionObject::GetPendingCount(), 0u);
}

TEST(EventSharing, CopiesReleasedOnTwoThreadsFreeTheDataOnce) {
    Mem2_MasterAllocator allocator(1 << 20);
    const ByteVector bytes = Payload(40);
    const int64_t freesBefore = gVela_SysexDataRTTag.mFrees.load();
    for (int round = 0; round < 50; ++round) {
        std::vector<Vela_Event> left, right;
        {
            const Vela_SysexEvent heap(30, bytes.data());
            const Vela_SysexPacketEvent realTime(40, bytes.data(), &allocator);
            ASSERT_EQ(realTime.GetType(), Vela_Event::kLongSysex);
            for (int i = 0; i < 100; ++i) {
                left.push_back(i % 2 ? Vela_Event(heap) : Vela_Event(realTime));
                right.push_back(i % 2 ? Vela_Event(heap) : Vela_Event(realTime));
            }
        }
        std::thread a([&] { left.clear(); });
        std::thread b([&] {
            for (Vela_Event& event : right) event = Vela_StopEvent();
        });
        a.join();
        b.join();
        Sys_DelayedDeletionObject::DrainDelayedDeletions();
    }
    EXPECT_EQ(gVela_SysexDataRTTag.mFrees.load() - freesBefore, 2 * 50);  // buffer and object per round
}

TEST(EventRealTime, BuildingCopyingAndDestroyingEventsNeverAllocates) {
    Mem2_MasterAllocator allocator(1 << 16);
    const ByteVector bytes = Payload(64);
    const Vela_SysexEvent heapSysex(20, bytes.data());  // built before counting: its copies must not allocate
    AllocCounter counter;
    {
        const Time_TypedLength length(480, kTime_Ticks);
        Vela_Event events[] = {
            Vela_NoteOnEvent(60), Vela_NoteOffEvent(60, 64), Vela_NoteWithDurationEvent(60, length, 90, 64),
            Vela_PitchBendEvent(100), Vela_ControllerEvent(7, 1), Vela_ProgramEvent(3, 0),
            Vela_MonoPressureEvent(5), Vela_PolyPressureEvent(60, 5), Vela_SongPositionEvent(9),
            Vela_QuarterFrameEvent(0x21), Vela_ReleaseControllerEvent(2), Vela_ClipEvent("short", length),
            Vela_SysexEvent(14, bytes.data()), Vela_SysexPacketEvent(30, bytes.data(), &allocator), heapSysex,
        };
        for (Vela_Event& event : events) {
            Vela_Event copy(event);
            event = copy;
            copy = Vela_TimingClockEvent();
        }
    }
    EXPECT_EQ(counter.Count(), 0u);
}
