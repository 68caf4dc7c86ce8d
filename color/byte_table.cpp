// Byte table lookups (Lut and the tables built on it, and ShiftRGB's table per
// channel), a row of bytes at a time: 64 bytes a step with AVX-512 byte
// permutes, 32 with AVX2 byte shuffles, or one at a time, chosen once per call.
#include <immintrin.h>

#include <cstddef>

#include "color/color_kernels.h"
#include "color/wide_table.h"

namespace color {
namespace {

// Byte 3 of every 4-byte pixel is its alpha, which a 32-bit lookup keeps.
constexpr unsigned long long kColourBytesMask = 0x7777777777777777ull;

// `out` may be `in`; with kKeepAlpha every fourth byte is copied unchanged.
template <bool kKeepAlpha>
void LookupRowScalar(unsigned char* out, const unsigned char* in, size_t count,
                     const unsigned char table[256]) {
    for (size_t i = 0; i < count; ++i) out[i] = kKeepAlpha && i % 4 == 3 ? in[i] : table[in[i]];
}

// The last step loads and stores only the bytes left, so no tail loop is needed.
template <bool kKeepAlpha>
__attribute__((target("avx512f,avx512bw,avx512vbmi"))) void LookupRowAvx512(unsigned char* out,
                                                                            const unsigned char* in,
                                                                            size_t count,
                                                                            const unsigned char table[256]) {
    const WideTable wide = LoadWideTable(table);
    for (size_t i = 0; i < count; i += 64) {
        const __mmask64 lanes = count - i >= 64 ? ~0ull : (1ull << (count - i)) - 1;
        const __m512i bytes = _mm512_maskz_loadu_epi8(lanes, in + i);
        __m512i looked = LookUp(wide, bytes);
        // Rows start at pixel boundaries and steps are 64 bytes, so the
        // alpha positions are the same in every step.
        if (kKeepAlpha) looked = _mm512_mask_blend_epi8(kColourBytesMask, bytes, looked);
        _mm512_mask_storeu_epi8(out + i, lanes, looked);
    }
}

// Blue, green and red bytes of 3- or 4-byte pixels through their own tables,
// 64 pixels a step (kBytes registers): each register's bytes of channel c
// take table c's lookup, alpha bytes stay. Returns the pixels done.
template <int kBytes>
__attribute__((target("avx512f,avx512bw,avx512vbmi"))) int ChannelRowAvx512(unsigned char* row, int width,
                                                                            const WideTable tables[3]) {
    __mmask64 channelBytes[kBytes][3] = {};
    for (int k = 0; k < kBytes; ++k)
        for (int i = 0; i < 64; ++i)
            if ((64 * k + i) % kBytes < 3) channelBytes[k][(64 * k + i) % kBytes] |= 1ull << i;
    int x = 0;
    for (; x + 64 <= width; x += 64, row += 64 * kBytes)
        for (int k = 0; k < kBytes; ++k) {
            const __m512i bytes = _mm512_loadu_si512(row + 64 * k);
            __m512i looked = bytes;
            for (int c = 0; c < 3; ++c)
                looked = _mm512_mask_blend_epi8(channelBytes[k][c], looked, LookUp(tables[c], bytes));
            _mm512_storeu_si512(row + 64 * k, looked);
        }
    return x;
}

// Shuffles look up 16 entries by the low nibble and give 0 where the index
// has bit 7 set. Adding 16 x (8 - m) with saturation sets bit 7 exactly for
// high nibbles of m or more (within a half), so step m of a half adds in
// slice m - 1 of the table XOR slice m, and the XOR of all steps that stay
// below bit 7 leaves just the byte's own slice. The upper half is the same
// with bit 7 of the index flipped.
struct ShuffleSlices {
    __m256i lower[8], upper[8];
};

__attribute__((target("avx2"))) ShuffleSlices MakeShuffleSlices(const unsigned char table[256]) {
    ShuffleSlices slices;
    for (int half = 0; half < 2; ++half) {
        for (int m = 1; m <= 8; ++m) {
            alignas(16) unsigned char slice[16];
            for (int low = 0; low < 16; ++low) {
                const unsigned char below = table[128 * half + 16 * (m - 1) + low];
                const unsigned char at = m < 8 ? table[128 * half + 16 * m + low] : 0;
                slice[low] = static_cast<unsigned char>(below ^ at);
            }
            const __m256i both =
                _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(slice)));
            (half == 0 ? slices.lower : slices.upper)[m - 1] = both;
        }
    }
    return slices;
}

template <bool kKeepAlpha>
__attribute__((target("avx2"))) void LookupRowAvx2(unsigned char* out, const unsigned char* in, size_t count,
                                                   const unsigned char table[256]) {
    const ShuffleSlices slices = MakeShuffleSlices(table);
    const __m256i flip = _mm256_set1_epi8(static_cast<char>(0x80));
    const __m256i alpha = _mm256_set1_epi32(static_cast<int>(0xFF000000u));
    size_t i = 0;
    for (; i + 32 <= count; i += 32) {
        const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i));
        const __m256i flipped = _mm256_xor_si256(bytes, flip);
        __m256i looked = _mm256_setzero_si256();
        for (int m = 1; m <= 8; ++m) {
            const __m256i lift = _mm256_set1_epi8(static_cast<char>(16 * (8 - m)));
            looked = _mm256_xor_si256(
                looked, _mm256_shuffle_epi8(slices.lower[m - 1], _mm256_adds_epu8(bytes, lift)));
            looked = _mm256_xor_si256(
                looked, _mm256_shuffle_epi8(slices.upper[m - 1], _mm256_adds_epu8(flipped, lift)));
        }
        if (kKeepAlpha) looked = _mm256_blendv_epi8(looked, bytes, alpha);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), looked);
    }
    LookupRowScalar<kKeepAlpha>(out + i, in + i, count - i, table);
}

SimdTier LookupLanes(SimdTier widest) {
    return SimdRuns(SimdTier::Avx512, widest) ? SimdTier::Avx512
           : SimdRuns(SimdTier::Avx2, widest) ? SimdTier::Avx2
                                              : SimdTier::Scalar;
}

template <bool kKeepAlpha>
void LookupRow(unsigned char* out, const unsigned char* in, size_t count, const unsigned char table[256],
               SimdTier lanes) {
    if (lanes == SimdTier::Avx512)
        LookupRowAvx512<kKeepAlpha>(out, in, count, table);
    else if (lanes == SimdTier::Avx2)
        LookupRowAvx2<kKeepAlpha>(out, in, count, table);
    else
        LookupRowScalar<kKeepAlpha>(out, in, count, table);
}

}  // namespace

void LookupBytes(unsigned char* out, const unsigned char* in, size_t count, const unsigned char table[256],
                 SimdTier widest) {
    LookupRow<false>(out, in, count, table, LookupLanes(widest));
}

void ApplyByteTable(const ImageView& image, const unsigned char table[256], SimdTier widest) {
    if (!HasPixels(image)) return;
    const SimdTier lanes = LookupLanes(widest);
    if (image.bitCount == 8 || image.bitCount == 24) {
        const size_t rowBytes = static_cast<size_t>(image.width) * static_cast<size_t>(image.bitCount / 8);
        for (int y = 0; y < image.height; ++y)
            LookupRow<false>(image.Row(y), image.Row(y), rowBytes, table, lanes);
    } else if (image.bitCount == 32) {
        const size_t rowBytes = static_cast<size_t>(image.width) * 4;
        for (int y = 0; y < image.height; ++y)
            LookupRow<true>(image.Row(y), image.Row(y), rowBytes, table, lanes);
    }
}

void ShiftChannels(const ImageView& image, const ChannelShift& shift, SimdTier widest) {
    if (!HasPixels(image) || image.bitCount < 24 || !SimdRuns(SimdTier::Avx512, widest)) {
        MapPixels(image, shift);
        return;
    }
    const WideTable tables[3] = {LoadWideTable(shift.Table(0)), LoadWideTable(shift.Table(1)),
                                 LoadWideTable(shift.Table(2))};
    MapPixelsAfterWideRows(image, shift, [&](unsigned char* row, int width, auto bytes) {
        return ChannelRowAvx512<bytes()>(row, width, tables);
    });
}

}  // namespace color
