// Mdie_ChaseTrackerMap: which sub-streams a chase tracker follows, in which order it outputs
// them, which are chased (their last value is re-sent when playback starts mid-data) and which
// are released (set back to a rest value on stop or mute), with each rest value.
//
// Entries are numbered densely in append order; each sub-stream has at most one entry. The
// entries numbered below the chasing count are chased. The constructor builds the standard map:
//
//   entries   sub-stream                releasing  release value
//   0..62     controllers 1..63         no
//   63        controller 64 (sustain)   yes        0
//   64..118   controllers 65..119       no
//   119       pitch bend                yes        0 (centre)
//   120       channel pressure          yes        0
//   121       program                   no
//
// with all 122 chased. Controller 0, controllers 120..127 and key pressure have no entry.
// Clear and SetStandardReleasingNoChasing unlink entries from the lookup but never remove them
// from the list: GetNumIndices keeps counting them.
//
// Threads: fill on one thread before use; afterwards it is only read, and lookups are array
// reads, safe on the real-time thread without locks. The lookup array and the object are
// pinned in memory for the map's lifetime. Appending allocates; reading never does.
#pragma once

#include <cstdint>
#include <memory>

#include "Cmn_PolyVector.h"
#include "Mdie_SubStream.h"

struct Mdie_ChaseTrackerMap_Entry {
    Mdie_SubStream mSubStream;
    bool mIsReleasing = false;
    int32_t mReleaseValue = 0;  // meaningful for releasing entries only
};

class Mdie_ChaseTrackerMap {
public:
    static constexpr int32_t kNullIndex = -1;

    // Builds the standard map.
    Mdie_ChaseTrackerMap();
    ~Mdie_ChaseTrackerMap();
    Mdie_ChaseTrackerMap(const Mdie_ChaseTrackerMap&) = delete;
    Mdie_ChaseTrackerMap& operator=(const Mdie_ChaseTrackerMap&) = delete;

    // ---- Building (editing thread). A sub-stream that already has an entry, or whose global
    // index is outside 0..249, is reported and not appended.
    void AppendEntry(const Mdie_SubStream& iSubStream);
    void AppendReleasingEntry(const Mdie_SubStream& iSubStream, int32_t iReleaseValue);
    // Everything appended so far is chased; everything appended later is not.
    void DoneAddingChasingEntries() { mNumChasing = NumEntries(); }
    // Unlinks every entry and chases nothing; then appends releasing entries with release value
    // 0 for pitch bend, controller 64 and channel pressure.
    void SetStandardReleasingNoChasing();
    // Chasing count 0, no sub-stream found; the entry list is kept.
    void Clear();

    // ---- Queries (any thread, real-time safe). Entry numbers are not range-checked.
    int32_t GetNumIndices() const { return NumEntries(); }
    int32_t GetNumChasingIndices() const { return mNumChasing; }
    bool GetEntryIsChasing(int32_t iEntry) const { return iEntry < mNumChasing; }
    bool GetEntryIsReleasing(int32_t iEntry) const { return mEntries[iEntry].mIsReleasing; }
    int32_t GetEntryReleaseValue(int32_t iEntry) const { return mEntries[iEntry].mReleaseValue; }
    const Mdie_SubStream& GetEntrySubStream(int32_t iEntry) const { return mEntries[iEntry].mSubStream; }
    // False when no entry is linked to the global index (or it lies outside 0..249).
    bool GetIndexForSubStreamIndex(int32_t& oEntry, int32_t iGlobalIndex) const;
    // As above for the sub-stream's global index (Mdie_SubStream::GetIndex). Sub-streams that are
    // never valid share indices with real ones (controller 0 with pitch bend, controller 120
    // with channel pressure, a negative key with a controller) and are found as those; valid
    // sub-streams never collide. A null sub-stream reports its index query and maps to index 0.
    bool GetIndexForSubStream(int32_t& oEntry, const Mdie_SubStream& iSubStream) const;

private:
    void Append(const Mdie_SubStream& iSubStream, bool iIsReleasing, int32_t iReleaseValue);
    void AddStandardReleasingEntries();
    void UnlinkAll();
    int32_t NumEntries() const { return static_cast<int32_t>(mEntries.GetSize()); }
    bool IsGlobalIndex(int32_t iGlobalIndex) const { return iGlobalIndex >= 0 && iGlobalIndex < mNumIndices; }

    int32_t mNumIndices;
    std::unique_ptr<int32_t[]> mMapRefP;  // entry number per global index, or kNullIndex
    Cmn_PolyVector<Mdie_ChaseTrackerMap_Entry> mEntries;
    int32_t mNumChasing = 0;
};
