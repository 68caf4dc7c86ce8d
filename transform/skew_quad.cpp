// Skew (shear about a pivot, nearest pixel) and Quad (quadrilateral to
// rectangle in 16.16 fixed point).
#include "transform/skew_quad.h"

#include <immintrin.h>

#include <climits>
#include <cmath>
#include <type_traits>

#include "image/cpu.h"
#include "image/pixel_kinds.h"
#include "module/host_services.h"
#include "transform/image_transform.h"

namespace {

// The depth pairs Skew draws with 16 pixels a step: the source's depth kept,
// or forced to 32 bits with alpha.
template <class SourceKind, class TargetKind>
constexpr bool kWideSkew = SourceKind::kBytes != 0 &&
                           (std::is_same_v<TargetKind, SourceKind> || std::is_same_v<TargetKind, BgraPixels>);

// Pixels x0 to x0 + 15 of the row whose rowShift is given, as the pixel loop
// of SkewKernel draws them: the coordinates in float lanes with the same
// operations, truncated (NaN and values beyond int give INT_MIN, which is
// outside), the inside pixels gathered, the rest `outside`. Gathers read
// whole 32-bit words ending at the pixel, or starting there near the row's
// start, so no read leaves the pixels of the row (needs rows of at least 4
// bytes). Returns how many columns it drew, a multiple of 16.
template <class SourceKind, class TargetKind>
__attribute__((target("avx512f,avx512bw,avx512vbmi"))) int SkewRowWide(const ImageView& source,
                                                                       const ImageView& target, int y,
                                                                       float rowShift,
                                                                       const SkewParams& params,
                                                                       uint32_t outside) {
    constexpr int kIn = SourceKind::kBytes;
    // Bytes before the pixel that a word ending at the pixel starts with.
    constexpr int kBack = 4 - kIn;
    // Zero-masking forms with full masks throughout: GCC 12's unmasked forms
    // warn about an unset source.
    constexpr __mmask16 kAll16 = 0xFFFF;
    constexpr __mmask8 kAll8 = 0xFF;
    const __m512i lanes = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    const __m512 shift = _mm512_set1_ps(rowShift), gain = _mm512_set1_ps(params.yGain);
    const __m512 row = _mm512_set1_ps(static_cast<float>(y));
    const __m512i pivot = _mm512_set1_epi32(params.xPivot);
    const __m512i width = _mm512_set1_epi32(source.width), height = _mm512_set1_epi32(source.height);
    const __m512i stride = _mm512_set1_epi64(source.stride);
    const __m512i outsideColour = _mm512_set1_epi32(static_cast<int>(outside));
    const __m512i marker = _mm512_set1_epi32(kOutsideAlpha),
                  opaque = _mm512_set1_epi32(static_cast<int>(0xFF000000u));
    // 24-bit output: the three low bytes of each of the 16 words, in order.
    alignas(64) unsigned char packIndex[64] = {};
    for (int n = 0; n < 48; ++n) packIndex[n] = static_cast<unsigned char>(4 * (n / 3) + n % 3);
    const __m512i pack = _mm512_load_si512(packIndex);
    unsigned char* out = target.Row(y);
    int x0 = 0;
    for (; x0 + 16 <= target.width; x0 += 16) {
        const __m512i x = _mm512_add_epi32(_mm512_set1_epi32(x0), lanes);
        const __m512 fx = _mm512_add_ps(_mm512_maskz_cvtepi32_ps(kAll16, x), shift);
        const __m512 fy = _mm512_add_ps(
            row, _mm512_mul_ps(_mm512_maskz_cvtepi32_ps(kAll16, _mm512_sub_epi32(x, pivot)), gain));
        const __m512i sx = _mm512_maskz_cvttps_epi32(kAll16, fx), sy = _mm512_maskz_cvttps_epi32(kAll16, fy);
        const __mmask16 inside = _mm512_cmplt_epu32_mask(sx, width) & _mm512_cmplt_epu32_mask(sy, height);
        // Words ending at the pixel, except in the first columns, where the
        // row's first word holds it.
        const __m512i at = _mm512_mullo_epi32(sx, _mm512_set1_epi32(kIn));
        const __mmask16 ending = kBack == 0 ? kAll16 : _mm512_cmpge_epi32_mask(sx, _mm512_set1_epi32(kBack));
        const __m512i start = _mm512_maskz_sub_epi32(ending, at, _mm512_set1_epi32(kBack));
        const __m512i low = _mm512_add_epi64(
            _mm512_maskz_mul_epi32(
                kAll8, _mm512_maskz_cvtepi32_epi64(kAll8, _mm512_maskz_extracti64x4_epi64(0xF, sy, 0)),
                stride),
            _mm512_maskz_cvtepi32_epi64(kAll8, _mm512_maskz_extracti64x4_epi64(0xF, start, 0)));
        const __m512i high = _mm512_add_epi64(
            _mm512_maskz_mul_epi32(
                kAll8, _mm512_maskz_cvtepi32_epi64(kAll8, _mm512_maskz_extracti64x4_epi64(0xF, sy, 1)),
                stride),
            _mm512_maskz_cvtepi32_epi64(kAll8, _mm512_maskz_extracti64x4_epi64(0xF, start, 1)));
        const __m256i lowWords = _mm512_mask_i64gather_epi32(
            _mm256_setzero_si256(), static_cast<__mmask8>(inside), low, source.bits, 1);
        const __m256i highWords = _mm512_mask_i64gather_epi32(
            _mm256_setzero_si256(), static_cast<__mmask8>(inside >> 8), high, source.bits, 1);
        __m512i colour = _mm512_maskz_inserti64x4(kAll8, _mm512_castsi256_si512(lowWords), highWords, 1);
        if (kBack != 0) {
            const __m512i bits = _mm512_mask_mov_epi32(_mm512_maskz_slli_epi32(kAll16, at, 3), ending,
                                                       _mm512_set1_epi32(8 * kBack));
            colour = _mm512_maskz_srlv_epi32(kAll16, colour, bits);
            colour = _mm512_and_si512(colour, _mm512_set1_epi32(kIn == 1 ? 0xFF : 0xFFFFFF));
        }
        if (kIn == 1) colour = _mm512_mullo_epi32(colour, _mm512_set1_epi32(0x010101));  // the grey ramp
        colour = _mm512_mask_blend_epi32(inside, outsideColour, colour);
        if (params.forceAlpha) {
            const __mmask16 marked =
                _mm512_cmpeq_epi32_mask(_mm512_maskz_srli_epi32(kAll16, colour, 24), marker);
            colour = _mm512_mask_or_epi32(colour, static_cast<__mmask16>(~marked), colour, opaque);
        }
        if (TargetKind::kBytes == 4) {
            _mm512_storeu_si512(out + static_cast<ptrdiff_t>(x0) * 4, colour);
        } else if (TargetKind::kBytes == 3) {
            _mm512_mask_storeu_epi8(out + static_cast<ptrdiff_t>(x0) * 3, 0xFFFFFFFFFFFFull,
                                    _mm512_maskz_permutexvar_epi8(~__mmask64{0}, pack, colour));
        } else {
            // Grey in, grey out: the nearest ramp entry is the grey itself.
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x0),
                             _mm512_maskz_cvtepi32_epi8(kAll16, colour));
        }
    }
    return x0;
}

struct SkewKernel {
    const ImageView& source;
    const ImageView& target;
    const SkewParams& params;
    PixelPath path;

    // Whether the 16-pixel rows may run: the lanes hold x - xPivot in 32
    // bits, and the gathers need rows of at least one word.
    bool WideRuns() const {
        return path == PixelPath::Fast && SimdRuns(SimdTier::Avx512) && source.bits != nullptr &&
               source.width * (source.bitCount / 8) >= 4 && target.width < (1 << 30) &&
               params.xPivot > -(1 << 30) && params.xPivot < (1 << 30);
    }

    template <class SourceKind, class TargetKind>
    void Run() {
        const bool wide = kWideSkew<SourceKind, TargetKind> && WideRuns();
        const uint32_t outside = OutsideColour(source);
        for (int y = 0; y < target.height; ++y) {
            // Distances from the pivots in 64 bits: a pivot far out must not overflow.
            const float rowShift = static_cast<float>(static_cast<int64_t>(y) - params.yPivot) * params.xGain;
            int x = 0;
            if constexpr (kWideSkew<SourceKind, TargetKind>) {
                if (wide)
                    x = SkewRowWide<SourceKind, TargetKind>(source, target, y, rowShift, params, outside);
            }
            for (; x < target.width; ++x) {
                const float columnShift =
                    static_cast<float>(static_cast<int64_t>(x) - params.xPivot) * params.yGain;
                const int sx = TruncOrNowhere(static_cast<float>(x) + rowShift);
                const int sy = TruncOrNowhere(static_cast<float>(y) + columnShift);
                uint32_t color = ReadOrOutside<SourceKind>(source, sx, sy);
                if (params.forceAlpha && AlphaOf(color) != kOutsideAlpha) color |= 0xFF000000u;
                TargetKind::Write(target, x, y, color);
            }
        }
    }
};

// 16.16 fixed point. Values are clamped to +-2^40 (far outside any image) so
// that NaN or huge points cannot overflow the walkers, which stay in 64 bits.
constexpr double kFixedLimit = 1099511627776.0;  // 2^40
int64_t ToFixed(double v) {
    double scaled = v * 65536.0 + 0.5;
    if (!(scaled > -kFixedLimit)) scaled = -kFixedLimit;  // also NaN
    if (scaled > kFixedLimit) scaled = kFixedLimit;
    return static_cast<int64_t>(scaled);
}

// Step that walks the vector (dx, dy) in `count` steps. The divisor is
// written as length / (length / count), which is count for a real edge; for a
// degenerate edge (divisor at most 0.001, or NaN for a zero length) the walker
// does not move: a zero step keeps every sample on the start point.
struct FixedStep {
    int64_t x = 0, y = 0;
};
FixedStep StepAlong(double dx, double dy, double count) {
    const double length = std::sqrt(dx * dx + dy * dy);
    const double divisor = length / (length / count);
    FixedStep step;
    if (divisor > 0.001) {
        step.x = ToFixed(dx / divisor);
        step.y = ToFixed(dy / divisor);
    }
    return step;
}

// Samples of 1 to 4 bytes per pixel; every byte is copied or blended alike.
template <int Bytes>
void QuadRows(const ImageView& source, const ImageView& target, const QuadCorners& c, bool blend) {
    const int width = target.width;
    const int height = target.height;
    int64_t leftX = ToFixed(c.x1), leftY = ToFixed(c.y1);
    int64_t rightX = ToFixed(c.x2), rightY = ToFixed(c.y2);
    const FixedStep leftStep = StepAlong(c.x3 - c.x1, c.y3 - c.y1, height);
    const FixedStep rightStep = StepAlong(c.x4 - c.x2, c.y4 - c.y2, height);
    // Samples are taken only from rows and columns 1 to size - 2, so the
    // blend's right and lower neighbours are always inside.
    const int64_t lastX = static_cast<int64_t>(source.width) - 2;
    const int64_t lastY = static_cast<int64_t>(source.height) - 2;

    for (int r = 0; r < height; ++r) {
        // Integer parts, truncated toward zero.
        const int64_t lx = leftX / 65536, ly = leftY / 65536;
        const int64_t rx = rightX / 65536, ry = rightY / 65536;
        const FixedStep scan = StepAlong(static_cast<double>(rx - lx), static_cast<double>(ry - ly), width);
        int64_t X = lx * 65536, Y = ly * 65536;
        unsigned char* out = target.Row(r);
        for (int col = 0; col < width; ++col, X += scan.x, Y += scan.y, out += Bytes) {
            const int64_t sx = (X + 32768) >> 16;
            const int64_t sy = (Y + 32768) >> 16;
            if (sx < 1 || sx > lastX || sy < 1 || sy > lastY) {
                for (int b = 0; b < Bytes; ++b) out[b] = 0;
                continue;
            }
            if (!blend) {
                const unsigned char* p = source.Row(static_cast<int>(sy)) + sx * Bytes;
                for (int b = 0; b < Bytes; ++b) out[b] = p[b];
                continue;
            }
            // Four one-axis blends averaged: the weights are sums, not products.
            const int fx = static_cast<int>(X & 0xFFFF);
            const int fy = static_cast<int>(Y & 0xFFFF);
            const int w00 = (65536 - fx) + (65536 - fy);
            const int w10 = fx + (65536 - fy);
            const int w01 = (65536 - fx) + fy;
            const int w11 = fx + fy;
            const unsigned char* p0 = source.Row(static_cast<int>(Y >> 16)) + (X >> 16) * Bytes;
            const unsigned char* p1 = source.Row(static_cast<int>(Y >> 16) + 1) + (X >> 16) * Bytes;
            for (int b = 0; b < Bytes; ++b) {
                const int sum = p0[b] * w00 + p0[Bytes + b] * w10 + p1[b] * w01 + p1[Bytes + b] * w11;
                out[b] = static_cast<unsigned char>(((sum >> 2) + 32768) >> 16);
            }
        }
        leftX += leftStep.x;
        leftY += leftStep.y;
        rightX += rightStep.x;
        rightY += rightStep.y;
    }
}

}  // namespace

void SkewPixels(const ImageView& source, const ImageView& target, const SkewParams& params, PixelPath path) {
    SkewKernel kernel{source, target, params, path};
    WithPixelKinds(source, target, path == PixelPath::Fast, [&](auto sourceKind, auto targetKind) {
        kernel.Run<decltype(sourceKind), decltype(targetKind)>();
    });
}

int QuadSideLength(double ax, double ay, double bx, double by, double cx, double cy, double dx, double dy) {
    const double first = std::sqrt((bx - ax) * (bx - ax) + (by - ay) * (by - ay));
    const double second = std::sqrt((dx - cx) * (dx - cx) + (dy - cy) * (dy - cy));
    const double shorter = std::fmin(first, second);  // fmin ignores one NaN edge
    if (!(shorter >= 0)) return 0;
    if (shorter >= static_cast<double>(INT_MAX)) return INT_MAX;
    return static_cast<int>(shorter);
}

void QuadPixels(const ImageView& source, const ImageView& target, const QuadCorners& corners, bool blend) {
    if (source.bits == nullptr || target.bits == nullptr) return;
    switch (source.bitCount / 8) {
        case 1:
            QuadRows<1>(source, target, corners, blend);
            break;
        case 2:
            QuadRows<2>(source, target, corners, blend);
            break;
        case 3:
            QuadRows<3>(source, target, corners, blend);
            break;
        case 4:
            QuadRows<4>(source, target, corners, blend);
            break;
        default:
            break;  // below 8 or above 39 bits: not sampled
    }
}

QResult CQELImageTransform::Skew(IQEL* source, IQEL** result, float xGain, float yGain, int xPivot,
                                 int yPivot, int /*reserved*/, int forceAlpha) {
    if (source == nullptr) return QEL_E_FAIL;
    // A null output pointer is refused before any image is made.
    if (result == nullptr) return QEL_E_POINTER;
    const ImageView sourceView = ReadImageView(source);
    const int bitCount = forceAlpha != 0 ? 32 : sourceView.bitCount;
    const unsigned model = forceAlpha != 0 ? QEL_MODEL_ARGB : sourceView.colourModel;

    ImageShape shape = ShapeOf(sourceView);
    shape.bitCount = bitCount;
    shape.colourModel = model;
    Destination made = MakeDestination(shape, DestinationRoad::Collection, WarpWrites(bitCount));
    if (!made.image) return QEL_E_FAIL;

    SkewParams params;
    params.xGain = xGain;
    params.yGain = yGain;
    // Unsigned halving of the size: a pivot at row or column 0 means the centre.
    params.xPivot = xPivot != 0 ? xPivot : static_cast<int>(static_cast<unsigned>(sourceView.width) / 2);
    params.yPivot = yPivot != 0 ? yPivot : static_cast<int>(static_cast<unsigned>(sourceView.height) / 2);
    params.forceAlpha = forceAlpha != 0;
    // A Create that did not give the asked layout is left undrawn.
    if (const ImageView* canvas = made.Canvas()) SkewPixels(sourceView, *canvas, params);
    *result = made.image.Detach();
    return QEL_OK;
}

QResult CQELImageTransform::Quad(IQEL* source, IQEL** result, double x1, double y1, double x2, double y2,
                                 double x3, double y3, double x4, double y4, unsigned int newWidth,
                                 unsigned int newHeight, short blend) {
    // Quad reports no failure of its own; a null source fails like a failed
    // image creation, and a null output pointer is refused.
    if (source == nullptr) return QEL_E_FAIL;
    if (result == nullptr) return QEL_E_POINTER;
    const ImageView sourceView = ReadImageView(source);
    const QuadCorners corners{x1, y1, x2, y2, x3, y3, x4, y4};
    const int width = newWidth == 0 || newWidth >= 65536 ? QuadSideLength(x1, y1, x2, y2, x3, y3, x4, y4)
                                                         : static_cast<int>(newWidth);
    const int height = newHeight == 0 || newHeight >= 65536 ? QuadSideLength(x1, y1, x3, y3, x2, y2, x4, y4)
                                                            : static_cast<int>(newHeight);

    const ImageShape shape{width, height, 1, sourceView.bitCount, sourceView.colourModel};
    Destination made = MakeDestination(shape, DestinationRoad::ImageDIB, WarpWrites(sourceView.bitCount));
    if (!made.image) return QEL_E_FAIL;
    if (const ImageView* canvas = made.Canvas())
        QuadPixels(sourceView, *canvas, corners, blend != 0 && sourceView.bitCount > 8);
    *result = made.image.Detach();
    return QEL_OK;
}
