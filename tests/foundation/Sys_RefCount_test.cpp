#include "Sys_RefCount.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "AllocCounter.h"

namespace {
std::atomic<int> gDestroyed{0};

class Doomed : public Sys_DelayedDeletionObject {
public:
    explicit Doomed(Doomed* iQueueOnDestructionP = nullptr) : mQueueOnDestructionP(iQueueOnDestructionP) {}
    ~Doomed() override {
        if (mQueueOnDestructionP) mQueueOnDestructionP->DelayedDelete();
        gDestroyed.fetch_add(1);
    }

private:
    Doomed* mQueueOnDestructionP;
};

class Counted : public Sys_ThreadSafeRefCountObject {
public:
    ~Counted() override { gDestroyed.fetch_add(1); }
};

class Plain : public Cmn_RefCountObject {
public:
    ~Plain() override { gDestroyed.fetch_add(1); }
};

class DelayedDeletion : public ::testing::Test {
protected:
    void SetUp() override {
        Sys_DelayedDeletionObject::DrainDelayedDeletions();
        gDestroyed = 0;
    }
};
}  // namespace

TEST(Sys_RefCount, LastReferenceDestroys) {
    gDestroyed = 0;
    auto* plainP = new Plain;
    plainP->AddReference();
    plainP->RemoveReference();
    EXPECT_EQ(gDestroyed.load(), 0);
    plainP->RemoveReference();
    EXPECT_EQ(gDestroyed.load(), 1);

    Sys_AtomicInt32 counter(5);
    EXPECT_EQ(counter.Increment(), 6);
    EXPECT_EQ(counter.Decrement(), 5);
}

TEST(Sys_RefCount, ThreadSafeCountSurvivesConcurrentReleases) {
    gDestroyed = 0;
    auto* objectP = new Counted;
    constexpr int kPerThread = 10000;
    for (int i = 0; i < 2 * kPerThread; ++i) objectP->AddReference();
    auto release = [objectP] {
        for (int i = 0; i < kPerThread; ++i) objectP->RemoveReference();
    };
    std::thread other(release);
    release();
    other.join();
    EXPECT_EQ(objectP->GetRefCount(), 1);
    objectP->RemoveReference();
    EXPECT_EQ(gDestroyed.load(), 1);
}

TEST_F(DelayedDeletion, QueueingIsHeapFreeAndDrainDestroysEverythingQueuedByDestructorsToo) {
    auto* laterP = new Doomed;
    auto* firstP = new Doomed(laterP);
    auto* otherP = new Doomed;
    AllocCounter counter;
    firstP->DelayedDelete();
    otherP->DelayedDelete();
    EXPECT_EQ(counter.Count(), 0u);
    EXPECT_EQ(Sys_DelayedDeletionObject::GetPendingCount(), 2u);
    EXPECT_EQ(gDestroyed.load(), 0);
    EXPECT_EQ(Sys_DelayedDeletionObject::DrainDelayedDeletions(), 3u);
    EXPECT_EQ(gDestroyed.load(), 3);
    EXPECT_EQ(Sys_DelayedDeletionObject::GetPendingCount(), 0u);
}

TEST_F(DelayedDeletion, ObjectsQueuedOnOneThreadAreDestroyedByTheDeleterThread) {
    constexpr int kObjects = 2000;
    Sys_DelayedDeletionObject::StartDeleterThread(1);
    Sys_DelayedDeletionObject::StartDeleterThread(1);  // a second start is harmless
    std::thread producer([] {
        for (int i = 0; i < kObjects; ++i) (new Doomed)->DelayedDelete();
    });
    producer.join();
    for (int wait = 0; wait < 2000 && gDestroyed.load() < kObjects; ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(gDestroyed.load(), kObjects);
    Sys_DelayedDeletionObject::StopDeleterThread();
    Sys_DelayedDeletionObject::StopDeleterThread();
    EXPECT_EQ(Sys_DelayedDeletionObject::GetPendingCount(), 0u);
}

TEST_F(DelayedDeletion, ConcurrentProducersAndDrainersLoseNothing) {
    constexpr int kPerProducer = 5000;
    std::atomic<bool> producing{true};
    std::thread drainer([&] {
        while (producing.load()) Sys_DelayedDeletionObject::DrainDelayedDeletions();
    });
    auto produce = [] {
        for (int i = 0; i < kPerProducer; ++i) (new Doomed)->DelayedDelete();
    };
    std::thread producerA(produce), producerB(produce);
    producerA.join();
    producerB.join();
    producing = false;
    drainer.join();
    Sys_DelayedDeletionObject::DrainDelayedDeletions();
    EXPECT_EQ(gDestroyed.load(), 2 * kPerProducer);
    EXPECT_EQ(Sys_DelayedDeletionObject::GetPendingCount(), 0u);
}

TEST(DelayedDeletionAtExit, QueuedObjectsAreDestroyedAtExit) {
    // Run in a child so that its exit path is observable: the static drain must destroy the
    // object, whose destructor then reports on standard error.
    struct Reporter : Sys_DelayedDeletionObject {
        ~Reporter() override { std::fputs("destroyed at exit\n", stderr); }
    };
    EXPECT_EXIT(
        {
            (new Reporter)->DelayedDelete();
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "destroyed at exit");
}
