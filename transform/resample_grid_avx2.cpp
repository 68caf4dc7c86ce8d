// The vector step of Resample's grid sum: 24- and 32-bit images summed for
// eight output pixels at once where the processor has AVX2.
#include <cstddef>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "image/cpu.h"
#include "transform/resample_grid_plan.h"

namespace {

// Two pixels' blue, green, red and alpha, as sums, weights or taps; four
// pairs make the group of eight output pixels summed together.
typedef float PixelQuad __attribute__((vector_size(16)));
typedef float PixelPair __attribute__((vector_size(32)));
typedef int ChannelPair __attribute__((vector_size(32)));

}  // namespace

#if defined(__x86_64__)
// Everything from here to QEL_TARGET_END is compiled for AVX2 and reached
// only after the run-time check; the build itself assumes SSE2, where
// 8-float vectors would be split in two.
QEL_TARGET_BEGIN("avx2")

namespace {

inline void LoadPair(PixelPair& pair, const float* row, const int* offsets) {
    PixelQuad first, second;
    std::memcpy(&first, row + offsets[0], sizeof first);
    std::memcpy(&second, row + offsets[1], sizeof second);
    pair = __builtin_shufflevector(first, second, 0, 1, 2, 3, 4, 5, 6, 7);
}

// Both pixels of the pair read the same tap: one load fills both halves.
inline void LoadShared(PixelPair& pair, const float* row, const int* offsets) {
    pair =
        reinterpret_cast<PixelPair>(_mm256_broadcast_ps(reinterpret_cast<const __m128*>(row + offsets[0])));
}

// A pair's sums finished as the sampler finishes one: above 255 gives 255,
// below 0 gives 0, else truncation toward zero.
inline __m256i ChannelsOf(const PixelPair& sum) {
    const ChannelPair high = {255, 255, 255, 255, 255, 255, 255, 255}, low = {};
    ChannelPair channels = __builtin_convertvector(sum, ChannelPair);
    channels = sum > 255.0f ? high : channels;
    channels = sum < 0.0f ? low : channels;
    return reinterpret_cast<__m256i>(channels);
}

// The eight pixels of a group written at once: 32 bytes, or 24 as one
// 16-byte and one 8-byte store, never past the group's last pixel. The
// channels are already within 0-255, so the saturating packs only narrow.
inline void StoreGroup(const PixelPair& sum0, const PixelPair& sum1, const PixelPair& sum2,
                       const PixelPair& sum3, unsigned char* to, int bytes) {
    // Packing works within 128-bit halves: the bytes come out as pixels
    // 0 2 4 6 | 1 3 5 7 and one dword permute puts them in order.
    const __m256i words01 = _mm256_packs_epi32(ChannelsOf(sum0), ChannelsOf(sum1));
    const __m256i words23 = _mm256_packs_epi32(ChannelsOf(sum2), ChannelsOf(sum3));
    const __m256i interleaved = _mm256_packus_epi16(words01, words23);
    const __m256i pixels =
        _mm256_permutevar8x32_epi32(interleaved, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
    if (bytes == 4) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), pixels);
        return;
    }
    const __m256i dropFourth = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1, 0, 1,
                                                2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
    const __m256i packed = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(pixels, dropFourth),
                                                       _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm256_castsi256_si128(packed));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to + 16), _mm256_extracti128_si256(packed, 1));
}

// Each lane runs the sampler's sum for its pixel and channel: over tap rows,
// then taps, weight = column weight x row weight, sum += weight x tap.
// `kGroups` groups are summed side by side, four pairs each, so that enough
// independent sums are in flight to hide the latency of the additions. With
// `kProducts` the weights come already multiplied: the same float product,
// taken once per kind of group instead of once per group.
template <int kTaps, bool kShared, bool kProducts, int kGroups>
inline void SumGroupChunk(const InteriorRow<kTaps>& row, int n) {
    constexpr size_t kColumnBlock = static_cast<size_t>(kTaps) * kGroupPixels * 4;
    const int* offsets[kGroups];
    const float* groupWeights[kGroups];
    PixelPair sum[kGroups][4];
#pragma GCC unroll 2
    for (int g = 0; g < kGroups; ++g) {
        offsets[g] = row.offsets + static_cast<size_t>(n + g) * kGroupPixels;
        groupWeights[g] = kProducts ? row.products + row.weightKinds[n + g] * kTaps * kColumnBlock
                                    : row.weights + (n + g) * kColumnBlock;
#pragma GCC unroll 4
        for (int p = 0; p < 4; ++p) sum[g][p] = PixelPair{};
    }
    for (int j = 0; j < kTaps; ++j) {
        const float* taps = row.taps[j];
        const float rowWeight = row.rowWeights[j];
        const size_t weightStart = kProducts ? j * kColumnBlock : 0;
        for (int i = 0; i < kTaps; ++i, taps += 4)
#pragma GCC unroll 2
            for (int g = 0; g < kGroups; ++g)
#pragma GCC unroll 4
                for (int p = 0; p < 4; ++p) {
                    PixelPair tap, weight;
                    if (kShared)
                        LoadShared(tap, taps, offsets[g] + 2 * p);
                    else
                        LoadPair(tap, taps, offsets[g] + 2 * p);
                    std::memcpy(&weight, groupWeights[g] + weightStart + 32 * i + 8 * p, sizeof weight);
                    if (kProducts)
                        sum[g][p] += weight * tap;
                    else
                        sum[g][p] += (weight * rowWeight) * tap;
                }
    }
#pragma GCC unroll 2
    for (int g = 0; g < kGroups; ++g)
        StoreGroup(sum[g][0], sum[g][1], sum[g][2], sum[g][3],
                   row.out + static_cast<ptrdiff_t>(row.firstPixels[n + g]) * row.bytes, row.bytes);
}

template <int kTaps, bool kShared, bool kProducts>
inline void SumGroups(const InteriorRow<kTaps>& row, int from, int to) {
    int n = from;
    for (; n + 2 <= to; n += 2) SumGroupChunk<kTaps, kShared, kProducts, 2>(row, n);
    if (n < to) SumGroupChunk<kTaps, kShared, kProducts, 1>(row, n);
}

template <int kTaps>
inline void SumRow(const InteriorRow<kTaps>& row) {
    const int unshared = row.firstGroup > row.sharedCount ? row.firstGroup : row.sharedCount;
    if (row.products != nullptr) {
        SumGroups<kTaps, true, true>(row, row.firstGroup, row.sharedCount);
        SumGroups<kTaps, false, true>(row, unshared, row.groupCount);
    } else {
        SumGroups<kTaps, true, false>(row, row.firstGroup, row.sharedCount);
        SumGroups<kTaps, false, false>(row, unshared, row.groupCount);
    }
}

}  // namespace

void SumGroupsAvx2(const InteriorRow<4>& row) { SumRow(row); }
void SumGroupsAvx2(const InteriorRow<12>& row) { SumRow(row); }

QEL_TARGET_END
#else
void SumGroupsAvx2(const InteriorRow<4>&) {}
void SumGroupsAvx2(const InteriorRow<12>&) {}
#endif
