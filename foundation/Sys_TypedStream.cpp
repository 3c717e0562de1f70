// Typed streams. Every value is written byte by byte in little-endian order, so the encoding
// does not depend on the host's byte order or on struct layout:
//   bool  1 byte, 0 or 1 (any non-zero byte reads as true)
//   int8  1 byte, int16 2 bytes, int32 4 bytes, int64 8 bytes, two's complement
// Reads are checked against the current limit before anything is consumed, so a failed read
// leaves the position where it was.
#include "Sys_TypedStream.h"

#include <cstring>
#include <type_traits>

#include "Cmn_Exception.h"

namespace {

[[noreturn]] void Fail(const std::string& iText) { throw Sys_StreamException(iText); }

size_t CheckedSize(int iSize, const char* iWhat) {
    if (iSize < 0) Fail(std::string(iWhat) + ": negative size " + std::to_string(iSize));
    return static_cast<size_t>(iSize);
}

void CheckSeekTarget(int64_t iPos, int64_t iSize) {
    if (iPos < 0 || iPos > iSize)
        Fail("seek to " + std::to_string(iPos) + " outside a stream of " + std::to_string(iSize) + " bytes");
}

}  // namespace

// ---------------------------------------------------------------- out stream

template <class T>
static void WriteLE(Sys_TypedOutStream& ioStream, T iValue) {
    uint8_t bytes[sizeof(T)];
    Sys_TypedOutBuffer::Encode(iValue, bytes);
    ioStream.WriteBlock(bytes, static_cast<int>(sizeof(T)));
}

void Sys_TypedOutStream::Write(bool iValue) { Write(static_cast<int8_t>(iValue ? 1 : 0)); }
void Sys_TypedOutStream::Write(int8_t iValue) { WriteLE(*this, iValue); }
void Sys_TypedOutStream::Write(int16_t iValue) { WriteLE(*this, iValue); }
void Sys_TypedOutStream::Write(int32_t iValue) { WriteLE(*this, iValue); }
void Sys_TypedOutStream::Write(int64_t iValue) { WriteLE(*this, iValue); }

void Sys_TypedOutStream::WriteBlock(const void* iData, int iSize) {
    size_t size = CheckedSize(iSize, "WriteBlock");
    if (size > 0) WriteBytes(iData, size);
}

void Sys_TypedOutBuffer::Flush() {
    if (mUsed) mStream.WriteBlock(mBytes, static_cast<int>(mUsed));
    mUsed = 0;
}

// ---------------------------------------------------------------- in stream

template <class T>
static T ReadLE(Sys_TypedInStream& ioStream) {
    uint8_t bytes[sizeof(T)];
    ioStream.ReadBlock(bytes, static_cast<int>(sizeof(T)));
    return Sys_TypedInRecord::Decode<T>(bytes);
}

void Sys_TypedInStream::Read(bool& oValue) { oValue = ReadLE<int8_t>(*this) != 0; }
void Sys_TypedInStream::Read(int8_t& oValue) { oValue = ReadLE<int8_t>(*this); }
void Sys_TypedInStream::Read(int16_t& oValue) { oValue = ReadLE<int16_t>(*this); }
void Sys_TypedInStream::Read(int32_t& oValue) { oValue = ReadLE<int32_t>(*this); }
void Sys_TypedInStream::Read(int64_t& oValue) { oValue = ReadLE<int64_t>(*this); }

void Sys_TypedInStream::ReadBlock(void* oData, int iSize) {
    size_t size = CheckedSize(iSize, "ReadBlock");
    CheckAvailable(size);
    if (size > 0) ReadBytes(oData, size);
}

Sys_TypedInRecord::Sys_TypedInRecord(Sys_TypedInStream& ioStream, size_t iSize) : mSize(iSize) {
    if (iSize > kMaxBytes) Fail("a record of " + std::to_string(iSize) + " bytes is larger than " + std::to_string(kMaxBytes));
    ioStream.ReadBlock(mBytes, static_cast<int>(iSize));
}

void Sys_TypedInRecord::FailPastEnd() { Fail("a field read past the end of its record"); }

int64_t Sys_TypedInStream::GetLimit() const { return mLimits.empty() ? GetSize() : mLimits.back(); }

void Sys_TypedInStream::PushLimit(int64_t iEnd) {
    // A nested limit may only narrow: a block can never reach past its parent.
    if (iEnd < GetPos() || iEnd > GetLimit())
        Fail("block end " + std::to_string(iEnd) + " outside the enclosing range [" + std::to_string(GetPos()) + ", " +
             std::to_string(GetLimit()) + "]");
    mLimits.push_back(iEnd);
}

void Sys_TypedInStream::PopLimit() {
    if (!mLimits.empty()) mLimits.pop_back();
}

void Sys_TypedInStream::CheckAvailable(size_t iSize) const {
    int64_t pos = GetPos();
    int64_t limit = GetLimit();
    if (pos > limit || iSize > static_cast<uint64_t>(limit - pos))
        Fail("read of " + std::to_string(iSize) + " bytes at " + std::to_string(pos) + " passes the end at " +
             std::to_string(limit));
}

// ---------------------------------------------------------------- memory streams

void Sys_MemoryOutStream::SetPos(int64_t iPos) {
    CheckSeekTarget(iPos, static_cast<int64_t>(mBytes.size()));
    mPos = iPos;
}

void Sys_MemoryOutStream::WriteBytes(const void* iData, size_t iSize) {
    size_t pos = static_cast<size_t>(mPos);
    if (pos + iSize > mBytes.size()) mBytes.resize(pos + iSize);
    std::memcpy(mBytes.data() + pos, iData, iSize);
    mPos += static_cast<int64_t>(iSize);
}

Sys_MemoryInStream::Sys_MemoryInStream(const void* iData, size_t iSize)
    : mDataP(static_cast<const uint8_t*>(iData)), mSize(iData ? iSize : 0) {}

void Sys_MemoryInStream::SetPos(int64_t iPos) {
    CheckSeekTarget(iPos, GetSize());
    mPos = iPos;
}

void Sys_MemoryInStream::ReadBytes(void* oData, size_t iSize) {
    // The limit check has run; this guards the buffer itself.
    if (mPos < 0 || iSize > mSize - static_cast<size_t>(mPos)) Fail("read past the end of a memory stream");
    std::memcpy(oData, mDataP + mPos, iSize);
    mPos += static_cast<int64_t>(iSize);
}

// ---------------------------------------------------------------- file streams

namespace {

std::FILE* OpenFile(const std::string& iPath, const char* iMode) {
    std::FILE* fileP = std::fopen(iPath.c_str(), iMode);
    if (!fileP) Fail("cannot open \"" + iPath + "\"");
    return fileP;
}

int64_t FileTell(std::FILE* iFileP) {
    int64_t pos = static_cast<int64_t>(ftello(iFileP));
    if (pos < 0) Fail("cannot tell a file position");
    return pos;
}

void FileSeek(std::FILE* iFileP, int64_t iPos, int iWhence) {
    if (fseeko(iFileP, static_cast<off_t>(iPos), iWhence) != 0) Fail("cannot seek to " + std::to_string(iPos));
}

}  // namespace

Sys_FileOutStream::Sys_FileOutStream(const std::string& iPath) : mFileP(OpenFile(iPath, "wb")) {}

Sys_FileOutStream::~Sys_FileOutStream() { std::fclose(mFileP); }

int64_t Sys_FileOutStream::GetPos() const { return FileTell(mFileP); }

void Sys_FileOutStream::SetPos(int64_t iPos) {
    // The file may only be sought within what has been written, as with the memory stream.
    int64_t here = GetPos();
    FileSeek(mFileP, 0, SEEK_END);
    int64_t size = GetPos();
    FileSeek(mFileP, here, SEEK_SET);
    CheckSeekTarget(iPos, size);
    FileSeek(mFileP, iPos, SEEK_SET);
}

void Sys_FileOutStream::WriteBytes(const void* iData, size_t iSize) {
    if (std::fwrite(iData, 1, iSize, mFileP) != iSize) Fail("file write failed");
}

Sys_FileInStream::Sys_FileInStream(const std::string& iPath) : mFileP(OpenFile(iPath, "rb")) {
    try {
        FileSeek(mFileP, 0, SEEK_END);
        mSize = FileTell(mFileP);
        FileSeek(mFileP, 0, SEEK_SET);
    } catch (...) {
        std::fclose(mFileP);
        throw;
    }
}

Sys_FileInStream::~Sys_FileInStream() { std::fclose(mFileP); }

int64_t Sys_FileInStream::GetPos() const { return FileTell(mFileP); }

void Sys_FileInStream::SetPos(int64_t iPos) {
    CheckSeekTarget(iPos, mSize);
    FileSeek(mFileP, iPos, SEEK_SET);
}

void Sys_FileInStream::ReadBytes(void* oData, size_t iSize) {
    if (std::fread(oData, 1, iSize, mFileP) != iSize) Fail("file read failed");
}
