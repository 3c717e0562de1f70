#include "Mdie_ChaseTracker.h"

#include <algorithm>

#include "Cmn_Assert.h"
#include "PSUtil_VMLock.h"

// ---------------------------------------------------------------- construction

template <class T>
std::unique_ptr<T[]> Mdie_ChaseTracker::AllocateLocked(int32_t iCount) {
    std::unique_ptr<T[]> array(new T[static_cast<size_t>(iCount)]());
    PSUtil_VMLock(array.get(), sizeof(T) * static_cast<size_t>(iCount));
    return array;
}

template <class T>
void Mdie_ChaseTracker::Unlock(const std::unique_ptr<T[]>& iArray, int32_t iCount) {
    PSUtil_VMUnlock(iArray.get(), sizeof(T) * static_cast<size_t>(iCount));
}

Mdie_ChaseTracker::Mdie_ChaseTracker(const Mdie_ChaseTrackerMap* iMapP, bool iOutputMuteChanges)
    : mMapP(iMapP),
      mNumChasing(iMapP ? iMapP->GetNumChasingIndices() : 0),
      mNumEntries(iMapP ? iMapP->GetNumIndices() : 0),
      mOutputMuteChanges(iOutputMuteChanges) {
    VELA_ASSERT(iMapP != 0);
    mNumChasing = std::min(mNumChasing, mNumEntries);
    mValuesP = AllocateLocked<int32_t>(mNumChasing);
    mTimesP = AllocateLocked<Time_Typed>(mNumChasing);
    mActiveP = AllocateLocked<bool>(mNumEntries);
    mTrackedP = AllocateLocked<bool>(mNumEntries);
    PSUtil_VMLock(this, sizeof(*this));
}

Mdie_ChaseTracker::~Mdie_ChaseTracker() {
    PSUtil_VMUnlock(this, sizeof(*this));
    Unlock(mTrackedP, mNumEntries);
    Unlock(mActiveP, mNumEntries);
    Unlock(mTimesP, mNumChasing);
    Unlock(mValuesP, mNumChasing);
}

// ---------------------------------------------------------------- lookup

bool Mdie_ChaseTracker::IsOwnEntry(int32_t iEntry) const {
    return iEntry >= 0 && iEntry < mNumEntries;  // entries appended after we were built are not
}

bool Mdie_ChaseTracker::FindEntryForIndex(int32_t& oEntry, int32_t iGlobalIndex) const {
    int32_t entry = 0;
    if (mMapP == nullptr || !mMapP->GetIndexForSubStreamIndex(entry, iGlobalIndex) || !IsOwnEntry(entry)) return false;
    oEntry = entry;
    return true;
}

bool Mdie_ChaseTracker::FindEntry(int32_t& oEntry, const Mdie_SubStream& iSubStream) const {
    int32_t entry = 0;
    if (mMapP == nullptr || !mMapP->GetIndexForSubStream(entry, iSubStream) || !IsOwnEntry(entry)) return false;
    oEntry = entry;
    return true;
}

// ---------------------------------------------------------------- feeding

void Mdie_ChaseTracker::Activate(int32_t iEntry) {
    mActiveP[iEntry] = true;
    mIsClear = false;
}

void Mdie_ChaseTracker::UpdateFromEvent(const Vela_Event& iEvent, bool iTrack) {
    const Mdie_SubStream subStream(iEvent);
    if (subStream.IsNull()) return;  // not continuous data (notes, controller 0, 120..127, ...)
    int32_t entry = 0;
    if (!FindEntry(entry, subStream)) return;
    // A releasing entry already active keeps its tracked state: playback only moved its value.
    if (iTrack && !(IsReleasingEntry(entry) && mActiveP[entry])) mTrackedP[entry] = true;
    Activate(entry);
    if (IsChasingEntry(entry)) mValuesP[entry] = subStream.GetValueFromEvent(iEvent);
}

void Mdie_ChaseTracker::TrackEvent(const Vela_Event& iEvent) { UpdateFromEvent(iEvent, true); }

void Mdie_ChaseTracker::ChaseEvent(const Vela_Event& iEvent) { UpdateFromEvent(iEvent, false); }

void Mdie_ChaseTracker::TrackValue(const Mdie_SubStream& iSubStream, int32_t iValue) {
    int32_t entry = 0;
    if (!FindEntry(entry, iSubStream)) return;
    Activate(entry);
    if (IsChasingEntry(entry)) mValuesP[entry] = iValue;
}

void Mdie_ChaseTracker::SetActiveValue(const Mdie_SubStream& iSubStream, int32_t iValue) {
    int32_t entry = 0;
    if (!FindEntry(entry, iSubStream) || !IsChasingEntry(entry)) return;
    mValuesP[entry] = iValue;
    Activate(entry);
}

void Mdie_ChaseTracker::SetActiveValueIfLater(const Mdie_SubStream& iSubStream, int32_t iValue,
                                              const Time_Typed& iTime) {
    int32_t entry = 0;
    if (!FindEntry(entry, iSubStream) || !IsChasingEntry(entry)) return;
    if (mActiveP[entry] && iTime < mTimesP[entry]) return;
    mValuesP[entry] = iValue;
    mTimesP[entry] = iTime;
    Activate(entry);
}

// ---------------------------------------------------------------- queries

bool Mdie_ChaseTracker::IsChasing(const Mdie_SubStream& iSubStream) const {
    int32_t entry = 0;
    return FindEntry(entry, iSubStream) && IsChasingEntry(entry);
}

bool Mdie_ChaseTracker::IsReleasing(int32_t* oReleaseValueP, const Mdie_SubStream& iSubStream) const {
    int32_t entry = 0;
    if (!FindEntry(entry, iSubStream) || !IsReleasingEntry(entry)) return false;
    if (oReleaseValueP) *oReleaseValueP = mMapP->GetEntryReleaseValue(entry);
    return true;
}

bool Mdie_ChaseTracker::IsActive(const Mdie_SubStream& iSubStream) const {
    int32_t entry = 0;
    return FindEntry(entry, iSubStream) && mActiveP[entry];
}

bool Mdie_ChaseTracker::IsTracking(const Mdie_SubStream& iSubStream) const {
    int32_t entry = 0;
    return FindEntry(entry, iSubStream);
}

bool Mdie_ChaseTracker::IsTracked(const Mdie_SubStream& iSubStream) const {
    int32_t entry = 0;
    return FindEntry(entry, iSubStream) && mTrackedP[entry];
}

void Mdie_ChaseTracker::FillEntry(Mdie_ChaseTracker_ChasingEntry& oEntry, int32_t iEntry) const {
    oEntry.mActive = mActiveP[iEntry];
    oEntry.mValue = IsChasingEntry(iEntry) ? mValuesP[iEntry] : 0;
    oEntry.mSubStream = mMapP->GetEntrySubStream(iEntry);
}

bool Mdie_ChaseTracker::GetChasingEntry(Mdie_ChaseTracker_ChasingEntry& oEntry, const Mdie_SubStream& iSubStream) const {
    int32_t entry = 0;
    if (!FindEntry(entry, iSubStream)) return false;
    FillEntry(oEntry, entry);
    return true;
}

bool Mdie_ChaseTracker::GetChasingEntry(Mdie_ChaseTracker_ChasingEntry& oEntry, int32_t iGlobalIndex) const {
    int32_t entry = 0;
    if (!FindEntryForIndex(entry, iGlobalIndex)) return false;
    FillEntry(oEntry, entry);
    return true;
}

bool Mdie_ChaseTracker::HoldsValue(const Mdie_SubStream& iSubStream, int32_t iValue) const {
    int32_t entry = 0;
    return FindEntry(entry, iSubStream) && IsChasingEntry(entry) && mActiveP[entry] && mValuesP[entry] == iValue;
}

// ---------------------------------------------------------------- state changes

void Mdie_ChaseTracker::ClearActiveFlag(const Mdie_SubStream& iSubStream) {
    int32_t entry = 0;
    if (FindEntry(entry, iSubStream)) mActiveP[entry] = false;
}

void Mdie_ChaseTracker::Clear() {
    if (mIsClear) return;
    std::fill_n(mActiveP.get(), mNumEntries, false);
    mIsClear = true;
}

void Mdie_ChaseTracker::Prep() {
    Clear();
    std::fill_n(mTrackedP.get(), mNumEntries, false);
}

void Mdie_ChaseTracker::HandleReleaseEvent(const Vela_ReleaseControllerEvent& iEvent) {
    const int32_t index = iEvent.GetIndex();
    int32_t entry = 0;
    if (index != kReleaseAllIndex) {
        if (FindEntryForIndex(entry, index) && IsReleasingEntry(entry)) MarkReleased(entry);
        return;
    }
    for (entry = 0; entry < mNumEntries; ++entry)
        if (IsReleasingEntry(entry)) MarkReleased(entry);
}

void Mdie_ChaseTracker::MarkReleased(int32_t iEntry) {
    mActiveP[iEntry] = false;
    mTrackedP[iEntry] = false;
}

// ---------------------------------------------------------------- output

void Mdie_ChaseTracker::OutputForEntry(int32_t iEntry, Mdie_EventReceiver& iReceiver, int32_t iValue) const {
    iReceiver.ReceiveEvent(mMapP->GetEntrySubStream(iEntry).MakeEvent(iValue));
}

void Mdie_ChaseTracker::OutputRelease(int32_t iEntry, Mdie_EventReceiver& iReceiver, EReleaseMode iMode) {
    OutputForEntry(iEntry, iReceiver, mMapP->GetEntryReleaseValue(iEntry));
    if (iMode == kReleaseAndDeactivate) mActiveP[iEntry] = false;
}

void Mdie_ChaseTracker::DoCurrentPositionChase(Mdie_EventReceiver& iReceiver) const {
    for (int32_t entry = 0; entry < mNumChasing; ++entry)
        if (mActiveP[entry] && !IsReleasingEntry(entry)) OutputForEntry(entry, iReceiver, mValuesP[entry]);
}

void Mdie_ChaseTracker::ChaseAndRelease(Mdie_ChaseTracker* iOtherP, Mdie_EventReceiver& iReceiver) {
    if (mNumChasing > 0) {
        // Entry 0 is handed over whatever its flag; the later ones only when active.
        for (int32_t entry = 0; entry < mNumChasing;) {
            const Mdie_SubStream& subStream = mMapP->GetEntrySubStream(entry);
            const int32_t value = mValuesP[entry];
            if (!(iOtherP && iOtherP->HoldsValue(subStream, value))) OutputForEntry(entry, iReceiver, value);
            if (iOtherP) iOtherP->ClearActiveFlag(subStream);
            do ++entry;
            while (entry < mNumChasing && !mActiveP[entry]);
        }
    }
    if (iOtherP) iOtherP->Release(iReceiver, kReleaseAndDeactivate);
}

void Mdie_ChaseTracker::Release(Mdie_EventReceiver& iReceiver, EReleaseMode iMode) {
    if (mNumEntries == 0) return;
    // Entry 0 is released whatever its flags; the later ones when releasing and active.
    OutputRelease(0, iReceiver, iMode);
    for (int32_t entry = 1; entry < mNumEntries; ++entry)
        if (IsReleasingEntry(entry) && mActiveP[entry]) OutputRelease(entry, iReceiver, iMode);
}

// ---------------------------------------------------------------- mute

void Mdie_ChaseTracker::DoMute(Mdie_EventReceiver& iReceiver) {
    if (mIsMuted) return;
    mIsMuted = true;
    if (!mOutputMuteChanges) return;
    for (int32_t entry = 0; entry < mNumEntries; ++entry)
        if (IsReleasingEntry(entry) && mActiveP[entry]) OutputRelease(entry, iReceiver, kReleaseKeepActive);
}

void Mdie_ChaseTracker::DoMutedUpdate(const Vela_Event& iEvent) { ChaseEvent(iEvent); }

void Mdie_ChaseTracker::DoUnMute(Mdie_EventReceiver& iReceiver) {
    if (!mIsMuted) return;
    mIsMuted = false;
    if (!mOutputMuteChanges) return;
    for (int32_t entry = 0; entry < mNumChasing; ++entry)
        if (mActiveP[entry]) OutputForEntry(entry, iReceiver, mValuesP[entry]);
}

void Mdie_ChaseTracker::DoUnMutedUpdate(const Vela_Event& iEvent, Mdie_EventReceiver& iReceiver) {
    TrackEvent(iEvent);
    iReceiver.ReceiveEvent(iEvent);
}

// ---------------------------------------------------------------- iterators

bool Mdie_ChaseTracker_ActiveChasingIterator::Next(Mdie_ChaseTracker_ChasingEntry& oEntry) {
    while (mEntry < mTracker.mNumChasing) {
        const int32_t entry = mEntry++;
        if (!mTracker.mActiveP[entry]) continue;
        mTracker.FillEntry(oEntry, entry);
        return true;
    }
    return false;
}

bool Mdie_ChaseTracker_ActiveReleasingIterator::Next(Mdie_ChaseTracker_ReleasingEntry& oEntry) {
    while (mEntry < mTracker.mNumEntries) {
        const int32_t entry = mEntry++;
        if (!mTracker.mActiveP[entry] || !mTracker.IsReleasingEntry(entry)) continue;
        oEntry.mActive = true;
        oEntry.mReleaseValue = mTracker.mMapP->GetEntryReleaseValue(entry);
        oEntry.mSubStream = mTracker.mMapP->GetEntrySubStream(entry);
        return true;
    }
    return false;
}
