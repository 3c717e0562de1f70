// The output lists of range queries and the wrapper that lets one query fill any of them.
//
// Vela_ExtendedEventList: extended events, in the order they were appended or sorted into.
// Vela_DisplayItemList: display items kept in playback order (Vela_DisplayItem::PlaybackOrdering);
// FindTime is a lower-bound search on display time.
// Vela_EventListWrapper points at exactly one list: a timed list (Mdie_TimedEventList), an
// extended list or a display list; it never owns it. Appending an extended event goes to the
// timed list (its timed part) or else the extended list; a display item goes to the display list
// only. size(), indexing and sort() read the first list set in the order timed, extended,
// display. Indexing a wrapper that lacks the needed list is reported and answers a shared null
// value (an empty timed event or display item) so the caller can go on.
//
// Vela_OutputPlacement and Vela_RangeOutput are the one place where the range queries of the
// streams shape what they deliver: the output time is the stored time plus a shift (the
// negative of a placing origin, or an offset), raised to a floor, converted to the output's
// time kind. Real-time properties, when given, adjust a copy of the placed event (AdjustEvent
// with scope 255); that processed event is what a timed or extended list receives. Where the
// output holds display items, each item pairs the processed event with the placed stored one
// and carries the query's flag and tag unchanged; timed and extended items have no room for
// them. A display window, when given, keeps only items whose placed time lies in it.
//
// Threads: as the lists (one thread at a time). Real time: appending allocates only when the
// list outgrows its reserved capacity; sort() swaps elements in place (a long sysex swap only
// moves references) and never allocates; the lookups never allocate.
#pragma once

#include <cstddef>

#include "Cmn_PolyVector.h"
#include "Mdie_TimedEvent.h"
#include "Vela_ExtendedEvent.h"

class Vela_ExtendedEventList : public Cmn_PolyVector<Vela_ExtendedEvent> {};

class Vela_DisplayItemList : public Cmn_PolyVector<Vela_DisplayItem> {
public:
    // The first item whose display time is not less than iTime, or end().
    const Vela_DisplayItem* FindTime(const Time_Typed& iTime) const;
    Vela_DisplayItem* FindTime(const Time_Typed& iTime);
};

class Vela_EventListWrapper {
public:
    explicit Vela_EventListWrapper(Mdie_TimedEventList* iListP) : mTimedListP(iListP) {}
    explicit Vela_EventListWrapper(Vela_ExtendedEventList* iListP) : mExtListP(iListP) {}
    explicit Vela_EventListWrapper(Vela_DisplayItemList* iListP) : mDisplayItemListP(iListP) {}
    explicit Vela_EventListWrapper(Mdie_TimedEventList& iList) : mTimedListP(&iList) {}
    explicit Vela_EventListWrapper(Vela_ExtendedEventList& iList) : mExtListP(&iList) {}
    explicit Vela_EventListWrapper(Vela_DisplayItemList& iList) : mDisplayItemListP(&iList) {}
    // For a list made for one call: the wrapper must not outlive the full expression.
    explicit Vela_EventListWrapper(Vela_ExtendedEventList&& iList) : mExtListP(&iList) {}
    explicit Vela_EventListWrapper(Vela_DisplayItemList&& iList) : mDisplayItemListP(&iList) {}

    bool IsExtended() const { return mExtListP != nullptr; }
    bool IsDisplayList() const { return mDisplayItemListP != nullptr; }

    void push_back(const Vela_ExtendedEvent& iEvent);
    void push_back(const Vela_DisplayItem& iItem);
    size_t size() const;

    // The timed event at iIndex of the timed list, else of the extended list.
    Mdie_TimedEvent& operator[](size_t iIndex);
    Vela_ExtendedEvent& GetExtendedEvent(size_t iIndex);
    Vela_DisplayItem& GetDisplayItem(size_t iIndex);
    Vela_DisplayItem& LastDisplayItem();
    Vela_DisplayItemList* GetDisplayList() const { return mDisplayItemListP; }
    Vela_ExtendedEventList* GetExtendedEventList() const { return mExtListP; }
    Mdie_TimedEventList* GetTimedEventList() const { return mTimedListP; }

    // Sorts the elements from iFrom to the end in playback order (unstable); the elements before
    // iFrom stay where they are.
    void sort(size_t iFrom);

private:
    Mdie_TimedEventList* mTimedListP = nullptr;
    Vela_ExtendedEventList* mExtListP = nullptr;
    Vela_DisplayItemList* mDisplayItemListP = nullptr;
};

struct Vela_OutputPlacement {
    Time_TypedLength mShift;                           // added to every stored time
    Time_Typed mFloor = Time_Typed::MinTime(kTime_Ticks);  // the earliest output time
    Time_EType mType = kTime_Ticks;                    // the kind of the output times

    // Output time = stored time - iOrigin, at least iFloor, as iType.
    static Vela_OutputPlacement FromOrigin(const Time_Typed& iOrigin, const Time_Typed& iFloor, Time_EType iType);
    // Output time = stored time + iOffset, as iType.
    static Vela_OutputPlacement FromOffset(const Time_TypedLength& iOffset, Time_EType iType);

    Time_Typed Place(const Time_Typed& iTime) const;
};

class Vela_RangeOutput {
public:
    Vela_RangeOutput(Vela_EventListWrapper& iOut, const Vela_OutputPlacement& iPlacement,
                     const Vela_IRTProperties* iPropertiesP, bool iFlag, int iTag);
    // Display items whose placed time lies in [iWindowStart, iWindowEnd).
    Vela_RangeOutput(Vela_DisplayItemList& iOut, const Vela_OutputPlacement& iPlacement, const Time_Typed& iWindowStart,
                     const Time_Typed& iWindowEnd, const Vela_IRTProperties* iPropertiesP, bool iFlag, int iTag);

    // Places, adjusts and appends one stored event. Returns false when the window dropped it.
    bool Add(const Time_Typed& iTime, const Vela_Event& iEvent);

private:
    Vela_EventListWrapper mOut;
    Vela_OutputPlacement mPlacement;
    Time_Typed mWindowStart = Time_Typed::MinTime(kTime_Ticks);
    Time_Typed mWindowEnd = Time_Typed::MaxTime(kTime_Ticks);
    const Vela_IRTProperties* mPropertiesP;
    bool mFlag;
    int mTag;
};

// The positions [oFirst, oLast) of iSource's items in [iStart, iEnd), for the edits that copy or
// erase what a source holds there (TSource has FindRange). False when the range is empty or holds
// nothing: such an edit then does nothing and announces nothing.
template <class TSource>
bool Vela_FindSourceRange(const TSource& iSource, const Time_Typed& iStart, const Time_Typed& iEnd, size_t& oFirst,
                          size_t& oLast) {
    if (!(iStart < iEnd)) return false;
    iSource.FindRange(oFirst, oLast, iStart, iEnd);
    return oFirst != oLast;
}
