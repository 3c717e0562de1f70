// Output lists of range queries and their wrapper.
#include "Vela_ExtendedEventList.h"

#include <algorithm>

#include "Cmn_Assert.h"

namespace {

// Sorts [iFrom, end) of a vector whose iterators are plain pointers.
template <class TList, class TLess>
void SortTail(TList& ioList, size_t iFrom, TLess iLess) {
    if (iFrom < ioList.GetSize()) std::sort(ioList.begin() + iFrom, ioList.end(), iLess);
}

// What an index answers when the wrapper lacks the list it needs. Handed out writable, so
// every caller gets a fresh value back.
template <class T>
T& NullElement() {
    static thread_local T sNull;
    sNull = T();
    return sNull;
}

}  // namespace

// ---------------------------------------------------------------- Vela_DisplayItemList

const Vela_DisplayItem* Vela_DisplayItemList::FindTime(const Time_Typed& iTime) const {
    return std::lower_bound(begin(), end(), iTime, [](const Vela_DisplayItem& iItem, const Time_Typed& iValue) {
        return iItem.GetDisplayTime() < iValue;
    });
}

Vela_DisplayItem* Vela_DisplayItemList::FindTime(const Time_Typed& iTime) {
    return const_cast<Vela_DisplayItem*>(static_cast<const Vela_DisplayItemList&>(*this).FindTime(iTime));
}

// ---------------------------------------------------------------- Vela_EventListWrapper

void Vela_EventListWrapper::push_back(const Vela_ExtendedEvent& iEvent) {
    if (mTimedListP) {
        mTimedListP->PushBack(iEvent);
    } else if (mExtListP) {
        mExtListP->PushBack(iEvent);
    }
}

void Vela_EventListWrapper::push_back(const Vela_DisplayItem& iItem) {
    if (mDisplayItemListP) mDisplayItemListP->PushBack(iItem);
}

size_t Vela_EventListWrapper::size() const {
    if (mTimedListP) return mTimedListP->GetSize();
    if (mExtListP) return mExtListP->GetSize();
    if (mDisplayItemListP) return mDisplayItemListP->GetSize();
    return 0;
}

Mdie_TimedEvent& Vela_EventListWrapper::operator[](size_t iIndex) {
    VELA_ASSERT(mTimedListP != nullptr || mExtListP != nullptr);
    if (mTimedListP) return (*mTimedListP)[iIndex];
    if (mExtListP) return (*mExtListP)[iIndex];
    return NullElement<Mdie_TimedEvent>();
}

Vela_ExtendedEvent& Vela_EventListWrapper::GetExtendedEvent(size_t iIndex) {
    VELA_ASSERT(mExtListP);
    return mExtListP ? (*mExtListP)[iIndex] : NullElement<Vela_ExtendedEvent>();
}

Vela_DisplayItem& Vela_EventListWrapper::GetDisplayItem(size_t iIndex) {
    VELA_ASSERT(mDisplayItemListP);
    return mDisplayItemListP ? (*mDisplayItemListP)[iIndex] : NullElement<Vela_DisplayItem>();
}

Vela_DisplayItem& Vela_EventListWrapper::LastDisplayItem() {
    VELA_ASSERT(mDisplayItemListP && !mDisplayItemListP->IsEmpty());
    if (!mDisplayItemListP || mDisplayItemListP->IsEmpty()) return NullElement<Vela_DisplayItem>();
    return (*mDisplayItemListP)[mDisplayItemListP->GetSize() - 1];
}

void Vela_EventListWrapper::sort(size_t iFrom) {
    if (mTimedListP) {
        SortTail(*mTimedListP, iFrom, &Mdie_TimedEvent::PlaybackOrdering);
    } else if (mExtListP) {
        SortTail(*mExtListP, iFrom, &Mdie_TimedEvent::PlaybackOrdering);
    } else if (mDisplayItemListP) {
        SortTail(*mDisplayItemListP, iFrom, &Vela_DisplayItem::PlaybackOrdering);
    }
}

// ---------------------------------------------------------------- range output

Vela_OutputPlacement Vela_OutputPlacement::FromOrigin(const Time_Typed& iOrigin, const Time_Typed& iFloor,
                                                      Time_EType iType) {
    return Vela_OutputPlacement{Time_Typed(0, iOrigin.GetType()) - iOrigin, iFloor, iType};
}

Vela_OutputPlacement Vela_OutputPlacement::FromOffset(const Time_TypedLength& iOffset, Time_EType iType) {
    return Vela_OutputPlacement{iOffset, Time_Typed::MinTime(iType), iType};
}

Time_Typed Vela_OutputPlacement::Place(const Time_Typed& iTime) const {
    Time_Typed placed = iTime + mShift;
    if (placed < mFloor) placed = mFloor;
    return placed.GetType() == mType ? placed : Time_Convert::ToType(placed, mType);
}

Vela_RangeOutput::Vela_RangeOutput(Vela_EventListWrapper& iOut, const Vela_OutputPlacement& iPlacement,
                                   const Vela_IRTProperties* iPropertiesP, bool iFlag, int iTag)
    : mOut(iOut), mPlacement(iPlacement), mPropertiesP(iPropertiesP), mFlag(iFlag), mTag(iTag) {}

Vela_RangeOutput::Vela_RangeOutput(Vela_DisplayItemList& iOut, const Vela_OutputPlacement& iPlacement,
                                   const Time_Typed& iWindowStart, const Time_Typed& iWindowEnd,
                                   const Vela_IRTProperties* iPropertiesP, bool iFlag, int iTag)
    : mOut(iOut),
      mPlacement(iPlacement),
      mWindowStart(iWindowStart),
      mWindowEnd(iWindowEnd),
      mPropertiesP(iPropertiesP),
      mFlag(iFlag),
      mTag(iTag) {}

bool Vela_RangeOutput::Add(const Time_Typed& iTime, const Vela_Event& iEvent) {
    Vela_ExtendedEvent event(mPlacement.Place(iTime), iEvent);
    if (event.GetTime() < mWindowStart || !(event.GetTime() < mWindowEnd)) return false;
    if (!mPropertiesP && !mOut.IsDisplayList()) {  // playback's common case: one copy only
        mOut.push_back(event);
        return true;
    }
    const Vela_ExtendedEvent placed(event);
    if (mPropertiesP) mPropertiesP->AdjustEvent(event, 255);
    if (mOut.IsDisplayList())
        mOut.push_back(Vela_DisplayItem(event, placed, mFlag, mTag));
    else
        mOut.push_back(event);
    return true;
}
