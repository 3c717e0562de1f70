#include "Sys_RefCount.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "AllocCounter.h"

namespace {
std::atomic<int> gDestroyed{0};

// Counts its destruction; may queue another object from its destructor, as owners of
// delayed-deletion members do.
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

template <class TBase>
struct Counted : TBase {
    ~Counted() override { gDestroyed.fetch_add(1); }
};

class Sys_RefCountTest : public ::testing::Test {
protected:
    void SetUp() override {
        Sys_DelayedDeletionObject::DrainDelayedDeletions();
        gDestroyed = 0;
    }
};
}  // namespace

TEST_F(Sys_RefCountTest, ThreadSafeCountSurvivesConcurrentReleases) {
    auto* objectP = new Counted<Sys_ThreadSafeRefCountObject>;
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

TEST_F(Sys_RefCountTest, QueueingIsHeapFreeAndDrainDestroysEverythingQueuedByDestructorsToo) {
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

// Two producers queue while the deleter thread and this thread drain at the same time.
TEST_F(Sys_RefCountTest, DeleterThreadAndConcurrentDrainsDestroyWhatTwoProducersQueue) {
    constexpr int kPerProducer = 3000;
    Sys_DelayedDeletionObject::StartDeleterThread(1);
    Sys_DelayedDeletionObject::StartDeleterThread(1);  // a second start is harmless
    std::atomic<int> producing{2};
    auto produce = [&] {
        for (int i = 0; i < kPerProducer; ++i) (new Doomed)->DelayedDelete();
        producing.fetch_sub(1);
    };
    std::thread producerA(produce), producerB(produce);
    while (producing.load() > 0) Sys_DelayedDeletionObject::DrainDelayedDeletions();
    producerA.join();
    producerB.join();
    for (int wait = 0; wait < 2000 && gDestroyed.load() < 2 * kPerProducer; ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(gDestroyed.load(), 2 * kPerProducer);
    Sys_DelayedDeletionObject::StopDeleterThread();
    Sys_DelayedDeletionObject::StopDeleterThread();
    EXPECT_EQ(Sys_DelayedDeletionObject::GetPendingCount(), 0u);
}

// A deleter thread that gets no time (here: one that sleeps for an hour) cannot let a producer
// pile objects up: its makers help once the backlog passes the threshold. Without the deleter
// thread the host drains, and nobody else destroys anything.
TEST_F(Sys_RefCountTest, MakersHelpAStarvedDeleterThreadAndOnlyIt) {
    constexpr size_t kBacklog = Sys_DelayedDeletionObject::kAssistBacklog;
    Sys_DelayedDeletionObject::StartDeleterThread(3600 * 1000);
    size_t peak = 0;
    for (size_t i = 0; i < 3 * kBacklog; ++i) {
        (new Doomed)->DelayedDelete();
        peak = std::max(peak, Sys_DelayedDeletionObject::GetPendingCount());
    }
    EXPECT_EQ(peak, kBacklog + 1);
    Sys_DelayedDeletionObject::StopDeleterThread();
    EXPECT_EQ(size_t(gDestroyed.load()), 3 * kBacklog);

    for (size_t i = 0; i < kBacklog + 10; ++i) (new Doomed)->DelayedDelete();
    EXPECT_EQ(Sys_DelayedDeletionObject::GetPendingCount(), kBacklog + 10);
    EXPECT_EQ(Sys_DelayedDeletionObject::DrainDelayedDeletions(), kBacklog + 10);
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
