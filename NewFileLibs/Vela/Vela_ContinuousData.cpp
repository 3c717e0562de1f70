// Continuous data segments: edits, lookups, undo state, the "MdCD" block and range walks.
#include "Vela_ContinuousData.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "Cmn_Assert.h"
#include "Sys_StdStreamHeader.h"
#include "Sys_TypedStream.h"
#include "Vela_ExtendedEventList.h"
#include "Vela_Init.h"

namespace {

using Segment = Vela_ContinuousData_Segment;
constexpr size_t kSegmentBytes = 8 + 4;  // the time's saved word, the value

}  // namespace

Vela_ContinuousData::Vela_ContinuousData(EUndoFlag iUndo, bool iSnapTicks)
    : Ndo_Object(iUndo, iSnapTicks), mSnapTicks(iSnapTicks) {}

Vela_ContinuousData::Vela_ContinuousData(const Vela_ContinuousData& iOther)
    : Ndo_Object(iOther), mSnapTicks(iOther.mSnapTicks) {
    mSegments.Assign(iOther.mSegments);
}

// ---------------------------------------------------------------- searches

// Searches read the directory's copies of the chunks' first times, not the chunks themselves:
// with many lanes of long data the chunk memory is cold and one chunk is all a lookup touches.
static_assert(offsetof(Segment, mTime) == 0);

Vela_ContinuousData::ConstIter Vela_ContinuousData::LowerBound(const Time_Typed& iTime) const {
    return mSegments.begin() + mSegments.PartitionPointByKey<Time_Typed>([&](const Time_Typed& iKey) { return iKey < iTime; });
}

Vela_ContinuousData::ConstIter Vela_ContinuousData::UpperBound(const Time_Typed& iTime) const {
    return mSegments.begin() + mSegments.PartitionPointByKey<Time_Typed>([&](const Time_Typed& iKey) { return !(iTime < iKey); });
}

void Vela_ContinuousData::FindRange(size_t& oFirst, size_t& oLast, const Time_Typed& iStart,
                                    const Time_Typed& iEnd) const {
    oFirst = LowerBound(iStart).GetIndex();
    oLast = std::max(oFirst, LowerBound(iEnd).GetIndex());
}

Time_Typed Vela_ContinuousData::Snapped(const Time_Typed& iTime) const {
    return mSnapTicks && TickTimesMatter::Active() ? Time_Convert::SnapToCoarseInternalTick(iTime) : iTime;
}

// ---------------------------------------------------------------- single values

Vela_ContinuousData_Segment* Vela_ContinuousData::SetValueAtTime(const Time_Typed& iTime, int32_t iValue) {
    NdoAboutToModify();
    const size_t position = LowerBound(iTime).GetIndex();
    if (position < mSegments.GetSize() && mSegments[position].mTime == iTime) {
        mSegments[position].mValue = iValue;
    } else {
        const Segment segment{iTime, iValue};
        mSegments.Insert(position, 1, &segment);
    }
    return &mSegments[position];
}

int32_t Vela_ContinuousData::GetValueAtTime(const Time_Typed& iTime) const {
    const ConstIter i = UpperBound(iTime);
    if (i == mSegments.begin()) {
        VELA_ASSERT(i != mSegments.begin());  // reported here only: this is playback's lookup
        return 0;
    }
    return (i - 1)->mValue;
}

bool Vela_ContinuousData::GetLastValueChangeBeforeTime(Time_Typed& oTime, int32_t& oValue,
                                                       const Time_Typed& iTime) const {
    const ConstIter i = LowerBound(iTime);
    if (i == mSegments.begin()) return false;
    const Segment& previous = *(i - 1);
    oTime = previous.mTime;
    oValue = previous.mValue;
    return true;
}

// ---------------------------------------------------------------- ranges

void Vela_ContinuousData::EraseRange(const Time_Typed& iStart, const Time_Typed& iEnd) {
    size_t first = 0, last = 0;
    FindRange(first, last, iStart, iEnd);
    if (first == last) return;
    NdoAboutToModify();
    mSegments.GetImpl().Erase(first, last);
}

void Vela_ContinuousData::Clear() {
    if (mSegments.IsEmpty()) return;
    NdoAboutToModify();
    mSegments.Destruct();
}

void Vela_ContinuousData::ReplaceData(const Vela_ContinuousData& iSource) {
    if (&iSource == this) return;
    NdoAboutToModify();
    mSegments.Assign(iSource.mSegments);
}

void Vela_ContinuousData::AddFromData(const Vela_ContinuousData& iSource, const Time_Typed& iStart,
                                      const Time_Typed& iEnd, const Time_TypedLength& iOffset) {
    size_t srcFirst = 0, srcLast = 0;
    if (!Vela_FindSourceRange(iSource, iStart, iEnd, srcFirst, srcLast)) return;
    NdoAboutToModify();

    // The copied block, shifted and snapped (both keep its order).
    std::vector<Segment> copied;
    copied.reserve(srcLast - srcFirst);
    for (size_t i = srcFirst; i < srcLast; ++i) {
        const Segment& source = iSource.mSegments[i];
        copied.push_back(Segment{Snapped(source.mTime + iOffset), source.mValue});
    }
    // This list's own segments of the span [start + offset, end + offset].
    const ConstIter dstFirst = LowerBound(iStart + iOffset);
    const ConstIter dstLast = std::max(dstFirst, UpperBound(iEnd + iOffset));

    // A stable merge that puts copied segments first at equal times, then one segment per time:
    // the first of each run, so a copy replaces an own value and the earlier of two copies wins.
    std::vector<Segment> merged;
    merged.reserve(copied.size() + static_cast<size_t>(dstLast - dstFirst));
    std::merge(copied.begin(), copied.end(), dstFirst, dstLast, std::back_inserter(merged),
               [](const Segment& iOwn, const Segment& iCopy) { return iOwn.mTime < iCopy.mTime; });
    const auto kept = std::unique(merged.begin(), merged.end(),
                                  [](const Segment& iA, const Segment& iB) { return iA.mTime == iB.mTime; });
    merged.erase(kept, merged.end());

    const size_t first = dstFirst.GetIndex();
    mSegments.GetImpl().Erase(first, dstLast.GetIndex());
    mSegments.Insert(first, merged.size(), merged.data());
}

void Vela_ContinuousData::EraseFromData(const Vela_ContinuousData& iSource, const Time_Typed& iStart,
                                        const Time_Typed& iEnd, const Time_TypedLength& iOffset) {
    size_t srcFirst = 0, srcLast = 0;
    if (!Vela_FindSourceRange(iSource, iStart, iEnd, srcFirst, srcLast)) return;
    NdoAboutToModify();

    // Walk both lists in step by time, compacting the survivors towards the write position.
    const size_t size = mSegments.GetSize();
    size_t d = LowerBound(iSource.mSegments[srcFirst].mTime + iOffset).GetIndex();
    size_t w = d;
    for (size_t s = srcFirst; s < srcLast && d < size;) {
        const Segment& source = iSource.mSegments[s];
        const Time_Typed target = source.mTime + iOffset;
        const Segment own = mSegments[d];
        if (target < own.mTime) {
            ++s;
            continue;
        }
        const bool matches = own.mTime == target;
        if (!matches || own.mValue != source.mValue) mSegments[w++] = own;
        ++d;
        if (matches) ++s;
    }
    mSegments.GetImpl().Erase(w, d);
    mSegments.GetImpl().RefreshKeys();  // survivors moved down in place
}

void Vela_ContinuousData::OffsetTimes(const Time_TypedLength& iLength) {
    for (size_t i = 0; i < mSegments.GetSize(); ++i) mSegments[i].mTime = Snapped(mSegments[i].mTime + iLength);
    mSegments.GetImpl().RefreshKeys();  // the search directory keeps copies of the times
}

void Vela_ContinuousData::ForEachInRange(Vela_ContinuousData_OutputIter& iVisitor, const Time_Typed& iStart,
                                         const Time_Typed& iEnd) const {
    size_t index = LowerBound(iStart).GetIndex();
    const size_t size = mSegments.GetSize();
    while (index < size) {
        size_t run = 0;
        const Segment* segmentP = static_cast<const Segment*>(mSegments.GetImpl().GetContiguous(index, &run));
        for (const Segment* endP = segmentP + run; segmentP < endP; ++segmentP) {
            if (!(segmentP->mTime < iEnd)) return;
            iVisitor.Output(segmentP->mTime, segmentP->mValue);
        }
        index += run;
    }
}

// ---------------------------------------------------------------- undo

Ndo_Object* Vela_ContinuousData_NdoState::Recreate() const {
    return new Vela_ContinuousData(Ndo_Object::kUndoable, true);
}

Ndo_State* Vela_ContinuousData::NdoGetState() {
    auto* stateP = new Vela_ContinuousData_NdoState;
    stateP->mSnapTicks = mSnapTicks;
    stateP->mSegments.Assign(mSegments);
    return stateP;
}

void Vela_ContinuousData::NdoRestoreState(Ndo_State* iStateP) {
    const auto* p = dynamic_cast<const Vela_ContinuousData_NdoState*>(iStateP);
    VELA_ASSERT(p != 0);
    if (!p) return;
    mSnapTicks = p->mSnapTicks;
    mSegments.Assign(p->mSegments);
}

// ---------------------------------------------------------------- persistence

void Vela_ContinuousData::StreamOut(Sys_TypedOutStream& iStream) const {
    Sys_StdStreamHeaderWriter header(iStream, kStreamTag, kStreamVersion);
    Sys_TypedOutBuffer out(iStream);  // segments are many and small: encode them in blocks
    out.Write(static_cast<int32_t>(mSegments.GetSize()));
    Time_Typed previousTime(0, kTime_Samples);
    mSegments.ForEach([&](const Segment& iSegment) {
        const Segment* const iter = &iSegment;  // the name an ordering assertion reports
        VELA_ASSERT(iter->mTime.AsInt64() >= previousTime.AsInt64());
        out.Write(Time_TypedDefs::GetRawDataForSave(iter->mTime.AsInt64(), iter->mTime.GetType()));
        out.Write(iter->mValue);
        previousTime = iter->mTime;
    });
    out.Flush();
    header.PatchSize();
}

void Vela_ContinuousData::StreamIn(Sys_TypedInStream& iStream) {
    Sys_StdStreamHeaderReader header(iStream, kStreamTag);
    header.CheckVersion(kStreamVersion, kStreamVersion);
    int32_t count = 0;
    iStream.Read(count);
    if (count < 0) Vela_ThrowLocalized(kVelaMsg_BadData);
    // Read whole (a record per segment, one bounds check each) before they replace the segments
    // in one step, so a damaged block leaves them as they were.
    std::vector<Segment> segments;
    segments.reserve(static_cast<size_t>(std::min<int64_t>(count, header.GetBodySize() / static_cast<int64_t>(kSegmentBytes))));
    for (int32_t i = 0; i < count; ++i) {
        Sys_TypedInRecord record(iStream, kSegmentBytes);
        Segment segment;
        Time_Typed& time = segment.mTime;
        Time_TypedDefs::SetFromRawSavedData(record.Get<int64_t>(), &time.mCount, &time.mType);
        segment.mValue = record.Get<int32_t>();
        const bool any = !segments.empty();
        if (any && time < segments.back().mTime) Vela_ThrowLocalized(kVelaMsg_BadData);
        if (any && time == segments.back().mTime)
            segments.back().mValue = segment.mValue;
        else
            segments.push_back(segment);
    }
    header.SkipTheRest();
    mSegments.Destruct();
    mSegments.Insert(0, segments.size(), segments.data());
}

// ---------------------------------------------------------------- range walks

Vela_ContinuousData_RangeWalk::Vela_ContinuousData_RangeWalk(const Vela_ContinuousData* iDataP,
                                                             const Mdie_SubStream& iSubStream,
                                                             const Time_Typed& iStart, const Time_Typed& iEnd)
    : mDataP(iDataP), mSubStream(iSubStream) {
    if (mDataP) mDataP->FindRange(mPosition, mEnd, iStart, iEnd);
}

Mdie_TimedEvent Vela_ContinuousData_RangeWalk::Current() const {
    const Vela_ContinuousData_Segment& segment = mDataP->GetSegments()[mPosition];
    return Mdie_TimedEvent(segment.mTime, mSubStream.MakeEvent(segment.mValue));
}
