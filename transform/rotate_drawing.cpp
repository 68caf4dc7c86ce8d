// Drawing a rotated image: every covered output pixel sampled at its position
// turned back into the source. The plain drawer samples one pixel at a time
// and is the reference; the AVX2 drawer runs the cubic kernels over eight
// output pixels at once for 8-, 24- and 32-bit sources and hands the pixels it
// cannot read directly (near the source's edges) to the same sampler.
#include "transform/rotate_drawing.h"

#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "image/cpu.h"
#include "image/pixel_kinds.h"
#include "image/sampling.h"
// Only the AVX2 lanes use the sampler's kernels here, on 8-float vectors, so
// they are built for AVX2 in this file (the headers they include come first).
QEL_TARGET_BEGIN("avx2")
#include "image/sampling_kernels.h"
QEL_TARGET_END

// Vector arguments of the always-inlined helpers below never cross a call.
#pragma GCC diagnostic ignored "-Wpsabi"

namespace {

// A whole number of pixels; a turn by a NaN or infinite angle has no extent
// and covers nothing.
int PixelSpan(float span) { return span >= 0.0f && span < 2147483520.0f ? static_cast<int>(span) : 0; }

// ---- Which output pixels are drawn ----------------------------------------------
// For one position (float) or a vector of them (a lane mask).

// What comparing positions gives: a bool for one, a lane mask for a vector.
template <class V>
using Mask = decltype(V{} > 0.0f);

// Rotate leaves a margin of about four pixels along every source edge unsampled.
// Positions are never NaN here (cosine and sine of whole degrees are finite),
// so "inside both bounds" is the same as "not at or beyond either".
struct RotateCover {
    float lastX, lastY;
    explicit RotateCover(const ImageView& source)
        : lastX(static_cast<float>(source.width - 4)), lastY(static_cast<float>(source.height - 4)) {}
    template <class V>
    __attribute__((always_inline)) void Covers(const V& sx, const V& sy, Mask<V>* covered) const {
        *covered = (sx > 3.0f) & (sx < lastX) & (sy > 3.0f) & (sy < lastY);
    }
};

// RotatePaste samples up to and including the source's far edges.
struct PasteCover {
    float width, height;
    explicit PasteCover(const ImageView& source)
        : width(static_cast<float>(source.width)), height(static_cast<float>(source.height)) {}
    template <class V>
    __attribute__((always_inline)) void Covers(const V& sx, const V& sy, Mask<V>* covered) const {
        *covered = (sx >= 0.0f) & (sx <= width) & (sy >= 0.0f) & (sy <= height);
    }
};

// ---- How a sample is written ----------------------------------------------------

// Rotate: blue, green, red and, into 32 bits, alpha; into fewer than 24 bits
// the red channel as a grey level (a grey index for grey sources).
template <class Kind>
struct RotateWriter {
    static constexpr bool kDirect = Kind::kBytes != 0;  // the lanes write direct kinds only
    ImageView dest;
    void Write(int x, int y, uint32_t colour) const {
        if (Kind::kBytes == 1 || (Kind::kBytes == 0 && dest.bitCount < 24)) {
            const int grey = RedOf(colour);
            colour = PackColor(grey, grey, grey, 0);
        }
        Kind::Write(dest, x, y, colour);
    }
};

// RotatePaste: blends by the sample's alpha (kBlend, sources of 32 bits) or
// skips the key colour; a 32-bit target takes the sample's alpha.
template <class Kind, bool kBlend>
struct PasteWriter {
    static constexpr bool kDirect = Kind::kBytes != 0;
    ImageView target;
    uint32_t keyColour;
    void Write(int x, int y, uint32_t colour) const {
        if (kBlend) {
            const uint32_t under = Kind::Read(target, x, y);
            const int alpha = AlphaOf(colour);
            const double a = alpha / 255.0, b = (255 - alpha) / 255.0;
            colour = PackColor(static_cast<int>(BlueOf(colour) * a + BlueOf(under) * b),
                               static_cast<int>(GreenOf(colour) * a + GreenOf(under) * b),
                               static_cast<int>(RedOf(colour) * a + RedOf(under) * b), alpha);
        } else if ((colour & 0x00FFFFFFu) == keyColour) {
            return;
        }
        Kind::Write(target, x, y, colour);
    }
};

// ---- One pixel at a time: the reference ------------------------------------------

template <class Cover, class Writer>
void DrawPixels(const ImageView& source, const TurnMap& turn, const Cover& cover, const Writer& writer,
                int width, int height, int method) {
    const InterpolatingSampler sampler(source.bits, source.width, source.height, source.stride, method,
                                       source.bitCount);
    for (int j = 0; j < height; ++j) {
        const float turnedY = turn.startY + static_cast<float>(j);
        for (int i = 0; i < width; ++i) {
            float sx = 0.0f, sy = 0.0f;
            turn.SourceOf(turn.startX + static_cast<float>(i), turnedY, &sx, &sy);
            bool covered = false;
            cover.Covers(sx, sy, &covered);
            if (!covered) continue;
            writer.Write(i, j, sampler.Sample(sx, sy));
        }
    }
}

// ---- Eight pixels at a time ------------------------------------------------------
// Each lane is one output pixel and runs the sampler's own sum: tap rows, then
// taps, weight = column weight x row weight, sum += weight x tap, in single
// precision without fused operations, with the sampler's kernels.

#define QEL_AVX2 __attribute__((target("avx2"), always_inline)) inline

// Clamped to [0, 255] and truncated, as the sampler finishes a channel sum.
QEL_AVX2 __m256i ChannelLanes(__m256 sum) {
    return _mm256_cvttps_epi32(
        _mm256_min_ps(_mm256_max_ps(sum, _mm256_setzero_ps()), _mm256_set1_ps(255.0f)));
}

inline int32_t LoadWord(const unsigned char* bytes) {
    int32_t word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

// The weights of the four taps of one axis; `base` holds whole numbers of at
// least 1, so base - 1 to base + 2 convert exactly either way.
template <int kMethod>
QEL_AVX2 void TapWeights(__m256 base, __m256 position, __m256 weights[4]) {
    weights[0] = CubicTapWeight<kMethod, 0>((base - 1.0f) - position);
    weights[1] = CubicTapWeight<kMethod, 1>(base - position);
    weights[2] = CubicTapWeight<kMethod, 2>((base + 1.0f) - position);
    weights[3] = CubicTapWeight<kMethod, 3>((base + 2.0f) - position);
}

// One tap row of the eight lanes' blocks: tap n of every lane in taps[n], as
// four bytes. `rows[lane]` is where the lane's tap row starts.
template <int kSourceBytes>
QEL_AVX2 void LoadTapRow(const unsigned char* const* rows, __m256i taps[4]) {
    if (kSourceBytes == 1) {
        // The four taps are the four bytes of one word; tap n is byte n.
        __m256i words =
            _mm256_setr_epi32(LoadWord(rows[0]), LoadWord(rows[1]), LoadWord(rows[2]), LoadWord(rows[3]),
                              LoadWord(rows[4]), LoadWord(rows[5]), LoadWord(rows[6]), LoadWord(rows[7]));
        for (int n = 0; n < 4; ++n)
            taps[n] = _mm256_and_si256(_mm256_srli_epi32(words, 8 * n), _mm256_set1_epi32(0xFF));
        return;
    }
    // Lanes k and k + 4 share a register, one per 128-bit half; a 4x4 transpose
    // of words in each half then gives every tap its own register.
    __m256i pair[4];
    for (int k = 0; k < 4; ++k) {
        pair[k] = _mm256_inserti128_si256(
            _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[k]))),
            _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[k + 4])), 1);
        if (kSourceBytes == 3)  // 3-byte pixels spread to words, the fourth byte 0
            pair[k] = _mm256_shuffle_epi8(
                pair[k], _mm256_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1, 0, 1, 2, -1,
                                          3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1));
    }
    const __m256i low01 = _mm256_unpacklo_epi32(pair[0], pair[1]),
                  high01 = _mm256_unpackhi_epi32(pair[0], pair[1]);
    const __m256i low23 = _mm256_unpacklo_epi32(pair[2], pair[3]),
                  high23 = _mm256_unpackhi_epi32(pair[2], pair[3]);
    taps[0] = _mm256_unpacklo_epi64(low01, low23);
    taps[1] = _mm256_unpackhi_epi64(low01, low23);
    taps[2] = _mm256_unpacklo_epi64(high01, high23);
    taps[3] = _mm256_unpackhi_epi64(high01, high23);
}

// Byte `n` of every word, as floats.
QEL_AVX2 __m256 ByteOfLanes(__m256i words, int n) {
    const char b = static_cast<char>(n);
    const __m256i pick = _mm256_setr_epi8(
        b, -1, -1, -1, static_cast<char>(b + 4), -1, -1, -1, static_cast<char>(b + 8), -1, -1, -1,
        static_cast<char>(b + 12), -1, -1, -1, b, -1, -1, -1, static_cast<char>(b + 4), -1, -1, -1,
        static_cast<char>(b + 8), -1, -1, -1, static_cast<char>(b + 12), -1, -1, -1);
    return _mm256_cvtepi32_ps(_mm256_shuffle_epi8(words, pick));
}

// The packed colours of the lanes in `direct`, whose 4x4 blocks lie inside the
// source with room for a 16-byte read (a 4-byte one from grey sources) at the
// start of every tap row. Other lanes read the block of the first direct lane.
template <int kMethod, int kSourceBytes>
QEL_AVX2 __m256i SampleLanes(const ImageView& source, __m256 sx, __m256 sy, __m256i baseX, __m256i baseY,
                             int directLanes) {
    // Direct lanes have bases of at least 1, so each tap needs one piece of the kernel.
    const __m256 columnBase = _mm256_cvtepi32_ps(baseX), rowBase = _mm256_cvtepi32_ps(baseY);
    __m256 columnWeights[4], rowWeights[4];
    TapWeights<kMethod>(columnBase, sx, columnWeights);
    TapWeights<kMethod>(rowBase, sy, rowWeights);
    const __m256i one = _mm256_set1_epi32(1);
    alignas(32) int32_t offsets[8];
    const __m256i offset =
        _mm256_add_epi32(_mm256_mullo_epi32(_mm256_sub_epi32(baseY, one), _mm256_set1_epi32(source.stride)),
                         _mm256_mullo_epi32(_mm256_sub_epi32(baseX, one), _mm256_set1_epi32(kSourceBytes)));
    _mm256_store_si256(reinterpret_cast<__m256i*>(offsets), offset);
    const int firstDirect = __builtin_ctz(static_cast<unsigned>(directLanes));
    const unsigned char* rows[8];
    for (int lane = 0; lane < 8; ++lane)
        rows[lane] = source.bits + offsets[(directLanes >> lane & 1) != 0 ? lane : firstDirect];
    __m256 blue = _mm256_setzero_ps(), green = blue, red = blue, alpha = blue;
    for (int tapRow = 0; tapRow < 4; ++tapRow) {
        __m256i taps[4];
        LoadTapRow<kSourceBytes>(rows, taps);
        for (int lane = 0; lane < 8; ++lane) rows[lane] += source.stride;
        for (int tap = 0; tap < 4; ++tap) {
            const __m256 weight = columnWeights[tap] * rowWeights[tapRow];
            if (kSourceBytes == 1) {
                blue = blue + weight * _mm256_cvtepi32_ps(taps[tap]);
                continue;
            }
            blue = blue + weight * _mm256_cvtepi32_ps(_mm256_and_si256(taps[tap], _mm256_set1_epi32(0xFF)));
            green = green + weight * ByteOfLanes(taps[tap], 1);
            red = red + weight * ByteOfLanes(taps[tap], 2);
            if (kSourceBytes == 4)
                alpha = alpha + weight * _mm256_cvtepi32_ps(_mm256_srli_epi32(taps[tap], 24));
        }
    }
    // A grey source reads as (i, i, i) with reserved 0; the sampler leaves alpha 0 there.
    if (kSourceBytes == 1) {
        const __m256i grey = ChannelLanes(blue);
        return _mm256_or_si256(_mm256_or_si256(grey, _mm256_slli_epi32(grey, 8)),
                               _mm256_slli_epi32(grey, 16));
    }
    __m256i packed =
        _mm256_or_si256(_mm256_or_si256(ChannelLanes(blue), _mm256_slli_epi32(ChannelLanes(green), 8)),
                        _mm256_slli_epi32(ChannelLanes(red), 16));
    if (kSourceBytes == 4) packed = _mm256_or_si256(packed, _mm256_slli_epi32(ChannelLanes(alpha), 24));
    return packed;
}

// Eight colours written at once where the writer allows: Rotate's writers
// store whole pixels, RotatePaste's look at the target first.
template <class Writer>
QEL_AVX2 bool StoreEight(const Writer&, int, int, const uint32_t*) {
    return false;
}
QEL_AVX2 bool StoreEight(const RotateWriter<BgraPixels>& writer, int x, int y, const uint32_t* colours) {
    std::memcpy(writer.dest.Row(y) + static_cast<ptrdiff_t>(x) * 4, colours, 32);
    return true;
}
QEL_AVX2 bool StoreEight(const RotateWriter<BgrPixels>& writer, int x, int y, const uint32_t* colours) {
    const __m256i packed =
        _mm256_shuffle_epi8(_mm256_load_si256(reinterpret_cast<const __m256i*>(colours)),
                            _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1, 0, 1, 2,
                                             4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
    alignas(32) unsigned char bytes[32];
    _mm256_store_si256(reinterpret_cast<__m256i*>(bytes), packed);
    unsigned char* out = writer.dest.Row(y) + static_cast<ptrdiff_t>(x) * 3;
    std::memcpy(out, bytes, 12);
    std::memcpy(out + 12, bytes + 16, 12);
    return true;
}
QEL_AVX2 bool StoreEight(const RotateWriter<GreyPixels>& writer, int x, int y, const uint32_t* colours) {
    unsigned char* out = writer.dest.Row(y) + x;
    for (int lane = 0; lane < 8; ++lane) out[lane] = static_cast<unsigned char>(RedOf(colours[lane]));
    return true;
}

template <int kMethod, int kSourceBytes, class Cover, class Writer>
__attribute__((target("avx2"))) void DrawLanes(const ImageView& source, const TurnMap& turn,
                                               const Cover& cover, const Writer& writer, int width,
                                               int height, int method) {
    const InterpolatingSampler sampler(source.bits, source.width, source.height, source.stride, method,
                                       source.bitCount);
    // Bases whose taps (base - 1 to base + 2) lie inside the source and whose
    // tap rows can be read as 16 bytes (4 from grey sources) without leaving the row.
    const int pastLastTap = kSourceBytes == 3 ? 2 : 0;  // whole pixels
    const __m256i lastBaseX = _mm256_set1_epi32(source.width - 3 - pastLastTap);
    const __m256i lastBaseY = _mm256_set1_epi32(source.height - 3);
    const __m256i zero = _mm256_setzero_si256();
    const __m256i rowEnd = _mm256_set1_epi32(width);
    const __m256i laneIndex = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    for (int j = 0; j < height; ++j) {
        const float turnedY = turn.startY + static_cast<float>(j);
        for (int i0 = 0; i0 < width; i0 += 8) {
            const __m256i column = _mm256_add_epi32(_mm256_set1_epi32(i0), laneIndex);
            __m256 sx, sy;
            turn.SourceOf(turn.startX + _mm256_cvtepi32_ps(column), turnedY, &sx, &sy);
            decltype(sx > 0.0f) onSource;
            cover.Covers(sx, sy, &onSource);
            const __m256i covered = _mm256_and_si256((__m256i)onSource, _mm256_cmpgt_epi32(rowEnd, column));
            const int coveredLanes = _mm256_movemask_ps(_mm256_castsi256_ps(covered));
            if (coveredLanes == 0) continue;
            // Covered positions are never negative, so truncation gives the sampler's base.
            const __m256i baseX = _mm256_cvttps_epi32(sx), baseY = _mm256_cvttps_epi32(sy);
            const __m256i inside = _mm256_and_si256(
                _mm256_and_si256(_mm256_cmpgt_epi32(baseX, zero), _mm256_cmpgt_epi32(baseY, zero)),
                _mm256_andnot_si256(_mm256_or_si256(_mm256_cmpgt_epi32(baseX, lastBaseX),
                                                    _mm256_cmpgt_epi32(baseY, lastBaseY)),
                                    covered));
            const int directLanes = _mm256_movemask_ps(_mm256_castsi256_ps(inside));
            alignas(32) uint32_t colours[8];
            if (directLanes != 0)
                _mm256_store_si256(
                    reinterpret_cast<__m256i*>(colours),
                    SampleLanes<kMethod, kSourceBytes>(source, sx, sy, baseX, baseY, directLanes));
            alignas(32) float xs[8], ys[8];
            if (directLanes != coveredLanes) {
                _mm256_store_ps(xs, sx);
                _mm256_store_ps(ys, sy);
            }
            if (directLanes == 0xFF && StoreEight(writer, i0, j, colours)) continue;
            for (int lane = 0; lane < 8; ++lane) {
                if ((coveredLanes >> lane & 1) == 0) continue;
                writer.Write(
                    i0 + lane, j,
                    (directLanes >> lane & 1) != 0 ? colours[lane] : sampler.Sample(xs[lane], ys[lane]));
            }
        }
    }
}

#undef QEL_AVX2

// The vector drawer for this call, or null where the plain one must run:
// other kernels and depths, and sources whose byte offsets would not fit the
// lanes' 32-bit offsets.
template <class Cover, class Writer>
using LaneDrawer = void (*)(const ImageView&, const TurnMap&, const Cover&, const Writer&, int, int, int);

template <int kSourceBytes, class Cover, class Writer>
LaneDrawer<Cover, Writer> LaneDrawerForMethod(int method) {
    switch (method) {
        case 2:
            return &DrawLanes<2, kSourceBytes, Cover, Writer>;
        case 3:
            return &DrawLanes<3, kSourceBytes, Cover, Writer>;
        case 4:
            return &DrawLanes<4, kSourceBytes, Cover, Writer>;
        default:
            return nullptr;
    }
}

bool LanesCanRead(const ImageView& source) {
    const int64_t reach =
        (int64_t{source.height} + 1) * std::llabs(source.stride) + int64_t{source.width} * 4;
    return source.bits != nullptr && reach < int64_t{1} << 31;
}

// Draws with the vector lanes where this call allows them, else pixel by pixel.
template <int kSourceBytes, class Cover, class Writer>
void DrawFrom(const ImageView& source, const TurnMap& turn, const Cover& cover, const Writer& writer,
              int width, int height, int method, SimdTier widest) {
    if constexpr (Writer::kDirect) {
        if (SimdRuns(SimdTier::Avx2, widest) && LanesCanRead(source)) {
            if (const LaneDrawer<Cover, Writer> draw =
                    LaneDrawerForMethod<kSourceBytes, Cover, Writer>(method)) {
                draw(source, turn, cover, writer, width, height, method);
                return;
            }
        }
    }
    DrawPixels(source, turn, cover, writer, width, height, method);
}

// Sources the lanes read: 8-bit grey ramps and 24- and 32-bit colour.
template <class Cover, class Writer>
void Draw(const ImageView& source, const TurnMap& turn, const Cover& cover, const Writer& writer, int width,
          int height, int method, SimdTier widest) {
    switch (source.bitCount) {
        case 8:
            return DrawFrom<1>(source, turn, cover, writer, width, height, method, widest);
        case 24:
            return DrawFrom<3>(source, turn, cover, writer, width, height, method, widest);
        case 32:
            return DrawFrom<4>(source, turn, cover, writer, width, height, method, widest);
        default:
            return DrawPixels(source, turn, cover, writer, width, height, method);
    }
}

template <class Kind>
void PasteInto(const ImageView& source, const ImageView& target, const TurnMap& turn, int width, int height,
               int method, uint32_t keyColour, SimdTier widest) {
    const PasteCover cover(source);
    if (source.bitCount > 24)
        Draw(source, turn, cover, PasteWriter<Kind, true>{target, keyColour}, width, height, method, widest);
    else
        Draw(source, turn, cover, PasteWriter<Kind, false>{target, keyColour}, width, height, method, widest);
}

}  // namespace

TurnedFrame TurnRectangle(int width, int height, float cosine, float sine) {
    const float right = static_cast<float>(width) - 0.5f, bottom = static_cast<float>(height) - 0.5f;
    const float cornerX[4] = {-0.5f, right, -0.5f, right};
    const float cornerY[4] = {-0.5f, -0.5f, bottom, bottom};
    float minX = 0.0f, maxX = 0.0f, minY = 0.0f, maxY = 0.0f;
    for (int i = 0; i < 4; ++i) {
        const float x = cosine * cornerX[i] - sine * cornerY[i];
        const float y = sine * cornerX[i] + cosine * cornerY[i];
        if (i == 0 || x < minX) minX = x;
        if (i == 0 || x > maxX) maxX = x;
        if (i == 0 || y < minY) minY = y;
        if (i == 0 || y > maxY) maxY = y;
    }
    TurnedFrame frame;
    frame.width = PixelSpan(std::floor(maxX - minX + 0.5f));
    frame.height = PixelSpan(std::floor(maxY - minY + 0.5f));
    frame.startX = (minX + maxX - static_cast<float>(frame.width - 1)) * 0.5f;
    frame.startY = (minY + maxY - static_cast<float>(frame.height - 1)) * 0.5f;
    return frame;
}

void DrawRotated(const ImageView& source, const ImageView& dest, const TurnMap& turn, int method,
                 SimdTier widest) {
    const RotateCover cover(source);
    WithPixelKind(dest, true, [&](auto kind) {
        using Kind = decltype(kind);
        Draw(source, turn, cover, RotateWriter<Kind>{dest}, dest.width, dest.height, method, widest);
    });
}

void PasteRotated(const ImageView& source, const ImageView& target, const TurnMap& turn, int frameWidth,
                  int frameHeight, int method, uint32_t keyColour, SimdTier widest) {
    const int width = std::min(target.width, frameWidth), height = std::min(target.height, frameHeight);
    if (target.bitCount == 32)
        PasteInto<BgraPixels>(source, target, turn, width, height, method, keyColour, widest);
    else
        PasteInto<BgrPixels>(source, target, turn, width, height, method, keyColour, widest);
}
