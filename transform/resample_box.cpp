// The 2 x 2 box average of one output row, pixel by pixel or with SSSE3 or
// AVX-512 byte shuffles and pairwise byte sums.
#include "transform/resample_box.h"

#include <immintrin.h>

namespace {

template <int kBytes>
void HalveRowScalar(const unsigned char* top, const unsigned char* bottom, const ptrdiff_t* starts,
                    unsigned char* out, int from, int width) {
    constexpr int kChannels = kBytes == 1 ? 1 : 3;
    out += static_cast<ptrdiff_t>(from) * kBytes;
    for (int x = from; x < width; ++x, out += kBytes) {
        const unsigned char* up = top + starts[x];
        const unsigned char* down = bottom + starts[x];
        for (int channel = 0; channel < kChannels; ++channel)
            out[channel] =
                static_cast<unsigned char>((static_cast<unsigned int>(up[channel]) + up[channel + kBytes] +
                                            down[channel] + down[channel + kBytes]) >>
                                           2);
    }
}

// A step makes 24 output bytes from 48 source bytes of each row (8 pixels of
// 3 bytes, 24 of 1), in three registers of eight 16-bit sums. Each register
// shuffles the two bytes of every pair next to each other, taking them from
// two loads, at the first and ending at the last byte it needs, and adds the
// pairs with a multiply by ones; the two rows' sums are added and shifted.
struct HalvingShuffles {
    int first[3], last[3];  // byte range each register reads
    alignas(16) signed char low[3][16], high[3][16];

    explicit HalvingShuffles(int bytes) {
        const int channels = bytes == 1 ? 1 : 3;
        for (int r = 0; r < 3; ++r) {
            int sources[16];
            for (int lane = 0; lane < 8; ++lane) {
                const int o = 8 * r + lane;  // output byte
                sources[2 * lane] = 2 * bytes * (o / channels) + o % channels;
                sources[2 * lane + 1] = sources[2 * lane] + bytes;
            }
            first[r] = sources[0];
            last[r] = sources[15];
            for (int n = 0; n < 16; ++n) {
                const int fromLow = sources[n] - first[r], fromHigh = sources[n] - (last[r] - 15);
                low[r][n] = static_cast<signed char>(fromLow < 16 ? fromLow : -128);
                high[r][n] = static_cast<signed char>(fromLow < 16 ? -128 : fromHigh);
            }
        }
    }
};

__attribute__((target("ssse3"))) inline __m128i PairSums(const unsigned char* row, const HalvingShuffles& s,
                                                         int r) {
    const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + s.first[r]));
    const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + s.last[r] - 15));
    const __m128i pairs =
        _mm_or_si128(_mm_shuffle_epi8(low, _mm_load_si128(reinterpret_cast<const __m128i*>(s.low[r]))),
                     _mm_shuffle_epi8(high, _mm_load_si128(reinterpret_cast<const __m128i*>(s.high[r]))));
    return _mm_maddubs_epi16(pairs, _mm_set1_epi8(1));
}

// Returns the output pixels written: whole steps only.
__attribute__((target("ssse3"))) int HalveRowSsse3(const unsigned char* top, const unsigned char* bottom,
                                                   unsigned char* out, int width, int bytes) {
    const HalvingShuffles s(bytes);
    const int pixelsPerStep = bytes == 1 ? 24 : 8;
    int x = 0;
    for (; x + pixelsPerStep <= width; x += pixelsPerStep, top += 48, bottom += 48, out += 24) {
        __m128i means[3];
        for (int r = 0; r < 3; ++r)
            means[r] = _mm_srli_epi16(_mm_add_epi16(PairSums(top, s, r), PairSums(bottom, s, r)), 2);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(means[0], means[1]));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 16), _mm_packus_epi16(means[2], means[2]));
    }
    return x;
}

// A step makes 32 output bytes from 64 source bytes of each row (32 one-byte
// pixels) or 30 from 60 (ten three-byte pixels): one byte permute puts the
// two bytes of every pair side by side, a multiply by ones adds them, and
// the two rows' sums are added, shifted, and their low bytes gathered. Returns the output
// pixels written: whole steps whose 64-byte loads end within the row pairs.
__attribute__((target("avx512f,avx512bw,avx512vbmi"))) int HalveRowAvx512(const unsigned char* top,
                                                                          const unsigned char* bottom,
                                                                          unsigned char* out, int width,
                                                                          int bytes) {
    const int channels = bytes == 1 ? 1 : 3;
    const int pixelsPerStep = bytes == 1 ? 32 : 10;
    const int outBytes = pixelsPerStep * bytes;
    alignas(64) unsigned char pairs[64];
    for (int o = 0; o < 32; ++o) {
        const int first = o < outBytes ? 2 * bytes * (o / channels) + o % channels : 0;
        pairs[2 * o] = static_cast<unsigned char>(first);
        pairs[2 * o + 1] = static_cast<unsigned char>(first + bytes);
    }
    alignas(64) unsigned char lows[64];
    for (int n = 0; n < 64; ++n)
        lows[n] = static_cast<unsigned char>(2 * n % 64);  // the low byte of each sum
    const __m512i order = _mm512_load_si512(pairs), lowBytes = _mm512_load_si512(lows);
    const __m512i ones = _mm512_set1_epi8(1);
    const __mmask64 stored = (__mmask64{1} << outBytes) - 1;
    const ptrdiff_t rowBytes = static_cast<ptrdiff_t>(2) * width * bytes;
    int x = 0;
    for (ptrdiff_t at = 0; at + 64 <= rowBytes; x += pixelsPerStep, at += 2 * outBytes, out += outBytes) {
        const __m512i up = _mm512_maskz_permutexvar_epi8(~__mmask64{0}, order, _mm512_loadu_si512(top + at));
        const __m512i down =
            _mm512_maskz_permutexvar_epi8(~__mmask64{0}, order, _mm512_loadu_si512(bottom + at));
        const __m512i sums =
            _mm512_add_epi16(_mm512_maddubs_epi16(up, ones), _mm512_maddubs_epi16(down, ones));
        const __m512i means =
            _mm512_maskz_permutexvar_epi8(~__mmask64{0}, lowBytes, _mm512_srli_epi16(sums, 2));
        _mm512_mask_storeu_epi8(out, stored, means);
    }
    return x;
}

}  // namespace

bool BlocksFollowEachOther(const ptrdiff_t* starts, int width, int bytes) {
    for (int x = 0; x < width; ++x)
        if (starts[x] != static_cast<ptrdiff_t>(2) * x * bytes) return false;
    return true;
}

void HalveRow(const unsigned char* top, const unsigned char* bottom, const ptrdiff_t* starts,
              unsigned char* out, int width, int bytes, SimdTier widest) {
    int done = 0;
    if (bytes != 4 && SimdRuns(SimdTier::Avx512, widest))
        done = HalveRowAvx512(top, bottom, out, width, bytes);
    else if (bytes != 4 && SimdRuns(SimdTier::Ssse3, widest))
        done = HalveRowSsse3(top, bottom, out, width, bytes);
    if (bytes == 4)
        HalveRowScalar<4>(top, bottom, starts, out, done, width);
    else if (bytes == 3)
        HalveRowScalar<3>(top, bottom, starts, out, done, width);
    else
        HalveRowScalar<1>(top, bottom, starts, out, done, width);
}
