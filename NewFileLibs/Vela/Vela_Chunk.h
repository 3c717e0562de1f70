// Vela_Chunk: the MIDI data of one stretch of one track, the unit the engine places on a track.
//
// A chunk owns one note list, one continuous-data stream per sub-stream in use (kept sorted by
// sub-stream, at most one each) and one event stream for everything else (system exclusive).
// Edits are routed to the member that holds the event's kind:
//   kinds 3 and 22 (notes)          -> the note list (AddEvent takes note-with-duration extended
//                                      events only; EraseEvent treats only kind 3 as a note, so a
//                                      kind-22 erase finds nothing, on purpose)
//   kinds 4..8 (continuous data)    -> the stream of the event's sub-stream, created on demand
//   kinds 14 and 15 (sysex)         -> the event stream
//   every other kind                -> dropped without report.
// Erase-type edits (Clear, EraseEvent, EraseRange, EraseSubStream) never leave an empty stream
// behind; add-type edits may leave one (a stream is created before the event is offered), and
// so do EraseEventsFromChunk and IsEventInChunk, which creates the stream it asks about (both on
// purpose). Every content change discards the cached display list (GetSortedEventList).
//
// Undo: the chunk and each member are undoable objects of their own; the chunk's saved state
// names its members by undo id, so undoing an edit that added or removed a stream restores the
// membership, and each member restores its own contents. Members a chunk gives up during an
// edit are disposed of through the undo framework (NdoDelete), so a step can bring them back.
//
// Playback (GetMidiEventsInRange, GetChaseStateAtTime, AddChaseStateAtTime, AddNoteStateAtTime)
// only reads the chunk: no locks, and no heap allocation as long as the output list has room,
// the chase tracker is set up and the track state's pool is set. Queries append to the output
// and sort only their own contribution in playback order. Edits and playback queries of one
// chunk must not overlap (the chunk is not synchronized; IsEventInChunk counts as an edit).
//
// Choices made here, where the rules leave room:
//  - The range queries take the requested range in the output's time line; the chunk's own
//    time is that time minus the offset, and events come out at chunk time plus the offset.
//  - AddNoteStateAtTime with clip-at-range-end shortens a note to end at the range end (its
//    duration becomes range end minus the note's start).
//  - MoveNotesForLegacyPlayback does its distance tests and grid arithmetic without overflow
//    (in 128 bits), so the missing boundaries (-1 and the largest value) and notes far from
//    zero never wrap; results equal the plain 64-bit formulas wherever those do not overflow,
//    and are kept within the time range.
//  - The ReCreate shell leaves the quantize-contents flag false.
//  - EraseEvent of kind 3 looks for the note by start, pitch and on velocity (the note list's
//    rule); an erase of a non-note kind 14/15 goes to the event stream.
//
// Persisted form: block "MdChun", version 1 (Sys_StdStreamHeader framing):
//   the note list's block ("MdNLB")
//   int32 stream count, then that many "MdCDS" blocks in ascending sub-stream order
//   the event stream's block ("MdES")
//   16 bytes UID, bool is-local
// Reading accepts streams in any order (they are sorted as they are read), throws the localized
// error 100 for a negative count and 101 for two streams of one sub-stream, and takes defaults
// for a block that ends early: after the streams, an empty event stream; after the event
// stream, the no-id UID and is-local true. Later fields of a newer writer are skipped. A damaged
// block throws the localized or the stream exception and leaves nothing allocated.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <set>
#include <string>

#include "Cmn_PolyVector.h"
#include "Cmn_XMLNodeFwd.h"
#include "Mdie_SubStream.h"
#include "Ndo_Object.h"
#include "Ndo_Ptr.h"
#include "Sys_Umid.h"
#include "Time_Typed.h"
#include "Vela_ExtendedEvent.h"

class Mdie_ChaseTracker;
class Mdie_ChaseTrackerMap;
class Mdie_TimedEvent;
class Mdie_TrackState;
class Sys_TypedInStream;
class Sys_TypedOutStream;
class Vela_ContinuousDataStream;
class Vela_DisplayItemList;
class Vela_EventListWrapper;
class Vela_EventStream;
class Vela_NoteListBase;

// How AddEventsFromChunk applies its nudge to the notes it copies.
enum EMidiNudgeMode : int {
    kMidiNudgeTimes = 0,      // move the notes (and every other event)
    kMidiNudgeStarts = 1,     // move the note starts, keeping the ends
    kMidiNudgeDurations = 2,  // lengthen or shorten the notes
    kMidiNudgePitches = 3,    // transpose by one step (the length's sign gives the direction)
};

// Which release event a range query adds after the notes.
enum ENoteOffInclusion : int {
    kNoteOffNone = 0,
    kNoteOffEarliest = 1,  // the earliest release of the notes in range
    kNoteOffLast = 2,      // the last release (any value other than 0 and 1)
};

class Vela_Chunk : public Ndo_Object {
public:
    using ContinuousList = Cmn_PolyVector<Ndo_Ptr<Vela_ContinuousDataStream>>;
    // Tag of the constructor the undo framework uses for a shell it restores a state into.
    struct ReCreate {};

    static Vela_Chunk* New(EUndoFlag iUndo, bool iQuantizeContents);
    ~Vela_Chunk() override;
    Vela_Chunk(const Vela_Chunk&) = delete;
    Vela_Chunk& operator=(const Vela_Chunk&) = delete;

    // ---- Identity and members
    Sys_Umid GetUID() const { return mUID; }
    void SetUID(const Sys_Umid& iUID);
    bool IsLocal() const { return mIsLocal; }
    void SetIsLocal(bool iIsLocal);
    bool QuantizeContents() const { return mQuantizeContents; }
    bool IsQuantizedForTTM() const { return mQuantizedForTTM; }
    Vela_NoteListBase* GetNoteList() const { return mNoteListP.Get(); }
    Vela_EventStream* GetEventStream() const { return mEventStreamP.Get(); }
    ContinuousList& GetContinuousList() { return mContinuousList; }
    const ContinuousList& GetContinuousList() const { return mContinuousList; }
    const std::set<int64_t>& GetClipBoundaries() const { return mClipBoundaries; }

    // The cached display list or null. Store only after GetSortedEventList answered null: the
    // chunk takes ownership and frees the list when its content next changes.
    Vela_DisplayItemList* GetSortedEventList() const { return mSortedEventListP; }
    void StoreSortedEventList(Vela_DisplayItemList* iListP) { mSortedEventListP = iListP; }

    // Replaces the note list (which must be undoable exactly when the chunk is).
    void SetNoteList(Ndo_AutoPtr<Vela_NoteListBase> iNoteListP);

    // ---- Content
    void AddEvent(const Vela_ExtendedEvent& iEvent);
    void EraseEvent(const Mdie_TimedEvent& iEvent);
    // May create an empty stream for the event's sub-stream (see the header comment).
    bool IsEventInChunk(const Mdie_TimedEvent& iEvent);
    // Copies the source's events of [iStart, iEnd), moved by iNudge as iMode says.
    void AddEventsFromChunk(const Vela_Chunk* iSourceP, Time_Typed iStart, Time_Typed iEnd, Time_TypedLength iNudge,
                            EMidiNudgeMode iMode);
    // Removes the events equal to the source's events of [iStart, iEnd) moved by iOffset.
    void EraseEventsFromChunk(const Vela_Chunk* iSourceP, Time_Typed iStart, Time_Typed iEnd, Time_TypedLength iOffset);
    void EraseRange(Time_Typed iStart, Time_Typed iEnd);
    void EraseSubStream(const Mdie_SubStream& iSubStream, Time_Typed iStart, Time_Typed iEnd);
    void Clear();
    // Copies the source's notes, streams and events; identity, flags and boundaries stay.
    void ReplaceData(const Vela_Chunk* iSourceP);
    // Sets the entry of every controller number that has a stream; never clears one.
    void FindMIDIControllersInUse(bool* ioControllers128) const;

    // ---- Playback (real-time safe; see the header comment)
    void GetMidiEventsInRange(Vela_EventListWrapper* ioOutputP, Time_TypedLength iOffset, Time_Typed iStart,
                              Time_Typed iEnd, Time_Typed iOuterStart, Time_Typed iOuterEnd, bool iFlag,
                              Mdie_ChaseTracker* iTrackerP, const Mdie_ChaseTrackerMap* iMapP, const Mdie_Filter& iFilter,
                              const Vela_IRTProperties* iPropertiesP, bool iSkipMuted, int iTag,
                              ENoteOffInclusion iNoteOffInclusion) const;
    // Everything passes; the outer limits are the ends of time; no real-time properties.
    void GetMidiEventsInRange(Vela_EventListWrapper* ioOutputP, Time_TypedLength iOffset, Time_Typed iStart,
                              Time_Typed iEnd, bool iFlag, Mdie_ChaseTracker* iTrackerP,
                              const Mdie_ChaseTrackerMap* iMapP, ENoteOffInclusion iNoteOffInclusion) const;
    // The values in force at iAt (set at or after iLimit) of every chased stream.
    void GetChaseStateAtTime(Mdie_ChaseTracker* iTrackerP, Time_Typed iAt, Time_Typed iLimit) const;
    void AddChaseStateAtTime(Mdie_ChaseTracker* iTrackerP, Time_Typed iAt, Time_Typed iLimit) const;
    // Feeds the track state the notes sounding at iAt that started in [iRangeStart, iRangeEnd).
    void AddNoteStateAtTime(Mdie_TrackState* iTrackStateP, Time_Typed iAt, Time_Typed iRangeStart,
                            Time_Typed iRangeEnd, Time_TypedLength iOffset, bool iClipAtRangeEnd) const;

    // ---- Legacy playback
    void AddClipBoundary(int64_t iTime);
    // Moves every note start onto the coarse grid away from the clip boundaries, then forgets
    // the boundaries.
    void MoveNotesForLegacyPlayback(Time_TypedLength iOffset);
    // Moves the whole content by iOffset (notes through MoveNotesForLegacyPlayback when there
    // are clip boundaries); does nothing after the first call.
    void QuantizeEventsForTTM(Time_TypedLength iOffset);

    // ---- Persistence, undo, diagnostics
    static constexpr const char* kStreamTag = "MdChun";
    static constexpr short kStreamVersion = 1;
    void StreamOut(Sys_TypedOutStream& iStream) const;
    // A new chunk owned by the caller.
    static Vela_Chunk* StreamIn(Sys_TypedInStream& iStream, EUndoFlag iUndo, bool iQuantizeContents);
    Ndo_State* NdoGetState() override;
    void NdoRestoreState(Ndo_State* iStateP) override;
    // "MIDI_Chunk": the note list's node, "NumContinuousControllerDataStreams", "UID".
    Cmn_XMLNodePtr GetAsXML() const;
    std::string PrintContents() const;

private:
    friend class Vela_Chunk_NdoState;
    Vela_Chunk(EUndoFlag iUndo, bool iQuantizeContents);
    explicit Vela_Chunk(ReCreate);

    // Position of the first stream whose sub-stream is not less than iSubStream.
    size_t LowerBound(const Mdie_SubStream& iSubStream) const;
    Vela_ContinuousDataStream* FindContinuousStream(const Mdie_SubStream& iSubStream) const;
    Vela_ContinuousDataStream* FindOrCreateContinuousStream(const Mdie_SubStream& iSubStream);
    // Gives up the stream at iPosition when it holds nothing any more.
    void RemoveStreamIfEmpty(size_t iPosition);
    void RemoveStream(size_t iPosition);
    void InsertStream(size_t iPosition, Vela_ContinuousDataStream* iStreamP);
    void DeleteAllStreams();
    void DiscardSortedList();
    template <class TOutput>
    void AppendNote(TOutput& ioOutput, const Vela_ExtendedEvent& iEvent) const;

    Ndo_Ptr<Vela_NoteListBase> mNoteListP;
    ContinuousList mContinuousList;
    Ndo_Ptr<Vela_EventStream> mEventStreamP;
    Vela_DisplayItemList* mSortedEventListP = nullptr;
    Sys_Umid mUID;
    bool mIsLocal = true;
    bool mQuantizeContents = false;
    bool mQuantizedForTTM = false;
    std::set<int64_t> mClipBoundaries;
};

// Equal note lists, equally many streams and equal event streams; non-empty stream lists are
// compared by the identity of their slots, so two different chunks that hold continuous data
// are never equal (kept on purpose: only a chunk compared with itself gets past that step).
bool operator==(Vela_Chunk& iA, Vela_Chunk& iB);

// The chunk's saved undo state: its members by undo id, its UID and is-local flag.
class Vela_Chunk_NdoState : public Ndo_State {
public:
    // A shell chunk (no members) that the framework restores this state into.
    Ndo_Object* Recreate() const override;

    uint64_t mNoteListId = kNdo_NoId;
    uint64_t mEventStreamId = kNdo_NoId;
    Cmn_PolyVector<uint64_t> mStreamIds;
    Sys_Umid mUID;
    bool mIsLocal = true;
};

// Walks a chunk's events of a range in playback order without building a list, by merging the
// members' own range iterators: notes, then the admitted streams in ascending sub-stream order,
// then the event stream. Events that tie in playback order come out in that order. The chunk
// must not change while the iterator is in use. Not for real-time use (children are allocated).
// Copying rebuilds the children from the chunk and steps them to the same place.
class Vela_ChunkExtendedEventsInRangeIter : public Vela_ExtendedEventIterator {
public:
    Vela_ChunkExtendedEventsInRangeIter();
    // The events of [iStart, iEnd) in the output's time line (chunk time plus iOffset); iFlag
    // widens a tick range's end as Time_Convert::MakeTickRangeSampleBased does.
    Vela_ChunkExtendedEventsInRangeIter(Vela_Chunk* iChunkP, Time_Typed iStart, Time_Typed iEnd, Time_TypedLength iOffset,
                                        bool iFlag, const Mdie_Filter& iFilter);
    Vela_ChunkExtendedEventsInRangeIter(const Vela_ChunkExtendedEventsInRangeIter& iOther);
    Vela_ChunkExtendedEventsInRangeIter& operator=(const Vela_ChunkExtendedEventsInRangeIter& iOther);
    ~Vela_ChunkExtendedEventsInRangeIter() override;

    bool IsMore() const override { return !mChildren.empty(); }
    void operator++() override;
    Vela_ExtendedEvent operator*() const override;
    // Members that still have events ahead.
    size_t GetNumChildren() const { return mChildren.size(); }

private:
    struct Child;
    using ChildList = std::list<Child>;
    void Build();
    void Add(std::unique_ptr<Vela_ExtendedEventIterator> iIterP);
    // Moves iChild (of ioFrom) in front of the first child whose event it plays before.
    void InsertSorted(ChildList& ioFrom, ChildList::iterator iChild);

    ChildList mChildren;
    Vela_Chunk* mChunkP = nullptr;
    Time_Typed mStart;
    Time_Typed mEnd;
    Time_TypedLength mOffset;
    bool mFlag = false;
    Mdie_Filter mFilter;
    size_t mSteps = 0;
};
