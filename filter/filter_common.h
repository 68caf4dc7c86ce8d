// Shared by every filter: the destination image, the result handover, the
// neighbour rule and the pixel kinds the kernels are templated over.
#pragma once

#include <climits>
#include <cstdint>

#include "image/clamp.h"
#include "image/cpu.h"
#include "image/destination.h"
#include "image/image_view.h"
#include "image/pixel.h"
#include "image/pixel_kinds.h"
#include "qel/image.h"

// A filter's source, its freshly created destination and views of both.
struct FilterTarget {
    ImageView source;
    ImageView destination;
    SmartPtr<IQELImage> image;
    bool writable = false;  // the destination has the source's size and depth, with pixels

    // Pixels are computed only when the destination really is what was asked,
    // so a failed Create never leads to a write outside it.
    bool Writable() const { return writable; }
};

// Reads the source and creates a destination of the same size and format.
// `writes` says whether the filter writes every pixel at the depths with a
// direct kind. QEL_E_FAIL when no image could be made (results of the image
// calls are not checked).
QResult MakeFilterTarget(IQEL* source, DestinationRoad road, Writes writes, FilterTarget* target);

// Stores the new image in `result`, or, with `result` null, copies it into the
// source through Assign and releases it. Always QEL_OK.
QResult HandOverResult(IQEL* source, SmartPtr<IQELImage>* image, IQEL** result);

// Which code runs: Fast takes the direct-buffer loops with the vector steps of
// the tier in use, Baseline the same loops with the 16-byte steps at most,
// Plain with none, General computes every pixel through the pixel helpers.
// All give the same bytes.
enum class FilterPath { Fast, Baseline, Plain, General };

// A neighbour's colour: inside the image the pixel itself, anywhere outside it
// pixel (0, 0) with alpha 1 (no edge extension), black with alpha 1 without bits.
inline uint32_t NeighbourColor(const ImageView& view, int64_t x, int64_t y) {
    const bool inside = x >= 0 && y >= 0 && x < view.width && y < view.height;
    return inside ? GetPixelColor(view.bits, static_cast<int>(x), static_cast<int>(y), view.width,
                                  view.height, view.stride, view.bitCount)
                  : GetPixelColor(view.bits, -1, -1, view.width, view.height, view.stride, view.bitCount);
}

// The colour every outside neighbour takes.
inline uint32_t OutsideColor(const ImageView& view) { return NeighbourColor(view, -1, -1); }

// A square neighbourhood clipped to the image. The window of output (x, y)
// starts half = size / 2 to the left and above and spans size pixels, so an
// even size reaches one pixel further up and left than down and right.
struct Span {
    int64_t first = 0;  // first inside index
    int64_t last = -1;  // last inside index; empty when last < first
    int64_t Count() const { return last >= first ? last - first + 1 : 0; }
};
inline Span ClipWindow(int64_t start, int64_t size, int64_t extent) {
    Span span;
    span.first = start < 0 ? 0 : start;
    const int64_t end = start + size - 1;
    span.last = end >= extent ? extent - 1 : end;
    return span;
}

// Range of output positions whose whole window lies inside [0, extent).
inline Span InteriorOutputs(int64_t size, int64_t extent) {
    Span span;
    span.first = size / 2;
    span.last = extent - size + size / 2;
    return span;
}

// The pixel kind serving `view` on `path` (image/pixel_kinds.h), chosen once per call.
template <class Fn>
void WithPixelKind(const ImageView& view, FilterPath path, Fn&& fn) {
    WithPixelKind(view, path != FilterPath::General, fn);
}

// The vector steps a call on `path` may take: the 16-lane steps (SSE2) and
// the 32-lane ones (AVX2), each where the tier in use allows them.
struct PathSteps {
    bool vector;
    bool wide;
};
inline PathSteps StepsOf(FilterPath path) {
    const SimdTier widest = path == FilterPath::Fast       ? SimdTier::Avx512
                            : path == FilterPath::Baseline ? SimdTier::Sse2
                                                           : SimdTier::Scalar;
    return PathSteps{SimdRuns(SimdTier::Sse2, widest), SimdRuns(SimdTier::Avx2, widest)};
}

// Bytes per pixel of the depths with a direct fast path, 0 for the others.
inline int DirectPixelBytes(const ImageView& view) {
    if (view.bits == nullptr) return 0;
    return view.bitCount == 8 ? 1 : view.bitCount == 24 ? 3 : view.bitCount == 32 ? 4 : 0;
}
