// The Standard MIDI File reader (see SmfRoundTrip in FuzzCodecs.h for the property).
#include "FuzzCodecs.h"
#include "Sys_RefCount.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* iData, size_t iSize) {
    VelaFuzz::SmfRoundTrip(iData, iSize);
    Sys_DelayedDeletionObject::DrainDelayedDeletions();  // released long sysex data, as in Block_fuzz.cpp
    return 0;
}
