// Kernel interpolation of a whole grid of samples: the sampler's weights per
// column and per row, and the interior of 24- and 32-bit images summed for
// eight output pixels at once where the processor has AVX2.
#include "transform/kernel_grid.h"

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>

#include "image/sampling.h"

namespace {

// Two pixels' blue, green, red and alpha, as sums, weights or taps; four
// pairs make the group of eight output pixels summed together.
typedef float PixelQuad __attribute__((vector_size(16)));
typedef float PixelPair __attribute__((vector_size(32)));
typedef int ChannelPair __attribute__((vector_size(32)));
typedef unsigned char ChannelBytes __attribute__((vector_size(32)));
constexpr int kGroupPixels = 8;

// What one output row hands the summing step.
template <int kTaps>
struct InteriorRow {
    const float* taps[kTaps];  // float rows holding the taps, top tap row first
    const float* rowWeights;   // kTaps weights of this output row
    const int* offsets;        // per group: each pixel's first tap, in floats from the row start
    const float* weights;      // per group: kTaps x group pixels x 4 lanes of column weights
    const int* groups;         // the groups whose every tap lies inside the image
    int groupCount;
    unsigned char* out;  // the output row
    int bytes;           // 3 or 4 bytes a pixel
};

__attribute__((always_inline)) inline void LoadPair(PixelPair& pair, const float* row, const int* offsets) {
    PixelQuad first, second;
    std::memcpy(&first, row + offsets[0], sizeof first);
    std::memcpy(&second, row + offsets[1], sizeof second);
    pair = __builtin_shufflevector(first, second, 0, 1, 2, 3, 4, 5, 6, 7);
}

// Two pixels' sums finished as the sampler finishes one: above 255 gives
// 255, below 0 gives 0, else truncation (the low byte of a whole number in
// 0-255); 3 or 4 bytes a pixel are written.
__attribute__((always_inline)) inline void StorePair(const PixelPair& sum, unsigned char* to, int bytes) {
    const ChannelPair high = {255, 255, 255, 255, 255, 255, 255, 255}, low = {};
    ChannelPair channels = __builtin_convertvector(sum, ChannelPair);
    channels = sum > 255.0f ? high : channels;
    channels = sum < 0.0f ? low : channels;
    const ChannelBytes all = reinterpret_cast<ChannelBytes&>(channels);
    const ChannelBytes packed =
        __builtin_shufflevector(all, all, 0, 4, 8, 12, 16, 20, 24, 28, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
    unsigned char pixels[8];
    std::memcpy(pixels, &packed, sizeof pixels);
    if (bytes == 4) {
        std::memcpy(to, pixels, sizeof pixels);
        return;
    }
    std::memcpy(to, pixels, 3);
    std::memcpy(to + 3, pixels + 4, 3);
}

// Each lane runs the sampler's sum for its pixel and channel: over tap rows,
// then taps, weight = column weight x row weight, sum += weight x tap. The
// four pairs are independent sums, so their additions overlap.
template <int kTaps>
__attribute__((always_inline)) inline void SumGroups(const InteriorRow<kTaps>& row) {
    for (int n = 0; n < row.groupCount; ++n) {
        const int group = row.groups[n];
        const int* offsets = row.offsets + static_cast<size_t>(group) * kGroupPixels;
        const float* groupWeights = row.weights + static_cast<size_t>(group) * kTaps * kGroupPixels * 4;
        PixelPair sum0 = {}, sum1 = {}, sum2 = {}, sum3 = {};
        for (int j = 0; j < kTaps; ++j) {
            const float* taps = row.taps[j];
            const float rowWeight = row.rowWeights[j];
            const float* weight = groupWeights;
            for (int i = 0; i < kTaps; ++i, weight += 32, taps += 4) {
                PixelPair tap0, tap1, tap2, tap3, weight0, weight1, weight2, weight3;
                LoadPair(tap0, taps, offsets);
                LoadPair(tap1, taps, offsets + 2);
                LoadPair(tap2, taps, offsets + 4);
                LoadPair(tap3, taps, offsets + 6);
                std::memcpy(&weight0, weight, sizeof weight0);
                std::memcpy(&weight1, weight + 8, sizeof weight1);
                std::memcpy(&weight2, weight + 16, sizeof weight2);
                std::memcpy(&weight3, weight + 24, sizeof weight3);
                sum0 += (weight0 * rowWeight) * tap0;
                sum1 += (weight1 * rowWeight) * tap1;
                sum2 += (weight2 * rowWeight) * tap2;
                sum3 += (weight3 * rowWeight) * tap3;
            }
        }
        unsigned char* out = row.out + static_cast<ptrdiff_t>(group) * kGroupPixels * row.bytes;
        StorePair(sum0, out, row.bytes);
        StorePair(sum1, out + 2 * row.bytes, row.bytes);
        StorePair(sum2, out + 4 * row.bytes, row.bytes);
        StorePair(sum3, out + 6 * row.bytes, row.bytes);
    }
}

#if defined(__x86_64__)
// Compiled for AVX registers and chosen at run time only; the build itself
// assumes SSE2, where 8-float vectors would be split in two.
__attribute__((target("avx2"))) void SumGroupsAvx2(const InteriorRow<4>& row) { SumGroups(row); }
__attribute__((target("avx2"))) void SumGroupsAvx2(const InteriorRow<12>& row) { SumGroups(row); }
const bool kHasAvx2 = __builtin_cpu_supports("avx2");
#else
void SumGroupsAvx2(const InteriorRow<4>&) {}
void SumGroupsAvx2(const InteriorRow<12>&) {}
constexpr bool kHasAvx2 = false;
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

// The interior of a 24- or 32-bit image summed in groups of eight pixels
// whose every tap is inside the source; the taps come from float copies of
// the source rows, kept in a ring as the output rows move down. Pixels
// outside those groups take the sampler's own path. False, with nothing
// written, when the working memory cannot be had.
template <int kTaps>
bool InterpolateInterior(const InterpolatingSampler& sampler, const SampleAxis* columns,
                         const ImageView& source, const ImageView& dest, float yScale) {
    constexpr int kBack = kTaps == 4 ? 1 : 5;  // taps before the base position
    const auto inside = [](int base, int size) {
        return base - kBack >= 0 && base - kBack + kTaps - 1 < size;
    };
    const int groupCount = dest.width / kGroupPixels;
    const size_t rowFloats = static_cast<size_t>(source.width) * 4;
    const size_t weightCount = static_cast<size_t>(groupCount) * kTaps * kGroupPixels * 4;
    std::unique_ptr<int[]> offsets(
        new (std::nothrow) int[static_cast<size_t>(groupCount) * kGroupPixels + 1]);
    std::unique_ptr<float[]> weights(new (std::nothrow) float[weightCount + 1]);
    std::unique_ptr<int[]> groups(new (std::nothrow) int[static_cast<size_t>(groupCount) + 1]);
    std::unique_ptr<int[]> otherColumns(new (std::nothrow) int[static_cast<size_t>(dest.width)]);
    std::unique_ptr<float[]> ring(new (std::nothrow) float[rowFloats * kTaps]);
    if (!offsets || !weights || !groups || !otherColumns || !ring) return false;

    int interiorGroups = 0, otherCount = 0;
    for (int group = 0; group < groupCount; ++group) {
        const SampleAxis* column = columns + static_cast<ptrdiff_t>(group) * kGroupPixels;
        bool allInside = true;
        for (int p = 0; p < kGroupPixels; ++p) allInside = allInside && inside(column[p].base, source.width);
        if (!allInside) {
            for (int p = 0; p < kGroupPixels; ++p) otherColumns[otherCount++] = group * kGroupPixels + p;
            continue;
        }
        groups[interiorGroups++] = group;
        for (int p = 0; p < kGroupPixels; ++p)
            offsets[static_cast<size_t>(group) * kGroupPixels + p] = (column[p].base - kBack) * 4;
        float* weight = &weights[static_cast<size_t>(group) * kTaps * kGroupPixels * 4];
        for (int i = 0; i < kTaps; ++i)
            for (int p = 0; p < kGroupPixels; ++p)
                for (int channel = 0; channel < 4; ++channel) *weight++ = column[p].weights[i];
    }
    for (int x = groupCount * kGroupPixels; x < dest.width; ++x) otherColumns[otherCount++] = x;

    int ringRow[kTaps];
    for (int& r : ringRow) r = -1;
    const int bytes = source.bitCount / 8;
    for (int y = 0; y < dest.height; ++y) {
        SampleAxis row;
        sampler.ComputeAxis((static_cast<float>(y) + 0.5f) * yScale - 0.5f, &row);
        const bool rowInside = interiorGroups > 0 && inside(row.base, source.height);
        if (!rowInside) {
            for (int x = 0; x < dest.width; ++x)
                SetPixelColor(dest.bits, x, y, dest.width, dest.height, dest.stride,
                              sampler.Sample(columns[x], row), source.bitCount);
            continue;
        }
        InteriorRow<kTaps> job;
        for (int j = 0; j < kTaps; ++j) {
            const int sourceRow = row.base - kBack + j;
            float* copy = &ring[static_cast<size_t>(sourceRow % kTaps) * rowFloats];
            if (ringRow[sourceRow % kTaps] != sourceRow) {
                if (bytes == 4)
                    WidenRow<4>(source.Row(sourceRow), source.width, copy);
                else
                    WidenRow<3>(source.Row(sourceRow), source.width, copy);
                ringRow[sourceRow % kTaps] = sourceRow;
            }
            job.taps[j] = copy;
        }
        job.rowWeights = row.weights;
        job.offsets = offsets.get();
        job.weights = weights.get();
        job.groups = groups.get();
        job.groupCount = interiorGroups;
        job.out = dest.Row(y);
        job.bytes = bytes;
        SumGroupsAvx2(job);
        for (int n = 0; n < otherCount; ++n) {
            const int x = otherColumns[n];
            SetPixelColor(dest.bits, x, y, dest.width, dest.height, dest.stride,
                          sampler.Sample(columns[x], row), source.bitCount);
        }
    }
    return true;
}

}  // namespace

GridLanes BestGridLanes() { return kHasAvx2 ? GridLanes::Avx2 : GridLanes::Scalar; }

void InterpolateGrid(const ImageView& source, const ImageView& dest, float xScale, float yScale, int method,
                     GridLanes lanes) {
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
    if (columns && wholeBytes && lanes == GridLanes::Avx2 && kHasAvx2) {
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
