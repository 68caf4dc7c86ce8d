// Resample's grid sum apart from its arithmetic: which output pixels are
// summed together and with which weights, worked out once per image, and
// the row job the vector step is handed.
#pragma once

#include <cstddef>

#include "image/sampling.h"
#include "image/scratch.h"

constexpr int kGroupPixels = 8;  // output pixels summed together
constexpr int kMaxKinds = 4;     // kinds of column weights and of row weights whose products are kept
constexpr int kPad = 12;         // outside pixels before and after each float row

// Taps before the base position.
template <int kTaps>
constexpr int TapsBack() {
    return kTaps == 4 ? 1 : 5;
}

// Whether an axis whose taps start at `base` can be summed from the float
// rows. Those rows carry the outside colour around the image, so with
// `padded` the sampler's own bounds hold (beyond them it gives the outside
// colour); without it, only taps that all lie inside.
template <int kTaps>
bool TapsSummable(bool padded, int base, int size) {
    constexpr int kBack = TapsBack<kTaps>();
    if (!padded) return base - kBack >= 0 && base - kBack + kTaps - 1 < size;
    return kTaps == 12 ? base >= -6 && base - 4 <= size : base >= -2 && base <= size;
}

// What one output row hands the summing step. Groups come in three lists:
// those whose pixels pair up on a shared first tap, each pair one pixel on
// from the one before (sliding: a pair's taps are the next pair's taps one
// step earlier), the other shared ones (each pair's taps are one 4-float
// load repeated in both halves of a register), and the rest.
template <int kTaps>
struct InteriorRow {
    const float* taps[kTaps];  // float rows holding the taps, top tap row first
    const float* rowWeights;   // kTaps weights of this output row
    const int* offsets;        // per group: each pixel's first tap, in floats from the row start
    const float* weights;      // per group: kTaps x group pixels x 4 lanes of column weights
    const int* firstPixels;    // per group: its first output pixel
    int slidingCount;          // groups 0 to slidingCount - 1 slide
    int sharedCount;           // groups 0 to sharedCount - 1 pair up on their taps
    int firstGroup;            // where the AVX2 step starts: the groups before it are summed
    int groupCount;
    // Column weight x row weight for every tap, per kind of group, when this
    // row's weights are among the few seen before; else null.
    const float* products;
    const int* weightKinds;  // per group: which block of `products` it takes
    unsigned char* out;      // the output row
    int bytes;               // 3 or 4 bytes a pixel
};

// The column side of the interior sum, worked out once per image: the groups
// of eight output pixels summed together (sliding, shared, the rest), their tap offsets and column weights,
// the few kinds of weight block among them, and the columns left to the sampler.
template <int kTaps>
struct ColumnGroups {
    static constexpr size_t kColumnBlock = static_cast<size_t>(kTaps) * kGroupPixels * 4;

    ScratchBuffer<int> offsets;       // per group and pixel: first tap, in floats from the row start
    ScratchBuffer<float> weights;     // per group: kColumnBlock column weights
    ScratchBuffer<int> firstPixels;   // per group: its first output pixel
    ScratchBuffer<int> weightKinds;   // per group: which kind its weights are
    ScratchBuffer<int> otherColumns;  // output columns the sampler computes
    int groups = 0, slidingGroups = 0, sharedGroups = 0, otherCount = 0, kinds = 0;
    int kindGroups[kMaxKinds] = {};  // the first group of each kind
    bool fewKinds = true;            // every group is one of `kinds` kinds

    // False when the memory cannot be had.
    bool Plan(const SampleAxis* columns, int sourceWidth, int destWidth, bool padded);

private:
    void AddGroup(const SampleAxis* columns, int first);
};

// Column weight x row weight for every tap and kind of group, kept for up to
// kMaxKinds kinds of row: scaling by a simple ratio repeats a few column and
// row weight sets over and over.
template <int kTaps>
class WeightProducts {
public:
    static constexpr size_t kProductBlock = kTaps * ColumnGroups<kTaps>::kColumnBlock;

    explicit WeightProducts(const ColumnGroups<kTaps>& groups);

    // The products for a row of these weights, or null when the row is not of
    // a kept kind (the sum then multiplies as it goes).
    const float* For(const float* rowWeights);

private:
    const ColumnGroups<kTaps>& groups_;
    ScratchBuffer<float> products_;
    float rowKinds_[kMaxKinds][kTaps];
    int rowKindCount_ = 0;
};

// Sums the row's groups from firstGroup on and writes their pixels; needs AVX2.
void SumGroupsAvx2(const InteriorRow<4>& row);
void SumGroupsAvx2(const InteriorRow<12>& row);
// Sums the row's sliding groups and writes their pixels; needs AVX-512.
void SumSlidingGroupsAvx512(const InteriorRow<4>& row);
void SumSlidingGroupsAvx512(const InteriorRow<12>& row);

// What one output row of an 8-bit image hands the summing step. The sixteen
// pixels of a block read their first taps within a window of 32 floats (16
// when `narrow`) of each padded row, so a tap of all sixteen is one permute
// of the window moved on by the tap's position.
template <int kTaps>
struct GreyRow {
    const float* taps[kTaps];    // padded float rows holding the taps, top tap row first
    const float* rowWeights;     // kTaps weights of this output row
    const float* columnWeights;  // kTaps runs of `run` floats, run i holding every column's weight i
    const int* windows;          // per block: where its window starts, in floats from the row start
    const int* lanes;            // per block: each pixel's first tap within the window
    size_t run;
    int width;           // output pixels summed: a multiple of 16
    bool narrow;         // every window fits 16 floats
    unsigned char* out;  // the output row
};

// Sums the row's pixels and writes them; needs AVX-512.
void SumGreyAvx512(const GreyRow<4>& row);
void SumGreyAvx512(const GreyRow<12>& row);
