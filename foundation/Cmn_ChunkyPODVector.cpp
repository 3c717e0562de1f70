#include "Cmn_ChunkyPODVector.h"

#include <algorithm>
#include <cstring>
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
    std::swap(mNumChunks, copy.mNumChunks);
    mGroups.swap(copy.mGroups);
    return *this;
}

Cmn_ChunkyVecImpl::~Cmn_ChunkyVecImpl() { Destruct(); }

// ------------------------------------------------------------------ queries

// The record at iIndex; iIndex == GetSize() lands after the last record of the last chunk.
Cmn_ChunkyVecImpl::Location Cmn_ChunkyVecImpl::Locate(size_t iIndex) const {
    if (mGroups.empty()) return {0, 0, 0};
    // The last chunk directly: records are mostly added and read at the end.
    const Group& last = mGroups.back();
    if (iIndex >= mSize - std::min(mSize, last.mChunks.back().mCount))
        return {mGroups.size() - 1, last.mChunks.size() - 1, last.mChunks.back().mCount - (mSize - std::min(iIndex, mSize))};
    const auto after = std::upper_bound(mGroups.begin(), mGroups.end(), iIndex,
                                        [](size_t iWanted, const Group& iGroup) { return iWanted < iGroup.mStart; });
    const size_t group = static_cast<size_t>(after - mGroups.begin()) - 1;
    const std::vector<Chunk>& chunks = mGroups[group].mChunks;
    size_t offset = iIndex - mGroups[group].mStart;
    size_t chunk = 0;
    for (; offset >= chunks[chunk].mCount; ++chunk) offset -= chunks[chunk].mCount;
    return {group, chunk, offset};
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
    const Chunk& chunk = mGroups[at.mGroup].mChunks[at.mChunk];
    *oCountP = chunk.mCount - at.mOffset;
    return RecordAt(chunk, at.mOffset);
}

bool Cmn_ChunkyVecImpl::Previous(const Location& iAt, Location& oPrevious) const {
    if (iAt.mChunk > 0) {
        oPrevious = {iAt.mGroup, iAt.mChunk - 1, 0};
    } else if (iAt.mGroup > 0) {
        oPrevious = {iAt.mGroup - 1, mGroups[iAt.mGroup - 1].mChunks.size() - 1, 0};
    } else {
        return false;
    }
    return true;
}

// ------------------------------------------------------------------ edits

void Cmn_ChunkyVecImpl::Insert(size_t iPos, size_t iCount, const void* iSourceP) {
    if (iCount == 0) return;
    VELA_ASSERT(iPos <= mSize);
    const std::byte* sourceP = static_cast<const std::byte*>(iSourceP);
    if (mGroups.empty()) return InsertIntoEmpty(iCount, sourceP);
    Location at = Locate(std::min(iPos, mSize));
    // At a chunk boundary, a previous chunk with room takes the records without a split
    // (the common case of records added in order).
    Location previous{};
    if (at.mOffset == 0 && Previous(at, previous) && ChunkAt(previous).mCount + iCount <= mRecordsPerChunk)
        at = {previous.mGroup, previous.mChunk, ChunkAt(previous).mCount};
    if (ChunkAt(at).mCount + iCount <= mRecordsPerChunk)
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
    size_t group = at.mGroup;
    size_t chunk = at.mChunk;
    size_t offset = at.mOffset;
    for (size_t remaining = iLast - iFirst; remaining > 0; offset = 0) {
        Group& g = mGroups[group];
        Chunk& c = g.mChunks[chunk];
        const size_t erased = std::min(remaining, c.mCount - offset);
        mCopierP->Copy(RecordAt(c, offset), RecordAt(c, offset + erased), c.mCount - offset - erased, mRecordSize);
        c.mCount -= erased;
        g.mCount -= erased;
        remaining -= erased;
        if (c.mCount > 0) {
            if (offset == 0) RefreshKey(c);
            ++chunk;
        } else {
            FreeChunkData(c.mDataP);
            g.mChunks.erase(g.mChunks.begin() + static_cast<ptrdiff_t>(chunk));
            --mNumChunks;
            if (g.mChunks.empty()) {
                mGroups.erase(mGroups.begin() + static_cast<ptrdiff_t>(group));
                chunk = 0;
            }
        }
        if (group < mGroups.size() && chunk >= mGroups[group].mChunks.size()) ++group, chunk = 0;
    }
    mSize -= iLast - iFirst;
    RenumberGroups(at.mGroup);
    RefreshGroupKeys(at.mGroup, group + 1);
    if (mSize == 0) return;
    // The chunks on both sides of the erased range may now fit into one.
    Location next = Locate(std::min(iFirst, mSize - 1));
    MergeWithNext(next);
    Location previous{};
    if (Previous(Locate(std::min(iFirst, mSize - 1)), previous)) MergeWithNext(previous);
}

void Cmn_ChunkyVecImpl::Assign(const Cmn_ChunkyVecImpl& iOther) {
    if (this == &iOther) return;
    VELA_ASSERT(iOther.mRecordSize == mRecordSize);
    if (iOther.mRecordSize != mRecordSize) return;
    Cmn_ChunkyVecImpl copy(*mCopierP, mRecordSize, mRecordsPerChunk);
    if (iOther.mSize > 0) copy.Insert(0, iOther.Begin(), iOther.End());
    std::swap(mSize, copy.mSize);
    std::swap(mNumChunks, copy.mNumChunks);
    mGroups.swap(copy.mGroups);
}

void Cmn_ChunkyVecImpl::Destruct() {
    for (const Group& group : mGroups)
        for (const Chunk& chunk : group.mChunks) FreeChunkData(chunk.mDataP);
    std::vector<Group>().swap(mGroups);
    mSize = 0;
    mNumChunks = 0;
}

// ------------------------------------------------------------------ helpers

std::byte* Cmn_ChunkyVecImpl::NewChunkData() const {
    return static_cast<std::byte*>(::operator new(mRecordsPerChunk * mRecordSize));
}

void Cmn_ChunkyVecImpl::FreeChunkData(std::byte* iDataP) const { ::operator delete(iDataP); }

// iCount fresh chunks that will hold iRecords records, the last one the remainder.
std::vector<Cmn_ChunkyVecImpl::Chunk> Cmn_ChunkyVecImpl::NewChunks(size_t iCount, size_t iRecords) const {
    std::vector<Chunk> fresh;
    fresh.reserve(iCount);
    try {
        for (size_t i = 0, left = iRecords; i < iCount; ++i, left -= mRecordsPerChunk)
            fresh.push_back({NewChunkData(), std::min(left, mRecordsPerChunk), {}});
    } catch (...) {
        for (const Chunk& chunk : fresh) FreeChunkData(chunk.mDataP);
        throw;
    }
    return fresh;
}

void Cmn_ChunkyVecImpl::InsertIntoEmpty(size_t iCount, const std::byte* iSourceP) {
    const size_t chunks = (iCount + mRecordsPerChunk - 1) / mRecordsPerChunk;
    std::vector<Chunk> fresh = NewChunks(chunks, iCount);
    std::vector<Group> pieces;
    try {
        mGroups.reserve(1);
        pieces = PrepareSplit(chunks);
    } catch (...) {
        for (const Chunk& chunk : fresh) FreeChunkData(chunk.mDataP);
        throw;
    }
    for (const Chunk& chunk : fresh) {
        mCopierP->Copy(chunk.mDataP, iSourceP, chunk.mCount, mRecordSize);
        iSourceP += chunk.mCount * mRecordSize;
    }
    mGroups.push_back({0, iCount, std::move(fresh), {}});
    mSize = iCount;
    mNumChunks = chunks;
    for (Chunk& chunk : mGroups[0].mChunks) RefreshKey(chunk);
    SplitGroup(0, pieces);
    RefreshGroupKeys(0, mGroups.size());
}

void Cmn_ChunkyVecImpl::InsertWithinChunk(Location iAt, size_t iCount, const std::byte* iSourceP) {
    Chunk& chunk = ChunkAt(iAt);
    mCopierP->Copy(RecordAt(chunk, iAt.mOffset + iCount), RecordAt(chunk, iAt.mOffset), chunk.mCount - iAt.mOffset, mRecordSize);
    mCopierP->Copy(RecordAt(chunk, iAt.mOffset), iSourceP, iCount, mRecordSize);
    chunk.mCount += iCount;
    mGroups[iAt.mGroup].mCount += iCount;
    mSize += iCount;
    RenumberGroups(iAt.mGroup + 1);
    if (iAt.mOffset == 0) {
        RefreshKey(chunk);
        RefreshGroupKeys(iAt.mGroup, iAt.mGroup + 1);
    }
}

// The host chunk keeps its records before the position and takes as many new records as fit;
// the remaining new records and then the host's tail fill fresh chunks placed after it.
// Every allocation happens before anything moves, so running out of memory changes nothing.
void Cmn_ChunkyVecImpl::InsertSplittingChunk(Location iAt, size_t iCount, const std::byte* iSourceP) {
    const size_t tail = ChunkAt(iAt).mCount - iAt.mOffset;
    const size_t intoHost = std::min(iCount, mRecordsPerChunk - iAt.mOffset);
    const size_t spilled = iCount - intoHost + tail;
    const size_t newChunks = (spilled + mRecordsPerChunk - 1) / mRecordsPerChunk;

    std::vector<Chunk> fresh = NewChunks(newChunks, spilled);
    std::vector<Group> pieces;
    try {
        const size_t needed = mGroups[iAt.mGroup].mChunks.size() + newChunks;
        pieces = PrepareSplit(needed);  // may move the groups: references are taken after it
        // Room grows geometrically: reserving the exact size would copy on every split.
        std::vector<Chunk>& chunks = mGroups[iAt.mGroup].mChunks;
        if (chunks.capacity() < needed) chunks.reserve(std::max(2 * chunks.capacity(), needed));
    } catch (...) {
        for (const Chunk& chunk : fresh) FreeChunkData(chunk.mDataP);
        throw;
    }
    Group& group = mGroups[iAt.mGroup];

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
    Chunk& host = group.mChunks[iAt.mChunk];
    spill(spilled - tail, RecordAt(host, iAt.mOffset), tail);  // the tail leaves the host first
    mCopierP->Copy(RecordAt(host, iAt.mOffset), iSourceP, intoHost, mRecordSize);
    host.mCount = iAt.mOffset + intoHost;
    spill(0, iSourceP + intoHost * mRecordSize, iCount - intoHost);

    if (iAt.mOffset == 0) RefreshKey(host);
    for (Chunk& chunk : fresh) RefreshKey(chunk);
    group.mChunks.insert(group.mChunks.begin() + static_cast<ptrdiff_t>(iAt.mChunk + 1), fresh.begin(), fresh.end());
    group.mCount += iCount;
    mSize += iCount;
    mNumChunks += newChunks;
    const size_t groupsAdded = pieces.size();
    SplitGroup(iAt.mGroup, pieces);
    RenumberGroups(iAt.mGroup + 1);
    RefreshGroupKeys(iAt.mGroup, iAt.mGroup + 1 + groupsAdded);
}

// The storage a group of iChunks chunks needs to be cut into groups of half the maximum:
// allocated before any record moves, so that the cut itself cannot fail.
std::vector<Cmn_ChunkyVecImpl::Group> Cmn_ChunkyVecImpl::PrepareSplit(size_t iChunks) {
    std::vector<Group> pieces;
    if (iChunks <= kMaxChunksPerGroup) return pieces;
    const size_t count = (iChunks + kMaxChunksPerGroup / 2 - 1) / (kMaxChunksPerGroup / 2);
    pieces.resize(count - 1);
    for (Group& piece : pieces) piece.mChunks.reserve(kMaxChunksPerGroup / 2);
    const size_t needed = mGroups.size() + pieces.size() + 1;  // one more for a group about to be added
    if (mGroups.capacity() < needed) mGroups.reserve(std::max(2 * mGroups.capacity(), needed));
    return pieces;
}

// Moves the chunks of iGroup beyond the first half-maximum into the prepared pieces.
void Cmn_ChunkyVecImpl::SplitGroup(size_t iGroup, std::vector<Group>& ioPieces) {
    if (ioPieces.empty()) return;
    constexpr size_t kPiece = kMaxChunksPerGroup / 2;
    Group& group = mGroups[iGroup];
    size_t start = group.mStart;
    for (size_t i = 0; i < kPiece; ++i) start += group.mChunks[i].mCount;
    for (size_t p = 0; p < ioPieces.size(); ++p) {
        Group& piece = ioPieces[p];
        const size_t first = kPiece * (p + 1);
        const size_t last = std::min(first + kPiece, group.mChunks.size());
        piece.mChunks.assign(group.mChunks.begin() + static_cast<ptrdiff_t>(first), group.mChunks.begin() + static_cast<ptrdiff_t>(last));
        piece.mStart = start;
        piece.mCount = 0;
        for (const Chunk& chunk : piece.mChunks) piece.mCount += chunk.mCount;
        start += piece.mCount;
    }
    group.mChunks.resize(kPiece);
    group.mCount = ioPieces.front().mStart - group.mStart;
    mGroups.insert(mGroups.begin() + static_cast<ptrdiff_t>(iGroup + 1), std::make_move_iterator(ioPieces.begin()),
                   std::make_move_iterator(ioPieces.end()));
}

// Moves the next chunk's records (possibly in the next group) into iAt's chunk when they fit.
void Cmn_ChunkyVecImpl::MergeWithNext(Location iAt) {
    Group& group = mGroups[iAt.mGroup];
    const bool sameGroup = iAt.mChunk + 1 < group.mChunks.size();
    if (!sameGroup && iAt.mGroup + 1 >= mGroups.size()) return;
    Group& nextGroup = sameGroup ? group : mGroups[iAt.mGroup + 1];
    const size_t nextIndex = sameGroup ? iAt.mChunk + 1 : 0;
    Chunk& chunk = group.mChunks[iAt.mChunk];
    const Chunk next = nextGroup.mChunks[nextIndex];
    if (chunk.mCount + next.mCount > mRecordsPerChunk) return;
    mCopierP->Copy(RecordAt(chunk, chunk.mCount), next.mDataP, next.mCount, mRecordSize);
    chunk.mCount += next.mCount;
    group.mCount += next.mCount;
    nextGroup.mCount -= next.mCount;
    FreeChunkData(next.mDataP);
    nextGroup.mChunks.erase(nextGroup.mChunks.begin() + static_cast<ptrdiff_t>(nextIndex));
    --mNumChunks;
    if (nextGroup.mChunks.empty()) mGroups.erase(mGroups.begin() + static_cast<ptrdiff_t>(iAt.mGroup + 1));
    RenumberGroups(iAt.mGroup + 1);
    RefreshGroupKeys(iAt.mGroup + 1, iAt.mGroup + 2);
}

void Cmn_ChunkyVecImpl::RefreshKeys() {
    for (Group& group : mGroups)
        for (Chunk& chunk : group.mChunks) RefreshKey(chunk);
    RefreshGroupKeys(0, mGroups.size());
}

void Cmn_ChunkyVecImpl::RefreshKey(Chunk& ioChunk) const {
    std::memcpy(ioChunk.mKey, ioChunk.mDataP, std::min(mRecordSize, kKeyBytes));
}

void Cmn_ChunkyVecImpl::RefreshGroupKeys(size_t iFirstGroup, size_t iLastGroup) {
    for (size_t g = iFirstGroup; g < std::min(iLastGroup, mGroups.size()); ++g)
        std::memcpy(mGroups[g].mKey, mGroups[g].mChunks.front().mKey, kKeyBytes);
}

void Cmn_ChunkyVecImpl::RenumberGroups(size_t iFromGroup) {
    size_t start = iFromGroup == 0 ? 0 : mGroups[iFromGroup - 1].mStart + mGroups[iFromGroup - 1].mCount;
    for (size_t i = iFromGroup; i < mGroups.size(); ++i) {
        mGroups[i].mStart = start;
        start += mGroups[i].mCount;
    }
}
