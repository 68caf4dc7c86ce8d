// Kernel interpolation of a whole grid of samples, as Resample scales with
// the 4x4 kernels and the 12x12 windowed sinc.
#pragma once

#include "image/image_view.h"

// How the interior of 24- and 32-bit images is summed. Every choice gives the
// same bytes: lanes run over output pixels and channels, never over the taps
// of one sum, so each channel adds its terms in the same order.
enum class GridLanes {
    Scalar,    // one pixel at a time, the sampler's own loop
    Pairs,     // two pixels' four channels per 8-float vector, SSE2 halves
    WidePairs  // the same vectors as AVX registers, where the processor has AVX2
};

// The widest lanes this processor runs.
GridLanes BestGridLanes();

// Fills `dest` with samples of `source` at the positions of the destination's
// pixel centres: (x + 0.5) * xScale - 0.5, and the same for y.
void InterpolateGrid(const ImageView& source, const ImageView& dest, float xScale, float yScale, int method,
                     GridLanes lanes);
