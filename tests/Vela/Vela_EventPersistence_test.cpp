// Streamed form of sysex events, byte for byte; damaged blocks (cuts at every byte are the
// damaged-document test's); raw images and reference counts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "AssertCapture.h"
#include "BlockBytes.h"
#include "Cmn_ChunkyPODVector.h"
#include "Cmn_Exception.h"
#include "EventBytes.h"
#include "Mdie_SysexDataBase.h"
#include "StreamValues.h"
#include "Vela_Event.h"

namespace {

ByteVector PayloadOf(const Vela_Event& iEvent) {
    const Vela_SysexEvent& sysex = iEvent.AsSysex();
    ByteVector bytes(static_cast<size_t>(sysex.GetLength()));
    sysex.GetData(bytes.data(), 0, sysex.GetLength());
    return bytes;
}

// Remembers the largest single write it was handed.
class PieceRecordingStream : public Sys_MemoryOutStream {
public:
    size_t mLargestWrite = 0;

protected:
    void WriteBytes(const void* iData, size_t iSize) override {
        mLargestWrite = std::max(mLargestWrite, iSize);
        Sys_MemoryOutStream::WriteBytes(iData, iSize);
    }
};

// An event kept as raw bytes, the way the segmented record vectors keep them.
struct EventImage {
    alignas(Vela_Event) unsigned char mBytes[sizeof(Vela_Event)];

    Vela_Event& AsEvent() { return *reinterpret_cast<Vela_Event*>(mBytes); }
};

// Raw copy of iSource, made the way image holders must: the source's reference is added first.
EventImage ImageOut(const Vela_Event& iSource) {
    iSource.PrepareToImageOut();
    EventImage image;
    std::memcpy(image.mBytes, static_cast<const void*>(&iSource), sizeof(Vela_Event));
    return image;
}

int32_t RefCountOf(const Vela_Event& iLongSysex) { return SharedSysexData(iLongSysex)->GetRefCount(); }

}  // namespace

TEST(EventPersistence, SysexStreamsAsFlagLengthAndPayloadInPiecesOfAtMost1024Bytes) {
    const ByteVector shortPayload = {0x7E, 0x7F, 0x09, 0x01};
    EXPECT_EQ(StreamedBytes(Vela_SysexEvent(4, shortPayload.data())), SysexBlock(shortPayload));
    const ByteVector longPayload = Payload(3000);
    PieceRecordingStream out;
    Vela_SysexEvent(3000, longPayload.data()).StreamOut(out);
    EXPECT_EQ(out.GetBytes(), SysexBlock(longPayload));  // no F0, no F7, no piece markers
    EXPECT_EQ(out.mLargestWrite, 1024u);
    // Other events are not streamed this way: reported, with an empty block.
    AssertCapture capture;
    EXPECT_EQ(StreamedBytes(Vela_NoteOnEvent(60, 100)), Block("", 1, {}));
    ASSERT_EQ(capture.Count(), 1u);
    EXPECT_EQ(capture.Texts()[0], "0@$^$@NewFileLibs/Vela/Vela_EventPersistence.cpp");
}

TEST(EventPersistence, PayloadsOfEverySizeClassRoundTrip) {
    for (size_t length : {0u, 14u, 15u, 1023u, 1024u, 1025u, 100000u}) {
        SCOPED_TRACE(length);
        const ByteVector payload = Payload(length);
        const Vela_SysexEvent original(static_cast<int>(length), payload.data());
        Vela_Event back;
        StreamInFrom(StreamedBytes(original), back);
        ASSERT_EQ(back.GetType(), length <= 14 ? Vela_Event::kSysex : Vela_Event::kLongSysex);
        EXPECT_EQ(PayloadOf(back), payload);
        // A long one comes back in a new data object: equal content, not the same identity.
        EXPECT_EQ(back == original, length <= 14);
        EXPECT_FALSE(back < original || original < back);
        if (length > 14) {
            const unsigned char* stored = back.AsSysex().GetDirectDataPtr();
            EXPECT_EQ(stored[0], 0xF0);
            EXPECT_EQ(stored[length + 1], 0xF7);
        }
    }
}

TEST(EventPersistence, NewerFieldsAreSkippedAndANonZeroFlagReadsAsTheNullEvent) {
    ByteVector body = SysexBody(0, 3, {1, 2, 3});
    Append(body, ByteVector{0xAA, 0xBB, 0xCC, 0xDD});  // a newer writer's fields
    ByteVector bytes = Block("", 1, body);
    bytes.push_back(0x55);  // whatever follows the block stays unread
    Vela_Event event;
    EXPECT_EQ(StreamInFrom(bytes, event), static_cast<int64_t>(bytes.size() - 1));
    EXPECT_EQ(PayloadOf(event), (ByteVector{1, 2, 3}));

    const ByteVector payload = Payload(30);
    event = Vela_SysexEvent(30, payload.data());
    const Vela_Event keeper(event);
    const ByteVector flagged = Block("", 1, SysexBody(1, 0, {}));
    EXPECT_EQ(StreamInFrom(flagged, event), static_cast<int64_t>(flagged.size()));
    EXPECT_EQ(event.GetType(), Vela_Event::kNull);
    EXPECT_EQ(PayloadOf(keeper), payload);  // the other holder still has its data
}

TEST(EventPersistence, DamagedBlocksThrowStreamExceptionsAndKeepTheEvent) {
    const ByteVector damaged[] = {
        Block("", 2, SysexBody(0, 3, {1, 2, 3})),           // version from the future
        Block("MdTEL", 1, SysexBody(0, 3, {1, 2, 3})),      // wrong tag
        Block("", 1, SysexBody(0, -1, {})),                 // negative length
        Block("", 1, SysexBody(0, 0x7FFFFFFF, {1, 2, 3})),  // length beyond the block
        Block("", 1, SysexBody(0, 4, {1, 2, 3})),           // one byte short
        Block("", 1, ByteVector{0}),                        // no length at all
        Block("", 1, {}),                                   // not even the flag
    };
    for (const ByteVector& bytes : damaged) {
        Vela_Event event = Vela_StartEvent();
        EXPECT_THROW(StreamInFrom(bytes, event), Sys_StreamException) << bytes.size() << " bytes";
        EXPECT_EQ(event.GetType(), Vela_Event::kStart);
    }
}

TEST(EventPersistence, RawImagesInASegmentedVectorKeepReferenceCountsExact) {
    const ByteVector payload = Payload(40);
    const Vela_SysexEvent original(40, payload.data());
    ASSERT_EQ(RefCountOf(original), 1);

    Cmn_ChunkyPODVector<EventImage> images(2);  // small segments: inserts split and move records
    for (int i = 0; i < 5; ++i) {
        const EventImage image = ImageOut(i % 2 ? Vela_Event(Vela_NoteOnEvent(60, 1)) : Vela_Event(original));
        images.Insert(images.GetSize() / 2, 1, &image);
    }
    EXPECT_EQ(RefCountOf(original), 4);  // the original and three images; moving records adds none

    // Copying the vector raw: every source record is prepared first.
    for (EventImage& image : images) image.AsEvent().PrepareToImageOut();
    Cmn_ChunkyPODVector<EventImage> copy(3);
    copy.Assign(images);
    EXPECT_EQ(RefCountOf(original), 7);

    // Reading one image back over a slot that held other long data releases that data.
    const ByteVector other = Payload(50);
    Vela_Event slot = Vela_SysexEvent(50, other.data());
    ASSERT_TRUE(copy[2].AsEvent() == original);
    copy[2].AsEvent().PrepareToImageOut();
    slot.PrepareToImageIn();
    std::memcpy(static_cast<void*>(&slot), copy[2].mBytes, sizeof(Vela_Event));
    EXPECT_EQ(RefCountOf(original), 8);

    // Emptying both vectors: each record gives its reference back.
    for (Cmn_ChunkyPODVector<EventImage>* vectorP : {&images, &copy}) {
        for (EventImage& image : *vectorP) image.AsEvent().PrepareToImageIn();
        vectorP->Destruct();
    }
    EXPECT_EQ(RefCountOf(original), 2);
    slot.PrepareToImageIn();
    EXPECT_EQ(slot.GetType(), Vela_Event::kNull);
    EXPECT_EQ(RefCountOf(original), 1);
}
