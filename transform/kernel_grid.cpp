// Kernel interpolation of a whole grid of samples: the sampler's weights per
// column and per row, and 24- and 32-bit images summed for eight output
// pixels at once where the processor has AVX2.
#include "transform/kernel_grid.h"

#include <climits>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "image/pixel.h"
#include "image/sampling.h"

namespace {

// Two pixels' blue, green, red and alpha, as sums, weights or taps; four
// pairs make the group of eight output pixels summed together.
typedef float PixelQuad __attribute__((vector_size(16)));
typedef float PixelPair __attribute__((vector_size(32)));
typedef int ChannelPair __attribute__((vector_size(32)));
typedef unsigned char ChannelBytes __attribute__((vector_size(32)));
constexpr int kGroupPixels = 8;

// What one output row hands the summing step. Groups come in two lists:
// those whose pixels pair up on a shared first tap (each pair's taps are one
// 4-float load repeated in both halves of a register) and the rest.
template <int kTaps>
struct InteriorRow {
    const float* taps[kTaps];  // float rows holding the taps, top tap row first
    const float* rowWeights;   // kTaps weights of this output row
    const int* offsets;        // per group: each pixel's first tap, in floats from the row start
    const float* weights;      // per group: kTaps x group pixels x 4 lanes of column weights
    const int* firstPixels;    // per group: its first output pixel
    int sharedCount;           // groups 0 to sharedCount - 1 pair up on their taps
    int groupCount;
    // Column weight x row weight for every tap, per kind of group, when this
    // row's weights are among the few seen before; else null.
    const float* products;
    const int* weightKinds;  // per group: which block of `products` it takes
    unsigned char* out;      // the output row
    int bytes;               // 3 or 4 bytes a pixel
};

#if defined(__x86_64__)
// Everything from here to the matching pop is compiled for AVX2 and reached
// only after the run-time check; the build itself assumes SSE2, where
// 8-float vectors would be split in two.
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif

inline void LoadPair(PixelPair& pair, const float* row, const int* offsets) {
    PixelQuad first, second;
    std::memcpy(&first, row + offsets[0], sizeof first);
    std::memcpy(&second, row + offsets[1], sizeof second);
    pair = __builtin_shufflevector(first, second, 0, 1, 2, 3, 4, 5, 6, 7);
}

// Both pixels of the pair read the same tap: one load fills both halves.
inline void LoadShared(PixelPair& pair, const float* row, const int* offsets) {
    pair =
        reinterpret_cast<PixelPair>(_mm256_broadcast_ps(reinterpret_cast<const __m128*>(row + offsets[0])));
}

// A pair's sums finished as the sampler finishes one: above 255 gives 255,
// below 0 gives 0, else truncation toward zero.
inline __m256i ChannelsOf(const PixelPair& sum) {
    const ChannelPair high = {255, 255, 255, 255, 255, 255, 255, 255}, low = {};
    ChannelPair channels = __builtin_convertvector(sum, ChannelPair);
    channels = sum > 255.0f ? high : channels;
    channels = sum < 0.0f ? low : channels;
    return reinterpret_cast<__m256i>(channels);
}

// The eight pixels of a group written at once: 32 bytes, or 24 as one
// 16-byte and one 8-byte store, never past the group's last pixel. The
// channels are already within 0-255, so the saturating packs only narrow.
inline void StoreGroup(const PixelPair& sum0, const PixelPair& sum1, const PixelPair& sum2,
                       const PixelPair& sum3, unsigned char* to, int bytes) {
    // Packing works within 128-bit halves: the bytes come out as pixels
    // 0 2 4 6 | 1 3 5 7 and one dword permute puts them in order.
    const __m256i words01 = _mm256_packs_epi32(ChannelsOf(sum0), ChannelsOf(sum1));
    const __m256i words23 = _mm256_packs_epi32(ChannelsOf(sum2), ChannelsOf(sum3));
    const __m256i interleaved = _mm256_packus_epi16(words01, words23);
    const __m256i pixels =
        _mm256_permutevar8x32_epi32(interleaved, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
    if (bytes == 4) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), pixels);
        return;
    }
    const __m256i dropFourth = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1, 0, 1,
                                                2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
    const __m256i packed = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(pixels, dropFourth),
                                                       _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm256_castsi256_si128(packed));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to + 16), _mm256_extracti128_si256(packed, 1));
}

// Each lane runs the sampler's sum for its pixel and channel: over tap rows,
// then taps, weight = column weight x row weight, sum += weight x tap. The
// four pairs are independent sums, so their additions overlap. With
// `kProducts` the weights come already multiplied: the same float product,
// taken once per kind of group instead of once per group.
template <int kTaps, bool kShared, bool kProducts>
inline void SumGroups(const InteriorRow<kTaps>& row, int from, int to) {
    constexpr size_t kColumnBlock = static_cast<size_t>(kTaps) * kGroupPixels * 4;
    for (int n = from; n < to; ++n) {
        const int* offsets = row.offsets + static_cast<size_t>(n) * kGroupPixels;
        const float* groupWeights = kProducts ? row.products + row.weightKinds[n] * kTaps * kColumnBlock
                                              : row.weights + n * kColumnBlock;
        PixelPair sum0 = {}, sum1 = {}, sum2 = {}, sum3 = {};
        for (int j = 0; j < kTaps; ++j) {
            const float* taps = row.taps[j];
            const float rowWeight = row.rowWeights[j];
            const float* weight = kProducts ? groupWeights + j * kColumnBlock : groupWeights;
            for (int i = 0; i < kTaps; ++i, weight += 32, taps += 4) {
                PixelPair tap0, tap1, tap2, tap3, weight0, weight1, weight2, weight3;
                if (kShared) {
                    LoadShared(tap0, taps, offsets);
                    LoadShared(tap1, taps, offsets + 2);
                    LoadShared(tap2, taps, offsets + 4);
                    LoadShared(tap3, taps, offsets + 6);
                } else {
                    LoadPair(tap0, taps, offsets);
                    LoadPair(tap1, taps, offsets + 2);
                    LoadPair(tap2, taps, offsets + 4);
                    LoadPair(tap3, taps, offsets + 6);
                }
                std::memcpy(&weight0, weight, sizeof weight0);
                std::memcpy(&weight1, weight + 8, sizeof weight1);
                std::memcpy(&weight2, weight + 16, sizeof weight2);
                std::memcpy(&weight3, weight + 24, sizeof weight3);
                if (kProducts) {
                    sum0 += weight0 * tap0;
                    sum1 += weight1 * tap1;
                    sum2 += weight2 * tap2;
                    sum3 += weight3 * tap3;
                } else {
                    sum0 += (weight0 * rowWeight) * tap0;
                    sum1 += (weight1 * rowWeight) * tap1;
                    sum2 += (weight2 * rowWeight) * tap2;
                    sum3 += (weight3 * rowWeight) * tap3;
                }
            }
        }
        StoreGroup(sum0, sum1, sum2, sum3, row.out + static_cast<ptrdiff_t>(row.firstPixels[n]) * row.bytes,
                   row.bytes);
    }
}

template <int kTaps>
inline void SumRow(const InteriorRow<kTaps>& row) {
    if (row.products != nullptr) {
        SumGroups<kTaps, true, true>(row, 0, row.sharedCount);
        SumGroups<kTaps, false, true>(row, row.sharedCount, row.groupCount);
    } else {
        SumGroups<kTaps, true, false>(row, 0, row.sharedCount);
        SumGroups<kTaps, false, false>(row, row.sharedCount, row.groupCount);
    }
}

void SumGroupsAvx2(const InteriorRow<4>& row) { SumRow(row); }
void SumGroupsAvx2(const InteriorRow<12>& row) { SumRow(row); }

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif
#else
void SumGroupsAvx2(const InteriorRow<4>&) {}
void SumGroupsAvx2(const InteriorRow<12>&) {}
#endif

// A source row as blue, green, red, alpha floats; 24-bit rows get alpha 0.
template <int kBytes>
void WidenRow(const unsigned char* pixel, int width, float* out) {
    for (int x = 0; x < width; ++x, pixel += kBytes, out += 4) {
        out[0] = static_cast<float>(pixel[0]);
        out[1] = static_cast<float>(pixel[1]);
        out[2] = static_cast<float>(pixel[2]);
        out[3] = kBytes == 4 ? static_cast<float>(pixel[3]) : 0.0f;
    }
}

constexpr int kMaxKinds = 4;  // kinds of column weights and of row weights whose products are kept
constexpr int kPad = 12;      // outside pixels before and after each float row

// Whether an axis whose taps start at `base` can be summed from the float
// rows. Those rows carry the outside colour around the image, so with
// `padded` the sampler's own bounds hold (beyond them it gives the outside
// colour); without it, only taps that all lie inside.
template <int kTaps>
bool TapsSummable(bool padded, int base, int size) {
    constexpr int kBack = kTaps == 4 ? 1 : 5;  // taps before the base position
    if (!padded) return base - kBack >= 0 && base - kBack + kTaps - 1 < size;
    return kTaps == 12 ? base >= -6 && base - 4 <= size : base >= -2 && base <= size;
}

// The column side of the interior sum, worked out once per image: the groups
// of eight output pixels summed together (first those whose pixels pair up
// on a shared first tap), their tap offsets and column weights, the few kinds
// of weight block among them, and the columns left to the sampler.
template <int kTaps>
struct ColumnGroups {
    static constexpr int kBack = kTaps == 4 ? 1 : 5;
    static constexpr size_t kColumnBlock = static_cast<size_t>(kTaps) * kGroupPixels * 4;

    std::unique_ptr<int[]> offsets;       // per group and pixel: first tap, in floats from the row start
    std::unique_ptr<float[]> weights;     // per group: kColumnBlock column weights
    std::unique_ptr<int[]> firstPixels;   // per group: its first output pixel
    std::unique_ptr<int[]> weightKinds;   // per group: which kind its weights are
    std::unique_ptr<int[]> otherColumns;  // output columns the sampler computes
    int groups = 0, sharedGroups = 0, otherCount = 0, kinds = 0;
    int kindGroups[kMaxKinds] = {};  // the first group of each kind
    bool fewKinds = true;            // every group is one of `kinds` kinds

    // False when the memory cannot be had.
    bool Plan(const SampleAxis* columns, int sourceWidth, int destWidth, bool padded) {
        const auto summable = [&](int first) {
            bool all = true;
            for (int p = 0; p < kGroupPixels; ++p)
                all = all && TapsSummable<kTaps>(padded, columns[first + p].base, sourceWidth);
            return all;
        };
        const auto shared = [&](int first) {
            bool all = true;
            for (int p = 0; p < kGroupPixels; p += 2)
                all = all && columns[first + p].base == columns[first + p + 1].base;
            return all;
        };
        // Where the groups start decides which neighbours share a register, so
        // the start that pairs up the most groups is taken.
        int lead = 0, mostShared = -1;
        for (int start = 0; start < kGroupPixels && start + kGroupPixels <= destWidth; ++start) {
            int count = 0;
            for (int first = start; first + kGroupPixels <= destWidth; first += kGroupPixels)
                count += summable(first) && shared(first);
            if (count > mostShared) {
                mostShared = count;
                lead = start;
            }
        }
        const int groupCount = destWidth >= lead ? (destWidth - lead) / kGroupPixels : 0;
        offsets.reset(new (std::nothrow) int[static_cast<size_t>(groupCount) * kGroupPixels + 1]);
        weights.reset(new (std::nothrow) float[static_cast<size_t>(groupCount) * kColumnBlock + 1]);
        firstPixels.reset(new (std::nothrow) int[static_cast<size_t>(groupCount) + 1]);
        weightKinds.reset(new (std::nothrow) int[static_cast<size_t>(groupCount) + 1]);
        otherColumns.reset(new (std::nothrow) int[static_cast<size_t>(destWidth)]);
        if (!offsets || !weights || !firstPixels || !weightKinds || !otherColumns) return false;

        for (int pass = 0; pass < 2; ++pass) {
            for (int group = 0; group < groupCount; ++group) {
                const int first = lead + group * kGroupPixels;
                if (!summable(first)) {
                    if (pass == 0)
                        for (int p = 0; p < kGroupPixels; ++p) otherColumns[otherCount++] = first + p;
                    continue;
                }
                if (shared(first) == (pass == 0)) AddGroup(columns, first);
            }
            if (pass == 0) sharedGroups = groups;
        }
        for (int x = 0; x < lead && x < destWidth; ++x) otherColumns[otherCount++] = x;
        for (int x = lead + groupCount * kGroupPixels; x < destWidth; ++x) otherColumns[otherCount++] = x;
        return true;
    }

private:
    // Takes the group starting at output pixel `first`; its weights are
    // matched bit for bit against the kinds seen so far.
    void AddGroup(const SampleAxis* columns, int first) {
        const int n = groups++;
        firstPixels[n] = first;
        for (int p = 0; p < kGroupPixels; ++p)
            offsets[static_cast<size_t>(n) * kGroupPixels + p] = (columns[first + p].base - kBack + kPad) * 4;
        float* block = &weights[n * kColumnBlock];
        float* weight = block;
        for (int i = 0; i < kTaps; ++i)
            for (int p = 0; p < kGroupPixels; ++p)
                for (int channel = 0; channel < 4; ++channel) *weight++ = columns[first + p].weights[i];
        int kind = 0;
        while (kind < kinds && std::memcmp(&weights[kindGroups[kind] * kColumnBlock], block,
                                           kColumnBlock * sizeof(float)) != 0)
            ++kind;
        if (kind == kinds) {
            if (kinds < kMaxKinds)
                kindGroups[kinds++] = n;
            else
                fewKinds = false;
        }
        weightKinds[n] = kind;
    }
};

// Column weight x row weight for every tap and kind of group, kept for up to
// kMaxKinds kinds of row: scaling by a simple ratio repeats a few column and
// row weight sets over and over.
template <int kTaps>
class WeightProducts {
public:
    static constexpr size_t kProductBlock = kTaps * ColumnGroups<kTaps>::kColumnBlock;

    explicit WeightProducts(const ColumnGroups<kTaps>& groups) : groups_(groups) {
        if (groups.fewKinds && groups.kinds > 0)
            products_.reset(new (std::nothrow) float[kMaxKinds * groups.kinds * kProductBlock]);
    }

    // The products for a row of these weights, or null when the row is not of
    // a kept kind (the sum then multiplies as it goes).
    const float* For(const float* rowWeights) {
        if (!products_) return nullptr;
        int kind = 0;
        while (kind < rowKindCount_ && std::memcmp(rowKinds_[kind], rowWeights, sizeof rowKinds_[kind]) != 0)
            ++kind;
        if (kind == rowKindCount_) {
            if (rowKindCount_ == kMaxKinds) return nullptr;
            std::memcpy(rowKinds_[rowKindCount_++], rowWeights, sizeof rowKinds_[kind]);
            float* product = &products_[kind * groups_.kinds * kProductBlock];
            for (int c = 0; c < groups_.kinds; ++c) {
                const float* columnWeight = &groups_.weights[groups_.kindGroups[c] * groups_.kColumnBlock];
                for (int j = 0; j < kTaps; ++j)
                    for (size_t k = 0; k < groups_.kColumnBlock; ++k)
                        *product++ = columnWeight[k] * rowWeights[j];
            }
        }
        return &products_[kind * groups_.kinds * kProductBlock];
    }

private:
    const ColumnGroups<kTaps>& groups_;
    std::unique_ptr<float[]> products_;
    float rowKinds_[kMaxKinds][kTaps];
    int rowKindCount_ = 0;
};

// Float copies (blue, green, red, alpha) of the source rows the current
// output row reads, kept in a ring as the output rows move down. Each has
// kPad outside-colour pixels on both sides; rows above and below the image
// are the outside colour throughout.
template <int kTaps>
class FloatRowRing {
public:
    FloatRowRing(const ImageView& source, bool withAlpha)
        : source_(source),
          rowFloats_((static_cast<size_t>(source.width) + 2 * kPad) * 4),
          rows_(new (std::nothrow) float[rowFloats_ * kTaps]) {
        const uint32_t outside = GetPixelColor(source.bits, -999, -999, source.width, source.height,
                                               source.stride, source.bitCount);
        outside_[0] = static_cast<float>(BlueOf(outside));
        outside_[1] = static_cast<float>(GreenOf(outside));
        outside_[2] = static_cast<float>(RedOf(outside));
        outside_[3] = withAlpha ? static_cast<float>(AlphaOf(outside)) : 0.0f;
        for (int& r : held_) r = INT_MIN;
    }
    bool Ready() const { return rows_ != nullptr; }

    const float* Row(int sourceRow) {
        const int slot = (sourceRow % kTaps + kTaps) % kTaps;
        float* copy = &rows_[static_cast<size_t>(slot) * rowFloats_];
        if (held_[slot] == sourceRow) return copy;
        held_[slot] = sourceRow;
        if (sourceRow < 0 || sourceRow >= source_.height) {
            FillOutside(copy, rowFloats_ / 4);
            return copy;
        }
        FillOutside(copy, kPad);
        if (source_.bitCount == 32)
            WidenRow<4>(source_.Row(sourceRow), source_.width, copy + 4 * kPad);
        else
            WidenRow<3>(source_.Row(sourceRow), source_.width, copy + 4 * kPad);
        FillOutside(copy + 4 * (kPad + static_cast<size_t>(source_.width)), kPad);
        return copy;
    }

private:
    void FillOutside(float* to, size_t pixels) const {
        for (size_t x = 0; x < pixels; ++x) std::memcpy(to + 4 * x, outside_, sizeof outside_);
    }

    const ImageView& source_;
    const size_t rowFloats_;
    std::unique_ptr<float[]> rows_;
    float outside_[4];
    int held_[kTaps];
};

// A 24- or 32-bit image summed in groups of eight pixels from float copies
// of the source rows; pixels outside those groups, and rows whose taps reach
// past what the float rows hold, take the sampler's own path. False, with
// nothing written, when the working memory cannot be had.
//
// The float rows carry the outside colour around the image, so every sample
// the sampler interpolates is summed here alike. The one exception is the
// 4x4 border of 32-bit images, which leaves alpha out; there only samples
// whose taps all lie inside are summed here.
template <int kTaps>
bool InterpolateInterior(const InterpolatingSampler& sampler, const SampleAxis* columns,
                         const ImageView& source, const ImageView& dest, float yScale) {
    constexpr int kBack = ColumnGroups<kTaps>::kBack;
    const int bytes = source.bitCount / 8;
    const bool padded = kTaps == 12 || bytes == 3;
    ColumnGroups<kTaps> groups;
    FloatRowRing<kTaps> ring(source, kTaps == 12);
    if (!groups.Plan(columns, source.width, dest.width, padded) || !ring.Ready()) return false;
    WeightProducts<kTaps> products(groups);

    for (int y = 0; y < dest.height; ++y) {
        SampleAxis row;
        sampler.ComputeAxis((static_cast<float>(y) + 0.5f) * yScale - 0.5f, &row);
        if (groups.groups == 0 || !TapsSummable<kTaps>(padded, row.base, source.height)) {
            for (int x = 0; x < dest.width; ++x)
                SetPixelColor(dest.bits, x, y, dest.width, dest.height, dest.stride,
                              sampler.Sample(columns[x], row), source.bitCount);
            continue;
        }
        InteriorRow<kTaps> job;
        for (int j = 0; j < kTaps; ++j) job.taps[j] = ring.Row(row.base - kBack + j);
        job.products = products.For(row.weights);
        job.rowWeights = row.weights;
        job.offsets = groups.offsets.get();
        job.weights = groups.weights.get();
        job.firstPixels = groups.firstPixels.get();
        job.weightKinds = groups.weightKinds.get();
        job.sharedCount = groups.sharedGroups;
        job.groupCount = groups.groups;
        job.out = dest.Row(y);
        job.bytes = bytes;
        SumGroupsAvx2(job);
        for (int n = 0; n < groups.otherCount; ++n) {
            const int x = groups.otherColumns[n];
            SetPixelColor(dest.bits, x, y, dest.width, dest.height, dest.stride,
                          sampler.Sample(columns[x], row), source.bitCount);
        }
    }
    return true;
}

}  // namespace

void InterpolateGrid(const ImageView& source, const ImageView& dest, float xScale, float yScale, int method,
                     SimdTier widest) {
    const InterpolatingSampler sampler(source.bits, source.width, source.height, source.stride, method,
                                       source.bitCount);
    // The kernel weights of a column (and of a row) are the same for every
    // pixel in it, so they are computed once per column and once per row.
    std::unique_ptr<SampleAxis[]> columns;
    if (sampler.UsesAxisWeights()) {
        columns.reset(new (std::nothrow) SampleAxis[static_cast<size_t>(dest.width)]);
        if (columns)
            for (int x = 0; x < dest.width; ++x)
                sampler.ComputeAxis((static_cast<float>(x) + 0.5f) * xScale - 0.5f, &columns[x]);
    }
    const bool wholeBytes = source.bitCount == 24 || source.bitCount == 32;
    if (columns && wholeBytes && SimdRuns(SimdTier::Avx2, widest)) {
        if (method == 5 ? InterpolateInterior<12>(sampler, columns.get(), source, dest, yScale)
                        : InterpolateInterior<4>(sampler, columns.get(), source, dest, yScale))
            return;
    }
    for (int y = 0; y < dest.height; ++y) {
        const float sy = (static_cast<float>(y) + 0.5f) * yScale - 0.5f;
        SampleAxis row;
        if (columns) sampler.ComputeAxis(sy, &row);
        for (int x = 0; x < dest.width; ++x) {
            const uint32_t colour = columns
                                        ? sampler.Sample(columns[x], row)
                                        : sampler.Sample((static_cast<float>(x) + 0.5f) * xScale - 0.5f, sy);
            SetPixelColor(dest.bits, x, y, dest.width, dest.height, dest.stride, colour, source.bitCount);
        }
    }
}
