// Convolution filters: Filter, Kernel and the fixed kernels built on Filter.
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <utility>
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

// Turns a channel sum into a byte: divided (truncating), offset, clamped.
// Sums wrap in 32 bits; a divisor of -1 negates with wrap-around so that the
// most negative sum cannot trap.
struct SumFinisher {
    int divisor;
    int offset;
    int operator()(uint32_t sum) const {
        int32_t value = static_cast<int32_t>(sum);
        if (divisor == -1)
            value = static_cast<int32_t>(0u - sum);
        else if (divisor != 0)
            value /= divisor;
        return ClampToByte(
            static_cast<int32_t>(static_cast<uint32_t>(value) + static_cast<uint32_t>(offset)));
    }
};

// One output pixel, its inside neighbours read as Kind reads them (AnyPixels:
// through the pixel helpers). Outside neighbours all share one colour, so their contribution is that colour
// times the weights not visited inside; the wrapping sums make this equal to adding them one by one, and it
// keeps sizes far beyond the image cheap.
template <class Kind>
uint32_t ConvolvePixel(const ImageView& src, const int* kernel, int64_t size, uint32_t totalWeight,
                       uint32_t outside, const SumFinisher& finish, int64_t x, int64_t y) {
    const int64_t left = x - size / 2, top = y - size / 2;
    const Span cols = ClipWindow(left, size, src.width), rows = ClipWindow(top, size, src.height);
    uint32_t blue = 0, green = 0, red = 0, insideWeight = 0;
    for (int64_t sx = cols.first; sx <= cols.last; ++sx) {
        for (int64_t sy = rows.first; sy <= rows.last; ++sy) {
            const uint32_t weight = static_cast<uint32_t>(kernel[(sy - top) * size + (sx - left)]);
            const uint32_t c = Kind::Read(src, static_cast<int>(sx), static_cast<int>(sy));
            blue += weight * static_cast<uint32_t>(BlueOf(c));
            green += weight * static_cast<uint32_t>(GreenOf(c));
            red += weight * static_cast<uint32_t>(RedOf(c));
            insideWeight += weight;
        }
    }
    const uint32_t outsideWeight = totalWeight - insideWeight;
    blue += outsideWeight * static_cast<uint32_t>(BlueOf(outside));
    green += outsideWeight * static_cast<uint32_t>(GreenOf(outside));
    red += outsideWeight * static_cast<uint32_t>(RedOf(outside));
    // The alpha is the last neighbour's, the bottom-right one; none without neighbours.
    const int64_t lastX = left + size - 1, lastY = top + size - 1;
    const bool lastInside = lastX >= 0 && lastY >= 0 && lastX < src.width && lastY < src.height;
    const int alpha =
        size <= 0 ? 0
                  : AlphaOf(lastInside ? Kind::Read(src, static_cast<int>(lastX), static_cast<int>(lastY))
                                       : outside);
    return PackColor(finish(blue), finish(green), finish(red), alpha);
}

// Sums that provably stay within 16 bits, finished by a multiply-high in place
// of the division: 8 lanes per instruction with the baseline x86-64 vector set.
// Every condition below keeps the result equal to SumFinisher's.
struct ShortSums {
    bool usable = false;
    int16_t weights[49] = {};  // only kernels up to 7 x 7
    uint16_t multiplier = 0;   // quotient = (|sum| * multiplier) >> 16 >> shift
    int shift = 0;
    bool divides = false;
    int16_t offset = 0;
    // No negative weight: every sum is at least 0, so the division needs no
    // sign handling.
    bool nonNegative = false;
    // A kernel that is a column of integers times a row of integers (weight
    // j, i = columnFactors[j] * rowFactors[i]) is summed down the columns first,
    // then across: the same integer sum, with 2 x size taps instead of size².
    bool separable = false;
    int16_t columnFactors[7] = {}, rowFactors[7] = {};
    // Non-negative sums over a power-of-two multiplier: the division is this
    // right shift (0 when it is not).
    int shiftDivide = 0;

    void FindFactors(const int* kernel, int size) {
        int firstRow = -1, firstColumn = -1;
        for (int n = 0; n < size * size && firstRow < 0; ++n)
            if (kernel[n] != 0) firstRow = n / size, firstColumn = n % size;
        if (firstRow < 0) return;
        int common = 0;  // the row factors are the first non-zero row over its gcd
        for (int i = 0; i < size; ++i) {
            int a = std::abs(kernel[firstRow * size + i]), b = common;
            while (b != 0) a %= b, std::swap(a, b);
            common = a;
        }
        for (int i = 0; i < size; ++i)
            rowFactors[i] = static_cast<int16_t>(kernel[firstRow * size + i] / common);
        for (int j = 0; j < size; ++j) {
            const int lead = kernel[j * size + firstColumn];
            if (lead % rowFactors[firstColumn] != 0) return;
            columnFactors[j] = static_cast<int16_t>(lead / rowFactors[firstColumn]);
            for (int i = 0; i < size; ++i)
                if (kernel[j * size + i] != columnFactors[j] * rowFactors[i]) return;
        }
        separable = true;
    }

    ShortSums(const int* kernel, int size, const SumFinisher& finish) {
        if (size <= 0 || size > 7) return;
        int64_t low = 0, high = 0;  // extreme sums over byte inputs
        for (int n = 0; n < size * size; ++n) {
            if (kernel[n] < 0)
                low += 255 * static_cast<int64_t>(kernel[n]);
            else
                high += 255 * static_cast<int64_t>(kernel[n]);
            weights[n] = static_cast<int16_t>(kernel[n] < -32768 ? 0 : kernel[n] > 32767 ? 0 : kernel[n]);
        }
        // Partial sums lie between the extremes too, so 16-bit lanes never wrap.
        if (low < -32768 || high > 32767) return;
        if (finish.offset < -32768 || finish.offset > 32767) return;
        offset = static_cast<int16_t>(finish.offset);
        nonNegative = low == 0;
        FindFactors(kernel, size);
        const int64_t largest = high > -low ? high : -low;
        if (finish.divisor == 0 || finish.divisor == 1) {
            usable = true;
            return;
        }
        if (finish.divisor < 2) return;  // negative divisors stay scalar
        for (shift = 0; shift < 16 && !usable; ++shift) {
            const int64_t m = ((int64_t{1} << (16 + shift)) + finish.divisor - 1) / finish.divisor;
            if (m > 65535) break;
            bool exact = true;
            for (int64_t v = 0; v <= largest && exact; ++v)
                exact = ((v * m) >> (16 + shift)) == v / finish.divisor;
            if (exact) {
                multiplier = static_cast<uint16_t>(m);
                divides = usable = true;
                // (v * 2^k) >> (16 + shift) == v >> (16 - k + shift) for non-negative v.
                if (nonNegative && (m & (m - 1)) == 0) {
                    int k = 0;
                    while ((int64_t{1} << k) < m) ++k;
                    shiftDivide = 16 - k + shift;
                }
                return;
            }
        }
        usable = false;
    }
};

#if defined(__SSE2__)
// Lanes [0, returned) of one output row, 16 at a time: the weighted taps are
// summed in 16-bit lanes, the magnitude divided by multiply-high and shift,
// the sign restored, the offset added with saturation, and the clamp to a byte
// done by the saturating pack (saturation only ever hits values that clamp to
// 0 or 255 anyway).
// 16-bit lanes times a factor; factors 1 and 2 (most of the fixed kernels') as
// plain additions, which give the same wrapped lanes.
inline __m128i Scaled(__m128i lanes, int16_t factor) {
    if (factor == 1) return lanes;
    if (factor == 2) return _mm_add_epi16(lanes, lanes);
    return _mm_mullo_epi16(lanes, _mm_set1_epi16(factor));
}

// The separable form: column sums of every lane the row's windows touch, then
// the weighted sum across. Both stay within the 16-bit bounds of the whole sum.
size_t ConvolveSeparableVector(const unsigned char* const* tapRows, int size, int bytesPerPixel, size_t lanes,
                               const ShortSums& plan, int16_t* columns, unsigned char* out) {
    const size_t reach = lanes + static_cast<size_t>(size - 1) * bytesPerPixel;
    const __m128i zero = _mm_setzero_si128();
    size_t n = 0;
    for (; n + 16 <= reach; n += 16) {
        __m128i low = zero, high = zero;
        for (int j = 0; j < size; ++j) {
            const int16_t f = plan.columnFactors[j];
            if (f == 0) continue;
            const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(tapRows[j] + n));
            low = _mm_add_epi16(low, Scaled(_mm_unpacklo_epi8(bytes, zero), f));
            high = _mm_add_epi16(high, Scaled(_mm_unpackhi_epi8(bytes, zero), f));
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(columns + n), low);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(columns + n + 8), high);
    }
    for (; n < reach; ++n) {
        int sum = 0;
        for (int j = 0; j < size; ++j) sum += plan.columnFactors[j] * tapRows[j][n];
        columns[n] = static_cast<int16_t>(sum);
    }
    const __m128i multiplier = _mm_set1_epi16(static_cast<short>(plan.multiplier));
    const __m128i shift = _mm_cvtsi32_si128(plan.shift);
    const __m128i offset = _mm_set1_epi16(plan.offset);
    auto finish = [&](__m128i sum) {
        if (!plan.divides) return _mm_adds_epi16(sum, offset);
        const __m128i sign = _mm_srai_epi16(sum, 15);
        __m128i q = _mm_sub_epi16(_mm_xor_si128(sum, sign), sign);
        q = _mm_srl_epi16(_mm_mulhi_epu16(q, multiplier), shift);
        q = _mm_sub_epi16(_mm_xor_si128(q, sign), sign);
        return _mm_adds_epi16(q, offset);
    };
    for (n = 0; n + 16 <= lanes; n += 16) {
        __m128i low = zero, high = zero;
        for (int i = 0; i < size; ++i) {
            const int16_t f = plan.rowFactors[i];
            if (f == 0) continue;
            const int16_t* at = columns + static_cast<size_t>(i) * bytesPerPixel + n;
            low = _mm_add_epi16(low, Scaled(_mm_loadu_si128(reinterpret_cast<const __m128i*>(at)), f));
            high = _mm_add_epi16(high, Scaled(_mm_loadu_si128(reinterpret_cast<const __m128i*>(at + 8)), f));
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + n), _mm_packus_epi16(finish(low), finish(high)));
    }
    return n;
}

// The taps with a non-zero weight are gathered once per row: their first
// byte and their weight in every 16-bit lane.
size_t ConvolveLanesVector(const unsigned char* const* tapRows, int size, int bytesPerPixel, size_t lanes,
                           const ShortSums& plan, unsigned char* out) {
    const unsigned char* taps[49];
    __m128i weights[49];
    int count = 0;
    for (int j = 0; j < size; ++j) {
        for (int i = 0; i < size; ++i) {
            const int16_t w = plan.weights[j * size + i];
            if (w == 0) continue;
            taps[count] = tapRows[j] + static_cast<size_t>(i) * bytesPerPixel;
            weights[count++] = _mm_set1_epi16(w);
        }
    }
    const __m128i zero = _mm_setzero_si128();
    const __m128i multiplier = _mm_set1_epi16(static_cast<short>(plan.multiplier));
    const __m128i shift = _mm_cvtsi32_si128(plan.shift);
    const __m128i offset = _mm_set1_epi16(plan.offset);
    const bool divides = plan.divides;
    auto finish = [&](__m128i sum) {
        if (!divides) return _mm_adds_epi16(sum, offset);
        const __m128i sign = _mm_srai_epi16(sum, 15);
        __m128i q = _mm_sub_epi16(_mm_xor_si128(sum, sign), sign);
        q = _mm_srl_epi16(_mm_mulhi_epu16(q, multiplier), shift);
        q = _mm_sub_epi16(_mm_xor_si128(q, sign), sign);
        return _mm_adds_epi16(q, offset);
    };
    size_t n = 0;
    for (; n + 16 <= lanes; n += 16) {
        __m128i low = zero, high = zero;
        for (int t = 0; t < count; ++t) {
            const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(taps[t] + n));
            low = _mm_add_epi16(low, _mm_mullo_epi16(_mm_unpacklo_epi8(bytes, zero), weights[t]));
            high = _mm_add_epi16(high, _mm_mullo_epi16(_mm_unpackhi_epi8(bytes, zero), weights[t]));
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + n), _mm_packus_epi16(finish(low), finish(high)));
    }
    return n;
}
#endif

#if defined(__x86_64__)
// The separable form 32 lanes a step with AVX2, chosen at run time. Same sums
// in the same 16-bit lanes as ConvolveSeparableVector. Each pass's last step
// ends at its last lane, recomputing a few lanes with the same values, so no
// scalar tail is left; it needs at least 32 output lanes and returns how many
// it took (all or none). kSize fixes the window at compile time, 0 takes `size`.
__attribute__((target("avx2"))) inline __m256i ScaledAvx2(__m256i lanes, int16_t factor) {
    if (factor == 1) return lanes;
    if (factor == 2) return _mm256_add_epi16(lanes, lanes);
    return _mm256_mullo_epi16(lanes, _mm256_set1_epi16(factor));
}

__attribute__((target("avx2"))) inline __m256i WidenedAvx2(const unsigned char* p) {
    return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

// kMiddle, when not 0, fixes the factors of both passes at (1, kMiddle, 1) for
// 3 x 3 windows, so the taps unroll into plain additions with no factor loads
// or tests. kShiftDivide: the division is a multiply-high by a power of two
// on non-negative sums, which is one right shift of the same bits.
template <int kSize, int kMiddle, bool kShiftDivide>
__attribute__((target("avx2"))) size_t ConvolveSeparableAvx2(const unsigned char* const* tapRows,
                                                             int runtimeSize, int bytesPerPixel, size_t lanes,
                                                             const ShortSums& plan, int16_t* columns,
                                                             unsigned char* out) {
    static_assert(kMiddle == 0 || kSize == 3, "fixed factors are for 3 x 3 windows");
    const int size = kSize != 0 ? kSize : runtimeSize;
    auto columnFactor = [&](int j) {
        return kMiddle != 0 ? static_cast<int16_t>(j == 1 ? kMiddle : 1) : plan.columnFactors[j];
    };
    auto rowFactor = [&](int i) {
        return kMiddle != 0 ? static_cast<int16_t>(i == 1 ? kMiddle : 1) : plan.rowFactors[i];
    };
    if (lanes < 32) return 0;
    const size_t reach = lanes + static_cast<size_t>(size - 1) * bytesPerPixel;
    const __m256i zero = _mm256_setzero_si256();
    for (size_t n = 0;; n += 32) {
        if (n + 32 > reach) n = reach - 32;
        __m256i low = zero, high = zero;
#pragma GCC unroll 7
        for (int j = 0; j < size; ++j) {
            const int16_t f = columnFactor(j);
            if (f == 0) continue;
            low = _mm256_add_epi16(low, ScaledAvx2(WidenedAvx2(tapRows[j] + n), f));
            high = _mm256_add_epi16(high, ScaledAvx2(WidenedAvx2(tapRows[j] + n + 16), f));
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(columns + n), low);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(columns + n + 16), high);
        if (n + 32 == reach) break;
    }
    const __m256i multiplier = _mm256_set1_epi16(static_cast<short>(plan.multiplier));
    const __m128i shift = _mm_cvtsi32_si128(plan.shift);
    const __m256i offset = _mm256_set1_epi16(plan.offset);
    const bool divides = plan.divides, nonNegative = plan.nonNegative, offsets = plan.offset != 0;
    // Without negative weights the sign steps are identities; adding a zero
    // offset with saturation is one too.
    const __m128i shiftDivide = _mm_cvtsi32_si128(plan.shiftDivide);
    auto finish = [&](__m256i sum) __attribute__((target("avx2"))) {
        if (kShiftDivide) {
            sum = _mm256_srl_epi16(sum, shiftDivide);
        } else if (divides) {
            if (nonNegative) {
                sum = _mm256_srl_epi16(_mm256_mulhi_epu16(sum, multiplier), shift);
            } else {
                const __m256i sign = _mm256_srai_epi16(sum, 15);
                __m256i q = _mm256_sub_epi16(_mm256_xor_si256(sum, sign), sign);
                q = _mm256_srl_epi16(_mm256_mulhi_epu16(q, multiplier), shift);
                sum = _mm256_sub_epi16(_mm256_xor_si256(q, sign), sign);
            }
        }
        return offsets ? _mm256_adds_epi16(sum, offset) : sum;
    };
    for (size_t n = 0;; n += 32) {
        if (n + 32 > lanes) n = lanes - 32;
        __m256i low = zero, high = zero;
#pragma GCC unroll 7
        for (int i = 0; i < size; ++i) {
            const int16_t f = rowFactor(i);
            if (f == 0) continue;
            const int16_t* at = columns + static_cast<size_t>(i) * bytesPerPixel + n;
            low = _mm256_add_epi16(low,
                                   ScaledAvx2(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(at)), f));
            high = _mm256_add_epi16(
                high, ScaledAvx2(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(at + 16)), f));
        }
        // The pack interleaves 128-bit halves; the permute puts the bytes back in order.
        const __m256i packed = _mm256_packus_epi16(finish(low), finish(high));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + n), _mm256_permute4x64_epi64(packed, 0xD8));
        if (n + 32 == lanes) break;
    }
    return lanes;
}

// The AVX2 separable step fitted to the kernel: the box and the binomial 3 x 3
// windows with their factors built in, any other through the factor tables.
size_t ConvolveSeparableWide(const unsigned char* const* tapRows, int size, int bytesPerPixel, size_t lanes,
                             const ShortSums& plan, int16_t* columns, unsigned char* out) {
    auto factorsAre = [&](int middle) {
        for (int n = 0; n < 3; ++n) {
            const int f = n == 1 ? middle : 1;
            if (plan.columnFactors[n] != f || plan.rowFactors[n] != f) return false;
        }
        return true;
    };
    if (size == 3 && plan.shiftDivide > 0 && factorsAre(2))
        return ConvolveSeparableAvx2<3, 2, true>(tapRows, size, bytesPerPixel, lanes, plan, columns, out);
    if (size == 3 && factorsAre(1))
        return ConvolveSeparableAvx2<3, 1, false>(tapRows, size, bytesPerPixel, lanes, plan, columns, out);
    if (size == 3)
        return ConvolveSeparableAvx2<3, 0, false>(tapRows, size, bytesPerPixel, lanes, plan, columns, out);
    return ConvolveSeparableAvx2<0, 0, false>(tapRows, size, bytesPerPixel, lanes, plan, columns, out);
}
#endif

// The non-zero taps of a kernel of up to 7 x 7, grouped by weight: the taps
// of one weight are added first and the group's sum multiplied once. Lanes
// wrap, so any order of additions gives the same bits, and the bounds the
// plans check keep the whole sum, and so the wrapped one, exact.
struct TapGroups {
    int count = 0;  // groups, one per distinct weight
    int16_t weights[49] = {};
    int ends[49] = {};                    // taps of group g end at ends[g]
    int rows[49] = {}, columns[49] = {};  // window row and column of each tap, in group order

    TapGroups(const int* kernel, int size) {
        if (size <= 0 || size > 7) return;
        const int total = size * size;
        for (int n = 0; n < total; ++n)
            if (kernel[n] < -32768 || kernel[n] > 32767) return;
        bool grouped[49] = {};
        int taps = 0;
        for (int n = 0; n < total; ++n) {
            if (kernel[n] == 0 || grouped[n]) continue;
            for (int m = n; m < total; ++m) {
                if (kernel[m] != kernel[n]) continue;
                grouped[m] = true;
                rows[taps] = m / size;
                columns[taps++] = m % size;
            }
            weights[count] = static_cast<int16_t>(kernel[n]);
            ends[count++] = taps;
        }
    }
};

// Whether sums too large for 16-bit lanes still take the 32-bit lanes: every
// partial sum stays below 2^24 in magnitude, so it converts to single
// precision exactly, and a correctly rounded quotient of such a sum truncates
// to the integer quotient (rounding up to the next integer would need a
// magnitude above 2^24).
bool FitsWideSums(const int* kernel, int size, const SumFinisher& finish) {
    if (size <= 0 || size > 7) return false;
    int64_t magnitude = 0;
    for (int n = 0; n < size * size; ++n) magnitude += 255 * std::abs(static_cast<int64_t>(kernel[n]));
    constexpr int64_t kExact = int64_t{1} << 24;
    return magnitude < kExact && finish.divisor > -kExact && finish.divisor < kExact;
}

#if defined(__x86_64__)
#define QEL_AVX512 __attribute__((target("avx512f,avx512bw")))
// GCC 12's AVX-512 conversions, permutes and min/max start from an
// intentionally undefined register, which it then reports as uninitialised.
#pragma GCC diagnostic push
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

QEL_AVX512 inline __m512i WidenedAvx512(const unsigned char* p) {
    return _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)));
}

// The unweighted 16-bit sum of taps [first, end) at lanes n to n + 31.
QEL_AVX512 inline __m512i GroupSumAvx512(const unsigned char* const* taps, int first, int end, size_t n) {
    __m512i sum = WidenedAvx512(taps[first] + n);
    for (int t = first + 1; t < end; ++t) sum = _mm512_add_epi16(sum, WidenedAvx512(taps[t] + n));
    return sum;
}

// sum + weight x group in 16-bit lanes; the common small weights without a multiply.
QEL_AVX512 inline __m512i AddWeightedAvx512(__m512i sum, __m512i group, int16_t weight) {
    if (weight == 1) return _mm512_add_epi16(sum, group);
    if (weight == -1) return _mm512_sub_epi16(sum, group);
    if (weight == 2) return _mm512_add_epi16(sum, _mm512_add_epi16(group, group));
    return _mm512_add_epi16(sum, _mm512_mullo_epi16(group, _mm512_set1_epi16(weight)));
}

// Two registers of 16-bit lanes packed to 64 bytes with signed saturation to
// 0..255, in lane order (the pack interleaves 128-bit blocks).
QEL_AVX512 inline void StorePackedAvx512(unsigned char* out, __m512i low, __m512i high) {
    const __m512i order = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7);
    _mm512_storeu_si512(out, _mm512_permutexvar_epi64(order, _mm512_packus_epi16(low, high)));
}

// Lanes of one output row 64 a step, the taps summed by weight group in
// 16-bit lanes and finished as ConvolveLanesVector finishes them. The last
// step ends at the last lane, recomputing a few lanes with the same values;
// needs 64 lanes and returns how many it took (all or none).
QEL_AVX512 size_t ConvolveGroupsAvx512(const unsigned char* const* taps, const TapGroups& groups,
                                       size_t lanes, const ShortSums& plan, unsigned char* out) {
    if (lanes < 64) return 0;
    const __m512i multiplier = _mm512_set1_epi16(static_cast<short>(plan.multiplier));
    const __m128i shift = _mm_cvtsi32_si128(plan.shift);
    const __m512i offset = _mm512_set1_epi16(plan.offset);
    auto finish = [&](__m512i sum) QEL_AVX512 {
        if (plan.divides && plan.nonNegative) {
            sum = _mm512_srl_epi16(_mm512_mulhi_epu16(sum, multiplier), shift);
        } else if (plan.divides) {
            const __m512i sign = _mm512_srai_epi16(sum, 15);
            __m512i q = _mm512_sub_epi16(_mm512_xor_si512(sum, sign), sign);
            q = _mm512_srl_epi16(_mm512_mulhi_epu16(q, multiplier), shift);
            sum = _mm512_sub_epi16(_mm512_xor_si512(q, sign), sign);
        }
        return _mm512_adds_epi16(sum, offset);
    };
    for (size_t n = 0;; n += 64) {
        if (n + 64 > lanes) n = lanes - 64;
        __m512i low = _mm512_setzero_si512(), high = low;
        for (int g = 0, first = 0; g < groups.count; first = groups.ends[g++]) {
            low = AddWeightedAvx512(low, GroupSumAvx512(taps, first, groups.ends[g], n), groups.weights[g]);
            high = AddWeightedAvx512(high, GroupSumAvx512(taps, first, groups.ends[g], n + 32),
                                     groups.weights[g]);
        }
        StorePackedAvx512(out + n, finish(low), finish(high));
        if (n + 64 == lanes) break;
    }
    return lanes;
}

// The same steps for sums beyond 16 bits (FitsWideSums): each group's sum
// stays in 16-bit lanes (at most 49 bytes), and a multiply-add with the
// weight in one half of each 32-bit pair takes the even and the odd lanes
// into two registers of 32-bit sums. Each is divided in single precision,
// truncated, offset with wrap-around and clamped; the byte results of the odd
// lanes go back beside the even ones.
QEL_AVX512 size_t ConvolveWideSumsAvx512(const unsigned char* const* taps, const TapGroups& groups,
                                         size_t lanes, const SumFinisher& finisher, unsigned char* out) {
    if (lanes < 64) return 0;
    const bool divides = finisher.divisor != 0 && finisher.divisor != 1;
    const __m512 divisor = _mm512_set1_ps(static_cast<float>(finisher.divisor));
    const __m512i offset = _mm512_set1_epi32(finisher.offset);
    const __m512i zero = _mm512_setzero_si512(), byteMax = _mm512_set1_epi32(255);
    auto finish = [&](__m512i sum) QEL_AVX512 {
        if (divides) sum = _mm512_cvttps_epi32(_mm512_div_ps(_mm512_cvtepi32_ps(sum), divisor));
        return _mm512_min_epi32(_mm512_max_epi32(_mm512_add_epi32(sum, offset), zero), byteMax);
    };
    auto rejoin = [&](__m512i even, __m512i odd) QEL_AVX512 {
        return _mm512_or_si512(finish(even), _mm512_slli_epi32(finish(odd), 16));
    };
    for (size_t n = 0;; n += 64) {
        if (n + 64 > lanes) n = lanes - 64;
        __m512i lowEven = zero, lowOdd = zero, highEven = zero, highOdd = zero;
        for (int g = 0, first = 0; g < groups.count; first = groups.ends[g++]) {
            const uint32_t weight = static_cast<uint16_t>(groups.weights[g]);
            const __m512i evenWeight = _mm512_set1_epi32(static_cast<int>(weight));
            const __m512i oddWeight = _mm512_set1_epi32(static_cast<int>(weight << 16));
            const __m512i low = GroupSumAvx512(taps, first, groups.ends[g], n);
            const __m512i high = GroupSumAvx512(taps, first, groups.ends[g], n + 32);
            lowEven = _mm512_add_epi32(lowEven, _mm512_madd_epi16(low, evenWeight));
            lowOdd = _mm512_add_epi32(lowOdd, _mm512_madd_epi16(low, oddWeight));
            highEven = _mm512_add_epi32(highEven, _mm512_madd_epi16(high, evenWeight));
            highOdd = _mm512_add_epi32(highOdd, _mm512_madd_epi16(high, oddWeight));
        }
        StorePackedAvx512(out + n, rejoin(lowEven, lowOdd), rejoin(highEven, highOdd));
        if (n + 64 == lanes) break;
    }
    return lanes;
}
#pragma GCC diagnostic pop
#undef QEL_AVX512
#endif

// Outputs whose window lies inside the image's columns, straight from the
// buffer. Rows above and below the image read `outsideRow`, the outside colour
// repeated: every outside neighbour adds that colour times its weight, as the
// pixel path does, and the alpha lanes are the outside alpha. Every tap adds its weighted row of
// channel bytes to a row of 32-bit accumulators, a loop the compiler vectorises.
// For grey images the three channel sums are equal, so one sum per pixel serves.
// With `vectorise`, a vector step takes the leading lanes of each row and the
// scalar loop below finishes the rest; alone, the scalar loop does them all.
// After each row, `afterRow(y)` runs while that row's bytes are still cached.
template <int kBytes, class AfterRow>
void ConvolveInterior(const ImageView& src, const ImageView& dst, const int* kernel, int size,
                      const SumFinisher& finish, Span xs, Span ys, uint32_t* sums,
                      const unsigned char* outsideRow, PathSteps steps, AfterRow&& afterRow) {
    const int half = size / 2;
    auto rowAt = [&](int64_t index) {
        return index < 0 || index >= src.height ? outsideRow : src.Row(static_cast<int>(index));
    };
    const size_t lanes = static_cast<size_t>(xs.Count()) * kBytes;
    const bool vectorise = steps.vector, wide = steps.wide;
    const ShortSums plan(kernel, vectorise ? size : 0, finish);
    // The widest steps take every kernel but the separable ones (which the
    // column sums serve better) whose sums fit 16 or 32-bit lanes.
    const TapGroups groups(kernel, steps.widest ? size : 0);
    const bool groupedShort = groups.count > 0 && plan.usable && !plan.separable;
    const bool groupedWide = groups.count > 0 && !plan.usable && FitsWideSums(kernel, size, finish);
    const unsigned char* groupTaps[49];
    const unsigned char* tapRows[7];
    // Column sums of the separable form: the row's lanes plus the window's reach.
    ScratchBuffer<int16_t> columns;
    if (plan.usable && plan.separable) columns.Resize(lanes + static_cast<size_t>(size) * kBytes);
    for (int64_t y = ys.first; y <= ys.last; ++y) {
        unsigned char* out = dst.Row(static_cast<int>(y)) + xs.first * kBytes;
        size_t done = 0;
#if defined(__x86_64__)
        if (groupedShort || groupedWide) {
            const int taps = groups.ends[groups.count - 1];
            for (int t = 0; t < taps; ++t)
                groupTaps[t] =
                    rowAt(y - half + groups.rows[t]) + (xs.first - half + groups.columns[t]) * kBytes;
            done = groupedShort ? ConvolveGroupsAvx512(groupTaps, groups, lanes, plan, out)
                                : ConvolveWideSumsAvx512(groupTaps, groups, lanes, finish, out);
        }
#else
        (void)groupTaps;
#endif
#if defined(__SSE2__)
        if (plan.usable && done == 0) {
            for (int j = 0; j < size; ++j) tapRows[j] = rowAt(y - half + j) + (xs.first - half) * kBytes;
            const bool separable = plan.separable && columns;
#if defined(__x86_64__)
            if (wide && separable)
                done = ConvolveSeparableWide(tapRows, size, kBytes, lanes, plan, columns.Data(), out);
#endif
            if (done == 0)
                done = separable
                           ? ConvolveSeparableVector(tapRows, size, kBytes, lanes, plan, columns.Data(), out)
                           : ConvolveLanesVector(tapRows, size, kBytes, lanes, plan, out);
        }
#else
        (void)tapRows;
#endif
        std::memset(sums + done, 0, (lanes - done) * sizeof(uint32_t));
        for (int j = 0; j < size; ++j) {
            const unsigned char* row = rowAt(y - half + j);
            for (int i = 0; i < size; ++i) {
                const uint32_t weight = static_cast<uint32_t>(kernel[static_cast<int64_t>(j) * size + i]);
                if (weight == 0) continue;
                const unsigned char* taps = row + (xs.first - half + i) * kBytes;
                for (size_t n = done; n < lanes; ++n) sums[n] += weight * taps[n];
            }
        }
        // Every lane is finished, alpha lanes too; those are overwritten below.
        for (size_t n = done; n < lanes; ++n) out[n] = static_cast<unsigned char>(finish(sums[n]));
        if (kBytes == 4) {
            const unsigned char* last = rowAt(y - half + size - 1) + (xs.first - half + size - 1) * 4;
            for (size_t n = 3; n < lanes; n += 4) out[n] = last[n];
        }
        afterRow(y);
    }
}

}  // namespace

void ConvolveView(const ImageView& src, const ImageView& dst, const int* kernel, int size, int divisor,
                  int offset, FilterPath path) {
    const SumFinisher finish{divisor, offset};
    uint32_t totalWeight = 0;  // no taps at all for a non-positive size
    for (int64_t n = 0; size > 0 && n < static_cast<int64_t>(size) * size; ++n)
        totalWeight += static_cast<uint32_t>(kernel[n]);
    const uint32_t outside = OutsideColour(src);

    Span xs, ys;  // outputs computed on the fast path
    const int bytes = path != FilterPath::General && size > 0 ? DirectPixelBytes(src) : 0;
    // Plain names, not a structured binding: lambdas below capture them (C++17).
    const PathSteps steps = StepsOf(path);
    ScratchBuffer<uint32_t> sums;             // a row of channel sums
    ScratchBuffer<unsigned char> outsideRow;  // a row of the outside colour
    if (bytes != 0) {
        xs = InteriorOutputs(size, src.width);
        // Small kernels take every row; for larger ones the rows beyond the
        // image would cost more taps than the pixel path's clipped windows.
        ys = size <= 7 ? Span{0, src.height - 1} : InteriorOutputs(size, src.height);
        if (xs.Count() > 0 && ys.Count() > 0 && sums.Resize(static_cast<size_t>(xs.Count()) * bytes) &&
            outsideRow.Resize(static_cast<size_t>(src.width) * bytes))
            FillOutsideRow(src, bytes, outsideRow.Data());
        else
            xs = ys = Span{};  // nothing interior, or no memory: all general
    }
    // Pixels outside the interior (all of them when there is none), read and
    // written directly for 8-, 24- and 32-bit images, through the pixel
    // helpers otherwise; beside the interior rows, right after each of them.
    WithPixelKind(src, path, [&](auto kind) {
        using Kind = decltype(kind);
        auto border = [&](int64_t row) {
            const int y = static_cast<int>(row);
            const bool interiorRow = y >= ys.first && y <= ys.last;
            for (int x = 0; x < src.width; ++x) {
                if (interiorRow && x == xs.first) x = static_cast<int>(xs.last) + 1;
                if (x >= src.width) break;
                Kind::Write(dst, x, y,
                            ConvolvePixel<Kind>(src, kernel, size, totalWeight, outside, finish, x, y));
            }
        };
        if (!sums) {
            for (int y = 0; y < src.height; ++y) border(y);
            return;
        }
        for (int64_t y = 0; y < ys.first; ++y) border(y);
        auto interior = [&](auto bytesConstant) {
            ConvolveInterior<decltype(bytesConstant)::value>(src, dst, kernel, size, finish, xs, ys,
                                                             sums.Data(), outsideRow.Data(), steps, border);
        };
        if (bytes == 1) interior(std::integral_constant<int, 1>{});
        if (bytes == 3) interior(std::integral_constant<int, 3>{});
        if (bytes == 4) interior(std::integral_constant<int, 4>{});
        for (int64_t y = ys.last + 1; y < src.height; ++y) border(y);
    });
}

QResult CQELFilterTransform::Filter(IQEL* image, int* kernel, int size, int divisor, int offset,
                                    IQEL** result) {
    if (image == nullptr) return QEL_E_FAIL;
    if (kernel == nullptr && size > 0) return QEL_E_INVALIDARG;
    FilterTarget target;
    if (MakeFilterTarget(image, DestinationRoad::ImageDIB, Writes::EveryPixel, &target) != QEL_OK)
        return QEL_E_FAIL;
    if (target.Writable())
        ConvolveView(target.source, target.destination, kernel, size, divisor, offset, FilterPath::Fast);
    return HandOverResult(image, &target.image, result);
}

namespace {

// The element at (row, column) of a 32-bit image whose stride is taken as a
// count of elements rather than bytes, or null when that address does not
// fall on a pixel of the image.
int32_t* ElementAt(const ImageView& view, int64_t row, int64_t column) {
    const __int128 stride = view.stride;
    if (stride == 0 || view.bits == nullptr) return nullptr;
    const __int128 offset = 4 * (static_cast<__int128>(row) * stride + column);
    __int128 bufferRow;
    if (stride > 0) {
        if (offset < 0) return nullptr;
        bufferRow = offset / stride;
    } else {
        bufferRow = offset >= 0 ? 0 : (-offset - stride - 1) / -stride;
    }
    const __int128 within = offset - bufferRow * stride;
    if (bufferRow >= view.height || within < 0 || within % 4 != 0 || within / 4 >= view.width) return nullptr;
    return reinterpret_cast<int32_t*>(view.bits + static_cast<ptrdiff_t>(offset));
}

// Passes of a loop that runs once before testing `index < limit` unsigned.
int64_t PassesOf(int extent, int size) {
    if (extent == size) return 0;
    const int64_t limit = static_cast<uint32_t>(extent - size);
    // A negative difference reads as a huge count; no pass beyond the image
    // can reach a pixel, so the count stops at the image's extent.
    const int64_t passes = limit < 1 ? 1 : limit;
    return passes < extent ? passes : extent;
}

}  // namespace

QResult CQELFilterTransform::Kernel(IQEL* image, short* kernel, int size, int divisor, int offset,
                                    IQEL** result) {
    if (image == nullptr) return QEL_E_INVALIDARG;
    if (kernel == nullptr && size > 0) return QEL_E_INVALIDARG;
    FilterTarget target;
    if (MakeFilterTarget(image, DestinationRoad::ImageDIB, Writes::SomePixels, &target) != QEL_OK)
        return QEL_E_FAIL;
    const ImageView& src = target.source;
    const ImageView& dst = target.destination;
    if (target.Writable() && src.bits != nullptr && src.bitCount == 32 && src.colourModel == QEL_MODEL_MONO) {
        const SumFinisher finish{divisor, offset};
        const int half = size / 2;
        const int64_t rows = PassesOf(src.height, size), columns = PassesOf(src.width, size);
        // Only the last tap of the kernel takes part; with no taps the value
        // carries over from the previous element.
        const uint32_t lastTap =
            size > 0 ? static_cast<uint32_t>(kernel[static_cast<int64_t>(size) * size - 1]) : 0;
        int32_t value = 0;
        for (int64_t y = 0; y < rows; ++y) {
            for (int64_t x = 0; x < columns; ++x) {
                if (size > 0) {
                    const int32_t* element = ElementAt(src, y + size - 1, x + size - 1);
                    value = static_cast<int32_t>(lastTap *
                                                 static_cast<uint32_t>(element != nullptr ? *element : 0));
                }
                value = finish(static_cast<uint32_t>(value));
                int32_t* out = ElementAt(dst, half + y, half + x);
                if (out != nullptr) *out = value;
            }
        }
    }
    return HandOverResult(image, &target.image, result);
}

QResult CQELFilterTransform::Emboss(IQEL* image, IQEL** result) {
    int kernel[9] = {0, 0, -1, 0, 0, 0, 1, 0, 0};
    return Filter(image, kernel, 3, 0, 127, result);
}

QResult CQELFilterTransform::Blur(IQEL* image, IQEL** result) {
    int kernel[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
    return Filter(image, kernel, 3, 9, 0, result);
}

QResult CQELFilterTransform::Soften(IQEL* image, IQEL** result) {
    int kernel[9] = {1, 1, 1, 1, 8, 1, 1, 1, 1};
    return Filter(image, kernel, 3, 16, 0, result);
}

QResult CQELFilterTransform::Sharpen(IQEL* image, IQEL** result) {
    int kernel[9] = {-1, -1, -1, -1, 15, -1, -1, -1, -1};
    return Filter(image, kernel, 3, 7, 0, result);
}

QResult CQELFilterTransform::GaussianBlur(IQEL* image, int level, IQEL** result) {
    // Level 2's middle row starts with 2, not 7: its weights sum to 268 against
    // the divisor 273, which darkens slightly. The values are kept as they are.
    // clang-format off
    static const int kLevel0[9] = {1, 2, 1,
                                   2, 4, 2,
                                   1, 2, 1};
    static const int kLevel1[25] = {0, 1, 2, 1, 0,
                                    1, 3, 4, 3, 1,
                                    2, 4, 8, 4, 2,
                                    1, 3, 4, 3, 1,
                                    0, 1, 2, 1, 0};
    static const int kLevel2[25] = {1,  4,  7,  4, 1,
                                    4, 16, 26, 16, 4,
                                    2, 26, 41, 26, 7,
                                    4, 16, 26, 16, 4,
                                    1,  4,  7,  4, 1};
    static const int kLevel3[25] = {2,  4,  5,  4, 2,
                                    4,  9, 12,  9, 4,
                                    5, 12, 15, 12, 5,
                                    4,  9, 12,  9, 4,
                                    2,  4,  5,  4, 2};
    // clang-format on
    int kernel[25];
    switch (level) {
        case 0:
            std::memcpy(kernel, kLevel0, sizeof(kLevel0));
            return Filter(image, kernel, 3, 16, 0, result);
        case 1:
            std::memcpy(kernel, kLevel1, sizeof(kLevel1));
            return Filter(image, kernel, 5, 52, 0, result);
        case 2:
            std::memcpy(kernel, kLevel2, sizeof(kLevel2));
            return Filter(image, kernel, 5, 273, 0, result);
        case 3:
            std::memcpy(kernel, kLevel3, sizeof(kLevel3));
            return Filter(image, kernel, 5, 159, 0, result);
        default:
            return QEL_E_FAIL;
    }
}
