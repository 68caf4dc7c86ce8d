// What the warps that copy whole pixels (Skew, Quad, CircleTransform) share
// beyond the pixel kinds: the choice of path, the point that is nowhere, and
// how their new image is made.
#pragma once

#include <limits>

#include "image/destination.h"

// Which pixel code a kernel runs: the direct pixel kinds and vector rows
// where they apply, or the general pixel helpers everywhere (the reference
// the fast path must match byte for byte).
enum class PixelPath { Fast, General };

// A coordinate that cannot be a pixel of any image: used for sample points
// that came out of the arithmetic as NaN, infinite or beyond int.
constexpr int kNowhere = std::numeric_limits<int>::min();

// trunc(v) as an int, or kNowhere when v is not a number or does not fit.
inline int TruncOrNowhere(double v) {
    if (!(v > -2147483648.0 && v < 2147483648.0)) return kNowhere;
    return static_cast<int>(v);
}

// The warps write every byte of every pixel of a direct-kind result (8, 24
// or 32 bits), which then needs no clearing; other depths are written pixel
// by pixel through the helpers and start cleared.
inline Writes WarpWrites(int bitCount) {
    return bitCount == 8 || bitCount == 24 || bitCount == 32 ? Writes::EveryPixel : Writes::SomePixels;
}
