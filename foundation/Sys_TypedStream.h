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
#include <type_traits>
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

// Collects fixed-width values in the typed streams' encoding and hands them to the stream in
// blocks, so a writer of many small fields pays one stream call per few kilobytes rather than
// one per field. The bytes are exactly those the same Write calls would give. Flush before the
// stream is used directly again (and before its position is read); whatever is not flushed is
// dropped, so a writer that throws half-way leaves nothing half-encoded behind.
class Sys_TypedOutBuffer {
public:
    explicit Sys_TypedOutBuffer(Sys_TypedOutStream& ioStream) : mStream(ioStream) {}
    Sys_TypedOutBuffer(const Sys_TypedOutBuffer&) = delete;
    Sys_TypedOutBuffer& operator=(const Sys_TypedOutBuffer&) = delete;

    void Write(bool iValue) { Write(static_cast<int8_t>(iValue ? 1 : 0)); }
    void Write(int8_t iValue) { Put(iValue); }
    void Write(int16_t iValue) { Put(iValue); }
    void Write(int32_t iValue) { Put(iValue); }
    void Write(int64_t iValue) { Put(iValue); }
    void Flush();

    // Little-endian two's complement, whatever the host's byte order.
    template <class T>
    static void Encode(T iValue, uint8_t* oBytes) {
        auto bits = static_cast<std::make_unsigned_t<T>>(iValue);
        for (size_t i = 0; i < sizeof(T); ++i) oBytes[i] = static_cast<uint8_t>(bits >> (8 * i));
    }

private:
    template <class T>
    void Put(T iValue) {
        if (mUsed + sizeof(T) > sizeof mBytes) Flush();
        Encode(iValue, mBytes + mUsed);
        mUsed += sizeof(T);
    }

    Sys_TypedOutStream& mStream;
    size_t mUsed = 0;
    uint8_t mBytes[4096];
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

// Reads a record of fixed-width fields with one bounds check and one stream call, then hands out
// its fields in the typed streams' encoding, in order: for readers of many small records. A
// record cut short throws Sys_StreamException as a whole, before any field of it is used.
class Sys_TypedInRecord {
public:
    static constexpr size_t kMaxBytes = 64;
    Sys_TypedInRecord(Sys_TypedInStream& ioStream, size_t iSize);

    template <class T>
    T Get() {
        static_assert(std::is_integral_v<T>);
        if (sizeof(T) > mSize - mUsed) FailPastEnd();  // a reader asking for more than it read
        const T value = Decode<T>(mBytes + mUsed);
        mUsed += sizeof(T);
        return value;
    }

    // Little-endian two's complement, whatever the host's byte order.
    template <class T>
    static T Decode(const uint8_t* iBytes) {
        std::make_unsigned_t<T> bits = 0;
        for (size_t i = 0; i < sizeof(T); ++i) bits |= static_cast<std::make_unsigned_t<T>>(iBytes[i]) << (8 * i);
        return static_cast<T>(bits);
    }

private:
    [[noreturn]] static void FailPastEnd();
    uint8_t mBytes[kMaxBytes];
    size_t mSize;
    size_t mUsed = 0;
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
