// Morphology, edge and contour filters: Erode, Dilate, Edge and Contour.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "filter/filter_kernels.h"
#include "filter/filter_transform.h"
#include "image/scratch.h"

namespace {

uint32_t Combine(Extremum extremum, const int low[3], const int high[3], int alpha) {
    switch (extremum) {
        case Extremum::Minimum:
            return PackColor(low[0], low[1], low[2], alpha);
        case Extremum::Maximum:
            return PackColor(high[0], high[1], high[2], alpha);
        default:  // absolute: without neighbours the extremes are still 0 and 255
            return PackColor(std::abs(high[0] - low[0]), std::abs(high[1] - low[1]),
                             std::abs(high[2] - low[2]), alpha);
    }
}

// One output pixel, its inside neighbours read as Kind reads them (AnyPixels:
// through the pixel helpers). Every outside neighbour has the same colour, so
// it is taken into the extremes once when any exists.
template <class Kind>
uint32_t ExtremumPixel(const ImageView& src, Extremum extremum, int64_t size, uint32_t outside, int64_t x,
                       int64_t y) {
    int low[3] = {255, 255, 255}, high[3] = {0, 0, 0};
    // Without neighbours the extremes keep their starting values; the alpha
    // of the previous output pixel is then always that of the first, 0.
    if (size <= 0) return Combine(extremum, low, high, 0);
    const int64_t left = x - size / 2, top = y - size / 2;
    const Span cols = ClipWindow(left, size, src.width), rows = ClipWindow(top, size, src.height);
    auto take = [&](uint32_t c) {
        const int channel[3] = {BlueOf(c), GreenOf(c), RedOf(c)};
        for (int k = 0; k < 3; ++k) {
            low[k] = std::min(low[k], channel[k]);
            high[k] = std::max(high[k], channel[k]);
        }
    };
    for (int64_t sx = cols.first; sx <= cols.last; ++sx)
        for (int64_t sy = rows.first; sy <= rows.last; ++sy)
            take(Kind::Read(src, static_cast<int>(sx), static_cast<int>(sy)));
    if (cols.Count() * rows.Count() < size * size) take(outside);
    // The alpha is the last neighbour's, the bottom-right one.
    const int64_t lastX = left + size - 1, lastY = top + size - 1;
    const bool lastInside = lastX >= 0 && lastY >= 0 && lastX < src.width && lastY < src.height;
    const int alpha =
        AlphaOf(lastInside ? Kind::Read(src, static_cast<int>(lastX), static_cast<int>(lastY)) : outside);
    return Combine(extremum, low, high, alpha);
}

#if defined(__SSE2__)
// Byte-wise extremes of 16 lanes at a time; each returns how many leading
// lanes it took, the scalar loops finish the rest.
// kCount fixes the window at compile time so the loops unroll; 0 takes the argument.
template <int kCount>
size_t ColumnExtremesVector(const unsigned char* const* rows, int runtimeCount, size_t lanes,
                            unsigned char* low, unsigned char* high) {
    const int count = kCount != 0 ? kCount : runtimeCount;
    size_t n = 0;
    for (; n + 16 <= lanes; n += 16) {
        __m128i l = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[0] + n)), h = l;
        for (int j = 1; j < count; ++j) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[j] + n));
            l = _mm_min_epu8(l, v);
            h = _mm_max_epu8(h, v);
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(low + n), l);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(high + n), h);
    }
    return n;
}

template <int kSize>
size_t RowExtremesVector(const unsigned char* columnLow, const unsigned char* columnHigh, int runtimeSize,
                         int bytesPerPixel, size_t lanes, Extremum extremum, unsigned char* out) {
    const int size = kSize != 0 ? kSize : runtimeSize;
    size_t n = 0;
    for (; n + 16 <= lanes; n += 16) {
        __m128i l = _mm_setzero_si128(), h = l;
        if (extremum != Extremum::Maximum) {
            l = _mm_loadu_si128(reinterpret_cast<const __m128i*>(columnLow + n));
            for (int i = 1; i < size; ++i)
                l = _mm_min_epu8(l, _mm_loadu_si128(reinterpret_cast<const __m128i*>(
                                        columnLow + static_cast<size_t>(i) * bytesPerPixel + n)));
        }
        if (extremum != Extremum::Minimum) {
            h = _mm_loadu_si128(reinterpret_cast<const __m128i*>(columnHigh + n));
            for (int i = 1; i < size; ++i)
                h = _mm_max_epu8(h, _mm_loadu_si128(reinterpret_cast<const __m128i*>(
                                        columnHigh + static_cast<size_t>(i) * bytesPerPixel + n)));
        }
        const __m128i result = extremum == Extremum::Minimum   ? l
                               : extremum == Extremum::Maximum ? h
                                                               : _mm_sub_epi8(h, l);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + n), result);
    }
    return n;
}
#endif

#if defined(__x86_64__)
// 3 x 3 minimum or maximum of 32 lanes at a time straight from the three
// window rows, nine loads per step and no intermediate rows. Output lane n
// takes lanes n, n + kBytes and n + 2 kBytes of each row. The last step ends
// at the last lane (repeating some outputs with the same bytes), so it needs
// at least 32 lanes; returns how many it took.
__attribute__((target("avx2"))) inline __m256i Load32Avx2(const unsigned char* p) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}
template <bool kMinimum>
__attribute__((target("avx2"))) inline __m256i Extreme32Avx2(__m256i a, __m256i b) {
    return kMinimum ? _mm256_min_epu8(a, b) : _mm256_max_epu8(a, b);
}

// The extreme of lanes n, n + kBytes and n + 2 kBytes of one row, from p = row + n.
template <int kBytes, bool kMinimum>
__attribute__((target("avx2"))) inline __m256i RowExtreme32Avx2(const unsigned char* p) {
    return Extreme32Avx2<kMinimum>(Extreme32Avx2<kMinimum>(Load32Avx2(p), Load32Avx2(p + kBytes)),
                                   Load32Avx2(p + 2 * kBytes));
}

// The extreme of rows' lanes n to n + 31 down the three rows.
template <bool kMinimum>
__attribute__((target("avx2"))) inline __m256i ColumnExtreme32Avx2(const unsigned char* top,
                                                                   const unsigned char* middle,
                                                                   const unsigned char* bottom, size_t n) {
    return Extreme32Avx2<kMinimum>(Extreme32Avx2<kMinimum>(Load32Avx2(top + n), Load32Avx2(middle + n)),
                                   Load32Avx2(bottom + n));
}

template <int kBytes, bool kMinimum>
__attribute__((target("avx2"))) size_t MinMax3Avx2(const unsigned char* const rows[3], size_t lanes,
                                                   unsigned char* out) {
    if (lanes < 32) return 0;
    const unsigned char* const top = rows[0];
    const unsigned char* const middle = rows[1];
    const unsigned char* const bottom = rows[2];
    // Column extremes of lanes n to n + 63 in two registers, the second carried
    // to the next step; the lanes kBytes and 2 kBytes further come from byte
    // shifts across them. Three loads a step instead of nine, while the next
    // 32 lanes still lie within the row (lanes + 2 kBytes long).
    const size_t rowLanes = lanes + 2 * kBytes;
    size_t n = 0;
    if (rowLanes >= 64) {
        __m256i current = ColumnExtreme32Avx2<kMinimum>(top, middle, bottom, 0);
        for (; n + 64 <= rowLanes && n + 32 <= lanes; n += 32) {
            const __m256i next = ColumnExtreme32Avx2<kMinimum>(top, middle, bottom, n + 32);
            const __m256i straddle =
                _mm256_permute2x128_si256(current, next, 0x21);  // lanes n + 16 to n + 47
            const __m256i once = _mm256_alignr_epi8(straddle, current, kBytes);
            const __m256i twice = _mm256_alignr_epi8(straddle, current, 2 * kBytes);
            const __m256i all = Extreme32Avx2<kMinimum>(Extreme32Avx2<kMinimum>(current, once), twice);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + n), all);
            current = next;
        }
    }
    // The rest, nine loads a step; the last step ends at the last lane,
    // repeating some outputs with the same bytes.
    for (; n < lanes; n += 32) {
        if (n + 32 > lanes) n = lanes - 32;
        const __m256i upper = Extreme32Avx2<kMinimum>(RowExtreme32Avx2<kBytes, kMinimum>(top + n),
                                                      RowExtreme32Avx2<kBytes, kMinimum>(middle + n));
        const __m256i all = Extreme32Avx2<kMinimum>(upper, RowExtreme32Avx2<kBytes, kMinimum>(bottom + n));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + n), all);
    }
    return lanes;
}
#endif

// Outputs whose window lies inside the image's columns, every row, straight
// from the buffer in two exact passes (minimum and maximum do not care about
// grouping): down the size rows of every channel byte, then across size
// pixels. Grey images need one channel. Rows above and below the image read
// `outsideRow`, the outside colour repeated: taken once or many times it
// gives the same extremes, and its alpha lanes are the outside alpha. With
// `vectorise`, vector steps take the leading lanes of each pass. After each
// row, `afterRow(y)` runs while that row's bytes are still in the cache.
template <int kBytes, class AfterRow>
void ExtremumInterior(const ImageView& src, const ImageView& dst, Extremum extremum, int size, Span xs,
                      Span ys, unsigned char* scratch, const unsigned char* outsideRow, bool vectorise,
                      bool wide, AfterRow&& afterRow) {
    const int half = size / 2;
    auto rowAt = [&](int64_t index) {
        return index < 0 || index >= src.height ? outsideRow : src.Row(static_cast<int>(index));
    };
    const size_t rowLanes = static_cast<size_t>(src.width) * kBytes;
    const size_t outLanes = static_cast<size_t>(xs.Count()) * kBytes;
    unsigned char* columnLow = scratch;
    unsigned char* columnHigh = columnLow + rowLanes;
    unsigned char* low = columnHigh + rowLanes;
    unsigned char* high = low + rowLanes;
    const unsigned char* first = nullptr;
#if defined(__SSE2__)
    // Rows of the window; sizes beyond this many keep to the scalar loops.
    constexpr int kVectorRows = 32;
    const unsigned char* windowRows[kVectorRows];
    vectorise = vectorise && size <= kVectorRows;
#endif
    for (int64_t y = ys.first; y <= ys.last; ++y) {
        unsigned char* out = dst.Row(static_cast<int>(y)) + xs.first * kBytes;
        size_t columnDone = 0, rowDone = 0;
#if defined(__x86_64__)
        if (wide && size == 3 && extremum != Extremum::Range) {
            const unsigned char* const rows[3] = {rowAt(y - 1), rowAt(y), rowAt(y + 1)};
            const size_t done = extremum == Extremum::Minimum
                                    ? MinMax3Avx2<kBytes, true>(rows, outLanes, out)
                                    : MinMax3Avx2<kBytes, false>(rows, outLanes, out);
            if (done == outLanes) {
                if (kBytes == 4)
                    for (size_t n = 3; n < outLanes; n += 4) out[n] = rows[2][(xs.first + 1) * 4 + n];
                afterRow(y);
                continue;
            }
        }
#endif
#if defined(__SSE2__)
        if (vectorise) {
            for (int j = 0; j < size; ++j) windowRows[j] = rowAt(y - half + j);
            columnDone = size == 3
                             ? ColumnExtremesVector<3>(windowRows, size, rowLanes, columnLow, columnHigh)
                             : ColumnExtremesVector<0>(windowRows, size, rowLanes, columnLow, columnHigh);
        }
#endif
        first = rowAt(y - half);
        std::copy(first + columnDone, first + rowLanes, columnLow + columnDone);
        std::copy(first + columnDone, first + rowLanes, columnHigh + columnDone);
        for (int j = 1; j < size; ++j) {
            const unsigned char* row = rowAt(y - half + j);
            for (size_t n = columnDone; n < rowLanes; ++n) {
                columnLow[n] = std::min(columnLow[n], row[n]);
                columnHigh[n] = std::max(columnHigh[n], row[n]);
            }
        }
#if defined(__SSE2__)
        if (vectorise) {
            rowDone =
                size == 3
                    ? RowExtremesVector<3>(columnLow, columnHigh, size, kBytes, outLanes, extremum, out)
                    : RowExtremesVector<0>(columnLow, columnHigh, size, kBytes, outLanes, extremum, out);
        }
#endif
        // Output lane n of the interior starts its window at lane n of the row.
        std::copy(columnLow + rowDone, columnLow + outLanes, low + rowDone);
        std::copy(columnHigh + rowDone, columnHigh + outLanes, high + rowDone);
        for (int i = 1; i < size; ++i) {
            const unsigned char* shiftedLow = columnLow + static_cast<size_t>(i) * kBytes;
            const unsigned char* shiftedHigh = columnHigh + static_cast<size_t>(i) * kBytes;
            for (size_t n = rowDone; n < outLanes; ++n) {
                low[n] = std::min(low[n], shiftedLow[n]);
                high[n] = std::max(high[n], shiftedHigh[n]);
            }
        }
        for (size_t n = rowDone; n < outLanes; ++n) {
            out[n] = extremum == Extremum::Minimum   ? low[n]
                     : extremum == Extremum::Maximum ? high[n]
                                                     : static_cast<unsigned char>(high[n] - low[n]);
        }
        if (kBytes == 4) {
            const unsigned char* last = rowAt(y - half + size - 1) + (xs.first - half + size - 1) * 4;
            for (size_t n = 3; n < outLanes; n += 4) out[n] = last[n];
        }
        afterRow(y);
    }
}

// The outputs of row y left and right of the interior columns, straight from
// the buffer: a neighbour outside the columns reads the outside colour (the
// first pixel of `outsideRow`), one above or below the image the outside row
// itself. Channel lanes take the extremes; a 32-bit pixel's alpha is its last
// (bottom-right) neighbour's. kSize fixes the window at compile time, 0 takes
// `runtimeSize`.
constexpr int kBorderRowsMax = 64;  // larger windows take ExtremumPixel
template <int kBytes, int kSize>
void ExtremumBorderRow(const ImageView& src, const ImageView& dst, Extremum extremum, int runtimeSize,
                       Span xs, int64_t y, const unsigned char* outsideRow) {
    constexpr int kChannels = kBytes < 3 ? kBytes : 3;
    const int size = kSize != 0 ? kSize : runtimeSize;
    const int half = size / 2;
    const unsigned char* windowRows[kBorderRowsMax];  // outside rows replaced by the outside row
    for (int j = 0; j < size; ++j) {
        const int64_t row = y - half + j;
        windowRows[j] = row < 0 || row >= src.height ? outsideRow : src.Row(static_cast<int>(row));
    }
    unsigned char* out = dst.Row(static_cast<int>(y));
    auto pixel = [&](int64_t x) {
        unsigned char low[kChannels], high[kChannels];
        for (int k = 0; k < kChannels; ++k) low[k] = 255, high[k] = 0;
        const unsigned char* last = outsideRow;
        for (int i = 0; i < size; ++i) {
            const int64_t column = x - half + i;
            const bool inside = column >= 0 && column < src.width;
            const size_t offset = inside ? static_cast<size_t>(column) * kBytes : 0;
            for (int j = 0; j < size; ++j) {
                // Outside columns all read the outside colour, whatever the row.
                const unsigned char* p = inside ? windowRows[j] + offset : outsideRow;
                for (int k = 0; k < kChannels; ++k) {
                    low[k] = std::min(low[k], p[k]);
                    high[k] = std::max(high[k], p[k]);
                }
                last = p;
            }
        }
        unsigned char* o = out + static_cast<size_t>(x) * kBytes;
        for (int k = 0; k < kChannels; ++k)
            o[k] = extremum == Extremum::Minimum   ? low[k]
                   : extremum == Extremum::Maximum ? high[k]
                                                   : static_cast<unsigned char>(high[k] - low[k]);
        if (kBytes == 4) o[3] = last[3];
    };
    for (int64_t x = 0; x < xs.first && x < src.width; ++x) pixel(x);
    for (int64_t x = xs.last + 1; x < src.width; ++x) pixel(x);
}

#if defined(__SSE2__)
// kCount bytes from p in the low bytes, read by whole loads of one, two,
// four or eight bytes (an odd-sized copy would go through the stack).
template <int kCount>
inline uint64_t LoadBytes(const unsigned char* p) {
    static_assert(kCount >= 1 && kCount <= 8, "up to eight bytes");
    if constexpr (kCount == 1) {
        return p[0];
    } else if constexpr (kCount == 2 || kCount == 4 || kCount == 8) {
        using Word =
            std::conditional_t<kCount == 2, uint16_t, std::conditional_t<kCount == 4, uint32_t, uint64_t>>;
        Word word;
        std::memcpy(&word, p, kCount);
        return word;
    } else {
        constexpr int kLow = kCount > 4 ? 4 : 2;
        return LoadBytes<kLow>(p) | LoadBytes<kCount - kLow>(p + kLow) << (8 * kLow);
    }
}

// Two neighbouring pixels' bytes from p, in the low lanes.
template <int kBytes>
inline __m128i LoadPixelPair(const unsigned char* p) {
    return _mm_cvtsi64_si128(static_cast<long long>(LoadBytes<2 * kBytes>(p)));
}

template <bool kMinimum>
inline __m128i ExtremeOf(__m128i a, __m128i b) {
    return kMinimum ? _mm_min_epu8(a, b) : _mm_max_epu8(a, b);
}

// The first and last output of row y of a 3 x 3 window over an image at least
// three pixels wide, in vector lanes: each takes the extremes of its two
// inside columns down the three window rows and of the outside colour (its
// third column). A 32-bit pixel's alpha is its bottom-right neighbour's.
template <int kBytes, Extremum kExtremum>
void ExtremumBorder3(const ImageView& src, const ImageView& dst, int64_t y, const unsigned char* outsideRow) {
    constexpr int kChannels = kBytes < 3 ? kBytes : 3;
    auto rowAt = [&](int64_t index) {
        return index < 0 || index >= src.height ? outsideRow : src.Row(static_cast<int>(index));
    };
    const unsigned char* const top = rowAt(y - 1);
    const unsigned char* const middle = rowAt(y);
    const unsigned char* const bottom = rowAt(y + 1);
    const __m128i outsidePixel = _mm_cvtsi64_si128(static_cast<long long>(LoadBytes<kBytes>(outsideRow)));
    unsigned char* const out = dst.Row(static_cast<int>(y));
    auto pixel = [&](size_t pairOffset, unsigned char* o, unsigned char alpha) {
        const __m128i t = LoadPixelPair<kBytes>(top + pairOffset);
        const __m128i m = LoadPixelPair<kBytes>(middle + pairOffset);
        const __m128i b = LoadPixelPair<kBytes>(bottom + pairOffset);
        auto extreme = [&](auto minimum) {
            constexpr bool kMin = decltype(minimum)::value;
            const __m128i column = ExtremeOf<kMin>(ExtremeOf<kMin>(t, m), b);
            return ExtremeOf<kMin>(ExtremeOf<kMin>(column, _mm_srli_si128(column, kBytes)), outsidePixel);
        };
        __m128i result;
        if (kExtremum == Extremum::Minimum)
            result = extreme(std::true_type{});
        else if (kExtremum == Extremum::Maximum)
            result = extreme(std::false_type{});
        else
            result = _mm_sub_epi8(extreme(std::false_type{}), extreme(std::true_type{}));
        const uint32_t bytes = static_cast<uint32_t>(_mm_cvtsi128_si32(result));
        for (int k = 0; k < kChannels; ++k) o[k] = static_cast<unsigned char>(bytes >> (8 * k));
        if (kBytes == 4) o[3] = alpha;
    };
    // The first output's window is the outside column and columns 0 and 1;
    // the last's columns width - 2 and width - 1 and the outside column.
    const size_t lastPair = static_cast<size_t>(src.width - 2) * kBytes;
    pixel(0, out, kBytes == 4 ? bottom[kBytes + 3] : 0);
    pixel(lastPair, out + lastPair + kBytes, kBytes == 4 ? outsideRow[3] : 0);
}
#endif

// The contour rule: per channel, a neighbour replaces the kept value t when
// its difference to the centre exceeds t, and then t becomes the neighbour's
// value itself. Neighbours come column by column, top to bottom in each.
template <class Read>
uint32_t ContourPixel(uint32_t centre, Read&& read) {
    const int c[3] = {BlueOf(centre), GreenOf(centre), RedOf(centre)};
    int t[3] = {0, 0, 0};
    for (int i = -1; i <= 1; ++i) {
        for (int j = -1; j <= 1; ++j) {
            const uint32_t neighbour = read(i, j);
            const int n[3] = {BlueOf(neighbour), GreenOf(neighbour), RedOf(neighbour)};
            for (int k = 0; k < 3; ++k)
                if (n[k] - c[k] > t[k]) t[k] = n[k];
        }
    }
    return PackColor(255 - t[0], 255 - t[1], 255 - t[2], AlphaOf(centre));
}

// The contour rule on 8-, 24- and 32-bit rows, lanes of channel bytes at a
// time: n - c > t, with c + t up to 510, is n > c + t with the sum saturated
// at 255 (no byte exceeds a saturated sum, as none exceeds the true one). The
// step compares, then blends the neighbour in where it wins. `rows` are the
// three window rows at their first pixel; output lane n is pixel 1 + n / kBytes,
// its neighbours lanes n, n + kBytes and n + 2 kBytes. A 32-bit pixel keeps
// the centre's alpha. The last step ends at the last lane, so each needs one
// full step of lanes and takes all or none.
#if defined(__SSE2__)
template <int kBytes>
size_t ContourLanesVector(const unsigned char* const rows[3], size_t lanes, unsigned char* out) {
    if (lanes < 16) return 0;
    const __m128i alpha = kBytes == 4 ? _mm_set1_epi32(static_cast<int>(0xFF000000u)) : _mm_setzero_si128();
    const __m128i ones = _mm_set1_epi8(-1);
    for (size_t n = 0;; n += 16) {
        if (n + 16 > lanes) n = lanes - 16;
        const __m128i centre = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[1] + kBytes + n));
        __m128i kept = _mm_setzero_si128();
        for (int i = 0; i < 3; ++i) {
            for (int j = 0; j < 3; ++j) {
                const __m128i neighbour =
                    _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[j] + i * kBytes + n));
                const __m128i bound = _mm_adds_epu8(centre, kept);
                const __m128i stays = _mm_cmpeq_epi8(_mm_max_epu8(neighbour, bound), bound);
                kept = _mm_or_si128(_mm_and_si128(stays, kept), _mm_andnot_si128(stays, neighbour));
            }
        }
        const __m128i inverted = _mm_xor_si128(kept, ones);
        const __m128i result = _mm_or_si128(_mm_andnot_si128(alpha, inverted), _mm_and_si128(alpha, centre));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + n), result);
        if (n + 16 == lanes) break;
    }
    return lanes;
}
#endif

#if defined(__x86_64__)
template <int kBytes>
__attribute__((target("avx512f,avx512bw"))) size_t ContourLanesAvx512(const unsigned char* const rows[3],
                                                                      size_t lanes, unsigned char* out) {
    if (lanes < 64) return 0;
    const __mmask64 alpha = kBytes == 4 ? 0x8888888888888888ull : 0;
    for (size_t n = 0;; n += 64) {
        if (n + 64 > lanes) n = lanes - 64;
        const __m512i centre = _mm512_loadu_si512(rows[1] + kBytes + n);
        __m512i kept = _mm512_setzero_si512();
        for (int i = 0; i < 3; ++i) {
            for (int j = 0; j < 3; ++j) {
                const __m512i neighbour = _mm512_loadu_si512(rows[j] + i * kBytes + n);
                const __mmask64 wins = _mm512_cmpgt_epu8_mask(neighbour, _mm512_adds_epu8(centre, kept));
                kept = _mm512_mask_blend_epi8(wins, kept, neighbour);
            }
        }
        const __m512i inverted = _mm512_xor_si512(kept, _mm512_set1_epi8(-1));
        _mm512_storeu_si512(out + n, _mm512_mask_blend_epi8(alpha, inverted, centre));
        if (n + 64 == lanes) break;
    }
    return lanes;
}
#endif

// Lanes of row y's inner pixels (1 to width - 2) taken by the widest step
// `steps` allow; 0 when none runs.
template <int kBytes>
size_t ContourLanes(const ImageView& src, const ImageView& dst, int y, PathSteps steps) {
    const unsigned char* const rows[3] = {src.Row(y - 1), src.Row(y), src.Row(y + 1)};
    const size_t lanes = static_cast<size_t>(src.width - 2) * kBytes;
    unsigned char* out = dst.Row(y) + kBytes;
    size_t done = 0;
#if defined(__x86_64__)
    if (steps.widest) done = ContourLanesAvx512<kBytes>(rows, lanes, out);
#endif
#if defined(__SSE2__)
    if (steps.vector && done == 0) done = ContourLanesVector<kBytes>(rows, lanes, out);
#endif
    (void)rows, (void)out, (void)steps;
    return done;
}

}  // namespace

void MorphologyView(const ImageView& src, const ImageView& dst, Extremum extremum, int size,
                    FilterPath path) {
    const uint32_t outside = OutsideColour(src);
    Span xs, ys;  // outputs computed on the fast path
    const int bytes = path != FilterPath::General && size > 0 ? DirectPixelBytes(src) : 0;
    // Plain names, not a structured binding: lambdas below capture them (C++17).
    const PathSteps steps = StepsOf(path);
    const bool vectorise = steps.vector, wide = steps.wide;
    ScratchBuffer<unsigned char> scratch;     // four rows of extremes
    ScratchBuffer<unsigned char> outsideRow;  // a row of the outside colour
    if (bytes != 0) {
        xs = InteriorOutputs(size, src.width);
        ys = Span{0, src.height - 1};
        const size_t rowLanes = static_cast<size_t>(src.width) * bytes;
        if (xs.Count() > 0 && scratch.Resize(rowLanes * 4) && outsideRow.Resize(rowLanes))
            FillOutsideRow(src, bytes, outsideRow.Data());
        else
            xs = ys = Span{};  // no column fully inside, or no memory: all pixel by pixel
    }
    // Pixels outside the interior columns (all of them when there are none)
    // one by one, read and written directly for 8-, 24- and 32-bit images,
    // through the pixel helpers otherwise.
    WithPixelKind(src, path, [&](auto kind) {
        using Kind = decltype(kind);
        auto borderColumns = [&](int64_t row) {
            const int y = static_cast<int>(row);
            const bool interiorRow = y >= ys.first && y <= ys.last;
            for (int x = 0; x < src.width; ++x) {
                if (interiorRow && x == xs.first) x = static_cast<int>(xs.last) + 1;
                if (x >= src.width) break;
                Kind::Write(dst, x, y, ExtremumPixel<Kind>(src, extremum, size, outside, x, y));
            }
        };
        if (!scratch) {
            for (int y = 0; y < src.height; ++y) borderColumns(y);
            return;
        }
        // The border columns of each row, read and written directly while the
        // row is cached; windows beyond kBorderRowsMax rows pixel by pixel.
        auto interior = [&](auto bytesConstant) {
            constexpr int kBytes = decltype(bytesConstant)::value;
            auto directBorder = [&](int64_t y) {
#if defined(__SSE2__)
                if (vectorise && size == 3 && extremum == Extremum::Minimum)
                    ExtremumBorder3<kBytes, Extremum::Minimum>(src, dst, y, outsideRow.Data());
                else if (vectorise && size == 3 && extremum == Extremum::Maximum)
                    ExtremumBorder3<kBytes, Extremum::Maximum>(src, dst, y, outsideRow.Data());
                else if (vectorise && size == 3)
                    ExtremumBorder3<kBytes, Extremum::Range>(src, dst, y, outsideRow.Data());
                else
#endif
                    if (size == 3)
                    ExtremumBorderRow<kBytes, 3>(src, dst, extremum, size, xs, y, outsideRow.Data());
                else if (size <= kBorderRowsMax)
                    ExtremumBorderRow<kBytes, 0>(src, dst, extremum, size, xs, y, outsideRow.Data());
                else
                    borderColumns(y);
            };
            ExtremumInterior<kBytes>(src, dst, extremum, size, xs, ys, scratch.Data(), outsideRow.Data(),
                                     vectorise, wide, directBorder);
        };
        if (bytes == 1) interior(std::integral_constant<int, 1>{});
        if (bytes == 3) interior(std::integral_constant<int, 3>{});
        if (bytes == 4) interior(std::integral_constant<int, 4>{});
    });
}

void ContourView(const ImageView& src, const ImageView& dst, FilterPath path) {
    const int bytes = path != FilterPath::General ? DirectPixelBytes(src) : 0;
    const PathSteps steps = StepsOf(path);
    WithPixelKind(src, path, [&](auto kind) {
        using Kind = decltype(kind);
        for (int y = 0; y < src.height; ++y) {
            const bool innerRow = y >= 1 && y + 1 < src.height;
            // Inner pixels the vector steps took; the loop below skips them.
            size_t done = 0;
            if (innerRow && src.width > 2) {
                if (bytes == 1) done = ContourLanes<1>(src, dst, y, steps);
                if (bytes == 3) done = ContourLanes<3>(src, dst, y, steps);
                if (bytes == 4) done = ContourLanes<4>(src, dst, y, steps);
            }
            for (int x = 0; x < src.width; ++x) {
                if (done != 0 && x == 1) x = src.width - 1;
                const uint32_t centre = Kind::Read(src, x, y);
                uint32_t c;
                if (innerRow && x >= 1 && x + 1 < src.width)
                    c = ContourPixel(centre, [&](int i, int j) { return Kind::Read(src, x + i, y + j); });
                else
                    c = ContourPixel(centre,
                                     [&](int i, int j) { return ReadOrOutside<Kind>(src, x + i, y + j); });
                Kind::Write(dst, x, y, c);
            }
        }
    });
}

namespace {

QResult RunExtremum(IQEL* image, int size, Extremum extremum, DestinationRoad road, IQEL** result) {
    if (image == nullptr) return QEL_E_FAIL;
    FilterTarget target;
    if (MakeFilterTarget(image, road, Writes::EveryPixel, &target) != QEL_OK) return QEL_E_FAIL;
    if (target.Writable())
        MorphologyView(target.source, target.destination, extremum, size, FilterPath::Fast);
    return HandOverResult(image, &target.image, result);
}

}  // namespace

QResult CQELFilterTransform::Erode(IQEL* image, int size, IQEL** result) {
    return RunExtremum(image, size, Extremum::Minimum, DestinationRoad::Collection, result);
}

QResult CQELFilterTransform::Dilate(IQEL* image, int size, IQEL** result) {
    return RunExtremum(image, size, Extremum::Maximum, DestinationRoad::ImageDIB, result);
}

QResult CQELFilterTransform::Edge(IQEL* image, int size, IQEL** result) {
    return RunExtremum(image, size, Extremum::Range, DestinationRoad::Collection, result);
}

QResult CQELFilterTransform::Contour(IQEL* image, IQEL** result) {
    if (image == nullptr) return QEL_E_FAIL;
    FilterTarget target;
    if (MakeFilterTarget(image, DestinationRoad::Collection, Writes::EveryPixel, &target) != QEL_OK)
        return QEL_E_FAIL;
    if (target.Writable()) ContourView(target.source, target.destination, FilterPath::Fast);
    return HandOverResult(image, &target.image, result);
}
