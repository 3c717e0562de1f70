// The undo history: groups of changes that can be undone and redone.
// Between BeginGroup() and EndGroup() every undoable object that announces a change
// (Ndo_Object::NdoAboutToModify) has its state saved once, every undoable object built is
// recorded as created and every one disposed of (NdoDelete) is kept rather than destroyed.
// EndGroup() closes the group into one step (nested Begin/End pairs form a single group; a group
// with nothing in it leaves no step, and a new step discards the steps that could be redone).
// Undo() of a step brings back the objects it disposed of, swaps each saved state with the
// object's current one (latest first) and hides the objects it created; Redo() does the reverse.
// Objects changed outside any group are not recorded. The history keeps the last
// GetHistoryDepth() steps (100 by default); a step that falls off it frees its states and
// destroys the objects only it was keeping.
// Memory: the history grows by design, by one saved state per changed object and the objects
// disposed of in each step, until the depth is reached. A host bounds it with SetHistoryDepth
// (fewer steps, 0 for none) and frees it all with Clear.
// Ids: ids are handed out from 1 upwards and never reused. LookupObject finds the objects in
// sight: live ones, not those a step is keeping hidden.
// Threads: one manager per process (Ndo_gManager), used from the editing thread only; it takes
// no locks. LookupObject (used by Ndo_ExternalRefBase on every access) allocates nothing, but the
// host must keep it apart from edits on other threads. No undoable object may be built during
// static initialization.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <unordered_map>
#include <vector>

#include "Ndo_Object.h"

class Ndo_Manager {
public:
    Ndo_Manager() = default;
    ~Ndo_Manager();
    Ndo_Manager(const Ndo_Manager&) = delete;
    Ndo_Manager& operator=(const Ndo_Manager&) = delete;

    // ------------------------------------------------------------ groups
    void BeginGroup();
    // Unbalanced calls (no open group) are ignored.
    void EndGroup();
    bool IsGroupOpen() const { return mGroupDepth > 0; }
    // True when iObjectP announced a change (or was created) in the group now open.
    bool IsMarked(const Ndo_Object* iObjectP) const;

    // ------------------------------------------------------------ history
    // Both close an open group first. They return false when there is nothing to undo/redo.
    bool Undo();
    bool Redo();
    bool CanUndo() const { return mDoneCount > 0 || !mOpen.IsEmpty(); }
    bool CanRedo() const { return mDoneCount < mSteps.size() && mOpen.IsEmpty(); }
    size_t GetUndoCount() const { return mDoneCount; }
    size_t GetRedoCount() const { return mSteps.size() - mDoneCount; }
    // Steps kept for undo; lowering it frees the oldest at once. 0 keeps no history at all.
    void SetHistoryDepth(size_t iDepth);
    size_t GetHistoryDepth() const { return mHistoryDepth; }
    // Drops every step (and an open group) and destroys every object the history was keeping.
    void Clear();

    // ------------------------------------------------------------ objects
    // The object in sight with that id, or null (also for kNdo_NoId). No allocation.
    Ndo_Object* LookupObject(uint64_t iUndoId) const;
    // Objects the history keeps out of sight (disposed of, or created by an undone step).
    size_t GetHiddenCount() const;

private:
    friend class Ndo_Object;

    struct Entry {
        Ndo_Object* mObjectP = nullptr;
        bool mHidden = false;
    };
    struct Change {
        uint64_t mUndoId = kNdo_NoId;
        std::unique_ptr<Ndo_State> mStateP;
    };
    struct Step {
        std::vector<Change> mChanges;   // in announcement order
        std::vector<uint64_t> mCreated;
        std::vector<uint64_t> mDisposed;
        bool IsEmpty() const { return mChanges.empty() && mCreated.empty() && mDisposed.empty(); }
    };

    // Called by Ndo_Object.
    void Register(Ndo_Object* iObjectP);
    void Unregister(Ndo_Object* iObjectP);
    void AboutToModify(Ndo_Object* iObjectP);
    void Dispose(Ndo_Object* iObjectP);

    void CloseOpenGroup();
    void SwapState(Change& ioChange);
    Ndo_Object* RecreateFrom(const Change& iChange);
    void SetHidden(const std::vector<uint64_t>& iIds, bool iHidden);
    // Destroys those of iIds the history is keeping hidden.
    void DestroyHidden(const std::vector<uint64_t>& iIds);
    void DiscardRedoSteps();
    void TrimToDepth();

    std::unordered_map<uint64_t, Entry> mObjects;
    std::deque<Step> mSteps;  // [0, mDoneCount) can be undone, the rest redone
    size_t mDoneCount = 0;
    size_t mHistoryDepth = 100;
    Step mOpen;
    int mGroupDepth = 0;
    uint64_t mGroupSerial = 0;
    uint64_t mNextId = 1;
    bool mRestoring = false;
};

extern Ndo_Manager Ndo_gManager;
