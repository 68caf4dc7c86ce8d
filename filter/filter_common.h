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
QResult MakeFilterTarget(IQEL* source, DestinationRoad road, Writes writes, FilterTarget* target /*out*/);

// Stores the new image in `result`, or, with `result` null, copies it into the
// source through Assign and releases it. Returns the operation's result, which
// is QEL_OK in every case: a source that offers no IQELImage is left unchanged
// without an error.
QResult HandOverResult(IQEL* source, SmartPtr<IQELImage>* image, IQEL** result /*out*/);

// Which code runs: Fast takes the direct-buffer loops with the vector steps of
// the tier in use, Baseline the same loops with the 16-byte steps at most,
// Plain with none, General computes every pixel through the pixel helpers.
// All give the same bytes.
enum class FilterPath { Fast, Baseline, Plain, General };

// Every neighbour outside the image takes OutsideColour (image/image_view.h):
// no edge extension. The median still asks for it by this name.
inline uint32_t OutsideColor(const ImageView& view) { return OutsideColour(view); }

// A row of `bytes`-byte pixels as wide as `view`, every pixel the outside
// colour: the direct loops read it for window rows above and below the image.
void FillOutsideRow(const ImageView& view, int bytes, unsigned char* row);

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

// The vector steps a call on `path` may take: the 16-lane steps (SSE2), the
// 32-lane ones (AVX2) and the 64-lane ones (AVX-512), each where the tier in
// use allows them.
struct PathSteps {
    bool vector;
    bool wide;
    bool widest;
};
inline PathSteps StepsOf(FilterPath path) {
    const SimdTier allowed = path == FilterPath::Fast       ? SimdTier::Avx512
                             : path == FilterPath::Baseline ? SimdTier::Sse2
                                                            : SimdTier::Scalar;
    return PathSteps{SimdRuns(SimdTier::Sse2, allowed), SimdRuns(SimdTier::Avx2, allowed),
                     SimdRuns(SimdTier::Avx512, allowed)};
}

// Bytes per pixel of the depths with a direct kind, 0 for the others.
inline int DirectPixelBytes(const ImageView& view) { return HasDirectKind(view) ? view.bitCount / 8 : 0; }
