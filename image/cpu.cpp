// Processor detection and the QEL_SIMD cap.
#include "image/cpu.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr SimdTier kTiers[] = {SimdTier::Scalar, SimdTier::Sse2, SimdTier::Ssse3, SimdTier::Avx2,
                               SimdTier::Avx512};

SimdTier DetectProcessorTier() {
#if defined(__x86_64__)
    __builtin_cpu_init();  // may run before libgcc's own initialiser
    if (!__builtin_cpu_supports("ssse3")) return SimdTier::Sse2;
    if (!__builtin_cpu_supports("avx2")) return SimdTier::Ssse3;
    if (!(__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
          __builtin_cpu_supports("avx512vbmi")))
        return SimdTier::Avx2;
    return SimdTier::Avx512;
#else
    return SimdTier::Scalar;
#endif
}

}  // namespace

const char* SimdTierName(SimdTier tier) {
    switch (tier) {
        case SimdTier::Scalar:
            return "scalar";
        case SimdTier::Sse2:
            return "sse2";
        case SimdTier::Ssse3:
            return "ssse3";
        case SimdTier::Avx2:
            return "avx2";
        case SimdTier::Avx512:
            return "avx512";
    }
    return "scalar";
}

SimdTier CapSimdTier(SimdTier processor, const char* cap) {
    if (cap == nullptr) return processor;
    for (SimdTier tier : kTiers)
        if (std::strcmp(cap, SimdTierName(tier)) == 0) return std::min(processor, tier);
    return processor;
}

SimdTier ProcessorSimdTier() {
    static const SimdTier tier = DetectProcessorTier();
    return tier;
}

SimdTier ActiveSimdTier() {
    static const SimdTier tier = CapSimdTier(ProcessorSimdTier(), std::getenv("QEL_SIMD"));
    return tier;
}
