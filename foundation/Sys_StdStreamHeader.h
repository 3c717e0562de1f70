// Versioned, tagged, size-prefixed blocks in typed streams; blocks nest.
// Block layout (all little-endian), written by Sys_StdStreamHeaderWriter:
//   see the table in Sys_StdStreamHeader.cpp's opening comment (kept beside the code that
//   writes and reads it).
// Reading: the constructor checks the tag and that the block fits in its parent (or the
// stream); CheckVersion(min, max) throws for a version outside [min, max]; IsMoreLeft() tells
// whether unread body bytes remain; SkipTheRest() moves to the block's end so that fields a
// newer writer appended are skipped. The destructor closes the block (moves to its end).
// Every failure throws Sys_StreamException; nothing is read beyond the block.
#pragma once

#include <cstdint>

#include "Sys_TypedStream.h"

class Sys_StdStreamHeaderWriter {
public:
    Sys_StdStreamHeaderWriter(Sys_TypedOutStream& iStream, const char* iTag, short iVersion);
    ~Sys_StdStreamHeaderWriter();  // patches the size when PatchSize was not called
    Sys_StdStreamHeaderWriter(const Sys_StdStreamHeaderWriter&) = delete;
    Sys_StdStreamHeaderWriter& operator=(const Sys_StdStreamHeaderWriter&) = delete;

    // Fills in the size field for the body written so far.
    void PatchSize();

private:
    Sys_TypedOutStream& mStream;
    int64_t mSizePos;
    int64_t mBodyStart;
    bool mPatched = false;
};

class Sys_StdStreamHeaderReader {
public:
    Sys_StdStreamHeaderReader(Sys_TypedInStream& iStream, const char* iTag);
    ~Sys_StdStreamHeaderReader();
    Sys_StdStreamHeaderReader(const Sys_StdStreamHeaderReader&) = delete;
    Sys_StdStreamHeaderReader& operator=(const Sys_StdStreamHeaderReader&) = delete;

    void CheckVersion(short iMin, short iMax) const;
    short GetVersion() const { return mVersion; }
    bool IsMoreLeft() const;
    void SkipTheRest();
    int64_t GetBodySize() const { return mEnd - mBodyStart; }

private:
    Sys_TypedInStream& mStream;
    short mVersion = 0;
    int64_t mBodyStart = 0;
    int64_t mEnd = 0;
};
