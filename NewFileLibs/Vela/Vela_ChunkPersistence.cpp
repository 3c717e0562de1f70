// The chunk's streamed block, its undo state, its XML node and its diagnostic text.
#include <algorithm>
#include <memory>

#include "Cmn_Assert.h"
#include "Cmn_String.h"
#include "Cmn_XMLNode.h"
#include "Sys_StdStreamHeader.h"
#include "Sys_TypedStream.h"
#include "Vela_Chunk.h"
#include "Vela_ContinuousDataStream.h"
#include "Vela_EventStream.h"
#include "Vela_ExtendedEventList.h"
#include "Vela_Init.h"
#include "Vela_NoteList.h"

namespace {

// No stream block is shorter than its own header ("MdCDS": length byte, tag, version, size), so
// a count larger than the bytes left can reserve no more than this many entries: a damaged
// count then fails on reading, not on a huge reservation.
constexpr int64_t kMinStreamBlockSize = 16;

template <class T>
void RestoreMember(Ndo_Ptr<T>& oMember, uint64_t iUndoId) {
    if (!oMember.SetFromUndoId(iUndoId)) oMember.Set(nullptr);
}

}  // namespace

// ---------------------------------------------------------------- block

void Vela_Chunk::StreamOut(Sys_TypedOutStream& iStream) const {
    Sys_StdStreamHeaderWriter writer(iStream, kStreamTag, kStreamVersion);
    VELA_ASSERT(mNoteListP.Get());
    if (mNoteListP) {
        mNoteListP->StreamOut(iStream);
    } else {
        Vela_NoteListBase(kNotUndoable, false).StreamOut(iStream);
    }
    iStream.Write(static_cast<int32_t>(mContinuousList.GetSize()));
    for (const Ndo_Ptr<Vela_ContinuousDataStream>& entry : mContinuousList) entry->StreamOut(iStream);
    if (mEventStreamP) {
        mEventStreamP->StreamOut(iStream);
    } else {
        Vela_EventStream(kNotUndoable, false).StreamOut(iStream);
    }
    iStream.WriteBlock(mUID.GetBytes().data(), static_cast<int>(Sys_Umid::kSize));
    iStream.Write(mIsLocal);
    writer.PatchSize();
}

Vela_Chunk* Vela_Chunk::StreamIn(Sys_TypedInStream& iStream, EUndoFlag iUndo, bool iQuantizeContents) {
    Sys_StdStreamHeaderReader reader(iStream, kStreamTag);
    reader.CheckVersion(kStreamVersion, kStreamVersion);
    std::unique_ptr<Vela_Chunk> chunkP(new Vela_Chunk(iUndo, iQuantizeContents));
    chunkP->mNoteListP->StreamIn(iStream);

    int32_t count = 0;
    iStream.Read(count);
    if (count < 0) Vela_ThrowLocalized(kVelaMsg_BadData);
    const int64_t room = (iStream.GetLimit() - iStream.GetPos()) / kMinStreamBlockSize;
    chunkP->mContinuousList.Reserve(static_cast<size_t>(std::min<int64_t>(count, room)));
    for (int32_t i = 0; i < count; ++i) {
        std::unique_ptr<Vela_ContinuousDataStream> streamP(
            new Vela_ContinuousDataStream(iStream, iUndo, iQuantizeContents));
        // Files may hold the streams in any order; the list stays sorted and unique.
        const size_t position = chunkP->LowerBound(streamP->GetSubStream());
        if (position < chunkP->mContinuousList.GetSize() &&
            chunkP->mContinuousList[position]->GetSubStream() == streamP->GetSubStream())
            Vela_ThrowLocalized(kVelaMsg_StreamNotUnique);
        chunkP->InsertStream(position, streamP.get());
        streamP.release();
    }

    if (reader.IsMoreLeft()) chunkP->mEventStreamP->StreamIn(iStream);
    if (reader.IsMoreLeft()) {
        Sys_Umid::Bytes bytes;
        iStream.ReadBlock(bytes.data(), static_cast<int>(bytes.size()));
        chunkP->mUID = Sys_Umid(bytes);
        iStream.Read(chunkP->mIsLocal);
    } else {
        chunkP->mUID = Sys_Umid::NoID();
        chunkP->mIsLocal = true;
    }
    reader.SkipTheRest();
    return chunkP.release();
}

// ---------------------------------------------------------------- undo

Ndo_Object* Vela_Chunk_NdoState::Recreate() const { return new Vela_Chunk(Vela_Chunk::ReCreate()); }

Ndo_State* Vela_Chunk::NdoGetState() {
    auto* stateP = new Vela_Chunk_NdoState;
    stateP->mNoteListId = mNoteListP.GetUndoId();
    stateP->mEventStreamId = mEventStreamP.GetUndoId();
    stateP->mStreamIds.Reserve(mContinuousList.GetSize());
    for (const Ndo_Ptr<Vela_ContinuousDataStream>& entry : mContinuousList) stateP->mStreamIds.PushBack(entry.GetUndoId());
    stateP->mUID = mUID;
    stateP->mIsLocal = mIsLocal;
    return stateP;
}

void Vela_Chunk::NdoRestoreState(Ndo_State* iStateP) {
    const auto* stateP = dynamic_cast<const Vela_Chunk_NdoState*>(iStateP);
    if (!stateP) return;
    RestoreMember(mNoteListP, stateP->mNoteListId);
    RestoreMember(mEventStreamP, stateP->mEventStreamId);
    // The entries go without their streams: the framework keeps those that a step may bring back.
    mContinuousList.Init();
    mContinuousList.Reserve(stateP->mStreamIds.GetSize());
    for (uint64_t id : stateP->mStreamIds) {
        Ndo_Ptr<Vela_ContinuousDataStream> entry;
        RestoreMember(entry, id);
        mContinuousList.PushBack(entry);
    }
    mUID = stateP->mUID;
    mIsLocal = stateP->mIsLocal;
}

// ---------------------------------------------------------------- diagnostics

Cmn_XMLNodePtr Vela_Chunk::GetAsXML() const {
    Cmn_XMLNodePtr nodeP = Cmn_CreateXMLNode("MIDI_Chunk");
    if (mNoteListP) nodeP->AppendChild(mNoteListP->GetAsXML());
    nodeP->AppendChild(Cmn_CreateXMLNode("NumContinuousControllerDataStreams", static_cast<int>(mContinuousList.GetSize()), 0));
    nodeP->AppendChild(Cmn_CreateXMLNode("UID", mUID.AsHexString(), 0));
    return nodeP;
}

std::string Vela_Chunk::PrintContents() const {
    std::string text = "Notes: " + Cmn_Int32ToString(mNoteListP ? static_cast<int32_t>(mNoteListP->GetNumNotes()) : 0);
    for (const Ndo_Ptr<Vela_ContinuousDataStream>& entry : mContinuousList) text += "\n" + entry->PrintContents();
    const size_t sorted = mSortedEventListP ? mSortedEventListP->GetSize() : 0;
    text += "\nSorted list: " + Cmn_Int32ToString(static_cast<int32_t>(sorted));
    return text;
}
