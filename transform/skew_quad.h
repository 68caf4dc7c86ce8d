// Kernels of Skew and Quad on plain views, so that they can be run and
// compared without a host.
#pragma once

#include <cstdint>

#include "image/image_view.h"
#include "transform/warp_common.h"

struct SkewParams {
    float xGain = 0;  // horizontal shift per row of distance from yPivot
    float yGain = 0;  // vertical shift per column of distance from xPivot
    int xPivot = 0;   // already resolved: 0 has been replaced by the centre
    int yPivot = 0;
    bool forceAlpha = false;
};

// Shears `source` into `target` (same width and height), nearest pixel.
void SkewPixels(const ImageView& source, const ImageView& target, const SkewParams& params,
                PixelPath path = PixelPath::Fast);

struct QuadCorners {
    double x1, y1;  // top-left
    double x2, y2;  // top-right
    double x3, y3;  // bottom-left
    double x4, y4;  // bottom-right
};

// The derived size of one side: the shorter of two opposite edges, truncated;
// 0 for a quadrilateral whose points are not numbers, INT_MAX at most.
int QuadSideLength(double ax, double ay, double bx, double by, double cx, double cy, double dx, double dy);

// Straightens the quadrilateral of `source` into `target` (same bit count,
// 8 to 32 bits). Pixels sampled within one pixel of the source's edge are 0.
void QuadPixels(const ImageView& source, const ImageView& target, const QuadCorners& corners, bool blend);
