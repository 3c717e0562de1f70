// Cmn_ChunkyPODVector<T>: a segmented vector of plain records (notes, controller segments).
// Records live in fixed-capacity segments (chunks) of 4 KiB by default, so growing the vector
// never moves the whole content and an insertion or erasure moves at most one segment's records.
// The chunk directory is itself split into groups of at most kMaxChunksPerGroup chunks, each
// knowing where it starts, so that neither a split chunk nor a renumbering touches the whole
// directory. Records are contiguous within a segment only; use GetContiguous (or iterate)
// rather than pointer arithmetic across records.
//
// Cost: reaching a position is a binary search of the groups plus a scan of one group's chunk
// counts; Insert/Erase move the records of one chunk, one group's directory and the group
// starts after it: O(R + G + N / (R * G)) for R records a chunk and G chunks a group.
// Records are copied bytewise through the copier (Cmn_ChunkyVecPODCopier): T must be trivially
// copyable. Callers that store events holding references (long system-exclusive data) call the
// events' image hooks themselves around raw copies.
//
// Threads: one thread at a time; concurrent reads of an unchanging vector are safe (lookups
// keep no cache). Reading never allocates; Insert, Assign and copying allocate segments.
// Iterators are (vector, index) pairs: they stay meaningful as positions across edits but the
// addresses GetPtr gave are invalid after any Insert or Erase.
// Exceptions: an Insert or Assign that runs out of memory throws std::bad_alloc and leaves the
// vector as it was.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <type_traits>
#include <vector>

// Whether records of T may live in a chunked vector, which moves them as raw bytes. Plain
// records qualify by themselves; a record holding values with copy operations of their own
// (events) opts in by specialising this when its owner honours those operations around copies.
template <class T>
struct Cmn_ChunkyRawRecord : std::is_trivially_copyable<T> {};

// Copies records from one place to another; source and destination may overlap.
class Cmn_ChunkyVecCopier {
public:
    virtual ~Cmn_ChunkyVecCopier() = default;
    virtual void Copy(void* oDestP, const void* iSourceP, size_t iCount, size_t iRecordSize) const = 0;
};

// The copier of plain records: bytewise.
class Cmn_ChunkyVecPODCopier : public Cmn_ChunkyVecCopier {
public:
    void Copy(void* oDestP, const void* iSourceP, size_t iCount, size_t iRecordSize) const override {
        if (iCount) std::memmove(oDestP, iSourceP, iCount * iRecordSize);
    }
    // A shared instance for vectors that need no other copier.
    static const Cmn_ChunkyVecPODCopier& Instance();
};

class Cmn_ChunkyVecImpl;

// A position in a chunked vector: index 0 is the beginning, index GetSize() the end.
// Compares by index (iterators of different vectors are not comparable).
class Cmn_ChunkyVecImpl_Iterator {
public:
    Cmn_ChunkyVecImpl_Iterator() = default;
    Cmn_ChunkyVecImpl_Iterator(const Cmn_ChunkyVecImpl* iVecP, ptrdiff_t iIndex) : mVecP(iVecP), mIndex(iIndex) {}

    void Add(ptrdiff_t iCount) { mIndex += iCount; }
    ptrdiff_t Subtract(const Cmn_ChunkyVecImpl_Iterator& iOther) const { return mIndex - iOther.mIndex; }
    // The record's address; only for 0 <= index < size.
    void* GetPtr() const;
    ptrdiff_t GetIndex() const { return mIndex; }
    const Cmn_ChunkyVecImpl* GetVector() const { return mVecP; }

    friend bool operator==(const Cmn_ChunkyVecImpl_Iterator& iA, const Cmn_ChunkyVecImpl_Iterator& iB) {
        return iA.mIndex == iB.mIndex;
    }
    friend auto operator<=>(const Cmn_ChunkyVecImpl_Iterator& iA, const Cmn_ChunkyVecImpl_Iterator& iB) {
        return iA.mIndex <=> iB.mIndex;
    }

private:
    const Cmn_ChunkyVecImpl* mVecP = nullptr;
    ptrdiff_t mIndex = 0;
};

// The untyped engine: records of a fixed size, known only at run time.
class Cmn_ChunkyVecImpl {
public:
    static constexpr size_t kDefaultChunkBytes = 4096;

    // iCopier must outlive the vector. iRecordsPerChunk 0: as many as fit in kDefaultChunkBytes.
    Cmn_ChunkyVecImpl(const Cmn_ChunkyVecCopier& iCopier, size_t iRecordSize, size_t iRecordsPerChunk = 0);
    Cmn_ChunkyVecImpl(const Cmn_ChunkyVecImpl& iOther);
    Cmn_ChunkyVecImpl& operator=(const Cmn_ChunkyVecImpl& iOther);
    ~Cmn_ChunkyVecImpl();

    // --- queries
    size_t GetSize() const { return mSize; }
    bool IsEmpty() const { return mSize == 0; }
    size_t GetRecordSize() const { return mRecordSize; }
    size_t GetRecordsPerChunk() const { return mRecordsPerChunk; }
    size_t GetNumChunks() const { return mNumChunks; }
    // Address of record iIndex (< GetSize()).
    void* GetPtr(size_t iIndex) const;
    // The first index whose record is not "before", where iBefore(const void* record) holds for
    // a prefix of the records (as std::partition_point): a binary search over the groups' and
    // then the chunks' first records, then one within a chunk. Allocates nothing.
    // With iByKey, iBefore reads only a record's leading key, its first kKeyBytes bytes (all of
    // it when shorter), and the directory's copies of the chunks' first keys stand in for the
    // first records: such a search reads one chunk of records and no other. An owner that
    // changes key bytes in place (through GetPtr or GetContiguous) calls RefreshKeys afterwards.
    static constexpr size_t kKeyBytes = 16;
    static constexpr size_t kLargeRecordBytes = 128;
    template <class TBefore>
    size_t PartitionPoint(TBefore iBefore, bool iByKey = false) const;
    void RefreshKeys();
    // Address of record iIndex and, in *oCountP, how many records from it on are contiguous.
    void* GetContiguous(size_t iIndex, size_t* oCountP) const;
    Cmn_ChunkyVecImpl_Iterator Begin() const { return {this, 0}; }
    Cmn_ChunkyVecImpl_Iterator End() const { return {this, static_cast<ptrdiff_t>(mSize)}; }

    // --- edits (positions beyond the end are reported and clamped to it)
    // Inserts iCount records read contiguously from iSourceP before position iPos. iSourceP
    // must not point into this vector (use the iterator range form for that).
    void Insert(size_t iPos, size_t iCount, const void* iSourceP);
    // Inserts the records [iFirst, iLast) of any chunked vector of the same record size
    // (this one included) before position iPos.
    void Insert(size_t iPos, const Cmn_ChunkyVecImpl_Iterator& iFirst, const Cmn_ChunkyVecImpl_Iterator& iLast);
    void Erase(size_t iPos) { Erase(iPos, iPos + 1); }
    // Erases positions [iFirst, iLast).
    void Erase(size_t iFirst, size_t iLast);
    // Makes this vector a copy of iOther (same record size).
    void Assign(const Cmn_ChunkyVecImpl& iOther);
    // Removes every record and frees every chunk.
    void Destruct();

private:
    static constexpr size_t kMaxChunksPerGroup = 256;

    struct Chunk {
        std::byte* mDataP;
        size_t mCount;
        size_t mStart;                         // index of the first record within its group
        alignas(8) std::byte mKey[kKeyBytes];  // the key of the first record
    };
    struct Group {
        size_t mStart;  // index of the group's first record in the vector
        size_t mCount;
        std::vector<Chunk> mChunks;  // never empty
        alignas(8) std::byte mKey[kKeyBytes];  // the key of the first chunk
    };
    struct Location {
        size_t mGroup;
        size_t mChunk;  // within the group
        size_t mOffset;
    };

    Location Locate(size_t iIndex) const;
    Chunk& ChunkAt(const Location& iAt) { return mGroups[iAt.mGroup].mChunks[iAt.mChunk]; }
    std::byte* RecordAt(const Chunk& iChunk, size_t iOffset) const { return iChunk.mDataP + iOffset * mRecordSize; }
    std::byte* NewChunkData() const;
    void FreeChunkData(std::byte* iDataP) const;
    std::vector<Chunk> NewChunks(size_t iCount, size_t iRecords) const;
    bool Previous(const Location& iAt, Location& oPrevious) const;
    void InsertIntoEmpty(size_t iCount, const std::byte* iSourceP);
    void InsertWithinChunk(Location iAt, size_t iCount, const std::byte* iSourceP);
    void InsertSplittingChunk(Location iAt, size_t iCount, const std::byte* iSourceP);
    std::vector<Group> PrepareSplit(size_t iChunks);
    void SplitGroup(size_t iGroup, std::vector<Group>& ioPieces);
    void MergeWithNext(Location iAt);
    void RenumberGroups(size_t iFromGroup);
    // Copies a chunk's first key from its records.
    void RefreshKey(Chunk& ioChunk) const;
    // Renumbers the chunks of the groups [iFirst, iLast) and takes their keys from their first chunks.
    void RefreshGroups(size_t iFirstGroup, size_t iLastGroup);
    void RenumberChunks(size_t iGroup, size_t iFromChunk);

    const Cmn_ChunkyVecCopier* mCopierP;
    size_t mRecordSize;
    size_t mRecordsPerChunk;
    size_t mSize = 0;
    size_t mNumChunks = 0;
    std::vector<Group> mGroups;  // no group and no chunk is ever empty
};

template <class TBefore>
size_t Cmn_ChunkyVecImpl::PartitionPoint(TBefore iBefore, bool iByKey) const {
    // The number of leading elements of iRange whose key is before.
    const auto countBefore = [&iBefore](const auto& iRange, size_t iFrom, size_t iSize, auto iKey) {
        size_t low = iFrom;
        for (size_t high = iSize; low < high;) {
            const size_t middle = low + (high - low) / 2;
            if (iBefore(static_cast<const void*>(iKey(iRange[middle])))) {
                low = middle + 1;
            } else {
                high = middle;
            }
        }
        return low;
    };
    const size_t group = countBefore(mGroups, 0, mGroups.size(), [iByKey](const Group& iGroup) {
        return iByKey ? iGroup.mKey : iGroup.mChunks.front().mDataP;
    });
    if (group == 0) return 0;
    const Group& g = mGroups[group - 1];
    const size_t chunk = countBefore(g.mChunks, 1, g.mChunks.size(), [iByKey](const Chunk& iChunk) {
        return iByKey ? iChunk.mKey : iChunk.mDataP;
    }) - 1;
    const Chunk& c = g.mChunks[chunk];
    const size_t start = g.mStart + c.mStart;
    // Large records are likely cold and each on lines of its own: ask for all of their keys at
    // once rather than one probe after another (an insertion that follows reads them anyway).
#if defined(__GNUC__) || defined(__clang__)
    if (mRecordSize >= kLargeRecordBytes)
        for (size_t i = 1; i < c.mCount; ++i) __builtin_prefetch(RecordAt(c, i));
#endif
    struct Records {
        const Cmn_ChunkyVecImpl* mVecP;
        const Chunk* mChunkP;
        const std::byte* operator[](size_t iIndex) const { return mVecP->RecordAt(*mChunkP, iIndex); }
    };
    return start + countBefore(Records{this, &c}, 1, c.mCount, [](const std::byte* iRecordP) { return iRecordP; });
}

// The typed face: records of T, with random-access iterators usable by the standard algorithms
// (each dereference is a directory lookup; walk long runs with GetContiguous where it matters).
template <class T>
class Cmn_ChunkyPODVector {
    static_assert(Cmn_ChunkyRawRecord<T>::value, "records are copied bytewise");
    static_assert(alignof(T) <= alignof(std::max_align_t), "chunks are aligned for scalars only");

public:
    template <class TValue>
    class Iterator {
    public:
        using iterator_category = std::random_access_iterator_tag;
        using value_type = std::remove_const_t<TValue>;
        using difference_type = ptrdiff_t;
        using pointer = TValue*;
        using reference = TValue&;

        Iterator() = default;
        explicit Iterator(const Cmn_ChunkyVecImpl_Iterator& iPosition) : mPosition(iPosition) {}
        operator Iterator<const TValue>() const { return Iterator<const TValue>(mPosition); }

        reference operator*() const { return *static_cast<TValue*>(mPosition.GetPtr()); }
        pointer operator->() const { return static_cast<TValue*>(mPosition.GetPtr()); }
        reference operator[](difference_type iOffset) const { return *(*this + iOffset); }
        Iterator& operator+=(difference_type iCount) { return mPosition.Add(iCount), *this; }
        Iterator& operator-=(difference_type iCount) { return mPosition.Add(-iCount), *this; }
        Iterator& operator++() { return *this += 1; }
        Iterator& operator--() { return *this -= 1; }
        Iterator operator++(int) { Iterator before = *this; return ++*this, before; }
        Iterator operator--(int) { Iterator before = *this; return --*this, before; }
        friend Iterator operator+(Iterator iIt, difference_type iCount) { return iIt += iCount; }
        friend Iterator operator+(difference_type iCount, Iterator iIt) { return iIt += iCount; }
        friend Iterator operator-(Iterator iIt, difference_type iCount) { return iIt -= iCount; }
        friend difference_type operator-(const Iterator& iA, const Iterator& iB) { return iA.mPosition.Subtract(iB.mPosition); }
        friend bool operator==(const Iterator& iA, const Iterator& iB) { return iA.mPosition == iB.mPosition; }
        friend auto operator<=>(const Iterator& iA, const Iterator& iB) { return iA.mPosition <=> iB.mPosition; }

        const Cmn_ChunkyVecImpl_Iterator& GetPosition() const { return mPosition; }
        size_t GetIndex() const { return static_cast<size_t>(mPosition.GetIndex()); }

    private:
        Cmn_ChunkyVecImpl_Iterator mPosition;
    };
    using iterator = Iterator<T>;
    using const_iterator = Iterator<const T>;

    explicit Cmn_ChunkyPODVector(size_t iRecordsPerChunk = 0)
        : mImpl(Cmn_ChunkyVecPODCopier::Instance(), sizeof(T), iRecordsPerChunk) {}

    size_t GetSize() const { return mImpl.GetSize(); }
    size_t size() const { return mImpl.GetSize(); }
    bool IsEmpty() const { return mImpl.IsEmpty(); }
    T& operator[](size_t iIndex) { return *static_cast<T*>(mImpl.GetPtr(iIndex)); }
    const T& operator[](size_t iIndex) const { return *static_cast<const T*>(mImpl.GetPtr(iIndex)); }
    iterator begin() { return iterator(mImpl.Begin()); }
    iterator end() { return iterator(mImpl.End()); }
    const_iterator begin() const { return const_iterator(mImpl.Begin()); }
    const_iterator end() const { return const_iterator(mImpl.End()); }

    // Calls iFunction on every record in order, a contiguous run at a time: one directory
    // lookup per chunk rather than one per record as indexing or iterating costs.
    template <class TFunction>
    void ForEach(TFunction iFunction) {
        ForEachRun(mImpl, [&iFunction](void* iRecordP) { iFunction(*static_cast<T*>(iRecordP)); });
    }
    template <class TFunction>
    void ForEach(TFunction iFunction) const {
        ForEachRun(mImpl, [&iFunction](void* iRecordP) { iFunction(*static_cast<const T*>(iRecordP)); });
    }

    // The first position whose record fails iPred, for a predicate that holds on a prefix of the
    // records (as std::partition_point): a binary search over the chunks' first records, then one
    // within a chunk, so every probe is a plain memory read. Never allocates.
    template <class TPred>
    size_t PartitionPoint(TPred iPred) const {
        return mImpl.PartitionPoint([&iPred](const void* iRecordP) { return iPred(*static_cast<const T*>(iRecordP)); });
    }

    // The same search on the records' leading key of type TKey alone (the first sizeof(TKey)
    // bytes of a record): the directory's copies of the chunks' first keys stand in for the
    // chunks, so the search reads one chunk of records and no other. Owners that change keys
    // in place call GetImpl().RefreshKeys() afterwards.
    template <class TKey, class TPred>
    size_t PartitionPointByKey(TPred iPred) const {
        static_assert(sizeof(TKey) <= Cmn_ChunkyVecImpl::kKeyBytes && std::is_trivially_copyable_v<TKey>);
        const auto byKey = [&iPred](const void* iKeyP) {
            TKey key;
            std::memcpy(&key, iKeyP, sizeof key);
            return iPred(key);
        };
        return mImpl.PartitionPoint(byKey, true);
    }

    void Insert(size_t iPos, size_t iCount, const T* iSourceP) { mImpl.Insert(iPos, iCount, iSourceP); }
    void Insert(const_iterator iPos, size_t iCount, const T* iSourceP) { Insert(iPos.GetIndex(), iCount, iSourceP); }
    void Insert(const_iterator iPos, const T& iRecord) { Insert(iPos.GetIndex(), 1, &iRecord); }
    void Insert(const_iterator iPos, const_iterator iFirst, const_iterator iLast) {
        mImpl.Insert(iPos.GetIndex(), iFirst.GetPosition(), iLast.GetPosition());
    }
    void PushBack(const T& iRecord) { Insert(GetSize(), 1, &iRecord); }
    void Erase(const_iterator iPos) { mImpl.Erase(iPos.GetIndex()); }
    void Erase(const_iterator iFirst, const_iterator iLast) { mImpl.Erase(iFirst.GetIndex(), iLast.GetIndex()); }
    void Assign(const Cmn_ChunkyPODVector& iOther) { mImpl.Assign(iOther.mImpl); }
    void Destruct() { mImpl.Destruct(); }

    Cmn_ChunkyVecImpl& GetImpl() { return mImpl; }
    const Cmn_ChunkyVecImpl& GetImpl() const { return mImpl; }

private:
    template <class TVisit>
    static void ForEachRun(const Cmn_ChunkyVecImpl& iImpl, TVisit iVisit) {
        for (size_t index = 0, size = iImpl.GetSize(), run = 0; index < size; index += run) {
            auto* recordP = static_cast<std::byte*>(iImpl.GetContiguous(index, &run));
            for (size_t i = 0; i < run; ++i) iVisit(recordP + i * sizeof(T));
        }
    }

    Cmn_ChunkyVecImpl mImpl;
};
