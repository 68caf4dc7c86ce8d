// Drawing a turned image: every output pixel sampled at its position turned
// back into the source, one pixel at a time or eight at a time with AVX2.
#pragma once

#include "image/cpu.h"
#include "image/image_view.h"

// The turn of one Rotate call: cosine and sine, where output pixel (0, 0) lies
// in the turned frame, and whether positions turn about the output's centre.
struct TurnGeometry {
    float k = 1.0f, s = 0.0f;
    float startX = 0.0f, startY = 0.0f;
    bool aboutCentre = false;  // positions are shifted back by half the output size
};

// Samples every output pixel whose source position lies more than three
// pixels inside the left and top edges and short of four pixels from the
// right and bottom ones; the others keep what `dest` holds. Where `widest`
// and the tier in use allow AVX2, the cubic kernels of 24- and 32-bit sources
// take eight output pixels a step; the vector lanes run over output pixels,
// never over the taps of one sum, so the bytes are the sampler's.
void DrawTurned(const ImageView& source, const ImageView& dest, const TurnGeometry& turn, int method,
                SimdTier widest = SimdTier::Avx512);
