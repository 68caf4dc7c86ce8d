// Kernel interpolation of a whole grid of samples: the sampler's weights per
// column and per row, and the interior of 24- and 32-bit images summed for
// eight output pixels at once.
#include "transform/kernel_grid.h"

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>

#include "image/sampling.h"

namespace {

// Two pixels' blue, green, red and alpha sums, or weights, or taps.
typedef float PixelPair __attribute__((vector_size(32)));
typedef float PixelQuad __attribute__((vector_size(16)));

constexpr int kGroupPixels = 8;  // output pixels summed together: four pairs

// Clamped to [0, 255] and truncated toward zero, as the sampler finishes a sum.
int ChannelOf(float sum) {
    if (sum > 255.0f) return 255;
    if (sum < 0.0f) return 0;
    return static_cast<int>(sum);
}

// What one output row hands the summing step.
template <int kTaps>
struct InteriorRow {
    const float* taps[kTaps];      // float rows holding the taps, top tap row first
    const float* rowWeights;       // kTaps weights of this output row
    const int* offsets;            // per group: each pixel's first tap, in floats from the row start
    const PixelPair* weights;      // per group: kTaps x 4 pairs of column weights
    const int* groups;             // the groups whose every tap lies inside the image
    int groupCount;
    float* sums;                   // per group: 8 pixels x 4 channels
};

__attribute__((always_inline)) inline void LoadPair(PixelPair& pair, const float* first, const float* second) {
    PixelQuad low, high;
    std::memcpy(&low, first, sizeof low);
    std::memcpy(&high, second, sizeof high);
    pair = __builtin_shufflevector(low, high, 0, 1, 2, 3, 4, 5, 6, 7);
}

// Each lane runs the sampler's sum for its pixel and channel: over tap rows,
// then taps, weight = column weight x row weight, sum += weight x tap. The
// four pairs are independent sums, so their additions overlap.
template <int kTaps>
__attribute__((always_inline)) inline void SumGroups(const InteriorRow<kTaps>& row) {
    for (int n = 0; n < row.groupCount; ++n) {
        const int group = row.groups[n];
        const int* offsets = row.offsets + static_cast<size_t>(group) * kGroupPixels;
        const PixelPair* groupWeights = row.weights + static_cast<size_t>(group) * kTaps * 4;
        PixelPair sum0 = {}, sum1 = {}, sum2 = {}, sum3 = {};
        for (int j = 0; j < kTaps; ++j) {
            const float* taps = row.taps[j];
            const float rowWeight = row.rowWeights[j];
            const PixelPair* weight = groupWeights;
            for (int i = 0; i < kTaps; ++i, weight += 4, taps += 4) {
                PixelPair tap0, tap1, tap2, tap3;
                LoadPair(tap0, taps + offsets[0], taps + offsets[1]);
                LoadPair(tap1, taps + offsets[2], taps + offsets[3]);
                LoadPair(tap2, taps + offsets[4], taps + offsets[5]);
                LoadPair(tap3, taps + offsets[6], taps + offsets[7]);
                sum0 += (weight[0] * rowWeight) * tap0;
                sum1 += (weight[1] * rowWeight) * tap1;
                sum2 += (weight[2] * rowWeight) * tap2;
                sum3 += (weight[3] * rowWeight) * tap3;
            }
        }
        float* out = row.sums + static_cast<size_t>(group) * kGroupPixels * 4;
        std::memcpy(out, &sum0, sizeof sum0);
        std::memcpy(out + 8, &sum1, sizeof sum1);
        std::memcpy(out + 16, &sum2, sizeof sum2);
        std::memcpy(out + 24, &sum3, sizeof sum3);
    }
}

void SumGroups4(const InteriorRow<4>& row) { SumGroups(row); }
void SumGroups12(const InteriorRow<12>& row) { SumGroups(row); }

#if defined(__x86_64__)
// The same loops compiled for AVX registers; chosen at run time only.
__attribute__((target("avx2"))) void SumGroups4Wide(const InteriorRow<4>& row) { SumGroups(row); }
__attribute__((target("avx2"))) void SumGroups12Wide(const InteriorRow<12>& row) { SumGroups(row); }
const bool kHasAvx2 = __builtin_cpu_supports("avx2");
#endif

void SumGroupsWith(GridLanes lanes, const InteriorRow<4>& row) {
#if defined(__x86_64__)
    if (lanes == GridLanes::WidePairs) return SumGroups4Wide(row);
#endif
    (void)lanes;
    SumGroups4(row);
}

void SumGroupsWith(GridLanes lanes, const InteriorRow<12>& row) {
#if defined(__x86_64__)
    if (lanes == GridLanes::WidePairs) return SumGroups12Wide(row);
#endif
    (void)lanes;
    SumGroups12(row);
}

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

// The interior of a 24- or 32-bit image summed in groups of eight output
// pixels whose every tap is inside the source; the taps come from float
// copies of the source rows, kept in a ring as the output rows move down.
// Pixels outside those groups take the sampler's own path. False, with
// nothing written, when the working memory cannot be had.
template <int kTaps>
bool InterpolateInterior(const InterpolatingSampler& sampler, const SampleAxis* columns, const ImageView& source,
                         const ImageView& dest, float yScale, GridLanes lanes) {
    constexpr int kBack = kTaps == 4 ? 1 : 5;  // taps before the base position
    const auto inside = [](int base, int size) { return base - kBack >= 0 && base - kBack + kTaps - 1 < size; };
    const int groupCount = dest.width / kGroupPixels;
    const size_t rowFloats = static_cast<size_t>(source.width) * 4;
    std::unique_ptr<int[]> offsets(new (std::nothrow) int[static_cast<size_t>(groupCount) * kGroupPixels + 1]);
    std::unique_ptr<PixelPair[]> weights(new (std::nothrow) PixelPair[static_cast<size_t>(groupCount) * kTaps * 4 + 1]);
    std::unique_ptr<int[]> groups(new (std::nothrow) int[static_cast<size_t>(groupCount) + 1]);
    std::unique_ptr<bool[]> interiorColumn(new (std::nothrow) bool[static_cast<size_t>(dest.width)]);
    std::unique_ptr<float[]> sums(new (std::nothrow) float[static_cast<size_t>(groupCount) * kGroupPixels * 4 + 1]);
    std::unique_ptr<float[]> ring(new (std::nothrow) float[rowFloats * kTaps]);
    if (!offsets || !weights || !groups || !interiorColumn || !sums || !ring) return false;

    int interiorGroups = 0;
    for (int x = 0; x < dest.width; ++x) interiorColumn[x] = false;
    for (int group = 0; group < groupCount; ++group) {
        const SampleAxis* column = columns + static_cast<ptrdiff_t>(group) * kGroupPixels;
        bool allInside = true;
        for (int p = 0; p < kGroupPixels; ++p) allInside = allInside && inside(column[p].base, source.width);
        if (!allInside) continue;
        groups[interiorGroups++] = group;
        for (int p = 0; p < kGroupPixels; ++p) {
            interiorColumn[group * kGroupPixels + p] = true;
            offsets[static_cast<size_t>(group) * kGroupPixels + p] = (column[p].base - kBack) * 4;
        }
        PixelPair* pairs = &weights[static_cast<size_t>(group) * kTaps * 4];
        for (int i = 0; i < kTaps; ++i)
            for (int q = 0; q < 4; ++q)
                for (int lane = 0; lane < 8; ++lane) pairs[i * 4 + q][lane] = column[2 * q + lane / 4].weights[i];
    }

    int ringRow[kTaps];
    for (int& r : ringRow) r = -1;
    const int bytes = source.bitCount / 8;
    for (int y = 0; y < dest.height; ++y) {
        SampleAxis row;
        sampler.ComputeAxis((static_cast<float>(y) + 0.5f) * yScale - 0.5f, &row);
        const bool rowInside = interiorGroups > 0 && inside(row.base, source.height);
        if (rowInside) {
            InteriorRow<kTaps> job;
            for (int j = 0; j < kTaps; ++j) {
                const int sourceRow = row.base - kBack + j;
                float* copy = &ring[static_cast<size_t>(sourceRow % kTaps) * rowFloats];
                if (ringRow[sourceRow % kTaps] != sourceRow) {
                    if (bytes == 4) WidenRow<4>(source.Row(sourceRow), source.width, copy);
                    else WidenRow<3>(source.Row(sourceRow), source.width, copy);
                    ringRow[sourceRow % kTaps] = sourceRow;
                }
                job.taps[j] = copy;
            }
            job.rowWeights = row.weights;
            job.offsets = offsets.get();
            job.weights = weights.get();
            job.groups = groups.get();
            job.groupCount = interiorGroups;
            job.sums = sums.get();
            SumGroupsWith(lanes, job);
        }
        unsigned char* to = dest.Row(y);
        for (int x = 0; x < dest.width; ++x, to += bytes) {
            if (rowInside && interiorColumn[x]) {
                const float* sum = &sums[static_cast<size_t>(x) * 4];
                to[0] = static_cast<unsigned char>(ChannelOf(sum[0]));
                to[1] = static_cast<unsigned char>(ChannelOf(sum[1]));
                to[2] = static_cast<unsigned char>(ChannelOf(sum[2]));
                if (bytes == 4) to[3] = static_cast<unsigned char>(ChannelOf(sum[3]));
            } else {
                SetPixelColor(dest.bits, x, y, dest.width, dest.height, dest.stride, sampler.Sample(columns[x], row),
                              source.bitCount);
            }
        }
    }
    return true;
}

}  // namespace

GridLanes BestGridLanes() {
#if defined(__x86_64__)
    if (kHasAvx2) return GridLanes::WidePairs;
#endif
    return GridLanes::Pairs;
}

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
    if (columns && wholeBytes && lanes != GridLanes::Scalar) {
        if (method == 5 ? InterpolateInterior<12>(sampler, columns.get(), source, dest, yScale, lanes)
                        : InterpolateInterior<4>(sampler, columns.get(), source, dest, yScale, lanes))
            return;
    }
    for (int y = 0; y < dest.height; ++y) {
        const float sy = (static_cast<float>(y) + 0.5f) * yScale - 0.5f;
        SampleAxis row;
        if (columns) sampler.ComputeAxis(sy, &row);
        for (int x = 0; x < dest.width; ++x) {
            const uint32_t colour = columns ? sampler.Sample(columns[x], row)
                                            : sampler.Sample((static_cast<float>(x) + 0.5f) * xScale - 0.5f, sy);
            SetPixelColor(dest.bits, x, y, dest.width, dest.height, dest.stride, colour, source.bitCount);
        }
    }
}
