// Kernel of CircleTransform on plain views, so that it can be run and
// compared without a host.
#pragma once

#include "image/image_view.h"
#include "transform/warp_common.h"

struct CircleParams {
    int mode = 0;  // 0 bulge, 1 pinch, 2 swirl, 3 polar unwrap, 4 and up column folding
    bool withAlpha = false;
    float factor = 0;  // swirl strength divisor (mode 2 only)
};

// Remaps `source` into `target` (same width and height) about the centre.
void CirclePixels(const ImageView& source, const ImageView& target, const CircleParams& params,
                  PixelPath path = PixelPath::Fast);
