// Shared storage of long system-exclusive data (Vela_Event type 15).
// A data object is created with one reference and shared by every event copy that holds it;
// AddReference/RemoveReference are atomic, and the last release calls the object's
// release-when-unreferenced slot:
//   Mdie_SysexData   (heap buffer)      -> DelayedDelete(): destroyed later off the real-time thread;
//   Mdie_SysexDataRT (real-time buffer) -> destroys itself and returns object and buffer to its
//                                          Mem2_MasterAllocator on the releasing thread.
// The stored bytes never change after creation, so readers need no lock.
#pragma once

#include <cstdint>

#include "Mem2_MasterAllocator.h"
#include "Sys_RefCount.h"

class Mdie_SysexDataBase {
public:
    void AddReference() { mRefCount.Increment(); }
    void RemoveReference() {
        if (mRefCount.Decrement() == 0) ReleaseWhenUnreferenced();
    }
    int32_t GetRefCount() const { return mRefCount.Get(); }

    int32_t GetLength() const { return mLength; }
    const unsigned char* GetData() const { return mDataP; }
    unsigned char* GetData() { return mDataP; }

protected:
    // One reference; iDataP must not be null (asserted).
    Mdie_SysexDataBase(int32_t iLength, unsigned char* iDataP);
    virtual ~Mdie_SysexDataBase() = default;
    virtual void ReleaseWhenUnreferenced() = 0;

    Sys_AtomicInt32 mRefCount{1};
    int32_t mLength;
    unsigned char* mDataP;
};

class Mdie_SysexData : public Mdie_SysexDataBase, public Sys_DelayedDeletionObject {
public:
    // Takes ownership of iDataP (allocated with new unsigned char[]).
    Mdie_SysexData(int32_t iLength, unsigned char* iDataP);

protected:
    ~Mdie_SysexData() override;
    void ReleaseWhenUnreferenced() override;
};

class Mdie_SysexDataRT : public Mdie_SysexDataBase {
public:
    // Wraps iBuffer (taken from iAllocatorP) in an object taken from the same allocator;
    // null when the allocator refuses (the buffer then stays the caller's).
    static Mdie_SysexDataRT* New(Mem2_MasterAllocator* iAllocatorP, unsigned char* iBuffer, int32_t iLength);

protected:
    Mdie_SysexDataRT(Mem2_MasterAllocator* iAllocatorP, unsigned char* iBuffer, int32_t iLength);
    ~Mdie_SysexDataRT() override;
    void ReleaseWhenUnreferenced() override;

private:
    Mem2_MasterAllocator* mAllocatorP;
};
