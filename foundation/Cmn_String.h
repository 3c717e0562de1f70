// Small string conversions shared by the foundation and the library. Not for real-time use.
#pragma once

#include <cstdint>
#include <string>

// Decimal text of a 32-bit value, with a leading '-' for negatives ("-2147483648" included).
std::string Cmn_Int32ToString(int32_t iValue);
