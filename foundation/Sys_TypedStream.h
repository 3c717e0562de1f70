// Typed streams: fixed-width little-endian encodings of bool (1 byte), int8, int16, int32 and
// int64 over a byte sink or source, plus raw blocks. Memory and file implementations.
// Failures (a short read, a read past the end, a failed write or seek) throw
// Sys_StreamException; a stream never reads outside its bytes.
// An in-stream keeps a stack of read limits: an open block (Sys_StdStreamHeaderReader) pushes
// its end, so nothing inside a block can read past it, and pops it when it closes.
// Threads: one thread at a time per stream.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

class Sys_TypedOutStream {
public:
    virtual ~Sys_TypedOutStream() = default;

    void Write(bool iValue);
    void Write(int8_t iValue);
    void Write(int16_t iValue);
    void Write(int32_t iValue);
    void Write(int64_t iValue);
    void WriteBlock(const void* iData, int iSize);

    virtual int64_t GetPos() const = 0;
    virtual void SetPos(int64_t iPos) = 0;

protected:
    virtual void WriteBytes(const void* iData, size_t iSize) = 0;
};

class Sys_TypedInStream {
public:
    virtual ~Sys_TypedInStream() = default;

    void Read(bool& oValue);
    void Read(int8_t& oValue);
    void Read(int16_t& oValue);
    void Read(int32_t& oValue);
    void Read(int64_t& oValue);
    void ReadBlock(void* oData, int iSize);

    virtual int64_t GetPos() const = 0;
    virtual void SetPos(int64_t iPos) = 0;
    // Total number of bytes in the underlying source.
    virtual int64_t GetSize() const = 0;

    // The position nothing may be read beyond: the innermost open block's end, or the size.
    int64_t GetLimit() const;
    void PushLimit(int64_t iEnd);
    void PopLimit();

protected:
    virtual void ReadBytes(void* oData, size_t iSize) = 0;

private:
    void CheckAvailable(size_t iSize) const;
    std::vector<int64_t> mLimits;
};

class Sys_MemoryOutStream : public Sys_TypedOutStream {
public:
    const std::vector<uint8_t>& GetBytes() const { return mBytes; }
    int64_t GetPos() const override { return mPos; }
    void SetPos(int64_t iPos) override;

protected:
    void WriteBytes(const void* iData, size_t iSize) override;

private:
    std::vector<uint8_t> mBytes;
    int64_t mPos = 0;
};

class Sys_MemoryInStream : public Sys_TypedInStream {
public:
    // The bytes are not copied: they must outlive the stream.
    Sys_MemoryInStream(const void* iData, size_t iSize);
    int64_t GetPos() const override { return mPos; }
    void SetPos(int64_t iPos) override;
    int64_t GetSize() const override { return static_cast<int64_t>(mSize); }

protected:
    void ReadBytes(void* oData, size_t iSize) override;

private:
    const uint8_t* mDataP;
    size_t mSize;
    int64_t mPos = 0;
};

class Sys_FileOutStream : public Sys_TypedOutStream {
public:
    explicit Sys_FileOutStream(const std::string& iPath);  // throws Sys_StreamException
    ~Sys_FileOutStream() override;
    int64_t GetPos() const override;
    void SetPos(int64_t iPos) override;

protected:
    void WriteBytes(const void* iData, size_t iSize) override;

private:
    std::FILE* mFileP;
};

class Sys_FileInStream : public Sys_TypedInStream {
public:
    explicit Sys_FileInStream(const std::string& iPath);  // throws Sys_StreamException
    ~Sys_FileInStream() override;
    int64_t GetPos() const override;
    void SetPos(int64_t iPos) override;
    int64_t GetSize() const override { return mSize; }

protected:
    void ReadBytes(void* oData, size_t iSize) override;

private:
    std::FILE* mFileP;
    int64_t mSize = 0;
};
