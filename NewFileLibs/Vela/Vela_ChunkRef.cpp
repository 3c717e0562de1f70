#include "Vela_ChunkRef.h"

#include <functional>
#include <utility>

#include "Vela_Chunk.h"
#include "Vela_ExtendedEvent.h"

// ---------------------------------------------------------------- counter

Vela_ChunkRefCounter::Vela_ChunkRefCounter(Vela_Chunk* iChunkP) : mExternalRef(iChunkP) {}

Vela_ChunkRefCounter::Vela_ChunkRefCounter(const Vela_ChunkRefCounter& iOther)
    : Cmn_RefCountObject(), mExternalRef(iOther.mExternalRef), mNumRealUsers(iOther.mNumRealUsers) {}

Vela_ChunkRefCounter& Vela_ChunkRefCounter::operator=(const Vela_ChunkRefCounter& iOther) {
    mExternalRef = iOther.mExternalRef;
    mNumRealUsers = iOther.mNumRealUsers;
    return *this;
}

Vela_ChunkRefCounter::~Vela_ChunkRefCounter() {
    if (Ndo_Object* chunkP = mExternalRef.GetObjPtr()) chunkP->NdoDelete();
}

Vela_Chunk* Vela_ChunkRefCounter::GetChunk() const { return static_cast<Vela_Chunk*>(mExternalRef.GetObjPtr()); }

// ---------------------------------------------------------------- reference

Vela_ChunkRef::Vela_ChunkRef(Vela_Chunk* iChunkP) : mCounterP(iChunkP ? new Vela_ChunkRefCounter(iChunkP) : nullptr) {}

Vela_ChunkRef::Vela_ChunkRef(const Vela_ChunkRef& iOther) { Share(iOther.mCounterP); }

Vela_ChunkRef::Vela_ChunkRef(Vela_ChunkRef&& ioOther) noexcept : mCounterP(std::exchange(ioOther.mCounterP, nullptr)) {}

Vela_ChunkRef& Vela_ChunkRef::operator=(const Vela_ChunkRef& iOther) {
    Share(iOther.mCounterP);
    return *this;
}

Vela_ChunkRef& Vela_ChunkRef::operator=(Vela_ChunkRef&& ioOther) noexcept {
    if (mCounterP == ioOther.mCounterP) return *this;
    if (mCounterP) mCounterP->RemoveReference();
    mCounterP = std::exchange(ioOther.mCounterP, nullptr);
    return *this;
}

Vela_ChunkRef::~Vela_ChunkRef() {
    if (mCounterP) mCounterP->RemoveReference();
}

void Vela_ChunkRef::Share(Vela_ChunkRefCounter* iCounterP) {
    if (iCounterP == mCounterP) return;
    if (iCounterP) iCounterP->AddReference();
    if (mCounterP) mCounterP->RemoveReference();
    mCounterP = iCounterP;
}

bool Vela_ChunkRef::IsSameChunkAs(const Vela_ChunkRef& iOther) const {
    const Vela_Chunk* chunkP = Get();
    return chunkP && chunkP == iOther.Get();
}

bool Vela_ChunkRef::operator<(const Vela_ChunkRef& iOther) const {
    return std::less<const Vela_Chunk*>()(Get(), iOther.Get());
}

// ---------------------------------------------------------------- writer

void Vela_ChunkWriter::ReceiveEvent(const Mdie_TimedEvent& iEvent) {
    if (iEvent.IsNoteWithDurationEvent()) {
        mChunkRef->AddEvent(Vela_NoteWithDurationExtendedEvent(iEvent.GetTime(), iEvent.GetEvent().AsNoteWithDuration(), false));
    } else {
        mChunkRef->AddEvent(Vela_ExtendedEvent(iEvent.GetTime(), iEvent.GetEvent()));
    }
}
