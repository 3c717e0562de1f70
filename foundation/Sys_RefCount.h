// Reference counting and deferred deletion.
// Cmn_RefCountObject: plain (non-atomic) count for single-thread objects.
// Sys_ThreadSafeRefCountObject and Sys_AtomicInt32: atomic counts for objects that cross threads.
// Sys_DelayedDeletionObject: DelayedDelete() queues the object for destruction later on a
//   non-real-time thread. Thread contract:
//   - DelayedDelete may be called from any thread, real-time ones included: it takes no lock,
//     allocates nothing and never waits (the queue is an intrusive lock-free stack threaded
//     through the object itself). The caller gives up the object: it must be heap-allocated
//     with new, queued once, and not touched afterwards.
//   - Queued objects are destroyed by DrainDelayedDeletions() (a host's housekeeping call, on a
//     non-real-time thread) or by the deleter thread that StartDeleterThread() runs. Both may
//     run at once; each object is destroyed exactly once. Destructors run on the draining
//     thread, in no promised order, and may themselves queue further objects.
//   - The deleter thread wakes once a period and then takes batch after batch until it finds
//     the queue empty, so releases faster than the period never pile up beyond what arrives
//     while one batch is being destroyed. It checks for a stop between batches: stopping does
//     not wait for producers that keep queueing.
//   - A busy machine can starve the deleter thread while another thread makes and releases
//     objects in a loop. So, while the deleter thread runs and more than kAssistBacklog
//     objects wait, making a new object first destroys a batch of them on the making thread
//     (the heap object being made shows it is not a real-time thread): a producer that
//     outruns the deleter is slowed by its own releases instead of memory growing without
//     bound. Destructors of queued objects must therefore not take locks that a thread making
//     such objects may hold. Without the deleter thread (a host that drains on its own
//     housekeeping thread) deletions run only where the host drains.
//   - Objects still queued when the process exits are destroyed then (after the deleter thread
//     is stopped), so nothing queued leaks.
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
    // The queue length above which makers help the deleter thread (about 6 MiB of 300-byte
    // sysex data).
    static constexpr size_t kAssistBacklog = 16384;

    // Queues this object for destruction on a non-real-time thread. Lock-free, allocation-free.
    void DelayedDelete();

    // Destroys every queued object on the calling thread; answers how many.
    static size_t DrainDelayedDeletions();
    // Runs a background thread that drains every iPeriodMs milliseconds (idempotent).
    static void StartDeleterThread(int iPeriodMs = 10);
    // Stops that thread after a last drain (idempotent).
    static void StopDeleterThread();
    static bool IsDeleterThreadRunning();
    // Objects queued and not yet destroyed.
    static size_t GetPendingCount();

protected:
    Sys_DelayedDeletionObject();
    virtual ~Sys_DelayedDeletionObject() = default;

private:
    friend class Sys_DeleterThread;
    // Takes what is queued now and destroys it; answers how many.
    static size_t DestroyOneBatch();

    Sys_DelayedDeletionObject* mNextDeletionP = nullptr;
};
