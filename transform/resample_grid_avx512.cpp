// The wider vector step of Resample's grid sum: sliding groups of eight
// 24- or 32-bit output pixels, two pairs a register, where the processor has
// AVX-512.
#include <cstddef>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "image/cpu.h"
#include "transform/resample_grid_plan.h"

#if defined(__x86_64__)
QEL_TARGET_BEGIN("avx512f,avx512bw,avx512vbmi")

namespace {

// Taps k and k + 1 of a sliding group as two pairs: tap k for pixels 0 and 1,
// tap k + 1 for pixels 2 and 3. Pixels 4 to 7 read the same register two
// taps later, so each tap step loads one new register per group.
inline __m512 PairedTaps(const float* taps, int k) {
    const __m512 two = _mm512_maskz_loadu_ps(0x00FF, taps + 4 * k);
    return _mm512_maskz_shuffle_f32x4(0xFFFF, two, two, _MM_SHUFFLE(1, 1, 0, 0));
}

// Writes the eight pixels of a group: each lane finished as the sampler
// finishes a channel (above 255 gives 255, below 0 gives 0, else truncation
// toward zero), the low byte of every channel gathered, 3 or 4 a pixel.
inline void StoreGroup(const __m512 (&sum)[2], unsigned char* to, int bytes, __m512i order) {
    __m512i level[2];
    for (int h = 0; h < 2; ++h) {
        level[h] = _mm512_maskz_cvttps_epi32(0xFFFF, sum[h]);
        level[h] = _mm512_mask_mov_epi32(
            level[h], _mm512_cmp_ps_mask(sum[h], _mm512_set1_ps(255.0f), _CMP_GT_OQ), _mm512_set1_epi32(255));
        level[h] = _mm512_mask_mov_epi32(
            level[h], _mm512_cmp_ps_mask(sum[h], _mm512_setzero_ps(), _CMP_LT_OQ), _mm512_setzero_si512());
    }
    const __m512i bytesOf = _mm512_permutex2var_epi8(level[0], order, level[1]);
    _mm512_mask_storeu_epi8(to, (__mmask64{1} << (8 * bytes)) - 1, bytesOf);
}

// Each lane runs the sampler's sum for its pixel and channel: over tap rows,
// then taps, weight = column weight x row weight, sum += weight x tap, for
// `kGroups` groups side by side. With `kProducts` the weights come already
// multiplied, per kind of group; with `kOneKind` the groups are all of the
// first one's kind, and its weights are loaded once for all.
template <int kTaps, bool kProducts, int kGroups, bool kOneKind = false>
inline void SumSlidingChunk(const InteriorRow<kTaps>& row, int n, __m512i order) {
    constexpr size_t kColumnBlock = static_cast<size_t>(kTaps) * kGroupPixels * 4;
    int first[kGroups];
    const float* groupWeights[kGroups];
    __m512 sum[kGroups][2];
#pragma GCC unroll 4
    for (int g = 0; g < kGroups; ++g) {
        first[g] = row.offsets[static_cast<size_t>(n + g) * kGroupPixels];
        groupWeights[g] = kProducts ? row.products + row.weightKinds[n + g] * kTaps * kColumnBlock
                                    : row.weights + (n + g) * kColumnBlock;
        sum[g][0] = sum[g][1] = _mm512_setzero_ps();
    }
    for (int j = 0; j < kTaps; ++j) {
        const __m512 rowWeight = _mm512_set1_ps(row.rowWeights[j]);
        const size_t weightStart = kProducts ? j * kColumnBlock : 0;
        __m512 early[kGroups], late[kGroups];  // taps i, i + 1 and i + 1, i + 2 of pairs 0 and 1
#pragma GCC unroll 4
        for (int g = 0; g < kGroups; ++g) {
            early[g] = PairedTaps(row.taps[j] + first[g], 0);
            late[g] = PairedTaps(row.taps[j] + first[g], 1);
        }
#pragma GCC unroll 12
        for (int i = 0; i < kTaps; ++i)
#pragma GCC unroll 4
            for (int g = 0; g < kGroups; ++g) {
                const __m512 ahead = PairedTaps(row.taps[j] + first[g], i + 2);
                const float* weight = groupWeights[kOneKind ? 0 : g] + weightStart + 32 * i;
                __m512 low = _mm512_loadu_ps(weight), high = _mm512_loadu_ps(weight + 16);
                if (!kProducts) {
                    low = _mm512_mul_ps(low, rowWeight);
                    high = _mm512_mul_ps(high, rowWeight);
                }
                sum[g][0] = _mm512_add_ps(sum[g][0], _mm512_mul_ps(low, early[g]));
                sum[g][1] = _mm512_add_ps(sum[g][1], _mm512_mul_ps(high, ahead));
                early[g] = late[g];
                late[g] = ahead;
            }
    }
#pragma GCC unroll 4
    for (int g = 0; g < kGroups; ++g)
        StoreGroup(sum[g], row.out + static_cast<ptrdiff_t>(row.firstPixels[n + g]) * row.bytes, row.bytes,
                   order);
}

template <int kTaps, bool kProducts>
inline void SumSliding(const InteriorRow<kTaps>& row) {
    // Output byte m is channel m % bytes of pixel m / bytes: the low byte of int (m / bytes) * 4 + m % bytes.
    alignas(64) unsigned char lowBytes[64] = {};
    for (int m = 0; m < 8 * row.bytes; ++m)
        lowBytes[m] = static_cast<unsigned char>(4 * (m / row.bytes * 4 + m % row.bytes));
    const __m512i order = _mm512_load_si512(lowBytes);
    int n = 0;
    for (; n + 4 <= row.slidingCount; n += 4) {
        const int* kinds = row.weightKinds + n;
        if (kProducts && kinds[1] == kinds[0] && kinds[2] == kinds[0] && kinds[3] == kinds[0])
            SumSlidingChunk<kTaps, kProducts, 4, true>(row, n, order);
        else
            SumSlidingChunk<kTaps, kProducts, 4>(row, n, order);
    }
    for (; n < row.slidingCount; ++n) SumSlidingChunk<kTaps, kProducts, 1>(row, n, order);
}

template <int kTaps>
inline void SumRow(const InteriorRow<kTaps>& row) {
    if (row.products != nullptr)
        SumSliding<kTaps, true>(row);
    else
        SumSliding<kTaps, false>(row);
}

}  // namespace

void SumSlidingGroupsAvx512(const InteriorRow<4>& row) { SumRow(row); }
void SumSlidingGroupsAvx512(const InteriorRow<12>& row) { SumRow(row); }

QEL_TARGET_END
#else
void SumSlidingGroupsAvx512(const InteriorRow<4>&) {}
void SumSlidingGroupsAvx512(const InteriorRow<12>&) {}
#endif
