// Planning Resample's grid sum: the groups of output pixels summed together,
// their weights, and the column x row weight products kept for reuse.
#include "transform/resample_grid_plan.h"

#include <cstring>

template <int kTaps>
bool ColumnGroups<kTaps>::Plan(const SampleAxis* columns, int sourceWidth, int destWidth, bool padded) {
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
    offsets.Resize(static_cast<size_t>(groupCount) * kGroupPixels + 1);
    weights.Resize(static_cast<size_t>(groupCount) * kColumnBlock + 1);
    firstPixels.Resize(static_cast<size_t>(groupCount) + 1);
    weightKinds.Resize(static_cast<size_t>(groupCount) + 1);
    otherColumns.Resize(static_cast<size_t>(destWidth));
    if (!offsets || !weights || !firstPixels || !weightKinds || !otherColumns) return false;

    // Each pair's first tap one pixel after the previous pair's.
    const auto sliding = [&](int first) {
        bool all = shared(first);
        for (int p = 2; p < kGroupPixels; p += 2)
            all = all && columns[first + p].base == columns[first].base + p / 2;
        return all;
    };
    // Sliding groups first, then the other shared ones, then the rest.
    for (int pass = 0; pass < 3; ++pass) {
        for (int group = 0; group < groupCount; ++group) {
            const int first = lead + group * kGroupPixels;
            if (!summable(first)) {
                if (pass == 0)
                    for (int p = 0; p < kGroupPixels; ++p) otherColumns[otherCount++] = first + p;
                continue;
            }
            const int kind = sliding(first) ? 0 : shared(first) ? 1 : 2;
            if (kind == pass) AddGroup(columns, first);
        }
        if (pass == 0) slidingGroups = groups;
        if (pass == 1) sharedGroups = groups;
    }
    for (int x = 0; x < lead && x < destWidth; ++x) otherColumns[otherCount++] = x;
    for (int x = lead + groupCount * kGroupPixels; x < destWidth; ++x) otherColumns[otherCount++] = x;
    return true;
}

// Takes the group starting at output pixel `first`; its weights are
// matched bit for bit against the kinds seen so far.
template <int kTaps>
void ColumnGroups<kTaps>::AddGroup(const SampleAxis* columns, int first) {
    const int n = groups++;
    firstPixels[n] = first;
    for (int p = 0; p < kGroupPixels; ++p)
        offsets[static_cast<size_t>(n) * kGroupPixels + p] =
            (columns[first + p].base - TapsBack<kTaps>() + kPad) * 4;
    float* block = &weights[n * kColumnBlock];
    float* weight = block;
    for (int i = 0; i < kTaps; ++i)
        for (int p = 0; p < kGroupPixels; ++p)
            for (int channel = 0; channel < 4; ++channel) *weight++ = columns[first + p].weights[i];
    int kind = 0;
    while (kind < kinds &&
           std::memcmp(&weights[kindGroups[kind] * kColumnBlock], block, kColumnBlock * sizeof(float)) != 0)
        ++kind;
    if (kind == kinds) {
        if (kinds < kMaxKinds)
            kindGroups[kinds++] = n;
        else
            fewKinds = false;
    }
    weightKinds[n] = kind;
}

template <int kTaps>
WeightProducts<kTaps>::WeightProducts(const ColumnGroups<kTaps>& groups) : groups_(groups) {
    if (groups.fewKinds && groups.kinds > 0) products_.Resize(kMaxKinds * groups.kinds * kProductBlock);
}

template <int kTaps>
const float* WeightProducts<kTaps>::For(const float* rowWeights) {
    if (!products_) return nullptr;
    int kind = 0;
    while (kind < rowKindCount_ && std::memcmp(rowKinds_[kind], rowWeights, sizeof rowKinds_[kind]) != 0)
        ++kind;
    if (kind == rowKindCount_) {
        if (rowKindCount_ == kMaxKinds) return nullptr;
        std::memcpy(rowKinds_[rowKindCount_++], rowWeights, sizeof rowKinds_[kind]);
        float* product = &products_[kind * groups_.kinds * kProductBlock];
        for (int c = 0; c < groups_.kinds; ++c) {
            const float* columnWeight =
                &groups_.weights[groups_.kindGroups[c] * ColumnGroups<kTaps>::kColumnBlock];
            for (int j = 0; j < kTaps; ++j)
                for (size_t k = 0; k < ColumnGroups<kTaps>::kColumnBlock; ++k)
                    *product++ = columnWeight[k] * rowWeights[j];
        }
    }
    return &products_[kind * groups_.kinds * kProductBlock];
}

template struct ColumnGroups<4>;
template struct ColumnGroups<12>;
template class WeightProducts<4>;
template class WeightProducts<12>;
