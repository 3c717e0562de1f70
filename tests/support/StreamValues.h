// Reads one fixed-width value from a typed stream and returns it, so a test can check a field
// where it reads it: EXPECT_EQ(ReadValue<int32_t>(in), 7).
#pragma once

#include "Sys_TypedStream.h"

template <class TValue>
TValue ReadValue(Sys_TypedInStream& ioIn) {
    TValue value{};
    ioIn.Read(value);
    return value;
}
