// Drawing a turned image through the sampler, with an AVX2 step that samples
// eight output pixels at once for the cubic kernels.
#include "transform/turn_drawing.h"

#include <immintrin.h>

#include <cstdint>
#include <cstdlib>

#include "image/sampling.h"

namespace {

// Writes a sample into an output pixel: 4 bytes with alpha, 3 bytes, or the
// red channel as a one-byte grey index. Packed depths and 16 bits, whose
// pixels are narrower than those steps, go through SetPixelColor.
template <int kBytes>
struct TurnedPixelWriter {
    static void Write(const ImageView& dest, int x, int y, uint32_t colour) {
        unsigned char* pixel = dest.Row(y) + static_cast<ptrdiff_t>(x) * kBytes;
        if (kBytes == 1) {
            pixel[0] = static_cast<unsigned char>(RedOf(colour));
            return;
        }
        pixel[0] = static_cast<unsigned char>(BlueOf(colour));
        pixel[1] = static_cast<unsigned char>(GreenOf(colour));
        pixel[2] = static_cast<unsigned char>(RedOf(colour));
        if (kBytes == 4) pixel[3] = static_cast<unsigned char>(AlphaOf(colour));
    }
};
template <>
struct TurnedPixelWriter<0> {
    static void Write(const ImageView& dest, int x, int y, uint32_t colour) {
        const int grey = RedOf(colour);
        SetPixelColor(dest.bits, x, y, dest.width, dest.height, dest.stride, PackColor(grey, grey, grey, 0),
                      dest.bitCount);
    }
};

// The source position of output pixel (i, j) and whether it is drawn.
struct TurnedPosition {
    float shiftX, shiftY, lastX, lastY;

    TurnedPosition(const ImageView& source, const ImageView& dest, const TurnGeometry& turn)
        : shiftX(turn.aboutCentre ? static_cast<float>(dest.width) * 0.5f : 0.0f),
          shiftY(turn.aboutCentre ? static_cast<float>(dest.height) * 0.5f : 0.0f),
          lastX(static_cast<float>(source.width - 4)),
          lastY(static_cast<float>(source.height - 4)) {}
};

template <int kBytes>
void DrawTurnedScalar(const ImageView& source, const ImageView& dest, const TurnGeometry& turn, int method) {
    const InterpolatingSampler sampler(source.bits, source.width, source.height, source.stride, method,
                                       source.bitCount);
    const TurnedPosition at(source, dest, turn);
    for (int j = 0; j < dest.height; ++j) {
        const float turnedY = turn.startY + static_cast<float>(j);
        const float yFromK = turn.k * turnedY, yFromS = turn.s * turnedY;
        for (int i = 0; i < dest.width; ++i) {
            const float turnedX = turn.startX + static_cast<float>(i);
            float sx = turn.k * turnedX + yFromS;
            float sy = yFromK - turn.s * turnedX;
            if (turn.aboutCentre) {
                sx += at.shiftX;
                sy += at.shiftY;
            }
            if (sx <= 3.0f || sx >= at.lastX || sy <= 3.0f || sy >= at.lastY) continue;
            TurnedPixelWriter<kBytes>::Write(dest, i, j, sampler.Sample(sx, sy));
        }
    }
}

// ---- Eight pixels at a time --------------------------------------------------
// Each lane is one output pixel and runs the sampler's own sum: tap rows, then
// taps, weight = column weight x row weight, sum += weight x tap, in single
// precision without fused operations; the kernels below are the sampler's
// formulas term for term.

#define QEL_AVX2 __attribute__((target("avx2"), always_inline)) inline

QEL_AVX2 __m256 AbsoluteOf(__m256 t) { return _mm256_andnot_ps(_mm256_set1_ps(-0.0f), t); }

// Selects `near` below 1, `far` below 2 and 0 beyond, by |t|.
QEL_AVX2 __m256 TwoPieces(__m256 a, __m256 nearPiece, __m256 farPiece) {
    const __m256 belowOne = _mm256_cmp_ps(a, _mm256_set1_ps(1.0f), _CMP_LT_OQ);
    const __m256 belowTwo = _mm256_cmp_ps(a, _mm256_set1_ps(2.0f), _CMP_LT_OQ);
    return _mm256_blendv_ps(_mm256_and_ps(farPiece, belowTwo), nearPiece, belowOne);
}

QEL_AVX2 __m256 Mul(__m256 a, __m256 b) { return _mm256_mul_ps(a, b); }
QEL_AVX2 __m256 Add(__m256 a, __m256 b) { return _mm256_add_ps(a, b); }
QEL_AVX2 __m256 Sub(__m256 a, __m256 b) { return _mm256_sub_ps(a, b); }
QEL_AVX2 __m256 Splat(float value) { return _mm256_set1_ps(value); }

struct CubicBSplineLanes {  // method 2
    QEL_AVX2 static __m256 CubedIfPositive(__m256 u) {
        const __m256 cube = Mul(Mul(u, u), u);
        return _mm256_and_ps(cube, _mm256_cmp_ps(u, _mm256_setzero_ps(), _CMP_GT_OQ));
    }
    QEL_AVX2 static __m256 Weight(__m256 t) {
        const __m256 sum = Sub(Add(Sub(CubedIfPositive(Add(t, Splat(2.0f))),
                                       Mul(Splat(4.0f), CubedIfPositive(Add(t, Splat(1.0f))))),
                                   Mul(Splat(6.0f), CubedIfPositive(t))),
                               Mul(Splat(4.0f), CubedIfPositive(Sub(t, Splat(1.0f)))));
        const __m256 weight = Mul(Splat(0.16666667f), sum);
        return _mm256_andnot_ps(_mm256_cmp_ps(t, Splat(2.0f), _CMP_GT_OQ), weight);
    }
};

struct CubicConvolutionLanes {  // method 3
    QEL_AVX2 static __m256 Weight(__m256 t) {
        const __m256 a = AbsoluteOf(t);
        const __m256 cube = Mul(Mul(a, a), a);
        const __m256 nearPiece = Add(Sub(Splat(1.0f), Mul(Mul(Splat(2.0f), t), t)), cube);
        const __m256 farPiece =
            Sub(Add(Sub(Splat(4.0f), Mul(Splat(8.0f), a)), Mul(Mul(Splat(5.0f), t), t)), cube);
        return TwoPieces(a, nearPiece, farPiece);
    }
};

struct CatmullRomAbsoluteLanes {  // method 4
    QEL_AVX2 static __m256 Weight(__m256 t) {
        const __m256 a = AbsoluteOf(t);
        const __m256 square = Mul(Mul(Splat(2.5f), t), t);
        const __m256 nearPiece = Add(Sub(Mul(Mul(Mul(Splat(1.5f), a), a), a), square), Splat(1.0f));
        const __m256 farPiece =
            Add(Sub(Add(Mul(Mul(Mul(Splat(-0.5f), a), a), a), square), Mul(Splat(4.0f), a)), Splat(2.0f));
        return TwoPieces(a, nearPiece, farPiece);
    }
};

// Clamped to [0, 255] and truncated, as the sampler finishes a channel sum.
QEL_AVX2 __m256i ChannelLanes(__m256 sum) {
    return _mm256_cvttps_epi32(_mm256_min_ps(_mm256_max_ps(sum, _mm256_setzero_ps()), Splat(255.0f)));
}

template <class Kernel, int kSourceBytes, int kDestBytes>
__attribute__((target("avx2"))) void DrawTurnedAvx2(const ImageView& source, const ImageView& dest,
                                                    const TurnGeometry& turn) {
    const TurnedPosition at(source, dest, turn);
    const __m256i laneIndex = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const __m256i byteMask = _mm256_set1_epi32(0xFF);
    const __m256i stride = _mm256_set1_epi32(source.stride);
    const int* bits = reinterpret_cast<const int*>(source.bits);
    for (int j = 0; j < dest.height; ++j) {
        const float turnedY = turn.startY + static_cast<float>(j);
        const __m256 yFromK = Splat(turn.k * turnedY), yFromS = Splat(turn.s * turnedY);
        unsigned char* outRow = dest.Row(j);
        for (int i0 = 0; i0 < dest.width; i0 += 8) {
            const __m256i column = _mm256_add_epi32(_mm256_set1_epi32(i0), laneIndex);
            const __m256 turnedX = Add(Splat(turn.startX), _mm256_cvtepi32_ps(column));
            __m256 sx = Add(Mul(Splat(turn.k), turnedX), yFromS);
            __m256 sy = Sub(yFromK, Mul(Splat(turn.s), turnedX));
            if (turn.aboutCentre) {
                sx = Add(sx, Splat(at.shiftX));
                sy = Add(sy, Splat(at.shiftY));
            }
            const __m256 inside =
                _mm256_and_ps(_mm256_and_ps(_mm256_cmp_ps(sx, Splat(3.0f), _CMP_GT_OQ),
                                            _mm256_cmp_ps(sx, Splat(at.lastX), _CMP_LT_OQ)),
                              _mm256_and_ps(_mm256_cmp_ps(sy, Splat(3.0f), _CMP_GT_OQ),
                                            _mm256_cmp_ps(sy, Splat(at.lastY), _CMP_LT_OQ)));
            const __m256i inRow = _mm256_cmpgt_epi32(_mm256_set1_epi32(dest.width), column);
            const int drawn = _mm256_movemask_ps(_mm256_and_ps(inside, _mm256_castsi256_ps(inRow)));
            if (drawn == 0) continue;

            // Positions above 3 truncate to their base; lanes not drawn read
            // the block at (1, 1), which lies inside any image they could be in.
            const __m256i keep = _mm256_castps_si256(inside);
            const __m256i one = _mm256_set1_epi32(1);
            const __m256i baseX = _mm256_blendv_epi8(one, _mm256_cvttps_epi32(sx), keep);
            const __m256i baseY = _mm256_blendv_epi8(one, _mm256_cvttps_epi32(sy), keep);
            __m256 columnWeights[4], rowWeights[4];
            for (int n = 0; n < 4; ++n) {
                const __m256i tapOffset = _mm256_set1_epi32(n - 1);
                columnWeights[n] =
                    Kernel::Weight(Sub(_mm256_cvtepi32_ps(_mm256_add_epi32(baseX, tapOffset)), sx));
                rowWeights[n] =
                    Kernel::Weight(Sub(_mm256_cvtepi32_ps(_mm256_add_epi32(baseY, tapOffset)), sy));
            }
            __m256i rowOffset = _mm256_add_epi32(
                _mm256_mullo_epi32(_mm256_sub_epi32(baseY, one), stride),
                _mm256_mullo_epi32(_mm256_sub_epi32(baseX, one), _mm256_set1_epi32(kSourceBytes)));
            __m256 blue = _mm256_setzero_ps(), green = blue, red = blue, alpha = blue;
            for (int tapRow = 0; tapRow < 4; ++tapRow, rowOffset = _mm256_add_epi32(rowOffset, stride)) {
                __m256i offset = rowOffset;
                for (int tap = 0; tap < 4;
                     ++tap, offset = _mm256_add_epi32(offset, _mm256_set1_epi32(kSourceBytes))) {
                    // Four bytes from each tap's first byte: a 24-bit tap's fourth
                    // byte belongs to the next tap or the pixel after the block.
                    // qemu-x86_64 7.2 gets this gather wrong when the compiler puts
                    // the offsets in ymm4: it reads every lane at `bits` (it takes
                    // index register 4 for "no index", as in ordinary addressing),
                    // so the bytes under an emulated AVX2 processor are wrong while
                    // real ones give the scalar bytes. CI emulates no AVX2.
                    const __m256i pixel = _mm256_i32gather_epi32(bits, offset, 1);
                    const __m256 weight = Mul(columnWeights[tap], rowWeights[tapRow]);
                    blue = Add(blue, Mul(weight, _mm256_cvtepi32_ps(_mm256_and_si256(pixel, byteMask))));
                    green = Add(green, Mul(weight, _mm256_cvtepi32_ps(_mm256_and_si256(
                                                       _mm256_srli_epi32(pixel, 8), byteMask))));
                    red = Add(red, Mul(weight, _mm256_cvtepi32_ps(_mm256_and_si256(
                                                   _mm256_srli_epi32(pixel, 16), byteMask))));
                    if (kSourceBytes == 4)
                        alpha = Add(alpha, Mul(weight, _mm256_cvtepi32_ps(_mm256_srli_epi32(pixel, 24))));
                }
            }
            __m256i packed = _mm256_or_si256(
                _mm256_or_si256(ChannelLanes(blue), _mm256_slli_epi32(ChannelLanes(green), 8)),
                _mm256_slli_epi32(ChannelLanes(red), 16));
            if (kSourceBytes == 4)
                packed = _mm256_or_si256(packed, _mm256_slli_epi32(ChannelLanes(alpha), 24));
            alignas(32) uint32_t colours[8];
            _mm256_store_si256(reinterpret_cast<__m256i*>(colours), packed);
            unsigned char* out = outRow + static_cast<ptrdiff_t>(i0) * kDestBytes;
            for (int lane = 0; lane < 8; ++lane, out += kDestBytes) {
                if ((drawn >> lane & 1) == 0) continue;
                out[0] = static_cast<unsigned char>(colours[lane]);
                out[1] = static_cast<unsigned char>(colours[lane] >> 8);
                out[2] = static_cast<unsigned char>(colours[lane] >> 16);
                if (kDestBytes == 4) out[3] = static_cast<unsigned char>(colours[lane] >> 24);
            }
        }
    }
}

#undef QEL_AVX2

using Avx2Drawer = void (*)(const ImageView&, const ImageView&, const TurnGeometry&);

template <class Kernel>
Avx2Drawer ChooseDepths(int sourceBytes, int destBytes) {
    if (sourceBytes == 3)
        return destBytes == 3 ? &DrawTurnedAvx2<Kernel, 3, 3> : &DrawTurnedAvx2<Kernel, 3, 4>;
    return &DrawTurnedAvx2<Kernel, 4, 4>;
}

// The AVX2 drawer for this call, or null where the scalar path must run: other
// kernels and depths, and sources whose byte offsets would not fit the
// gather's 32-bit lanes.
Avx2Drawer Avx2DrawerFor(const ImageView& source, const ImageView& dest, int method) {
    if (source.bitCount != 24 && source.bitCount != 32) return nullptr;
    const int sourceBytes = source.bitCount / 8, destBytes = dest.bitCount == 32 ? 4 : 3;
    if (dest.bitCount != 32 && dest.bitCount != source.bitCount) return nullptr;
    const int64_t reach =
        (int64_t{source.height} + 1) * std::llabs(source.stride) + int64_t{source.width} * 4;
    if (reach >= int64_t{1} << 31) return nullptr;
    switch (method) {
        case 2:
            return ChooseDepths<CubicBSplineLanes>(sourceBytes, destBytes);
        case 3:
            return ChooseDepths<CubicConvolutionLanes>(sourceBytes, destBytes);
        case 4:
            return ChooseDepths<CatmullRomAbsoluteLanes>(sourceBytes, destBytes);
        default:
            return nullptr;
    }
}

}  // namespace

void DrawTurned(const ImageView& source, const ImageView& dest, const TurnGeometry& turn, int method,
                SimdTier widest) {
    if (SimdRuns(SimdTier::Avx2, widest)) {
        if (const Avx2Drawer draw = Avx2DrawerFor(source, dest, method)) {
            draw(source, dest, turn);
            return;
        }
    }
    if (dest.bitCount == 32)
        DrawTurnedScalar<4>(source, dest, turn, method);
    else if (dest.bitCount >= 24)
        DrawTurnedScalar<3>(source, dest, turn, method);
    else if (dest.bitCount == 8)
        DrawTurnedScalar<1>(source, dest, turn, method);
    else
        DrawTurnedScalar<0>(source, dest, turn, method);
}
