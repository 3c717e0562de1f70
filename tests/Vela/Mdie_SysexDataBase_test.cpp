// System-exclusive storage: which form a message or packet takes, what its views answer,
// and that real-time data always goes back to its allocator, also when the allocator refuses.
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstring>
#include <vector>

#include "AllocCounter.h"
#include "AssertCapture.h"
#include "Cmn_PolyVector.h"
#include "Mdie_SysexDataBase.h"
#include "Sys_RefCount.h"
#include "Vela_Event.h"
#include "Vela_Init.h"

namespace {

using Bytes = std::vector<unsigned char>;

// A real pool that refuses from its iRefuseFrom-th request on, and counts what is still out.
class CountingAllocator : public Mem2_MasterAllocator {
public:
    explicit CountingAllocator(int iRefuseFrom = INT_MAX) : Mem2_MasterAllocator(1 << 16), mRefuseFrom(iRefuseFrom) {}
    void* Alloc(int iSize, Mem2_Statistics* iStatsP) override {
        if (mRequests++ >= mRefuseFrom) return nullptr;
        void* p = Mem2_MasterAllocator::Alloc(iSize, iStatsP);
        if (p != nullptr) ++mLive;
        return p;
    }
    void Free(void* iP, Mem2_Statistics* iStatsP) override {
        if (iP != nullptr) --mLive;
        Mem2_MasterAllocator::Free(iP, iStatsP);
    }
    std::atomic<int> mLive{0};

private:
    int mRefuseFrom;
    int mRequests = 0;
};

// iCount bytes: F0 first when iStart, F7 last when iEnd, 0x10, 0x11, ... in between.
Bytes Packet(int iCount, bool iStart, bool iEnd) {
    Bytes bytes(static_cast<size_t>(iCount));
    for (int i = 0; i < iCount; ++i) bytes[size_t(i)] = static_cast<unsigned char>(0x10 + i);
    if (iStart) bytes.front() = 0xF0;
    if (iEnd) bytes.back() = 0xF7;
    return bytes;
}

Bytes PacketData(const Vela_SysexPacketEvent& iEvent, int iStart, int iEnd) {
    Bytes out(size_t(iEnd - iStart), 0xEE);
    iEvent.GetData(out.data(), iStart, iEnd);
    return out;
}

}  // namespace

TEST(SysexEvent, ShortPayloadStaysInsideTheEvent) {
    const Bytes payload = {0x7E, 0x7F, 0x09, 0x01};
    AllocCounter counter;
    const Vela_SysexEvent sysex(4, payload.data());
    EXPECT_EQ(counter.Count(), 0u);
    EXPECT_EQ(sysex.GetType(), Vela_Event::kSysex);
    EXPECT_EQ(sysex.GetLength(), 4);
    EXPECT_EQ(Bytes(sysex.GetInternalDataPtr(), sysex.GetInternalDataPtr() + 4), payload);
    Bytes middle(2);
    sysex.GetData(middle.data(), 1, 3);
    EXPECT_EQ(middle, (Bytes{0x7F, 0x09}));

    AssertCapture asserts;
    EXPECT_EQ(sysex.GetDirectDataPtr(), nullptr);
    ASSERT_EQ(asserts.Count(), 1u);
    EXPECT_EQ(asserts.Condition(), "mU.mBase.mType == kLongSysex");
}

TEST(SysexEvent, LongPayloadIsFramedInSharedHeapData) {
    const Bytes payload = Packet(15, false, false);
    Vela_SysexEvent sysex(15, payload.data());
    EXPECT_EQ(sysex.GetType(), Vela_Event::kLongSysex);
    EXPECT_EQ(sysex.GetLength(), 15);
    const unsigned char* storedP = sysex.GetDirectDataPtr();
    EXPECT_EQ(storedP[0], 0xF0);
    EXPECT_EQ(Bytes(storedP + 1, storedP + 16), payload);
    EXPECT_EQ(storedP[16], 0xF7);
    EXPECT_EQ(sysex.GetInternalDataPtr(), storedP + 1);
    EXPECT_TRUE(sysex.IsCompleteLongSysex());
    Bytes tail(3);
    sysex.GetData(tail.data(), 12, 15);
    EXPECT_EQ(tail, Bytes(payload.end() - 3, payload.end()));

    // Replacing the data releases the shared object (deleted by the deferred deleter).
    sysex.SetData(2, payload.data());
    EXPECT_EQ(sysex.GetType(), Vela_Event::kSysex);
    EXPECT_EQ(Sys_DelayedDeletionObject::DrainDelayedDeletions(), 1u);

    Cmn_PolyVector<unsigned char, 0> vector;
    vector.Assign(payload.data(), payload.data() + payload.size());
    const Vela_SysexEvent fromVector(&vector);
    EXPECT_EQ(fromVector.GetLength(), 15);
    EXPECT_EQ(fromVector.GetDirectDataPtr()[15], payload[14]);
}

TEST(SysexPacket, PacketsAreClassifiedInEveryStoredForm) {
    struct Case {
        int mLength;
        bool mStart, mEnd;
        Vela_Event::EEventType mType;
        bool mBeginning, mEnding, mComplete, mCompleteLong;
    };
    const Case cases[] = {
        {6, true, true, Vela_Event::kSysex, true, true, true, false},   // a whole short message
        {16, true, true, Vela_Event::kSysex, true, true, true, false},  // 14 payload bytes: still short
        {17, true, true, Vela_Event::kLongSysex, false, false, true, true},
        {14, true, false, Vela_Event::kSysexPacket, true, false, false, false},
        {5, false, true, Vela_Event::kSysexPacket, false, true, false, false},
        {5, false, false, Vela_Event::kSysexPacket, false, false, false, false},
        {20, false, true, Vela_Event::kLongSysex, false, true, false, false},
        {20, true, false, Vela_Event::kLongSysex, true, false, false, false},
        {20, false, false, Vela_Event::kLongSysex, false, false, false, false},
        {20, true, true, Vela_Event::kLongSysex, false, false, true, true},
    };
    CountingAllocator allocator;
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.mLength << " bytes, start " << c.mStart << ", end " << c.mEnd);
        const Bytes bytes = Packet(c.mLength, c.mStart, c.mEnd);
        const Vela_SysexPacketEvent packet(c.mLength, bytes.data(), &allocator);
        ASSERT_EQ(packet.GetType(), c.mType);
        EXPECT_EQ(packet.IsBeginningPacket(), c.mBeginning);
        EXPECT_EQ(packet.IsEndingPacket(), c.mEnding);
        EXPECT_EQ(packet.IsComplete(), c.mComplete);
        EXPECT_EQ(packet.IsCompleteLongSysex(), c.mCompleteLong);
        EXPECT_EQ(packet.GetLength(), c.mLength);
        EXPECT_EQ(PacketData(packet, 0, c.mLength), bytes);
        EXPECT_EQ(PacketData(packet, 2, c.mLength), Bytes(bytes.begin() + 2, bytes.end()));
        EXPECT_EQ(PacketData(packet, c.mLength - 1, c.mLength), Bytes(1, bytes.back()));
        EXPECT_FALSE(packet.IsMessageSysex(0) && c.mType == Vela_Event::kSysexPacket);
        if (c.mType == Vela_Event::kSysex) {
            EXPECT_EQ(packet.AsSysex().GetLength(), c.mLength - 2);
            EXPECT_EQ(packet.GetDirectDataPtr(), nullptr);
        }
    }
    EXPECT_EQ(allocator.mLive.load(), 0);
    EXPECT_EQ(Vela_SysexPacketEvent(16, Packet(16, true, true).data(), nullptr).GetType(), Vela_Event::kSysex);
}

TEST(SysexPacket, LongPacketSharesRealTimeDataUntilTheLastCopyGoes) {
    CountingAllocator allocator;
    const Bytes bytes = Packet(30, true, false);
    const size_t pendingBefore = Sys_DelayedDeletionObject::GetPendingCount();
    {
        const Vela_SysexPacketEvent packet(30, bytes.data(), &allocator);
        EXPECT_EQ(allocator.mLive.load(), 2);  // buffer and data object
        EXPECT_EQ(Bytes(packet.GetDirectDataPtr(), packet.GetDirectDataPtr() + 30), bytes);
        const Vela_Event copy(packet);
        Vela_Event assigned;
        assigned = copy;
    }
    EXPECT_EQ(allocator.mLive.load(), 0);
    EXPECT_EQ(Sys_DelayedDeletionObject::GetPendingCount(), pendingBefore);  // no deferred heap work
}

TEST(SysexPacket, RefusingAllocatorLeavesANullEventAndNothingTaken) {
    const Bytes bytes = Packet(40, true, true);
    for (int refuseFrom : {0, 1}) {  // the buffer refused; the data object refused
        SCOPED_TRACE(refuseFrom);
        CountingAllocator allocator(refuseFrom);
        const Vela_SysexPacketEvent packet(40, bytes.data(), &allocator);
        EXPECT_EQ(packet.GetType(), Vela_Event::kNull);
        EXPECT_EQ(packet.GetLength(), 0);
        EXPECT_EQ(allocator.mLive.load(), 0);
    }
    EXPECT_EQ(Vela_SysexPacketEvent(40, bytes.data(), nullptr).GetType(), Vela_Event::kNull);
}

// An adopted block is kept without copying, and given back when the event cannot be built.
TEST(SysexPacket, AdoptedBlockIsKeptWithoutCopyingOrReturned) {
    const Bytes bytes = Packet(20, true, true);
    for (int refuseFrom : {1, 2}) {  // the data object refused; nothing refused
        SCOPED_TRACE(refuseFrom);
        CountingAllocator allocator(refuseFrom);
        auto* blockP = static_cast<unsigned char*>(allocator.Alloc(20, &gVela_SysexDataRTTag));
        std::memcpy(blockP, bytes.data(), bytes.size());
        {
            const Vela_SysexPacketEvent packet(Vela_SysexPacketEvent::InitWithBlock(), blockP, 20, &allocator);
            EXPECT_EQ(packet.GetType(), refuseFrom == 1 ? Vela_Event::kNull : Vela_Event::kLongSysex);
            if (refuseFrom == 2) {
                EXPECT_EQ(packet.GetDirectDataPtr(), blockP);
                EXPECT_TRUE(packet.IsComplete());
            }
        }
        EXPECT_EQ(allocator.mLive.load(), 0);
    }
}

TEST(SysexData, NullBufferIsReported) {
    CountingAllocator allocator;
    AssertCapture asserts;
    Mdie_SysexDataRT* dataP = Mdie_SysexDataRT::New(&allocator, nullptr, 0);
    ASSERT_NE(dataP, nullptr);
    ASSERT_EQ(asserts.Count(), 1u);
    EXPECT_EQ(asserts.Condition(), "mDataP != 0");
    EXPECT_NE(asserts.Texts()[0].find("NewFileLibs/Vela/Mdie_SysexDataBase"), std::string::npos);
    dataP->RemoveReference();
    EXPECT_EQ(allocator.mLive.load(), 0);
}

TEST(SysexPacket, RealTimePacketsNeverTouchTheHeap) {
    CountingAllocator allocator;
    const Bytes whole = Packet(10, true, true), start = Packet(8, true, false), big = Packet(200, true, false);
    AllocCounter counter;
    for (int i = 0; i < 10; ++i) {
        const Vela_SysexPacketEvent a(10, whole.data(), &allocator);
        const Vela_SysexPacketEvent b(8, start.data(), &allocator);
        const Vela_SysexPacketEvent c(200, big.data(), &allocator);
        Vela_Event copy(c);
        copy = a;
        copy = b;
    }
    EXPECT_EQ(counter.Count(), 0u);
    EXPECT_EQ(allocator.mLive.load(), 0);
}
