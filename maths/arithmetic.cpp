// Add, Subtract and AddScale: two images combined sample by sample.
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include <algorithm>
#include <cstdint>

#include "image/cpu.h"
#include "maths/maths.h"
#include "maths/maths_kernels.h"
#include "module/host_services.h"
#include "module/iids.h"

namespace {

enum class DivisorRule { kKeepSum, kTimesFour, kDivide };

#if defined(__x86_64__)
// The saturating sums below, 64 bytes a step; streamed stores write whole
// cache lines, so `out` is then 64-byte aligned.
template <DivisorRule Rule>
__attribute__((target("avx512f,avx512bw"))) size_t AddRowAvx512(unsigned char* out, const unsigned char* a,
                                                                const unsigned char* b, size_t count,
                                                                bool streaming) {
    size_t i = 0;
    for (; i + 64 <= count; i += 64) {
        __m512i sum = _mm512_adds_epu8(_mm512_loadu_si512(a + i), _mm512_loadu_si512(b + i));
        if constexpr (Rule == DivisorRule::kTimesFour) {
            sum = _mm512_adds_epu8(sum, sum);
            sum = _mm512_adds_epu8(sum, sum);
        }
        if (streaming)
            _mm512_stream_si512(reinterpret_cast<__m512i*>(out + i), sum);
        else
            _mm512_storeu_si512(out + i, sum);
    }
    return i;
}

// Subtract of every byte, 64 at a time: the saturating difference is the
// difference clipped at 0, and the OR of both is the absolute one. With
// Counted, values of 2 or more are added to `tally`. With WithAlpha the rows
// hold 4-byte pixels (each step 16 whole ones): byte 3 of each is set to
// `alpha` and left out of the tally.
template <bool Absolute, bool Counted, bool WithAlpha>
__attribute__((target("avx512f,avx512bw,popcnt"))) size_t SubtractBytesAvx512(unsigned char* out,
                                                                              const unsigned char* a,
                                                                              const unsigned char* b,
                                                                              size_t count, uint64_t& tally,
                                                                              unsigned char alpha = 0) {
    constexpr __mmask64 kAlphaBytes = 0x8888888888888888ull;
    const __m512i two = _mm512_set1_epi8(2), alphas = _mm512_set1_epi8(static_cast<char>(alpha));
    size_t i = 0;
    for (; i + 64 <= count; i += 64) {
        const __m512i va = _mm512_loadu_si512(a + i), vb = _mm512_loadu_si512(b + i);
        __m512i d = _mm512_subs_epu8(va, vb);
        if constexpr (Absolute) d = _mm512_or_si512(d, _mm512_subs_epu8(vb, va));
        if constexpr (Counted) {
            const __mmask64 counted = WithAlpha ? ~kAlphaBytes : ~__mmask64{0};
            tally += static_cast<uint64_t>(_mm_popcnt_u64(_mm512_cmpge_epu8_mask(d, two) & counted));
        }
        if constexpr (WithAlpha) d = _mm512_mask_blend_epi8(kAlphaBytes, d, alphas);
        _mm512_storeu_si512(out + i, d);
    }
    return i;
}
#endif

// Leading bytes of an Add row without division, 64 or 16 at a time: a saturating
// byte sum is the clamped sum, and two more saturating doublings give the
// clamped four-fold sum. With `streaming`, `out` is 64-byte aligned and the
// stores bypass the caches. Returns how many bytes it took.
template <DivisorRule Rule>
size_t AddRowVector(unsigned char* out, const unsigned char* a, const unsigned char* b, size_t count,
                    bool streaming) {
    size_t i = 0;
#if defined(__SSE2__)
    if constexpr (Rule != DivisorRule::kDivide) {
        if (SimdRuns(SimdTier::Avx512)) i = AddRowAvx512<Rule>(out, a, b, count, streaming);
        if (!SimdRuns(SimdTier::Sse2)) return i;
        for (; i + 16 <= count; i += 16) {
            __m128i sum = _mm_adds_epu8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(a + i)),
                                        _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + i)));
            if constexpr (Rule == DivisorRule::kTimesFour) {
                sum = _mm_adds_epu8(sum, sum);
                sum = _mm_adds_epu8(sum, sum);
            }
            if (streaming)
                _mm_stream_si128(reinterpret_cast<__m128i*>(out + i), sum);
            else
                _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), sum);
        }
    }
#else
    (void)out, (void)a, (void)b, (void)count, (void)streaming;
#endif
    return i;
}

template <DivisorRule Rule>
inline unsigned char AddByte(unsigned char a, unsigned char b, float divisor) {
    int sum = a + b;
    if constexpr (Rule == DivisorRule::kTimesFour) sum <<= 2;  // a divisor of 2 brightens, deliberately
    if constexpr (Rule == DivisorRule::kDivide) sum = TruncateToInt32(static_cast<float>(sum) / divisor);
    return ClampToByte(sum);
}

template <DivisorRule Rule>
void AddRow(unsigned char* out, const unsigned char* a, const unsigned char* b, size_t count, float divisor,
            bool streaming) {
    size_t i = 0;
    if (streaming) {
        // Bytes up to the first 64-byte boundary of `out`, for aligned streaming stores.
        const size_t head = std::min(count, (64 - (reinterpret_cast<uintptr_t>(out) & 63)) & 63);
        for (; i < head; ++i) out[i] = AddByte<Rule>(a[i], b[i], divisor);
    }
    i += AddRowVector<Rule>(out + i, a + i, b + i, count - i, streaming);
    for (; i < count; ++i) out[i] = AddByte<Rule>(a[i], b[i], divisor);
}

// Results larger than this are written with streaming stores: they do not
// fit the core's own caches, and skipping the read of each destination line
// saves a quarter of the memory traffic.
constexpr size_t kStreamingBytes = size_t{4} << 20;

template <DivisorRule Rule>
void AddPlane(const MathsPlane& dest, const MathsPlane& a, const MathsPlane& b, int height, size_t rowBytes,
              float divisor, RowStage& stage) {
    const bool streaming =
        Rule != DivisorRule::kDivide && rowBytes * static_cast<size_t>(height) >= kStreamingBytes;
    WalkRows(stage, height, {&dest, rowBytes}, {&a, rowBytes}, {&b, rowBytes}, {},
             [&](unsigned char* out, const unsigned char* rowA, const unsigned char* rowB,
                 const unsigned char*) { AddRow<Rule>(out, rowA, rowB, rowBytes, divisor, streaming); });
#if defined(__SSE2__)
    if (streaming) _mm_sfence();  // the streamed bytes reach memory before the result is handed on
#endif
}

// Difference of one sample: clipped at 0, or absolute.
template <bool Absolute>
inline int Difference(int a, int b) {
    const int d = a - b;
    if constexpr (Absolute) return d < 0 ? -d : d;
    return d < 0 ? 0 : d;
}

// 8 and 24 bits: every byte of the row; the tally counts values of 2 or more.
template <bool Absolute, bool Counted>
uint64_t SubtractBytesRow(unsigned char* out, const unsigned char* a, const unsigned char* b, size_t count) {
    uint64_t tally = 0;
    size_t i = 0;
#if defined(__x86_64__)
    if (SimdRuns(SimdTier::Avx512))
        i = SubtractBytesAvx512<Absolute, Counted, false>(out, a, b, count, tally);
#endif
    for (; i < count; ++i) {
        const int d = Difference<Absolute>(a[i], b[i]);
        out[i] = static_cast<unsigned char>(d);
        if constexpr (Counted) tally += d >= 2 ? 1 : 0;
    }
    return tally;
}

// 32 bits: bytes 0 to 2 of each pixel, the fourth byte set to a fixed alpha.
template <bool Absolute>
uint64_t SubtractBGRARow(unsigned char* out, const unsigned char* a, const unsigned char* b, int width,
                         unsigned char alpha) {
    uint64_t tally = 0;
    int x = 0;
#if defined(__x86_64__)
    if (SimdRuns(SimdTier::Avx512))
        x = static_cast<int>(SubtractBytesAvx512<Absolute, true, true>(
                                 out, a, b, 4 * static_cast<size_t>(width), tally, alpha) /
                             4);
#endif
    for (; x < width; ++x) {
        for (int k = 0; k < 3; ++k) {
            const int d = Difference<Absolute>(a[4 * x + k], b[4 * x + k]);
            out[4 * x + k] = static_cast<unsigned char>(d);
            tally += d >= 2 ? 1 : 0;
        }
        out[4 * x + 3] = alpha;
    }
    return tally;
}

template <bool Absolute>
uint64_t SubtractPlane(const MathsPlane& dest, const MathsPlane& a, const MathsPlane& b, int width,
                       int height, int bitCount, int flags, RowStage& stage) {
    uint64_t tally = 0;
    const size_t pixels = static_cast<size_t>(width);
    const size_t rowBytes = pixels * static_cast<size_t>(bitCount / 8);
    WalkRows(
        stage, height, {&dest, rowBytes}, {&a, rowBytes}, {&b, rowBytes}, {},
        [&](unsigned char* out, const unsigned char* rowA, const unsigned char* rowB, const unsigned char*) {
            if (bitCount == 8)
                SubtractBytesRow<Absolute, false>(out, rowA, rowB, rowBytes);
            else if (bitCount == 24)
                tally += SubtractBytesRow<Absolute, true>(out, rowA, rowB, rowBytes);
            else
                tally += SubtractBGRARow<Absolute>(out, rowA, rowB, width, (flags & 2) ? 0 : 255);
        });
    return tally;
}

inline unsigned char Mix(const LinearMix& mix, unsigned char a, unsigned char b) {
    return ClampFloatToByte(static_cast<float>(a) * mix.factorA + static_cast<float>(b) * mix.factorB +
                            mix.offset);
}

// True when both pointers reach the same object (compared by identity).
bool SameObject(IUnknown* x, IUnknown* y) {
    if (x == y) return true;
    SmartPtr<IUnknown> identityX = QueryAs<IUnknown>(x, IID_IUnknown);
    SmartPtr<IUnknown> identityY = QueryAs<IUnknown>(y, IID_IUnknown);
    return identityX && identityX.Get() == identityY.Get();
}

// Add writes every byte of every row of a one-plane 8- or 24-bit result
// whose sources hand out their pixels. A destination that is also a source
// must be cleared by Create, as the sums then read it.
bool AddWritesEveryByte(IQELImage* dest, IQEL* a, IQEL* b, const ImageView& infoA) {
    if ((infoA.bitCount != 8 && infoA.bitCount != 24) || infoA.planes != 1) return false;
    if (SameObject(dest, a) || SameObject(dest, b)) return false;
    unsigned char *bitsA = nullptr, *bitsB = nullptr;
    int stride = 0, reserved = 0;
    return a->GetBits(0, &reserved, &bitsA, &stride) >= 0 && bitsA != nullptr &&
           b->GetBits(0, &reserved, &bitsB, &stride) >= 0 && bitsB != nullptr;
}

}  // namespace

#if defined(__x86_64__)
namespace {

// Eight bytes of each row through the mix: widened, the single-precision
// operations of the scalar rule in its order, clamped and truncated.
__attribute__((target("avx2"))) inline __m256i MixEightAvx2(const unsigned char* a, const unsigned char* b,
                                                            __m256 factorA, __m256 factorB, __m256 offset) {
    const __m256 va =
        _mm256_cvtepi32_ps(_mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(a))));
    const __m256 vb =
        _mm256_cvtepi32_ps(_mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(b))));
    const __m256 v =
        _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(va, factorA), _mm256_mul_ps(vb, factorB)), offset);
    return _mm256_cvttps_epi32(_mm256_min_ps(_mm256_max_ps(v, _mm256_setzero_ps()), _mm256_set1_ps(255.0f)));
}

// The AVX2 form of the step below, eight lanes per operation, for processors
// that have it (chosen at run time; the build itself assumes only SSE2).
__attribute__((target("avx2"))) size_t MixRowAvx2(unsigned char* out, const unsigned char* a,
                                                  const unsigned char* b, size_t count,
                                                  const LinearMix& mix) {
    const __m256 factorA = _mm256_set1_ps(mix.factorA), factorB = _mm256_set1_ps(mix.factorB);
    const __m256 offset = _mm256_set1_ps(mix.offset);
    size_t i = 0;
    for (; i + 32 <= count; i += 32) {
        const __m256i r0 = MixEightAvx2(a + i, b + i, factorA, factorB, offset);
        const __m256i r1 = MixEightAvx2(a + i + 8, b + i + 8, factorA, factorB, offset);
        const __m256i r2 = MixEightAvx2(a + i + 16, b + i + 16, factorA, factorB, offset);
        const __m256i r3 = MixEightAvx2(a + i + 24, b + i + 24, factorA, factorB, offset);
        // The packs work within 128-bit halves; the permute puts the bytes back in order.
        const __m256i bytes = _mm256_packus_epi16(_mm256_packs_epi32(r0, r1), _mm256_packs_epi32(r2, r3));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i),
                            _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7)));
    }
    return i;
}

// The AVX-512 form: sixteen lanes per operation, the clamped lanes narrowed
// to bytes by truncation. Zero-masking forms with full masks: GCC 12's
// unmasked forms warn about an unset source.
__attribute__((target("avx512f,avx512bw"))) size_t MixRowAvx512(unsigned char* out, const unsigned char* a,
                                                                const unsigned char* b, size_t count,
                                                                const LinearMix& mix) {
    const __mmask16 all = 0xFFFF;
    size_t i = 0;
    for (; i + 16 <= count; i += 16) {
        const __m512 va = _mm512_maskz_cvtepi32_ps(
            all, _mm512_maskz_cvtepu8_epi32(all, _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + i))));
        const __m512 vb = _mm512_maskz_cvtepi32_ps(
            all, _mm512_maskz_cvtepu8_epi32(all, _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + i))));
        const __m512 v = _mm512_add_ps(_mm512_add_ps(_mm512_mul_ps(va, _mm512_set1_ps(mix.factorA)),
                                                     _mm512_mul_ps(vb, _mm512_set1_ps(mix.factorB))),
                                       _mm512_set1_ps(mix.offset));
        const __m512 clamped = _mm512_maskz_min_ps(all, _mm512_maskz_max_ps(all, v, _mm512_setzero_ps()),
                                                   _mm512_set1_ps(255.0f));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i),
                         _mm512_maskz_cvtepi32_epi8(all, _mm512_maskz_cvttps_epi32(all, clamped)));
    }
    return i;
}

}  // namespace
#endif

size_t MixRowVector(unsigned char* out, const unsigned char* a, const unsigned char* b, size_t count,
                    const LinearMix& mix) {
    size_t done = 0;
#if defined(__x86_64__)
    if (SimdRuns(SimdTier::Avx512)) done = MixRowAvx512(out, a, b, count, mix);
    if (SimdRuns(SimdTier::Avx2)) done += MixRowAvx2(out + done, a + done, b + done, count - done, mix);
    out += done, a += done, b += done, count -= done;
#endif
#if defined(__SSE2__)
    size_t i = 0;
    if (!SimdRuns(SimdTier::Sse2)) return done;
    // The same single-precision operations in the same order, four lanes at a
    // time: a x factorA + b x factorB, then + offset; max(v, 0) keeps v only
    // when v > 0 (a NaN gives 0), min(v, 255) only when v < 255, then truncation.
    const __m128 factorA = _mm_set1_ps(mix.factorA), factorB = _mm_set1_ps(mix.factorB);
    const __m128 offset = _mm_set1_ps(mix.offset), low = _mm_setzero_ps(), high = _mm_set1_ps(255.0f);
    const __m128i zero = _mm_setzero_si128();
    auto quarter = [&](__m128i wordsA, __m128i wordsB) {
        const __m128 va = _mm_cvtepi32_ps(wordsA), vb = _mm_cvtepi32_ps(wordsB);
        __m128 v = _mm_add_ps(_mm_add_ps(_mm_mul_ps(va, factorA), _mm_mul_ps(vb, factorB)), offset);
        v = _mm_min_ps(_mm_max_ps(v, low), high);
        return _mm_cvttps_epi32(v);
    };
    for (; i + 16 <= count; i += 16) {
        const __m128i bytesA = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + i));
        const __m128i bytesB = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + i));
        const __m128i lowA = _mm_unpacklo_epi8(bytesA, zero), highA = _mm_unpackhi_epi8(bytesA, zero);
        const __m128i lowB = _mm_unpacklo_epi8(bytesB, zero), highB = _mm_unpackhi_epi8(bytesB, zero);
        const __m128i r0 = quarter(_mm_unpacklo_epi16(lowA, zero), _mm_unpacklo_epi16(lowB, zero));
        const __m128i r1 = quarter(_mm_unpackhi_epi16(lowA, zero), _mm_unpackhi_epi16(lowB, zero));
        const __m128i r2 = quarter(_mm_unpacklo_epi16(highA, zero), _mm_unpacklo_epi16(highB, zero));
        const __m128i r3 = quarter(_mm_unpackhi_epi16(highA, zero), _mm_unpackhi_epi16(highB, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i),
                         _mm_packus_epi16(_mm_packs_epi32(r0, r1), _mm_packs_epi32(r2, r3)));
    }
    return done + i;
#else
    (void)out, (void)a, (void)b, (void)count, (void)mix;
    return done;
#endif
}

void MixRow(unsigned char* out, const unsigned char* a, const unsigned char* b, size_t count,
            const LinearMix& mix) {
    for (size_t i = MixRowVector(out, a, b, count, mix); i < count; ++i) out[i] = Mix(mix, a[i], b[i]);
}

void AddRows(const MathsPlane& dest, const MathsPlane& a, const MathsPlane& b, int height, size_t rowBytes,
             float divisor, RowStage& stage) {
    if (divisor == 0.0f)
        AddPlane<DivisorRule::kKeepSum>(dest, a, b, height, rowBytes, divisor, stage);
    else if (divisor == 2.0f)
        AddPlane<DivisorRule::kTimesFour>(dest, a, b, height, rowBytes, divisor, stage);
    else
        AddPlane<DivisorRule::kDivide>(dest, a, b, height, rowBytes, divisor, stage);
}

uint64_t SubtractRows(const MathsPlane& dest, const MathsPlane& a, const MathsPlane& b, int width, int height,
                      int bitCount, int flags, RowStage& stage) {
    if (width <= 0 || (bitCount != 8 && bitCount != 24 && bitCount != 32)) return 0;
    // Any flag selects the absolute difference at 8 and 24 bits; at 32 bits only bit 0 does.
    const bool absolute = bitCount == 32 ? (flags & 1) != 0 : flags != 0;
    return absolute ? SubtractPlane<true>(dest, a, b, width, height, bitCount, flags, stage)
                    : SubtractPlane<false>(dest, a, b, width, height, bitCount, flags, stage);
}

void AddScaleSameDepth(const MathsPlane& dest, const MathsPlane& a, const MathsPlane& b,
                       const MathsPlane* mask, int width, int height, int bytesPerPixel, LinearMix mix,
                       RowStage& stage) {
    if (width <= 0 || bytesPerPixel <= 0) return;
    const size_t pixels = static_cast<size_t>(width);
    const size_t rowBytes = pixels * static_cast<size_t>(bytesPerPixel);
    const RowSpan maskSpan = mask != nullptr ? RowSpan{mask, pixels} : RowSpan{};
    WalkRows(stage, height, {&dest, rowBytes}, {&a, rowBytes}, {&b, rowBytes}, maskSpan,
             [&](unsigned char* out, const unsigned char* rowA, const unsigned char* rowB,
                 const unsigned char* rowMask) {
                 if (rowMask == nullptr) {
                     MixRow(out, rowA, rowB, rowBytes, mix);
                     return;
                 }
                 for (size_t x = 0; x < pixels; ++x) {
                     if (rowMask[x] == 0) continue;
                     const size_t at = x * static_cast<size_t>(bytesPerPixel);
                     for (int k = 0; k < bytesPerPixel; ++k)
                         out[at + k] = Mix(mix, rowA[at + k], rowB[at + k]);
                 }
             });
}

void AddScaleMixedDepth(const MathsPlane& dest, const MathsPlane& a, const MathsPlane& b,
                        const MathsPlane* mask, int width, int height, int destStep, int aStep, int bStep,
                        LinearMix mix, RowStage& stage) {
    if (width <= 0) return;
    const size_t pixels = static_cast<size_t>(width);
    const RowSpan maskSpan = mask != nullptr ? RowSpan{mask, pixels} : RowSpan{};
    WalkRows(stage, height, {&dest, pixels * static_cast<size_t>(destStep)},
             {&a, pixels * static_cast<size_t>(aStep)}, {&b, pixels * static_cast<size_t>(bStep)}, maskSpan,
             [&](unsigned char* out, const unsigned char* rowA, const unsigned char* rowB,
                 const unsigned char* rowMask) {
                 for (size_t x = 0; x < pixels; ++x) {
                     if (rowMask != nullptr && rowMask[x] == 0) continue;
                     for (size_t k = 0; k < 3; ++k)
                         out[x * destStep + k] = Mix(mix, rowA[x * aStep + k], rowB[x * bStep + k]);
                 }
             });
}

QResult CQELMaths::Add(IQELImage* dest, IQEL* a, IQEL* b, float divisor) {
    if (dest == nullptr || a == nullptr || b == nullptr) return QEL_E_FAIL;
    ImageView infoA, infoB;
    if (!ReadMatchingFormats(a, b, &infoA, &infoB)) return QEL_E_FAIL;
    ReadSize(a, &infoA);
    if (AddWritesEveryByte(dest, a, b, infoA))
        CreateToOverwrite(dest, infoA.width, infoA.height, infoA.planes, infoA.bitCount, infoA.colourModel);
    else
        dest->Create(infoA.width, infoA.height, infoA.planes, infoA.bitCount, infoA.colourModel);
    // b's size only bounds its rows: a b smaller than a reads as 0 past its end.
    ReadSize(b, &infoB);
    ImageView infoDest;
    ReadInfo(dest, &infoDest);

    // 32-bit rows are walked as if packed at three bytes per pixel (deliberately).
    const int samplesPerPixel = infoA.bitCount == 8                              ? 1
                                : (infoA.bitCount == 24 || infoA.bitCount == 32) ? 3
                                                                                 : 0;
    if (samplesPerPixel == 0 || infoA.width <= 0) return QEL_OK;
    const size_t rowBytes = static_cast<size_t>(infoA.width) * static_cast<size_t>(samplesPerPixel);
    RowStage stage;
    for (int p = 0; p < infoA.planes; ++p) {
        const MathsPlane planeA = GetPlane(a, p, infoA);
        const MathsPlane planeB = GetPlane(b, p, infoB);
        const MathsPlane planeDest = GetPlane(dest, p, infoDest);
        if (planeA.bits == nullptr || planeB.bits == nullptr || planeDest.bits == nullptr) continue;
        AddRows(planeDest, planeA, planeB, infoA.height, rowBytes, divisor, stage);
    }
    return stage.Failed() ? QEL_E_OUTOFMEMORY : QEL_OK;
}

QResult CQELMaths::Subtract(IQEL* dest, IQEL* a, IQEL* b, int flags) {
    if (dest == nullptr || a == nullptr || b == nullptr) return QEL_E_INVALIDARG;
    ImageView infoA, infoB;
    if (!ReadMatchingFormats(a, b, &infoA, &infoB)) return QEL_E_FAIL;
    ReadSize(a, &infoA);
    ReadSize(b, &infoB);
    const int width = UnsignedMin(infoA.width, infoB.width);
    const int height = UnsignedMin(infoA.height, infoB.height);
    // dest's own geometry only bounds the writes: the caller promises it fits.
    ImageView infoDest;
    ReadInfo(dest, &infoDest);

    const int bitCount = infoA.bitCount;
    if (bitCount != 8 && bitCount != 24 && bitCount != 32) return QEL_OK;
    uint64_t tally = 0;
    RowStage stage;
    for (int p = 0; p < infoA.planes; ++p) {
        const MathsPlane planeA = GetPlane(a, p, infoA);
        const MathsPlane planeB = GetPlane(b, p, infoB);
        const MathsPlane planeDest = GetPlane(dest, p, infoDest);
        if (planeA.bits == nullptr || planeB.bits == nullptr || planeDest.bits == nullptr) continue;
        tally += SubtractRows(planeDest, planeA, planeB, width, height, bitCount, flags, stage);
    }
    if (stage.Failed()) return QEL_E_OUTOFMEMORY;
    if (bitCount == 8) return QEL_OK;
    // The tally is the result; it stays a success code however large it grows.
    return tally > static_cast<uint64_t>(INT32_MAX) ? INT32_MAX : static_cast<QResult>(tally);
}

QResult CQELMaths::AddScale(IQEL* dest, IQEL* a, IQEL* b, IQEL* mask, float factorA, float factorB,
                            float offset) {
    if (dest == nullptr || a == nullptr || b == nullptr) return QEL_E_FAIL;
    ImageView infoA, infoB, infoDest;
    ReadInfo(a, &infoA);
    ReadInfo(b, &infoB);
    ReadInfo(dest, &infoDest);
    const int width = UnsignedMin(UnsignedMin(infoA.width, infoB.width), infoDest.width);
    const int height = UnsignedMin(UnsignedMin(infoA.height, infoB.height), infoDest.height);
    const LinearMix mix{factorA, factorB, offset};
    const bool sameDepth = infoA.bitCount == infoB.bitCount && infoB.bitCount == infoDest.bitCount;
    if (!sameDepth && (infoB.bitCount <= 23 || infoA.bitCount <= 23 || infoDest.bitCount <= 23))
        return QEL_E_FAIL;

    const MathsPlane planeA = GetPlane(a, 0, infoA);
    const MathsPlane planeB = GetPlane(b, 0, infoB);
    const MathsPlane planeDest = GetPlane(dest, 0, infoDest);
    // The mask is one byte per pixel whatever its format; its own geometry only bounds the reads.
    MathsPlane planeMask;
    if (mask != nullptr) {
        ImageView infoMask;
        ReadInfo(mask, &infoMask);
        planeMask = GetPlane(mask, 0, infoMask);
    }
    const MathsPlane* maskView = mask != nullptr ? &planeMask : nullptr;
    const bool ready = planeA.bits != nullptr && planeB.bits != nullptr && planeDest.bits != nullptr;
    RowStage stage;
    if (sameDepth) {
        if (ready)
            AddScaleSameDepth(planeDest, planeA, planeB, maskView, width, height, infoA.bitCount / 8, mix,
                              stage);
        return stage.Failed() ? QEL_E_OUTOFMEMORY : QEL_OK;
    }
    auto pixelStep = [](int bitCount) { return bitCount <= 24 ? 3 : 4; };
    if (ready)
        AddScaleMixedDepth(planeDest, planeA, planeB, maskView, width, height, pixelStep(infoDest.bitCount),
                           pixelStep(infoA.bitCount), pixelStep(infoB.bitCount), mix, stage);
    if (stage.Failed()) return QEL_E_OUTOFMEMORY;
    // A masked mix across depths reports failure even after writing: callers rely on it.
    return mask != nullptr ? QEL_E_FAIL : QEL_OK;
}
