// One of qel's file readers fed the fuzzer's bytes as an open file, as
// LoadImageFile hands a file over, with a pixel limit in force. Built once per
// reader: QEL_FUZZ_READER names its function in tools/codecs.h (ReadPng, ReadTiff, ...).
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <type_traits>

#include "support/test_image.h"
#include "tools/codecs.h"

namespace {

// A hostile header may ask for this many pixels and no more (4 MiB at 32 bits),
// so that each input stays quick under the sanitizers.
constexpr long long kPixelLimit = 1 << 20;

// Each reader as LoadImageFile calls it: the first page or frame, metadata
// collected where the reader gives any.
template <class Reader>
SmartPtr<IQEL> Read(Reader read, FILE* file, std::string* error) {
    using qeltool::ImageMetadata;
    const qel::Host& host = qeltest::TestHost();
    ImageMetadata metadata;
    if constexpr (std::is_invocable_v<Reader, FILE*, const qel::Host&, long long, std::string*>)
        return read(file, host, kPixelLimit, error);
    else if constexpr (std::is_invocable_v<Reader, FILE*, const qel::Host&, long long, ImageMetadata*,
                                           std::string*>)
        return read(file, host, kPixelLimit, &metadata, error);
    else
        return read(file, host, kPixelLimit, 0, &metadata, error);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    qeltest::TestHost();  // the runtime is loaded (and instrumented) before the first input
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;  // qel refuses an empty file before any reader sees it
    // A file in memory with a descriptor of its own, as qel's files have:
    // the TIFF reader works through the descriptor, which fmemopen lacks.
    const int descriptor = memfd_create("fuzz-input", 0);
    if (descriptor < 0 || write(descriptor, data, size) != static_cast<ssize_t>(size)) std::abort();
    FILE* file = fdopen(descriptor, "rb");
    if (file == nullptr) std::abort();
    std::rewind(file);
    std::string error;
    SmartPtr<IQEL> image = Read(qeltool::QEL_FUZZ_READER, file, &error);
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
