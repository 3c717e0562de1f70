#include "Mem2_MasterAllocator.h"

#include <bit>
#include <new>

#include "Cmn_Assert.h"
#include "PSUtil_VMLock.h"

namespace {
constexpr int kSmallestClassShift = 4;  // 16 bytes
constexpr int kLargestClassShift = std::countr_zero(static_cast<unsigned>(Mem2_MasterAllocator::kLargestBlock));
constexpr int kNumClasses = kLargestClassShift - kSmallestClassShift + 1;
constexpr size_t kGranule = 16;  // block alignment; free-list links count in granules
constexpr size_t kPoolAlignment = 4096;
constexpr uint32_t kNoBlock = 0xFFFFFFFFu;
constexpr uint32_t kBlockMagic = 0x4D656D32u;
// Links are 32-bit granule offsets, so a pool may span at most this many bytes.
constexpr size_t kMaxPoolBytes = size_t{kNoBlock} * kGranule;

static_assert(Mem2_MasterAllocator::kLargestBlock == 1 << kLargestClassShift, "largest block must be a power of two");

// Sits in the granule before each block's payload. The class and magic are written once when
// the block is carved; mNextFree is written by whoever pushes the block and may be read by a
// concurrent (and then failing) pop, hence atomic.
struct alignas(kGranule) BlockHeader {
    std::atomic<uint32_t> mNextFree{kNoBlock};
    uint32_t mMagic = kBlockMagic;
    uint16_t mClassIndex = 0;
    std::atomic<uint16_t> mInUse{1};
};
static_assert(sizeof(BlockHeader) == kGranule);

constexpr size_t ClassBytes(int iClass) { return size_t{1} << (iClass + kSmallestClassShift); }

int ClassOf(int iSize) {
    const unsigned bytes = iSize < 16 ? 16u : static_cast<unsigned>(iSize);
    return std::bit_width(bytes - 1) - kSmallestClassShift;
}

// A Treiber stack whose head packs a generation count (high half) with the top block's
// granule offset (low half); the generation changes on every push and pop, so a pop that
// read a stale head cannot succeed after the block went away and came back (ABA).
class FreeList {
public:
    static uint32_t OffsetOf(uint64_t iHead) { return static_cast<uint32_t>(iHead); }
    static uint64_t NextHead(uint64_t iHead, uint32_t iOffset) { return ((iHead >> 32) + 1) << 32 | iOffset; }

    template <class HeaderAt>
    uint32_t Pop(HeaderAt iHeaderAt) {
        uint64_t head = mHead.load(std::memory_order_acquire);
        while (OffsetOf(head) != kNoBlock) {
            const uint32_t next = iHeaderAt(OffsetOf(head))->mNextFree.load(std::memory_order_relaxed);
            if (mHead.compare_exchange_weak(head, NextHead(head, next), std::memory_order_acquire,
                                            std::memory_order_acquire))
                return OffsetOf(head);
        }
        return kNoBlock;
    }

    void Push(BlockHeader* iHeaderP, uint32_t iOffset) {
        uint64_t head = mHead.load(std::memory_order_relaxed);
        do {
            iHeaderP->mNextFree.store(OffsetOf(head), std::memory_order_relaxed);
        } while (!mHead.compare_exchange_weak(head, NextHead(head, iOffset), std::memory_order_release,
                                              std::memory_order_relaxed));
    }

private:
    std::atomic<uint64_t> mHead{kNoBlock};
};
static_assert(std::atomic<uint64_t>::is_always_lock_free);

void Count(Mem2_Statistics* iStatsP, std::atomic<int64_t> Mem2_Statistics::*iField, int64_t iDelta) {
    if (iStatsP) (iStatsP->*iField).fetch_add(iDelta, std::memory_order_relaxed);
}
}  // namespace

struct Mem2_MasterAllocator::Impl {
    explicit Impl(size_t iPoolBytes) : mPoolBytes(iPoolBytes < kMaxPoolBytes ? iPoolBytes / kGranule * kGranule : kMaxPoolBytes) {
        if (mPoolBytes == 0) return;
        mPoolP = static_cast<std::byte*>(::operator new(mPoolBytes, std::align_val_t(kPoolAlignment)));
        mLocked = PSUtil_VMLock(mPoolP, mPoolBytes);
    }
    ~Impl() {
        if (!mPoolP) return;
        if (mLocked) PSUtil_VMUnlock(mPoolP, mPoolBytes);
        ::operator delete(mPoolP, std::align_val_t(kPoolAlignment));
    }

    BlockHeader* HeaderAt(uint32_t iOffset) const { return reinterpret_cast<BlockHeader*>(mPoolP + iOffset * kGranule); }
    uint32_t OffsetOf(const BlockHeader* iHeaderP) const {
        return static_cast<uint32_t>((reinterpret_cast<const std::byte*>(iHeaderP) - mPoolP) / kGranule);
    }

    BlockHeader* Take(int iClass) {
        if (BlockHeader* headerP = PopFrom(iClass)) return headerP;
        if (BlockHeader* headerP = Carve(iClass)) return headerP;
        // The pool is used up: a free block of a larger class beats failing.
        for (int larger = iClass + 1; larger < kNumClasses; ++larger)
            if (BlockHeader* headerP = PopFrom(larger)) return headerP;
        return nullptr;
    }

    BlockHeader* PopFrom(int iClass) {
        const uint32_t offset = mFreeLists[iClass].Pop([this](uint32_t iOffset) { return HeaderAt(iOffset); });
        return offset == kNoBlock ? nullptr : HeaderAt(offset);
    }

    BlockHeader* Carve(int iClass) {
        const size_t blockBytes = sizeof(BlockHeader) + ClassBytes(iClass);
        size_t carved = mCarved.load(std::memory_order_relaxed);
        do {
            if (mPoolBytes - carved < blockBytes) return nullptr;
        } while (!mCarved.compare_exchange_weak(carved, carved + blockBytes, std::memory_order_relaxed));
        BlockHeader* headerP = new (mPoolP + carved) BlockHeader;
        headerP->mClassIndex = static_cast<uint16_t>(iClass);
        return headerP;
    }

    // The header of a payload pointer this pool gave out, or null for any other pointer.
    BlockHeader* HeaderOf(void* iP) const {
        const std::byte* p = static_cast<const std::byte*>(iP);
        if (!mPoolP || p < mPoolP + sizeof(BlockHeader) || p >= mPoolP + mCarved.load(std::memory_order_relaxed)) return nullptr;
        if ((p - mPoolP) % kGranule != 0) return nullptr;
        BlockHeader* headerP = reinterpret_cast<BlockHeader*>(const_cast<std::byte*>(p)) - 1;
        if (headerP->mMagic != kBlockMagic || headerP->mClassIndex >= kNumClasses) return nullptr;
        return headerP;
    }

    const size_t mPoolBytes;
    std::byte* mPoolP = nullptr;
    bool mLocked = false;
    std::atomic<size_t> mCarved{0};
    // Each list on its own cache line, so threads working on different classes don't collide.
    struct alignas(64) PaddedList : FreeList {};
    PaddedList mFreeLists[kNumClasses];
};

Mem2_MasterAllocator::Mem2_MasterAllocator(size_t iPoolBytes) : mImplP(new Impl(iPoolBytes)) {}

Mem2_MasterAllocator::~Mem2_MasterAllocator() { delete mImplP; }

void* Mem2_MasterAllocator::Alloc(int iSize, Mem2_Statistics* iStatsP) {
    BlockHeader* headerP = iSize >= 0 && iSize <= kLargestBlock ? mImplP->Take(ClassOf(iSize)) : nullptr;
    if (!headerP) {
        Count(iStatsP, &Mem2_Statistics::mFailures, 1);
        return nullptr;
    }
    headerP->mInUse.store(1, std::memory_order_relaxed);
    Count(iStatsP, &Mem2_Statistics::mAllocations, 1);
    Count(iStatsP, &Mem2_Statistics::mBytesInUse, static_cast<int64_t>(ClassBytes(headerP->mClassIndex)));
    return headerP + 1;
}

void Mem2_MasterAllocator::Free(void* iP, Mem2_Statistics* iStatsP) {
    if (!iP) return;
    BlockHeader* headerP = mImplP->HeaderOf(iP);
    VELA_ASSERT(headerP != 0);
    if (!headerP) return;
    // A plain load and store, not an exchange: this catches a block freed twice in sequence,
    // which is the mistake that happens; two threads racing to free one block is not checked.
    const bool wasInUse = headerP->mInUse.load(std::memory_order_relaxed) != 0;
    VELA_ASSERT(wasInUse);
    if (!wasInUse) return;
    headerP->mInUse.store(0, std::memory_order_relaxed);
    Count(iStatsP, &Mem2_Statistics::mFrees, 1);
    Count(iStatsP, &Mem2_Statistics::mBytesInUse, -static_cast<int64_t>(ClassBytes(headerP->mClassIndex)));
    mImplP->mFreeLists[headerP->mClassIndex].Push(headerP, mImplP->OffsetOf(headerP));
}

bool Mem2_MasterAllocator::IsLocked() const { return mImplP->mLocked; }

size_t Mem2_MasterAllocator::GetPoolBytes() const { return mImplP->mPoolBytes; }

size_t Mem2_MasterAllocator::GetCarvedBytes() const { return mImplP->mCarved.load(std::memory_order_relaxed); }
