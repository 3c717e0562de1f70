#include "Sys_StdStreamHeader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "Cmn_Exception.h"

namespace {

// A parent block holding a value, a child block with two values, and a trailing value.
std::vector<uint8_t> WriteNested(short iChildVersion = 2, bool iChildExtra = false) {
    Sys_MemoryOutStream out;
    {
        Sys_StdStreamHeaderWriter parent(out, "Outer", 1);
        out.Write(static_cast<int32_t>(7));
        {
            Sys_StdStreamHeaderWriter child(out, "In", iChildVersion);
            out.Write(static_cast<int64_t>(-5));
            out.Write(true);
            if (iChildExtra) out.Write(static_cast<int32_t>(1234));  // a newer writer's field
            child.PatchSize();
        }
        out.Write(static_cast<int16_t>(42));
        parent.PatchSize();
    }
    return out.GetBytes();
}

// Reads what WriteNested wrote, as a reader that knows child version 2 and two child fields.
void ReadNested(const std::vector<uint8_t>& iBytes) {
    Sys_MemoryInStream in(iBytes.data(), iBytes.size());
    Sys_StdStreamHeaderReader parent(in, "Outer");
    parent.CheckVersion(1, 1);
    int32_t first = 0;
    in.Read(first);
    EXPECT_EQ(first, 7);
    {
        Sys_StdStreamHeaderReader child(in, "In");
        child.CheckVersion(2, 2);
        int64_t value = 0;
        bool flag = false;
        in.Read(value);
        in.Read(flag);
        EXPECT_EQ(value, -5);
        EXPECT_TRUE(flag);
        child.SkipTheRest();
        EXPECT_FALSE(child.IsMoreLeft());
    }
    int16_t last = 0;
    in.Read(last);
    EXPECT_EQ(last, 42);
    EXPECT_FALSE(parent.IsMoreLeft());
}

}  // namespace

TEST(Sys_StdStreamHeader, LayoutIsTagLengthTagVersionSize) {
    Sys_MemoryOutStream out;
    {
        Sys_StdStreamHeaderWriter block(out, "Ab", 3);
        out.Write(static_cast<int8_t>(9));
    }  // the destructor patches the size
    const std::vector<uint8_t> expected{2, 'A', 'b', 3, 0, 1, 0, 0, 0, 0, 0, 0, 0, 9};
    EXPECT_EQ(out.GetBytes(), expected);
}

TEST(Sys_StdStreamHeader, NestedBlocksRoundTrip) { ReadNested(WriteNested()); }

TEST(Sys_StdStreamHeader, NewerWritersExtraFieldsAreSkipped) { ReadNested(WriteNested(2, true)); }

TEST(Sys_StdStreamHeader, ClosingAnUnfinishedBlockMovesToItsEnd) {
    std::vector<uint8_t> bytes = WriteNested(2, true);
    Sys_MemoryInStream in(bytes.data(), bytes.size());
    Sys_StdStreamHeaderReader parent(in, "Outer");
    int32_t first = 0;
    in.Read(first);
    {
        Sys_StdStreamHeaderReader child(in, "In");
        EXPECT_EQ(child.GetVersion(), 2);
        EXPECT_EQ(child.GetBodySize(), 8 + 1 + 4);
        EXPECT_TRUE(child.IsMoreLeft());
    }
    int16_t last = 0;
    in.Read(last);
    EXPECT_EQ(last, 42);
}

TEST(Sys_StdStreamHeader, EmptyTagIsAValidTag) {
    Sys_MemoryOutStream out;
    { Sys_StdStreamHeaderWriter block(out, "", 0); }
    Sys_MemoryInStream in(out.GetBytes().data(), out.GetBytes().size());
    Sys_StdStreamHeaderReader block(in, "");
    EXPECT_FALSE(block.IsMoreLeft());
    EXPECT_THROW(Sys_StdStreamHeaderWriter(out, std::string(256, 'x').c_str(), 1), Sys_StreamException);
}

TEST(Sys_StdStreamHeader, WrongTagNamesBothTags) {
    std::vector<uint8_t> bytes = WriteNested();
    Sys_MemoryInStream in(bytes.data(), bytes.size());
    try {
        Sys_StdStreamHeaderReader block(in, "Other");
        FAIL() << "a wrong tag was accepted";
    } catch (const Sys_StreamException& e) {
        EXPECT_NE(std::strstr(e.what(), "\"Other\""), nullptr) << e.what();
        EXPECT_NE(std::strstr(e.what(), "\"Outer\""), nullptr) << e.what();
    }
    // A tag that is a prefix of the stored one is still wrong.
    in.SetPos(0);
    EXPECT_THROW(Sys_StdStreamHeaderReader(in, "Out"), Sys_StreamException);
}

TEST(Sys_StdStreamHeader, VersionOutsideTheRangeThrows) {
    std::vector<uint8_t> bytes = WriteNested(5);
    Sys_MemoryInStream in(bytes.data(), bytes.size());
    Sys_StdStreamHeaderReader parent(in, "Outer");
    EXPECT_NO_THROW(parent.CheckVersion(0, 1));
    EXPECT_THROW(parent.CheckVersion(2, 3), Sys_StreamException);
    int32_t first = 0;
    in.Read(first);
    Sys_StdStreamHeaderReader child(in, "In");
    EXPECT_THROW(child.CheckVersion(2, 4), Sys_StreamException);
    EXPECT_NO_THROW(child.CheckVersion(1, 5));
}

TEST(Sys_StdStreamHeader, EveryTruncationThrowsStreamException) {
    const std::vector<uint8_t> bytes = WriteNested(2, true);
    for (size_t length = 0; length < bytes.size(); ++length) {
        // A copy of exactly the prefix, so the sanitizer sees any read beyond it.
        std::vector<uint8_t> prefix(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_THROW(ReadNested(prefix), Sys_StreamException) << "prefix of " << length << " bytes";
    }
}

TEST(Sys_StdStreamHeader, SizeThatOverrunsTheParentThrows) {
    std::vector<uint8_t> bytes = WriteNested();
    // The child's size field: parent header (1 + 5 + 2 + 8), the int32, child tag and version.
    const size_t childSizeAt = 16 + 4 + 1 + 2 + 2;
    bytes[childSizeAt] = static_cast<uint8_t>(bytes[childSizeAt] + 3);  // still inside the stream
    Sys_MemoryInStream in(bytes.data(), bytes.size());
    Sys_StdStreamHeaderReader parent(in, "Outer");
    int32_t first = 0;
    in.Read(first);
    EXPECT_THROW(Sys_StdStreamHeaderReader(in, "In"), Sys_StreamException);

    // A negative size is refused as well, and the stream keeps the parent's limit.
    bytes[childSizeAt + 7] = 0x80;
    in.SetPos(20);
    EXPECT_THROW(Sys_StdStreamHeaderReader(in, "In"), Sys_StreamException);
    EXPECT_EQ(in.GetLimit(), static_cast<int64_t>(bytes.size()));
}

TEST(Sys_StdStreamHeader, ExceptionInsideABlockLeavesTheStreamSane) {
    std::vector<uint8_t> bytes = WriteNested();
    Sys_MemoryInStream in(bytes.data(), bytes.size());
    {
        Sys_StdStreamHeaderReader parent(in, "Outer");
        int32_t first = 0;
        in.Read(first);
        try {
            Sys_StdStreamHeaderReader child(in, "In");
            char tooMuch[64];
            in.ReadBlock(tooMuch, sizeof tooMuch);
        } catch (const Sys_StreamException&) {
        }
        EXPECT_EQ(in.GetLimit(), static_cast<int64_t>(bytes.size()));
        int16_t last = 0;
        in.Read(last);
        EXPECT_EQ(last, 42);
    }
    EXPECT_EQ(in.GetLimit(), in.GetSize());
    EXPECT_EQ(in.GetPos(), in.GetSize());
}
