#include "Sys_TypedStream.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <limits>
#include <string>
#include <unistd.h>

#include "Cmn_Exception.h"

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
    bool b = false;
    int8_t i8 = 0;
    int16_t i16 = 0;
    int32_t i32 = 0;
    int64_t i64 = 0;
    char raw[3] = {};
    ioIn.Read(b);
    ioIn.Read(i8);
    ioIn.Read(i16);
    ioIn.Read(i32);
    ioIn.Read(i64);
    ioIn.ReadBlock(raw, 3);
    EXPECT_TRUE(b);
    EXPECT_EQ(i8, -2);
    EXPECT_EQ(i16, -12345);
    EXPECT_EQ(i32, std::numeric_limits<int32_t>::min());
    EXPECT_EQ(i64, std::numeric_limits<int64_t>::max());
    EXPECT_EQ(std::string(raw, 3), "xyz");
    EXPECT_EQ(ioIn.GetPos(), ioIn.GetSize());
}

}  // namespace

TEST(Sys_TypedStream, EncodesLittleEndianFixedWidth) {
    Sys_MemoryOutStream out;
    out.Write(static_cast<int16_t>(0x0102));
    out.Write(static_cast<int32_t>(-1));
    out.Write(false);
    const std::vector<uint8_t> expected{0x02, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0x00};
    EXPECT_EQ(out.GetBytes(), expected);
}

TEST(Sys_TypedStream, MemoryRoundTripOfEveryType) {
    Sys_MemoryOutStream out;
    WriteSample(out);
    Sys_MemoryInStream in(out.GetBytes().data(), out.GetBytes().size());
    ExpectSample(in);
}

TEST(Sys_TypedStream, AnyNonZeroByteReadsAsTrue) {
    const uint8_t bytes[] = {7};
    Sys_MemoryInStream in(bytes, 1);
    bool value = false;
    in.Read(value);
    EXPECT_TRUE(value);
}

TEST(Sys_TypedStream, ShortReadThrowsAndConsumesNothing) {
    const uint8_t bytes[] = {1, 2, 3};
    Sys_MemoryInStream in(bytes, sizeof bytes);
    int32_t value = 99;
    EXPECT_THROW(in.Read(value), Sys_StreamException);
    EXPECT_EQ(value, 99);
    EXPECT_EQ(in.GetPos(), 0);
    int16_t pair = 0;
    in.Read(pair);
    EXPECT_EQ(pair, 0x0201);
}

TEST(Sys_TypedStream, LimitsNarrowAndBoundReads) {
    const uint8_t bytes[8] = {};
    Sys_MemoryInStream in(bytes, sizeof bytes);
    in.PushLimit(4);
    EXPECT_EQ(in.GetLimit(), 4);
    EXPECT_THROW(in.PushLimit(5), Sys_StreamException);  // wider than the enclosing limit
    int64_t wide = 0;
    EXPECT_THROW(in.Read(wide), Sys_StreamException);
    int32_t narrow = 0;
    in.Read(narrow);
    in.PopLimit();
    EXPECT_EQ(in.GetLimit(), 8);
}

TEST(Sys_TypedStream, NegativeSizesAndBadSeeksThrow) {
    Sys_MemoryOutStream out;
    char buffer[4] = {};
    EXPECT_THROW(out.WriteBlock(buffer, -1), Sys_StreamException);
    EXPECT_THROW(out.SetPos(1), Sys_StreamException);
    Sys_MemoryInStream in(buffer, sizeof buffer);
    EXPECT_THROW(in.ReadBlock(buffer, -1), Sys_StreamException);
    EXPECT_THROW(in.SetPos(-1), Sys_StreamException);
    EXPECT_THROW(in.SetPos(5), Sys_StreamException);
}

TEST(Sys_TypedStream, FileRoundTrip) {
    std::string path = testing::TempDir() + "vela_typed_stream_" + std::to_string(getpid()) + ".bin";
    {
        Sys_FileOutStream out(path);
        WriteSample(out);
        EXPECT_EQ(out.GetPos(), 1 + 1 + 2 + 4 + 8 + 3);
    }
    {
        Sys_FileInStream in(path);
        EXPECT_EQ(in.GetSize(), 19);
        ExpectSample(in);
        int8_t past = 0;
        EXPECT_THROW(in.Read(past), Sys_StreamException);
    }
    std::remove(path.c_str());
    EXPECT_THROW(Sys_FileInStream missing(path), Sys_StreamException);
}
