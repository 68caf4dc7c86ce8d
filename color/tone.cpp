// Tone and lookup operations: Lut, Light, Gamma, Negative, ShiftRGB, GrayScale, Threshold.
#include <immintrin.h>

#include <cmath>
#include <cstring>

#include "color/color_kernels.h"
#include "color/color_transform.h"
#include "image/destination.h"
#include "module/host_services.h"

namespace color {

void InvertColourBytes(const ImageView& image) {
    if (!HasPixels(image)) return;
    if (image.bitCount == 8 || image.bitCount == 24) {
        const int rowBytes = image.width * (image.bitCount / 8);
        for (int y = 0; y < image.height; ++y) {
            unsigned char* row = image.Row(y);
            for (int i = 0; i < rowBytes; ++i) row[i] = static_cast<unsigned char>(~row[i]);
        }
    } else if (image.bitCount == 32) {
        for (int y = 0; y < image.height; ++y) {
            unsigned char* row = image.Row(y);
            for (int x = 0; x < image.width; ++x) {
                uint32_t pixel;  // blue, green, red, alpha in memory order
                std::memcpy(&pixel, row + 4 * x, 4);
                pixel ^= 0x00FFFFFFu;
                std::memcpy(row + 4 * x, &pixel, 4);
            }
        }
    }
}

ChannelShift::ChannelShift(int red, int green, int blue) {
    for (int value = 0; value < 256; ++value) {
        red_[value] = ClampToByte(int64_t{value} + red);
        green_[value] = ClampToByte(int64_t{value} + green);
        blue_[value] = ClampToByte(int64_t{value} + blue);
    }
}

namespace {

// The channel mean (blue + green + red) / 3 of sums up to 765, as a multiply
// by 43691 / 2^17: the error stays below 0.002, too small to cross a whole
// number, so the quotient is exact.
__attribute__((target("ssse3"))) inline __m128i MeanOfSums(__m128i sums) {
    return _mm_srli_epi16(_mm_mulhi_epu16(sums, _mm_set1_epi16(static_cast<short>(43691))), 1);
}

// 24 bits, eight pixels (24 bytes) a step: channels spread to 16-bit lanes by
// byte shuffles of two overlapping loads, the mean packed back and each
// byte shuffled out three times. Returns the pixels done; the caller does
// the rest.
__attribute__((target("ssse3"))) int GreyRow24Vector(const unsigned char* in, unsigned char* out, int width) {
    // Channel c of pixels 0-4 from the first load (bytes 0-15), of pixels
    // 5-7 from the second (bytes 8-23); index -128 leaves a zero byte.
    const __m128i spread[3][2] = {
        {_mm_setr_epi8(0, -128, 3, -128, 6, -128, 9, -128, 12, -128, -128, -128, -128, -128, -128, -128),
         _mm_setr_epi8(-128, -128, -128, -128, -128, -128, -128, -128, -128, -128, 7, -128, 10, -128, 13,
                       -128)},
        {_mm_setr_epi8(1, -128, 4, -128, 7, -128, 10, -128, 13, -128, -128, -128, -128, -128, -128, -128),
         _mm_setr_epi8(-128, -128, -128, -128, -128, -128, -128, -128, -128, -128, 8, -128, 11, -128, 14,
                       -128)},
        {_mm_setr_epi8(2, -128, 5, -128, 8, -128, 11, -128, 14, -128, -128, -128, -128, -128, -128, -128),
         _mm_setr_epi8(-128, -128, -128, -128, -128, -128, -128, -128, -128, -128, 9, -128, 12, -128, 15,
                       -128)}};
    const __m128i tripleFirst = _mm_setr_epi8(0, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4, 5);
    const __m128i tripleLast = _mm_setr_epi8(5, 5, 6, 6, 6, 7, 7, 7, 0, 0, 0, 0, 0, 0, 0, 0);
    int x = 0;
    for (; x + 8 <= width; x += 8, in += 24, out += 24) {
        const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
        const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 8));
        __m128i sums = _mm_setzero_si128();
        for (int c = 0; c < 3; ++c)
            sums = _mm_add_epi16(sums, _mm_or_si128(_mm_shuffle_epi8(first, spread[c][0]),
                                                    _mm_shuffle_epi8(second, spread[c][1])));
        const __m128i means16 = MeanOfSums(sums);
        const __m128i means = _mm_packus_epi16(means16, means16);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_shuffle_epi8(means, tripleFirst));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 16), _mm_shuffle_epi8(means, tripleLast));
    }
    return x;
}

// 24 bits, 32 pixels (96 bytes) a step with AVX-512 VBMI: one two-register
// byte permute per channel spreads the channel into 16-bit lanes, one
// permute per output register repeats each mean three times. The permutes
// are the zero-masking forms with full masks: GCC 12's unmasked forms warn
// about an unset source.
__attribute__((target("avx512f,avx512bw,avx512vbmi"))) int GreyRow24Wide(const unsigned char* in,
                                                                         unsigned char* out, int width) {
    alignas(64) unsigned char channelIndex[3][64] = {}, tripleIndex[128] = {};
    for (int lane = 0; lane < 32; ++lane)
        for (int c = 0; c < 3; ++c) channelIndex[c][2 * lane] = static_cast<unsigned char>(3 * lane + c);
    // Output byte n holds the mean of pixel n / 3, the low byte of its lane.
    for (int n = 0; n < 96; ++n) tripleIndex[n] = static_cast<unsigned char>(2 * (n / 3));
    __m512i spread[3];
    for (int c = 0; c < 3; ++c) spread[c] = _mm512_load_si512(channelIndex[c]);
    const __m512i tripleFirst = _mm512_load_si512(tripleIndex);      // output bytes 0-63
    const __m512i tripleLast = _mm512_load_si512(tripleIndex + 64);  // output bytes 64-95
    const __mmask64 lowBytes = 0x5555555555555555ull, all = ~__mmask64{0};
    const __m512i third = _mm512_set1_epi16(static_cast<short>(43691));
    int x = 0;
    for (; x + 32 <= width; x += 32, in += 96, out += 96) {
        const __m512i first = _mm512_loadu_si512(in);
        const __m512i second = _mm512_maskz_loadu_epi8(0xFFFFFFFFull, in + 64);
        __m512i sums = _mm512_maskz_permutex2var_epi8(lowBytes, first, spread[0], second);
        sums = _mm512_add_epi16(sums, _mm512_maskz_permutex2var_epi8(lowBytes, first, spread[1], second));
        sums = _mm512_add_epi16(sums, _mm512_maskz_permutex2var_epi8(lowBytes, first, spread[2], second));
        const __m512i means = _mm512_srli_epi16(_mm512_mulhi_epu16(sums, third), 1);
        _mm512_storeu_si512(out, _mm512_maskz_permutexvar_epi8(all, tripleFirst, means));
        _mm512_mask_storeu_epi8(out + 64, 0xFFFFFFFFull,
                                _mm512_maskz_permutexvar_epi8(all, tripleLast, means));
    }
    return x;
}

// 8 bits, 32 pixels a step: the pixel's byte and the two after it widened to
// 16-bit lanes and interleaved, so that word multiply-adds give 117a + 601b
// and 306c in 32-bit lanes; the unpacks and the pack both work within
// 128-bit lanes, so the 32 shifted sums come out in pixel order. The loads
// reach two bytes past the step, as the scalar rule does.
__attribute__((target("avx512f,avx512bw"))) int GreyRow8Wide(const unsigned char* in, unsigned char* out,
                                                             int width) {
    const __m512i weightsFirstTwo = _mm512_set1_epi32(117 | 601 << 16), weightThird = _mm512_set1_epi32(306);
    const __m512i zero = _mm512_setzero_si512();
    const __mmask16 all = 0xFFFF;  // zero-masking forms, as above
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        const __m512i first =
            _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + x)));
        const __m512i second =
            _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + x + 1)));
        const __m512i third =
            _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + x + 2)));
        const __m512i sumsLow =
            _mm512_add_epi32(_mm512_madd_epi16(_mm512_unpacklo_epi16(first, second), weightsFirstTwo),
                             _mm512_madd_epi16(_mm512_unpacklo_epi16(third, zero), weightThird));
        const __m512i sumsHigh =
            _mm512_add_epi32(_mm512_madd_epi16(_mm512_unpackhi_epi16(first, second), weightsFirstTwo),
                             _mm512_madd_epi16(_mm512_unpackhi_epi16(third, zero), weightThird));
        const __m512i greys = _mm512_packus_epi32(_mm512_maskz_srli_epi32(all, sumsLow, 10),
                                                  _mm512_maskz_srli_epi32(all, sumsHigh, 10));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + x),
                            _mm512_maskz_cvtepi16_epi8(~__mmask32{0}, greys));
    }
    return x;
}

// 32 bits, four pixels a step: the mean in blue, green and red, alpha kept.
__attribute__((target("ssse3"))) int GreyRow32Vector(const unsigned char* in, unsigned char* out, int width) {
    const __m128i byteMask = _mm_set1_epi32(0xFF), alphaMask = _mm_set1_epi32(static_cast<int>(0xFF000000u));
    int x = 0;
    for (; x + 4 <= width; x += 4, in += 16, out += 16) {
        const __m128i pixels = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
        const __m128i sums = _mm_add_epi32(_mm_add_epi32(_mm_and_si128(pixels, byteMask),
                                                         _mm_and_si128(_mm_srli_epi32(pixels, 8), byteMask)),
                                           _mm_and_si128(_mm_srli_epi32(pixels, 16), byteMask));
        // Sums fit the low 16 bits of each lane, so the 16-bit multiply
        // leaves the high halves 0.
        const __m128i means = MeanOfSums(sums);
        const __m128i grey =
            _mm_or_si128(_mm_or_si128(means, _mm_slli_epi32(means, 8)), _mm_slli_epi32(means, 16));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out),
                         _mm_or_si128(grey, _mm_and_si128(pixels, alphaMask)));
    }
    return x;
}

}  // namespace

void WriteGreyInto(const ImageView& source, const ImageView& grey, SimdTier widest) {
    if (!HasPixels(source)) return;
    const bool wide = SimdRuns(SimdTier::Avx512, widest);
    const bool vector = SimdRuns(SimdTier::Ssse3, widest);
    switch (source.bitCount) {
        case 8:
            // The weights sum to 1024. Each pixel is mixed with the two bytes
            // after it, so the last two pixels of a row read past its width:
            // the row's padding or the next row, and 0 past the image's end.
            for (int y = 0; y < source.height; ++y) {
                const unsigned char* in = source.Row(y);
                unsigned char* out = grey.Row(y);
                const ptrdiff_t held = source.End() - in;  // bytes from `in` on that are the image's
                const int inside = static_cast<int>(std::min<ptrdiff_t>(source.width, held - 2));
                const auto grey8 = [](int a, int b, int c) {
                    return static_cast<unsigned char>((117 * a + 601 * b + 306 * c) >> 10);
                };
                int x = wide ? GreyRow8Wide(in, out, inside) : 0;
                for (; x < inside; ++x) out[x] = grey8(in[x], in[x + 1], in[x + 2]);
                // At most the last two pixels, where the image may end.
                const auto at = [&](int n) { return n < held ? in[n] : 0; };
                for (; x < source.width; ++x) out[x] = grey8(in[x], at(x + 1), at(x + 2));
            }
            break;
        case 24:
            for (int y = 0; y < source.height; ++y) {
                const unsigned char* in = source.Row(y);
                unsigned char* out = grey.Row(y);
                int done = wide ? GreyRow24Wide(in, out, source.width) : 0;
                if (vector) done += GreyRow24Vector(in + 3 * done, out + 3 * done, source.width - done);
                in += 3 * done;
                out += 3 * done;
                for (int x = done; x < source.width; ++x, in += 3, out += 3)
                    out[0] = out[1] = out[2] = static_cast<unsigned char>((in[0] + in[1] + in[2]) / 3);
            }
            break;
        case 32:
            for (int y = 0; y < source.height; ++y) {
                const unsigned char* in = source.Row(y);
                unsigned char* out = grey.Row(y);
                const int done = vector ? GreyRow32Vector(in, out, source.width) : 0;
                in += 4 * done;
                out += 4 * done;
                for (int x = done; x < source.width; ++x, in += 4, out += 4) {
                    out[0] = out[1] = out[2] = static_cast<unsigned char>((in[0] + in[1] + in[2]) / 3);
                    out[3] = in[3];
                }
            }
            break;
        default:
            break;  // the new image keeps what Create gave it
    }
}

}  // namespace color

namespace {

// The truncation toward zero of `value`, clamped to a byte. Values that do
// not compare (NaN) become 0.
template <class Real>
unsigned char TruncateToByte(Real value) {
    if (value >= Real(256)) return 255;
    if (value > Real(-1)) return static_cast<unsigned char>(static_cast<int>(value));
    return 0;
}

}  // namespace

QResult CQELColorTransform::Lut(IQEL* image, unsigned char* table) {
    if (image == nullptr || table == nullptr) return QEL_E_FAIL;
    color::ApplyByteTable(ReadImageView(image), table);
    return QEL_OK;
}

QResult CQELColorTransform::Light(IQEL* image, int brightness, int contrast) {
    // Single precision throughout: the slope and offset are floats.
    const float slope = static_cast<float>(int64_t{contrast} + 100) / 100.0f;
    const float offset = static_cast<float>(int64_t{brightness} + 128);
    unsigned char table[256];
    for (int i = 0; i < 256; ++i) table[i] = TruncateToByte(static_cast<float>(i - 128) * slope + offset);
    return static_cast<IQELColorTransform*>(this)->Lut(image, table);
}

QResult CQELColorTransform::Gamma(IQEL* image, float gamma) {
    // The exponent is formed in single precision and only then widened; the
    // curve itself is evaluated in double.
    const double exponent = static_cast<double>(1.0f / gamma);
    const double scale = std::pow(255.0, exponent) / 255.0;
    unsigned char table[256];
    for (int i = 0; i < 256; ++i)
        table[i] = TruncateToByte(std::pow(static_cast<double>(i), exponent) / scale);
    return static_cast<IQELColorTransform*>(this)->Lut(image, table);
}

QResult CQELColorTransform::Negative(IQEL* image) {
    if (image == nullptr) return QEL_E_FAIL;
    color::InvertColourBytes(ReadImageView(image));
    return QEL_OK;
}

QResult CQELColorTransform::ShiftRGB(IQEL* image, int red, int green, int blue) {
    if (image == nullptr) return QEL_E_FAIL;
    color::ShiftChannels(ReadImageView(image), color::ChannelShift(red, green, blue));
    return QEL_OK;
}

QResult CQELColorTransform::GrayScale(IQEL* image) {
    if (image == nullptr) return QEL_E_FAIL;
    const ImageView source = ReadImageView(image);
    if (source.width <= 0 || source.height <= 0) return QEL_OK;

    // At 8, 24 and 32 bits every byte of every row is written below.
    const bool writesEveryByte =
        source.bits != nullptr && (source.bitCount == 8 || source.bitCount == 24 || source.bitCount == 32);
    const Destination grey = MakeDestination(ShapeOf(source), DestinationRoad::Collection,
                                             writesEveryByte ? Writes::EveryPixel : Writes::SomePixels);
    if (!grey.image) return QEL_E_FAIL;
    if (const ImageView* target = grey.Canvas()) color::WriteGreyInto(source, *target);

    // The source takes over the new image's content, also for bit counts
    // that were not written.
    SmartPtr<IQELImage> sourceImage = QueryAs<IQELImage>(image, IID_IQELImage);
    if (sourceImage) sourceImage->Assign(grey.image.Get(), 0);
    return QEL_OK;
}

QResult CQELColorTransform::Threshold(IQEL* image, int level) {
    if (image == nullptr) return QEL_E_FAIL;
    static_cast<IQELColorTransform*>(this)->GrayScale(image);
    // GrayScale may have replaced the pixel memory: read the image again.
    color::MapPixels(ReadImageView(image), color::BlackWhiteThreshold(level));
    return QEL_OK;
}
