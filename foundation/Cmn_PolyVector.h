// Cmn_PolyVector<T>: a contiguous vector of non-trivial elements whose copying and destruction
// go through a traits object (Cmn_PolyVectorTraits<T>, the element's own copy and destructor by
// default). Positions are element indices; iterators are plain pointers, invalidated by any
// insertion beyond the reserved capacity and by erasure. The second parameter (an inline
// capacity hint kept for source compatibility) is unused: storage is always on the heap.
// Threads: one thread at a time. Only Reserve, Insert and Assign allocate; reading,
// Erase and Destruct of trivially destructible elements never do.
#pragma once

#include <cstddef>
#include <new>
#include <utility>

class Cmn_PolyVectorTraitsBase {
public:
    virtual ~Cmn_PolyVectorTraitsBase() = default;
};

template <class T>
class Cmn_PolyVectorTraits : public Cmn_PolyVectorTraitsBase {
public:
    static void CopyConstruct(T* iDestP, const T& iSource) { new (iDestP) T(iSource); }
    static void MoveConstruct(T* iDestP, T& iSource) { new (iDestP) T(std::move(iSource)); }
    static void Destroy(T* iP) { iP->~T(); }
};

template <class T, int kInline = 0>
class Cmn_PolyVector {
    using Traits = Cmn_PolyVectorTraits<T>;

public:
    using iterator = T*;
    using const_iterator = const T*;

    Cmn_PolyVector() = default;
    Cmn_PolyVector(const Cmn_PolyVector& iOther) { Assign(iOther.begin(), iOther.end()); }
    Cmn_PolyVector& operator=(const Cmn_PolyVector& iOther) {
        if (this != &iOther) Assign(iOther.begin(), iOther.end());
        return *this;
    }
    ~Cmn_PolyVector() { Destruct(); }

    // Empties the vector and keeps its capacity.
    void Init() { DestroyRange(0, mSize), mSize = 0; }
    void Assign(const T* iFirst, const T* iLast) {
        Init();
        Insert(mSize, iFirst, iLast);
    }
    void Reserve(size_t iCapacity) {
        if (iCapacity <= mCapacity) return;
        T* newP = static_cast<T*>(::operator new(iCapacity * sizeof(T), std::align_val_t(alignof(T))));
        for (size_t i = 0; i < mSize; ++i) {
            Traits::MoveConstruct(newP + i, mDataP[i]);
            Traits::Destroy(mDataP + i);
        }
        Release();
        mDataP = newP;
        mCapacity = iCapacity;
    }
    // Inserts one element before position iPos (0..GetSize()).
    void Insert(size_t iPos, const T& iElement) {
        // iElement may live inside this vector, where growing or opening the gap would move
        // it away before it is copied: take the copy first.
        if (mSize == mCapacity || Contains(&iElement)) {
            T copy(iElement);
            Grow(mSize + 1);
            OpenGap(iPos, 1);
            Traits::MoveConstruct(mDataP + iPos, copy);
        } else {
            OpenGap(iPos, 1);
            Traits::CopyConstruct(mDataP + iPos, iElement);
        }
        ++mSize;
    }
    // Inserts [iFirst, iLast) (not from this vector) before position iPos.
    void Insert(size_t iPos, const T* iFirst, const T* iLast) {
        const size_t count = static_cast<size_t>(iLast - iFirst);
        if (count == 0) return;
        Grow(mSize + count);
        OpenGap(iPos, count);
        for (size_t i = 0; i < count; ++i) Traits::CopyConstruct(mDataP + iPos + i, iFirst[i]);
        mSize += count;
    }
    void PushBack(const T& iElement) { Insert(mSize, iElement); }
    void Erase(size_t iPos) { Erase(iPos, iPos + 1); }
    // Erases positions [iFirst, iLast).
    void Erase(size_t iFirst, size_t iLast) {
        const size_t count = iLast - iFirst;
        if (count == 0) return;
        DestroyRange(iFirst, iLast);
        for (size_t i = iFirst; i + count < mSize; ++i) {
            Traits::MoveConstruct(mDataP + i, mDataP[i + count]);
            Traits::Destroy(mDataP + i + count);
        }
        mSize -= count;
    }
    // Destroys every element and frees the storage.
    void Destruct() {
        Init();
        Release();
        mDataP = nullptr;
        mCapacity = 0;
    }

    size_t GetSize() const { return mSize; }
    size_t GetCapacity() const { return mCapacity; }
    bool IsEmpty() const { return mSize == 0; }
    T& operator[](size_t iIndex) { return mDataP[iIndex]; }
    const T& operator[](size_t iIndex) const { return mDataP[iIndex]; }
    T* begin() { return mDataP; }
    T* end() { return mDataP + mSize; }
    const T* begin() const { return mDataP; }
    const T* end() const { return mDataP + mSize; }

private:
    bool Contains(const T* iP) const { return mDataP && iP >= mDataP && iP < mDataP + mSize; }
    void Grow(size_t iNeeded) {
        if (iNeeded <= mCapacity) return;
        size_t capacity = mCapacity ? mCapacity * 2 : 4;
        while (capacity < iNeeded) capacity *= 2;
        Reserve(capacity);
    }
    // Moves [iPos, size) up by iCount into raw storage; the gap is left unconstructed.
    void OpenGap(size_t iPos, size_t iCount) {
        for (size_t i = mSize; i > iPos; --i) {
            Traits::MoveConstruct(mDataP + i - 1 + iCount, mDataP[i - 1]);
            Traits::Destroy(mDataP + i - 1);
        }
    }
    void DestroyRange(size_t iFirst, size_t iLast) {
        for (size_t i = iFirst; i < iLast; ++i) Traits::Destroy(mDataP + i);
    }
    void Release() {
        if (mDataP) ::operator delete(mDataP, std::align_val_t(alignof(T)));
    }

    T* mDataP = nullptr;
    size_t mSize = 0;
    size_t mCapacity = 0;
};
