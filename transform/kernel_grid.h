// Kernel interpolation of a whole grid of samples, as Resample scales with
// the 4x4 kernels and the 12x12 windowed sinc.
#pragma once

#include "image/image_view.h"

// How 24- and 32-bit images are summed. Both give the same
// bytes: the vector lanes run over output pixels and channels, never over
// the taps of one sum, so each channel adds its terms in the same order.
enum class GridLanes {
    Scalar,  // one pixel at a time, the sampler's own loop
    Avx2     // eight pixels at a time, two pixels' four channels a register
};

// Avx2 where the processor has it, else Scalar.
GridLanes BestGridLanes();

// Fills `dest` with samples of `source` at the positions of the destination's
// pixel centres: (x + 0.5) * xScale - 0.5, and the same for y.
void InterpolateGrid(const ImageView& source, const ImageView& dest, float xScale, float yScale, int method,
                     GridLanes lanes);  // Avx2 falls back to Scalar without AVX2
