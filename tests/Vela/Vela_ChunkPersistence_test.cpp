#include <gtest/gtest.h>

#include "BlockBytes.h"
#include "ChunkEvents.h"
#include "Cmn_Exception.h"
#include "Cmn_XMLNode.h"
#include "Ndo_Manager.h"
#include "StreamValues.h"
#include "Vela_EventStream.h"
#include "Vela_NoteList.h"

namespace {

ChunkPtr Sample(Ndo_Object::EUndoFlag iUndo = Ndo_Object::kNotUndoable) {
    ChunkPtr chunk = NewChunk(iUndo);
    const unsigned char longPayload[40] = {9, 8, 7};
    for (const Vela_ExtendedEvent& event : {Vela_ExtendedEvent(NoteAt(10, 60)), Vela_ExtendedEvent(NoteAt(5, 61, 3, 20000000)),
                                            ControllerAt(7, 7, 1), ControllerAt(9, 1, 2), EventAt(3, Vela_PitchBendEvent(-5)),
                                            SysexAt(4, 1), EventAt(4, Vela_SysexEvent(40, longPayload))})
        chunk->AddEvent(event);
    return chunk;
}

ChunkPtr Read(const ByteVector& iBytes) {
    Sys_MemoryInStream in(iBytes.data(), iBytes.size());
    return ChunkPtr(Vela_Chunk::StreamIn(in, Ndo_Object::kNotUndoable, false));
}

TEST(Vela_ChunkPersistence, AChunkReadsBackFieldByFieldWithoutItsPlaybackState) {
    ChunkPtr chunk = Sample();
    chunk->SetIsLocal(false);
    chunk->AddClipBoundary(5);
    chunk->QuantizeEventsForTTM(TickLength(0));
    ChunkPtr back = Read(StreamedBytes(*chunk));
    EXPECT_EQ(StreamedBytes(*back), StreamedBytes(*chunk));  // every field in order, the long sysex by content
    EXPECT_TRUE(back->GetUID() == chunk->GetUID() && !back->IsLocal() && back->GetClipBoundaries().empty() && !back->IsQuantizedForTTM());
    const Cmn_XMLNodePtr node = chunk->GetAsXML();
    ASSERT_EQ(node->GetName() + std::to_string(node->GetChildCount()), "MIDI_Chunk3");
    EXPECT_EQ(node->GetChild(1)->GetName() + "=" + node->GetChild(1)->GetValue(), "NumContinuousControllerDataStreams=3");
    EXPECT_EQ(node->GetChild(2)->GetValue(), chunk->GetUID().AsHexString());
    EXPECT_EQ(chunk->PrintContents().rfind("Notes: 2\n", 0), 0u);
    EXPECT_NE(chunk->PrintContents().find("Sorted list: 0"), std::string::npos);
}

TEST(Vela_ChunkPersistence, StreamsReadSortedFromAnyOrderShortBlocksTakeDefaultsBadCountsThrow) {
    ChunkPtr chunk = Sample();
    const Vela_Chunk::ContinuousList& streams = chunk->GetContinuousList();  // bend, cc 1, cc 7
    auto body = [&](int32_t iCount, std::initializer_list<size_t> iStreams) {
        ByteVector bytes = StreamedBytes(*chunk->GetNoteList());
        Append(bytes, iCount, 4);
        for (size_t i : iStreams) Append(bytes, StreamedBytes(*streams[i]));
        return Block("MdChun", 1, bytes);
    };
    ChunkPtr back = Read(body(3, {2, 1, 0}));
    EXPECT_EQ(SubStreams(*back), SubStreams(*chunk));
    EXPECT_EQ(back->GetEventStream()->Size(), 0u);
    EXPECT_TRUE(back->GetUID().IsNoID());
    EXPECT_TRUE(back->IsLocal());
    for (const auto& [bytes, text] : {std::pair{body(2, {1, 1}), "bad data encountered: stream not unique"},
                                      std::pair{body(-1, {}), "bad data encountered"}}) {
        try {
            Read(bytes);
            ADD_FAILURE() << text;
        } catch (const Cmn_Exception& iError) {
            EXPECT_STREQ(iError.what(), text);
        }
    }
}

TEST(Vela_ChunkPersistence, UndoTakesBackStreamsAnEditAddedOrRemovedAndRedoRepeatsIt) {
    ChunkPtr chunk = Sample(Ndo_Object::kUndoable);
    const ByteVector before = StreamedBytes(*chunk);
    Ndo_gManager.BeginGroup();
    chunk->AddEvent(EventAt(50, Vela_MonoPressureEvent(9)));
    chunk->EraseEvent(ControllerAt(7, 7, 1));  // the last value of controller 7
    Ndo_gManager.EndGroup();
    const ByteVector after = StreamedBytes(*chunk);
    EXPECT_EQ(SubStreams(*chunk), (std::vector<Mdie_SubStream>{Mdie_SubStream::PitchBend(), Mdie_SubStream::Controller(1), Mdie_SubStream::MonoPressure()}));
    ASSERT_TRUE(Ndo_gManager.Undo());
    EXPECT_EQ(StreamedBytes(*chunk), before);
    ASSERT_TRUE(Ndo_gManager.Redo());
    EXPECT_EQ(StreamedBytes(*chunk), after);
    Ndo_gManager.Clear();
}

}  // namespace
