// Resample: scaling to a new size by plain copy, nearest pixel, box averaging
// or kernel interpolation.
//
// treatment            chosen when
// Assign               the size does not change
// nearest copy         (enlarging on both axes with method 0, or nearestOnly)
//                      and a depth of 8, 16, 24 or 32 bits
// box average          shrinking on both axes, nearestOnly 0
// kernel interpolation every other case
#include <algorithm>
#include <cmath>
#include <cstring>

#include "image/destination.h"
#include "image/image_view.h"
#include "image/scratch.h"
#include "maths/rows.h"
#include "module/host_services.h"
#include "transform/image_transform.h"
#include "transform/resample_box.h"
#include "transform/resample_grid.h"

namespace {

// Byte offset of a source row as the float product stride * row, truncated.
// The product is rounded like any float, so it is held within the rows a
// block of `rowsNeeded` rows may start at.
ptrdiff_t SourceRowOffset(const ImageView& source, float row, int rowsNeeded) {
    ptrdiff_t offset = static_cast<ptrdiff_t>(static_cast<float>(source.stride) * row);
    const ptrdiff_t limit = static_cast<ptrdiff_t>(source.stride) * (source.height - rowsNeeded);
    if (source.stride >= 0) return std::max<ptrdiff_t>(0, std::min(offset, limit));
    return std::min<ptrdiff_t>(0, std::max(offset, limit));
}

// Floor of index * scale in single precision, held within [0, last].
int ScaledIndex(int index, float scale, int last) {
    const float position = std::floor(static_cast<float>(index) * scale);
    return std::max(0, std::min(static_cast<int>(position), last));
}

template <int kBytes>
void NearestCopy(const ImageView& source, const ImageView& dest, float xScale, float yScale) {
    for (int y = 0; y < dest.height; ++y) {
        const float sy = static_cast<float>(ScaledIndex(y, yScale, source.height - 1));
        const unsigned char* sourceRow = source.bits + SourceRowOffset(source, sy, 1);
        unsigned char* to = dest.Row(y);
        for (int x = 0; x < dest.width; ++x, to += kBytes) {
            const int sx = ScaledIndex(x, xScale, source.width - 1);
            std::memcpy(to, sourceRow + static_cast<ptrdiff_t>(sx) * kBytes, kBytes);
        }
    }
}

// Averages a block of trunc(xScale) by trunc(yScale) pixels starting at the
// floored position; the fractional part of the scale is dropped. Bytes 0-2
// (or byte 0 of a one-byte pixel) are written; a fourth byte stays as created.
// The block columns are the same for every row, so they are found once; a
// 2 x 2 block (halving) has its own row step, whose sum / 4 is the shift an
// unsigned division by 4 is.
template <int kBytes>
void BoxAverage(const ImageView& source, const ImageView& dest, float xScale, float yScale) {
    constexpr int kChannels = kBytes == 1 ? 1 : 3;
    const int blockWidth = static_cast<int>(xScale), blockHeight = static_cast<int>(yScale);
    const unsigned int count = static_cast<unsigned int>(blockWidth) * static_cast<unsigned int>(blockHeight);
    const ScratchBuffer<ptrdiff_t> starts(static_cast<size_t>(dest.width));
    if (starts)
        for (int x = 0; x < dest.width; ++x)
            starts[x] = static_cast<ptrdiff_t>(ScaledIndex(x, xScale, source.width - blockWidth)) * kBytes;
    const bool halving = starts && blockWidth == 2 && blockHeight == 2;
    const SimdTier halvingLanes = halving && BlocksFollowEachOther(starts.Data(), dest.width, kBytes)
                                      ? SimdTier::Avx512
                                      : SimdTier::Scalar;
    for (int y = 0; y < dest.height; ++y) {
        const float sy = static_cast<float>(ScaledIndex(y, yScale, source.height - blockHeight));
        const unsigned char* blockRow = source.bits + SourceRowOffset(source, sy, blockHeight);
        unsigned char* to = dest.Row(y);
        if (halving) {
            HalveRow(blockRow, blockRow + source.stride, starts.Data(), to, dest.width, kBytes, halvingLanes);
            continue;
        }
        for (int x = 0; x < dest.width; ++x, to += kBytes) {
            const int sx = ScaledIndex(x, xScale, source.width - blockWidth);
            const unsigned char* start = blockRow + static_cast<ptrdiff_t>(sx) * kBytes;
            unsigned int sums[kChannels] = {};
            for (int r = 0; r < blockHeight; ++r) {
                const unsigned char* pixel = start + static_cast<ptrdiff_t>(r) * source.stride;
                for (int c = 0; c < blockWidth; ++c, pixel += kBytes)
                    for (int channel = 0; channel < kChannels; ++channel) sums[channel] += pixel[channel];
            }
            for (int channel = 0; channel < kChannels; ++channel)
                to[channel] = static_cast<unsigned char>(sums[channel] / count);
        }
    }
}

// Bit counts below 8 are averaged one byte a pixel as well. A packed row
// holds fewer bytes than pixels, so blocks and output pixels reach past a
// row's pixel bytes: those inside the image's memory are used as they lie,
// bytes beyond it read as 0 and writes beyond it are dropped, as the
// arithmetic operations treat their planes.
void BoxAveragePacked(const ImageView& source, const ImageView& dest, float xScale, float yScale) {
    const MathsPlane from = PlaneOf(source);
    const MathsPlane to = PlaneOf(dest);
    const int blockWidth = static_cast<int>(xScale), blockHeight = static_cast<int>(yScale);
    const unsigned int count = static_cast<unsigned int>(blockWidth) * static_cast<unsigned int>(blockHeight);
    for (int y = 0; y < dest.height; ++y) {
        const float sy = static_cast<float>(ScaledIndex(y, yScale, source.height - blockHeight));
        const ptrdiff_t blockRow = SourceRowOffset(source, sy, blockHeight);
        for (int x = 0; x < dest.width; ++x) {
            const ptrdiff_t start = blockRow + ScaledIndex(x, xScale, source.width - blockWidth);
            unsigned int sum = 0;
            for (int r = 0; r < blockHeight; ++r)
                for (int c = 0; c < blockWidth; ++c) {
                    const ptrdiff_t at = start + static_cast<ptrdiff_t>(r) * source.stride + c;
                    if (from.Holds(at, 1)) sum += source.bits[at];
                }
            const ptrdiff_t out = to.RowOffset(y) + x;
            if (to.Holds(out, 1)) dest.bits[out] = static_cast<unsigned char>(sum / count);
        }
    }
}

void ResampleInto(const ImageView& source, const ImageView& dest, int method, int nearestOnly) {
    const float xScale = static_cast<float>(source.width) / static_cast<float>(dest.width);
    const float yScale = static_cast<float>(source.height) / static_cast<float>(dest.height);
    const int depth = source.bitCount;
    const bool copyableDepth = depth == 32 || depth == 24 || depth == 16 || depth == 8;
    if (((xScale <= 1.0f && method == 0 && yScale <= 1.0f) || nearestOnly != 0) && copyableDepth) {
        if (depth == 32) NearestCopy<4>(source, dest, xScale, yScale);
        if (depth == 24) NearestCopy<3>(source, dest, xScale, yScale);
        if (depth == 16) NearestCopy<2>(source, dest, xScale, yScale);
        if (depth == 8) NearestCopy<1>(source, dest, xScale, yScale);
    } else if (xScale >= 1.0f && yScale >= 1.0f && nearestOnly == 0) {
        if (depth == 32)
            BoxAverage<4>(source, dest, xScale, yScale);
        else if (depth == 24)
            BoxAverage<3>(source, dest, xScale, yScale);
        else if (depth >= 8)
            BoxAverage<1>(source, dest, xScale, yScale);
        else
            BoxAveragePacked(source, dest, xScale, yScale);
    } else {
        InterpolateGrid(source, dest, xScale, yScale, method);
    }
}

}  // namespace

QResult CQELImageTransform::Resample(IQEL* source, IQEL** result, int newWidth, int newHeight, int method,
                                     int nearestOnly) {
    if (source == nullptr) return QEL_E_FAIL;
    if (result == nullptr) return QEL_E_POINTER;
    ImageView from;
    int reserved = 0;
    const QResult format = source->GetFormat(&from.bitCount, &from.colourModel, &reserved);
    if (format < 0) return format;
    source->GetSize(&from.width, &from.height, &from.planes);
    source->GetBits(0, &reserved, &from.bits, &from.stride);

    // Bytes a treatment leaves (a fourth byte of the box average) stay as Create made them.
    Destination scaled =
        MakeDestination(ImageShape{newWidth, newHeight, from.planes, from.bitCount, from.colourModel},
                        DestinationRoad::ImageDIB, Writes::SomePixels);
    if (!scaled.image) {
        *result = nullptr;
        return QEL_E_FAIL;
    }
    if (newWidth == from.width && newHeight == from.height) {
        scaled.image->Assign(source, 0);
    } else if (scaled.Canvas() != nullptr && !from.Empty() && from.bits != nullptr) {
        ResampleInto(from, *scaled.Canvas(), method, nearestOnly);
    }
    *result = scaled.image.Detach();
    return QEL_OK;
}
