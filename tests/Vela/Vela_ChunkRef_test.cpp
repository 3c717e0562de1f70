#include "Vela_ChunkRef.h"

#include <gtest/gtest.h>

#include "ChunkEvents.h"
#include "Ndo_Manager.h"
#include "Vela_NoteList.h"

namespace {

TEST(Vela_ChunkRef, CountsAreSharedAndTheLastReferenceDisposesOfTheChunk) {
    const Vela_ChunkRef empty(nullptr), otherEmpty;
    EXPECT_TRUE(!empty && empty.Get() == nullptr && !empty.IsSameChunkAs(otherEmpty));
    const uint64_t id = [&] {
        Vela_ChunkRef ref(Vela_Chunk::New(Ndo_Object::kUndoable, false));
        Vela_ChunkRef copy = ref;
        EXPECT_TRUE(ref.GetRefCount() == 2 && ref.IsSameChunkAs(copy) && empty < ref && !(ref < copy));
        ref.AddToRealUsers(2);
        copy.AddToRealUsers(-1);
        EXPECT_EQ(ref.GetNumRealUsers(), 1);
        Vela_ChunkRef moved = std::move(copy);
        copy = moved;
        copy = Vela_ChunkRef();
        EXPECT_EQ(ref.GetRefCount(), 2);
        return ref->NdoGetUndoId();
    }();
    EXPECT_EQ(Ndo_gManager.LookupObject(id), nullptr);  // no group open: destroyed at once
}

TEST(Vela_ChunkRef, AReferenceIsStaleWhileAnUndoKeepsItsChunkAway) {
    Ndo_gManager.BeginGroup();
    Vela_ChunkRef ref(Vela_Chunk::New(Ndo_Object::kUndoable, false));
    Ndo_gManager.EndGroup();
    Vela_Chunk* chunkP = ref.Get();
    ASSERT_TRUE(Ndo_gManager.Undo());
    EXPECT_TRUE(!ref && ref.Get() == nullptr && ref.GetRefCount() == 1);
    ASSERT_TRUE(Ndo_gManager.Redo());
    EXPECT_EQ(ref.Get(), chunkP);
    ref = Vela_ChunkRef();
    Ndo_gManager.Clear();
}

TEST(Vela_ChunkRef, TheWriterAddsNotesWithTheirDurationsAndRoutesTheRest) {
    Vela_ChunkRef ref(Vela_Chunk::New(Ndo_Object::kNotUndoable, false));
    Vela_ChunkWriter writer;
    writer.SetChunkRef(ref);
    const Vela_NoteWithDurationEvent note(60, TickLength(700), 90, 10);
    writer.ReceiveEvent(Mdie_TimedEvent(Ticks(5), note));
    writer.ReceiveEvent(Mdie_TimedEvent(Ticks(6), Vela_ControllerEvent(7, 3)));
    writer.ReceiveEvent(Mdie_TimedEvent(Ticks(7), Vela_NoteOnEvent(60, 3)));  // dropped by the chunk
    ASSERT_EQ(ref->GetNoteList()->GetNumNotes(), 1u);
    EXPECT_TRUE(ref->GetNoteList()->GetNote(0).start == Ticks(5) && ref->GetNoteList()->GetNote(0).event == note);
    EXPECT_EQ(SubStreams(*ref), std::vector<Mdie_SubStream>{Mdie_SubStream::Controller(7)});
}

}  // namespace
