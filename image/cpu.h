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

// Compiles the functions between QEL_TARGET_BEGIN("features") and
// QEL_TARGET_END of a file for those instruction-set features; callers reach
// them only after SimdRuns says the processor has them.
#define QEL_PRAGMA(text) _Pragma(#text)
#if defined(__clang__)
#define QEL_TARGET_BEGIN(features) \
    QEL_PRAGMA(clang attribute push(__attribute__((target(features))), apply_to = function))
#define QEL_TARGET_END QEL_PRAGMA(clang attribute pop)
#else
#define QEL_TARGET_BEGIN(features) QEL_PRAGMA(GCC push_options) QEL_PRAGMA(GCC target(features))
#define QEL_TARGET_END QEL_PRAGMA(GCC pop_options)
#endif
