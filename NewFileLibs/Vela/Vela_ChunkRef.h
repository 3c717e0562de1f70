// Handles on shared chunks, and the receiver that writes events into one.
//
// Vela_ChunkRef is what the engine's holders keep of a Vela_Chunk. All references to one chunk
// share one Vela_ChunkRefCounter: its reference count (one per reference), a separate tally of
// "real users" that the holders keep for themselves, and an external undo reference through
// which the chunk is reached. The external reference asks the undo history afresh on every
// access, so a reference is
//   - empty: no counter (default-constructed, or made from a null chunk);
//   - live: the history has the chunk in sight; Get() answers it;
//   - stale: an undo step took the chunk out of sight; Get() answers null and operator bool
//     false until a redo brings the chunk back.
// When the last reference goes, the counter gives the chunk up through the undo framework
// (NdoDelete), so that a step that may still bring it back keeps it; the real-user tally plays
// no part in that.
//
// Vela_ChunkWriter is a timed-event receiver that adds every event it receives to the chunk of
// its reference (a note with duration as a note, everything else routed by the chunk).
//
// Threads: counts are plain integers; the references to one chunk are made, copied and
// destroyed on one thread at a time (the editing thread). GetRefCount, GetNumRealUsers and
// AddToRealUsers expect a non-empty reference; ReceiveEvent expects a reachable chunk.
#pragma once

#include <cstdint>

#include "Mdie_TimedEvent.h"
#include "Ndo_Ptr.h"
#include "Sys_RefCount.h"

class Vela_Chunk;

class Vela_ChunkRefCounter : public Cmn_RefCountObject {
public:
    // A counter of its own (count 1) on the same chunk, with the same real-user tally.
    Vela_ChunkRefCounter(const Vela_ChunkRefCounter& iOther);
    Vela_ChunkRefCounter& operator=(const Vela_ChunkRefCounter& iOther);

    // The chunk, or null when the undo history no longer holds it in sight.
    Vela_Chunk* GetChunk() const;
    int32_t GetNumRealUsers() const { return mNumRealUsers; }
    void AddToRealUsers(int32_t iDelta) { mNumRealUsers += iDelta; }

protected:
    // Gives the chunk up through the undo framework when it is still reachable.
    ~Vela_ChunkRefCounter() override;

private:
    friend class Vela_ChunkRef;
    explicit Vela_ChunkRefCounter(Vela_Chunk* iChunkP);

    Ndo_ExternalRefBase mExternalRef;
    int32_t mNumRealUsers = 0;
};

class Vela_ChunkRef {
public:
    Vela_ChunkRef() = default;
    // Empty for a null chunk; otherwise the first reference of a new counter.
    explicit Vela_ChunkRef(Vela_Chunk* iChunkP);
    Vela_ChunkRef(const Vela_ChunkRef& iOther);
    Vela_ChunkRef(Vela_ChunkRef&& ioOther) noexcept;
    Vela_ChunkRef& operator=(const Vela_ChunkRef& iOther);
    Vela_ChunkRef& operator=(Vela_ChunkRef&& ioOther) noexcept;
    ~Vela_ChunkRef();

    // The chunk, or null when empty or stale.
    Vela_Chunk* Get() const { return mCounterP ? mCounterP->GetChunk() : nullptr; }
    Vela_Chunk* operator->() const { return Get(); }
    Vela_Chunk& operator*() const { return *Get(); }
    explicit operator bool() const { return Get() != nullptr; }

    // Both reach a chunk and it is the same one.
    bool IsSameChunkAs(const Vela_ChunkRef& iOther) const;
    // By the address of the reachable chunk; empty and stale references count as null.
    bool operator<(const Vela_ChunkRef& iOther) const;

    // Non-empty references only.
    int32_t GetRefCount() const { return mCounterP->GetRefCount(); }
    int32_t GetNumRealUsers() const { return mCounterP->GetNumRealUsers(); }
    void AddToRealUsers(int32_t iDelta) { mCounterP->AddToRealUsers(iDelta); }

private:
    // Takes a count on iCounterP (may be null) and releases the current one, unless they are
    // the same counter.
    void Share(Vela_ChunkRefCounter* iCounterP);

    Vela_ChunkRefCounter* mCounterP = nullptr;
};

class Vela_ChunkWriter : public Mdie_TimedEventReceiver {
public:
    Vela_ChunkWriter() = default;
    Vela_ChunkWriter(const Vela_ChunkWriter&) = default;
    Vela_ChunkWriter(Vela_ChunkWriter&&) noexcept = default;
    Vela_ChunkWriter& operator=(const Vela_ChunkWriter&) = default;
    Vela_ChunkWriter& operator=(Vela_ChunkWriter&&) noexcept = default;

    void SetChunkRef(const Vela_ChunkRef& iRef) { mChunkRef = iRef; }
    const Vela_ChunkRef& GetChunkRef() const { return mChunkRef; }

    // A note with duration (kind 3) becomes a note of the chunk with its duration; any other
    // event goes to Vela_Chunk::AddEvent as a plain extended event.
    void ReceiveEvent(const Mdie_TimedEvent& iEvent) override;

private:
    Vela_ChunkRef mChunkRef;
};
