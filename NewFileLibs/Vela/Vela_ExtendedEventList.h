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
