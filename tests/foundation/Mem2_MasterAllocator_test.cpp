#include "Mem2_MasterAllocator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

#include "AllocCounter.h"
#include "AssertCapture.h"
#include "PSUtil_VMLock.h"

TEST(Mem2_MasterAllocator, BlocksAreAlignedDistinctAndWritable) {
    Mem2_MasterAllocator pool(1 << 20);
    Mem2_Statistics stats("test");
    std::vector<std::pair<char*, int>> blocks;
    for (int size : {0, 1, 15, 16, 17, 32, 100, 1024, 4000, 65536}) {
        char* p = static_cast<char*>(pool.Alloc(size, &stats));
        ASSERT_NE(p, nullptr) << size;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u) << size;
        std::memset(p, 0xAB, static_cast<size_t>(size));
        const int used = std::max(size, 1);
        for (const auto& [q, qSize] : blocks) EXPECT_TRUE(p + used <= q || q + qSize <= p) << size << " overlaps " << qSize;
        blocks.emplace_back(p, used);
    }
    for (const auto& block : blocks) pool.Free(block.first, &stats);
    EXPECT_EQ(stats.mAllocations.load(), 10);
    EXPECT_EQ(stats.mFrees.load(), 10);
    EXPECT_EQ(stats.mBytesInUse.load(), 0);
}

TEST(Mem2_MasterAllocator, ExhaustionGivesNullAndFreedBlocksAreReused) {
    Mem2_MasterAllocator pool((16 + 64) * 4);  // four 64-byte blocks with their 16-byte headers
    Mem2_Statistics stats("test");
    std::vector<void*> blocks;
    while (void* p = pool.Alloc(64, &stats)) blocks.push_back(p);
    EXPECT_EQ(blocks.size(), 4u);
    EXPECT_EQ(stats.mFailures.load(), 1);
    EXPECT_EQ(stats.mBytesInUse.load(), 4 * 64);
    EXPECT_EQ(pool.GetCarvedBytes(), pool.GetPoolBytes());

    pool.Free(blocks[2], &stats);
    EXPECT_EQ(pool.Alloc(64, &stats), blocks[2]);
    // With the pool used up, a small request may take a free larger block.
    pool.Free(blocks[0], &stats);
    EXPECT_EQ(pool.Alloc(16, &stats), blocks[0]);
    pool.Free(blocks[0], &stats);  // goes back to its own (64-byte) class
    EXPECT_EQ(pool.Alloc(64, &stats), blocks[0]);
    EXPECT_EQ(pool.Alloc(128, &stats), nullptr);
    for (void* p : blocks) pool.Free(p, &stats);
    EXPECT_EQ(stats.mBytesInUse.load(), 0);

    EXPECT_EQ(pool.Alloc(-1, &stats), nullptr);
    EXPECT_EQ(pool.Alloc(Mem2_MasterAllocator::kLargestBlock + 1, &stats), nullptr);
    EXPECT_EQ(stats.mFailures.load(), 4);
    EXPECT_EQ(Mem2_MasterAllocator(0).Alloc(16, nullptr), nullptr);
}

TEST(Mem2_MasterAllocator, ForeignPointersAndDoubleFreesAreReportedAndIgnored) {
    Mem2_MasterAllocator pool(1 << 16);
    Mem2_Statistics stats("test");
    void* p = pool.Alloc(32, &stats);
    int onStack = 0;
    AssertCapture asserts;
    pool.Free(&onStack, &stats);
    pool.Free(static_cast<char*>(p) + 16, &stats);  // inside the pool, not a block start
    pool.Free(p, &stats);
    pool.Free(p, &stats);
    ASSERT_EQ(asserts.Count(), 3u);
    EXPECT_EQ(asserts.Condition(0), "headerP != 0");
    EXPECT_EQ(asserts.Condition(1), "headerP != 0");
    EXPECT_EQ(asserts.Condition(2), "wasInUse");
    EXPECT_EQ(stats.mFrees.load(), 1);
    // The block went onto its free list once only: two allocations get two blocks.
    EXPECT_NE(pool.Alloc(32, &stats), pool.Alloc(32, &stats));
}

TEST(Mem2_MasterAllocator, AllocAndFreeNeverTouchTheHeap) {
    Mem2_MasterAllocator pool(1 << 20);
    Mem2_Statistics stats("test");
    std::vector<void*> blocks(64);
    AllocCounter counter;
    for (int round = 0; round < 3; ++round) {
        for (size_t i = 0; i < blocks.size(); ++i) blocks[i] = pool.Alloc(static_cast<int>(16 << (i % 8)), &stats);
        for (void* p : blocks) pool.Free(p, &stats);
    }
    EXPECT_EQ(counter.Count(), 0u);
}

TEST(Mem2_MasterAllocator, TwoThreadsAllocateAndFreeConcurrently) {
    // Small pool so that both threads keep recycling the same blocks through the free lists.
    Mem2_MasterAllocator pool(64 * 1024);
    Mem2_Statistics stats("test");
    auto worker = [&](unsigned char iTag) {
        std::vector<unsigned char*> held;
        for (int round = 0; round < 20000; ++round) {
            const int size = 16 << (round % 4);
            if (auto* p = static_cast<unsigned char*>(pool.Alloc(size, &stats))) {
                std::memset(p, iTag, static_cast<size_t>(size));
                held.push_back(p);
            }
            if (held.size() > 8 || (round % 3 == 0 && !held.empty())) {
                EXPECT_EQ(held.front()[0], iTag);  // another thread scribbling over a held block shows here
                pool.Free(held.front(), &stats);
                held.erase(held.begin());
            }
        }
        for (auto* p : held) pool.Free(p, &stats);
    };
    std::thread other(worker, 0x22);
    worker(0x11);
    other.join();
    EXPECT_EQ(stats.mAllocations.load(), stats.mFrees.load());
    EXPECT_EQ(stats.mBytesInUse.load(), 0);
    // Nothing was lost: every carved block can be taken again, and no block twice.
    std::set<void*> all;
    while (void* p = pool.Alloc(16, nullptr)) EXPECT_TRUE(all.insert(p).second);
    EXPECT_FALSE(all.empty());
}

TEST(PSUtil_VMLock, LocksAndUnlocksAnyRange) {
    std::vector<char> buffer(10000);
    EXPECT_TRUE(PSUtil_VMLock(nullptr, 0));
    EXPECT_FALSE(PSUtil_VMLock(nullptr, 16));
    // Locking may be refused by limits; unlocking a range that is mapped always works.
    if (PSUtil_VMLock(buffer.data() + 3, 5000)) {
        EXPECT_TRUE(PSUtil_VMUnlock(buffer.data() + 3, 5000));
    }
    EXPECT_TRUE(PSUtil_VMUnlock(buffer.data(), buffer.size()));
}
