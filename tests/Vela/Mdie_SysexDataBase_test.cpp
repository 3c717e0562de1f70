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

TEST(SysexEvent, UpTo14BytesStayInsideTheEventLongerAreFramedInSharedHeapData) {
    const Bytes payload = Packet(15, false, false);
    AllocCounter counter;
    const Vela_SysexEvent inside(14, payload.data());
    EXPECT_EQ(counter.Count(), 0u);
    EXPECT_EQ(inside.GetType(), Vela_Event::kSysex);
    EXPECT_EQ(Bytes(inside.GetInternalDataPtr(), inside.GetInternalDataPtr() + 14), Bytes(payload.begin(), payload.end() - 1));
    AssertCapture asserts;
    EXPECT_EQ(inside.GetDirectDataPtr(), nullptr);
    ASSERT_EQ(asserts.Count(), 1u);
    EXPECT_EQ(asserts.Condition(), "mU.mBase.mType == kLongSysex");

    Vela_SysexEvent sysex(15, payload.data());
    EXPECT_EQ(sysex.GetType(), Vela_Event::kLongSysex);
    EXPECT_EQ(sysex.GetLength(), 15);
    const unsigned char* storedP = sysex.GetDirectDataPtr();
    Bytes framed = payload;
    framed.insert(framed.begin(), 0xF0);
    framed.push_back(0xF7);
    EXPECT_EQ(Bytes(storedP, storedP + 17), framed);
    EXPECT_EQ(sysex.GetInternalDataPtr(), storedP + 1);
    EXPECT_TRUE(sysex.IsCompleteLongSysex());
    for (const Vela_SysexEvent* eventP : {&inside, const_cast<const Vela_SysexEvent*>(&sysex)}) {
        Bytes middle(3);
        eventP->GetData(middle.data(), 11, 14);
        EXPECT_EQ(middle, Bytes(payload.begin() + 11, payload.begin() + 14));
    }
    // Replacing the data releases the shared object (deleted by the deferred deleter).
    sysex.SetData(2, payload.data());
    EXPECT_EQ(sysex.GetType(), Vela_Event::kSysex);
    EXPECT_EQ(Sys_DelayedDeletionObject::DrainDelayedDeletions(), 1u);

    Cmn_PolyVector<unsigned char, 0> vector;
    vector.Assign(payload.data(), payload.data() + payload.size());
    const Vela_SysexEvent fromVector(&vector);
    EXPECT_EQ(Bytes(fromVector.GetDirectDataPtr(), fromVector.GetDirectDataPtr() + 17), framed);
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

// A refused buffer or data object leaves the null event and nothing taken; an adopted block is
// kept without copying, or given back when the event cannot be built.
TEST(SysexPacket, RefusingAllocatorLeavesANullEventAndNothingTaken) {
    const Bytes bytes = Packet(40, true, true);
    for (bool adopt : {false, true}) {
        for (int refuseFrom : {0, 1, 2}) {
            SCOPED_TRACE(testing::Message() << "adopt " << adopt << ", refuse from " << refuseFrom);
            CountingAllocator allocator(refuseFrom);
            unsigned char* blockP = nullptr;
            if (adopt) {
                blockP = static_cast<unsigned char*>(allocator.Alloc(40, &gVela_SysexDataRTTag));
                if (blockP == nullptr) continue;
                std::memcpy(blockP, bytes.data(), bytes.size());
            }
            {
                const Vela_SysexPacketEvent packet = adopt ? Vela_SysexPacketEvent(Vela_SysexPacketEvent::InitWithBlock(), blockP, 40, &allocator)
                                                           : Vela_SysexPacketEvent(40, bytes.data(), &allocator);
                const bool built = refuseFrom == 2;
                EXPECT_EQ(packet.GetType(), built ? Vela_Event::kLongSysex : Vela_Event::kNull);
                EXPECT_EQ(packet.GetLength(), built ? 40 : 0);
                EXPECT_EQ(packet.IsComplete(), built);
                if (built && adopt) {
                    EXPECT_EQ(packet.GetDirectDataPtr(), blockP);
                }
            }
            EXPECT_EQ(allocator.mLive.load(), 0);
        }
    }
    EXPECT_EQ(Vela_SysexPacketEvent(40, bytes.data(), nullptr).GetType(), Vela_Event::kNull);
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

// Real-time packets share their pool data among copies, never touch the heap or the deferred
// deleter, and give everything back with the last copy.
TEST(SysexPacket, RealTimePacketsNeverTouchTheHeap) {
    CountingAllocator allocator;
    const Bytes whole = Packet(10, true, true), start = Packet(8, true, false), big = Packet(200, true, false);
    const size_t pendingBefore = Sys_DelayedDeletionObject::GetPendingCount();
    {
        const Vela_SysexPacketEvent c(200, big.data(), &allocator);
        EXPECT_EQ(Bytes(c.GetDirectDataPtr(), c.GetDirectDataPtr() + 200), big);
    }
    AllocCounter counter;
    for (int i = 0; i < 10; ++i) {
        const Vela_SysexPacketEvent a(10, whole.data(), &allocator);
        const Vela_SysexPacketEvent b(8, start.data(), &allocator);
        const Vela_SysexPacketEvent c(200, big.data(), &allocator);
        Vela_Event copy(c);
        EXPECT_EQ(allocator.mLive.load(), 2);  // buffer and data object, shared
        copy = a;
        copy = b;
    }
    EXPECT_EQ(counter.Count(), 0u);
    EXPECT_EQ(allocator.mLive.load(), 0);
    EXPECT_EQ(Sys_DelayedDeletionObject::GetPendingCount(), pendingBefore);
}
