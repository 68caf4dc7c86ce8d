// Drawing a rotated image for Rotate and RotatePaste: the turn that maps an
// output pixel back to its source position, and the drawers that sample every
// covered pixel through the shared sampler, one pixel at a time or a vector of
// output pixels at a time.
#pragma once

#include <cstdint>

#include "image/cpu.h"
#include "image/image_view.h"

// Output pixel (i, j) lies at (startX + i, startY + j) in the turned frame;
// its source position is that point turned back, plus a shift (Rotate's turn
// about the centre of an image of unchanged size).
// Vectors are taken by reference: the vector drawer's callers are built for
// AVX2 and this header is not.
struct TurnMap {
    float cosine = 1.0f, sine = 0.0f;
    float startX = 0.0f, startY = 0.0f;
    float shiftX = 0.0f, shiftY = 0.0f;

    // For a float or a GCC vector of turned-frame x positions on one row.
    template <class V>
    __attribute__((always_inline)) void SourceOf(const V& turnedX, float turnedY, V* sourceX,
                                                 V* sourceY) const {
        *sourceX = cosine * turnedX + sine * turnedY + shiftX;
        *sourceY = cosine * turnedY - sine * turnedX + shiftY;
    }
};

// The bounding box of a w x h image turned by (cosine, sine), measured from the
// pixel edges, and where its output pixel (0, 0) lies in the turned frame.
struct TurnedFrame {
    int width = 0, height = 0;
    float startX = 0.0f, startY = 0.0f;
};
TurnedFrame TurnRectangle(int width, int height, float cosine, float sine);

// Rotate: samples every output pixel whose source position lies more than
// three pixels inside the left and top edges and short of four pixels from the
// right and bottom ones; the others keep what `dest` holds.
void DrawRotated(const ImageView& source, const ImageView& dest, const TurnMap& turn, int method,
                 SimdTier widest = SimdTier::Avx512);

// RotatePaste: over the top-left area of a 24- or 32-bit `target` the size of
// the turned frame, samples every pixel whose source position lies inside the
// source (edges included). Sources of 32 bits blend by their alpha; shallower
// ones skip samples of `keyColour` (0x00RRGGBB).
void PasteRotated(const ImageView& source, const ImageView& target, const TurnMap& turn, int frameWidth,
                  int frameHeight, int method, uint32_t keyColour, SimdTier widest = SimdTier::Avx512);
