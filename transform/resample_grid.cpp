// Kernel interpolation of a whole grid of samples, as Resample scales: the
// sampler's weights per column and per row, float copies of the source rows
// the vector steps sum from, and the sampler itself for everything else.
#include "transform/resample_grid.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>

#include "image/pixel.h"
#include "image/sampling.h"
#include "image/scratch.h"
#include "transform/resample_grid_plan.h"

namespace {

// A source row as floats with kPad outside pixels on both sides: blue,
// green, red and alpha for 24 and 32 bits (24-bit rows get alpha 0), the
// grey level for 8 bits. Rows above and below the image are the outside
// colour throughout.
class PaddedRows {
public:
    PaddedRows(const ImageView& source, bool withAlpha)
        : source_(source), channels_(source.bitCount == 8 ? 1 : 4) {
        const uint32_t outside = OutsideColour(source);
        outside_[0] = static_cast<float>(BlueOf(outside));
        outside_[1] = static_cast<float>(GreenOf(outside));
        outside_[2] = static_cast<float>(RedOf(outside));
        outside_[3] = withAlpha ? static_cast<float>(AlphaOf(outside)) : 0.0f;
    }
    size_t Floats() const { return (static_cast<size_t>(source_.width) + 2 * kPad) * channels_; }

    void Widen(int sourceRow, float* to) const {
        if (sourceRow < 0 || sourceRow >= source_.height) {
            FillOutside(to, Floats() / channels_);
            return;
        }
        FillOutside(to, kPad);
        const unsigned char* pixel = source_.Row(sourceRow);
        float* out = to + channels_ * kPad;
        if (channels_ == 1) {
            for (int x = 0; x < source_.width; ++x) out[x] = static_cast<float>(pixel[x]);
        } else {
            const int bytes = source_.bitCount / 8;
            for (int x = 0; x < source_.width; ++x, pixel += bytes, out += 4) {
                out[0] = static_cast<float>(pixel[0]);
                out[1] = static_cast<float>(pixel[1]);
                out[2] = static_cast<float>(pixel[2]);
                out[3] = bytes == 4 ? static_cast<float>(pixel[3]) : 0.0f;
            }
        }
        FillOutside(to + channels_ * (kPad + static_cast<size_t>(source_.width)), kPad);
    }

private:
    void FillOutside(float* to, size_t pixels) const {
        for (size_t x = 0; x < pixels; ++x)
            std::memcpy(to + channels_ * x, outside_, channels_ * sizeof(float));
    }

    const ImageView& source_;
    const size_t channels_;
    float outside_[4];
};

// Widened copies of the source rows the current output row reads, kept in a
// ring as the output rows move down; `kept` floats a row.
template <int kTaps>
class RowRing {
public:
    explicit RowRing(size_t kept) : kept_(kept), rows_(kept * kTaps) {
        for (int& r : held_) r = INT_MIN;
    }
    bool Ready() const { return static_cast<bool>(rows_); }

    // The slot of `sourceRow`, and whether it must be filled.
    float* Slot(int sourceRow, bool* fill) {
        const int slot = (sourceRow % kTaps + kTaps) % kTaps;
        *fill = held_[slot] != sourceRow;
        held_[slot] = sourceRow;
        return &rows_[static_cast<size_t>(slot) * kept_];
    }

private:
    const size_t kept_;
    ScratchBuffer<float> rows_;
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
                         const ImageView& source, const ImageView& dest, float yScale, bool wide) {
    constexpr int kBack = TapsBack<kTaps>();
    const int bytes = source.bitCount / 8;
    const bool padded = kTaps == 12 || bytes == 3;
    ColumnGroups<kTaps> groups;
    const PaddedRows widen(source, kTaps == 12);
    RowRing<kTaps> ring(widen.Floats());
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
        for (int j = 0; j < kTaps; ++j) {
            bool fill = false;
            float* taps = ring.Slot(row.base - kBack + j, &fill);
            if (fill) widen.Widen(row.base - kBack + j, taps);
            job.taps[j] = taps;
        }
        job.products = products.For(row.weights);
        job.rowWeights = row.weights;
        job.offsets = groups.offsets.Data();
        job.weights = groups.weights.Data();
        job.firstPixels = groups.firstPixels.Data();
        job.weightKinds = groups.weightKinds.Data();
        job.slidingCount = groups.slidingGroups;
        job.sharedCount = groups.sharedGroups;
        job.firstGroup = 0;
        job.groupCount = groups.groups;
        job.out = dest.Row(y);
        job.bytes = bytes;
        if (wide) {
            SumSlidingGroupsAvx512(job);
            job.firstGroup = job.slidingCount;
        }
        SumGroupsAvx2(job);
        for (int n = 0; n < groups.otherCount; ++n) {
            const int x = groups.otherColumns[n];
            SetPixelColor(dest.bits, x, y, dest.width, dest.height, dest.stride,
                          sampler.Sample(columns[x], row), source.bitCount);
        }
    }
    return true;
}

// An 8-bit image summed sixteen pixels a register, each block of sixteen
// taking its taps by permutes of a window of the padded float rows. Columns
// past the last whole sixteen, and rows whose taps reach past the padded
// rows, take the sampler's own path. Grey pixels read the same level in
// blue, green and red, so one sum stands for the three and the level
// written back is that sum's. False, with nothing written, when a column's
// taps reach past the padded rows, a block's taps spread wider than a
// window (shrinking across), or the working memory cannot be had.
template <int kTaps>
bool InterpolateGreyInterior(const InterpolatingSampler& sampler, const SampleAxis* columns,
                             const ImageView& source, const ImageView& dest, float yScale) {
    constexpr int kBack = TapsBack<kTaps>();
    constexpr int kWindow = 32;
    const int summed = dest.width / 16 * 16;
    if (summed == 0) return false;
    const size_t run = static_cast<size_t>(summed);
    const ScratchBuffer<float> weights(run * kTaps);
    const ScratchBuffer<int> windows(run / 16);
    const ScratchBuffer<int> lanes(run);
    if (!weights || !windows || !lanes) return false;
    int widest = 0;
    for (size_t x = 0; x < run; ++x) {
        if (!TapsSummable<kTaps>(true, columns[x].base, source.width)) return false;
        if (x % 16 == 0) windows[x / 16] = columns[x].base - kBack + kPad;
        lanes[x] = columns[x].base - kBack + kPad - windows[x / 16];
        widest = std::max(widest, lanes[x]);
        for (int i = 0; i < kTaps; ++i) weights[i * run + x] = columns[x].weights[i];
    }
    if (widest >= kWindow) return false;
    // A window moved on by the last tap reads up to kWindow + kTaps floats
    // past its start: the rows carry that much more, as the outside colour.
    const PaddedRows widen(source, false);
    const size_t rowFloats = widen.Floats() + kWindow + kTaps;
    RowRing<kTaps> ring(rowFloats);
    if (!ring.Ready()) return false;

    for (int y = 0; y < dest.height; ++y) {
        SampleAxis row;
        sampler.ComputeAxis((static_cast<float>(y) + 0.5f) * yScale - 0.5f, &row);
        int x = 0;
        if (TapsSummable<kTaps>(true, row.base, source.height)) {
            GreyRow<kTaps> job;
            for (int j = 0; j < kTaps; ++j) {
                bool fill = false;
                float* taps = ring.Slot(row.base - kBack + j, &fill);
                if (fill) {
                    widen.Widen(row.base - kBack + j, taps);
                    std::fill(taps + widen.Floats(), taps + rowFloats, taps[0]);
                }
                job.taps[j] = taps;
            }
            job.rowWeights = row.weights;
            job.columnWeights = weights.Data();
            job.windows = windows.Data();
            job.lanes = lanes.Data();
            job.run = run;
            job.width = summed;
            job.narrow = widest < 16;
            job.out = dest.Row(y);
            SumGreyAvx512(job);
            x = summed;
        }
        for (; x < dest.width; ++x)
            SetPixelColor(dest.bits, x, y, dest.width, dest.height, dest.stride,
                          sampler.Sample(columns[x], row), source.bitCount);
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
    ScratchBuffer<SampleAxis> columns;
    if (sampler.UsesAxisWeights()) {
        columns.Resize(static_cast<size_t>(dest.width));
        if (columns)
            for (int x = 0; x < dest.width; ++x)
                sampler.ComputeAxis((static_cast<float>(x) + 0.5f) * xScale - 0.5f, &columns[x]);
    }
    const bool wholeBytes = source.bitCount == 24 || source.bitCount == 32;
    if (columns && wholeBytes && SimdRuns(SimdTier::Avx2, widest)) {
        const bool wide = SimdRuns(SimdTier::Avx512, widest);
        if (method == 5 ? InterpolateInterior<12>(sampler, columns.Data(), source, dest, yScale, wide)
                        : InterpolateInterior<4>(sampler, columns.Data(), source, dest, yScale, wide))
            return;
    }
    if (columns && source.bitCount == 8 && SimdRuns(SimdTier::Avx512, widest)) {
        if (method == 5 ? InterpolateGreyInterior<12>(sampler, columns.Data(), source, dest, yScale)
                        : InterpolateGreyInterior<4>(sampler, columns.Data(), source, dest, yScale))
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
