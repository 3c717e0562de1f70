// Block headers (the layout is described in Sys_StdStreamHeader.h). The writer puts a zero
// size first and patches it once the body is known, so a writer never has to know its body size
// up front. The reader trusts nothing: a size that is negative or passes the enclosing limit is
// rejected before any body byte is read.
#include "Sys_StdStreamHeader.h"

#include <cstring>

#include "Cmn_Exception.h"

namespace {
constexpr size_t kMaxTagLength = 255;

std::string Quoted(const std::string& iText) { return "\"" + iText + "\""; }
}  // namespace

// ---------------------------------------------------------------- writer

Sys_StdStreamHeaderWriter::Sys_StdStreamHeaderWriter(Sys_TypedOutStream& iStream, const char* iTag, short iVersion)
    : mStream(iStream) {
    size_t length = std::strlen(iTag);
    if (length > kMaxTagLength) throw Sys_StreamException("block tag longer than 255 bytes: " + Quoted(iTag));
    mStream.Write(static_cast<int8_t>(static_cast<uint8_t>(length)));
    mStream.WriteBlock(iTag, static_cast<int>(length));
    mStream.Write(static_cast<int16_t>(iVersion));
    mSizePos = mStream.GetPos();
    mStream.Write(static_cast<int64_t>(0));
    mBodyStart = mStream.GetPos();
}

Sys_StdStreamHeaderWriter::~Sys_StdStreamHeaderWriter() {
    if (mPatched) return;
    try {
        PatchSize();
    } catch (...) {
        // The stream already failed; the exception that says so is the one that matters.
    }
}

void Sys_StdStreamHeaderWriter::PatchSize() {
    int64_t end = mStream.GetPos();
    mStream.SetPos(mSizePos);
    mStream.Write(static_cast<int64_t>(end - mBodyStart));
    mStream.SetPos(end);
    mPatched = true;
}

// ---------------------------------------------------------------- reader

Sys_StdStreamHeaderReader::Sys_StdStreamHeaderReader(Sys_TypedInStream& iStream, const char* iTag)
    : mStream(iStream), mTag(iTag) {
    int8_t rawLength = 0;
    mStream.Read(rawLength);
    char found[kMaxTagLength];
    int length = static_cast<uint8_t>(rawLength);
    mStream.ReadBlock(found, length);
    if (mTag.size() != static_cast<size_t>(length) || std::memcmp(found, mTag.data(), mTag.size()) != 0)
        throw Sys_StreamException("expected block " + Quoted(mTag) + ", found " +
                                  Quoted(std::string(found, static_cast<size_t>(length))));

    int16_t version = 0;
    mStream.Read(version);
    mVersion = version;
    int64_t size = 0;
    mStream.Read(size);
    mBodyStart = mStream.GetPos();
    int64_t room = mStream.GetLimit() - mBodyStart;
    if (size < 0 || size > room)
        throw Sys_StreamException("block " + Quoted(mTag) + " claims " + std::to_string(size) +
                                  " body bytes where " + std::to_string(room) + " remain");
    mEnd = mBodyStart + size;
    mStream.PushLimit(mEnd);
}

Sys_StdStreamHeaderReader::~Sys_StdStreamHeaderReader() {
    mStream.PopLimit();
    try {
        mStream.SetPos(mEnd);
    } catch (...) {
        // Only a failing file can refuse; the reader of the enclosing block will see it.
    }
}

void Sys_StdStreamHeaderReader::CheckVersion(short iMin, short iMax) const {
    // Readers pass the version they write in both arguments and tell older blocks apart by
    // GetVersion(); iMin is kept for their documentation, the acceptance is [1, iMax].
    (void)iMin;
    if (mVersion < kOldestVersion || mVersion > iMax)
        throw Sys_StreamException("block " + Quoted(mTag) + " has version " + std::to_string(mVersion) +
                                  ", readable are " + std::to_string(kOldestVersion) + " to " + std::to_string(iMax));
}

bool Sys_StdStreamHeaderReader::IsMoreLeft() const { return mStream.GetPos() < mEnd; }

void Sys_StdStreamHeaderReader::SkipTheRest() { mStream.SetPos(mEnd); }
