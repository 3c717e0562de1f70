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

// Found by fuzzing: events of one tick reached the song in file order, so a controller before a
// program came back after it once written (the writer puts a tick's events in playback order).
TEST(DamagedDocument, FilesTheFuzzersFoundRoundTrip) {
    const Bytes files[] = {
        {'M', 'T', 'h', 'd', 0, 0, 0, 6, 0, 1, 0, 1, 0, 96, 'M', 'T', 'r', 'k', 0, 0, 0, 11,
         0, 0xB0, 4, 0, 0, 0xC0, 5, 0, 0xFF, 0x2F, 0},
    };
    for (const Bytes& file : files) EXPECT_TRUE(SmfRoundTrip(file.data(), file.size()));
}
