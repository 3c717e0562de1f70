// A damaged document never crashes, reads out of bounds or leaks (the sanitizer run checks
// those): every truncation and every single-byte change of a small chunk document either reads
// and round-trips, or throws the library's exception. Inputs the fuzzers found are kept here.
#include <gtest/gtest.h>

#include "AssertCapture.h"
#include "FuzzCodecs.h"

using namespace VelaFuzz;

TEST(DamagedDocument, EveryTruncationAndSingleByteChangeOfAChunkReadsBackOrThrows) {
    AssertCapture quiet;  // odd values read from damage may be reported when written back
    const Bytes document = Written<ChunkCodec>(*SampleChunk());
    ASSERT_TRUE(RoundTrip<ChunkCodec>(document.data(), document.size()));
    for (size_t size = 0; size < document.size(); ++size) {
        EXPECT_FALSE(RoundTrip<ChunkCodec>(document.data(), size)) << "truncated to " << size;
    }
    size_t readBack = 0, refused = 0;
    for (size_t at = 0; at < document.size(); ++at) {
        for (const uint8_t value : {0x00, 0x01, 0x7F, 0x80, 0xFF, document[at] ^ 0x40}) {
            Bytes damaged = document;
            damaged[at] = value;
            try {
                ++(RoundTrip<ChunkCodec>(damaged.data(), damaged.size()) ? readBack : refused);
            } catch (const std::exception& iError) {
                ADD_FAILURE() << "byte " << at << " set to " << int(value) << ": " << iError.what();
            }
        }
    }
    // Both outcomes occur: values change harmlessly, framing and counts are refused.
    EXPECT_GT(readBack, document.size());
    EXPECT_GT(refused, document.size() / 2);
}

// MIDI files the fuzzer found (reduced), each a format-1 file of one track with these events.
TEST(DamagedDocument, FilesTheFuzzersFoundRoundTrip) {
    const Bytes events[] = {
        {0, 0xB0, 4, 0, 0, 0xC0, 5},   // a tick's events were kept in file order, not playback order
        {0, 0xC0, 5, 0, 0x81, 60, 0},  // a stray note-off made an empty track for its channel
        // the metas' track, first to a channel at the first tick, was not written first there
        {0, 0xFF, 3, 1, 'a', 0, 0xB1, 7, 1, 0, 0xC0, 5},
        // a value replaced at its tick took the earlier one's place, ahead of events between them
        {0, 0xA6, 0x7E, 0x7C, 0, 0xD6, 0x7A, 0, 0xD6, 0x11},
        // a replaced value was put beside the events after a text read before it was replaced
        {0, 0xD0, 0x6B, 0, 0xD0, 0x00, 0, 0xD0, 0x78, 0, 0xFF, 0x01, 0x01, 'a'},
        {0, 0xD0, 1, 0, 0xD1, 2},  // a value of another channel at the tick was looked up in this one's track
        // an unmatched note-off, written before the tick's note-offs, ended the note one of them ended
        {0, 0x90, 60, 100, 1, 0x80, 60, 10, 0, 0x80, 60, 20},
    };
    for (const Bytes& body : events) {
        Bytes file{'M', 'T', 'h', 'd', 0, 0, 0, 6, 0, 1, 0, 1, 0, 96, 'M', 'T', 'r', 'k', 0, 0, 0, uint8_t(body.size() + 4)};
        file.insert(file.end(), body.begin(), body.end());
        file.insert(file.end(), {0, 0xFF, 0x2F, 0});
        EXPECT_TRUE(SmfRoundTrip(file.data(), file.size())) << file.size();
    }
}
