// Builds expected stream bytes by hand, so tests compare whole streamed forms against the
// block layout rather than against what the writer happens to produce.
// Layout of a block (little-endian): tag length (1), tag, version (2), body size (8), body.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

using ByteVector = std::vector<uint8_t>;

// Appends the low iSize bytes of iValue, little-endian.
inline void Append(ByteVector& ioBytes, int64_t iValue, int iSize) {
    for (int i = 0; i < iSize; ++i) ioBytes.push_back(static_cast<uint8_t>(iValue >> (8 * i)));
}

inline void Append(ByteVector& ioBytes, const ByteVector& iMore) { ioBytes.insert(ioBytes.end(), iMore.begin(), iMore.end()); }

inline ByteVector Block(const char* iTag, int16_t iVersion, const ByteVector& iBody) {
    ByteVector bytes;
    const size_t tagLength = std::strlen(iTag);
    Append(bytes, static_cast<int64_t>(tagLength), 1);
    for (size_t i = 0; i < tagLength; ++i) bytes.push_back(static_cast<uint8_t>(iTag[i]));
    Append(bytes, iVersion, 2);
    Append(bytes, static_cast<int64_t>(iBody.size()), 8);
    Append(bytes, iBody);
    return bytes;
}

// The body of a sysex event's block: flag, 32-bit payload length, payload.
inline ByteVector SysexBody(int8_t iFlag, int32_t iLength, const ByteVector& iPayload) {
    ByteVector body;
    Append(body, iFlag, 1);
    Append(body, iLength, 4);
    Append(body, iPayload);
    return body;
}

inline ByteVector SysexBlock(const ByteVector& iPayload) {
    return Block("", 1, SysexBody(0, static_cast<int32_t>(iPayload.size()), iPayload));
}

// iCount 7-bit payload bytes, varied enough that a misplaced byte shows.
inline ByteVector Payload(size_t iCount, uint8_t iFirst = 3) {
    ByteVector payload(iCount);
    for (size_t i = 0; i < iCount; ++i) payload[i] = static_cast<uint8_t>((iFirst + i * 7) & 0x7F);
    return payload;
}
