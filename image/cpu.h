// The one choice of vector instructions every fast path asks: the widest
// tier the processor runs, capped by the environment variable QEL_SIMD.
// Every tier gives the same bytes; the cap only decides which code runs, so
// that each tier can be exercised on one machine.
#pragma once

#include <algorithm>

// Ordered: each tier includes the ones below it.
enum class SimdTier {
    Scalar,  // no explicit vector steps (the compiler may still vectorise plain loops)
    Sse2,    // the 16-byte steps every x86-64 processor runs
    Ssse3,   // byte shuffles
    Avx2,    // 32-byte steps, gathers
    Avx512   // 64-byte steps with byte permutes (AVX-512 F, BW and VBMI)
};

// What the processor runs, found once.
SimdTier ProcessorSimdTier();

// The tier in use: the processor's, lowered to QEL_SIMD when that names a
// lower tier. Read once, at first use; unknown values are ignored.
SimdTier ActiveSimdTier();

// `processor` capped by a QEL_SIMD value (null or unknown: no cap).
SimdTier CapSimdTier(SimdTier processor, const char* cap);

// "scalar", "sse2", "ssse3", "avx2" or "avx512", as QEL_SIMD spells them.
const char* SimdTierName(SimdTier tier);

// Whether a step needing `needed` may run for a call that allows at most `asked`.
inline bool SimdRuns(SimdTier needed, SimdTier asked = SimdTier::Avx512) {
    return needed <= std::min(asked, ActiveSimdTier());
}
