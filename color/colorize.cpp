// Colorize: tint to a hue and saturation with a blend weight.
#include <immintrin.h>

#include "color/color_kernels.h"
#include "color/color_transform.h"
#include "color/wide_table.h"

namespace color {

namespace {

// One channel of the lightness-saturation model at hue angle `angle` in
// degrees, scaled to 0..255 and truncated; only its lowest byte is kept.
unsigned char TintChannel(float low, float high, float angle) {
    float value;
    if (angle < 60.0f) {
        value = low + (high - low) * angle / 60.0f;
    } else if (angle < 180.0f) {
        value = high;
    } else if (angle < 240.0f) {
        value = low + (high - low) * (240.0f - angle) / 60.0f;
    } else {
        value = low;
    }
    return static_cast<unsigned char>(static_cast<int>(255.0f * value));
}

// Brings an angle into range by one turn. An angle of exactly 360 stays.
float WrapOnce(float angle) {
    if (angle > 360.0f) return angle - 360.0f;
    if (angle < 0.0f) return angle + 360.0f;
    return angle;
}

}  // namespace

ColorizeTint::ColorizeTint(unsigned char hue, unsigned char saturation, float blend) {
    if (!(blend >= 0.0f)) {
        blend = 0.0f;  // negative or not a number: keep the old colour
    } else if (blend > 1.0f) {
        blend = 1.0f;
    }
    // Compared in single precision, so a blend of 0.999 still mixes, with weight 255.
    if (blend > 0.999f) {
        newWeight_ = 256;  // the new colour replaces the old one
    } else {
        newWeight_ = static_cast<int>(blend * 256.0f);
    }
    oldWeight_ = 256 - newWeight_;

    const float s = static_cast<float>(saturation) / 255.0f;
    const float h = static_cast<float>(hue) * 360.0f / 255.0f;
    const float redAngle = WrapOnce(h + 120.0f);
    const float greenAngle = h > 360.0f ? h - 360.0f : h;
    const float blueAngle = WrapOnce(h - 120.0f);
    for (int lightness = 0; lightness < 256; ++lightness) {
        const float l = static_cast<float>(lightness) / 255.0f;
        const float high = l <= 0.5f ? (s + 1.0f) * l : (s + l) - s * l;
        const float low = (l + l) - high;
        if (s == 0.0f) {
            const auto grey = static_cast<unsigned char>(static_cast<int>(l * 255.0f));
            tintBlue_[lightness] = tintGreen_[lightness] = tintRed_[lightness] = grey;
        } else {
            tintRed_[lightness] = TintChannel(low, high, redAngle);
            tintGreen_[lightness] = TintChannel(low, high, greenAngle);
            tintBlue_[lightness] = TintChannel(low, high, blueAngle);
        }
    }
}

namespace {

// (tint x newWeight + old x oldWeight) >> 8 per byte, in 16-bit lanes: the
// weights sum to 256, so the sum stays below 65536. The unpacks and the pack
// both work within 128-bit lanes, so the bytes come back in order.
__attribute__((target("avx512f,avx512bw"))) inline __m512i MixBytes(__m512i tint, __m512i old,
                                                                    __m512i newWeight, __m512i oldWeight) {
    const __m512i zero = _mm512_setzero_si512();
    const __mmask32 all = ~__mmask32{0};  // zero-masking shifts: GCC 12's unmasked forms warn
    const __m512i low = _mm512_add_epi16(_mm512_mullo_epi16(_mm512_unpacklo_epi8(tint, zero), newWeight),
                                         _mm512_mullo_epi16(_mm512_unpacklo_epi8(old, zero), oldWeight));
    const __m512i high = _mm512_add_epi16(_mm512_mullo_epi16(_mm512_unpackhi_epi8(tint, zero), newWeight),
                                          _mm512_mullo_epi16(_mm512_unpackhi_epi8(old, zero), oldWeight));
    return _mm512_packus_epi16(_mm512_maskz_srli_epi16(all, low, 8), _mm512_maskz_srli_epi16(all, high, 8));
}

// 3- or 4-byte pixels, 64 a step (kBytes registers): byte permutes split the
// registers into blue, green and red planes and merge them back, alpha kept
// from the loaded bytes; the lightness (max + min + 1) >> 1 is the rounding
// byte average. Returns the pixels done; the caller does the rest.
template <int kBytes>
__attribute__((target("avx512f,avx512bw,avx512vbmi"))) int ColorizeRowWide(unsigned char* row, int width,
                                                                           const ColorizeTint& tint) {
    // Channel c of pixel j is byte kBytes * j + c of the step: below byte 128
    // from the first two registers, from there on from the others (masked in).
    alignas(64) unsigned char split[3][64], mergePair[kBytes][64], mergeRed[kBytes][64];
    __mmask64 fromLater[3] = {}, redBytes[kBytes] = {}, alphaBytes = 0;
    for (int c = 0; c < 3; ++c)
        for (int j = 0; j < 64; ++j) {
            const int at = kBytes * j + c;
            split[c][j] = static_cast<unsigned char>(at & 127);
            if (at >= 128) fromLater[c] |= 1ull << j;
        }
    // Output byte p of the step is channel p % kBytes of pixel p / kBytes:
    // blue and green from one two-register permute, red masked in from a
    // second, alpha (channel 3) from the loaded register.
    for (int k = 0; k < kBytes; ++k)
        for (int i = 0; i < 64; ++i) {
            const int p = 64 * k + i, pixel = p / kBytes, c = p % kBytes;
            mergePair[k][i] = static_cast<unsigned char>(c == 1 ? 64 + pixel : pixel);
            mergeRed[k][i] = static_cast<unsigned char>(pixel);
            if (c == 2) redBytes[k] |= 1ull << i;
            if (c == 3) alphaBytes |= 1ull << i;  // the same bytes in every register
        }
    const WideTable tables[3] = {LoadWideTable(tint.Tint(0)), LoadWideTable(tint.Tint(1)),
                                 LoadWideTable(tint.Tint(2))};
    const __m512i newWeight = _mm512_set1_epi16(static_cast<short>(tint.NewWeight()));
    const __m512i oldWeight = _mm512_set1_epi16(static_cast<short>(tint.OldWeight()));
    int x = 0;
    for (; x + 64 <= width; x += 64, row += 64 * kBytes) {
        __m512i in[kBytes];
        for (int k = 0; k < kBytes; ++k) in[k] = _mm512_loadu_si512(row + 64 * k);
        __m512i channel[3];
        for (int c = 0; c < 3; ++c) {
            const __m512i index = _mm512_load_si512(split[c]);
            const __m512i firstTwo = _mm512_permutex2var_epi8(in[0], index, in[1]);
            if constexpr (kBytes == 3)
                channel[c] = _mm512_mask_permutexvar_epi8(firstTwo, fromLater[c], index, in[2]);
            else
                channel[c] = _mm512_mask_blend_epi8(fromLater[c], firstTwo,
                                                    _mm512_permutex2var_epi8(in[2], index, in[3]));
        }
        const __m512i largest = _mm512_max_epu8(_mm512_max_epu8(channel[0], channel[1]), channel[2]);
        const __m512i smallest = _mm512_min_epu8(_mm512_min_epu8(channel[0], channel[1]), channel[2]);
        const __m512i lightness = _mm512_avg_epu8(largest, smallest);
        for (int c = 0; c < 3; ++c)
            channel[c] = MixBytes(LookUp(tables[c], lightness), channel[c], newWeight, oldWeight);
        for (int k = 0; k < kBytes; ++k) {
            const __m512i pair =
                _mm512_permutex2var_epi8(channel[0], _mm512_load_si512(mergePair[k]), channel[1]);
            __m512i merged =
                _mm512_mask_permutexvar_epi8(pair, redBytes[k], _mm512_load_si512(mergeRed[k]), channel[2]);
            if constexpr (kBytes == 4) merged = _mm512_mask_blend_epi8(alphaBytes, merged, in[k]);
            _mm512_storeu_si512(row + 64 * k, merged);
        }
    }
    return x;
}

}  // namespace

void ColorizePixels(const ImageView& image, const ColorizeTint& tint, SimdTier widest) {
    if (!HasPixels(image) || image.bitCount < 24 || !SimdRuns(SimdTier::Avx512, widest)) {
        MapPixels(image, tint);
        return;
    }
    MapPixelsAfterWideRows(image, tint, [&](unsigned char* row, int width, auto bytes) {
        return ColorizeRowWide<bytes()>(row, width, tint);
    });
}

}  // namespace color

QResult CQELColorTransform::Colorize(IQEL* image, unsigned char hue, unsigned char saturation, float blend) {
    if (image == nullptr) return QEL_E_FAIL;
    color::ColorizePixels(ReadImageView(image), color::ColorizeTint(hue, saturation, blend));
    return QEL_OK;
}
