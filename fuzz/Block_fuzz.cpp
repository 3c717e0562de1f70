// A fuzz target for one streamed block: built once per block, with VELA_FUZZ_CODEC naming the
// codec of FuzzCodecs.h. Every input must either fail with the library's exception or round-trip.
#include "Cmn_Assert.h"
#include "FuzzCodecs.h"
#include "Sys_RefCount.h"

// Writing back what was read may report odd values (a list's null event is asserted and
// written as a null flag); those reports are expected here and kept off the fuzzer's output.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    Cmn_Assert::SetHandler([](const char*, int) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* iData, size_t iSize) {
    VelaFuzz::RoundTrip<VelaFuzz::VELA_FUZZ_CODEC>(iData, iSize);
    // Released long sysex data waits for the host's housekeeping; do it now, so each input
    // frees what it allocated and the fuzzer's leak check sees a balanced run.
    Sys_DelayedDeletionObject::DrainDelayedDeletions();
    return 0;
}
