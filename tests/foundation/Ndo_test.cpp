#include <gtest/gtest.h>

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
    void NdoRestoreState(Ndo_State* iStateP) override {
        if (auto* stateP = dynamic_cast<State*>(iStateP)) mValue = stateP->mValue;
    }

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
    void NdoRestoreState(Ndo_State* iStateP) override {
        if (auto* stateP = dynamic_cast<State*>(iStateP)) mChild.SetFromUndoId(stateP->mChild.GetUndoId());
    }

    Ndo_Ptr<Counter> mChild;
};

class NdoTest : public ::testing::Test {
protected:
    void TearDown() override {
        Ndo_gManager.Clear();
        Ndo_gManager.SetHistoryDepth(100);
        EXPECT_EQ(Counter::sLive, 0) << "a test left objects behind";
        EXPECT_EQ(Counter::sLiveStates, 0);
    }
    // Disposal outside any group destroys at once.
    static void Dispose(Ndo_Object* iObjectP) { iObjectP->NdoDelete(); }
};

TEST_F(NdoTest, UndoAndRedoWalkSeveralObjectsThroughSeveralSteps) {
    auto* a = new Counter(0);
    auto* b = new Counter(10);
    Ndo_gManager.BeginGroup();
    a->Set(1);
    b->Set(11);
    Ndo_gManager.EndGroup();
    Ndo_gManager.BeginGroup();
    a->Set(2);
    a->Set(3);  // a second announcement in the same group saves nothing new
    Ndo_gManager.EndGroup();
    Ndo_gManager.BeginGroup();
    Ndo_gManager.BeginGroup();  // nested pairs make one group
    b->Set(12);
    Ndo_gManager.EndGroup();
    a->Set(4);
    Ndo_gManager.EndGroup();
    EXPECT_EQ(Ndo_gManager.GetUndoCount(), 3u);

    ASSERT_TRUE(Ndo_gManager.Undo());
    EXPECT_EQ(a->mValue, 3);
    EXPECT_EQ(b->mValue, 11);
    ASSERT_TRUE(Ndo_gManager.Undo());
    EXPECT_EQ(a->mValue, 1);
    ASSERT_TRUE(Ndo_gManager.Undo());
    EXPECT_EQ(a->mValue, 0);
    EXPECT_EQ(b->mValue, 10);
    EXPECT_FALSE(Ndo_gManager.CanUndo());
    EXPECT_FALSE(Ndo_gManager.Undo());

    ASSERT_TRUE(Ndo_gManager.Redo());
    EXPECT_EQ(a->mValue, 1);
    EXPECT_EQ(b->mValue, 11);
    ASSERT_TRUE(Ndo_gManager.Redo());
    ASSERT_TRUE(Ndo_gManager.Redo());
    EXPECT_EQ(a->mValue, 4);
    EXPECT_EQ(b->mValue, 12);
    EXPECT_FALSE(Ndo_gManager.Redo());
    Dispose(a);
    Dispose(b);
}

TEST_F(NdoTest, ChangesOutsideAGroupAreNotRecordedAndMarksLastOneGroup) {
    auto* a = new Counter(0);
    auto* plain = new Counter(0, Ndo_Object::kNotUndoable);
    EXPECT_TRUE(a->NdoIsUndoable());
    EXPECT_FALSE(plain->NdoIsUndoable());
    EXPECT_EQ(plain->NdoGetUndoId(), kNdo_NoId);
    a->Set(5);
    EXPECT_FALSE(Ndo_gManager.CanUndo());
    EXPECT_FALSE(Ndo_gManager.IsMarked(a));

    Ndo_gManager.BeginGroup();
    EXPECT_FALSE(Ndo_gManager.IsMarked(a));
    a->Set(6);
    plain->Set(1);
    EXPECT_TRUE(Ndo_gManager.IsMarked(a));
    EXPECT_FALSE(Ndo_gManager.IsMarked(plain));
    Ndo_gManager.EndGroup();
    EXPECT_FALSE(Ndo_gManager.IsMarked(a));
    // An empty group leaves no step and keeps the redo history.
    ASSERT_TRUE(Ndo_gManager.Undo());
    Ndo_gManager.BeginGroup();
    Ndo_gManager.EndGroup();
    EXPECT_TRUE(Ndo_gManager.CanRedo());
    EXPECT_EQ(a->mValue, 5);
    EXPECT_EQ(plain->mValue, 1);
    Dispose(a);
    Dispose(plain);
}

TEST_F(NdoTest, ObjectDisposedInAStepComesBackOnUndoAndLookupFindsIt) {
    auto* holder = new Holder;
    Ndo_gManager.BeginGroup();
    holder->ReplaceChild(new Counter(1));
    Ndo_gManager.EndGroup();
    Counter* first = holder->mChild.Get();
    const uint64_t firstId = first->NdoGetUndoId();
    EXPECT_EQ(Ndo_gManager.LookupObject(firstId), first);

    Ndo_gManager.BeginGroup();
    holder->ReplaceChild(new Counter(2));
    Ndo_gManager.EndGroup();
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
    Dispose(holder);
}

TEST_F(NdoTest, ExternalReferenceFollowsTheObjectInAndOutOfSight) {
    Ndo_gManager.BeginGroup();
    auto* created = new Counter(7);
    Ndo_gManager.EndGroup();
    const Ndo_ExternalRefBase ref(created);
    const Ndo_ExternalRefBase copy = ref;
    EXPECT_EQ(copy.GetObjPtr(), created);
    ASSERT_TRUE(Ndo_gManager.Undo());
    EXPECT_EQ(copy.GetObjPtr(), nullptr);
    ASSERT_TRUE(Ndo_gManager.Redo());
    EXPECT_EQ(copy.GetObjPtr(), created);

    auto* plain = new Counter(0, Ndo_Object::kNotUndoable);
    EXPECT_EQ(Ndo_ExternalRefBase(plain).GetObjPtr(), plain);
    EXPECT_EQ(Ndo_ExternalRefBase().GetObjPtr(), nullptr);
    Dispose(plain);
    Dispose(created);
}

TEST_F(NdoTest, HistoryBoundFreesStatesAndDisposedObjects) {
    Ndo_gManager.SetHistoryDepth(2);
    auto* holder = new Holder;
    holder->ReplaceChild(new Counter(0));
    for (int step = 1; step <= 4; ++step) {
        Ndo_gManager.BeginGroup();
        holder->ReplaceChild(new Counter(step));
        Ndo_gManager.EndGroup();
    }
    // Four children were disposed of; the two steps that fell off took theirs along.
    EXPECT_EQ(Ndo_gManager.GetUndoCount(), 2u);
    EXPECT_EQ(Ndo_gManager.GetHiddenCount(), 2u);
    EXPECT_EQ(Counter::sLive, 3);
    ASSERT_TRUE(Ndo_gManager.Undo());
    ASSERT_TRUE(Ndo_gManager.Undo());
    EXPECT_FALSE(Ndo_gManager.Undo());
    EXPECT_EQ(holder->mChild->mValue, 2);

    // A new step discards the undone ones and destroys the children they had created.
    Ndo_gManager.BeginGroup();
    holder->mChild->Set(20);
    Ndo_gManager.EndGroup();
    EXPECT_FALSE(Ndo_gManager.CanRedo());
    EXPECT_EQ(Counter::sLive, 1);
    Ndo_gManager.SetHistoryDepth(0);
    EXPECT_FALSE(Ndo_gManager.CanUndo());
    EXPECT_EQ(Counter::sLiveStates, 0);
    Dispose(holder);
}

TEST_F(NdoTest, UndoRecreatesAnObjectDestroyedOutsideAnyGroup) {
    auto* a = new Counter(1);
    const uint64_t id = a->NdoGetUndoId();
    Ndo_gManager.BeginGroup();
    a->Set(2);
    Ndo_gManager.EndGroup();
    Dispose(a);
    EXPECT_EQ(Ndo_gManager.LookupObject(id), nullptr);

    ASSERT_TRUE(Ndo_gManager.Undo());
    auto* back = dynamic_cast<Counter*>(Ndo_gManager.LookupObject(id));
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->NdoGetUndoId(), id);
    EXPECT_EQ(back->mValue, 1);
    Dispose(back);
}

TEST_F(NdoTest, ClearDestroysEverythingTheHistoryKept) {
    auto* holder = new Holder;
    Ndo_gManager.BeginGroup();
    holder->ReplaceChild(new Counter(1));
    holder->ReplaceChild(new Counter(2));  // the first child is created and disposed in one step
    Ndo_gManager.EndGroup();
    Ndo_gManager.BeginGroup();
    holder->ReplaceChild(nullptr);
    Ndo_gManager.EndGroup();
    EXPECT_EQ(Ndo_gManager.GetHiddenCount(), 2u);
    Ndo_gManager.Clear();
    EXPECT_EQ(Counter::sLive, 0);
    EXPECT_FALSE(Ndo_gManager.CanUndo());
    Dispose(holder);
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
    Dispose(counter);
    Dispose(holder);
}

}  // namespace
