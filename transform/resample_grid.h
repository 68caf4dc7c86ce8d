// Kernel interpolation of a whole grid of samples, as Resample scales with
// the 4x4 kernels and the 12x12 windowed sinc.
#pragma once

#include "image/cpu.h"
#include "image/image_view.h"

// Fills `dest` with samples of `source` at the positions of the destination's
// pixel centres: (x + 0.5) * xScale - 0.5, and the same for y. Where `widest`
// and the tier in use allow AVX2, 24- and 32-bit images are summed eight
// pixels at a time, two pixels' four channels a register (with AVX-512, four
// pixels a register where neighbouring pairs read neighbouring taps); with
// AVX-512, 8-bit images are summed sixteen pixels a register. The lanes run
// over pixels and channels, never over the taps of one sum, so each channel
// adds its terms in the sampler's order and the bytes are the same.
void InterpolateGrid(const ImageView& source, const ImageView& dest, float xScale, float yScale, int method,
                     SimdTier widest = SimdTier::Avx512);
