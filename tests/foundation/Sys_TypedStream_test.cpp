#include "Sys_TypedStream.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <limits>
#include <string>
#include <unistd.h>

#include "BlockBytes.h"
#include "Cmn_Exception.h"
#include "StreamValues.h"

namespace {

void WriteSample(Sys_TypedOutStream& ioOut) {
    ioOut.Write(true);
    ioOut.Write(static_cast<int8_t>(-2));
    ioOut.Write(static_cast<int16_t>(-12345));
    ioOut.Write(std::numeric_limits<int32_t>::min());
    ioOut.Write(std::numeric_limits<int64_t>::max());
    ioOut.WriteBlock("xyz", 3);
}

void ExpectSample(Sys_TypedInStream& ioIn) {
    EXPECT_TRUE(ReadValue<bool>(ioIn));
    EXPECT_EQ(ReadValue<int8_t>(ioIn), -2);
    EXPECT_EQ(ReadValue<int16_t>(ioIn), -12345);
    EXPECT_EQ(ReadValue<int32_t>(ioIn), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(ReadValue<int64_t>(ioIn), std::numeric_limits<int64_t>::max());
    char raw[3] = {};
    ioIn.ReadBlock(raw, 3);
    EXPECT_EQ(std::string(raw, 3), "xyz");
    EXPECT_EQ(ioIn.GetPos(), ioIn.GetSize());
}

}  // namespace

TEST(Sys_TypedStream, MemoryRoundTripIsLittleEndianFixedWidth) {
    Sys_MemoryOutStream out;
    WriteSample(out);
    ByteVector expected;
    for (auto [value, size] : {std::pair<int64_t, int>{1, 1}, {-2, 1}, {-12345, 2}, {std::numeric_limits<int32_t>::min(), 4},
                               {std::numeric_limits<int64_t>::max(), 8}})
        Append(expected, value, size);
    Append(expected, ByteVector{'x', 'y', 'z'});
    EXPECT_EQ(out.GetBytes(), expected);
    Sys_MemoryInStream in(out.GetBytes().data(), out.GetBytes().size());
    ExpectSample(in);
    const uint8_t seven = 7;  // any non-zero byte reads as true
    Sys_MemoryInStream boolIn(&seven, 1);
    EXPECT_TRUE(ReadValue<bool>(boolIn));
}

// Short reads, reads past a limit, wider limits, negative sizes and bad seeks all throw; a
// failed read consumes nothing.
// The buffer gives the bytes direct writes give, across its own flushes (mixed widths, so
// values straddle every possible fill level), and drops what is never flushed.
TEST(Sys_TypedStream, BufferedWritesMatchDirectWrites) {
    Sys_MemoryOutStream direct, buffered;
    Sys_TypedOutBuffer buffer(buffered);
    for (int i = 0; i < 3000; ++i) {
        const int64_t value = int64_t{i} * 0x0101010101 - 77777;
        direct.Write(i % 3 == 0), buffer.Write(i % 3 == 0);
        direct.Write(static_cast<int16_t>(value)), buffer.Write(static_cast<int16_t>(value));
        direct.Write(static_cast<int32_t>(value)), buffer.Write(static_cast<int32_t>(value));
        direct.Write(value), buffer.Write(value);
    }
    buffer.Flush();
    EXPECT_EQ(buffered.GetBytes(), direct.GetBytes());
    buffer.Write(int64_t{1});
    EXPECT_EQ(buffered.GetBytes().size(), direct.GetBytes().size());
}

TEST(Sys_TypedStream, BadRequestsThrowAndAShortReadConsumesNothing) {
    const uint8_t bytes[8] = {1, 2, 3};
    Sys_MemoryInStream in(bytes, 3);
    int32_t value = 99;
    EXPECT_THROW(in.Read(value), Sys_StreamException);
    EXPECT_EQ(value, 99);
    EXPECT_EQ(in.GetPos(), 0);
    EXPECT_EQ(ReadValue<int16_t>(in), 0x0201);

    Sys_MemoryInStream limited(bytes, sizeof bytes);
    limited.PushLimit(4);
    EXPECT_EQ(limited.GetLimit(), 4);
    EXPECT_THROW(limited.PushLimit(5), Sys_StreamException);  // wider than the enclosing limit
    EXPECT_THROW(ReadValue<int64_t>(limited), Sys_StreamException);
    ReadValue<int32_t>(limited);
    limited.PopLimit();
    EXPECT_EQ(limited.GetLimit(), 8);

    Sys_MemoryOutStream out;
    char buffer[4] = {};
    EXPECT_THROW(out.WriteBlock(buffer, -1), Sys_StreamException);
    EXPECT_THROW(out.SetPos(1), Sys_StreamException);
    EXPECT_THROW(in.ReadBlock(buffer, -1), Sys_StreamException);
    EXPECT_THROW(in.SetPos(-1), Sys_StreamException);
    EXPECT_THROW(in.SetPos(4), Sys_StreamException);
}

TEST(Sys_TypedStream, FileRoundTrip) {
    const std::string path = testing::TempDir() + "vela_typed_stream_" + std::to_string(getpid()) + ".bin";
    {
        Sys_FileOutStream out(path);
        WriteSample(out);
        EXPECT_EQ(out.GetPos(), 1 + 1 + 2 + 4 + 8 + 3);
    }
    {
        Sys_FileInStream in(path);
        EXPECT_EQ(in.GetSize(), 19);
        ExpectSample(in);
        EXPECT_THROW(ReadValue<int8_t>(in), Sys_StreamException);
    }
    std::remove(path.c_str());
    EXPECT_THROW(Sys_FileInStream missing(path), Sys_StreamException);
}
