#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "BlockBytes.h"
#include "ChunkEvents.h"
#include "Cmn_Exception.h"
#include "Cmn_XMLNode.h"
#include "Ndo_Manager.h"
#include "Sys_TypedStream.h"
#include "Vela_Chunk.h"
#include "Vela_ContinuousDataStream.h"
#include "Vela_EventStream.h"
#include "Vela_ExtendedEventList.h"
#include "Vela_NoteList.h"

namespace {

using ChunkPtr = std::unique_ptr<Vela_Chunk>;

ChunkPtr Sample(Ndo_Object::EUndoFlag iUndo = Ndo_Object::kNotUndoable) {
    ChunkPtr chunk(Vela_Chunk::New(iUndo, false));
    const unsigned char longPayload[40] = {9, 8, 7};
    for (const Vela_ExtendedEvent& event :
         {Vela_ExtendedEvent(NoteAt(10, 60)), Vela_ExtendedEvent(NoteAt(5, 61, 3, 20000000)), ControllerAt(7, 7, 1),
          ControllerAt(9, 1, 2), EventAt(3, Vela_PitchBendEvent(-5)), SysexAt(4, 1), EventAt(4, Vela_SysexEvent(40, longPayload))})
        chunk->AddEvent(event);
    return chunk;
}

ByteVector Written(const Vela_Chunk& iChunk) {
    Sys_MemoryOutStream out;
    iChunk.StreamOut(out);
    return out.GetBytes();
}

ChunkPtr Read(const ByteVector& iBytes) {
    Sys_MemoryInStream in(iBytes.data(), iBytes.size());
    return ChunkPtr(Vela_Chunk::StreamIn(in, Ndo_Object::kNotUndoable, false));
}

template <class T>
ByteVector BlockOf(const T& iMember) {
    Sys_MemoryOutStream out;
    iMember.StreamOut(out);
    return out.GetBytes();
}

std::vector<Mdie_SubStream> SubStreams(const Vela_Chunk& iChunk) {
    std::vector<Mdie_SubStream> result;
    for (const auto& entry : iChunk.GetContinuousList()) result.push_back(entry->GetSubStream());
    return result;
}

bool SameEvents(const Mdie_TimedEventList& iA, const Mdie_TimedEventList& iB) {
    return std::equal(iA.begin(), iA.end(), iB.begin(), iB.end(), [](const Mdie_TimedEvent& iX, const Mdie_TimedEvent& iY) { return iX == iY; });
}

Mdie_TimedEventList Events(Vela_Chunk& iChunk) {
    Mdie_TimedEventList list;
    Vela_EventListWrapper output(list);
    iChunk.GetMidiEventsInRange(&output, TickLength(0), Ticks(kTime_MinCount), Ticks(kTime_MaxCount), false, nullptr,
                                nullptr, kNoteOffNone);
    return list;
}

TEST(Vela_ChunkPersistence, AChunkReadsBackFieldByField) {
    ChunkPtr chunk = Sample();
    chunk->SetIsLocal(false);
    chunk->AddClipBoundary(5);
    chunk->QuantizeEventsForTTM(TickLength(0));
    ChunkPtr back = Read(Written(*chunk));
    EXPECT_TRUE(*back->GetNoteList() == *chunk->GetNoteList());
    EXPECT_EQ(SubStreams(*back), SubStreams(*chunk));
    EXPECT_EQ(Written(*back), Written(*chunk));  // every field, the long sysex by content
    EXPECT_EQ(back->GetUID(), chunk->GetUID());
    EXPECT_FALSE(back->IsLocal());
    EXPECT_TRUE(back->GetClipBoundaries().empty());
    EXPECT_FALSE(back->IsQuantizedForTTM());
}

TEST(Vela_ChunkPersistence, StreamsReadSortedFromAnyOrderAndShortBlocksTakeDefaults) {
    ChunkPtr chunk = Sample();
    const Vela_Chunk::ContinuousList& streams = chunk->GetContinuousList();  // bend, cc 1, cc 7
    ByteVector body = BlockOf(*chunk->GetNoteList());
    Append(body, 3, 4);
    for (size_t i = 3; i-- > 0;) Append(body, BlockOf(*streams[i]));
    ChunkPtr back = Read(Block("MdChun", 1, body));
    EXPECT_EQ(SubStreams(*back), SubStreams(*chunk));
    EXPECT_EQ(back->GetEventStream()->Size(), 0u);
    EXPECT_TRUE(back->GetUID().IsNoID());
    EXPECT_TRUE(back->IsLocal());

    // A repeated sub-stream and a negative count are bad data.
    ByteVector repeated = BlockOf(*chunk->GetNoteList());
    Append(repeated, 2, 4);
    Append(repeated, BlockOf(*streams[1]));
    Append(repeated, BlockOf(*streams[1]));
    ByteVector negative = BlockOf(*chunk->GetNoteList());
    Append(negative, -1, 4);
    for (const auto& [bytes, text] : {std::pair{repeated, "bad data encountered: stream not unique"}, std::pair{negative, "bad data encountered"}}) {
        try {
            Read(Block("MdChun", 1, bytes));
            ADD_FAILURE() << text;
        } catch (const Cmn_Exception& iError) {
            EXPECT_STREQ(iError.what(), text);
        }
    }
}

TEST(Vela_ChunkPersistence, DamagedBlocksThrowTheLibrarysExceptionsOnly) {
    const ByteVector bytes = Written(*Sample());
    ASSERT_NE(Read(bytes), nullptr);
    for (size_t size = 0; size < bytes.size(); ++size) {
        const ByteVector truncated(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_THROW(Read(truncated), Cmn_Exception) << size;
    }
    for (size_t at = 0; at < bytes.size(); ++at) {
        for (uint8_t flip : {0x01, 0x80, 0xFF}) {
            ByteVector damaged = bytes;
            damaged[at] ^= flip;
            try {
                Read(damaged);
            } catch (const Cmn_Exception&) {
            }
        }
    }
}

TEST(Vela_ChunkPersistence, UndoOfAnEditThatAddedAStreamRemovesItAndRedoBringsItBack) {
    ChunkPtr chunk = Sample(Ndo_Object::kUndoable);
    const std::vector<Mdie_SubStream> before = SubStreams(*chunk);
    const Mdie_TimedEventList beforeEvents = Events(*chunk);
    Ndo_gManager.BeginGroup();
    chunk->AddEvent(EventAt(50, Vela_MonoPressureEvent(9)));
    chunk->EraseEvent(ControllerAt(7, 7, 1));  // removes the controller 7 stream
    Ndo_gManager.EndGroup();
    const std::vector<Mdie_SubStream> after = SubStreams(*chunk);
    const Mdie_TimedEventList afterEvents = Events(*chunk);
    ASSERT_TRUE(Ndo_gManager.Undo());
    EXPECT_EQ(SubStreams(*chunk), before);
    EXPECT_TRUE(SameEvents(Events(*chunk), beforeEvents));
    ASSERT_TRUE(Ndo_gManager.Redo());
    EXPECT_EQ(SubStreams(*chunk), after);
    EXPECT_TRUE(SameEvents(Events(*chunk), afterEvents));
    Ndo_gManager.Clear();
}

TEST(Vela_ChunkPersistence, XMLAndPrintedContents) {
    ChunkPtr chunk = Sample();
    const Cmn_XMLNodePtr node = chunk->GetAsXML();
    EXPECT_EQ(node->GetName(), "MIDI_Chunk");
    ASSERT_EQ(node->GetChildCount(), 3u);
    EXPECT_EQ(node->GetChild(1)->GetName(), "NumContinuousControllerDataStreams");
    EXPECT_EQ(node->GetChild(1)->GetValue(), "3");
    EXPECT_EQ(node->GetChild(2)->GetValue(), chunk->GetUID().AsHexString());
    EXPECT_EQ(chunk->PrintContents().rfind("Notes: 2\n", 0), 0u);
    EXPECT_NE(chunk->PrintContents().find("Sorted list: 0"), std::string::npos);
}

}  // namespace
