// Stream helpers for tests: read one fixed-width value where it is checked
// (EXPECT_EQ(ReadValue<int32_t>(in), 7)), stream an object out to bytes, or read bytes into an
// object and learn where the read stopped.
#pragma once

#include <cstdint>
#include <vector>

#include "Sys_TypedStream.h"

template <class TValue>
TValue ReadValue(Sys_TypedInStream& ioIn) {
    TValue value{};
    ioIn.Read(value);
    return value;
}

template <class TObject>
std::vector<uint8_t> StreamedBytes(const TObject& iObject) {
    Sys_MemoryOutStream out;
    iObject.StreamOut(out);
    return out.GetBytes();
}

// Streams iBytes into ioObject; answers the position the read ended at.
template <class TObject>
int64_t StreamInFrom(const std::vector<uint8_t>& iBytes, TObject& ioObject) {
    Sys_MemoryInStream in(iBytes.data(), iBytes.size());
    ioObject.StreamIn(in);
    return in.GetPos();
}
