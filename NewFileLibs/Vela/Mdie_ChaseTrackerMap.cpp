#include "Mdie_ChaseTrackerMap.h"

#include "Cmn_Assert.h"
#include "PSUtil_VMLock.h"

namespace {

constexpr int8_t kSustainPedal = 64;
constexpr int8_t kFirstController = 1;
constexpr int8_t kLastController = 119;

}  // namespace

Mdie_ChaseTrackerMap::Mdie_ChaseTrackerMap()
    : mNumIndices(Mdie_SubStream::GetNumIndices()), mMapRefP(new int32_t[mNumIndices]) {
    PSUtil_VMLock(mMapRefP.get(), sizeof(int32_t) * mNumIndices);
    PSUtil_VMLock(this, sizeof(*this));
    UnlinkAll();
    mEntries.Reserve(kLastController + 3);
    for (int number = kFirstController; number <= kLastController; ++number) {
        const Mdie_SubStream controller = Mdie_SubStream::Controller(static_cast<int8_t>(number));
        if (number == kSustainPedal)
            AppendReleasingEntry(controller, 0);
        else
            AppendEntry(controller);
    }
    AppendReleasingEntry(Mdie_SubStream::PitchBend(), 0);
    AppendReleasingEntry(Mdie_SubStream::MonoPressure(), 0);
    AppendEntry(Mdie_SubStream::Program());
    DoneAddingChasingEntries();
}

Mdie_ChaseTrackerMap::~Mdie_ChaseTrackerMap() {
    PSUtil_VMUnlock(this, sizeof(*this));
    PSUtil_VMUnlock(mMapRefP.get(), sizeof(int32_t) * mNumIndices);
}

void Mdie_ChaseTrackerMap::AppendEntry(const Mdie_SubStream& iSubStream) { Append(iSubStream, false, 0); }

void Mdie_ChaseTrackerMap::AppendReleasingEntry(const Mdie_SubStream& iSubStream, int32_t iReleaseValue) {
    Append(iSubStream, true, iReleaseValue);
}

void Mdie_ChaseTrackerMap::Append(const Mdie_SubStream& iSubStream, bool iIsReleasing, int32_t iReleaseValue) {
    const int32_t globalIndex = iSubStream.GetIndex();
    const bool isGlobalIndex = IsGlobalIndex(globalIndex);
    VELA_ASSERT(isGlobalIndex);
    if (!isGlobalIndex) return;
    int32_t& mapRef = mMapRefP[globalIndex];
    VELA_ASSERT(mapRef == kNullIndex);
    if (mapRef != kNullIndex) return;
    mapRef = NumEntries();
    mEntries.PushBack(Mdie_ChaseTrackerMap_Entry{iSubStream, iIsReleasing, iReleaseValue});
}

void Mdie_ChaseTrackerMap::AddStandardReleasingEntries() {
    AppendReleasingEntry(Mdie_SubStream::PitchBend(), 0);
    AppendReleasingEntry(Mdie_SubStream::Controller(kSustainPedal), 0);
    AppendReleasingEntry(Mdie_SubStream::MonoPressure(), 0);
}

void Mdie_ChaseTrackerMap::SetStandardReleasingNoChasing() {
    Clear();
    // The old entries stay in the list, unreachable, and still count below the chasing count.
    DoneAddingChasingEntries();
    AddStandardReleasingEntries();
}

void Mdie_ChaseTrackerMap::Clear() {
    mNumChasing = 0;
    UnlinkAll();
}

void Mdie_ChaseTrackerMap::UnlinkAll() {
    for (int32_t i = 0; i < mNumIndices; ++i) mMapRefP[i] = kNullIndex;
}

bool Mdie_ChaseTrackerMap::GetIndexForSubStreamIndex(int32_t& oEntry, int32_t iGlobalIndex) const {
    if (!IsGlobalIndex(iGlobalIndex)) return false;
    const int32_t entry = mMapRefP[iGlobalIndex];
    if (entry == kNullIndex) return false;
    oEntry = entry;
    return true;
}

bool Mdie_ChaseTrackerMap::GetIndexForSubStream(int32_t& oEntry, const Mdie_SubStream& iSubStream) const {
    return GetIndexForSubStreamIndex(oEntry, iSubStream.GetIndex());
}
