#include <gtest/gtest.h>

#include <functional>

#include "Ndo_Manager.h"
#include "Ndo_Object.h"
#include "Ndo_Ptr.h"

namespace {

// A value that counts its live instances and states, so tests can see what the history frees.
class Counter : public Ndo_Object {
public:
    explicit Counter(int iValue = 0, EUndoFlag iUndo = kUndoable) : Ndo_Object(iUndo, false), mValue(iValue) { ++sLive; }
    ~Counter() override { --sLive; }

    struct State : Ndo_State {
        explicit State(int iValue) : mValue(iValue) { ++sLiveStates; }
        ~State() override { --sLiveStates; }
        Ndo_Object* Recreate() const override { return new Counter; }
        int mValue;
    };

    void Set(int iValue) {
        NdoAboutToModify();
        mValue = iValue;
    }
    Ndo_State* NdoGetState() override { return new State(mValue); }
    void NdoRestoreState(Ndo_State* iStateP) override { mValue = dynamic_cast<State&>(*iStateP).mValue; }

    int mValue;
    static inline int sLive = 0;
    static inline int sLiveStates = 0;
};

// Owns one Counter through an undo pointer, as the data model's aggregates own their members.
class Holder : public Ndo_Object {
public:
    Holder() : Ndo_Object(kUndoable, true) {}
    ~Holder() override { delete mChild.Get(); }

    struct State : Ndo_State {
        Ndo_StateRef<Counter> mChild;
    };

    void ReplaceChild(Counter* iChildP) {
        NdoAboutToModify();
        if (mChild) mChild->NdoDelete();
        mChild.Set(iChildP);
    }
    Ndo_State* NdoGetState() override {
        auto* stateP = new State;
        stateP->mChild = Ndo_StateRef<Counter>(mChild);
        return stateP;
    }
    void NdoRestoreState(Ndo_State* iStateP) override { mChild.SetFromUndoId(dynamic_cast<State&>(*iStateP).mChild.GetUndoId()); }

    Ndo_Ptr<Counter> mChild;
};

// One undo step. Disposal outside any step destroys at once, so tests dispose with NdoDelete.
void Step(const std::function<void()>& iEdit) {
    Ndo_gManager.BeginGroup();
    iEdit();
    Ndo_gManager.EndGroup();
}

class NdoTest : public ::testing::Test {
protected:
    void TearDown() override {
        Ndo_gManager.Clear();  // must destroy every object and state the history kept
        Ndo_gManager.SetHistoryDepth(100);
        EXPECT_EQ(Counter::sLive, 0) << "a test left objects behind";
        EXPECT_EQ(Counter::sLiveStates, 0);
    }
};

TEST_F(NdoTest, UndoAndRedoWalkSeveralObjectsThroughSeveralSteps) {
    auto* a = new Counter(0);
    auto* b = new Counter(10);
    Step([&] { a->Set(1), b->Set(11); });
    Step([&] { a->Set(2), a->Set(3); });  // a second announcement in the same step saves nothing new
    Step([&] {
        Step([&] { b->Set(12); });  // nested pairs make one step
        a->Set(4);
    });
    EXPECT_EQ(Ndo_gManager.GetUndoCount(), 3u);
    const std::pair<int, int> kAfterUndo[] = {{3, 11}, {1, 11}, {0, 10}};
    for (const auto& [aValue, bValue] : kAfterUndo) {
        ASSERT_TRUE(Ndo_gManager.Undo());
        EXPECT_EQ(std::make_pair(a->mValue, b->mValue), std::make_pair(aValue, bValue));
    }
    EXPECT_FALSE(Ndo_gManager.Undo());
    const std::pair<int, int> kAfterRedo[] = {{1, 11}, {3, 11}, {4, 12}};
    for (const auto& [aValue, bValue] : kAfterRedo) {
        ASSERT_TRUE(Ndo_gManager.Redo());
        EXPECT_EQ(std::make_pair(a->mValue, b->mValue), std::make_pair(aValue, bValue));
    }
    EXPECT_FALSE(Ndo_gManager.Redo());
    a->NdoDelete();
    b->NdoDelete();
}

TEST_F(NdoTest, OnlyUndoableChangesInsideAStepAreRecorded) {
    auto* a = new Counter(0);
    auto* plain = new Counter(0, Ndo_Object::kNotUndoable);
    EXPECT_EQ(plain->NdoGetUndoId(), kNdo_NoId);
    a->Set(5);
    EXPECT_FALSE(Ndo_gManager.CanUndo());
    EXPECT_FALSE(Ndo_gManager.IsMarked(a));
    Step([&] {
        EXPECT_FALSE(Ndo_gManager.IsMarked(a));
        a->Set(6);
        plain->Set(1);
        EXPECT_TRUE(Ndo_gManager.IsMarked(a));
        EXPECT_FALSE(Ndo_gManager.IsMarked(plain));
    });
    EXPECT_FALSE(Ndo_gManager.IsMarked(a));
    ASSERT_TRUE(Ndo_gManager.Undo());
    Step([] {});  // an empty step leaves no step and keeps the redo history
    EXPECT_TRUE(Ndo_gManager.CanRedo());
    EXPECT_EQ(a->mValue, 5);
    EXPECT_EQ(plain->mValue, 1);
    a->NdoDelete();
    plain->NdoDelete();
}

TEST_F(NdoTest, ObjectDisposedInAStepComesBackOnUndoAndLookupFindsIt) {
    auto* holder = new Holder;
    Step([&] { holder->ReplaceChild(new Counter(1)); });
    Counter* first = holder->mChild.Get();
    const uint64_t firstId = first->NdoGetUndoId();
    EXPECT_EQ(Ndo_gManager.LookupObject(firstId), first);

    Step([&] { holder->ReplaceChild(new Counter(2)); });
    const uint64_t secondId = holder->mChild.GetUndoId();
    EXPECT_EQ(Ndo_gManager.LookupObject(firstId), nullptr);
    EXPECT_EQ(Counter::sLive, 2) << "the disposed child is kept, not destroyed";
    EXPECT_EQ(Ndo_gManager.GetHiddenCount(), 1u);

    ASSERT_TRUE(Ndo_gManager.Undo());
    EXPECT_EQ(holder->mChild.Get(), first);
    EXPECT_EQ(Ndo_gManager.LookupObject(firstId), first);
    EXPECT_EQ(Ndo_gManager.LookupObject(secondId), nullptr) << "the child created by the step is hidden";
    ASSERT_TRUE(Ndo_gManager.Undo());
    EXPECT_FALSE(holder->mChild);
    EXPECT_EQ(holder->mChild.GetUndoId(), kNdo_NoId);

    ASSERT_TRUE(Ndo_gManager.Redo());
    ASSERT_TRUE(Ndo_gManager.Redo());
    EXPECT_EQ(holder->mChild.GetUndoId(), secondId);
    EXPECT_EQ(holder->mChild->mValue, 2);
    // A child created and disposed within one step is hidden too; TearDown's Clear must free both.
    Step([&] { holder->ReplaceChild(new Counter(3)), holder->ReplaceChild(nullptr); });
    EXPECT_EQ(Ndo_gManager.GetHiddenCount(), 3u);
    holder->NdoDelete();
}

TEST_F(NdoTest, ExternalReferenceFollowsTheObjectInAndOutOfSight) {
    Counter* created = nullptr;
    Step([&] { created = new Counter(6), created->Set(7); });
    EXPECT_EQ(Counter::sLiveStates, 0) << "a change to an object created in the same step saves nothing";
    const Ndo_ExternalRefBase ref(created);
    const Ndo_ExternalRefBase copy = ref;
    EXPECT_EQ(copy.GetObjPtr(), created);
    ASSERT_TRUE(Ndo_gManager.Undo());
    EXPECT_EQ(copy.GetObjPtr(), nullptr);
    ASSERT_TRUE(Ndo_gManager.Redo());
    EXPECT_EQ(copy.GetObjPtr(), created);
    EXPECT_EQ(created->mValue, 7);

    auto* plain = new Counter(0, Ndo_Object::kNotUndoable);
    EXPECT_EQ(Ndo_ExternalRefBase(plain).GetObjPtr(), plain);
    EXPECT_EQ(Ndo_ExternalRefBase().GetObjPtr(), nullptr);
    plain->NdoDelete();
    created->NdoDelete();
}

TEST_F(NdoTest, HistoryBoundFreesStatesAndDisposedObjects) {
    Ndo_gManager.SetHistoryDepth(2);
    auto* holder = new Holder;
    holder->ReplaceChild(new Counter(0));
    for (int step = 1; step <= 4; ++step) Step([&] { holder->ReplaceChild(new Counter(step)); });
    // Four children were disposed of; the two steps that fell off took theirs along.
    EXPECT_EQ(Ndo_gManager.GetUndoCount(), 2u);
    EXPECT_EQ(Ndo_gManager.GetHiddenCount(), 2u);
    EXPECT_EQ(Counter::sLive, 3);
    ASSERT_TRUE(Ndo_gManager.Undo());
    ASSERT_TRUE(Ndo_gManager.Undo());
    EXPECT_FALSE(Ndo_gManager.Undo());
    EXPECT_EQ(holder->mChild->mValue, 2);

    // A new step discards the undone ones and destroys the children they had created.
    Step([&] { holder->mChild->Set(20); });
    EXPECT_FALSE(Ndo_gManager.CanRedo());
    EXPECT_EQ(Counter::sLive, 1);
    Ndo_gManager.SetHistoryDepth(0);
    EXPECT_FALSE(Ndo_gManager.CanUndo());
    EXPECT_EQ(Counter::sLiveStates, 0);
    holder->NdoDelete();
}

TEST_F(NdoTest, UndoRecreatesAnObjectDestroyedOutsideAnyStep) {
    auto* a = new Counter(1);
    const uint64_t id = a->NdoGetUndoId();
    Step([&] { a->Set(2); });
    a->NdoDelete();
    EXPECT_EQ(Ndo_gManager.LookupObject(id), nullptr);
    ASSERT_TRUE(Ndo_gManager.Undo());
    auto* back = dynamic_cast<Counter*>(Ndo_gManager.LookupObject(id));
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->NdoGetUndoId(), id);
    EXPECT_EQ(back->mValue, 1);
    back->NdoDelete();
}

TEST_F(NdoTest, PointersHandObjectsOverAndResolveOnlyTheirOwnClass) {
    Ndo_AutoPtr<Counter> source(new Counter(3));
    auto take = [](Ndo_AutoPtr<Ndo_Object> iPtr) { return iPtr.Release(); };
    auto* counter = static_cast<Counter*>(take(source));
    EXPECT_FALSE(source);
    { Ndo_AutoPtr<Counter> owner(new Counter(4)); }  // still owned: deleted with the pointer
    EXPECT_EQ(Counter::sLive, 1);

    auto* holder = new Holder;
    Ndo_Ptr<Counter> ptr(counter);
    EXPECT_EQ(ptr.GetUndoId(), counter->NdoGetUndoId());
    EXPECT_FALSE(ptr.SetFromUndoId(holder->NdoGetUndoId()));
    EXPECT_EQ(ptr.GetUndoId(), kNdo_NoId);
    EXPECT_EQ(Ndo_StateRef<Counter>(counter).Resolve(), counter);
    EXPECT_EQ(Ndo_StateRef<Holder>(counter->NdoGetUndoId()).Resolve(), nullptr);
    counter->NdoDelete();
    holder->NdoDelete();
}

}  // namespace
