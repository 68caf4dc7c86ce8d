// One of qel's file readers fed the fuzzer's bytes as an open file, as
// LoadImageFile hands a file over, with a pixel limit in force. Built once per
// reader: QEL_FUZZ_READER names its function (ReadPng, ReadJpeg, ...).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/test_image.h"
#include "tools/codecs.h"

namespace {

// A hostile header may ask for this many pixels and no more (4 MiB at 32 bits),
// so that each input stays quick under the sanitizers.
constexpr long long kPixelLimit = 1 << 20;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    qeltest::TestHost();  // the runtime is loaded (and instrumented) before the first input
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;  // qel refuses an empty file before any reader sees it
    FILE* file = fmemopen(const_cast<uint8_t*>(data), size, "rb");
    if (file == nullptr) std::abort();
    std::string error;
    SmartPtr<IQEL> image = qeltool::QEL_FUZZ_READER(file, qeltest::TestHost(), kPixelLimit, &error);
    std::fclose(file);
    if (!image) {
        // A refusal says why, on one line.
        if (error.empty() || error.find('\n') != std::string::npos) std::abort();
        return 0;
    }
    const qel::Pixels p = qel::PixelsOf(image.Get());
    if (p.width < 1 || p.height < 1 || static_cast<long long>(p.width) * p.height > kPixelLimit ||
        p.bits == nullptr)
        std::abort();
    return 0;
}
