#include "Sys_StdStreamHeader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "BlockBytes.h"
#include "Cmn_Exception.h"
#include "StreamValues.h"

namespace {

// A parent block holding a value, a child block with two values, and a trailing value. The
// child's size is patched explicitly, the parent's by the writer's destructor.
ByteVector WriteNested(short iChildVersion = 2, bool iChildExtra = false) {
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
    }
    return out.GetBytes();
}

// Reads what WriteNested wrote, as a reader that knows child version 2 and two child fields.
void ReadNested(const ByteVector& iBytes) {
    Sys_MemoryInStream in(iBytes.data(), iBytes.size());
    Sys_StdStreamHeaderReader parent(in, "Outer");
    parent.CheckVersion(1, 1);
    EXPECT_EQ(ReadValue<int32_t>(in), 7);
    {
        Sys_StdStreamHeaderReader child(in, "In");
        child.CheckVersion(2, 2);
        EXPECT_EQ(ReadValue<int64_t>(in), -5);
        EXPECT_TRUE(ReadValue<bool>(in));
        child.SkipTheRest();
        EXPECT_FALSE(child.IsMoreLeft());
    }
    EXPECT_EQ(ReadValue<int16_t>(in), 42);
    EXPECT_FALSE(parent.IsMoreLeft());
}

}  // namespace

TEST(Sys_StdStreamHeader, NestedBlocksHaveTheLayoutAndNewerFieldsAreSkipped) {
    for (bool extra : {false, true}) {
        ByteVector child, parent;
        Append(child, -5, 8);
        Append(child, 1, 1);
        if (extra) Append(child, 1234, 4);
        Append(parent, 7, 4);
        Append(parent, Block("In", 2, child));
        Append(parent, 42, 2);
        EXPECT_EQ(WriteNested(2, extra), Block("Outer", 1, parent)) << "extra field " << extra;
        ReadNested(WriteNested(2, extra));
    }
}

TEST(Sys_StdStreamHeader, AnEmptyTagIsValidAnOverlongOneThrowsAWrongOneNamesBoth) {
    Sys_MemoryOutStream out;
    { Sys_StdStreamHeaderWriter block(out, "", 0); }
    Sys_MemoryInStream empty(out.GetBytes().data(), out.GetBytes().size());
    EXPECT_FALSE(Sys_StdStreamHeaderReader(empty, "").IsMoreLeft());
    EXPECT_THROW(Sys_StdStreamHeaderWriter(out, std::string(256, 'x').c_str(), 1), Sys_StreamException);

    const ByteVector bytes = WriteNested();
    Sys_MemoryInStream in(bytes.data(), bytes.size());
    try {
        Sys_StdStreamHeaderReader block(in, "Other");
        FAIL() << "a wrong tag was accepted";
    } catch (const Sys_StreamException& e) {
        EXPECT_NE(std::strstr(e.what(), "\"Other\""), nullptr) << e.what();
        EXPECT_NE(std::strstr(e.what(), "\"Outer\""), nullptr) << e.what();
    }
    in.SetPos(0);  // a tag that is a prefix of the stored one is still wrong
    EXPECT_THROW(Sys_StdStreamHeaderReader(in, "Out"), Sys_StreamException);
}

TEST(Sys_StdStreamHeader, NewerAndInvalidVersionsThrowOlderOnesAreTheReadersToTell) {
    for (short version : {short(1), short(3), short(5), short(0), short(-2)}) {
        const ByteVector bytes = WriteNested(version);
        Sys_MemoryInStream in(bytes.data(), bytes.size());
        Sys_StdStreamHeaderReader parent(in, "Outer");
        ReadValue<int32_t>(in);
        Sys_StdStreamHeaderReader child(in, "In");
        SCOPED_TRACE(version);
        EXPECT_EQ(child.GetVersion(), version);
        if (version < 1 || version > 3) {
            EXPECT_THROW(child.CheckVersion(3, 3), Sys_StreamException);
        } else {
            EXPECT_NO_THROW(child.CheckVersion(3, 3));
        }
    }
}

TEST(Sys_StdStreamHeader, SizeThatOverrunsTheParentThrows) {
    ByteVector bytes = WriteNested();
    // The child's size field: parent header (1 + 5 + 2 + 8), the int32, child tag and version.
    const size_t childSizeAt = 16 + 4 + 1 + 2 + 2;
    bytes[childSizeAt] = static_cast<uint8_t>(bytes[childSizeAt] + 3);  // still inside the stream
    Sys_MemoryInStream in(bytes.data(), bytes.size());
    Sys_StdStreamHeaderReader parent(in, "Outer");
    ReadValue<int32_t>(in);
    EXPECT_THROW(Sys_StdStreamHeaderReader(in, "In"), Sys_StreamException);
    // A negative size is refused as well, and the stream keeps the parent's limit.
    bytes[childSizeAt + 7] = 0x80;
    in.SetPos(20);
    EXPECT_THROW(Sys_StdStreamHeaderReader(in, "In"), Sys_StreamException);
    EXPECT_EQ(in.GetLimit(), static_cast<int64_t>(bytes.size()));
}

// Leaving a block unfinished, or by an exception, moves to its end and restores the limit.
TEST(Sys_StdStreamHeader, LeavingABlockEarlyOrByAnExceptionMovesToItsEnd) {
    const ByteVector bytes = WriteNested(2, true);
    for (bool throwInside : {false, true}) {
        Sys_MemoryInStream in(bytes.data(), bytes.size());
        {
            Sys_StdStreamHeaderReader parent(in, "Outer");
            ReadValue<int32_t>(in);
            try {
                Sys_StdStreamHeaderReader child(in, "In");
                EXPECT_EQ(child.GetVersion(), 2);
                EXPECT_EQ(child.GetBodySize(), 8 + 1 + 4);
                EXPECT_TRUE(child.IsMoreLeft());
                char tooMuch[64];
                if (throwInside) in.ReadBlock(tooMuch, sizeof tooMuch);
            } catch (const Sys_StreamException&) {
                EXPECT_TRUE(throwInside);
            }
            EXPECT_EQ(in.GetLimit(), static_cast<int64_t>(bytes.size()));
            EXPECT_EQ(ReadValue<int16_t>(in), 42);
        }
        EXPECT_EQ(in.GetLimit(), in.GetSize());
        EXPECT_EQ(in.GetPos(), in.GetSize());
    }
}
