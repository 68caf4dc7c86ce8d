// The module through its interfaces, as the stress driver calls it: the
// fuzzer's bytes choose the operation, the images (every depth, sizes 0 to
// 64, padded and bottom-up rows, planes, palettes) and the parameters, and the
// driver's checks follow every call (guard bytes, reference counts, untouched
// inputs). A failed check ends the program, which libFuzzer reports.
#include <cstdint>
#include <cstdio>

#include "stress/stress_check.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    qeltest::TestHost();
    std::snprintf(stress::gCallLabel, sizeof(stress::gCallLabel), "the fuzzer's input");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    stress::RunCall(stress::Draw(data, size));
    return 0;
}
