#include "Vela_ChunkRef.h"

#include <gtest/gtest.h>

#include "ChunkEvents.h"
#include "Ndo_Manager.h"
#include "Vela_Chunk.h"
#include "Vela_ContinuousDataStream.h"
#include "Vela_NoteList.h"

namespace {

TEST(Vela_ChunkRef, CountsAreSharedAndTheLastReferenceDisposesOfTheChunk) {
    const Vela_ChunkRef empty(nullptr), otherEmpty;
    EXPECT_FALSE(empty);
    EXPECT_EQ(empty.Get(), nullptr);
    EXPECT_FALSE(empty.IsSameChunkAs(otherEmpty));

    Vela_Chunk* chunkP = Vela_Chunk::New(Ndo_Object::kUndoable, false);
    const uint64_t id = chunkP->NdoGetUndoId();
    {
        Vela_ChunkRef ref(chunkP);
        Vela_ChunkRef copy = ref;
        EXPECT_EQ(ref.GetRefCount(), 2);
        EXPECT_TRUE(ref.IsSameChunkAs(copy));
        EXPECT_TRUE(empty < ref);
        EXPECT_FALSE(ref < copy);
        ref.AddToRealUsers(2);
        copy.AddToRealUsers(-1);
        EXPECT_EQ(ref.GetNumRealUsers(), 1);
        Vela_ChunkRef moved = std::move(copy);
        copy = moved;
        copy = Vela_ChunkRef();
        EXPECT_EQ(ref.GetRefCount(), 2);
        EXPECT_EQ(ref->GetNoteList()->GetNumNotes(), 0u);
    }
    EXPECT_EQ(Ndo_gManager.LookupObject(id), nullptr);  // no group open: destroyed at once
}

TEST(Vela_ChunkRef, AReferenceIsStaleWhileAnUndoKeepsItsChunkAway) {
    Ndo_gManager.BeginGroup();
    Vela_ChunkRef ref(Vela_Chunk::New(Ndo_Object::kUndoable, false));
    Ndo_gManager.EndGroup();
    Vela_Chunk* chunkP = ref.Get();
    ASSERT_TRUE(Ndo_gManager.Undo());
    EXPECT_FALSE(ref);
    EXPECT_EQ(ref.Get(), nullptr);
    EXPECT_EQ(ref.GetRefCount(), 1);
    ASSERT_TRUE(Ndo_gManager.Redo());
    EXPECT_EQ(ref.Get(), chunkP);
    ref = Vela_ChunkRef();
    Ndo_gManager.Clear();
}

TEST(Vela_ChunkRef, TheWriterAddsNotesWithTheirDurationsAndRoutesTheRest) {
    Vela_ChunkRef ref(Vela_Chunk::New(Ndo_Object::kNotUndoable, false));
    Vela_ChunkWriter writer;
    writer.SetChunkRef(ref);
    writer.ReceiveEvent(Mdie_TimedEvent(Ticks(5), Vela_NoteWithDurationEvent(60, TickLength(700), 90, 10)));
    writer.ReceiveEvent(Mdie_TimedEvent(Ticks(6), Vela_ControllerEvent(7, 3)));
    writer.ReceiveEvent(Mdie_TimedEvent(Ticks(7), Vela_NoteOnEvent(60, 3)));  // dropped by the chunk
    ASSERT_EQ(ref->GetNoteList()->GetNumNotes(), 1u);
    EXPECT_EQ(ref->GetNoteList()->GetNote(0).start, Ticks(5));
    EXPECT_TRUE(ref->GetNoteList()->GetNote(0).event == Vela_NoteWithDurationEvent(60, TickLength(700), 90, 10));
    ASSERT_EQ(ref->GetContinuousList().GetSize(), 1u);
    EXPECT_EQ(ref->GetContinuousList()[0]->GetSubStream(), Mdie_SubStream::Controller(7));
}

}  // namespace
