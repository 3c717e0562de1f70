#include "Cmn_ChunkyPODVector.h"

#include <algorithm>
#include <new>
#include <utility>

#include "Cmn_Assert.h"

const Cmn_ChunkyVecPODCopier& Cmn_ChunkyVecPODCopier::Instance() {
    static const Cmn_ChunkyVecPODCopier sInstance;
    return sInstance;
}

void* Cmn_ChunkyVecImpl_Iterator::GetPtr() const { return mVecP->GetPtr(static_cast<size_t>(mIndex)); }

// ------------------------------------------------------------------ construction

Cmn_ChunkyVecImpl::Cmn_ChunkyVecImpl(const Cmn_ChunkyVecCopier& iCopier, size_t iRecordSize, size_t iRecordsPerChunk)
    : mCopierP(&iCopier), mRecordSize(iRecordSize), mRecordsPerChunk(iRecordsPerChunk) {
    VELA_ASSERT(iRecordSize > 0);
    if (mRecordSize == 0) mRecordSize = 1;
    if (mRecordsPerChunk == 0) mRecordsPerChunk = std::max<size_t>(1, kDefaultChunkBytes / mRecordSize);
}

Cmn_ChunkyVecImpl::Cmn_ChunkyVecImpl(const Cmn_ChunkyVecImpl& iOther)
    : mCopierP(iOther.mCopierP), mRecordSize(iOther.mRecordSize), mRecordsPerChunk(iOther.mRecordsPerChunk) {
    Assign(iOther);
}

Cmn_ChunkyVecImpl& Cmn_ChunkyVecImpl::operator=(const Cmn_ChunkyVecImpl& iOther) {
    if (this == &iOther) return *this;
    Cmn_ChunkyVecImpl copy(iOther);
    std::swap(mCopierP, copy.mCopierP);
    std::swap(mRecordSize, copy.mRecordSize);
    std::swap(mRecordsPerChunk, copy.mRecordsPerChunk);
    std::swap(mSize, copy.mSize);
    mChunks.swap(copy.mChunks);
    return *this;
}

Cmn_ChunkyVecImpl::~Cmn_ChunkyVecImpl() { Destruct(); }

// ------------------------------------------------------------------ queries

Cmn_ChunkyVecImpl::Location Cmn_ChunkyVecImpl::Locate(size_t iIndex) const {
    if (mChunks.empty()) return {0, 0};
    // The last chunk starting at or before iIndex; the end position lands after the last record.
    const auto after = std::upper_bound(mChunks.begin(), mChunks.end(), iIndex,
                                        [](size_t iWanted, const Chunk& iChunk) { return iWanted < iChunk.mStart; });
    const size_t chunk = static_cast<size_t>(after - mChunks.begin()) - 1;
    return {chunk, iIndex - mChunks[chunk].mStart};
}

void* Cmn_ChunkyVecImpl::GetPtr(size_t iIndex) const {
    size_t count = 0;
    return GetContiguous(iIndex, &count);
}

void* Cmn_ChunkyVecImpl::GetContiguous(size_t iIndex, size_t* oCountP) const {
    VELA_ASSERT(iIndex < mSize);
    if (iIndex >= mSize) {
        *oCountP = 0;
        return nullptr;
    }
    const Location at = Locate(iIndex);
    const Chunk& chunk = mChunks[at.mChunk];
    *oCountP = chunk.mCount - at.mOffset;
    return RecordAt(chunk, at.mOffset);
}

// ------------------------------------------------------------------ edits

void Cmn_ChunkyVecImpl::Insert(size_t iPos, size_t iCount, const void* iSourceP) {
    if (iCount == 0) return;
    VELA_ASSERT(iPos <= mSize);
    Location at = Locate(std::min(iPos, mSize));
    // At a chunk boundary, a previous chunk with room takes the records without a split
    // (the common case of records added in order).
    if (at.mOffset == 0 && at.mChunk > 0 && mChunks[at.mChunk - 1].mCount + iCount <= mRecordsPerChunk)
        at = {at.mChunk - 1, mChunks[at.mChunk - 1].mCount};
    const std::byte* sourceP = static_cast<const std::byte*>(iSourceP);
    if (!mChunks.empty() && mChunks[at.mChunk].mCount + iCount <= mRecordsPerChunk)
        InsertWithinChunk(at, iCount, sourceP);
    else
        InsertSplittingChunk(at, iCount, sourceP);
}

void Cmn_ChunkyVecImpl::Insert(size_t iPos, const Cmn_ChunkyVecImpl_Iterator& iFirst,
                               const Cmn_ChunkyVecImpl_Iterator& iLast) {
    const Cmn_ChunkyVecImpl* sourceP = iFirst.GetVector();
    const ptrdiff_t count = iLast.Subtract(iFirst);
    if (count <= 0 || !sourceP) return;
    VELA_ASSERT(sourceP->mRecordSize == mRecordSize);
    if (sourceP->mRecordSize != mRecordSize) return;
    // Gathered first: the source may be this vector, and the insertion stays all-or-nothing.
    std::vector<std::byte> records(static_cast<size_t>(count) * mRecordSize);
    size_t index = static_cast<size_t>(iFirst.GetIndex());
    for (std::byte* destP = records.data(); destP != records.data() + records.size();) {
        size_t run = 0;
        const void* runP = sourceP->GetContiguous(index, &run);
        if (!runP) return;  // a range beyond the source's end (reported by GetContiguous)
        run = std::min(run, static_cast<size_t>(records.data() + records.size() - destP) / mRecordSize);
        mCopierP->Copy(destP, runP, run, mRecordSize);
        destP += run * mRecordSize;
        index += run;
    }
    Insert(iPos, static_cast<size_t>(count), records.data());
}

void Cmn_ChunkyVecImpl::Erase(size_t iFirst, size_t iLast) {
    VELA_ASSERT(iLast <= mSize);
    iLast = std::min(iLast, mSize);
    if (iFirst >= iLast) return;
    const Location at = Locate(iFirst);
    size_t remaining = iLast - iFirst;
    for (size_t chunk = at.mChunk, offset = at.mOffset; remaining > 0; ++chunk, offset = 0) {
        Chunk& c = mChunks[chunk];
        const size_t erased = std::min(remaining, c.mCount - offset);
        mCopierP->Copy(RecordAt(c, offset), RecordAt(c, offset + erased), c.mCount - offset - erased, mRecordSize);
        c.mCount -= erased;
        remaining -= erased;
    }
    mSize -= iLast - iFirst;
    const auto emptied = std::remove_if(mChunks.begin() + static_cast<ptrdiff_t>(at.mChunk), mChunks.end(), [this](const Chunk& iChunk) {
        if (iChunk.mCount == 0) FreeChunkData(iChunk.mDataP);
        return iChunk.mCount == 0;
    });
    mChunks.erase(emptied, mChunks.end());
    // The chunks on both sides of the erased range may now fit into one.
    MergeWithNext(at.mChunk);
    if (at.mChunk > 0) MergeWithNext(at.mChunk - 1);
    Renumber(at.mChunk > 0 ? at.mChunk - 1 : 0);
}

void Cmn_ChunkyVecImpl::Assign(const Cmn_ChunkyVecImpl& iOther) {
    if (this == &iOther) return;
    VELA_ASSERT(iOther.mRecordSize == mRecordSize);
    if (iOther.mRecordSize != mRecordSize) return;
    Cmn_ChunkyVecImpl copy(*mCopierP, mRecordSize, mRecordsPerChunk);
    if (iOther.mSize > 0) copy.Insert(0, iOther.Begin(), iOther.End());
    std::swap(mSize, copy.mSize);
    mChunks.swap(copy.mChunks);
}

void Cmn_ChunkyVecImpl::Destruct() {
    for (const Chunk& chunk : mChunks) FreeChunkData(chunk.mDataP);
    std::vector<Chunk>().swap(mChunks);
    mSize = 0;
}

// ------------------------------------------------------------------ helpers

std::byte* Cmn_ChunkyVecImpl::NewChunkData() const {
    return static_cast<std::byte*>(::operator new(mRecordsPerChunk * mRecordSize));
}

void Cmn_ChunkyVecImpl::FreeChunkData(std::byte* iDataP) const { ::operator delete(iDataP); }

void Cmn_ChunkyVecImpl::InsertWithinChunk(Location iAt, size_t iCount, const std::byte* iSourceP) {
    Chunk& chunk = mChunks[iAt.mChunk];
    mCopierP->Copy(RecordAt(chunk, iAt.mOffset + iCount), RecordAt(chunk, iAt.mOffset), chunk.mCount - iAt.mOffset, mRecordSize);
    mCopierP->Copy(RecordAt(chunk, iAt.mOffset), iSourceP, iCount, mRecordSize);
    chunk.mCount += iCount;
    mSize += iCount;
    Renumber(iAt.mChunk + 1);
}

// The host chunk keeps its records before the position and takes as many new records as fit;
// the remaining new records and then the host's tail fill fresh chunks placed after it.
// Every allocation happens before anything moves, so running out of memory changes nothing.
void Cmn_ChunkyVecImpl::InsertSplittingChunk(Location iAt, size_t iCount, const std::byte* iSourceP) {
    const bool hasHost = !mChunks.empty();
    const size_t hostCount = hasHost ? mChunks[iAt.mChunk].mCount : 0;
    const size_t tail = hostCount - iAt.mOffset;
    const size_t intoHost = hasHost ? std::min(iCount, mRecordsPerChunk - iAt.mOffset) : 0;
    const size_t spilled = iCount - intoHost + tail;
    const size_t newChunks = (spilled + mRecordsPerChunk - 1) / mRecordsPerChunk;

    std::vector<Chunk> fresh;
    fresh.reserve(newChunks);
    // Room grows geometrically: reserving the exact size would copy the directory on every split.
    if (mChunks.capacity() < mChunks.size() + newChunks)
        mChunks.reserve(std::max(2 * mChunks.capacity(), mChunks.size() + newChunks));
    try {
        for (size_t i = 0, left = spilled; i < newChunks; ++i, left -= mRecordsPerChunk)
            fresh.push_back({NewChunkData(), 0, std::min(left, mRecordsPerChunk)});
    } catch (...) {
        for (const Chunk& chunk : fresh) FreeChunkData(chunk.mDataP);
        throw;
    }

    // Writes iRecords records to spilled position iSpilled onward, across the fresh chunks.
    auto spill = [&](size_t iSpilled, const std::byte* iFromP, size_t iRecords) {
        while (iRecords > 0) {
            Chunk& chunk = fresh[iSpilled / mRecordsPerChunk];
            const size_t offset = iSpilled % mRecordsPerChunk;
            const size_t run = std::min(iRecords, mRecordsPerChunk - offset);
            mCopierP->Copy(RecordAt(chunk, offset), iFromP, run, mRecordSize);
            iSpilled += run, iFromP += run * mRecordSize, iRecords -= run;
        }
    };
    if (hasHost) {
        Chunk* hostP = &mChunks[iAt.mChunk];  // taken after the reserve, which may move chunks
        spill(spilled - tail, RecordAt(*hostP, iAt.mOffset), tail);  // the tail leaves the host first
        mCopierP->Copy(RecordAt(*hostP, iAt.mOffset), iSourceP, intoHost, mRecordSize);
        hostP->mCount = iAt.mOffset + intoHost;
    }
    spill(0, iSourceP + intoHost * mRecordSize, iCount - intoHost);

    const size_t firstFresh = hasHost ? iAt.mChunk + 1 : 0;
    mChunks.insert(mChunks.begin() + static_cast<ptrdiff_t>(firstFresh), fresh.begin(), fresh.end());
    mSize += iCount;
    Renumber(hasHost ? iAt.mChunk : 0);
}

void Cmn_ChunkyVecImpl::MergeWithNext(size_t iChunk) {
    if (iChunk + 1 >= mChunks.size()) return;
    Chunk& chunk = mChunks[iChunk];
    Chunk& next = mChunks[iChunk + 1];
    if (chunk.mCount + next.mCount > mRecordsPerChunk) return;
    mCopierP->Copy(RecordAt(chunk, chunk.mCount), next.mDataP, next.mCount, mRecordSize);
    chunk.mCount += next.mCount;
    FreeChunkData(next.mDataP);
    mChunks.erase(mChunks.begin() + static_cast<ptrdiff_t>(iChunk + 1));
}

void Cmn_ChunkyVecImpl::Renumber(size_t iFromChunk) {
    size_t start = iFromChunk == 0 ? 0 : mChunks[iFromChunk - 1].mStart + mChunks[iFromChunk - 1].mCount;
    for (size_t i = iFromChunk; i < mChunks.size(); ++i) {
        mChunks[i].mStart = start;
        start += mChunks[i].mCount;
    }
}
