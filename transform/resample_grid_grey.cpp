// The vector step of Resample's grid sum for 8-bit images: sixteen output
// pixels a register, one lane a pixel, where the processor has AVX-512.
#include <cstddef>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "image/cpu.h"
#include "transform/resample_grid_plan.h"

#if defined(__x86_64__)
QEL_TARGET_BEGIN("avx512f,avx512bw")

namespace {

// Each lane runs the sampler's sum for its pixel: over tap rows, then taps,
// weight = column weight x row weight, sum += weight x tap. `kBlocks`
// blocks of sixteen pixels are summed side by side, so their additions
// overlap.
template <int kTaps, int kBlocks, bool kNarrow>
inline void SumBlocks(const GreyRow<kTaps>& row, int x) {
    const int first = x / 16;
    __m512 sum[kBlocks];
    __m512i lanes[kBlocks];
#pragma GCC unroll 4
    for (int b = 0; b < kBlocks; ++b) {
        sum[b] = _mm512_setzero_ps();
        lanes[b] = _mm512_loadu_si512(row.lanes + 16 * (first + b));
    }
    for (int j = 0; j < kTaps; ++j) {
        const __m512 rowWeight = _mm512_set1_ps(row.rowWeights[j]);
        const float* weights = row.columnWeights + x;
        for (int i = 0; i < kTaps; ++i, weights += row.run)
#pragma GCC unroll 4
            for (int b = 0; b < kBlocks; ++b) {
                const float* window = row.taps[j] + row.windows[first + b] + i;
                const __m512 taps =
                    kNarrow ? _mm512_maskz_permutexvar_ps(0xFFFF, lanes[b], _mm512_loadu_ps(window))
                            : _mm512_permutex2var_ps(_mm512_loadu_ps(window), lanes[b],
                                                     _mm512_loadu_ps(window + 16));
                const __m512 weight = _mm512_mul_ps(_mm512_loadu_ps(weights + 16 * b), rowWeight);
                sum[b] = _mm512_add_ps(sum[b], _mm512_mul_ps(weight, taps));
            }
    }
    // Finished as the sampler finishes a channel: above 255 gives 255, below
    // 0 gives 0, else truncation toward zero.
#pragma GCC unroll 4
    for (int b = 0; b < kBlocks; ++b) {
        __m512i level = _mm512_maskz_cvttps_epi32(0xFFFF, sum[b]);
        level = _mm512_mask_mov_epi32(level, _mm512_cmp_ps_mask(sum[b], _mm512_set1_ps(255.0f), _CMP_GT_OQ),
                                      _mm512_set1_epi32(255));
        level = _mm512_mask_mov_epi32(level, _mm512_cmp_ps_mask(sum[b], _mm512_setzero_ps(), _CMP_LT_OQ),
                                      _mm512_setzero_si512());
        _mm_storeu_si128(reinterpret_cast<__m128i*>(row.out + x + 16 * b),
                         _mm512_maskz_cvtepi32_epi8(0xFFFF, level));
    }
}

template <int kTaps, bool kNarrow>
inline void SumBlocksOfRow(const GreyRow<kTaps>& row) {
    int x = 0;
    for (; x + 64 <= row.width; x += 64) SumBlocks<kTaps, 4, kNarrow>(row, x);
    for (; x < row.width; x += 16) SumBlocks<kTaps, 1, kNarrow>(row, x);
}

template <int kTaps>
inline void SumRow(const GreyRow<kTaps>& row) {
    if (row.narrow)
        SumBlocksOfRow<kTaps, true>(row);
    else
        SumBlocksOfRow<kTaps, false>(row);
}

}  // namespace

void SumGreyAvx512(const GreyRow<4>& row) { SumRow(row); }
void SumGreyAvx512(const GreyRow<12>& row) { SumRow(row); }

QEL_TARGET_END
#else
void SumGreyAvx512(const GreyRow<4>&) {}
void SumGreyAvx512(const GreyRow<12>&) {}
#endif
