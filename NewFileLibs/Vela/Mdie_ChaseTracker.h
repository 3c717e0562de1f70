// Mdie_ChaseTracker: the last value of every sub-stream its Mdie_ChaseTrackerMap lists, and
// which of them are active, for one track or playback context. Playback feeds it the events
// it plays (tracking); a locate feeds it the values in force at the new position (chasing); on
// start it re-sends the chased values, on stop or mute it sends release values.
//
// Entries are the map's entry numbers; values and times exist for chasing entries only. A
// sub-stream the map does not list is ignored by every operation (queries answer false).
// Entries appended to the map after the tracker was built are not seen: the counts are copied
// at construction. Values start at 0 and are meaningful only while the entry is active.
//
// Mute (the rules chosen here):
//  - DoMute(receiver): enters the muted state and sends the release value of every active
//    releasing entry; the active flags and values stay, so the tracker still knows what to
//    restore. Muting twice does nothing more.
//  - DoMutedUpdate(event): while muted, keeps the tracker current (as ChaseEvent) and sends
//    nothing.
//  - DoUnMute(receiver): leaves the muted state and sends the value of every active chasing
//    entry in entry order: the non-releasing ones as DoCurrentPositionChase does, and the
//    releasing ones too, since muting set those to rest. The receiver then holds what it would
//    hold had there been no mute. (An active releasing entry that is not chased has no stored
//    value and stays at rest.)
//  - DoUnMutedUpdate(event, receiver): while not muted, tracks the event and passes it on.
//  - The constructor boolean iOutputMuteChanges: when false, DoMute and DoUnMute only switch
//    the muted state and send nothing, for a tracker whose output is silenced elsewhere.
// Tracked flags: set by TrackEvent (and DoUnMutedUpdate) when playback itself delivered the
// entry's value; IsTracked answers them. Prep and HandleReleaseEvent clear them.
// Release modes: kReleaseAndDeactivate (0) clears the released entries' active flags;
// kReleaseKeepActive (1) sends the same events and keeps the flags, so a later chase or
// unmute can restore the values.
//
// Threads: owned by one playback context; every operation after construction runs on the
// playback thread with no locks and no heap allocation. The arrays and the object are pinned in
// memory at construction. The map is shared read-only and must outlive the tracker.
#pragma once

#include <cstdint>
#include <memory>

#include "Mdie_ChaseTrackerMap.h"
#include "Mdie_EventReceiver.h"
#include "Time_Typed.h"

struct Mdie_ChaseTracker_ChasingEntry {
    bool mActive = false;
    int32_t mValue = 0;
    Mdie_SubStream mSubStream;
};

struct Mdie_ChaseTracker_ReleasingEntry {
    bool mActive = false;
    int32_t mReleaseValue = 0;
    Mdie_SubStream mSubStream;
};

class Mdie_ChaseTracker {
public:
    enum EReleaseMode : int {
        kReleaseAndDeactivate = 0,
        kReleaseKeepActive = 1,
    };
    // Global index in a release-controller event that stands for every releasing entry.
    static constexpr int32_t kReleaseAllIndex = -1;

    // iMapP must not be null (reported; the tracker then follows nothing).
    explicit Mdie_ChaseTracker(const Mdie_ChaseTrackerMap* iMapP, bool iOutputMuteChanges = true);
    ~Mdie_ChaseTracker();
    Mdie_ChaseTracker(const Mdie_ChaseTracker&) = delete;
    Mdie_ChaseTracker& operator=(const Mdie_ChaseTracker&) = delete;

    // ---- Feeding
    // An event played: marks it tracked (unless a releasing entry is already active), active,
    // and stores its value when chased.
    void TrackEvent(const Vela_Event& iEvent);
    // A value in force after a locate: as TrackEvent without the tracked flag.
    void ChaseEvent(const Vela_Event& iEvent);
    void TrackValue(const Mdie_SubStream& iSubStream, int32_t iValue);
    // Chasing entries only.
    void SetActiveValue(const Mdie_SubStream& iSubStream, int32_t iValue);
    // Chasing entries only; an active entry keeps its value when iTime is earlier than the
    // stored time (equal times: the later call wins).
    void SetActiveValueIfLater(const Mdie_SubStream& iSubStream, int32_t iValue, const Time_Typed& iTime);

    // ---- Queries
    bool IsChasing(const Mdie_SubStream& iSubStream) const;
    // Writes the release value when oReleaseValueP is not null.
    bool IsReleasing(int32_t* oReleaseValueP, const Mdie_SubStream& iSubStream) const;
    bool IsActive(const Mdie_SubStream& iSubStream) const;
    bool IsTracking(const Mdie_SubStream& iSubStream) const;
    bool IsTracked(const Mdie_SubStream& iSubStream) const;
    bool IsMuted() const { return mIsMuted; }
    // Value is 0 for an entry that is not chased.
    bool GetChasingEntry(Mdie_ChaseTracker_ChasingEntry& oEntry, const Mdie_SubStream& iSubStream) const;
    bool GetChasingEntry(Mdie_ChaseTracker_ChasingEntry& oEntry, int32_t iGlobalIndex) const;
    const Mdie_ChaseTrackerMap* GetMap() const { return mMapP; }

    // ---- State changes
    void ClearActiveFlag(const Mdie_SubStream& iSubStream);
    // All active flags false (nothing to do when already clear).
    void Clear();
    // Ready for a new pass from a new position: Clear, and the tracked flags forgotten. The
    // muted state is kept.
    void Prep();
    // The receiver was told to release the sub-stream with the event's global index (or every
    // releasing entry for kReleaseAllIndex): its releasing entry is no longer active or tracked.
    void HandleReleaseEvent(const Vela_ReleaseControllerEvent& iEvent);

    // ---- Output
    // Every active chasing entry that is not releasing, in entry order.
    void DoCurrentPositionChase(Mdie_EventReceiver& iReceiver) const;
    // Hands over from iOtherP's state (may be null) to this one's, sending only what differs,
    // then releases what iOtherP still holds. The walk starts at entry 0 without testing its
    // active flag, by design; later entries are sent only when active.
    void ChaseAndRelease(Mdie_ChaseTracker* iOtherP, Mdie_EventReceiver& iReceiver);
    // Sends release values: entry 0 first (untested, by design), then every following active
    // releasing entry.
    void Release(Mdie_EventReceiver& iReceiver, EReleaseMode iMode);

    // ---- Mute (see the header comment)
    void DoMute(Mdie_EventReceiver& iReceiver);
    void DoMutedUpdate(const Vela_Event& iEvent);
    void DoUnMute(Mdie_EventReceiver& iReceiver);
    void DoUnMutedUpdate(const Vela_Event& iEvent, Mdie_EventReceiver& iReceiver);

private:
    bool IsOwnEntry(int32_t iEntry) const;
    bool FindEntry(int32_t& oEntry, const Mdie_SubStream& iSubStream) const;
    bool FindEntryForIndex(int32_t& oEntry, int32_t iGlobalIndex) const;
    bool IsChasingEntry(int32_t iEntry) const { return iEntry < mNumChasing; }
    bool IsReleasingEntry(int32_t iEntry) const { return mMapP->GetEntryIsReleasing(iEntry); }
    void Activate(int32_t iEntry);
    void MarkReleased(int32_t iEntry);
    void UpdateFromEvent(const Vela_Event& iEvent, bool iTrack);
    // Active, chased and holding iValue.
    bool HoldsValue(const Mdie_SubStream& iSubStream, int32_t iValue) const;
    void OutputForEntry(int32_t iEntry, Mdie_EventReceiver& iReceiver, int32_t iValue) const;
    void OutputRelease(int32_t iEntry, Mdie_EventReceiver& iReceiver, EReleaseMode iMode);
    void FillEntry(Mdie_ChaseTracker_ChasingEntry& oEntry, int32_t iEntry) const;
    template <class T>
    static std::unique_ptr<T[]> AllocateLocked(int32_t iCount);
    template <class T>
    static void Unlock(const std::unique_ptr<T[]>& iArray, int32_t iCount);

    const Mdie_ChaseTrackerMap* mMapP;
    int32_t mNumChasing;
    int32_t mNumEntries;
    std::unique_ptr<int32_t[]> mValuesP;    // per chasing entry
    std::unique_ptr<Time_Typed[]> mTimesP;  // per chasing entry
    std::unique_ptr<bool[]> mActiveP;       // per entry
    std::unique_ptr<bool[]> mTrackedP;      // per entry
    bool mIsClear = true;
    bool mOutputMuteChanges;
    bool mIsMuted = false;

    friend class Mdie_ChaseTracker_ActiveChasingIterator;
    friend class Mdie_ChaseTracker_ActiveReleasingIterator;
};

// Walks the active chasing entries in entry order. Real-time safe.
class Mdie_ChaseTracker_ActiveChasingIterator {
public:
    explicit Mdie_ChaseTracker_ActiveChasingIterator(const Mdie_ChaseTracker& iTracker) : mTracker(iTracker) {}
    // False when no entry is left.
    bool Next(Mdie_ChaseTracker_ChasingEntry& oEntry);

private:
    const Mdie_ChaseTracker& mTracker;
    int32_t mEntry = 0;
};

// Walks the active releasing entries in entry order. Real-time safe.
class Mdie_ChaseTracker_ActiveReleasingIterator {
public:
    explicit Mdie_ChaseTracker_ActiveReleasingIterator(const Mdie_ChaseTracker& iTracker) : mTracker(iTracker) {}
    bool Next(Mdie_ChaseTracker_ReleasingEntry& oEntry);

private:
    const Mdie_ChaseTracker& mTracker;
    int32_t mEntry = 0;
};
