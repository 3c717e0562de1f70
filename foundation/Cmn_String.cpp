#include "Cmn_String.h"

std::string Cmn_Int32ToString(int32_t iValue) { return std::to_string(iValue); }
