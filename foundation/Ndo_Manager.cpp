#include "Ndo_Manager.h"

#include <algorithm>

Ndo_Manager Ndo_gManager;

namespace {
void Destroy(Ndo_Object* iObjectP) {
    iObjectP->NdoCleanup();
    delete iObjectP;
}
}  // namespace

Ndo_Manager::~Ndo_Manager() { Clear(); }

// ---------------------------------------------------------------- groups

void Ndo_Manager::BeginGroup() {
    if (mGroupDepth++ == 0) ++mGroupSerial;
}

void Ndo_Manager::EndGroup() {
    if (mGroupDepth == 0) return;
    if (--mGroupDepth == 0) CloseOpenGroup();
}

void Ndo_Manager::CloseOpenGroup() {
    mGroupDepth = 0;
    if (mOpen.IsEmpty()) return;
    // A new step makes the undone ones unreachable.
    DiscardRedoSteps();
    mSteps.push_back(std::move(mOpen));
    mOpen = Step();
    ++mDoneCount;
    TrimToDepth();
}

bool Ndo_Manager::IsMarked(const Ndo_Object* iObjectP) const {
    return iObjectP && mGroupDepth > 0 && iObjectP->mMarkedGroup == mGroupSerial;
}

// ---------------------------------------------------------------- history

bool Ndo_Manager::Undo() {
    CloseOpenGroup();
    if (mDoneCount == 0) return false;
    Step& step = mSteps[mDoneCount - 1];
    mRestoring = true;
    // Objects disposed of in the step come back first, so restores can look them up.
    SetHidden(step.mDisposed, false);
    for (auto it = step.mChanges.rbegin(); it != step.mChanges.rend(); ++it) SwapState(*it);
    SetHidden(step.mCreated, true);
    mRestoring = false;
    --mDoneCount;
    return true;
}

bool Ndo_Manager::Redo() {
    CloseOpenGroup();
    if (mDoneCount == mSteps.size()) return false;
    Step& step = mSteps[mDoneCount];
    mRestoring = true;
    SetHidden(step.mCreated, false);
    for (Change& change : step.mChanges) SwapState(change);
    SetHidden(step.mDisposed, true);
    mRestoring = false;
    ++mDoneCount;
    return true;
}

void Ndo_Manager::SwapState(Change& ioChange) {
    if (!ioChange.mStateP) return;
    Ndo_Object* objectP = nullptr;
    if (auto found = mObjects.find(ioChange.mUndoId); found != mObjects.end())
        objectP = found->second.mObjectP;
    else
        objectP = RecreateFrom(ioChange);
    if (!objectP) return;
    std::unique_ptr<Ndo_State> current(objectP->NdoGetState());
    objectP->NdoRestoreState(ioChange.mStateP.get());
    ioChange.mStateP = std::move(current);
}

Ndo_Object* Ndo_Manager::RecreateFrom(const Change& iChange) {
    Ndo_Object* objectP = iChange.mStateP->Recreate();
    if (!objectP) return nullptr;
    if (!objectP->NdoIsUndoable()) {
        Destroy(objectP);
        return nullptr;
    }
    // The shell got a fresh id when it was built; it takes over the one the history knows.
    mObjects.erase(objectP->mUndoId);
    objectP->mUndoId = iChange.mUndoId;
    mObjects[iChange.mUndoId] = Entry{objectP, false};
    return objectP;
}

void Ndo_Manager::SetHidden(const std::vector<uint64_t>& iIds, bool iHidden) {
    for (uint64_t id : iIds)
        if (auto found = mObjects.find(id); found != mObjects.end()) found->second.mHidden = iHidden;
}

void Ndo_Manager::DestroyHidden(const std::vector<uint64_t>& iIds) {
    // Look each id up afresh: destroying one object may destroy others it owned.
    for (uint64_t id : iIds) {
        auto found = mObjects.find(id);
        if (found == mObjects.end() || !found->second.mHidden) continue;
        Ndo_Object* objectP = found->second.mObjectP;
        mObjects.erase(found);
        Destroy(objectP);
    }
}

void Ndo_Manager::DiscardRedoSteps() {
    while (mSteps.size() > mDoneCount) {
        // An undone step keeps hidden what it created; nothing can bring that back now.
        Step step = std::move(mSteps.back());
        mSteps.pop_back();
        DestroyHidden(step.mCreated);
    }
}

void Ndo_Manager::TrimToDepth() {
    while (mDoneCount > mHistoryDepth) {
        // A done step keeps hidden what it disposed of; no undo can reach it any more.
        Step step = std::move(mSteps.front());
        mSteps.pop_front();
        --mDoneCount;
        DestroyHidden(step.mDisposed);
    }
}

void Ndo_Manager::SetHistoryDepth(size_t iDepth) {
    mHistoryDepth = iDepth;
    TrimToDepth();
}

void Ndo_Manager::Clear() {
    mGroupDepth = 0;
    mOpen = Step();
    mSteps.clear();
    mDoneCount = 0;
    std::vector<uint64_t> hidden;
    for (const auto& [id, entry] : mObjects)
        if (entry.mHidden) hidden.push_back(id);
    DestroyHidden(hidden);
}

// ---------------------------------------------------------------- objects

Ndo_Object* Ndo_Manager::LookupObject(uint64_t iUndoId) const {
    if (iUndoId == kNdo_NoId) return nullptr;
    auto found = mObjects.find(iUndoId);
    return found == mObjects.end() || found->second.mHidden ? nullptr : found->second.mObjectP;
}

size_t Ndo_Manager::GetHiddenCount() const {
    return static_cast<size_t>(std::count_if(mObjects.begin(), mObjects.end(), [](const auto& iItem) { return iItem.second.mHidden; }));
}

void Ndo_Manager::Register(Ndo_Object* iObjectP) {
    iObjectP->mUndoId = mNextId++;
    mObjects[iObjectP->mUndoId] = Entry{iObjectP, false};
    if (mGroupDepth > 0 && !mRestoring) {
        // Created in this group: undo hides it as a whole, so its changes need no state.
        iObjectP->mMarkedGroup = mGroupSerial;
        mOpen.mCreated.push_back(iObjectP->mUndoId);
    }
}

void Ndo_Manager::Unregister(Ndo_Object* iObjectP) {
    auto found = mObjects.find(iObjectP->mUndoId);
    if (found != mObjects.end() && found->second.mObjectP == iObjectP) mObjects.erase(found);
}

void Ndo_Manager::AboutToModify(Ndo_Object* iObjectP) {
    if (!iObjectP->NdoIsUndoable() || mGroupDepth == 0 || mRestoring) return;
    if (iObjectP->mMarkedGroup == mGroupSerial) return;
    iObjectP->mMarkedGroup = mGroupSerial;
    mOpen.mChanges.push_back(Change{iObjectP->mUndoId, std::unique_ptr<Ndo_State>(iObjectP->NdoGetState())});
}

void Ndo_Manager::Dispose(Ndo_Object* iObjectP) {
    if (iObjectP->NdoIsUndoable() && mGroupDepth > 0 && !mRestoring) {
        auto found = mObjects.find(iObjectP->mUndoId);
        if (found != mObjects.end() && !found->second.mHidden) {
            found->second.mHidden = true;
            mOpen.mDisposed.push_back(iObjectP->mUndoId);
        }
        return;
    }
    Destroy(iObjectP);
}
