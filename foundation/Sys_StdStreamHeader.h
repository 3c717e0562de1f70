// Versioned, tagged, size-prefixed blocks in typed streams; blocks nest.
// Block layout (all little-endian), written by Sys_StdStreamHeaderWriter:
//   | field        | type   | notes                                                    |
//   |--------------|--------|----------------------------------------------------------|
//   | tag length   | uint8  | 0..255; the empty tag "" is a valid tag                   |
//   | tag bytes    | char[] | exactly "tag length" bytes, no terminator                |
//   | version      | int16  | the writer's format version                              |
//   | body size    | int64  | bytes of body after this field; never negative           |
//   | body         | bytes  | the owner's fields, possibly nested blocks               |
// Reading: the constructor checks the tag and that the block fits in its parent (or the
// stream); CheckVersion(min, max) throws for a block newer than max (its writer knew fields
// this reader cannot) or below 1 (no writer wrote it); older blocks pass, and the reader tells
// them apart by GetVersion(), so readers call it with their own version in both arguments
// (min documents that version and is not enforced); IsMoreLeft() tells
// whether unread body bytes remain; SkipTheRest() moves to the block's end so that fields a
// newer writer appended are skipped. The destructor closes the block (moves to its end).
// Every failure throws Sys_StreamException; nothing is read beyond the block. Destructors never
// throw: a block abandoned by an exception still pops its limit, so the stream stays usable.
// Threads: as the stream (one thread at a time). Not for real-time use.
#pragma once

#include <cstdint>
#include <string>

#include "Sys_TypedStream.h"

class Sys_StdStreamHeaderWriter {
public:
    // Throws Sys_StreamException for a tag longer than 255 bytes.
    Sys_StdStreamHeaderWriter(Sys_TypedOutStream& iStream, const char* iTag, short iVersion);
    ~Sys_StdStreamHeaderWriter();  // patches the size when PatchSize was not called
    Sys_StdStreamHeaderWriter(const Sys_StdStreamHeaderWriter&) = delete;
    Sys_StdStreamHeaderWriter& operator=(const Sys_StdStreamHeaderWriter&) = delete;

    // Fills in the size field for the body written so far and returns to the body's end.
    void PatchSize();

private:
    Sys_TypedOutStream& mStream;
    int64_t mSizePos;
    int64_t mBodyStart;
    bool mPatched = false;
};

class Sys_StdStreamHeaderReader {
public:
    // Reads the header; throws for a wrong tag, a negative size or a body that passes the
    // enclosing block's (or the stream's) end. On success the block's end becomes the limit.
    Sys_StdStreamHeaderReader(Sys_TypedInStream& iStream, const char* iTag);
    ~Sys_StdStreamHeaderReader();
    Sys_StdStreamHeaderReader(const Sys_StdStreamHeaderReader&) = delete;
    Sys_StdStreamHeaderReader& operator=(const Sys_StdStreamHeaderReader&) = delete;

    static constexpr short kOldestVersion = 1;

    void CheckVersion(short iMin, short iMax) const;
    short GetVersion() const { return mVersion; }
    bool IsMoreLeft() const;
    void SkipTheRest();
    int64_t GetBodySize() const { return mEnd - mBodyStart; }

private:
    Sys_TypedInStream& mStream;
    std::string mTag;
    short mVersion = 0;
    int64_t mBodyStart = 0;
    int64_t mEnd = 0;
};
