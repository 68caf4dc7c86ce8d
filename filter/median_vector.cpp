// Medians of 3 x 3 and 5 x 5 windows at 8, 24 and 32 bits: keys in rolling
// padded rows, the middle key of each output found in vector lanes (a scalar
// loop the reference of each step), then written itself (grey) or the colour
// at its chosen window position copied whole.
#include <algorithm>
#include <cstring>
#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "filter/median_algorithms.h"
#include "image/scratch.h"

// GCC 12's AVX-512 intrinsics fill unused lanes from a deliberately uninitialised
// vector, which -Wmaybe-uninitialized reports once they are inlined here.
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

namespace {

// A median-of-nine exchange network: afterwards p[4] holds the value of rank 4.
// `order` puts the smaller of its two arguments first.
template <class T, class Order>
__attribute__((always_inline)) inline void MedianOfNine(T p[9], Order order) {
    order(p[1], p[2]), order(p[4], p[5]), order(p[7], p[8]);
    order(p[0], p[1]), order(p[3], p[4]), order(p[6], p[7]);
    order(p[1], p[2]), order(p[4], p[5]), order(p[7], p[8]);
    order(p[0], p[3]), order(p[5], p[8]), order(p[4], p[7]);
    order(p[3], p[6]), order(p[1], p[4]), order(p[2], p[5]);
    order(p[4], p[7]), order(p[4], p[2]), order(p[6], p[4]);
    order(p[4], p[2]);
}

struct OrderInts {
    void operator()(int& a, int& b) const {
        const int low = std::min(a, b);
        b = std::max(a, b);
        a = low;
    }
};

// Byte lanes: 16 are what every x86-64 has, 32 and 64 are chosen at run time.
typedef unsigned char KeyLanes16 __attribute__((vector_size(16)));
typedef unsigned char KeyLanes32 __attribute__((vector_size(32)));
typedef unsigned char KeyLanes64 __attribute__((vector_size(64)));
typedef signed char RankLanes16 __attribute__((vector_size(16)));
typedef signed char RankLanes32 __attribute__((vector_size(32)));

// Loads through a pointer, not a return value, so 32-byte lanes never meet the
// base build's calling convention.
template <class V>
__attribute__((always_inline)) inline void LoadLanes(V* v, const unsigned char* p) {
    __builtin_memcpy(v, p, sizeof(V));
}

struct OrderLanes {
    template <class V>
    __attribute__((always_inline)) void operator()(V& a, V& b) const {
        const V low = a < b ? a : b;
        b = a < b ? b : a;
        a = low;
    }
};

// What the small windows store per output: the window position of the chosen
// neighbour (colour images), or the middle key itself (grey images, where
// every neighbour of a key has that very value, so nothing is left to copy).
enum class SmallOutput { Choice, Value };

// Window positions (visiting order: column, then row) of the chosen neighbour
// of 3 x 3 medians, one lane per output, from three rows of keys starting one
// column left of the first output. Returns how many outputs it took.
template <class V, SmallOutput kOut>
__attribute__((always_inline)) inline size_t Median3Choices(const unsigned char* const* keyRows,
                                                            size_t outputs, unsigned char* choices) {
    size_t n = 0;
    for (; n + sizeof(V) <= outputs; n += sizeof(V)) {
        V k[9], p[9];
#pragma GCC unroll 9
        for (int v = 0; v < 9; ++v) {
            LoadLanes(&k[v], keyRows[v % 3] + n + v / 3);
            p[v] = k[v];
        }
        MedianOfNine(p, OrderLanes{});
        V result = p[4];
        if (kOut == SmallOutput::Choice) {
            result = V{};
#pragma GCC unroll 9
            for (int v = 0; v < 9; ++v) result = k[v] == p[4] ? V{} + static_cast<unsigned char>(v) : result;
        }
        std::memcpy(choices + n, &result, sizeof(V));
    }
    return n;
}

// The same for 5 x 5 medians by a bitwise search for the middle key: the
// largest key t with at most 12 of the 25 keys below t is the key of rank 12.
// Keys are stored with the top bit flipped so signed comparisons order them.
template <class V, SmallOutput kOut>
__attribute__((always_inline)) inline size_t Median5Choices(const unsigned char* const* keyRows,
                                                            size_t outputs, unsigned char* choices) {
    constexpr int kCount = 25, kRank = 12;
    size_t n = 0;
    for (; n + sizeof(V) <= outputs; n += sizeof(V)) {
        const unsigned char* const rows[5] = {keyRows[0] + n, keyRows[1] + n, keyRows[2] + n, keyRows[3] + n,
                                              keyRows[4] + n};
        V found = V{} + static_cast<signed char>(-128);  // key 0
#pragma GCC unroll 8
        for (int bit = 128; bit > 0; bit >>= 1) {
            const V trial = found ^ static_cast<signed char>(bit);
            V below = V{};
#pragma GCC unroll 25
            for (int v = 0; v < kCount; ++v) {
                V k;
                LoadLanes(&k, rows[v % 5] + v / 5);
                below -= k < trial;
            }
            found = below <= kRank ? trial : found;
        }
        V result = found ^ static_cast<signed char>(-128);
        if (kOut == SmallOutput::Choice) {
            result = V{};
#pragma GCC unroll 25
            for (int v = 0; v < kCount; ++v) {
                V k;
                LoadLanes(&k, rows[v % 5] + v / 5);
                result = k == found ? V{} + static_cast<signed char>(v) : result;
            }
        }
        std::memcpy(choices + n, &result, sizeof(V));
    }
    return n;
}

// The vector steps a call takes: 16, 32 and 64 lanes.
struct SmallSteps {
    bool vector, wide, widest;
};

// One step function per lane width, chosen once per call.
using ChoiceStep = size_t (*)(const unsigned char* const* keyRows, size_t outputs, unsigned char* choices);

template <SmallOutput kOut>
size_t Median3ChoicesBase(const unsigned char* const* keyRows, size_t outputs, unsigned char* choices) {
    return Median3Choices<KeyLanes16, kOut>(keyRows, outputs, choices);
}
template <SmallOutput kOut>
size_t Median5ChoicesBase(const unsigned char* const* keyRows, size_t outputs, unsigned char* choices) {
    return Median5Choices<RankLanes16, kOut>(keyRows, outputs, choices);
}

#if defined(__x86_64__)
template <SmallOutput kOut>
__attribute__((target("avx2"))) size_t Median3ChoicesAvx2(const unsigned char* const* keyRows, size_t outputs,
                                                          unsigned char* choices) {
    return Median3Choices<KeyLanes32, kOut>(keyRows, outputs, choices);
}
template <SmallOutput kOut>
__attribute__((target("avx2"))) size_t Median5ChoicesAvx2(const unsigned char* const* keyRows, size_t outputs,
                                                          unsigned char* choices) {
    return Median5Choices<RankLanes32, kOut>(keyRows, outputs, choices);
}
template <SmallOutput kOut>
__attribute__((target("avx512f,avx512bw,avx512vbmi"))) size_t Median3ChoicesAvx512(
    const unsigned char* const* keyRows, size_t outputs, unsigned char* choices) {
    return Median3Choices<KeyLanes64, kOut>(keyRows, outputs, choices);
}

// The 5 x 5 search with all 25 key vectors held in registers and the counts
// kept in four sums, so the additions do not wait on one another.
template <SmallOutput kOut>
__attribute__((target("avx512f,avx512bw,avx512vbmi"))) size_t Median5ChoicesAvx512(
    const unsigned char* const* keyRows, size_t outputs, unsigned char* choices) {
    constexpr int kCount = 25;
    const __m512i one = _mm512_set1_epi8(1), rank = _mm512_set1_epi8(12), flip = _mm512_set1_epi8(-128);
    size_t n = 0;
    for (; n + 64 <= outputs; n += 64) {
        __m512i k[kCount];
#pragma GCC unroll 25
        for (int v = 0; v < kCount; ++v) k[v] = _mm512_loadu_si512(keyRows[v % 5] + n + v / 5);
        __m512i found = flip;  // key 0
#pragma GCC unroll 8
        for (int bit = 128; bit > 0; bit >>= 1) {
            const __m512i trial = _mm512_xor_si512(found, _mm512_set1_epi8(static_cast<char>(bit)));
            __m512i below[4] = {_mm512_setzero_si512(), _mm512_setzero_si512(), _mm512_setzero_si512(),
                                _mm512_setzero_si512()};
#pragma GCC unroll 25
            for (int v = 0; v < kCount; ++v)
                below[v % 4] = _mm512_mask_add_epi8(below[v % 4], _mm512_cmplt_epi8_mask(k[v], trial),
                                                    below[v % 4], one);
            const __m512i total = _mm512_add_epi8(_mm512_add_epi8(below[0], below[1]),
                                                  _mm512_add_epi8(below[2], below[3]));
            found = _mm512_mask_mov_epi8(found, _mm512_cmple_epi8_mask(total, rank), trial);
        }
        __m512i result = _mm512_xor_si512(found, flip);
        if (kOut == SmallOutput::Choice) {
            result = _mm512_setzero_si512();
#pragma GCC unroll 25
            for (int v = 0; v < kCount; ++v)
                result = _mm512_mask_mov_epi8(result, _mm512_cmpeq_epi8_mask(k[v], found),
                                              _mm512_set1_epi8(static_cast<char>(v)));
        }
        _mm512_storeu_si512(choices + n, result);
    }
    return n;
}

// The widest step the call allows for rows of `outputs` outputs, and its lanes.
template <int kSize, SmallOutput kOut>
ChoiceStep ChoiceStepFor(SmallSteps steps, size_t outputs, size_t* lanes) {
    if (steps.widest && outputs >= 64) {
        *lanes = 64;
        return kSize == 3 ? Median3ChoicesAvx512<kOut> : Median5ChoicesAvx512<kOut>;
    }
    if (steps.wide && outputs >= 32) {
        *lanes = 32;
        return kSize == 3 ? Median3ChoicesAvx2<kOut> : Median5ChoicesAvx2<kOut>;
    }
    if (steps.vector && outputs >= 16) {
        *lanes = 16;
        return kSize == 3 ? Median3ChoicesBase<kOut> : Median5ChoicesBase<kOut>;
    }
    *lanes = 0;
    return nullptr;
}
#else
template <int kSize, SmallOutput kOut>
ChoiceStep ChoiceStepFor(SmallSteps steps, size_t outputs, size_t* lanes) {
    *lanes = steps.vector && outputs >= 16 ? 16 : 0;
    if (*lanes == 0) return nullptr;
    return kSize == 3 ? Median3ChoicesBase<kOut> : Median5ChoicesBase<kOut>;
}
#endif

// Scalar choice of one output from its window of keys (flipped as above for 5 x 5).
template <int kSize, SmallOutput kOut>
unsigned char MedianChoice(const unsigned char* const* keyRows, size_t n) {
    constexpr int kCount = kSize * kSize;
    int k[kCount], sorted[kCount];
    for (int v = 0; v < kCount; ++v) k[v] = sorted[v] = keyRows[v % kSize][n + v / kSize];
    if (kSize == 3)
        MedianOfNine(sorted, OrderInts{});
    else
        std::nth_element(sorted, sorted + kCount / 2, sorted + kCount,
                         [](int a, int b) { return (a ^ 0x80) < (b ^ 0x80); });
    if (kOut == SmallOutput::Value) return static_cast<unsigned char>(sorted[kCount / 2] ^ (kSize == 3 ? 0 : 0x80));
    int v = kCount - 1;
    while (k[v] != sorted[kCount / 2]) --v;
    return static_cast<unsigned char>(v);
}

// Keys of one row of pixels, top bit flipped by `flip`: the scalar loop. A
// grey pixel's key is its own value.
template <int kBytes>
void RowKeys(const unsigned char* p, size_t count, unsigned char flip, unsigned char* to) {
    if (kBytes == 1) {
        for (size_t x = 0; x < count; ++x) to[x] = static_cast<unsigned char>(p[x] ^ flip);
        return;
    }
    for (size_t x = 0; x < count; ++x, p += kBytes)
        to[x] = static_cast<unsigned char>(((117 * p[0] + 601 * p[1] + 306 * p[2]) >> 10) ^ flip);
}

#if defined(__x86_64__)
// The same eight pixels at a time: blue and green paired and multiplied-added
// in 16-bit lanes, red alone, the 32-bit sums shifted and narrowed to bytes.
// Loads stay within the row's own pixel bytes. Returns how many keys it made.
template <int kBytes>
__attribute__((target("avx2"))) size_t RowKeysAvx2(const unsigned char* p, size_t count, unsigned char flip,
                                                   unsigned char* to) {
    constexpr int b = kBytes;
    const __m128i blueGreen4 =
        _mm_setr_epi8(0, -1, 1, -1, b, -1, b + 1, -1, 2 * b, -1, 2 * b + 1, -1, 3 * b, -1, 3 * b + 1, -1);
    const __m128i red4 =
        _mm_setr_epi8(2, -1, -1, -1, b + 2, -1, -1, -1, 2 * b + 2, -1, -1, -1, 3 * b + 2, -1, -1, -1);
    const __m256i blueGreen = _mm256_broadcastsi128_si256(blueGreen4);
    const __m256i red = _mm256_broadcastsi128_si256(red4);
    const __m256i blueGreenWeights = _mm256_set1_epi32(117 | (601 << 16));
    const __m256i redWeights = _mm256_set1_epi32(306);
    const __m256i lowBytes = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(0, 4, 8, 12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1));
    const __m256i flips = _mm256_set1_epi8(static_cast<char>(flip));
    // The second load of each step reads 16 bytes from pixel 4 on.
    const size_t readEnd = static_cast<size_t>(4 * kBytes + 16);
    const size_t rowBytes = count * kBytes;
    size_t x = 0;
    for (; x + 8 <= count && x * kBytes + readEnd <= rowBytes; x += 8, p += 8 * kBytes) {
        const __m256i pixels = _mm256_inserti128_si256(
            _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))),
            _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 4 * kBytes)), 1);
        const __m256i sums =
            _mm256_add_epi32(_mm256_madd_epi16(_mm256_shuffle_epi8(pixels, blueGreen), blueGreenWeights),
                             _mm256_madd_epi16(_mm256_shuffle_epi8(pixels, red), redWeights));
        const __m256i keys = _mm256_shuffle_epi8(_mm256_srli_epi32(sums, 10), lowBytes);
        const __m256i packed = _mm256_permutevar8x32_epi32(keys, _mm256_setr_epi32(0, 4, 0, 0, 0, 0, 0, 0));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(to + x),
                         _mm256_castsi256_si128(_mm256_xor_si256(packed, flips)));
    }
    return x;
}

// Byte positions within 16 pixels that put blue and green of pixel i in the
// low bytes of the 16-bit halves of 32-bit lane i, and red in the low byte.
template <int kBytes>
struct KeyByteOrder {
    unsigned char blueGreen[64] = {};
    unsigned char red[64] = {};
    constexpr KeyByteOrder() {
        for (int i = 0; i < 16; ++i) {
            blueGreen[4 * i] = static_cast<unsigned char>(i * kBytes);
            blueGreen[4 * i + 2] = static_cast<unsigned char>(i * kBytes + 1);
            red[4 * i] = static_cast<unsigned char>(i * kBytes + 2);
        }
    }
};

// The same sixteen pixels a step, the bytes placed by one byte permute each.
// A step reads 64 bytes, so steps stop where that would pass the row's end.
template <int kBytes>
__attribute__((target("avx512f,avx512bw,avx512vbmi"))) size_t RowKeysAvx512(const unsigned char* p, size_t count,
                                                                            unsigned char flip,
                                                                            unsigned char* to) {
    static constexpr KeyByteOrder<kBytes> kOrder{};
    const __m512i blueGreen = _mm512_loadu_si512(kOrder.blueGreen);
    const __m512i red = _mm512_loadu_si512(kOrder.red);
    const __m512i blueGreenWeights = _mm512_set1_epi32(117 | (601 << 16));
    const __m512i redWeights = _mm512_set1_epi32(306);
    const __m128i flips = _mm_set1_epi8(static_cast<char>(flip));
    const size_t rowBytes = count * kBytes;
    size_t x = 0;
    for (; x * kBytes + 64 <= rowBytes; x += 16, p += 16 * kBytes) {
        const __m512i pixels = _mm512_loadu_si512(p);
        const __m512i sums = _mm512_add_epi32(
            _mm512_madd_epi16(_mm512_maskz_permutexvar_epi8(0x5555555555555555ull, blueGreen, pixels),
                              blueGreenWeights),
            _mm512_madd_epi16(_mm512_maskz_permutexvar_epi8(0x1111111111111111ull, red, pixels), redWeights));
        const __m128i keys = _mm512_cvtepi32_epi8(_mm512_srli_epi32(sums, 10));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + x), _mm_xor_si128(keys, flips));
    }
    return x;
}
#endif

#if defined(__x86_64__)
// Interior outputs of a 3 x 3 median, eight a step: each output's window
// position turned into its byte offset (a permute over the first eight
// positions, the ninth blended in), the chosen pixels gathered as 32-bit words
// and packed to eight pixels. The stores reach up to 16 bytes past the eighth
// pixel and the gathers one byte past each chosen pixel, so steps stop while
// `end` (exclusive) lies two pixels ahead plus a word. Returns the next output.
template <int kBytes>
__attribute__((target("avx2"))) int CopyChoices3Avx2(const unsigned char* at, unsigned char* out,
                                                     const unsigned char* choices, const ptrdiff_t* offsets,
                                                     int x, int end) {
    const __m256i firstEight = _mm256_setr_epi32(static_cast<int>(offsets[0]), static_cast<int>(offsets[1]),
                                                 static_cast<int>(offsets[2]), static_cast<int>(offsets[3]),
                                                 static_cast<int>(offsets[4]), static_cast<int>(offsets[5]),
                                                 static_cast<int>(offsets[6]), static_cast<int>(offsets[7]));
    const __m256i ninth = _mm256_set1_epi32(static_cast<int>(offsets[8]));
    const __m256i eight = _mm256_set1_epi32(8);
    const __m256i steps =
        _mm256_setr_epi32(0, kBytes, 2 * kBytes, 3 * kBytes, 4 * kBytes, 5 * kBytes, 6 * kBytes, 7 * kBytes);
    // Three bytes of each word, four pixels to a 128-bit half.
    const __m256i pack =
        _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
    for (; x + 8 + 2 + 4 / kBytes + 1 <= end; x += 8) {
        const __m256i v =
            _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(choices + x)));
        __m256i offset = _mm256_permutevar8x32_epi32(firstEight, v);
        offset = _mm256_blendv_epi8(offset, ninth, _mm256_cmpeq_epi32(v, eight));
        const __m256i index =
            _mm256_add_epi32(_mm256_add_epi32(offset, steps), _mm256_set1_epi32(x * kBytes));
        const __m256i words = _mm256_i32gather_epi32(reinterpret_cast<const int*>(at), index, 1);
        if (kBytes == 4) {
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + x * 4), words);
        } else {
            const __m256i packed = _mm256_shuffle_epi8(words, pack);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x * 3), _mm256_castsi256_si128(packed));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x * 3 + 12),
                             _mm256_extracti128_si256(packed, 1));
        }
    }
    return x;
}

// Byte tables of the wide copy: the output pixel of each byte of sixteen, the
// byte itself, and for each window position its column in bytes and its row.
template <int kBytes, int kSize>
struct CopyByteTables {
    unsigned char pixelOf[64] = {};
    unsigned char byte[64] = {};
    unsigned char columnBytes[64] = {};
    unsigned char rowOf[64] = {};
    unsigned char pickOf[64] = {};  // column bytes, bit 6 for odd rows, bit 7 for rows from 2
    constexpr CopyByteTables() {
        for (int j = 0; j < 64; ++j) {
            pixelOf[j] = static_cast<unsigned char>(j < 16 * kBytes ? j / kBytes : 0);
            byte[j] = static_cast<unsigned char>(j);
        }
        for (int v = 0; v < kSize * kSize; ++v) {
            columnBytes[v] = static_cast<unsigned char>(v / kSize * kBytes);
            rowOf[v] = static_cast<unsigned char>(v % kSize);
            pickOf[v] = static_cast<unsigned char>(columnBytes[v] | (v % kSize & 1) << 6 | (v % kSize >> 1) << 7);
        }
    }
};

// Interior outputs of 3 x 3 and 5 x 5 medians, sixteen a step: the pixels of
// each window row the step can reach are loaded, each output byte picked from
// them by a byte permute at its chosen column, and the rows merged by the
// chosen row. A 32-bit step reaches past 64 bytes: its second load ends where
// the window of the sixteenth output ends. Steps stop before a load would pass
// the last interior window or the row's end. Returns the next output.
template <int kBytes, int kSize>
__attribute__((target("avx512f,avx512bw,avx512vbmi"))) int CopyChoicesAvx512(const unsigned char* const* windowRows,
                                                                            unsigned char* out,
                                                                            const unsigned char* choices, int x,
                                                                            int end, size_t rowBytes) {
    constexpr int kHalf = kSize / 2, kOutBytes = 16 * kBytes, kReadBytes = kOutBytes + 2 * kHalf * kBytes;
    static_assert(kReadBytes <= 128, "two loads a row");
    // Held apart from the caller's array, which the stores might otherwise overwrite.
    const unsigned char* rows[kSize];
    for (int r = 0; r < kSize; ++r) rows[r] = windowRows[r];
    constexpr int kSecond = kReadBytes > 64 ? kReadBytes - 64 : 0;  // where the second load starts
    static constexpr CopyByteTables<kBytes, kSize> kTables{};
    const __m512i pixelOf = _mm512_loadu_si512(kTables.pixelOf);
    const __m512i byte = _mm512_loadu_si512(kTables.byte);
    const __m512i columnBytes = _mm512_loadu_si512(kTables.columnBytes);
    const __m512i rowOf = _mm512_loadu_si512(kTables.rowOf);
    const __m512i pickOf = _mm512_loadu_si512(kTables.pickOf);
    const __m512i beyondFirst = _mm512_set1_epi8(63);
    const __m512i intoSecond = _mm512_set1_epi8(static_cast<char>(64 - kSecond));
    for (; x + 16 <= end && static_cast<size_t>(x - kHalf) * kBytes + 64 <= rowBytes; x += 16) {
        const __m512i chosen =
            _mm512_zextsi128_si512(_mm_loadu_si128(reinterpret_cast<const __m128i*>(choices + x)));
        const __m512i chosenOfByte = _mm512_permutexvar_epi8(pixelOf, chosen);
        __m512i index = _mm512_add_epi8(byte, _mm512_permutexvar_epi8(chosenOfByte, columnBytes));
        // Bytes from 64 on come from the second load (bit 6 of the index picks it).
        if (kSecond > 0)
            index = _mm512_mask_add_epi8(index, _mm512_cmpgt_epu8_mask(index, beyondFirst), index, intoSecond);
        const ptrdiff_t from = static_cast<ptrdiff_t>(x - kHalf) * kBytes;
        __m512i result = _mm512_setzero_si512();
        if (kSize == 3 && kSecond == 0) {
            // Rows 0 and 1 by one two-table permute (bit 6 of the pick chooses),
            // row 2 by a permute masked to the bytes with bit 7.
            const __m512i pick = _mm512_add_epi8(byte, _mm512_permutexvar_epi8(chosenOfByte, pickOf));
            const __m512i upper = _mm512_permutex2var_epi8(_mm512_loadu_si512(rows[0] + from), pick,
                                                           _mm512_loadu_si512(rows[1] + from));
            result = _mm512_mask_permutexvar_epi8(upper, _mm512_movepi8_mask(pick), pick,
                                                  _mm512_loadu_si512(rows[2] + from));
        }
        const __m512i rowOfByte = _mm512_permutexvar_epi8(chosenOfByte, rowOf);
#pragma GCC unroll 5
        for (int r = 0; r < (kSize == 3 && kSecond == 0 ? 0 : kSize); ++r) {
            const __m512i first = _mm512_loadu_si512(rows[r] + from);
            const __m512i second = kSecond > 0 ? _mm512_loadu_si512(rows[r] + from + kSecond) : first;
            result = _mm512_mask_mov_epi8(result,
                                          _mm512_cmpeq_epi8_mask(rowOfByte, _mm512_set1_epi8(static_cast<char>(r))),
                                          _mm512_permutex2var_epi8(first, index, second));
        }
        if (kBytes == 4) {
            _mm512_storeu_si512(out + x * 4, result);
        } else {
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + x * 3), _mm512_castsi512_si256(result));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x * 3 + 32), _mm512_extracti32x4_epi32(result, 2));
        }
    }
    return x;
}
#endif

// 3 x 3 and 5 x 5 medians of 8-, 24- and 32-bit images. Keys are computed
// once per pixel into rolling rows padded with the outside key on every side,
// and the middle key of every output found from them. A grey output is that
// key; a colour output copies the whole colour (alpha too) from the window
// position chosen. False when no scratch memory could be had.
template <class Kind, int kSize>
bool SmallWindowRows(const ImageView& src, const ImageView& dst, SmallSteps steps) {
    constexpr int kBytes = Kind::kBytes, kHalf = kSize / 2, kCount = kSize * kSize;
    constexpr bool kGrey = kBytes == 1;
    constexpr SmallOutput kOut = kGrey ? SmallOutput::Value : SmallOutput::Choice;
    constexpr unsigned char kFlip = kSize == 3 ? 0 : 0x80;
    const int width = src.width, height = src.height;
    const size_t w = static_cast<size_t>(width), padded = w + 2 * kHalf;
    ScratchBuffer<unsigned char> scratch(kSize * padded + w);
    if (!scratch) return false;
    const uint32_t outside = OutsideColour(src);
    const unsigned char outsideKey = static_cast<unsigned char>(ColorKey(outside) ^ kFlip);
    // Plain names, not a structured binding: lambdas below capture them (C++17).
    const bool wide = steps.wide, widest = steps.widest;
    size_t lanes = 0;
    const ChoiceStep step = ChoiceStepFor<kSize, kOut>(steps, w, &lanes);

    unsigned char* keys[kSize];
    for (int r = 0; r < kSize; ++r) keys[r] = scratch.Data() + static_cast<size_t>(r) * padded;
    unsigned char* choices = scratch.Data() + kSize * padded;
    auto computeKeys = [&](int y, unsigned char* to) {
        if (y < 0 || y >= height) {
            std::memset(to, outsideKey, padded);
            return;
        }
        std::memset(to, outsideKey, kHalf);
        std::memset(to + kHalf + w, outsideKey, kHalf);
        const unsigned char* row = src.Row(y);
        size_t done = 0;
#if defined(__x86_64__)
        if constexpr (!kGrey) {
            if (widest) done = RowKeysAvx512<kBytes>(row, w, kFlip, to + kHalf);
            if (wide) done += RowKeysAvx2<kBytes>(row + done * kBytes, w - done, kFlip, to + kHalf + done);
        }
#endif
        RowKeys<kBytes>(row + done * kBytes, w - done, kFlip, to + kHalf + done);
    };
    for (int r = 0; r + 1 < kSize; ++r) computeKeys(r - kHalf, keys[r]);
    // Offsets of the window positions from the output pixel.
    ptrdiff_t offsets[kCount];
    for (int v = 0; v < kCount; ++v)
        offsets[v] = static_cast<ptrdiff_t>(v % kSize - kHalf) * src.stride + (v / kSize - kHalf) * kBytes;

    for (int y = 0; y < height; ++y) {
        computeKeys(y + kHalf, keys[kSize - 1]);
        unsigned char* const out = dst.Row(y);
        unsigned char* const chosen = kGrey ? out : choices;
        size_t done = 0;
        if (step != nullptr) {
            done = step(keys, w, chosen);
            if (done < w) {
                // The last outputs as one more full step ending at the row's
                // end; the outputs it repeats come out the same.
                const unsigned char* tail[kSize];
                for (int r = 0; r < kSize; ++r) tail[r] = keys[r] + (w - lanes);
                step(tail, lanes, chosen + (w - lanes));
                done = w;
            }
        }
        for (size_t n = done; n < w; ++n) chosen[n] = MedianChoice<kSize, kOut>(keys, n);
        if constexpr (!kGrey) {
            const unsigned char* const at = src.Row(y);
            // Near the border the chosen position may lie outside: then the
            // colour is that of the last inside position with the same key,
            // or the outside colour when there is none.
            auto inside = [&](int x, int v) {
                const int sx = x - kHalf + v / kSize, sy = y - kHalf + v % kSize;
                return sx >= 0 && sy >= 0 && sx < width && sy < height;
            };
            auto copyFromInside = [&](int x) {
                auto keyAt = [&](int v) { return keys[v % kSize][x + v / kSize]; };
                int v = choices[x];
                const unsigned char key = keyAt(v);
                while (v >= 0 && !(inside(x, v) && keyAt(v) == key)) --v;
                if (v < 0)
                    Kind::Write(dst, x, y, outside);
                else
                    std::memcpy(out + x * kBytes, at + x * kBytes + offsets[v], kBytes);
            };
            auto copyChecked = [&](int x) {
                if (inside(x, choices[x]))
                    std::memcpy(out + x * kBytes, at + x * kBytes + offsets[choices[x]], kBytes);
                else
                    copyFromInside(x);
            };
            if (y < kHalf || y >= height - kHalf || width <= 2 * kHalf) {
                for (int x = 0; x < width; ++x) copyChecked(x);
            } else {
                // Interior: whole 4-byte words, the fourth byte of a 24-bit pixel
                // landing on the next output, written after it. Stopping one short
                // of the last interior output keeps the reads inside the row.
                constexpr int kWord = 4;
                int x = kHalf;
#if defined(__x86_64__)
                if (widest) {
                    const unsigned char* windowRows[kSize];
                    for (int r = 0; r < kSize; ++r) windowRows[r] = src.Row(y - kHalf + r);
                    x = CopyChoicesAvx512<kBytes, kSize>(windowRows, out, choices, x, width - kHalf, w * kBytes);
                } else if (wide && kSize == 3) {
                    x = CopyChoices3Avx2<kBytes>(at, out, choices, offsets, x, width - kHalf);
                }
#endif
                for (; x < width - kHalf - 1; ++x)
                    std::memcpy(out + x * kBytes, at + x * kBytes + offsets[choices[x]], kWord);
                for (; x < width - kHalf; ++x)
                    std::memcpy(out + x * kBytes, at + x * kBytes + offsets[choices[x]], kBytes);
                for (x = 0; x < kHalf; ++x) copyChecked(x);
                for (x = width - kHalf; x < width; ++x) copyChecked(x);
            }
        }
        std::rotate(keys, keys + 1, keys + kSize);
    }
    return true;
}

}  // namespace

bool MedianSmallWindow(const ImageView& src, const ImageView& dst, int64_t size, FilterPath path, SimdTier cap) {
    const PathSteps allowed = StepsOf(path);
    const SmallSteps steps{allowed.vector && SimdRuns(SimdTier::Sse2, cap), allowed.wide && SimdRuns(SimdTier::Avx2, cap),
                           path == FilterPath::Fast && SimdRuns(SimdTier::Avx512, cap)};
    bool done = false;
    WithPixelKind(src, path, [&](auto kind) {
        using Kind = decltype(kind);
        if constexpr (Kind::kBytes != 0) {
            if (size == 3) done = SmallWindowRows<Kind, 3>(src, dst, steps);
            if (size == 5) done = SmallWindowRows<Kind, 5>(src, dst, steps);
        }
    });
    return done;
}
