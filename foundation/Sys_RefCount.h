// Reference counting and deferred deletion.
// Cmn_RefCountObject: plain (non-atomic) count for single-thread objects.
// Sys_ThreadSafeRefCountObject and Sys_AtomicInt32: atomic counts for objects that cross threads.
// Sys_DelayedDeletionObject: DelayedDelete() queues the object for destruction later on a
//   non-real-time thread; the call takes no lock and allocates nothing (the queue is intrusive
//   and lock-free). The objects are destroyed by DrainDelayedDeletions() (a host's housekeeping
//   call) or by the deleter thread that StartDeleterThread() runs; queued objects left at exit
//   are destroyed then.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

class Sys_AtomicInt32 {
public:
    explicit Sys_AtomicInt32(int32_t iValue = 0) : mValue(iValue) {}
    int32_t Increment() { return mValue.fetch_add(1, std::memory_order_relaxed) + 1; }
    // Acquire-release, so that the thread that sees 0 sees every write made before a release.
    int32_t Decrement() { return mValue.fetch_sub(1, std::memory_order_acq_rel) - 1; }
    int32_t Get() const { return mValue.load(std::memory_order_acquire); }
    void Set(int32_t iValue) { mValue.store(iValue, std::memory_order_release); }

private:
    std::atomic<int32_t> mValue;
};

class Cmn_RefCountObject {
public:
    void AddReference() { ++mRefCount; }
    void RemoveReference() {
        if (--mRefCount == 0) delete this;
    }
    int32_t GetRefCount() const { return mRefCount; }

protected:
    Cmn_RefCountObject() = default;
    virtual ~Cmn_RefCountObject() = default;

private:
    int32_t mRefCount = 1;
};

class Sys_ThreadSafeRefCountObject {
public:
    void AddReference() { mRefCount.Increment(); }
    // Releases one reference; the last one calls SmartDeletion.
    void RemoveReference() {
        if (mRefCount.Decrement() == 0) SmartDeletion();
    }
    int32_t GetRefCount() const { return mRefCount.Get(); }

protected:
    Sys_ThreadSafeRefCountObject() = default;
    virtual ~Sys_ThreadSafeRefCountObject() = default;
    virtual void SmartDeletion() { RefCountDelete(); }
    virtual void RefCountDelete() { delete this; }

private:
    Sys_AtomicInt32 mRefCount{1};
};

class Sys_DelayedDeletionObject {
public:
    // Queues this object for destruction on a non-real-time thread. Lock-free, allocation-free.
    void DelayedDelete();

    // Destroys every queued object on the calling thread; answers how many.
    static size_t DrainDelayedDeletions();
    // Runs a background thread that drains every iPeriodMs milliseconds (idempotent).
    static void StartDeleterThread(int iPeriodMs = 20);
    // Stops that thread after a last drain (idempotent).
    static void StopDeleterThread();
    // Objects queued and not yet destroyed.
    static size_t GetPendingCount();

protected:
    Sys_DelayedDeletionObject() = default;
    virtual ~Sys_DelayedDeletionObject() = default;

private:
    Sys_DelayedDeletionObject* mNextDeletionP = nullptr;
};
