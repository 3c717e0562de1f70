#include "Sys_RefCount.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace {
// The queue: a lock-free stack of objects linked through mNextDeletionP. Producers push with
// a CAS; the drainer takes the whole stack with one exchange, so no node is ever popped
// individually and the ABA problem of a Treiber pop cannot arise.
constinit std::atomic<Sys_DelayedDeletionObject*> sQueueHead{nullptr};
constinit std::atomic<size_t> sPendingCount{0};
// Set while the deleter thread runs: makers of new objects may then help it.
constinit std::atomic<bool> sDeleterRunning{false};
}  // namespace

// The background drainer. Start/Stop are serialised by mControlMutex; the thread sleeps on
// mWakeup so that Stop need not wait out a whole period.
class Sys_DeleterThread {
public:
    ~Sys_DeleterThread() {
        // Process exit: stop draining in the background, then destroy what is left.
        Stop();
        Sys_DelayedDeletionObject::DrainDelayedDeletions();
    }

    void Start(int iPeriodMs) {
        std::lock_guard control(mControlMutex);
        if (mThread.joinable()) return;
        {
            std::lock_guard lock(mMutex);
            mStopRequested = false;
        }
        const auto period = std::chrono::milliseconds(iPeriodMs > 0 ? iPeriodMs : 1);
        mThread = std::thread([this, period] { Run(period); });
        sDeleterRunning = true;
    }

    void Stop() {
        std::lock_guard control(mControlMutex);
        if (!mThread.joinable()) return;
        {
            std::lock_guard lock(mMutex);
            mStopRequested = true;
        }
        sDeleterRunning = false;
        mWakeup.notify_all();
        mThread.join();
        Sys_DelayedDeletionObject::DrainDelayedDeletions();
    }

    bool IsRunning() {
        std::lock_guard control(mControlMutex);
        return mThread.joinable();
    }

private:
    void Run(std::chrono::milliseconds iPeriod) {
        std::unique_lock lock(mMutex);
        while (!mStopRequested) {
            mWakeup.wait_for(lock, iPeriod, [this] { return mStopRequested.load(); });
            lock.unlock();
            // Batch after batch while releases keep coming: a burst is gone within a period
            // and a steady stream cannot outgrow one batch. A stop is seen between batches.
            while (!mStopRequested && Sys_DelayedDeletionObject::DestroyOneBatch() > 0) {
            }
            lock.lock();
        }
    }

    std::mutex mControlMutex;
    std::mutex mMutex;
    std::condition_variable mWakeup;
    std::atomic<bool> mStopRequested = false;  // written under mMutex, read between batches
    std::thread mThread;
};

namespace {
Sys_DeleterThread sDeleter;
}  // namespace

Sys_DelayedDeletionObject::Sys_DelayedDeletionObject() {
    if (sDeleterRunning.load(std::memory_order_relaxed) && GetPendingCount() > kAssistBacklog) DestroyOneBatch();
}

void Sys_DelayedDeletionObject::DelayedDelete() {
    sPendingCount.fetch_add(1, std::memory_order_relaxed);
    Sys_DelayedDeletionObject* head = sQueueHead.load(std::memory_order_relaxed);
    do {
        mNextDeletionP = head;
    } while (!sQueueHead.compare_exchange_weak(head, this, std::memory_order_release, std::memory_order_relaxed));
}

size_t Sys_DelayedDeletionObject::DestroyOneBatch() {
    size_t destroyed = 0;
    Sys_DelayedDeletionObject* objectP = sQueueHead.exchange(nullptr, std::memory_order_acquire);
    while (objectP) {
        Sys_DelayedDeletionObject* nextP = objectP->mNextDeletionP;
        delete objectP;
        sPendingCount.fetch_sub(1, std::memory_order_relaxed);
        ++destroyed;
        objectP = nextP;
    }
    return destroyed;
}

size_t Sys_DelayedDeletionObject::DrainDelayedDeletions() {
    // Destructors may queue more objects; keep taking the stack until it stays empty.
    size_t destroyed = 0;
    while (const size_t batch = DestroyOneBatch()) destroyed += batch;
    return destroyed;
}

void Sys_DelayedDeletionObject::StartDeleterThread(int iPeriodMs) { sDeleter.Start(iPeriodMs); }

void Sys_DelayedDeletionObject::StopDeleterThread() { sDeleter.Stop(); }

bool Sys_DelayedDeletionObject::IsDeleterThreadRunning() { return sDeleter.IsRunning(); }

size_t Sys_DelayedDeletionObject::GetPendingCount() { return sPendingCount.load(std::memory_order_relaxed); }
